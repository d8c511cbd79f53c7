#!/usr/bin/env python3
"""Writes one of the samples in the other encodings that textintake reads. What comes of them must
not differ.

    make_samples.py            writes them beside the sample
    make_samples.py --check    only compares; fails when one differs"""

import pathlib
import sys

SAMPLES = pathlib.Path(__file__).resolve().parent / "samples"
SOURCE = SAMPLES / "minato.txt"


def encodings(text):
    yield ".sjis", text.replace("\n", "\r\n").encode("cp932")
    yield ".utf8", text.encode("utf-8-sig")
    yield ".utf16be", b"\xfe\xff" + text.encode("utf-16-be")
    yield ".utf16le", b"\xff\xfe" + text.encode("utf-16-le")


def main():
    differing = []
    for extension, content in encodings(SOURCE.read_text(encoding="utf-8")):
        path = SOURCE.with_suffix(extension)
        if "--check" not in sys.argv[1:]:
            path.write_bytes(content)
        elif not path.exists() or path.read_bytes() != content:
            differing.append(path.name)
    if differing:
        sys.exit(f"{', '.join(differing)}: differs from {SOURCE.name}; run {sys.argv[0]}")


if __name__ == "__main__":
    main()
