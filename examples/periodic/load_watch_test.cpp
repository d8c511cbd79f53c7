// The job by a clock that the test moves: hours of it, in no time and in the same order each time.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "LoadWatch.h"
#include "UtlLog.h"
#include "UtlManualClock.h"
#include "UtlThreadManager.h"

namespace {

using namespace std::chrono_literals;

class LoadWatchTest : public ::testing::Test {
protected:
    LoadWatchTest() { registerLogType(LOAD_LOG, "<LOAD> ", utl::LEVEL_ERROR); }

    // What a job had its loop made of is gone by now; the clock goes last.
    void TearDown() override {
        watch.reset();
        loop.reset();
        utl::ThreadManager::destroy();
    }

    LoadWatch::Status status() const { return watch->status().value_or(LoadWatch::Status()); }

    utl::ManualClock clock;  // before any thread of the library
    double load = 0;         // changed while the clock stands
    std::unique_ptr<utl::Loop> loop = utl::Loop::make({});
    std::unique_ptr<LoadWatch> watch =
        std::make_unique<LoadWatch>(*loop, 1min, 2.0, [this] { return load; });
};

TEST_F(LoadWatchTest, ReadsEveryMinute) {
    clock.advance(24h - 1ns);
    EXPECT_EQ(24u * 60 - 1, status().readings);
    clock.advance(1ns);
    EXPECT_EQ(24u * 60, status().readings);
    EXPECT_EQ(0u, status().missed);
}

TEST_F(LoadWatchTest, WarnsOnceWhenTheLoadStaysHigh) {
    for (double const now : {3.0, 3.0, 1.0, 3.0, 3.0}) {
        load = now;
        clock.advance(1min);
    }
    EXPECT_EQ(0u, status().warnings);
    clock.advance(1h);
    EXPECT_EQ(1u, status().warnings);
    load = 0;
    clock.advance(1min);
    load = 3;
    clock.advance(1h);
    EXPECT_EQ(2u, status().warnings);
}

// As after a stop of the whole process: one reading, and the rest are missed.
TEST_F(LoadWatchTest, TellsWhatItMissed) {
    clock.jump(10min + 30s);
    clock.settle();
    EXPECT_EQ(1u, status().readings);
    EXPECT_EQ(9u, status().missed);
    clock.advance(30s);
    EXPECT_EQ(2u, status().readings);
}

TEST_F(LoadWatchTest, EndsWithItsObject) {
    int readings = 0;
    watch = std::make_unique<LoadWatch>(*loop, 1s, 2.0, [&] { return ++readings, 0.0; });
    clock.advance(10s);
    watch.reset();
    clock.advance(10s);
    EXPECT_EQ(10, readings);
}

}  // namespace
