#!/usr/bin/env python3
"""Runs one end-to-end case of cases.json through qfs --json and checks its answer.

Usage: run_case.py QFS CASES_JSON CASE_NAME

A case gives the statement, optional extra qfs options, optional files to make first
(relative name to content) and either the expected "outputs" (exit status 0) or the
expected "error" identifier and arguments (exit status 1). "{tmp}" in the statement, the
files and the expectations stands for a fresh scratch folder (resolved, so it matches
what the library computes), which is also the current folder of the run.
"""

import json
import os
import shlex
import shutil
import subprocess
import sys
import tempfile


def substitute(value, tmp):
    if isinstance(value, str):
        return value.replace("{tmp}", tmp)
    if isinstance(value, list):
        return [substitute(v, tmp) for v in value]
    if isinstance(value, dict):
        return {k: substitute(v, tmp) for k, v in value.items()}
    return value


def fail(message):
    print(f"FAIL: {message}", file=sys.stderr)
    return 1


def main():
    qfs, cases_file, name = sys.argv[1:4]
    with open(cases_file, encoding="utf-8") as f:
        case = json.load(f)[name]
    tmp = os.path.realpath(tempfile.mkdtemp(prefix="qfs_e2e_url_"))
    try:
        case = substitute(case, tmp)
        for rel, content in case.get("files", {}).items():
            path = os.path.join(tmp, rel)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as out:
                out.write(content)
        # English texts unless a case asks for another locale with --locale.
        env = {k: v for k, v in os.environ.items() if not k.startswith("LC_") and k != "LANG"}
        env["LANG"] = "C.UTF-8"
        # ZKFS_QFS_LAUNCHER (split into words) runs qfs under a tool such as valgrind.
        launcher = shlex.split(os.environ.get("ZKFS_QFS_LAUNCHER", ""))
        argv = [*launcher, qfs, "--json", *case.get("options", []), case["statement"]]
        run = subprocess.run(argv, cwd=tmp, env=env, capture_output=True, text=True)
        print(f"$ {' '.join(argv)}\n{run.stdout}{run.stderr}")
        lines = [l for l in run.stdout.splitlines() if l.strip()]
        if len(lines) != 1:
            return fail(f"expected one JSON line, got {len(lines)}")
        answer = json.loads(lines[0])
        if "outputs" in case:
            if run.returncode != 0:
                return fail(f"exit status {run.returncode}, expected 0")
            if answer != {"outputs": case["outputs"]}:
                return fail(f"expected outputs {json.dumps(case['outputs'], ensure_ascii=False)}")
        else:
            expected = case["error"]
            if run.returncode != 1:
                return fail(f"exit status {run.returncode}, expected 1")
            error = answer.get("error")
            if error is None:
                return fail("expected an error")
            if error.get("identifier") != expected["identifier"]:
                return fail(f"identifier {error.get('identifier')!r}, "
                            f"expected {expected['identifier']!r}")
            if error.get("arguments") != expected.get("arguments", []):
                return fail(f"arguments {error.get('arguments')!r}, "
                            f"expected {expected.get('arguments', [])!r}")
            if not error.get("message"):
                return fail("the error has no message text")
            for part in expected.get("message_contains", []):
                if part not in error["message"]:
                    return fail(f"message {error['message']!r} lacks {part!r}")
        return 0
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
