#!/usr/bin/env python3
"""Checks that a library needs no code to run before main() or at exit for its own objects: what must
exist early is constant, and what threads may touch while the process exits is never destroyed."""

import re
import subprocess
import sys

FORBIDDEN = re.compile(r"_GLOBAL__(sub_)?[ID]|__static_initialization_and_destruction|__cxa_atexit")


def main():
    symbols = subprocess.run(["readelf", "--wide", "--symbols", sys.argv[1]], check=True,
                             capture_output=True, text=True).stdout
    found = sorted({line.split()[-1] for line in symbols.splitlines() if FORBIDDEN.search(line)})
    for symbol in found:
        print(f"{sys.argv[1]}: {symbol}", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
