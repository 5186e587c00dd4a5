#!/usr/bin/env python3
"""Fails when the built-in library exports anything but its public face.

Allowed: the gateways, the exported helper and the load and unload hooks. The dynamic
symbol table is read with `nm -D --defined-only`, demangled; a C++ symbol is judged by
its qualified name (the version script pins the exact signatures).
"""
import argparse
import subprocess
import sys

GATEWAYS = {
    "quorin::io::filesystem::quorin::createFileURL",
    "quorin::io::filesystem::quorin::getContentTypeFcn",
    "quorin::io::filesystem::quorin::resolvePathFcn",
    "quorin::io::filesystem::quorin::resolvePathFcnWithAttributes",
    "quorin::io::filesystem::quorin::pathFcn",
    "createURLFromPartsFcn",
    "isAbsolutePathNoIOFcn",
    "getPerms_impl",
    "modifyPerms_impl",
    "mkFileFcn",
    "mkSymlinkFcn",
    "createWindowsShortcutFcn",
    "isSymlinkFcn",
    "relativepath",
    "pathNameLengthValidation",
}
HELPER = "quorin::io::filesystem::quorin::getPathConstituentsCaller"
HOOKS = {"QNInitialize_libzkfilesystemquorin", "QNTerminate_libzkfilesystemquorin"}
ALLOWED = GATEWAYS | {HELPER} | HOOKS


def qualified_name(symbol):
    """The name without its parameter list: "ns::f(int, char)" -> "ns::f"."""
    depth = 0
    for i, c in enumerate(symbol):
        if c == "<":
            depth += 1
        elif c == ">":
            depth -= 1
        elif c == "(" and depth == 0 and i > 0:
            return symbol[:i]
    return symbol


def parse_nm(output):
    """(type, demangled name) for each line of `nm -D --defined-only --demangle`."""
    symbols = []
    for line in output.splitlines():
        parts = line.split(None, 2)
        if len(parts) == 3:
            symbols.append((parts[1], parts[2]))
        elif len(parts) == 2:  # absolute symbols may come without an address
            symbols.append((parts[0], parts[1]))
    return symbols


def judge(symbols):
    """Problems found in a symbol list; empty when it is exactly the public face."""
    problems = []
    names = set()
    for kind, name in symbols:
        qualified = qualified_name(name)
        names.add(qualified)
        if qualified not in ALLOWED:
            problems.append("exported but not public: %s %s" % (kind, name))
    for hook in sorted(HOOKS - names):
        problems.append("missing hook: %s" % hook)
    return problems


def self_test():
    good = ("0000000000003930 T QNInitialize_libzkfilesystemquorin\n"
            "0000000000003940 T QNTerminate_libzkfilesystemquorin\n"
            "0000000000004000 T mkSymlinkFcn(int, std::unique_ptr<vqArray, vqDestroy_deleter>*, int, vqArray const* const*)\n"
            "0000000000004100 T quorin::io::filesystem::quorin::getPathConstituentsCaller(std::basic_string<char16_t> const&)\n")
    assert judge(parse_nm(good)) == [], judge(parse_nm(good))
    leaky = good + ("0000000000005000 W std::vector<int, std::allocator<int> >::~vector()\n"
                    "0000000000006000 V typeinfo for QUORIN::string::MissingNotSupported\n"
                    "0000000000007000 T quorin::gateway::checkCounts(int, int, int, int, int)\n"
                    "0000000000008000 T mkSymlinkFcnHelper()\n")
    problems = judge(parse_nm(leaky))
    assert len(problems) == 4, problems
    assert judge(parse_nm("0000000000003930 T QNInitialize_libzkfilesystemquorin\n")) == [
        "missing hook: QNTerminate_libzkfilesystemquorin"]
    print("self-test passed")
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--library")
    parser.add_argument("--self-test", action="store_true")
    args = parser.parse_args()
    if args.self_test:
        return self_test()
    if not args.library:
        parser.error("--library is required")
    result = subprocess.run([args.nm, "-D", "--defined-only", "--demangle", args.library],
                            capture_output=True, text=True, check=False)
    if result.returncode != 0:
        print(result.stderr)
        return 1
    symbols = parse_nm(result.stdout)
    problems = judge(symbols)
    for p in problems:
        print(p)
    print("%d exported symbols, %d problems" % (len(symbols), len(problems)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
