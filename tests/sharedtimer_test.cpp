// Shared timers, and the timer with a thread of its own.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"
#include "UtlTimer.h"

#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/MessageStation.h"
#include "support/Process.h"

namespace utl {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using test::inThread;

constexpr unsigned long HOUR = 3600000;
constexpr int REARMED = 0;
constexpr int FREE_RUNNING = 1;
constexpr int WAIT = 0;
constexpr int NO_WAIT = 1;

class Listener : public TimerListener {
public:
    explicit Listener(std::function<void(int)> action = nullptr) : mAction(std::move(action)) {}

    void onTime(int timerId) override {
        if (mAction) {
            mAction(timerId);
        }
        calls.add();
    }

    test::Counter calls;

private:
    std::function<void(int)> const mAction;
};

// A listener that stays in its first call until it is released.
class Holder : public Listener {
public:
    Holder()
        : Listener([this](int) {
              if (calls.count() == 0) {
                  entered.open();
                  released.wait();
                  handled = Clock::now();
              } else if (calls.count() == 1) {
                  again = Clock::now();
              }
          }) {}

    test::Gate entered;
    test::Gate released;
    Clock::time_point handled;
    Clock::time_point again;
};

class SharedTimerTest : public ::testing::Test {
protected:
    SharedTimerTest() { ThreadManager::get(); }

    void TearDown() override {
        ThreadManager::destroy();
        EXPECT_EQ(0u, test::kernelTimers());
    }

    // All but that of the watchdog.
    static unsigned kernelTimers() { return test::kernelTimers() - 1; }

    test::LogCapture log;
};

TEST_F(SharedTimerTest, ExpiresAsOftenAsAskedForEachStart) {
    Listener listener;
    SharedTimer timers(0, 0, nullptr, 2, "shared");
    int const thrice = timers.addTimer(&listener, 20, 3, REARMED);
    auto const begin = Clock::now();
    EXPECT_TRUE(timers.start(thrice, WAIT));
    EXPECT_TRUE(test::comesTrue([&] { return !timers.isRunning(thrice); }));
    EXPECT_LE(milliseconds(60), Clock::now() - begin);
    EXPECT_EQ(3u, listener.calls.count());

    int const twice = timers.addTimer(&listener, 1, 2, FREE_RUNNING);
    for (unsigned i = 1; i <= 50; ++i) {  // some have come and gone before anybody can wait
        EXPECT_TRUE(timers.start(twice, WAIT));
        EXPECT_TRUE(test::comesTrue([&] { return !timers.isRunning(twice); }));
        EXPECT_EQ(3 + 2 * i, listener.calls.count());
    }
    EXPECT_EQ(0u, kernelTimers());
}

TEST_F(SharedTimerTest, ANewIntervalAppliesFromTheHandlingOfAnExpiry) {
    for (int freeRunning : {REARMED, FREE_RUNNING}) {
        Holder holder;
        SharedTimer timers(0, 0, nullptr, 2, "shared");
        int const id = timers.addTimer(&holder, 5, 0, freeRunning);
        int const other = timers.addTimer(nullptr, HOUR, 0, REARMED);
        timers.start(id, WAIT);
        EXPECT_TRUE(holder.entered.wait());
        EXPECT_TRUE(timers.start(other, NO_WAIT));  // must not take the change away
        EXPECT_TRUE(timers.setInterval(id, 60));
        holder.released.open();
        EXPECT_TRUE(holder.calls.waitFor(2));
        EXPECT_LE(milliseconds(60), holder.again - holder.handled);
        EXPECT_EQ(60u, timers.getInterval(id));
    }
}

TEST_F(SharedTimerTest, NothingIsHeardAfterAStop) {
    Holder holder;
    Listener other;
    SharedTimer timers(0, 0, nullptr, 2, "shared");
    int const id = timers.addTimer(&holder, 1, 0, FREE_RUNNING);
    timers.start(id, WAIT);
    EXPECT_TRUE(holder.entered.wait());
    auto stopped = inThread([&] { return timers.stop(id, WAIT); });  // while more expiries come
    EXPECT_TRUE(test::comesTrue([&] { return timers.queuedEntriesForTesting() != 0; }));
    holder.released.open();
    EXPECT_TRUE(stopped.get());
    unsigned const calls = holder.calls.count();
    timers.start(timers.addTimer(&other, 1, 0, FREE_RUNNING), WAIT);
    EXPECT_TRUE(other.calls.waitFor(10));
    EXPECT_EQ(calls, holder.calls.count());
}

TEST_F(SharedTimerTest, WhatWasAskedForLastHolds) {
    Holder holder;
    SharedTimer timers(0, 0, nullptr, 5, "shared");
    int const held = timers.addTimer(&holder, 1, 1, REARMED);
    std::vector<int> ids;
    for (int i = 0; i < 4; ++i) {
        ids.push_back(timers.addTimer(nullptr, HOUR, 0, REARMED));
    }
    timers.start(ids[2], WAIT);
    timers.start(held, WAIT);
    EXPECT_TRUE(holder.entered.wait());
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(timers.start(ids[0], NO_WAIT));
    }
    EXPECT_TRUE(timers.start(ids[1], NO_WAIT) && timers.stop(ids[1], NO_WAIT));
    EXPECT_TRUE(timers.restart(ids[2], NO_WAIT));
    EXPECT_TRUE(timers.eraseTimer(ids[3], NO_WAIT));
    EXPECT_FALSE(timers.start(ids[3], NO_WAIT));
    auto last = inThread([&] { return timers.stop(ids[1], WAIT); });
    holder.released.open();
    EXPECT_TRUE(last.get());
    EXPECT_TRUE(test::comesTrue([&] { return timers.getInterval(ids[3]) == NONE; }));
    EXPECT_TRUE(timers.isRunning(ids[0]) && timers.isRunning(ids[2]));
    EXPECT_FALSE(timers.isRunning(ids[1]));
    EXPECT_EQ(2u, kernelTimers());
    EXPECT_TRUE(timers.stop(ids[0], WAIT));
    EXPECT_EQ(1u, kernelTimers());
}

TEST_F(SharedTimerTest, AFullQueueRefusesAndLosesNoTimer) {
    Holder holder;
    Listener other;
    SharedTimer timers(0, 0, nullptr, 3, "shared");
    int const held = timers.addTimer(&holder, 2, 0, FREE_RUNNING);
    int const id = timers.addTimer(nullptr, HOUR, 0, REARMED);
    timers.start(timers.addTimer(&other, 1, 0, REARMED), WAIT);
    timers.start(held, WAIT);
    EXPECT_TRUE(holder.entered.wait());
    unsigned accepted = 0;
    while (timers.start(id, NO_WAIT)) {
        ++accepted;
    }
    EXPECT_GE(256u, accepted);
    EXPECT_LE(254u, accepted);  // one expiry of each timer may have been there first
    EXPECT_FALSE(timers.stop(held, WAIT));
    EXPECT_FALSE(timers.eraseTimer(id, NO_WAIT));
    holder.released.open();
    unsigned const calls = other.calls.count();
    EXPECT_TRUE(other.calls.waitFor(calls + 5));
    EXPECT_TRUE(holder.calls.waitFor(5));
    EXPECT_TRUE(timers.isRunning(id));
}

TEST_F(SharedTimerTest, AListenerRulesItsTimersWhileOthersWaitForTheThread) {
    for (int round = 0; round < 20; ++round) {
        SharedTimer timers(0, 0, nullptr, 4, "shared");
        test::Gate isDone;
        std::string did;
        int id = -1;
        int other = -1;
        test::Gate isWaitedFor;
        Listener listener([&](int timerId) {
            isWaitedFor.wait();
            EXPECT_EQ(id, timerId);
            if (did.size() < 4) {
                did += timers.restart(id, WAIT) ? 'r' : '-';  // once more, though it is a one-shot
                return;
            }
            EXPECT_TRUE(timers.start(other, WAIT) && timers.setInterval(other, 7));
            EXPECT_TRUE(timers.stop(other, WAIT) && timers.eraseTimer(other, NO_WAIT));
            EXPECT_EQ(NONE, timers.getInterval(other));
            int const added = timers.addTimer(nullptr, HOUR, 0, REARMED);
            timers.restartAll(WAIT);
            EXPECT_TRUE(timers.isRunning(added) && timers.isRunning(id));
            EXPECT_FALSE(timers.destroy());
            EXPECT_TRUE(timers.eraseTimer(id, WAIT));
            isDone.open();
        });
        id = timers.addTimer(&listener, 1, 1, REARMED);
        other = timers.addTimer(nullptr, HOUR, 0, REARMED);
        EXPECT_TRUE(timers.start(other, WAIT) && timers.start(id, WAIT));
        auto waiting = inThread([&] {
            isWaitedFor.open();
            timers.stop(other, WAIT);
            return round % 2 == 0 || (isDone.wait() && timers.destroy());
        });
        EXPECT_TRUE(isDone.wait());
        EXPECT_TRUE(waiting.get());
        EXPECT_TRUE(timers.destroy());
        EXPECT_EQ("rrrr", did);
    }
}

TEST_F(SharedTimerTest, TheEndStopsWhatIsToBeStoppedAndStartsNothing) {
    for (bool const isStart : {true, false}) {
        Holder holder;
        SharedTimer timers(0, 0, nullptr, 2, "shared");
        int const held = timers.addTimer(&holder, 1, 1, REARMED);
        int const other = timers.addTimer(nullptr, HOUR, 0, REARMED);
        EXPECT_TRUE(isStart || timers.start(other, WAIT));
        EXPECT_TRUE(timers.start(held, WAIT) && holder.entered.wait());
        auto asked = inThread(
            [&] { return isStart ? timers.start(other, WAIT) : timers.stop(other, WAIT); });
        EXPECT_TRUE(test::comesTrue([&] { return timers.queuedEntriesForTesting() == 1; }));
        auto ended = inThread([&] { return timers.destroy(); });
        EXPECT_TRUE(test::comesTrue([&] { return timers.queuedEntriesForTesting() == 2; }));
        holder.released.open();
        EXPECT_EQ(!isStart, asked.get());
        EXPECT_TRUE(ended.get());
    }
}

TEST_F(SharedTimerTest, AStopWaitsForTheListenerThatIsAtWork) {
    for (bool const erases : {false, true}) {
        test::Gate hasStopped;
        test::Gate mayLeave;
        std::atomic<bool> hasLeft{false};
        int id = -1;
        SharedTimer timers(0, 0, nullptr, 1, "shared");
        Listener listener([&](int) {
            EXPECT_TRUE(erases ? timers.eraseTimer(id, WAIT) : timers.stop(id, WAIT));
            hasStopped.open();
            mayLeave.wait();
            hasLeft = true;
        });
        id = timers.addTimer(&listener, 1, 0, REARMED);
        timers.start(id, WAIT);
        EXPECT_TRUE(hasStopped.wait());
        auto erased = inThread([&] {
            bool const isErased = timers.eraseTimer(id, WAIT);
            EXPECT_TRUE(hasLeft);
            return isErased || erases;  // the listener may have been faster
        });
        mayLeave.open();
        EXPECT_TRUE(erased.get());
        timers.destroy();
    }
}

TEST_F(SharedTimerTest, WhatAListenerAsksForOutlastsWhatWasQueuedBefore) {
    test::Gate entered;
    test::Gate released;
    int id = -1;
    int other = -1;
    SharedTimer timers(0, 0, nullptr, 3, "shared");
    Listener listener([&](int) {
        entered.open();
        released.wait();
        EXPECT_TRUE(timers.stop(id, WAIT) && timers.start(other, WAIT));
    });
    id = timers.addTimer(&listener, 1, 0, REARMED);
    other = timers.addTimer(nullptr, HOUR, 0, REARMED);
    int const marker = timers.addTimer(nullptr, HOUR, 0, REARMED);
    EXPECT_TRUE(timers.start(other, WAIT) && timers.start(id, WAIT));
    EXPECT_TRUE(entered.wait());
    EXPECT_TRUE(timers.restart(id, NO_WAIT) && timers.stop(other, NO_WAIT));
    released.open();
    EXPECT_TRUE(listener.calls.waitFor(1));
    EXPECT_TRUE(timers.start(marker, WAIT));  // behind all of that
    EXPECT_FALSE(timers.isRunning(id));
    EXPECT_TRUE(timers.isRunning(other));
    EXPECT_EQ(1u, listener.calls.count());
    timers.destroy();
}

TEST_F(SharedTimerTest, WhatTheKernelRefusesIsNotRunning) {
    SharedTimer timers(0, 0, nullptr, 1, "shared");
    int const id = timers.addTimer(nullptr, 0x80000000UL, 0, REARMED);
    EXPECT_FALSE(timers.start(id, WAIT));
    EXPECT_TRUE(log.has("<UTIL> ERR: SharedTimerThread(shared) timer_settime SysTimerId:0x"));
    EXPECT_TRUE(
        log.waitFor("<UTIL> ERR: !!!!!!!! SharedTimerThread(shared) Error. MsgId:0x000083ff "
                    "!!!!!!!!\r\n"));
    EXPECT_FALSE(timers.isRunning(id));
    for (int round = 0; round < 2; ++round) {  // while it runs, too, and then there is room for it
        EXPECT_TRUE(timers.setInterval(id, 1) && timers.start(id, WAIT));
        EXPECT_TRUE(timers.setInterval(id, 0x80000000UL));
        EXPECT_TRUE(test::comesTrue([&] { return !timers.isRunning(id); }));
    }
    EXPECT_EQ(3u, log.count("timer_settime SysTimerId:0x"));
}

TEST_F(SharedTimerTest, IdsArePositiveAndSkipThoseInUse) {
    SharedTimer timers(0, 0, nullptr, 4, "shared");
    auto const add = [&] { return timers.addTimer(nullptr, HOUR, 0, REARMED); };
    EXPECT_EQ(1, add());
    timers.setNextUserTimerIdForTesting(INT_MAX);
    EXPECT_EQ(INT_MAX, add());
    EXPECT_EQ(2, add());
    EXPECT_EQ(3, add());
    EXPECT_EQ(-1, add());
    EXPECT_TRUE(timers.eraseTimer(2, WAIT));
    Array<int> ids(0, Array<int>::GROWS);
    EXPECT_TRUE(timers.getTimerIdSet(&ids));
    EXPECT_EQ((std::vector<int>{1, 3, INT_MAX}), std::vector<int>(&ids[0], &ids[0] + ids.count()));
    EXPECT_FALSE(timers.getTimerIdSet(nullptr));
    for (int unknown : {2, 0, -1}) {
        EXPECT_FALSE(timers.start(unknown, WAIT) || timers.stop(unknown, WAIT) ||
                     timers.restart(unknown, WAIT) || timers.eraseTimer(unknown, WAIT) ||
                     timers.eraseTimer(unknown, NO_WAIT) || timers.setInterval(unknown, 1) ||
                     timers.isRunning(unknown));
    }
    EXPECT_EQ(NONE, timers.getInterval(2));
    // Over and over the same request, so that what a slot of the queue held before looks like it.
    for (int i = 0; i < 2 * 256; ++i) {
        timers.setNextUserTimerIdForTesting(2);
        EXPECT_EQ(2, add());
        EXPECT_TRUE(timers.eraseTimer(2, WAIT));
    }
}

TEST_F(SharedTimerTest, ItsThreadMayBeWatched) {
    std::atomic<int> threadId{0};
    Listener listener([&](int) { threadId = gettid(); });
    SharedTimer timers(1, HOUR, nullptr, 1, "shared");
    SharedTimer unregistered(0, 0, nullptr, 1, "shared");
    timers.start(timers.addTimer(&listener, 1, 1, REARMED), WAIT);
    EXPECT_TRUE(listener.calls.waitFor(1));
    auto const isWatched = [&] { return ThreadManager::get()->isWatchingWatchdog(threadId); };
    EXPECT_TRUE(test::comesTrue([&] { return !isWatched(); }));  // it waits for work
    EXPECT_TRUE(timers.setThreadWatchdogAliveTime(HOUR + 1) && timers.startThreadWatchdog());
    EXPECT_TRUE(isWatched());
    ThreadManager::get()->printWatchdogInfo(1);
    EXPECT_TRUE(log.has(std::to_string(HOUR + 1)));
    EXPECT_TRUE(log.has("(jni/source/UtlSharedTimer, execute:412:0)"));
    EXPECT_TRUE(timers.stopThreadWatchdog());
    EXPECT_FALSE(isWatched());
    EXPECT_FALSE(unregistered.startThreadWatchdog() || unregistered.stopThreadWatchdog() ||
                 unregistered.setThreadWatchdogAliveTime(HOUR));
}

TEST_F(SharedTimerTest, AFreeRunningTimerKeepsItsBeatWhileItsListenerIsHeldUp) {
    constexpr milliseconds INTERVAL(300);
    Clock::time_point left;
    Clock::time_point heard;
    Listener listener([&](int) {
        if (left == Clock::time_point()) {
            pause();  // until the next expiry has come
            left = Clock::now();
        } else if (heard == Clock::time_point()) {
            heard = Clock::now();
        }
    });
    SharedTimer timers(0, 0, nullptr, 1, "shared");
    int const id = timers.addTimer(&listener, INTERVAL.count(), 0, FREE_RUNNING);
    EXPECT_TRUE(timers.setInterval(id, INTERVAL.count()));  // no change once it runs
    EXPECT_TRUE(timers.start(id, WAIT) && listener.calls.waitFor(2));
    timers.destroy();
    EXPECT_LT(heard - left, INTERVAL);
}

TEST_F(SharedTimerTest, WithoutAPipeThereAreNoTimers) {
    SharedTimer const withPipe(0, 0, nullptr, 1, "shared");
    std::optional<test::NoDescriptors> limit(std::in_place);
    SharedTimer timers(0, 0, nullptr, 1, "shared");
    limit.reset();
    EXPECT_TRUE(log.has("<UTIL> ERR: SharedTimerThread(shared) pipe errno:24\r\n"));
    EXPECT_EQ(-1, timers.addTimer(nullptr, 1, 0, REARMED));
    EXPECT_FALSE(timers.eraseTimer(1, NO_WAIT));
}

TEST_F(SharedTimerTest, WhoeverWaitsIsReleasedWhenTheThreadEnds) {
    unsigned const descriptors = test::openDescriptors();
    for (int round = 0; round < 30; ++round) {
        Listener listener;
        SharedTimer timers(1, HOUR, nullptr, 4, "shared");
        test::Counter cycles;
        std::vector<std::future<void>> callers;
        for (int i = 0; i < 3; ++i) {
            int const id = timers.addTimer(&listener, 1, 0, FREE_RUNNING);
            callers.push_back(inThread([&timers, &cycles, id] {
                while (timers.start(id, WAIT) && timers.stop(id, WAIT)) {
                    cycles.add();
                }
            }));
        }
        EXPECT_TRUE(cycles.waitFor(10));
        EXPECT_TRUE(timers.destroy());
        for (auto& caller : callers) {
            caller.get();
        }
        EXPECT_FALSE(timers.restart(1, WAIT));
        EXPECT_EQ(-1, timers.addTimer(&listener, 1, 0, REARMED));
        EXPECT_EQ(0u, kernelTimers());
    }
    EXPECT_EQ(descriptors, test::openDescriptors());
}

TEST_F(SharedTimerTest, ATimerCallsItsListenerIfItHasOne) {
    Listener listener;
    Timer once(&listener, 1, 0, 0, nullptr, 1, REARMED, "once");
    Timer unheard(nullptr, 1, 0, 0, nullptr, 1, REARMED, "unheard");
    for (unsigned i = 1; i <= 3; ++i) {
        EXPECT_TRUE((i == 2 ? once.restart(WAIT) : once.start(WAIT)) && unheard.start(WAIT));
        EXPECT_TRUE(test::comesTrue([&] { return !once.isRunning() && !unheard.isRunning(); }));
        EXPECT_EQ(i, listener.calls.count());
    }
    EXPECT_TRUE(once.setInterval(5) && once.getInterval() == 5);
    EXPECT_TRUE(once.destroy());
    EXPECT_FALSE(once.start(WAIT));
}

TEST_F(SharedTimerTest, OnlyWhoAsksTheThreadWaitsForIt) {
    test::Gate released;
    test::Gate entered;
    Listener listener([&](int) { entered.open(), released.wait(); });
    SharedTimer timers(0, 0, nullptr, 2, "shared");
    int const held = timers.addTimer(&listener, 1, 0, REARMED);
    int const other = timers.addTimer(nullptr, HOUR, 0, REARMED);
    EXPECT_TRUE(timers.start(held, WAIT) && entered.wait());
    auto asked = inThread([&] { return timers.stop(held, WAIT); });
    EXPECT_TRUE(test::comesTrue([&] { return timers.queuedEntriesForTesting() != 0; }));
    EXPECT_TRUE(timers.start(other, NO_WAIT) && timers.restart(other, NO_WAIT));
    EXPECT_LT(0, timers.getInterval(other));
    released.open();
    EXPECT_TRUE(asked.get());
}

TEST_F(SharedTimerTest, WaitsThatWouldCloseACircleAreRefused) {
    constexpr long ID = 0x8002;
    test::RunningStation station;
    SharedTimer timers(0, 0, nullptr, 2, "shared");
    Listener listener([&](int) { EXPECT_EQ(1, station->sendMsgSync(ID)); });
    int const id = timers.addTimer(&listener, 1, 1, REARMED);
    int const other = timers.addTimer(nullptr, HOUR, 0, REARMED);
    station.on(ID, [&] {
        EXPECT_FALSE(timers.start(other, WAIT) || timers.stop(id, WAIT));
        EXPECT_FALSE(timers.eraseTimer(id, WAIT) || timers.destroy());
    });
    EXPECT_TRUE(timers.start(id, WAIT) && listener.calls.waitFor(1));
    EXPECT_EQ(4u, log.count("Refused. SharedTimerThread(shared) waits for this thread"));
}

TEST_F(SharedTimerTest, ATimerMayBeDestroyedInItsOwnCall) {
    std::unique_ptr<Timer> timer;
    test::Gate isGone;
    Listener listener([&](int) { timer.reset(), isGone.open(); });
    unsigned const threads = test::threads();
    timer = std::make_unique<Timer>(&listener, 1, 0, 0, nullptr, 0, FREE_RUNNING, "timer");
    EXPECT_TRUE(timer->start(WAIT));
    EXPECT_TRUE(isGone.wait());
    EXPECT_TRUE(test::comesTrue([&] { return test::threads() == threads; }));
    EXPECT_EQ(1u, listener.calls.count());
}

class Ticker : public Timer {
public:
    Ticker(test::Counter* ticks, bool isForgetful)
        : Timer(1, 0, 0, nullptr, 0, FREE_RUNNING, "ticker"),
          mTicks(ticks),
          mIsForgetful(isForgetful) {}
    ~Ticker() override {
        if (!mIsForgetful) {
            destroy();
        }
    }

    void onTime(int) override { mTicks->add(); }

private:
    test::Counter* const mTicks;
    bool const mIsForgetful;
};

#ifdef __SANITIZE_THREAD__  // which rightly calls it a race of the derived class
constexpr unsigned FORGETFUL = 0;
#else
constexpr unsigned FORGETFUL = 30;
#endif

TEST_F(SharedTimerTest, ARunningTimerMayBeDestroyedEvenIfItsClassForgetsTo) {
    test::Counter ticks;
    for (unsigned i = 1; i <= FORGETFUL + 30; ++i) {
        Ticker ticker(&ticks, i <= FORGETFUL);
        EXPECT_TRUE(ticker.start(WAIT));
        EXPECT_TRUE(ticks.waitFor(i));
    }
}

}  // namespace
}  // namespace utl
