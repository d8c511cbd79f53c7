#include "UtlLog.h"

#include <stdio.h>

#include <cstddef>

#include "UtlRawMemory.h"
#include "UtlString.h"

#include "containers/UtlFixedMap.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlErrno.h"
#include "platform/UtlLogSink.h"
#include "platform/UtlStaticLock.h"

namespace utl {

namespace {

constexpr unsigned long NAME_SIZE = 32;
constexpr std::size_t MAX_LOG_TYPES = 64;
constexpr int FALLBACK_TYPE = -1;
constexpr int HIGHEST_LEVEL = 4;
constexpr int NO_FILTER_LEVEL = 5;

struct LogTypeData {
    int filterLevel;
    char name[NAME_SIZE];
};

struct LevelOutput {
    char const* prefix;
    int priority;
    bool isSystemError;
};

// Deliberate: errors go out at the warning priority; tools that watch the log count on it.
constexpr LevelOutput LEVELS[] = {
    {"NO : ", platform::LOG_PRIORITY_VERBOSE, false},
    {"ERR: ", platform::LOG_PRIORITY_WARN, true},
    {"INF: ", platform::LOG_PRIORITY_INFO, true},
    {"DTL: ", platform::LOG_PRIORITY_DEBUG, false},
    {"DBG: ", platform::LOG_PRIORITY_VERBOSE, false},
};

constexpr char SYSTEM_ERROR_TAG[] = "XM_SYSERR";

// A leaf, as the sink's lock is; the two are never held together.
platform::StaticLock tableLock(platform::LockOrder::LOG_TABLE);
FixedMap<int, LogTypeData, MAX_LOG_TYPES> logTypes{
    {LIBRARY_LOG, {LEVEL_DETAIL, "<UTIL> "}},
    {FALLBACK_TYPE, {LEVEL_DETAIL, ""}},
};  // guarded by tableLock

char processTag[NAME_SIZE];  // guarded by the turn to write

int clampLevel(int level) {
    return level < 0 || level > HIGHEST_LEVEL ? HIGHEST_LEVEL : level;
}

// Whether a message of this clamped level is written; `*entry` becomes what its type says.
bool passesFilter(int type, int level, LogTypeData* entry) {
    platform::StaticGuard const guard(tableLock);
    LogTypeData const* found = logTypes.find(type);
    if (found == nullptr) {
        found = logTypes.find(FALLBACK_TYPE);
    }
    if (found == nullptr || level == 0 || found->filterLevel < level) {
        return false;
    }
    *entry = *found;
    return true;
}

bool copyName(char (&name)[NAME_SIZE], char const* source) {
    return copyStr(name, NAME_SIZE, source, ALL, WHOLE) != NONE;
}

}  // namespace

bool LogLine::compose(int type, int level, char const* format, va_list arguments) {
    LogTypeData entry;
    mLevel = clampLevel(level);
    if (!passesFilter(type, mLevel, &entry) || format == nullptr) {
        return false;
    }

    zeroMemory(mText, SIZE);
    formatStr(mText, SIZE - 3, "%s%s", entry.name, LEVELS[mLevel].prefix);
    unsigned long const head = t_strlen(mText);
    unsigned long const room = SIZE - 2 - head;  // the line end comes after it
    int const length = vsnprintf(mText + head, room, format, arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= room) {
        cutAt(SIZE - 6);
    }

    unsigned long const end = t_strlen(mText);
    copyStr(mText + end, 3, "\r\n", ALL, TRUNCATE);
    return true;
}

bool LogLine::composeRaw(int type, int level, char const* format, va_list arguments) {
    LogTypeData entry;
    mLevel = clampLevel(level);
    if (!passesFilter(type, mLevel, &entry) || format == nullptr) {
        return false;
    }

    zeroMemory(mText, SIZE);
    int const length = vsnprintf(mText, SIZE, format, arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= SIZE) {
        cutAt(SIZE - 4);
    }
    return true;
}

void LogLine::write() const {
    LevelOutput const& output = LEVELS[mLevel];
    platform::LogTurn const turn;
    if (output.isSystemError) {
        __android_log_print(output.priority, SYSTEM_ERROR_TAG, "%s", mText);
    }
    __android_log_print(output.priority, processTag, "%s", mText);
}

void LogLine::cutAt(unsigned long position) {
    copyMemory(mText + position, "...", 4);
}

}  // namespace utl

int applog(int type, int level, char const* format, ...) {
    utl::platform::ErrnoGuard const guard;
    utl::LogLine line;
    va_list arguments;
    va_start(arguments, format);
    if (line.compose(type, level, format, arguments)) {
        line.write();
    }
    va_end(arguments);
    return 0;
}

int rawlog(int type, int level, char const* format, ...) {
    utl::platform::ErrnoGuard const guard;
    utl::LogLine line;
    va_list arguments;
    va_start(arguments, format);
    if (line.composeRaw(type, level, format, arguments)) {
        line.write();
    }
    va_end(arguments);
    return 0;
}

bool registerLogType(int type, char const* name, int level) {
    utl::LogTypeData data = {utl::clampLevel(level), {}};
    if (!utl::copyName(data.name, name)) {
        return false;
    }
    utl::platform::StaticGuard const guard(utl::tableLock);
    return utl::logTypes.insert(type, data) != nullptr;
}

bool setLogTag(char const* tag) {
    char copy[utl::NAME_SIZE] = {};
    if (!utl::copyName(copy, tag)) {
        return false;
    }
    utl::platform::LogTurn const turn;
    utl::copyMemory(utl::processTag, copy, sizeof copy);
    return true;
}

void setFilterLevel(int type, int level) {
    utl::platform::StaticGuard const guard(utl::tableLock);
    if (utl::LogTypeData* data = utl::logTypes.find(type)) {
        data->filterLevel = utl::clampLevel(level);
    }
}

int getFilterLevel(int type) {
    utl::platform::StaticGuard const guard(utl::tableLock);
    utl::LogTypeData const* data = utl::logTypes.find(type);
    return data != nullptr ? data->filterLevel : utl::NO_FILTER_LEVEL;
}

void setAllFilterLevel(int level) {
    utl::platform::StaticGuard const guard(utl::tableLock);
    for (auto& entry : utl::logTypes) {
        entry.value.filterLevel = utl::clampLevel(level);
    }
}
