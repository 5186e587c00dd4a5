#!/usr/bin/env python3
"""Fails when the library exports anything but its public face: the gateways of the
built-in table, the exported helper and the load and unload hooks, each exactly once.

usage: check_exports.py NM LIBRARY BUILTINS_DEF
"""
import re
import subprocess
import sys

nm, library, builtins_def = sys.argv[1:4]
public = {"QNInitialize_libzkfilesystemquorin", "QNTerminate_libzkfilesystemquorin",
          "quorin::io::filesystem::quorin::getPathConstituentsCaller"}
for name, scope in re.findall(r"^QUORIN_BUILTIN\((\w+), (\w+),", open(builtins_def).read(), re.M):
    public.add(("quorin::io::filesystem::quorin::" if scope == "namespaced" else "") + name)

lines = subprocess.run([nm, "-D", "--defined-only", "--demangle", library],
                       capture_output=True, text=True, check=True).stdout.splitlines()
# "ADDRESS TYPE NAME(PARAMETERS)": judged by the qualified name, the map pins the signature.
exported = [line.split(None, 2)[-1].split("(")[0] for line in lines if line.strip()]
problems = ["exported but not public: " + n for n in exported if n not in public]
problems += ["not exported: " + n for n in sorted(public - set(exported))]
problems += ["exported twice: " + n for n in set(exported) if exported.count(n) > 1]
print("\n".join(problems + ["%d exported symbols, %d problems" % (len(exported), len(problems))]))
sys.exit(1 if problems else 0)
