#!/usr/bin/env python3
"""What Doxygen reads instead of a header: its plain comments as documentation, every line where it was.

    // Before a declaration, and before several that follow each other up to an empty line: for each.
    int setBit(int bit);
    int clearBit(int bit);

    int mCount;  // behind one: for that one

Constants, fields and what is defined in one line may say all by themselves. Everything else that is
public needs words, or Doxygen complains."""

import pathlib
import re
import sys

BEFORE = re.compile(r"^(\s*)//( |$)")
BEHIND = re.compile(r"; +// ")
SAYS_ALL = re.compile(r"^ +(?!friend|using|class|struct|enum|return|template|//|#)[\w:]"
                      r"(?:[^()/]*;|.*\)(?: const| override)* (?:: .*)?\{.*\}|.* = default;)$")
ENDS = re.compile(r"^\s*(?:(?:public|protected|private):|\};)?$|" + BEFORE.pattern)
OPENS_NO_GROUP = re.compile(r"^\s*(?:template <.*> )?(?:friend )?(?:class|struct|enum|namespace)\b")


def is_group(lines):
    """Whether a comment stands for several declarations, which close all that they open."""
    text = "\n".join(lines)
    return (text.count(";") + text.count("}") > 1 and text.count("{") == text.count("}") and
            not any(OPENS_NO_GROUP.match(line) for line in lines))


def words(line):
    line = BEHIND.sub("; ///< ", line)
    return line + "  ///< As it reads." if SAYS_ALL.match(line) else line


def filtered(lines):
    number = 0
    while number < len(lines):
        begin = number
        while number < len(lines) and BEFORE.match(lines[number]):
            number += 1
        if number == begin:
            yield words(lines[number])
            number += 1
            continue
        comment = [BEFORE.sub(r"\1///\2", line) for line in lines[begin:number]]
        begin = number
        while number < len(lines) and not ENDS.match(lines[number]):
            number += 1
        code = lines[begin:number]
        if is_group(code):
            comment[0] = "/**@{*/ " + comment[0]
            code = [BEHIND.sub("; ///< ", line) for line in code]
            code[-1] += " /**@}*/"
        else:
            code[1:] = map(words, code[1:])
        yield from comment + code


def main():
    lines = pathlib.Path(sys.argv[1]).read_text(encoding="utf-8").splitlines()
    lines.remove("")  # the one behind what is said about the file, for which this needs a line
    print("\n".join(filtered(["// @file", *lines])))


if __name__ == "__main__":
    main()
