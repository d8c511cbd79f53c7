#include "UtlTimepiece.h"

#include <time.h>

#include <algorithm>
#include <tuple>

#include "foundation/UtlBlockingCall.h"
#include "platform/UtlTimeZone.h"

namespace utl {

namespace {

constexpr char SOURCE[] = "UtlTimepiece";

constexpr unsigned short NO_YEAR = 65535;
constexpr unsigned short LAST_SECOND = 59;
constexpr std::uint32_t NO_TIME = 0xFFFFFFFFu;
constexpr std::uint32_t SECONDS_PER_DAY = 86400;

// 49710 days and 23296 seconds are 2^32 seconds.
constexpr std::uint32_t MOST_DAYS = 49710;
constexpr std::uint32_t SECONDS_BEYOND_MOST_DAYS = 23296;

bool isLeapYear(unsigned year) {
    return year != 0 && year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

bool isPartOfSecond(unsigned short value) {
    return value <= 999;
}

// time(), reported as the call at `line` of `function`; -1 when it fails.
time_t readClock(char const* function, unsigned long line) {
    BlockingCall const blocking(SOURCE, function, line);
    return time(nullptr);
}

// Stores the broken-down time if it makes a valid one.
int store(tm const& brokenDown, Time* out) {
    auto const part = [](int value) { return static_cast<unsigned short>(value); };
    Time const result(part(brokenDown.tm_year + 1900), part(brokenDown.tm_mon + 1),
                      part(brokenDown.tm_mday), part(brokenDown.tm_hour), part(brokenDown.tm_min),
                      part(brokenDown.tm_sec), 0, 0, 0);
    if (!result.isValid()) {
        return 0;
    }
    *out = result;
    return 1;
}

}  // namespace

Time::Time(unsigned short year, unsigned short month, unsigned short day, unsigned short hour,
           unsigned short minute, unsigned short second, unsigned short millisecond,
           unsigned short microsecond, unsigned short nanosecond) {
    set(year, month, day, hour, minute, second, millisecond, microsecond, nanosecond);
}

int Time::set(unsigned short year, unsigned short month, unsigned short day, unsigned short hour,
              unsigned short minute, unsigned short second, unsigned short millisecond,
              unsigned short microsecond, unsigned short nanosecond) {
    Time candidate;
    candidate.mYear = year;
    candidate.mMonth = month;
    candidate.mDay = day;
    candidate.mHour = hour;
    candidate.mMinute = minute;
    candidate.mSecond = std::min(second, LAST_SECOND);  // deliberate: a leap second is folded
    candidate.mMillisecond = millisecond;
    candidate.mMicrosecond = microsecond;
    candidate.mNanosecond = nanosecond;
    if (!candidate.isValid()) {
        return 0;
    }
    *this = candidate;
    return 1;
}

int Time::get(unsigned short* year, unsigned short* month, unsigned short* day,
              unsigned short* hour, unsigned short* minute, unsigned short* second,
              unsigned short* millisecond, unsigned short* microsecond,
              unsigned short* nanosecond) const {
    if (!isValid()) {
        return 0;
    }
    auto const storeIf = [](unsigned short* out, unsigned short value) {
        if (out != nullptr) {
            *out = value;
        }
    };
    storeIf(year, mYear);
    storeIf(month, mMonth);
    storeIf(day, mDay);
    storeIf(hour, mHour);
    storeIf(minute, mMinute);
    storeIf(second, mSecond);
    storeIf(millisecond, mMillisecond);
    storeIf(microsecond, mMicrosecond);
    storeIf(nanosecond, mNanosecond);
    return 1;
}

bool Time::isValid() const {
    return mYear != NO_YEAR && mMonth >= 1 && mMonth <= 12 && mDay >= 1 && mDay <= 31 &&
           mHour <= 23 && mMinute <= 59 && mSecond <= LAST_SECOND && isPartOfSecond(mMillisecond) &&
           isPartOfSecond(mMicrosecond) && isPartOfSecond(mNanosecond);
}

bool Time::isPastTime(Time const& other) const {
    auto const fields = [](Time const& t) {
        return std::tie(t.mYear, t.mMonth, t.mDay, t.mHour, t.mMinute, t.mSecond, t.mMillisecond,
                        t.mMicrosecond, t.mNanosecond);
    };
    return fields(*this) < fields(other);
}

std::uint32_t Time::getDays() const {
    constexpr std::uint32_t DAYS_BEFORE_MONTH[] = {0,   31,  59,  90,  120, 151,
                                                   181, 212, 243, 273, 304, 334};
    std::uint32_t days = 0;
    if (mYear != 0) {
        std::uint32_t const past = mYear - 1u;
        days = 365 * past + past / 4 - past / 100 + past / 400 + 365;
    }
    if (mMonth >= 1 && mMonth <= 12) {
        days += DAYS_BEFORE_MONTH[mMonth - 1];
        days += mMonth > 2 && isLeapYear(mYear) ? 1 : 0;
    }
    return days + mDay - 1;
}

std::uint32_t Time::getElapsedDays(Time const& earlier) const {
    if (!isValid() || !earlier.isValid() || isPastTime(earlier)) {
        return NO_TIME;
    }
    std::uint32_t const days = getDays() - earlier.getDays();
    if (days == 0) {
        return 0;
    }
    bool const isWhole = secondOfDay() != earlier.secondOfDay()
                             ? secondOfDay() > earlier.secondOfDay()
                             : hasReachedFraction(earlier);
    return isWhole ? days : days - 1;
}

std::uint32_t Time::getElapsedSeconds(Time const& earlier) const {
    std::uint32_t const days = getElapsedDays(earlier);
    std::uint32_t const ofDay = secondOfDay() - earlier.secondOfDay();
    // Deliberate: the limit looks at the elapsed days, the sum counts midnights. Close to the limit
    // the two differ by a day; those who compare durations see the same everywhere. NO_TIME is
    // among what is more than MOST_DAYS.
    if (days > MOST_DAYS || (days == MOST_DAYS && ofDay >= SECONDS_BEYOND_MOST_DAYS)) {
        return NO_TIME;
    }
    std::uint32_t const seconds = SECONDS_PER_DAY * (getDays() - earlier.getDays()) + ofDay;
    return seconds == 0 || hasReachedFraction(earlier) ? seconds : seconds - 1;
}

std::uint32_t Time::secondOfDay() const {
    return mHour * 3600u + mMinute * 60u + mSecond;
}

std::uint32_t Time::nanosecondOfSecond() const {
    return mMillisecond * 1000000u + mMicrosecond * 1000u + mNanosecond;
}

// Deliberate: not a plain comparison. Fractions that are up to a millisecond short do not count as
// reached, larger gaps wrap and do; logged durations are computed so everywhere.
bool Time::hasReachedFraction(Time const& earlier) const {
    std::uint32_t const own = nanosecondOfSecond();
    std::uint32_t const other = earlier.nanosecondOfSecond();
    return own == other || own + 1000000u - other > 999999u;
}

int getSystemTime(Time* out) {
    if (out == nullptr) {
        return 0;
    }
    time_t const now = readClock("getSystemTime", 33);
    if (now == -1) {
        return 0;
    }
    tm brokenDown;
    bool isConverted;
    {
        BlockingCall const blocking(SOURCE, "getSystemTime", 41);
        platform::StaticGuard const guard(platform::timeZoneLock);
        isConverted = gmtime_r(&now, &brokenDown) != nullptr;
    }
    return isConverted ? store(brokenDown, out) : 0;
}

int getLocalTime(Time* out) {
    if (out == nullptr) {
        return 0;
    }
    time_t const now = readClock("getLocalTime", 85);
    if (now == -1) {
        return 0;
    }
    LocalTimeTzApp zone;
    tm brokenDown;
    bool isConverted;
    {
        BlockingCall const blocking(SOURCE, "getLocalTime", 94);
        isConverted = zone.LocalTimeTz(static_cast<long>(now), brokenDown) != -1;
    }
    return isConverted ? store(brokenDown, out) : 0;
}

}  // namespace utl
