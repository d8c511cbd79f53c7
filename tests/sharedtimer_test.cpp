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
#include <utility>
#include <vector>

#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"
#include "UtlTimer.h"

#include "support/Gate.h"
#include "support/MessageStation.h"
#include "support/TimeTest.h"

namespace utl {
namespace {

using std::chrono::milliseconds;
using namespace test;

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

    Counter calls;

private:
    std::function<void(int)> const mAction;
};

// A listener that stays in its first call until it is released.
struct Holder : Listener {
    Holder() : Listener([this](int) { released.wait(); }) {}
    Hold released;
};

class KernelSharedTimerTest : public KernelTimeTest {};

// With a handful of timers.
class SharedTimerTest : public ManualTimeTest {
protected:
    void TearDown() override {
        timers.destroy();
        ManualTimeTest::TearDown();
    }

    // All but that of the watchdog.
    static unsigned kernelTimers() { return test::kernelTimers() - 1; }

    int add(TimerListener* listener = nullptr, unsigned long intervalMs = HOUR,
            unsigned repeatCount = 0, int freeRunning = REARMED) {
        return timers.addTimer(listener, intervalMs, repeatCount, freeRunning);
    }

    // A timer that was started.
    int run(TimerListener* listener, unsigned long intervalMs, unsigned repeatCount = 0,
            int freeRunning = REARMED) {
        int const id = add(listener, intervalMs, repeatCount, freeRunning);
        EXPECT_TRUE(timers.start(id, WAIT));
        return id;
    }

    // One whose first call has begun.
    int runHeld(Holder& holder, int freeRunning = FREE_RUNNING) {
        int const id = run(&holder, 5, 0, freeRunning);
        pass(5);
        return id;
    }

    // Until so many requests wait for the thread, which is held.
    bool comeTo(unsigned long requests) const {
        return comesTrue([=] { return timers.queuedEntriesForTesting() == requests; });
    }

    // What `call` returns, which asks for something while the thread is held.
    template <typename Call>
    bool answerTo(Call call, Hold& held) {
        auto answer = inThread(call);
        EXPECT_TRUE(comeTo(1));
        held.open();
        return answer.get();
    }

    SharedTimer timers{0, 0, nullptr, 5, "shared"};
};

TEST_F(SharedTimerTest, ACallThatTakesLongDelaysWhatDoesNotRunFreeOrIsChanged) {
    struct Beat {
        int freeRunning;
        unsigned long changed;  // 0 for an interval that stays
        std::vector<unsigned> calls;
    };
    int const other = add();
    for (Beat const& beat :
         {Beat{REARMED, 0, {300, 1050, 1350}}, Beat{REARMED, 60, {300, 810, 870}},
          Beat{FREE_RUNNING, 0, {300, 750, 900}}, Beat{FREE_RUNNING, 60, {300, 810, 870}}}) {
        std::vector<unsigned> calls;
        Hold released;
        auto const begin = clock.now();
        Listener listener([&](int) {
            calls.push_back(static_cast<unsigned>((clock.now() - begin) / milliseconds(1)));
            released.wait();
        });
        int const id = add(&listener, 1, 3, beat.freeRunning);
        EXPECT_TRUE(timers.setInterval(id, 300));  // no change once it runs
        EXPECT_TRUE(timers.start(id, WAIT));
        pass(310);
        EXPECT_TRUE(timers.restart(other, NO_WAIT));  // must not take a change away
        EXPECT_TRUE(beat.changed == 0 || timers.setInterval(id, beat.changed));
        pass(440);
        released.open();
        pass(HOUR);
        EXPECT_EQ(beat.calls, calls);
    }
}

TEST_F(SharedTimerTest, NothingIsHeardAfterAStopThatOnlyWhoAsksWaitsFor) {
    Holder holder;
    int const other = add();
    int const id = runHeld(holder);
    auto stopped = inThread([&] { return timers.stop(id, WAIT); });
    EXPECT_TRUE(comeTo(1));
    pass(100);  // more expiries
    EXPECT_TRUE(timers.start(other, NO_WAIT) && timers.restart(other, NO_WAIT));
    EXPECT_EQ(HOUR, timers.getInterval(other));
    holder.released.open();
    EXPECT_TRUE(stopped.get());
    pass(100);
    EXPECT_EQ(1u, holder.calls.count());
}

TEST_F(SharedTimerTest, WhatWasAskedForLastHolds) {
    Holder holder;
    std::vector<int> const ids = {add(), add(), run(nullptr, HOUR), add()};
    runHeld(holder);
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
    clock.settle();
    EXPECT_EQ(NONE, timers.getInterval(ids[3]));
    EXPECT_TRUE(timers.isRunning(ids[0]) && timers.isRunning(ids[2]));
    EXPECT_FALSE(timers.isRunning(ids[1]));
    EXPECT_EQ(3u, kernelTimers());
    EXPECT_TRUE(timers.stop(ids[0], WAIT));
    EXPECT_EQ(2u, kernelTimers());
}

TEST_F(SharedTimerTest, AFullQueueRefusesAndLosesNoTimer) {
    Holder holder;
    Listener other;
    int const id = add();
    run(&other, 6);
    int const held = runHeld(holder);
    unsigned accepted = 0;
    while (timers.start(id, NO_WAIT)) {
        ++accepted;
    }
    EXPECT_EQ(256u, accepted);
    EXPECT_FALSE(timers.stop(held, WAIT));
    EXPECT_FALSE(timers.eraseTimer(id, NO_WAIT));
    pass(5);  // expiries that find no room
    holder.released.open();
    pass(100);
    EXPECT_LT(15u, other.calls.count());
    EXPECT_LT(20u, holder.calls.count());
    EXPECT_TRUE(timers.isRunning(id));
}

// The parameter: whether somebody waits for a start, or for a stop.
class SharedTimerEndTest : public SharedTimerTest, public ::testing::WithParamInterface<bool> {};

TEST_P(SharedTimerEndTest, StopsWhatIsToBeStoppedAndStartsNothing) {
    bool const isStart = GetParam();
    Holder holder;
    int const other = isStart ? add() : run(nullptr, HOUR);
    runHeld(holder);
    auto asked =
        inThread([=] { return isStart ? timers.start(other, WAIT) : timers.stop(other, WAIT); });
    EXPECT_TRUE(comeTo(1));
    auto ended = inThread([this] { return timers.destroy(); });
    EXPECT_TRUE(comeTo(2));
    holder.released.open();
    EXPECT_EQ(!isStart, asked.get());
    EXPECT_TRUE(ended.get());
}

INSTANTIATE_TEST_SUITE_P(OfTimers, SharedTimerEndTest, ::testing::Bool());

TEST_F(SharedTimerTest, AStopWaitsForTheListenerThatIsAtWork) {
    for (bool const erases : {false, true}) {
        Hold mayLeave;
        std::atomic<bool> hasLeft{false};
        Listener listener([&](int id) {
            EXPECT_TRUE(erases ? timers.eraseTimer(id, WAIT) : timers.stop(id, WAIT));
            mayLeave.wait();
            hasLeft = true;
        });
        int const id = run(&listener, 1);
        pass(1);
        auto const stop = [&] {
            return (erases ? timers.eraseTimer(id, WAIT) : timers.stop(id, WAIT)) && hasLeft;
        };
        EXPECT_TRUE(answerTo(stop, mayLeave));
    }
}

TEST_F(SharedTimerTest, WhatAListenerAsksForOutlastsWhatWasQueuedBefore) {
    Hold released;
    int const other = run(nullptr, HOUR);
    Listener listener([&](int id) {
        released.wait();
        EXPECT_TRUE(timers.stop(id, WAIT) && timers.start(other, WAIT));
    });
    int const id = run(&listener, 1);
    pass(1);
    EXPECT_TRUE(timers.restart(id, NO_WAIT) && timers.stop(other, NO_WAIT));
    released.open();
    pass(10);
    EXPECT_FALSE(timers.isRunning(id));
    EXPECT_TRUE(timers.isRunning(other));
    EXPECT_EQ(1u, listener.calls.count());
}

TEST_F(SharedTimerTest, WhatTheKernelRefusesIsNotRunning) {
    constexpr unsigned long REFUSED = 0x80000000ul;
    int const id = add(nullptr, REFUSED);
    EXPECT_FALSE(timers.start(id, WAIT));
    clock.settle();
    EXPECT_TRUE(log.has("<UTIL> ERR: SharedTimerThread(shared) timer_settime SysTimerId:0x"));
    EXPECT_TRUE(
        log.has("<UTIL> ERR: !!!!!!!! SharedTimerThread(shared) Error. MsgId:0x000083ff "
                "!!!!!!!!\r\n"));
    EXPECT_FALSE(timers.isRunning(id));
    for (int round = 0; round < 6; ++round) {  // while it runs, too, and then there is room for it
        EXPECT_TRUE(timers.setInterval(id, 1) && timers.start(id, WAIT));
        EXPECT_TRUE(timers.setInterval(id, REFUSED));
        pass(1);
        EXPECT_FALSE(timers.isRunning(id));
    }
    EXPECT_EQ(7u, log.count("timer_settime SysTimerId:0x"));
}

TEST_F(SharedTimerTest, IdsArePositiveAndSkipThoseInUse) {
    EXPECT_EQ(1, add());
    timers.setNextUserTimerIdForTesting(INT_MAX);
    for (int const id : {INT_MAX, 2, 3, 4, -1}) {
        EXPECT_EQ(id, add());
    }
    EXPECT_TRUE(timers.eraseTimer(2, WAIT));
    Array<int> ids(0, Array<int>::GROWS);
    EXPECT_TRUE(timers.getTimerIdSet(&ids));
    EXPECT_EQ((std::vector<int>{1, 3, 4, INT_MAX}),
              std::vector<int>(&ids[0], &ids[0] + ids.count()));
    EXPECT_FALSE(timers.getTimerIdSet(nullptr));
    for (int const unknown : {2, 0, -1}) {
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
    int threadId = 0;
    Listener listener([&](int) { threadId = gettid(); });
    SharedTimer watched(1, HOUR, nullptr, 1, "shared");
    watched.start(watched.addTimer(&listener, 1, 1, REARMED), WAIT);
    pass(1);
    auto const isWatched = [&] { return manager()->isWatchingWatchdog(threadId); };
    EXPECT_FALSE(isWatched());  // it waits for work
    EXPECT_TRUE(watched.setThreadWatchdogAliveTime(HOUR + 1) && watched.startThreadWatchdog());
    EXPECT_TRUE(isWatched());
    manager()->printWatchdogInfo(1);
    EXPECT_TRUE(log.has(std::to_string(HOUR + 1)));
    EXPECT_TRUE(log.has("(jni/source/UtlSharedTimer, execute:412:0)"));
    EXPECT_TRUE(watched.stopThreadWatchdog());
    EXPECT_FALSE(isWatched() || timers.startThreadWatchdog());
}

TEST_F(SharedTimerTest, WaitsThatWouldCloseACircleAreRefused) {
    constexpr long ID = 0x8002;
    RunningStation station;
    Listener listener([&](int) { EXPECT_EQ(1, station->sendMsgSync(ID)); });
    int const other = add();
    int const id = run(&listener, 1, 1);
    station.on(ID, [&] {
        EXPECT_FALSE(timers.start(other, WAIT) || timers.stop(id, WAIT));
        EXPECT_FALSE(timers.eraseTimer(id, WAIT) || timers.destroy());
    });
    pass(1);
    EXPECT_EQ(4u, log.count("Refused. SharedTimerThread(shared) waits for this thread"));
}

TEST_F(SharedTimerTest, ATimerCallsItsListenerAsOftenAsAskedForEachStart) {
    Listener listener;
    Timer thrice(&listener, 20, 0, 0, nullptr, 3, REARMED, "thrice");
    Timer unheard(nullptr, 20, 0, 0, nullptr, 3, FREE_RUNNING, "unheard");
    for (unsigned const before : {0u, 3u, 6u}) {
        EXPECT_TRUE((before == 3 ? thrice.restart(WAIT) : thrice.start(WAIT)) &&
                    unheard.start(WAIT));
        pass(59);
        EXPECT_EQ(before + 2, listener.calls.count());
        EXPECT_TRUE(thrice.isRunning() && unheard.isRunning());
        pass(HOUR);
        EXPECT_EQ(before + 3, listener.calls.count());
        EXPECT_FALSE(thrice.isRunning() || unheard.isRunning());
    }
    EXPECT_EQ(0u, kernelTimers());
    EXPECT_TRUE(thrice.setInterval(5) && thrice.getInterval() == 5);
    EXPECT_TRUE(thrice.destroy());
    EXPECT_FALSE(thrice.start(WAIT));
}

TEST_F(SharedTimerTest, ATimerMayBeDestroyedInItsOwnCall) {
    std::unique_ptr<Timer> timer;
    Listener listener([&](int) { timer.reset(); });
    unsigned const before = threads();
    timer = std::make_unique<Timer>(&listener, 1, 0, 0, nullptr, 0, FREE_RUNNING, "timer");
    EXPECT_TRUE(timer->start(WAIT));
    pass(10);
    EXPECT_EQ(1u, listener.calls.count());
    EXPECT_TRUE(comesTrue([&] { return threads() == before; }));
}

TEST_F(SharedTimerTest, AListenerRulesItsTimersWhileOthersWaitForTheThread) {
    int const other = run(nullptr, HOUR);
    Hold isWaitedFor;
    Listener listener([&](int id) {
        isWaitedFor.wait();
        if (listener.calls.count() < 4) {
            EXPECT_TRUE(timers.restart(id, WAIT));  // once more, though it is a one-shot
            return;
        }
        EXPECT_TRUE(timers.start(other, WAIT) && timers.setInterval(other, 7));
        EXPECT_TRUE(timers.stop(other, WAIT) && timers.eraseTimer(other, NO_WAIT));
        EXPECT_EQ(NONE, timers.getInterval(other));
        int const added = add();
        timers.restartAll(WAIT);
        EXPECT_TRUE(timers.isRunning(added) && timers.isRunning(id));
        EXPECT_FALSE(timers.destroy());
        EXPECT_TRUE(timers.eraseTimer(id, WAIT));
    });
    run(&listener, 1, 1);
    pass(1);
    EXPECT_TRUE(answerTo([&] { return timers.stop(other, WAIT); }, isWaitedFor));
    pass(10);
    EXPECT_EQ(5u, listener.calls.count());
}

TEST_F(KernelSharedTimerTest, WithoutAPipeThereAreNoTimers) {
    SharedTimer const withPipe(0, 0, nullptr, 1, "shared");
    std::optional<NoDescriptors> limit(std::in_place);
    SharedTimer timers("shared", 1);
    limit.reset();
    EXPECT_TRUE(log.has("<UTIL> ERR: SharedTimerThread(shared) pipe errno:24\r\n"));
    EXPECT_EQ(-1, timers.addTimer(nullptr, 1, 0, REARMED));
    EXPECT_FALSE(timers.eraseTimer(1, NO_WAIT));
}

TEST_F(KernelSharedTimerTest, WhoeverWaitsIsReleasedWhenTheThreadEnds) {
    ThreadManager::get();
    unsigned const descriptors = openDescriptors();
    for (int round = 0; round < 30; ++round) {
        Listener listener;
        SharedTimer timers(1, HOUR, nullptr, 4, "shared");
        Counter cycles;
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
        EXPECT_EQ(1u, test::kernelTimers());  // the watchdog's
    }
    EXPECT_EQ(descriptors, openDescriptors());
}

}  // namespace
}  // namespace utl
