#!/usr/bin/env python3
"""Checks that a library needs no code to run before main() or at exit for its own objects, and that
it is never unloaded: what must exist early is constant, and what threads may touch while the process
exits, or after somebody has closed the library, is never destroyed."""

import re
import subprocess
import sys

FORBIDDEN = re.compile(r"_GLOBAL__(sub_)?[ID]|__static_initialization_and_destruction|__cxa_atexit")


def readelf(what):
    return subprocess.run(["readelf", "--wide", what, sys.argv[1]], check=True,
                          capture_output=True, text=True).stdout


def main():
    symbols = readelf("--symbols")
    errors = sorted({line.split()[-1] for line in symbols.splitlines() if FORBIDDEN.search(line)})
    dynamic = readelf("--dynamic")
    if "SONAME" in dynamic and "NODELETE" not in dynamic:
        errors.append("may be unloaded")
    for error in errors:
        print(f"{sys.argv[1]}: {error}", file=sys.stderr)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
