#!/usr/bin/env python3
"""Checks the rules of the tree that need no build: no include points up the list of layers, nothing
outside the platform layer asks for the platform, and the NDK build has the same sources."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOURCE = ROOT / "jni" / "source"

# From the bottom to the top: folders of jni/source, or modules where a folder has several layers.
LAYERS = [
    {"UtlApi", "UtlDuration", "UtlThreadSafety"},
    {"platform", "UtlRawMemory", "UtlUtf8"},
    {"containers", "UtlArray", "UtlMap", "UtlRingArray", "UtlQueue"},
    {"UtlSyncObject"},
    {"UtlString", "UtlStringSearch", "UtlBasicString", "UtlWorkingBuffer", "UtlCharacterSet",
     "UtlPattern", "UtlAppender",
     "UtlCharTable", "UtlCharTableData"},
    {"UtlLog", "UtlLogLine", "UtlLogSettings", "UtlLogTypes", "UtlUserCode", "UtlBoundedText", "UtlLineOutput"},
    {"UtlEvent", "UtlAwait", "UtlDeadline", "UtlCountingPointer", "UtlStatementInfo", "UtlImmortal",
     "UtlBlockingCall", "UtlVisitorCount"},
    {"time", "UtlTimepiece", "UtlTimeCounter", "UtlCharSet", "UtlCodePage932", "bitstream",
     "UtlBitStream"},
    {"files", "UtlFile"},
    {"memory", "UtlMemory"},
    {"threads", "messaging", "timers", "UtlThread", "UtlThreadManager", "UtlManualClock",
     "UtlMsg", "UtlThreadRawMsg",
     "UtlTimerInfo", "UtlMsgDrivenThread", "UtlStructMsg", "UtlMsgHandlers", "UtlSharedTimer",
     "UtlTimer", "UtlThreadWatchdog"},
    {"loop", "UtlTask", "UtlLoop"},
    {"Utl"},
]

PLATFORM_QUESTION = re.compile(
    r"^\s*#\s*(if|elif|ifdef|ifndef)\b.*"
    r"(__ANDROID__|__BIONIC__|__GLIBC__|__linux__|__LP64__|__ILP32__|__arm__|__i386__|__x86_64__)")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def layer_of(path):
    folder = path.parent.name
    for number, members in enumerate(LAYERS):
        if path.stem in members or (folder in members and path.is_relative_to(SOURCE)):
            return number
    return None


def check_file(path, errors):
    name = path.relative_to(ROOT)
    own = layer_of(path)
    if own is None:
        errors.append(f"{name}: has no layer; give it one in {pathlib.Path(__file__).name}")
        return
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        where = f"{name}:{number}"
        if PLATFORM_QUESTION.match(line) and path.parent.name != "platform":
            errors.append(f"{where}: asks for the platform outside jni/source/platform")
        include = INCLUDE.match(line)
        if not include:
            continue
        target = next((base / include[1] for base in (ROOT / "include", SOURCE)
                       if (base / include[1]).exists()), None)
        if target is None:
            errors.append(f"{where}: {include[1]} is neither public nor named from jni/source")
        elif layer_of(target) is not None and layer_of(target) > own:
            errors.append(f"{where}: the include of {include[1]} points up")


def check_ndk_sources(errors):
    pattern = re.compile(r"\b\w+/\w+\.cpp\b")
    cmake = set(pattern.findall((SOURCE / "CMakeLists.txt").read_text()))
    ndk = {match.removeprefix("source/") for match in
           re.findall(r"\bsource/\w+/\w+\.cpp\b", (ROOT / "jni" / "Android.mk").read_text())}
    portable = {source for source in cmake if not source.endswith("Linux.cpp")}
    ndk = {source for source in ndk if not source.endswith("Android.cpp")}
    for source in sorted(portable ^ ndk):
        errors.append(f"{source}: is built by only one of CMake and the NDK")


def main():
    errors = []
    for base in (ROOT / "include", SOURCE):
        for path in sorted(base.rglob("*")):
            if path.suffix in (".h", ".cpp"):
                check_file(path, errors)
    check_ndk_sources(errors)
    for error in errors:
        print(error, file=sys.stderr)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
