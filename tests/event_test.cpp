#include "UtlEvent.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "UtlSyncObject.h"

#include "support/FakeClock.h"
#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/Process.h"

namespace utl {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Above any wait of these tests.
constexpr unsigned long LONG_LIMIT = 30000;

// A thread that waits once.
struct Waiter {
    explicit Waiter(std::function<int()> const& wait)
        : result(std::async(std::launch::async, [this, wait] {
              // It does not take the processor from the thread that wakes it: that one can switch
              // an event on and off again before this one looks.
              sched_param const priority{};
              sched_setscheduler(0, SCHED_BATCH, &priority);
              id = gettid();
              return wait();
          })) {}

    // Until the thread has gone to sleep and stays there.
    bool comesToSleep() const {
        return test::comesTrue([this, looks = 0]() mutable {
            std::string stat;
            std::getline(std::ifstream("/proc/self/task/" + std::to_string(id) + "/stat"), stat);
            looks = stat.find(") S ") != std::string::npos ? looks + 1 : 0;
            return looks == 3;
        });
    }

    bool endsWithin(std::chrono::seconds limit) const {
        return result.wait_for(limit) == std::future_status::ready;
    }
    int get() { return endsWithin(test::PATIENCE) ? result.get() : -100; }

    std::atomic<int> id{0};
    std::future<int> result;
};

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

TEST(EventTest, OffCanBeWaitedForInOneModeOnly) {
    for (int const mode : {0, 2}) {
        EXPECT_EQ(WAIT_FAILED, Event(0, mode).waitToOff(0));
        EXPECT_EQ(REACHED, Event(7, mode).waitToOn(0));
    }
    EXPECT_EQ(REACHED, Event(0, Event::TWO_CONDITIONS).waitToOff(0));
}

TEST(EventTest, WaitRunsOutNotBeforeItsLimitInTheNextSecond) {
    auto const second = std::chrono::floor<std::chrono::seconds>(steady_clock::now());
    test::FakeClock clock(second.time_since_epoch() / milliseconds(1) + 900);
    Waiter waiter([&clock] {
        test::FakeClock::Use const use(clock);
        return Event(0, 0).waitToOn(200);
    });
    EXPECT_EQ(TIMED_OUT, waiter.get());
    EXPECT_GE(steady_clock::now() - second, milliseconds(1100));
}

TEST(EventTest, OneSettingReleasesEveryWaiter) {
    Event event(0, Event::TWO_CONDITIONS);
    for (bool const on : {true, false}) {
        auto const wait = [&](unsigned long timeout) {
            return on ? event.waitToOn(timeout) : event.waitToOff(timeout);
        };
        Waiter waiters[] = {
            Waiter([&] { return wait(LONG_LIMIT); }), Waiter([&] { return wait(0); }),
            Waiter([&] { return wait(LONG_LIMIT); }), Waiter([&] { return wait(0); })};
        for (Waiter const& waiter : waiters) {
            EXPECT_TRUE(waiter.comesToSleep());
        }
        EXPECT_EQ(on, event.isOff());
        on ? event.setOn() : event.setOff();
        for (Waiter& waiter : waiters) {
            EXPECT_EQ(REACHED, waiter.get());
        }
    }
}

TEST(EventTest, UntimedWaitReturnsAfterAPulse) {
    Event event(0, 0);
    Waiter waiter([&] { return event.waitToOn(0); });
    EXPECT_TRUE(waiter.comesToSleep());
    event.setOn();
    event.setOff();
    EXPECT_EQ(REACHED, waiter.get());
    event.setOn();  // ends the test also where the pulse was missed
}

// What a wait of 30 seconds logs, and then returns, when it is woken for nothing each time that so
// many milliseconds have passed.
std::string waitThroughPulses(bool forOn, std::vector<int> const& passes, int attempts = 20) {
    // So far ahead that the kernel's own clock ends none of the waits.
    auto const inAnHour = steady_clock::now().time_since_epoch() + std::chrono::hours(1);
    test::FakeClock clock(inAnHour / milliseconds(1));
    test::LogCapture const log;
    Event event(forOn ? 0 : 1, Event::TWO_CONDITIONS);
    Waiter waiter([&] {
        test::FakeClock::Use const use(clock);
        return forOn ? event.waitToOn(LONG_LIMIT) : event.waitToOff(LONG_LIMIT);
    });
    auto const hasEnded = [&] { return waiter.endsWithin(std::chrono::seconds(0)); };
    std::string all;
    for (std::size_t pulses = 1; pulses <= passes.size() && !hasEnded(); ++pulses) {
        EXPECT_TRUE(waiter.comesToSleep());
        clock.advance(passes[pulses - 1]);
        forOn ? event.setOn() : event.setOff();
        forOn ? event.setOff() : event.setOn();
        EXPECT_TRUE(test::comesTrue([&] { return hasEnded() || log.all().size() == pulses; }));
        all += hasEnded() ? "" : log.all().back().text;
    }
    forOn ? event.setOn() : event.setOff();
    int const result = waiter.get();
    if (result == REACHED && attempts > 1) {  // it saw the state in the middle of a pulse
        return waitThroughPulses(forOn, passes, attempts - 1);
    }
    return all + std::to_string(result);
}

TEST(EventTest, TimedWaitThatMissesAPulseWaitsForTheRest) {
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
