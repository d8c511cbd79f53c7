#!/usr/bin/env python3
"""Runs textintake on a directory of its own: a file that is being written is left alone until its
writer lets go of it, and Ctrl-C ends the run in order.

    check_run.py [EMULATOR...] TEXTINTAKE"""

import fcntl
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

PATIENCE = 60  # seconds


def await_true(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"never came: {what}")
        time.sleep(0.01)


def main():
    with tempfile.TemporaryDirectory() as name:
        inbox, out = pathlib.Path(name) / "in", pathlib.Path(name) / "out"
        inbox.mkdir()
        archive = out / "archive"
        being_written = open(inbox / "late.txt", "w", encoding="utf-8")
        fcntl.flock(being_written, fcntl.LOCK_EX)
        being_written.write("first\n")
        being_written.flush()
        intake = subprocess.Popen(
            [*sys.argv[1:], "--in", inbox, "--out", out], stdout=subprocess.PIPE, text=True)
        (inbox / "early.txt").write_text("one two\n\nthree\n")
        await_true((archive / "early.txt").exists, "the first file")
        if (out / "late.txt.txt").exists():
            sys.exit("took a file that was being written")
        being_written.write("last\n")
        being_written.close()
        await_true((archive / "late.txt").exists, "the file that was being written")
        await_true(lambda: not (inbox / "late.txt").exists(), "the end of its source")
        intake.send_signal(signal.SIGINT)
        output, _ = intake.communicate(timeout=PATIENCE)
        print(output)
        if intake.returncode != 0:
            sys.exit(f"ended with {intake.returncode}")
        if "2 files, 5 lines, 5 words" not in output:
            sys.exit("the totals are wrong")
        if (out / "late.txt.txt").read_text() != "first\nlast\n== end of late.txt\n":
            sys.exit("the output is wrong")


if __name__ == "__main__":
    main()
