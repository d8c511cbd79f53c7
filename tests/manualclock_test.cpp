// The clock that tests move by hand.

#include "UtlManualClock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "UtlEvent.h"
#include "UtlLoop.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"

#include "support/MessageStation.h"
#include "support/TimeTest.h"
#include "support/Worker.h"

namespace utl {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using namespace test;

using ManualClockTest = ManualTimeTest;
using KernelClockTest = KernelTimeTest;

TEST_F(ManualClockTest, LetsOneThingAfterTheOtherHappenInTheOrderOfArming) {
    RunningStation first;
    RunningStation second;
    Event const never(0, 0);
    std::string order;  // nobody writes while somebody else does
    first.on(EXPIRY, [&] { order += '1'; });
    second.on(EXPIRY, [&] { order += '2'; });
    Worker sleeper("sleeper", [&] { return Thread::sleep(20), order += 's', 0; });
    Worker waiter("waiter", [&] { return never.waitToOn(30), order += 'w', 0; });
    EXPECT_EQ(1, second->setTimer(20, 0, 1, REARMED));
    EXPECT_EQ(1,
              first->setTimer(10, 0, 3, FREE_RUNNING));  // after 10 it is armed behind all others
    EXPECT_EQ(0, waiter.start());
    clock.settle();
    EXPECT_EQ(0, sleeper.start());
    pass(20);
    EXPECT_EQ("12s1", order);
    pass(10);
    EXPECT_EQ("12s1w1", order);
}

TEST_F(ManualClockTest, GoesOnOnlyWhenAllThatComesOfAnExpiryIsOver) {
    constexpr int STEPS = 200;
    RunningStation ring[3];
    for (int i = 0; i < 3; ++i) {
        ring[i].on(A, [&, i] { ring[(i + 1) % 3]->postMsg(ring[i].count(A) < STEPS ? A : A + 1); });
    }
    ring[0].on(EXPIRY, [&] { ring[1]->postMsg(A); });
    EXPECT_EQ(1, ring[0]->setTimer(60000, 0, 1, REARMED));
    EXPECT_TRUE(clock.advanceToNext() && clock.now() == milliseconds(1000));  // the watchdog's
    EXPECT_TRUE(clock.advanceToNext() && clock.now() == milliseconds(60000));
    EXPECT_EQ(STEPS, ring[1].count(A));
    EXPECT_EQ(1, ring[2].count(A + 1));
    EXPECT_FALSE(clock.advanceToNext());
}

TEST_F(ManualClockTest, EachWaitTakesItsLimitFromWhereItBegins) {
    std::vector<milliseconds> moments;
    Worker worker("worker", [&] {
        TimeCounter counter;
        counter.start();
        for (unsigned long const ms : {0x7FFFFFFFul, HOUR, 1ul}) {
            Thread::sleep(ms);
            moments.emplace_back(counter.watch());
        }
        return 0;
    });
    EXPECT_EQ(0, worker.start());
    pass(0x7FFFFFFF + HOUR + 1);
    EXPECT_EQ((std::vector<milliseconds>{milliseconds(0x7FFFFFFF), milliseconds(0x7FFFFFFF + HOUR),
                                         milliseconds(0x7FFFFFFF + HOUR + 1)}),
              moments);
}

TEST_F(ManualClockTest, AJumpMakesOneOfManyExpiriesAndKeepsTheBeat) {
    RunningStation station;
    EXPECT_EQ(1, station->setTimer(100, 0, 0, FREE_RUNNING));
    pass(100);
    clock.jump(milliseconds(750));
    EXPECT_EQ(1, station.count(EXPIRY));
    clock.settle();
    EXPECT_EQ(2, station.count(EXPIRY));
    pass(49);
    EXPECT_EQ(2, station.count(EXPIRY));
    pass(1);
    EXPECT_EQ(3, station.count(EXPIRY));
}

TEST_F(ManualClockTest, IsMovedByNoThreadOfTheLibraryAndTakesNoPlaceThatIsTaken) {
    ManualClock second;
    EXPECT_FALSE(second);
    EXPECT_TRUE(log.has("ManualClock Refused. There is one"));
    RunningStation station;
    bool hasGoneOn = true;
    station.on(A, [&] { pass(HOUR), hasGoneOn = clock.advanceToNext(); });
    EXPECT_TRUE(station->sendMsgSync(A) && !hasGoneOn);
    EXPECT_EQ(2u, log.count("ManualClock Refused. The calling thread is one whose time it moves"));
    second.advance(milliseconds(1));
    EXPECT_EQ(milliseconds(0), clock.now() + second.now());
}

TEST_F(ManualClockTest, DoesNotHoldInTheChildOfAFork) {
    pid_t const child = fork();
    if (child == 0) {
        auto const begin = std::chrono::steady_clock::now();
        bool const hasRunOut = Event(0, 0).waitToOn(20) == TIMED_OUT;
        bool const isLate = std::chrono::steady_clock::now() - begin >= milliseconds(20);
        pass(HOUR);
        ThreadManager::destroy();
        ManualClock own;
        own.advance(milliseconds(5));
        _exit(hasRunOut && isLate && own && own.now() == milliseconds(5) ? 0 : 1);
    }
    EXPECT_EQ(0, exitCodeOf(child));
}

TEST_F(KernelClockTest, IsRefusedWhileThereIsAThreadManager) {
    manager();
    EXPECT_FALSE(ManualClock());
    EXPECT_TRUE(log.has("ManualClock Refused. The ThreadManager was there first"));
    ThreadManager::destroy();
    EXPECT_TRUE(ManualClock());
}

TEST_F(KernelClockTest, WhatOutlastsAManualClockIsReleasedOrStandsStill) {
    std::optional<ManualClock> clock(std::in_place);
    RunningStation station;
    Event on(0, 0);
    Worker limited("limited", [&] { return on.waitToOn(HOUR); });
    Worker unlimited("unlimited", [&] { return on.waitToOn(0); });
    EXPECT_EQ(1, station->setTimer(1, 0, 0, REARMED));
    EXPECT_TRUE(limited.start() == 0 && unlimited.start() == 0);
    clock->settle();
    clock.reset();
    EXPECT_TRUE(log.has("ManualClock Gone. Timers that stand still:2"));  // the watchdog's too
    unsigned long result = 0;
    EXPECT_TRUE(limited.comesToAnEnd() && limited.getResult(&result));
    EXPECT_EQ(static_cast<unsigned long>(TIMED_OUT), result);
    EXPECT_TRUE(unlimited.isRunning());
    on.setOn();
    EXPECT_TRUE(unlimited.comesToAnEnd());
    EXPECT_EQ(0, station.count(EXPIRY));
    EXPECT_TRUE(station->setTimer(1, 0, 1, REARMED) == 2 && station.waitFor(EXPIRY));
}

// What it posts is due, or done, while the clock looks for the next thing that is.
TEST_F(ManualClockTest, AThreadOfTheProgramMayPostWhileItMoves) {
    std::unique_ptr<Loop> const loop = Loop::make(LoopOptions());
    ASSERT_NE(nullptr, loop);
    std::atomic<unsigned> posted{0};
    std::thread poster([&] {
        for (; posted < 5000; ++posted) {
            loop->call([] {});
            loop->postAfter(std::chrono::microseconds(posted % 50), [] {});
        }
    });
    while (posted < 5000) {
        clock.advance(std::chrono::microseconds(20));
    }
    poster.join();
    EXPECT_EQ(0u, log.count("Waiting"));
}

TEST_F(ManualClockTest, AWatchedDescriptorThatIsClosedHoldsNobodyUp) {
    std::unique_ptr<Loop> const loop = Loop::make(LoopOptions());
    int ends[2];
    ASSERT_TRUE(loop != nullptr && pipe(ends) == 0);
    unsigned seen = 0;
    ScopedTask const watch =
        loop->watch(ends[0], Loop::READABLE, [&](unsigned events) { seen += events; });
    clock.settle();
    close(ends[0]);
    pass(HOUR);
    EXPECT_TRUE(loop->post([] {}));  // the loop looks once more
    clock.settle();
    EXPECT_EQ(+Loop::CLOSED, seen);
    close(ends[1]);
}

TEST_F(ManualClockTest, StandsStillAtTheEndOfTime) {
    clock.advance(nanoseconds::max());
    nanoseconds const last = clock.now();
    EXPECT_LT(std::chrono::hours(24 * 365 * 291), last);
    RunningStation station;
    EXPECT_EQ(1, station->setTimer(1, 0, 1, REARMED));
    pass(1);
    clock.jump(milliseconds(1));
    EXPECT_FALSE(clock.advanceToNext());
    EXPECT_EQ(last, clock.now());
    EXPECT_EQ(0, station.count(EXPIRY));
}

}  // namespace
}  // namespace utl
