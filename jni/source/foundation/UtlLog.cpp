#include "UtlLog.h"

#include <stdio.h>

#include <atomic>
#include <cstring>

#include "UtlRawMemory.h"
#include "UtlString.h"

#include "foundation/UtlLogLine.h"
#include "foundation/UtlLogTypes.h"
#include "foundation/UtlUserCode.h"
#include "platform/UtlCancellation.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFork.h"
#include "platform/UtlKernelThread.h"
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
constexpr char CUT[] = "...";  // the end of a line that is too long

// The turn to write guards them.
char processTag[LOG_NAME_SIZE] UTL_GUARDED_BY(platform::logSinkLock);
LogSink ownSink UTL_GUARDED_BY(platform::logSinkLock) = nullptr;
void* ownContext UTL_GUARDED_BY(platform::logSinkLock) = nullptr;
bool isInOwnSink UTL_GUARDED_BY(platform::logSinkLock) = false;

std::atomic<unsigned long> lostLines{0};
std::atomic<unsigned> losingProcess{0};  // a child begins anew

void countLostLineLocked() UTL_REQUIRES(platform::logSinkLock) {
    if (losingProcess.load(std::memory_order_relaxed) != platform::processNumber()) {
        lostLines.store(0, std::memory_order_relaxed);
        losingProcess.store(platform::processNumber(), std::memory_order_release);
    }
    lostLines.fetch_add(1, std::memory_order_relaxed);
}

// Ends a text inside a line as long as it lives.
class Ended {
public:
    explicit Ended(char* end) : mEnd(end), mBefore(*end) { *end = '\0'; }
    ~Ended() { *mEnd = mBefore; }
    Ended(Ended const&) = delete;
    Ended& operator=(Ended const&) = delete;

private:
    char* const mEnd;
    char const mBefore;
};

bool writeToOwnSinkLocked(LogOutput const& output, char const* tag)
    UTL_REQUIRES(platform::logSinkLock) {
    platform::LogMessage const& message = output.message;
    std::string_view const text = platform::withoutLineEnd(message.text);
    Ended const textEnd(message.text + text.size());
    Ended const nameEnd(message.typeName + message.nameLength);
    LogRecord const record = {std::chrono::system_clock::now(),
                              platform::threadId(),
                              output.type,
                              output.level,
                              tag,
                              {message.typeName, message.nameLength},
                              text};
    platform::NoCancellation const noCancellation;
    bool isWritten = false;
    isInOwnSink = true;
    callUserCode("LogSink", tag, [&] {
        platform::logSinkLock.assumeHeld();
        isWritten = ownSink(record, ownContext);
    });
    isInOwnSink = false;
    return isWritten;
}

// Beside the line goes what it was made of, which the function's format has no place for.
bool printLocked(int priority, char const* tag, LogOutput const& output)
    UTL_REQUIRES(platform::logSinkLock) {
    int (*const unchecked)(int, char const*, char const*, ...) = __android_log_print;
    int result = 0;
    callUserCode("__android_log_print", processTag, [&result, &output, unchecked, priority, tag] {
        result = unchecked(priority, tag, platform::LINE_FORMAT, output.line, &output.message);
    });
    return result >= 0;
}

bool writeToSystemLogLocked(LogOutput& output, char const* tag)
    UTL_REQUIRES(platform::logSinkLock) {
    LevelOutput const& level = LEVELS[output.level];
    if (level.isSystemError && output.tag == nullptr) {
        output.message.isShown = false;
        printLocked(level.priority, SYSTEM_ERROR_TAG, output);
    }
    output.message.isShown =
        output.type != LIBRARY_LOG || output.level < LEVEL_DETAIL || hasSetLibraryFilter();
    return printLocked(level.priority, tag, output);
}

}  // namespace

void writeToLog(LogOutput& output) {
    platform::LogTurn const turn;
    char const* const tag = output.tag != nullptr ? output.tag : processTag;
    bool const isForOwnSink = ownSink != nullptr && !isInOwnSink;
    if (!(isForOwnSink ? writeToOwnSinkLocked(output, tag) : writeToSystemLogLocked(output, tag))) {
        countLostLineLocked();
    }
}

bool LogLine::admit(int type, int level, char const* format) {
    int const clamped = clampLogLevel(level);
    unsigned long const nameLength = admitToLog(type, clamped, mText);
    if (nameLength == NONE || format == nullptr) {
        return false;
    }
    mOutput = {type, clamped, nullptr, mText, {mText, nameLength, mText}};
    return true;
}

// What is not written to is not cleared: the C library ends the text that it has stored even where
// it gives up.

void LogLine::compose(char const* format, va_list arguments) {
    char* const prefix = mText + mOutput.message.nameLength;
    std::memcpy(prefix, LEVELS[mOutput.level].prefix, PREFIX_LENGTH);
    char* const text = prefix + PREFIX_LENGTH;
    mOutput.message.text = text;
    // The line end comes after it.
    unsigned long const room = SIZE - 2 - static_cast<unsigned long>(text - mText);
    int const length = vsnprintf(text, room, format, arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= room) {
        std::memcpy(mText + SIZE - 6, CUT, sizeof CUT);
    }
    // The text may end before that length: "%c" of 0.
    std::memcpy(text + std::strlen(text), "\r\n", 3);
}

void LogLine::composeRaw(char const* format, va_list arguments) {
    mOutput.message.nameLength = 0;
    char* const text = mText + 1;
    mOutput.line = mOutput.message.text = text;
    int const length = vsnprintf(text, SIZE, format, arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= SIZE) {
        std::memcpy(text + SIZE - 4, CUT, sizeof CUT);
    }
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

void setLogSink(utl::LogSink sink, void* context) {
    utl::platform::LogTurn const turn;
    utl::ownSink = sink;
    utl::ownContext = context;
}

unsigned long lostLogLines() {
    using namespace utl;
    bool const isOwnLoss =
        losingProcess.load(std::memory_order_acquire) == platform::processNumber();
    return isOwnLoss ? lostLines.load(std::memory_order_relaxed) : 0;
}
