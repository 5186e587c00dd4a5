#!/usr/bin/env python3
"""Turns qfs --json output into one fact per line, so that a case can name whole lines.

    error=IDENTIFIER         arg=ARGUMENT (one line per message argument)
    out1.class=struct        out1.size=1x2        out1.fields=A,B
    out1(2).Field=VALUE      VALUE: text of a 1x1 string, <missing>, true/false, a number
                             (integral ones without ".0"), NaN, <empty> for an empty field
"""
import json
import sys


def scalar(value):
    if value is None:
        return "<empty>"
    cls, v = value["class"], value["value"]
    if cls == "string" and value["size"] == [1, 1]:
        return "<missing>" if v[0] is None else v[0]
    if cls == "logical" and value["size"] == [1, 1]:
        return "true" if v[0] else "false"
    if cls == "double" and value["size"] == [1, 1]:
        x = v[0]
        if isinstance(x, str):
            return x
        return str(int(x)) if float(x).is_integer() else repr(float(x))
    return json.dumps(value, ensure_ascii=False)


def main():
    for line in sys.stdin:
        line = line.strip()
        if not line:
            continue
        record = json.loads(line)
        if "error" in record:
            print("error=" + record["error"]["identifier"])
            for a in record["error"]["arguments"]:
                print("arg=" + str(a))
            continue
        for k, out in enumerate(record["outputs"], start=1):
            p = "out%d" % k
            print("%s.class=%s" % (p, out["class"]))
            print("%s.size=%s" % (p, "x".join(str(d) for d in out["size"])))
            if out["class"] == "struct":
                print("%s.fields=%s" % (p, ",".join(out["fields"])))
                for i, element in enumerate(out["value"], start=1):
                    for name in out["fields"]:
                        print("%s(%d).%s=%s" % (p, i, name, scalar(element[name])))
    return 0


if __name__ == "__main__":
    sys.exit(main())
