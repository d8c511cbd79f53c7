#include "platform/UtlLogText.h"

#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "platform/UtlEnvironment.h"
#include "platform/UtlKernelThread.h"
#include "platform/UtlTimeZone.h"
#include "text/UtlUtf8.h"

namespace utl {
namespace platform {

namespace {

// By the priority, as the system log numbers them. The library's errors go out as warnings.
struct Look {
    char word[7];  // with the blanks that keep lines aligned
    char colour[6];
};
constexpr Look LOOKS[] = {{"?     ", ""},         {"?     ", ""},         {"debug ", "\x1B[2m"},
                          {"detail", "\x1B[36m"}, {"info  ", "\x1B[32m"}, {"error ", "\x1B[31m"},
                          {"error ", "\x1B[31m"}, {"error ", "\x1B[31m"}};
constexpr char NO_COLOUR[] = "\x1B[0m";

Look const& lookOf(int priority) {
    bool const isKnown = priority >= 0 && priority < static_cast<int>(sizeof LOOKS / sizeof *LOOKS);
    return LOOKS[isKnown ? priority : 0];
}

bool wantsColours() {
    char const* const terminal = environmentVariable("TERM");
    char const* const refusal = environmentVariable("NO_COLOR");
    return terminal != nullptr && *terminal != '\0' && std::strcmp(terminal, "dumb") != 0 &&
           (refusal == nullptr || *refusal == '\0');
}

// The environment is asked once: a program may change it while others log. Standard error may be
// something else each time.
bool isColoured() {
    static bool const hasWish = wantsColours();
    return hasWish && isatty(STDERR_FILENO) == 1;
}

constexpr std::int64_t SECONDS_PER_DAY = 86400;
constexpr std::int64_t DAYS_BEFORE_1970 = 719468;  // from the first of March in the year 0

// How far local time is ahead of UTC. It changes at a quarter of an hour if at all, and is asked
// for once in each: a line costs no look at the time zone, and a child of fork seldom meets the
// lock that the C library has there, which another thread may have held.
std::int64_t secondsAheadOfUtcLocked(time_t now) UTL_REQUIRES(logSinkLock) {
    constexpr time_t QUARTER = 900;
    static time_t quarter UTL_GUARDED_BY(logSinkLock) = -1;
    static std::int64_t ahead UTL_GUARDED_BY(logSinkLock) = 0;
    if (now / QUARTER != quarter) {
        StaticGuard const guard(timeZoneLock);
        tm local;
        tzset();
        ahead = localtime_r(&now, &local) != nullptr ? local.tm_gmtoff : 0;
        quarter = now / QUARTER;
    }
    return ahead;
}

struct Date {
    std::int64_t year;
    int month;
    int day;
};

// Of the Gregorian calendar, so many days after the first of March in the year 0. Years begin
// there, so that the day of a leap year is the last one.
Date dateOf(std::int64_t days) {
    constexpr int DAYS_PER_ERA = 146097;  // 400 years
    int const day = static_cast<int>(days % DAYS_PER_ERA);
    int const year = (day - day / 1460 + day / 36524 - day / (DAYS_PER_ERA - 1)) / 365;
    int const dayOfYear = day - (365 * year + year / 4 - year / 100);
    int const month = (5 * dayOfYear + 2) / 153;  // 0 for March
    int const january = 10;
    return {400 * (days / DAYS_PER_ERA) + year + (month < january ? 0 : 1),
            month < january ? month + 3 : month - 9, dayOfYear - (153 * month + 2) / 5 + 1};
}

// Bytes of the character that `text` begins with; 0 if it is to be shown by its number.
unsigned long visibleBytes(std::string_view text) {
    char padded[5] = {};
    std::memcpy(padded, text.data(), text.size() < 4 ? text.size() : 4);
    unsigned long const bytes = utf8::charBytes(padded);
    if (bytes == 0 || bytes == NONE) {
        return 0;
    }
    std::uint32_t const number = utf8::codePoint(padded, bytes);
    bool const isControl = number < 0x20 || (number >= 0x7F && number < 0xA0);
    bool const isCharacter = number <= 0x10FFFF && (number < 0xD800 || number > 0xDFFF);
    return isCharacter && !isControl ? bytes : 0;
}

// How a byte is shown that is no visible character, or part of none.
std::string_view escaped(char byte, char (&room)[5]) {
    switch (byte) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            snprintf(room, sizeof room, "\\x%02X", static_cast<unsigned char>(byte));
            return room;
    }
}

}  // namespace

LogText::LogText(int priority, char const* tag, int process) {
    appendTimeLocked();
    Look const& look = lookOf(priority);
    bool const hasColour = isColoured();
    appendPlain(hasColour ? look.colour : "");
    appendPlain(look.word);
    appendPlain(hasColour ? NO_COLOUR : "");
    appendPlain(" ");
    append(tag);
    char number[16];
    snprintf(number, sizeof number, "(%d) [", process);
    appendPlain(number);
    char thread[THREAD_NAME_SIZE];
    copyThreadName(thread);
    append(thread);
    appendPlain("] ");
}

void LogText::append(std::string_view text) {
    while (!text.empty()) {
        char room[5];
        unsigned long const bytes = visibleBytes(text);
        appendPlain(bytes != 0 ? text.substr(0, bytes) : escaped(text.front(), room));
        text.remove_prefix(bytes != 0 ? bytes : 1);
    }
}

void LogText::end() {
    mText[mSize++] = '\n';
}

// Keeps the place for the line's end.
void LogText::appendPlain(std::string_view text) {
    if (text.size() < sizeof mText - mSize) {
        std::memcpy(mText + mSize, text.data(), text.size());
        mSize += text.size();
    }
}

void LogText::appendTimeLocked() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    std::int64_t const local =
        DAYS_BEFORE_1970 * SECONDS_PER_DAY + now.tv_sec + secondsAheadOfUtcLocked(now.tv_sec);
    Date const date = dateOf(local / SECONDS_PER_DAY);
    int const second = static_cast<int>(local % SECONDS_PER_DAY);
    char time[128];  // for any numbers, as the compiler sees them
    snprintf(time, sizeof time, "%04lld-%02d-%02d %02d:%02d:%02d.%03ld ",
             static_cast<long long>(date.year), date.month, date.day, second / 3600,
             second / 60 % 60, second % 60, now.tv_nsec / 1000000);
    appendPlain(time);
}

}  // namespace platform
}  // namespace utl
