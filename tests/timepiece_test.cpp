#include "UtlTimepiece.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <type_traits>

#include "foundation/UtlBlockingCall.h"

#include "support/FakeClock.h"
#include "support/LogCapture.h"

namespace {

time_t fakeTime = 0;

}  // namespace

// Takes the place of the C library's.
extern "C" time_t time(time_t*) noexcept {
    return fakeTime;
}

namespace utl {
namespace {

constexpr std::uint32_t NO_TIME = 0xFFFFFFFFu;

static_assert(sizeof(Time) == 18 && std::is_trivially_copyable<Time>::value, "records hold it");

// Year to nanosecond.
using Fields = std::array<unsigned short, 9>;

Time timeOf(Fields const& f) {
    return Time(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8]);
}

std::string textOf(Time const& t) {
    char text[60];
    std::snprintf(text, sizeof text, "%u-%02u-%02u %02u:%02u:%02u.%03u,%03u,%03u", t.year(),
                  t.month(), t.day(), t.hour(), t.minute(), t.second(), t.millisecond(),
                  t.microsecond(), t.nanosecond());
    return text;
}

TEST(TimeTest, RefusesWhatIsOutOfRange) {
    Time time(65534, 12, 31, 23, 59, 59, 999, 999, 999);
    for (Fields const& f :
         {Fields{65535, 1, 1}, Fields{1, 13, 1}, Fields{1, 1, 32}, Fields{1, 0, 1}, Fields{1, 1, 0},
          Fields{1, 1, 1, 24}, Fields{1, 1, 1, 0, 60}, Fields{1, 1, 1, 0, 0, 0, 1000},
          Fields{1, 1, 1, 0, 0, 0, 0, 0, 1000}}) {
        EXPECT_EQ(0, time.set(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8]));
        EXPECT_EQ("65535-13-32 24:60:60.1000,1000,1000", textOf(timeOf(f)));
    }
    EXPECT_EQ("65534-12-31 23:59:59.999,999,999", textOf(time));
    // It folds leap seconds and does not know the months.
    EXPECT_EQ("2024-02-30 00:00:59.000,000,000", textOf(timeOf({2024, 2, 30, 0, 0, 60})));
}

TEST(TimeTest, GetStoresTheFieldsThatAreWanted) {
    Fields f = {};
    auto const get = [&f](Time const& time, unsigned short* year) {
        return time.get(year, &f[1], &f[2], &f[3], &f[4], &f[5], &f[6], &f[7], &f[8]);
    };
    Time time;
    EXPECT_EQ(1, time.set(1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_EQ(1, get(time, &f[0]));
    EXPECT_EQ((Fields{1, 2, 3, 4, 5, 6, 7, 8, 9}), f);
    EXPECT_EQ(0, get(Time(), &f[0]));
    EXPECT_EQ(1, get(timeOf({7, 7, 7}), nullptr));
    EXPECT_EQ((Fields{1, 7, 7}), f);
}

TEST(TimeTest, GreaterFieldsDecideWhichTimeIsPast) {
    for (std::size_t i = 0; i < 9; ++i) {
        Fields earlier = {1, 1, 1, 1, 1, 1, 1, 1, 1};
        Fields later = earlier;
        later[i] = 2;
        std::fill(earlier.begin() + i + 1, earlier.end(), static_cast<unsigned short>(3));
        EXPECT_TRUE(timeOf(earlier).isPastTime(timeOf(later))) << "field " << i;
        EXPECT_FALSE(timeOf(later).isPastTime(timeOf(earlier))) << "field " << i;
    }
}

TEST(TimeTest, DaysAreNumberedWithoutGaps) {
    std::uint32_t number = timeOf({1896, 1, 1}).getDays();
    for (unsigned short year = 1896; year < 2005; ++year) {
        int const february = year % 4 == 0 && year != 1900 ? 29 : 28;
        unsigned short month = 0;
        for (int const days : {31, february, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31}) {
            ++month;
            for (unsigned short day = 1; day <= days; ++day) {
                ASSERT_EQ(number++, timeOf({year, month, day}).getDays()) << year << "-" << month;
            }
        }
    }
}

TEST(TimeTest, CountsElapsedWholeDaysAndSeconds) {
    auto const expectElapsed = [](Fields const& begin, Fields const& end, std::uint32_t days,
                                  std::uint32_t seconds) {
        Time const from = timeOf(begin), to = timeOf(end);
        SCOPED_TRACE(textOf(from) + " to " + textOf(to));
        EXPECT_EQ(days, to.getElapsedDays(from));
        EXPECT_EQ(seconds, to.getElapsedSeconds(from));
    };
    expectElapsed({2024, 1, 1, 1, 1, 1, 1, 1, 1}, {2024, 1, 1, 1, 1, 1, 1, 1, 1}, 0, 0);
    expectElapsed({2024, 1, 1}, {2024, 1, 2, 0, 0, 1}, 1, 86401);
    expectElapsed({2023, 12, 31, 23, 59, 59}, {2024, 1, 1, 0, 0, 1}, 0, 2);
    expectElapsed({0, 2, 28}, {0, 3, 1}, 1, 86400);  // year 0 is an ordinary one
    expectElapsed({0, 12, 31}, {1, 1, 1}, 1, 86400);
    expectElapsed({65535, 1, 1}, {2024, 1, 1}, NO_TIME, NO_TIME);
    expectElapsed({2024, 1, 1}, {65535, 1, 1}, NO_TIME, NO_TIME);
    expectElapsed({2024, 1, 1, 0, 0, 1}, {2024, 1, 1}, NO_TIME, NO_TIME);
    // Deliberate: a fraction up to a millisecond short takes a second or a day away, one that
    // is shorter still does not.
    expectElapsed({2024, 1, 1, 9, 0, 0, 1}, {2024, 1, 2, 9, 0, 0}, 0, 86399);
    expectElapsed({2024, 1, 1, 9, 0, 0, 1, 0, 1}, {2024, 1, 2, 9, 0, 0}, 1, 86400);
    expectElapsed({2024, 1, 1, 9, 0, 0, 1, 1}, {2024, 1, 2, 9, 0, 0, 0, 0, 1}, 1, 86400);
    // Deliberate: the limit, 49710 days and 23296 seconds, looks at whole days and times of
    // day, the sum at the difference of the dates.
    expectElapsed({1970, 1, 1}, {2106, 2, 7, 6, 28, 14}, 49710, 4294967294u);
    expectElapsed({1970, 1, 1}, {2106, 2, 7, 6, 28, 16}, 49710, NO_TIME);
    expectElapsed({1970, 1, 1, 23, 59, 59}, {2106, 2, 8}, 49710, NO_TIME);
    expectElapsed({1970, 1, 1, 0, 0, 0, 0, 0, 1}, {2106, 2, 8}, 49710, 63103);
}

TEST(CurrentTimeTest, LocalTimeFollowsTheZone) {
    Time time;
    auto const timeIn = [&](char const* zone, time_t seconds) {
        fakeTime = seconds;
        setenv("TZ", zone, 1);
        return getLocalTime(&time) == 1 ? textOf(time) : "";
    };
    EXPECT_EQ("2024-02-29 21:00:00.000,000,000", timeIn("UTC-9", 1709208000));
    EXPECT_EQ(1, getSystemTime(&time));
    EXPECT_EQ("2024-02-29 12:00:00.000,000,000", textOf(time));
    EXPECT_EQ("2024-07-01 08:00:00.000,000,000", timeIn("EST5EDT,M3.2.0,M11.1.0", 1719835200));
    EXPECT_EQ("1969-12-31 23:59:55.000,000,000", timeIn("UTC0", -5));
    auto const fails = [&](time_t seconds) {
        return timeIn("UTC0", seconds) == "" && getSystemTime(&time) == 0;
    };
    EXPECT_TRUE(fails(-1));  // no time
    if (sizeof(time_t) == 8) {
        EXPECT_TRUE(fails(static_cast<time_t>(2005930656000)));  // in the year 65535
        EXPECT_TRUE(fails(std::numeric_limits<time_t>::max()));
    }
    EXPECT_EQ(0, getSystemTime(nullptr) + getLocalTime(nullptr));
    EXPECT_EQ("1969-12-31 23:59:55.000,000,000", textOf(time));
    unsetenv("TZ");
    tzset();
}

TEST(CurrentTimeTest, CallsThatMayBlockAreReportedWithTheirNumbers) {
    static std::string reported;
    reported.clear();
    BlockingCall::install([](StatementInfo const& call) {
        reported += std::string(call.function()) + " " + std::to_string(call.line()) + "/" +
                    std::to_string(call.sub()) + " ";
    });
    Time time;
    fakeTime = 0;
    getSystemTime(&time);
    getLocalTime(&time);
    BlockingCall::install(nullptr);
    EXPECT_EQ(
        "getSystemTime 33/1 getSystemTime 33/2 getSystemTime 41/1 getSystemTime 41/2 "
        "getLocalTime 85/1 getLocalTime 85/2 getLocalTime 94/1 getLocalTime 94/2 ",
        reported);
}

class TimeCounterTest : public ::testing::Test {
protected:
    test::FakeClock clock{1000};
    test::LogCapture log;

private:
    test::FakeClock::Use const mUse{clock};
};

TEST_F(TimeCounterTest, MeasuresFromTheLastStartAcrossTheWrapOfTheTick) {
    TimeCounter counter;
    EXPECT_EQ(1, counter.start());
    clock.advance(4294967196 - 1000);  // 100 before 2^32
    EXPECT_EQ(4294966196u, counter.watch());
    EXPECT_EQ(2, counter.start() + TimeCounter::start(1));
    clock.advance(250);
    EXPECT_EQ(150u, TimeCounter::getTickTime());
    EXPECT_EQ(250u, counter.stop());
    EXPECT_EQ(250u, TimeCounter::stop(1));
    EXPECT_TRUE(log.all().empty());
    EXPECT_EQ(NO_TIME, counter.watch());
    EXPECT_TRUE(log.has("::watch()/stop() Failed. HasStarted:[Off], TickTime:[150]\r\n"));
}

TEST_F(TimeCounterTest, FailureOfTheClockIsLogged) {
    EXPECT_EQ(1, TimeCounter::start(7));
    clock.error = EINVAL;
    EXPECT_EQ(0, TimeCounter::start(8));
    EXPECT_TRUE(log.has("[CAUTION!!!]clock_gettime() Failed. CLOCK_MONOTONIC. errno:[22]\r\n"));
    EXPECT_TRUE(log.has("start(ID) Failed. TickTime is Invalid. CounterId:[8]\r\n"));
    EXPECT_EQ(0, TimeCounter().start());
    EXPECT_TRUE(log.has("TimeCounter::start() Failed.\r\n"));
    EXPECT_EQ(NO_TIME, TimeCounter::watch(8));
    EXPECT_TRUE(log.has("Failed. Key Not Applicable. CounterId:[8]\r\n"));
    EXPECT_EQ(NO_TIME, TimeCounter::stop(7));
    EXPECT_TRUE(log.has("(ID) Failed. StartTime:[1000], TickTime:[4294967295]\r\n"));
    EXPECT_EQ(NO_TIME, TimeCounter::stop(7)) << "it is gone in spite of the failure";
    EXPECT_EQ(1u, log.count("Failed. Key Not Applicable. CounterId:[7]\r\n"));
}

TEST_F(TimeCounterTest, FiftyNumberedCountersRunAtATime) {
    for (unsigned long n = 0; n < 50; ++n) {
        EXPECT_EQ(1, TimeCounter::start((n * 7) % 50));  // in no order
        clock.advance(1);
    }
    EXPECT_EQ(0, TimeCounter::start(50));
    EXPECT_TRUE(log.has("TimeCounter::start(ID) Failed. InsertMap Error. CounterId:[50]\r\n"));
    EXPECT_EQ(1, TimeCounter::start(0));  // one that runs begins anew
    EXPECT_EQ(0u, TimeCounter::stop(0));
    for (unsigned long n = 1; n < 50; ++n) {
        EXPECT_EQ(50 - n, TimeCounter::stop((n * 7) % 50));
    }
}

}  // namespace
}  // namespace utl
