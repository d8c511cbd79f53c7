#include "UtlEvent.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "UtlSyncObject.h"

#include "support/TimeTest.h"
#include "support/Worker.h"

namespace utl {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Above any wait of these tests.
constexpr unsigned long LONG_LIMIT = 30000;

constexpr int WAITING = 100;

TEST(SyncObjectTest, HolderOwesOneUnlockForEachLock) {
    SyncObject object;
    EXPECT_EQ(0, object.lock());
    EXPECT_TRUE(object.tryLock());
    { SyncGuard const guard(object); }
    EXPECT_EQ(0, object.unlock());
    EXPECT_FALSE(std::async(std::launch::async, [&] { return object.tryLock(); }).get());
    EXPECT_EQ(0, object.unlock());
#ifndef __SANITIZE_THREAD__  // which reports what is refused here
    EXPECT_EQ(EPERM, object.unlock());
#endif
}

// A thread that waits once, for who lets the clock settle before each look at it.
struct Waiter {
    explicit Waiter(std::function<int()> wait)
        : thread("waiter", [this, wait] { return result = wait(); }) {
        thread.start();
    }

    int result = WAITING;
    test::Worker thread;
};

// Keeps a thread in a signal handler.
class HoldUp {
public:
    explicit HoldUp(int threadId) {
        isWanted = true;
        signal(SIGUSR1, [](int) {
            for (isThere = true; isWanted;) {
                sched_yield();
            }
            isThere = false;
        });
        syscall(SYS_tgkill, getpid(), threadId, SIGUSR1);
        await(true);
    }
    ~HoldUp() {
        isWanted = false;
        await(false);
        signal(SIGUSR1, SIG_DFL);
    }

private:
    static void await(bool thread) {
        while (isThere != thread) {
            sched_yield();
        }
    }

    static inline std::atomic<bool> isWanted{false};
    static inline std::atomic<bool> isThere{false};
};

struct EventTest : test::ManualTimeTest {
    // The waiter cannot see the state in the middle.
    void pulse(Event* event, Waiter const& waiter) {
        {
            HoldUp const holdUp(waiter.thread.getId());
            bool const wasOn = event->isOn();
            wasOn ? event->setOff() : event->setOn();
            wasOn ? event->setOn() : event->setOff();
        }
        clock.settle();
    }

    // What a wait of 30 seconds logs, and then returns, when it is woken for nothing each time that
    // so many milliseconds have passed.
    std::string waitThroughPulses(bool forOn, std::vector<int> const& passes) {
        log.clear();
        Event event(forOn ? 0 : 1, Event::TWO_CONDITIONS);
        Waiter const waiter(
            [&] { return forOn ? event.waitToOn(LONG_LIMIT) : event.waitToOff(LONG_LIMIT); });
        for (int const ms : passes) {
            clock.jump(milliseconds(ms));
            pulse(&event, waiter);
        }
        forOn ? event.setOn() : event.setOff();
        clock.settle();
        std::string all;
        for (test::LogLine const& line : log.all()) {
            all += line.text.find("Wait OK") != std::string::npos ? line.text : "";
        }
        return all + std::to_string(waiter.result);
    }
};

TEST_F(EventTest, OffCanBeWaitedForInOneModeOnly) {
    for (int const mode : {0, 2}) {
        EXPECT_EQ(WAIT_FAILED, Event(0, mode).waitToOff(0));
        EXPECT_EQ(REACHED, Event(7, mode).waitToOn(0));
    }
    EXPECT_EQ(REACHED, Event(0, Event::TWO_CONDITIONS).waitToOff(0));
}

TEST_F(EventTest, OneSettingReleasesEveryWaiterAndALimitTheRest) {
    Event event(0, Event::TWO_CONDITIONS);
    for (bool const on : {true, false}) {
        auto const wait = [&](unsigned long timeout) {
            return on ? event.waitToOn(timeout) : event.waitToOff(timeout);
        };
        Waiter const brief([&] { return wait(200); });
        Waiter const waiters[] = {Waiter([&] { return wait(LONG_LIMIT); }),
                                  Waiter([&] { return wait(0); }), Waiter([&] { return wait(0); })};
        pass(199);
        EXPECT_EQ(WAITING, brief.result);
        pass(1);
        EXPECT_EQ(TIMED_OUT, brief.result);
        EXPECT_EQ(on, event.isOff());
        on ? event.setOn() : event.setOff();
        clock.settle();
        for (Waiter const& waiter : waiters) {
            EXPECT_EQ(REACHED, waiter.result);
        }
    }
}

// From so many moments that some end in the next second.
TEST(KernelTimeTest, NoWaitRunsOutBeforeItsLimit) {
    for (int i = 0; i < 25; ++i) {
        auto const begin = steady_clock::now();
        EXPECT_EQ(TIMED_OUT, Event(0, 0).waitToOn(41));
        EXPECT_GE(steady_clock::now() - begin, milliseconds(41));
    }
}

TEST_F(EventTest, UntimedWaitReturnsAfterAPulse) {
    Event event(0, 0);
    Waiter const waiter([&] { return event.waitToOn(0); });
    clock.settle();
    pulse(&event, waiter);
    EXPECT_EQ(REACHED, waiter.result);
    event.setOn();  // ends the test also where the pulse was missed
}

TEST_F(EventTest, TimedWaitThatMissesAPulseWaitsForTheRest) {
    EXPECT_EQ(
        "<UTIL> DTL: Wait OK, but Status(mOn)=false.  Timeout=30000msec Waited=12345msec Retry "
        "wait 17655msec after\r\n"
        "<UTIL> DTL: Wait OK, but Status(mOn)=false.  Timeout=30000msec Waited=17654msec Retry "
        "wait 1msec after\r\n-2",
        waitThroughPulses(true, {12345, 17654, 1}));
    EXPECT_EQ(
        "<UTIL> DTL: Wait OK, but Status(mOff)=false.  Timeout=30000msec Waited=1msec Retry "
        "wait 29999msec after\r\n-2",
        waitThroughPulses(false, {1, 40000}));
}

}  // namespace
}  // namespace utl
