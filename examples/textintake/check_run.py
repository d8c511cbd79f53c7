#!/usr/bin/env python3
"""Runs textintake on directories of its own, with all that may come its way: nothing that is put
into the inbox may get lost, and every run has to end in order.

    check_run.py [EMULATOR...] TEXTINTAKE"""

import fcntl
import os
import pathlib
import resource
import signal
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from checks import PATIENCE, await_true, check

MEMORY = pathlib.Path("/dev/shm")
ENVIRONMENT = {**os.environ, "COLUMNS": "200"}


def call(*arguments):
    return subprocess.run([*sys.argv[1:], *arguments], capture_output=True, text=True, check=False,
                          timeout=PATIENCE, env=ENVIRONMENT)


class Run:
    def __init__(self, directory, *more, out=None, **options):
        self.inbox, self.out = directory / "in", out or directory / "out"
        self.inbox.mkdir(exist_ok=True)
        self.process = subprocess.Popen(
            [*sys.argv[1:], "--in", self.inbox, "--out", self.out, *more], text=True,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=ENVIRONMENT, **options)

    def put(self, name, content):
        (self.inbox / name).write_bytes(content)

    def await_taken(self, *names):
        for name in names:
            await_true((self.out / "archive" / name).exists, f"{name} is taken")

    def await_begun(self, name):
        await_true((self.out / f"{name}.txt.part").exists, f"{name} is begun")

    def end(self, signal_number=None, exit_code=0):
        if signal_number:
            self.process.send_signal(signal_number)
        self.output, self.errors = self.process.communicate(timeout=PATIENCE)
        print(self.output, self.errors)
        check(self.process.returncode == exit_code, f"exit code {exit_code}")

    def check_row(self, name, end):
        check(any(line.startswith(name + " ") and line.endswith(end)
                  for line in self.output.splitlines()), f"the row of {name} ends with {end}")

    def check_text(self, name, text):
        content = (self.out / f"{name}.txt").read_bytes().decode()
        check(content.rpartition("== end of ")[0] == text, f"the text of {name} is {text!r:.99}")


def take_texts(directory):
    """Texts with everything that may be wrong with one, while more are coming than fit a queue."""
    texts = {
        "no_dot": ("One\uff22\n".encode(), "oneb\n", " ms"),
        "ends.txt": (b"\xef\xbb\xbfa\r\r\nb\rc\r\n\nd", "a\nb\rc\n\nd\n", " ms"),
        "bad.txt": (b"a\nb\xff\xe3\x81c\n\n\xed\n" + 20 * b"x\0y\n",
                    "a\nb\ufffd\ufffd\ufffdc\n\n\ufffd\n" + 20 * "x\ufffdy\n",
                    " ms  24 bad bytes (lines 2, 4, 5, 6, ...)"),
        "code.sjis": (b"* \x83A\xb1\nb\xf0c\x81\n\x85\x40d\x81",
                     "* \u30a2\u30a2\nb\ufffdc\ufffd\n\ufffdd\ufffd\n",
                     " ms  5 bad bytes (lines 2, 3)"),
        "lead.sjis": (b"a\x81", "a\ufffd\n", " ms  1 bad byte (line 1)"),
        "units.text": ("\ufeffa\n\u00e9\U0001F600\n".encode("utf-16-be") + b"\xd8\0\0a\0\0\0\n\0",
                       "a\n\u00e9\U0001F600\n\ufffda\ufffd\n\ufffd\n",
                       " ms  5 bad bytes (lines 3, 4)"),
        "long.txt": (b"a\xff\n" + 1500 * b"long words " + b"end\nnext",
                     "a\ufffd\n" + 1500 * "long words " + "end\nnext\n",
                     " ms  1 bad byte (line 1); 1 long line (line 2)"),
        "flood.txt": (40000 * b"All lines of this text are the same, and there are many of them.\n",
                      40000 * "all lines of this text are the same, and there are many of them.\n",
                      " ms"),
    }
    run = Run(directory)
    for name, (content, _, _) in texts.items():
        run.put(name, content)
    run.await_taken(*texts)
    run.end(signal.SIGTERM)
    for name, (_, text, row) in texts.items():
        run.check_text(name, text)
        run.check_row(name, row)
    check(" 3,003 " in run.output, "no word is counted twice where a long line is cut")
    check("ERR:" not in run.errors, "a full queue is no error")


def take_names(directory):
    """Names that come again, in one run and in the next; what is no file; a file that its writer
    has not finished; another process at work in the same place."""
    run = Run(directory)
    with open(run.inbox / "late.txt", "wb") as late:
        fcntl.flock(late, fcntl.LOCK_EX)
        late.write(b"first\n")
        late.flush()
        os.mkfifo(run.inbox / "fifo")
        (run.inbox / "directory").mkdir()
        (run.inbox / "link").symlink_to(run.inbox / "late.txt")
        run.put(".half", b"half\n")
        run.put("again.txt", b"one\n")
        run.await_taken("again.txt")
        run.put("again.txt", b"two\n")
        run.await_taken("again.2.txt")
        run.put("again.sjis", b"two\n")
        run.await_taken("again.sjis")
        second = call("--in", run.inbox, "--out", run.out)
        check(second.returncode == 2 and "another textintake" in second.stderr, "one at a time")
        check(not (run.out / "archive/late.txt").exists(), "what is being written is not taken")
        late.write(b"last\n")
    run.await_taken("late.txt")
    run.end(signal.SIGINT)
    for name, row in (("fifo", "a FIFO"), ("directory", "a directory"), ("link", "a symbolic link"),
                      (".half", "its name begins with a dot")):
        run.check_row(name, "passed over: " + row)
    run.check_row("again.txt", " ms  kept as again.2.txt; differs from again.txt")
    run.check_row("again.sjis", " ms  differs from again.txt")
    check(run.output.splitlines()[-1].startswith("4 files, 5 lines, 5 words"), "the totals")

    before = {path: path.read_bytes() for path in run.out.rglob("*") if path.is_file()}
    run = Run(directory)
    run.put("again.txt", b"one\n")
    run.await_taken("again.3.txt")
    run.end(signal.SIGINT)
    run.check_row("again.txt", " ms  kept as again.3.txt; differs from again.sjis")
    run.check_text("late.txt", "first\nlast\n")
    check(all(path.read_bytes() == content for path, content in before.items()),
          "what was there before is as it was")


def take_changing(directory):
    """A file that grows while it is read, of which the worker takes long for the first page."""
    run = Run(directory, "--stall")
    run.put("growing.txt", b"early\n")
    run.await_begun("growing.txt")
    with open(run.inbox / "growing.txt", "ab") as growing:
        growing.write(b"late\n")
    run.await_taken("growing.txt")
    run.end(signal.SIGINT)
    run.check_text("growing.txt", "early\nlate\n")
    check("worker was silent" in run.output, "the watchdog has seen the worker")


def cross_file_systems(directory):
    """To a place that files can only be copied to, where the system has memory for one."""
    with tempfile.TemporaryDirectory(dir=MEMORY if MEMORY.is_dir() else None) as out:
        run = Run(directory, out=pathlib.Path(out))
        run.put("far.txt", b"far\n")
        (run.inbox / "far.txt").chmod(0o440)
        run.await_taken("far.txt")
        await_true(lambda: not list(run.inbox.iterdir()), "the file has left the inbox")
        run.end(signal.SIGINT)
        archived = run.out / "archive/far.txt"
        check(archived.read_bytes() == b"far\n" and archived.stat().st_mode & 0o777 == 0o440,
              "it is in the archive as it was")
        check("ERR:" not in run.errors, "another file system is no error")


def end_early(directory):
    """In the middle of 300 MB, hard to read: no way to end waits, and none loses a byte."""
    block = 20000 * b"\xff and what else there is in a line of fifty bytes\n"
    (directory / "in").mkdir()
    with open(directory / "in/huge.txt", "wb") as huge:
        for _ in range(300):
            huge.write(block)
    for more, signal_number in ([], signal.SIGKILL), (["--for", "1"], None), ([], signal.SIGINT):
        run = Run(directory, *more)
        if signal_number:
            run.await_begun("huge.txt")
        run.end(signal_number, -signal.SIGKILL if signal_number == signal.SIGKILL else 0)
        check((run.inbox / "huge.txt").stat().st_size == 300 * len(block), "the file is there")
        if signal_number != signal.SIGKILL:
            check("1 file is not finished, and still in" in run.output, "what is left is told")
            check(not list(run.out.glob("huge*")), "nothing is left of an output")
    run.check_row("huge.txt", "not finished")


def fill_disk(directory):
    """No file may have more than 100,000 bytes."""
    limit = (100_000, 100_000)
    run = Run(directory, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, limit))
    run.put("large.txt", 300_000 * b"x")
    run.end(exit_code=1)
    check(run.errors.endswith(
        f"textintake: cannot write {run.out}/large.txt.txt.part: File too large\n"), "the reason")
    run.check_row("large.txt", "not finished")
    check((run.inbox / "large.txt").exists() and not list(run.out.glob("large*")), "no trace of it")


def refuse_arguments(directory):
    plain = directory / "plain"
    plain.touch()
    for arguments, sentence in (
            (["--in"], "--in needs a directory"),
            (["--in", directory], "--in needs --out"),
            (["--in", directory / "none", "--out", directory], f"{directory}/none: No such file"),
            (["--in", plain, "--out", directory], f"--in {plain}: Not a directory"),
            (["--in", directory, "--out", directory], "the same directory"),
            (["--out", plain], f"--out {plain}: Not a directory"),
            (["--out", "/dev/null/out"], "--out /dev/null/out: Not a directory"),
            (["--for", "abc"], "--for abc: not a number"),
            (["--for", "0"], "--for 0: not a number"),
            (["--fro", "1"], "there is no --fro")):
        result = call(*arguments)
        check(result.returncode == 2 and sentence in result.stderr and not result.stdout,
              f"{arguments} is refused with {sentence!r}")


def main():
    for case in (take_texts, take_names, take_changing, cross_file_systems, end_early, fill_disk,
                 refuse_arguments):
        with tempfile.TemporaryDirectory() as name:
            case(pathlib.Path(name))


if __name__ == "__main__":
    main()
