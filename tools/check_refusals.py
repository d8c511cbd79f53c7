#!/usr/bin/env python3
"""Checks that a source is refused for what its comments say, and for nothing else.

    check_refusals.py SOURCE COMPILER ARGUMENT...

Each "// refused: SENTENCE" stands for one failing static_assert with that sentence."""

import pathlib
import re
import subprocess
import sys

FAILURE = re.compile(r"error: static(?:_| )assert(?:ion)? failed[^\n]*")
EXPECTED = re.compile(r"// refused: (.*)")


def main():
    source, *command = sys.argv[1:]
    expected = EXPECTED.findall(pathlib.Path(source).read_text(encoding="utf-8"))
    run = subprocess.run([*command, "-std=c++17", "-fsyntax-only", source],
                         capture_output=True, text=True, check=False)
    failures = FAILURE.findall(run.stderr)
    missing = [sentence for sentence in expected
               if not any(sentence in failure for failure in failures)]
    for sentence in missing:
        print(f"{source}: not refused: {sentence}")
    if missing or not expected or len(failures) != len(expected):
        print(f"{len(failures)} refusals, {len(expected)} expected\n{run.stderr}")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
