"""What the checks of the examples have in common."""

import sys
import time

PATIENCE = 60  # seconds


def check(condition, what):
    if not condition:
        sys.exit(f"not so: {what}")


def await_true(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        check(time.monotonic() < end, what)
        time.sleep(0.01)
