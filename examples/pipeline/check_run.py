#!/usr/bin/env python3
"""Runs the pipeline on texts with more lines and words than fit its queues: none may get lost.

    check_run.py [EMULATOR...] PIPELINE"""

import collections
import random
import subprocess
import sys


def count(text):
    """What the pipeline has to print of these words, counted in the plain way."""
    words = collections.Counter(word[:31] for word in text.split())
    first = sorted(words.items(), key=lambda item: (-item[1], item[0]))[:10]
    return "".join(f"{number:8} {word}\n" for word, number in first)


def main():
    pick = random.Random(1)
    words = [f"w{number}" for number in range(30)] + ["x" * 40]
    many = "\n".join(" ".join(pick.choices(words, range(1, 32), k=pick.randrange(8)))
                     for _ in range(25_000))
    for text in "", "\n\n", "one", many:
        run = subprocess.run(sys.argv[1:], input=text, capture_output=True, text=True, timeout=60,
                             check=True)
        if run.stdout != count(text):
            sys.exit(f"not so: {run.stdout} of {text:.99} is {count(text)}")
        if run.stderr.count("words so far") != text.count("\n") // 10_000:
            sys.exit(f"not so: a report after every 10,000 lines: {run.stderr}")


if __name__ == "__main__":
    main()
