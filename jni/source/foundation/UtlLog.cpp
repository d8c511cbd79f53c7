#include "UtlLog.h"

#include <stdio.h>

#include <cstring>

#include "UtlRawMemory.h"
#include "UtlString.h"

#include "foundation/UtlLogLine.h"
#include "foundation/UtlLogTypes.h"
#include "foundation/UtlUserCode.h"
#include "platform/UtlErrno.h"
#include "platform/UtlLogSink.h"

namespace utl {

namespace {

constexpr unsigned long PREFIX_LENGTH = 5;

struct LevelOutput {
    char prefix[PREFIX_LENGTH + 1];
    int priority;
    bool isSystemError;
};

// Deliberate: errors go out at the warning priority; tools that watch the log count on it. Level 0
// is never written.
constexpr LevelOutput LEVELS[] = {
    {"NO : ", platform::LOG_PRIORITY_VERBOSE, false},
    {"ERR: ", platform::LOG_PRIORITY_WARN, true},
    {"INF: ", platform::LOG_PRIORITY_INFO, true},
    {"DTL: ", platform::LOG_PRIORITY_DEBUG, false},
    {"DBG: ", platform::LOG_PRIORITY_VERBOSE, false},
};

constexpr char SYSTEM_ERROR_TAG[] = "XM_SYSERR";

char processTag[LOG_NAME_SIZE];  // guarded by the turn to write

}  // namespace

void writeToSink(int priority, char const* tag, char const* text) {
    callUserCode("__android_log_print", processTag,
                 [=] { __android_log_print(priority, tag, "%s", text); });
}

bool LogLine::admit(int type, int level, char const* format) {
    mLevel = clampLogLevel(level);
    mNameLength = admitToLog(type, mLevel, mText);
    return mNameLength != NONE && format != nullptr;
}

// What is not written to is not cleared: the C library ends the text that it has stored even where
// it gives up.

void LogLine::compose(char const* format, va_list arguments) {
    std::memcpy(mText + mNameLength, LEVELS[mLevel].prefix, PREFIX_LENGTH);
    unsigned long const head = mNameLength + PREFIX_LENGTH;
    unsigned long const room = SIZE - 2 - head;  // the line end comes after it
    int const length = vsnprintf(mText + head, room, format, arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= room) {
        cutAt(SIZE - 6);
    }
    // The text may end before that length: "%c" of 0.
    std::memcpy(mText + head + std::strlen(mText + head), "\r\n", 3);
}

void LogLine::composeRaw(char const* format, va_list arguments) {
    int const length = vsnprintf(mText, SIZE, format, arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= SIZE) {
        cutAt(SIZE - 4);
    }
}

void LogLine::write() const {
    platform::LogTurn const turn;
    LevelOutput const& output = LEVELS[mLevel];
    if (output.isSystemError) {
        writeToSink(output.priority, SYSTEM_ERROR_TAG, mText);
    }
    writeToSink(output.priority, processTag, mText);
}

void LogLine::cutAt(unsigned long position) {
    std::memcpy(mText + position, "...", 4);
}

}  // namespace utl

int applog(int type, int level, char const* format, ...) {
    utl::LogLine line;
    if (!line.admit(type, level, format)) {
        return 0;
    }
    utl::platform::ErrnoGuard const guard;
    va_list arguments;
    va_start(arguments, format);
    line.compose(format, arguments);
    va_end(arguments);
    line.write();
    return 0;
}

int rawlog(int type, int level, char const* format, ...) {
    utl::LogLine line;
    if (!line.admit(type, level, format)) {
        return 0;
    }
    utl::platform::ErrnoGuard const guard;
    va_list arguments;
    va_start(arguments, format);
    line.composeRaw(format, arguments);
    va_end(arguments);
    line.write();
    return 0;
}

bool setLogTag(char const* tag) {
    char copy[utl::LOG_NAME_SIZE] = {};
    if (utl::copyStr(copy, utl::LOG_NAME_SIZE, tag, utl::ALL, utl::WHOLE) == utl::NONE) {
        return false;
    }
    utl::platform::LogTurn const turn;
    utl::copyMemory(utl::processTag, copy, sizeof copy);
    return true;
}
