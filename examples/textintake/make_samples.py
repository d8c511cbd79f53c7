#!/usr/bin/env python3
"""Writes one of the samples in the other encodings that textintake reads, what comes of which must
not differ, and another one with what may be wrong with a text.

    make_samples.py            writes them beside the sample
    make_samples.py --check    only compares; fails when one differs"""

import pathlib
import sys

SAMPLES = pathlib.Path(__file__).resolve().parent / "samples"
SOURCE = SAMPLES / "minato.txt"
WHOLE = SAMPLES / "workshop.txt"


def torn(lines):
    lines = lines[:60]
    lines[2] = lines[2][:20] + b"\xff" + lines[2][20:]
    lines[11] = lines[11][:-8] + b"\xe6\xb8\n"
    lines[40] = b" ".join(5 * lines[12:40]).replace(b"\n", b"") + b"\n"
    return b"".join(lines)


def encodings(text):
    yield ".sjis", text.replace("\n", "\r\n").encode("cp932")
    yield ".utf8", text.encode("utf-8-sig")
    yield ".utf16be", b"\xfe\xff" + text.encode("utf-16-be")
    yield ".utf16le", b"\xff\xfe" + text.encode("utf-16-le")


def main():
    differing = []
    samples = [(SOURCE.with_suffix(extension), content)
               for extension, content in encodings(SOURCE.read_text(encoding="utf-8"))]
    samples.append((SAMPLES / "torn.txt", torn(WHOLE.read_bytes().splitlines(keepends=True))))
    for path, content in samples:
        if "--check" not in sys.argv[1:]:
            path.write_bytes(content)
        elif not path.exists() or path.read_bytes() != content:
            differing.append(path.name)
    if differing:
        sys.exit(f"{', '.join(differing)}: not what {sys.argv[0]} writes; run it")


if __name__ == "__main__":
    main()
