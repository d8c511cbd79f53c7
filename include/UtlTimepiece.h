// Calendar time and stopwatches.
//
//     Time now;
//     if (getLocalTime(&now)) { ... now.hour() ... }
//
//     TimeCounter counter;
//     counter.start();
//     ...
//     unsigned long const elapsed = counter.stop();  // milliseconds

#ifndef UTL_TIMEPIECE_H
#define UTL_TIMEPIECE_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "UtlApi.h"

namespace utl {

// A date and a time of day. The fields are within their ranges, or all of them are one step beyond:
// the invalid value. The day is not checked against the length of the month. A plain value.
class UTL_API Time {
public:
    // The invalid value.
    Time() = default;

    // Year up to 65534, month 1 to 12, day 1 to 31, hour 0 to 23, minute 0 to 59, the parts of a
    // second 0 to 999 each. A second above 59 becomes 59; anything else out of range makes the
    // invalid value.
    Time(unsigned short year, unsigned short month, unsigned short day, unsigned short hour,
         unsigned short minute, unsigned short second, unsigned short millisecond,
         unsigned short microsecond, unsigned short nanosecond);

    // As the constructor, but for values out of range: 0, and nothing changes. 1 otherwise.
    int set(unsigned short year, unsigned short month, unsigned short day, unsigned short hour,
            unsigned short minute, unsigned short second, unsigned short millisecond,
            unsigned short microsecond, unsigned short nanosecond);

    // Stores each field whose pointer is not null. 0, storing nothing, for an invalid time.
    int get(unsigned short* year, unsigned short* month, unsigned short* day, unsigned short* hour,
            unsigned short* minute, unsigned short* second, unsigned short* millisecond,
            unsigned short* microsecond, unsigned short* nanosecond) const;

    unsigned short year() const { return mYear; }
    unsigned short month() const { return mMonth; }
    unsigned short day() const { return mDay; }
    unsigned short hour() const { return mHour; }
    unsigned short minute() const { return mMinute; }
    unsigned short second() const { return mSecond; }
    unsigned short millisecond() const { return mMillisecond; }
    unsigned short microsecond() const { return mMicrosecond; }
    unsigned short nanosecond() const { return mNanosecond; }

    // Every field in its range; the day is not held against the month.
    bool isValid() const;

    // Strictly earlier than `other`.
    bool isPastTime(Time const& other) const;

    // The number of the day. Only differences mean something.
    std::uint32_t getDays() const;

    // Whole days, or seconds, from `earlier` to this time. All 32 bits set when one of them is
    // invalid, when `earlier` is later, and when the seconds have no room in 32 bits.
    std::uint32_t getElapsedDays(Time const& earlier) const;
    std::uint32_t getElapsedSeconds(Time const& earlier) const;

private:
    std::uint32_t secondOfDay() const;
    std::uint32_t nanosecondOfSecond() const;
    bool hasReachedFraction(Time const& earlier) const;

    std::uint16_t mYear = 65535;
    std::uint16_t mMonth = 13;
    std::uint16_t mDay = 32;
    std::uint16_t mHour = 24;
    std::uint16_t mMinute = 60;
    std::uint16_t mSecond = 60;
    std::uint16_t mMillisecond = 1000;
    std::uint16_t mMicrosecond = 1000;
    std::uint16_t mNanosecond = 1000;
};

// The time now, to the second: in UTC, and in the device's time zone. 1, or 0 for a null `out` or a
// clock that cannot be read. Any thread; they report to the watchdog round calls that may block.
UTL_API int getSystemTime(Time* out);
UTL_API int getLocalTime(Time* out);

// A stopwatch in milliseconds on the monotonic clock, as an object or, shared by the whole process,
// by a number. Times wrap at 2^32 milliseconds; what is measured must be shorter. A failure is
// logged and returned as all 32 bits set, or 0 from start().
class UTL_API TimeCounter {
public:
    static constexpr unsigned long MAX_COUNTERS = 50;

    TimeCounter() = default;
    virtual ~TimeCounter();

    // An object has one owner. A second start() begins anew; watch() lets it run on.
    int start();
    std::uint32_t watch();
    std::uint32_t stop();

    // watch() as a duration; empty, and logged, where that fails.
    std::optional<std::chrono::milliseconds> elapsedTime() { return toDuration(watch()); }

    // Any thread. Up to MAX_COUNTERS run at a time; stop() makes room even when it fails.
    static int start(unsigned long id);
    static std::uint32_t watch(unsigned long id);
    static std::uint32_t stop(unsigned long id);
    static std::optional<std::chrono::milliseconds> elapsedTime(unsigned long id) {
        return toDuration(watch(id));
    }

    // Milliseconds on the monotonic clock, which began at some moment in the past.
    static std::uint32_t getTickTime();

private:
    static constexpr std::uint32_t FAILED = 0xFFFFFFFFu;

    static std::optional<std::chrono::milliseconds> toDuration(std::uint32_t milliseconds) {
        return milliseconds != FAILED ? std::optional(std::chrono::milliseconds(milliseconds))
                                      : std::nullopt;
    }

    std::uint32_t mStartTick = FAILED;
    bool mHasStarted = false;
};

}  // namespace utl

#endif  // UTL_TIMEPIECE_H
