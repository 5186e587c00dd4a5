#!/usr/bin/env python3
"""Writes the seed inputs of the gateway fuzz targets (fuzz/corpus/<gateway>/seed-*).

Each seed is one realistic call encoded in the byte format support/ArrayDecoder.hpp
describes, so the fuzzer starts from calls that reach deep into each built-in rather
than from argument-count errors. The dictionary indices are read from ArrayDecoder.cpp,
so the two cannot drift apart. Run it after changing the format; the files are kept in
the repository because the test suite replays them.

  fuzz/seeds.py                       rewrites every seed-* file
  fuzz/seeds.py --encode FILE 'call(1, char("/mnt/d/f"), char("File"))'
                                      writes one input, e.g. a regression case
"""
import sys
import pathlib
import re
import struct as bstruct

HERE = pathlib.Path(__file__).resolve().parent
WORDS = re.findall(r'u"((?:[^"\\]|\\.)*)"',
                   re.search(r"kWords\{(.*?)\};", (HERE / "support/ArrayDecoder.cpp").read_text(),
                             re.S).group(1))
assert len(WORDS) == 64, len(WORDS)


def dims(shape):
    if shape == (1, 1):
        return bytes([0])
    if len(shape) == 2 and shape[0] == 1:
        return bytes([1, shape[1]])
    if len(shape) == 2 and shape[1] == 1:
        return bytes([2, shape[0]])
    if len(shape) == 2 and shape[0] == 0:
        return bytes([5, shape[1]])
    if len(shape) == 2:
        return bytes([3, *shape])
    return bytes([4, *shape])


def text(t):
    units = b""
    count = 0
    for ch in t:
        code = ord(ch)
        if code < 0x80:
            units += bytes([code])
        elif code < 0x10000:
            units += bytes([0xC0]) + bstruct.pack(">H", code)
        else:
            code -= 0x10000
            units += bytes([0xC0]) + bstruct.pack(">H", 0xD800 + (code >> 10))
            units += bytes([0xC0]) + bstruct.pack(">H", 0xDC00 + (code & 0x3FF))
            count += 1
        count += 1
    assert count < 48, t
    return bytes([count]) + units


def char(t):
    return bytes([0]) + text(t) + bytes([0])


def string(elements, shape=None):
    shape = shape or (1, len(elements))
    assert len(elements) <= 8
    out = bytes([1]) + dims(shape)
    for e in elements:
        out += bytes([0]) if e is None else bytes([1]) + text(e)
    return out


def slot(v):
    return bytes([0]) if v is None else bytes([1]) + v


def cell(elements, shape=None):
    shape = shape or (1, len(elements))
    assert len(elements) <= 4
    return bytes([2]) + dims(shape) + b"".join(slot(e) for e in elements)


def struct(**fields):
    out = bytes([3]) + dims((1, 1)) + bytes([len(fields)])
    for name in fields:
        out += bytes([WORDS.index(name)])
    return out + b"".join(slot(v) for v in fields.values())


def logical(*values):
    return bytes([4]) + dims((1, len(values))) + bytes(int(v) for v in values) + bytes([1])


def double(*values):
    out = bytes([5]) + dims((1, len(values)))
    for v in values:
        out += bytes([7]) + bstruct.pack(">d", v)
    return out + bytes([1])


def call(out_count, *args):
    return bytes([out_count, len(args)]) + b"".join(args)


T, F = logical(True), logical(False)
SEEDS = {
    "createFileURL": [
        call(1, char("/mnt/d/f")), call(1, string(["/mnt/d", None, "a b%#?"])),
        call(1, cell([char("rel/x"), char("/mnt/\u00e9")])), call(1, char("")),
    ],
    "getContentTypeFcn": [
        call(1, char("/mnt/a.txt")), call(1, string(["/mnt/b.html"])), call(1, char("/mnt/d")),
        call(1, char("/mnt/d/f")),
    ],
    "resolvePathFcn": [
        call(1, char("/mnt/d/l")), call(1, string(["/mnt/loop", "/mnt/noperm/h", None])),
        call(1, char("file:///mnt/d/s/"), char("ResolveSymbolicLinks"), F),
        call(1, cell([char("mem://root/"), char("d/../d/f")]),
             struct(LocalPathFromFileScheme=T, ResolveSymbolicLinks=F)),
    ],
    "resolvePathFcnWithAttributes": [
        call(1, string(["/mnt/d/f", "/mnt/d", "/mnt/d/dangling"])),
        call(1, char("/mnt/d/l"), char("ResolveSymbolicLinks"), T),
        call(1, char("mem://root/x")),
    ],
    "pathFcn": [
        call(1, char("/mnt/d/f.txt")), call(1, string(["C:\\a\\b.c", "//srv/share/x"]), char("windows")),
        call(1, char("http://h:8080/a?q=1#f"), char("schema")),
        call(1, string(["a.b", "x/"]), string(["unix", "windows"])),
    ],
    "createURLFromPartsFcn": [
        call(1, char("http://h/a/b"), char("../c?q")), call(1, string(["file:///mnt/"]), char("d/f")),
        call(1, char("mem://root/"), char("#frag")),
    ],
    "isAbsolutePathNoIOFcn": [
        call(1, string(["/a", "a", None, "C:\\x", "file:///x"])), call(1, cell([char("~")])),
    ],
    "getPerms_impl": [
        call(1, char("/mnt/d/f"), char("File")),
        call(1, char("/mnt/d/l"), char("Other"), string(["OtherRead", "Readable"])),
        call(1, char("mem://root/"), char("Folder"), cell([char("GroupRead")])),
    ],
    "modifyPerms_impl": [
        call(1, char("/mnt/d/f"), char("File"), struct(OtherRead=T)),
        call(0, char("/mnt/d"), char("Folder"), struct(Readable=F), F, char("all")),
        call(1, char("/mnt/d"), char("Folder"), struct(GroupWrite=T), F, char("files")),
        call(1, char("/mnt/d/l"), char("Other"), struct(OtherRead=T), F, char("target")),
        call(1, char("/mnt/noperm"), char("Folder"), struct(Writable=F), F, char("folders")),
    ],
    "mkFileFcn": [
        call(3, char("/mnt/new/a/b.txt")), call(0, char("/mnt/d/f"), char("overwrite")),
        call(1, string(["/mnt/d/f"]), char("preserve")), call(1, char("mem://root/m")),
    ],
    "mkSymlinkFcn": [
        call(0, char("/mnt/new/l"), char("/mnt/d/f")),
        call(0, char("/mnt/d/l"), char("s"), char("ReplacementRule"), char("overwrite")),
        call(0, string(["/mnt/x"]), string(["/mnt/loop"])),
    ],
    "createWindowsShortcutFcn": [call(0, char("/mnt/a.lnk"), char("/mnt/d"))],
    "isSymlinkFcn": [
        call(2, string(["/mnt/d/l", "/mnt/d/f", "/mnt/loop", "/mnt/noperm/h", None])),
        call(1, cell([char("/mnt/d/dangling")])),
    ],
    "relativepath": [
        call(1, char("/mnt/d"), string(["/mnt/d/s/g", "/mnt/a.txt", "http://h/x"])),
        call(1, char("file:///mnt/"), cell([char("file:///mnt/d/f")])),
    ],
    "pathNameLengthValidation": [
        call(1, string(["/mnt/d", None, "x" * 40])), call(1, cell([char("a"), char("")])),
    ],
}

# The parser and IRI targets read text: their seeds are plain lines.
LINES = {
    "qfs_parser": [
        "r = modifyPerms_impl('/tmp/d', 'Folder', struct('Readable', true), false, 'all')",
        "[a, ~] = isSymlinkFcn([\"x\" missing; \"y\" \"z\"]);",
        "x = {reshape(1:6, 1, 2, 3), zeros(0, 3), logical([1 0]), -2.5e3, NaN, -Inf} % c",
        "help pathFcn", "v = repmat(strings(1, 2), 2, 1)", "s = struct('a', {1, 'x'})",
    ],
    "iri": [
        "\x05http://user@h:8080/a/b?q#f", "\x00file:///tmp/a%20b/%C3%A9", "\x09/a/b/../c",
        "\x0amem://root/x/y/", "\x03s3://bucket/key?x=1", "\x04file://localhost/%ff",
    ],
}


def write_seeds():
    """Replaces each target's seed-* files; regress-* files stay."""
    table = {**SEEDS, **{t: [line.encode() for line in lines] for t, lines in LINES.items()}}
    for target, seeds in table.items():
        folder = HERE / "corpus" / target
        folder.mkdir(parents=True, exist_ok=True)
        for old in folder.glob("seed-*"):
            old.unlink()
        for i, seed in enumerate(seeds):
            (folder / f"seed-{i:02d}").write_bytes(seed)


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[1] == "--encode":
        pathlib.Path(sys.argv[2]).write_bytes(eval(sys.argv[3]))
    else:
        write_seeds()
