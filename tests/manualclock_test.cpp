// The clock that tests move by hand.

#include "UtlManualClock.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"

#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/MessageStation.h"
#include "support/Worker.h"

namespace utl {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using test::RunningStation;
using test::Worker;

constexpr long EXPIRY = TimerMsg::ID;

struct ManualClockTest : test::ManagerTest {
    ManualClock clock;
};

TEST_F(ManualClockTest, Smoke) {
    ASSERT_TRUE(clock);
    RunningStation station;
    EXPECT_EQ(1, station->setTimer(60000, 0, 0, 0));
    clock.advance(hours(10));
    EXPECT_EQ(600, station.count(EXPIRY));
    int slept = 0;
    Worker worker("w", [&] {
        for (; slept < 100; ++slept) {
            Thread::sleep(1000);
        }
        return 0;
    });
    worker.start();
    clock.advance(milliseconds(50999));
    EXPECT_EQ(50, slept);
    clock.advance(hours(1));
    EXPECT_EQ(100, slept);
    station->stop(1, 0);
}

}  // namespace
}  // namespace utl
