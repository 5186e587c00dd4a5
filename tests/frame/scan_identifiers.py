#!/usr/bin/env python3
"""Fails when code names a message identifier that the English catalog lacks.

Scans C++ sources under src/, include/, host/ and tools/ (comments removed) for
identifiers written as
  - one literal: "QUORIN:io:filesystem:symlink:FileExists";
  - component and mnemonic apart, as identifier classes are declared:
    FixedMsgID("QUORIN:string", "NotText"), BaseMsgID(..., "QUORIN:x", "y"),
    QUORIN_IDENTIFIER(ns, "QUORIN:string", MissingNotSupported, 0).
A lone literal that only names a component (other identifiers in the catalog extend it,
or it ends with ':') is not an identifier by itself.
"""
import argparse
import os
import re
import sys
import tempfile

SOURCE_SUFFIXES = (".cpp", ".hpp", ".h", ".cc", ".hh", ".def", ".inc", ".ipp")
SCANNED_FOLDERS = ("src", "include", "host", "tools")

LITERAL = re.compile(r'"(QUORIN(?::[A-Za-z0-9_]+)+:?)"')
SPLIT = re.compile(
    r'\b(?:FixedMsgID|BaseMsgID|QUORIN_IDENTIFIER)\s*\('
    r'(?:[^(),"]*,\s*)?'                  # the namespace of QUORIN_IDENTIFIER, or a count
    r'"(QUORIN(?::[A-Za-z0-9_]+)*)"\s*,\s*'
    r'(?:"([A-Za-z_][A-Za-z0-9_]*)"|([A-Za-z_][A-Za-z0-9_]*))\s*[,)]')
# A component kept in a named constant of the same file, then used by name.
COMPONENT_CONSTANT = re.compile(r'\b([A-Za-z_][A-Za-z0-9_]*)\s*=\s*"(QUORIN(?::[A-Za-z0-9_]+)*)"\s*;')
SPLIT_BY_NAME = re.compile(
    r'\b(?:FixedMsgID|BaseMsgID)\s*\(\s*([A-Za-z_][A-Za-z0-9_]*)\s*,\s*"([A-Za-z_][A-Za-z0-9_]*)"\s*[,)]')


def strip_comments(text):
    """Removes // and /* */ comments, keeping string and character literals whole."""
    out = []
    i, n = 0, len(text)
    while i < n:
        c = text[i]
        if c == "/" and i + 1 < n and text[i + 1] == "/":
            j = text.find("\n", i)
            i = n if j < 0 else j
        elif c == "/" and i + 1 < n and text[i + 1] == "*":
            j = text.find("*/", i + 2)
            end = n if j < 0 else j + 2
            out.append(" " + "\n" * text.count("\n", i, end))  # keeps line numbers right
            i = end
        elif c in "\"'":
            j = i + 1
            while j < n and text[j] != c and text[j] != "\n":
                j += 2 if text[j] == "\\" else 1
            out.append(text[i:j + 1])
            i = j + 1
        else:
            out.append(c)
            i += 1
    return "".join(out)


def read_catalog(path):
    """The msgids of a PO file (adjacent string pieces joined)."""
    ids = set()
    current = None
    with open(path, encoding="utf-8") as f:
        for raw in f:
            line = raw.strip()
            if line.startswith("msgid "):
                current = [line[len("msgid "):]]
            elif line.startswith('"') and current is not None:
                current.append(line)
            else:
                if current is not None:
                    ids.add("".join(piece[1:-1] for piece in current))
                current = None
    if current is not None:
        ids.add("".join(piece[1:-1] for piece in current))
    ids.discard("")
    return ids


def identifiers_in(text):
    """(identifier, offset) pairs named in one source text."""
    text = strip_comments(text)
    found = []
    consumed = set()
    for m in SPLIT.finditer(text):
        mnemonic = m.group(2) or m.group(3)
        found.append((m.group(1) + ":" + mnemonic, m.start()))
        consumed.add(m.start(1) - 1)  # the opening quote of the component literal
    constants = {m.group(1): m.group(2) for m in COMPONENT_CONSTANT.finditer(text)}
    for m in SPLIT_BY_NAME.finditer(text):
        if m.group(1) in constants:
            found.append((constants[m.group(1)] + ":" + m.group(2), m.start()))
    for m in LITERAL.finditer(text):
        if m.start() not in consumed:
            found.append((m.group(1), m.start()))
    return text, found


def is_component_only(literal, catalog):
    if literal.endswith(":"):
        return True
    prefix = literal + ":"
    return any(known.startswith(prefix) for known in catalog)


def scan(root, catalog):
    """Returns (checked count, list of problems)."""
    problems = []
    checked = 0
    for folder in SCANNED_FOLDERS:
        base = os.path.join(root, folder)
        for dirpath, dirnames, filenames in os.walk(base):
            dirnames[:] = sorted(d for d in dirnames if d != "build" and not d.startswith("."))
            for name in sorted(filenames):
                if not name.endswith(SOURCE_SUFFIXES):
                    continue
                path = os.path.join(dirpath, name)
                with open(path, encoding="utf-8", errors="surrogateescape") as f:
                    text, found = identifiers_in(f.read())
                for identifier, offset in found:
                    if identifier in catalog or is_component_only(identifier, catalog):
                        checked += 1
                        continue
                    line = text.count("\n", 0, offset) + 1
                    problems.append("%s:%d: %s has no English text"
                                    % (os.path.relpath(path, root), line, identifier))
    return checked, problems


def self_test():
    """The scanner must find what it exists to find."""
    with tempfile.TemporaryDirectory() as tmp:
        os.makedirs(os.path.join(tmp, "src"))
        os.makedirs(os.path.join(tmp, "host", "x"))
        with open(os.path.join(tmp, "en.po"), "w", encoding="utf-8") as f:
            f.write('msgid ""\nmsgstr ""\n\nmsgid "QUORIN:a:Known"\nmsgstr "k"\n\n'
                    'msgid ""\n"QUORIN:b:"\n"Split"\nmsgstr "s"\n')
        with open(os.path.join(tmp, "src", "a.cpp"), "w", encoding="utf-8") as f:
            f.write('// "QUORIN:a:InAComment" is not code\n'
                    'const char* k = "QUORIN:a:Known";\n'
                    'const char* c = "QUORIN:a";  /* a component: "QUORIN:z:Hidden" */\n'
                    'const char* s = "QUORIN:b:Split";\n'
                    'const char* m = "QUORIN:a:Missing";\n'
                    'const char* q = "he said \\"QUORIN:a:Known\\"";\n')
        with open(os.path.join(tmp, "host", "x", "b.hpp"), "w", encoding="utf-8") as f:
            f.write('struct A : FixedMsgID<0> { A() : FixedMsgID("QUORIN:a", "Known") {} };\n'
                    'struct B : FixedMsgID<0> { B() : FixedMsgID("QUORIN:a", "Absent") {} };\n'
                    'QUORIN_IDENTIFIER(QUORIN::c, "QUORIN:c", Declared, 1)\n'
                    'struct C : FixedMsgID<0> { C() : FixedMsgID("QUORIN", "Top") {} };\n'
                    'inline constexpr const char* component = "QUORIN:a";\n'
                    'struct D : FixedMsgID<1> { D(int x) : FixedMsgID(component, "ByName", x) {} };\n'
                    'struct E : FixedMsgID<1> { E(int x) : FixedMsgID(component, "Known", x) {} };\n')
        catalog = read_catalog(os.path.join(tmp, "en.po"))
        assert catalog == {"QUORIN:a:Known", "QUORIN:b:Split"}, catalog
        _, problems = scan(tmp, catalog)
        missing = sorted(p.split(": ")[1].split(" ")[0] for p in problems)
        expected = ["QUORIN:Top", "QUORIN:a:Absent", "QUORIN:a:ByName", "QUORIN:a:Missing",
                    "QUORIN:c:Declared"]
        if missing != expected:
            print("self-test: expected %s, found %s" % (expected, missing))
            return 1
        assert any(p.startswith(os.path.join("src", "a.cpp") + ":5:") for p in problems), problems
    print("self-test passed")
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--root")
    parser.add_argument("--catalog")
    parser.add_argument("--self-test", action="store_true")
    args = parser.parse_args()
    if args.self_test:
        return self_test()
    if not args.root or not args.catalog:
        parser.error("--root and --catalog are required")
    catalog = read_catalog(args.catalog)
    checked, problems = scan(args.root, catalog)
    for p in problems:
        print(p)
    if checked == 0:
        print("no identifiers found at all: the scan is looking in the wrong place")
        return 1
    print("%d identifier uses checked, %d without an English text" % (checked, len(problems)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
