// Tests of what takes time. They end with the thread manager destroyed, and leave no thread and no
// kernel timer behind.

#ifndef UTL_TESTS_TIME_TEST_H
#define UTL_TESTS_TIME_TEST_H

#include <gtest/gtest.h>

#include <chrono>

#include "UtlManualClock.h"

#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/Process.h"

namespace test {

// The last argument of whatever sets a timer.
constexpr int REARMED = 0;
constexpr int FREE_RUNNING = 1;

constexpr unsigned long HOUR = 3600000;

// By the kernel's clock.
class KernelTimeTest : public ManagerTest {
protected:
    void TearDown() override {
        ManagerTest::TearDown();
        EXPECT_EQ(0u, kernelTimers());
    }

    LogCapture log;
};

// By one that the test moves.
class ManualTimeTest : public KernelTimeTest {
protected:
    void pass(unsigned long ms) { clock.advance(std::chrono::milliseconds(ms)); }

    utl::ManualClock clock;
};

}  // namespace test

#endif  // UTL_TESTS_TIME_TEST_H
