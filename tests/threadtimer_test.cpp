// The timers of a message-driven thread.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>
#include <thread>

#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"

#include "support/LogCapture.h"
#include "support/MessageStation.h"

namespace utl {
namespace {

using test::HeldStation;
using test::inThread;
using test::RunningStation;
using test::Station;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr long HOLD = Station::HOLD;
constexpr long A = 0x8002;
constexpr long LAST = 0x8003;
constexpr long EXPIRY = TimerMsg::ID;
constexpr unsigned long HOUR = 3600000;
constexpr int REARMED = 0;
constexpr int FREE_RUNNING = 1;

// The kernel's ids of a station's timers, in the order in which they were made.
std::vector<int> timersOf(int writeEnd) {
    std::vector<int> ids;
    std::ifstream timers("/proc/self/timers");
    int id = 0;
    unsigned long long carried;
    for (std::string line; std::getline(timers, line);) {
        std::sscanf(line.c_str(), "ID: %d", &id);
        if (std::sscanf(line.c_str(), "signal: %*d/%llx", &carried) == 1 &&
            static_cast<int>(carried) == writeEnd) {
            ids.push_back(id);
        }
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

class ThreadTimerTest : public ::testing::Test {
protected:
    void TearDown() override {
        ThreadManager::destroy();
        EXPECT_EQ(0u, test::kernelTimers());
    }

    test::LogCapture log;
};

TEST_F(ThreadTimerTest, ExpiresAsOftenAsAskedAndIsGone) {
    RunningStation station;
    auto const begin = Clock::now();
    EXPECT_EQ(1, station->setTimer(20, 0, 3, REARMED));
    EXPECT_TRUE(station.waitFor(EXPIRY, 3));
    EXPECT_LE(milliseconds(60), Clock::now() - begin);
    EXPECT_EQ(1, station->sendMsgSync(LAST));  // the loop is done with the third
    EXPECT_TRUE(timersOf(station.writeEnd).empty());
    for (int i = 2; i <= 50; ++i) {  // some have come and gone before anybody can wait for them
        EXPECT_EQ(i, station->setTimer(1, 0, 1, REARMED));
        EXPECT_TRUE(station.waitFor(EXPIRY, i + 2));
        EXPECT_EQ(i, station.heard().back().second);
    }
}

TEST_F(ThreadTimerTest, TheNextIntervalBeginsWhenTheExpiryWasHandled) {
    constexpr milliseconds INTERVAL(30);
    std::vector<Clock::time_point> ends;
    RunningStation station;
    station.on(EXPIRY, [&] {
        auto const begin = Clock::now();
        EXPECT_TRUE(ends.empty() || begin - ends.back() >= INTERVAL);
        std::this_thread::sleep_for(2 * INTERVAL);
        ends.push_back(Clock::now());
    });
    EXPECT_EQ(1, station->setTimer(30, 0, 2, REARMED));
    EXPECT_TRUE(station.waitFor(EXPIRY, 2));
}

// The parameter: whether they run free.
class WaitingTest : public ThreadTimerTest, public ::testing::WithParamInterface<int> {};

TEST_P(WaitingTest, AStuckListenerMissesExpiriesAndNoMessage) {
    constexpr int TIMERS = 8;  // together more expiries than the pipe has room for
    constexpr milliseconds STUCK(1500);
    constexpr int MESSAGES = 300;
    constexpr int FIRST_ID = 1000000;  // no kernel id
    RunningStation station(MESSAGES + 1, TIMERS);
    station->setNextUserTimerIdForTesting(FIRST_ID);
    station.on(HOLD, [&] {
        for (int i = 0; i < TIMERS; ++i) {
            EXPECT_EQ(FIRST_ID + i, station->setTimer(1, 0, 0, GetParam()));
        }
        station.hold();
    });
    station.on(LAST, [&] {
        TimerMsg pending;
        EXPECT_EQ(EXPIRY, station->getFirstMsgId());
        EXPECT_EQ(2, station->hasMsg(EXPIRY) + station->peekMsg(EXPIRY, &pending));
        EXPECT_LE(FIRST_ID, pending.getTimerId());
        for (int i = 0; i < TIMERS; ++i) {
            EXPECT_EQ(1, station->killTimer(FIRST_ID + i, 0));
        }
        EXPECT_EQ(1, station->postMsg(A));  // behind all that waited
    });
    ASSERT_TRUE(station->postMsg(HOLD) && station.entered.wait());
    auto const begin = Clock::now();
    for (int i = 0; i < MESSAGES; ++i) {
        std::this_thread::sleep_until(begin + i * STUCK / MESSAGES);
        EXPECT_EQ(1, station->postMsg(A));
    }
    EXPECT_TRUE(station.awaitWords(MESSAGES + 2 * TIMERS));
    EXPECT_EQ(1, station->postMsg(LAST));
    station.released.open();
    EXPECT_TRUE(station.waitFor(A, MESSAGES + 1));

    auto const heard = station.heard();
    for (int i = 0; i < TIMERS; ++i) {
        std::pair<long, int> const expiry(EXPIRY, FIRST_ID + i);
        EXPECT_EQ(GetParam() == FREE_RUNNING ? 2 : 1,
                  std::count(heard.begin(), heard.end(), expiry));
    }
    EXPECT_FALSE(log.has("ERR"));
}

INSTANTIATE_TEST_SUITE_P(OfTimers, WaitingTest, ::testing::Values(REARMED, FREE_RUNNING));

TEST_F(ThreadTimerTest, AFastTimerCostsASlowOneNothing) {
    RunningStation station;
    EXPECT_EQ(1, station->setTimer(1, 0, 0, FREE_RUNNING));
    int const fastKernelId = timersOf(station.writeEnd).at(0);
    station.on(A, [&] {
        // Kernel ids a power of two apart, as they come after days of re-arming.
        int skipped = 0;
        do {
            syscall(SYS_timer_create, CLOCK_MONOTONIC, nullptr, &skipped);
            syscall(SYS_timer_delete, skipped);
        } while (skipped < fastKernelId + 4095);
        EXPECT_EQ(2, station->setTimer(50, 0, 1, REARMED));
        station.hold();
    });
    ASSERT_EQ(1, station->postMsg(A));
    ASSERT_TRUE(station.entered.wait());
    EXPECT_TRUE(station.awaitWords(3)) << "the slow timer's word is missing";
    station.released.open();
}

TEST_F(ThreadTimerTest, KillingAnUnknownTimerSucceedsOnTheThreadOnly) {
    RunningStation station;
    station.on(A, [&] { EXPECT_EQ(1, station->killTimer(7, 0)); });
    EXPECT_EQ(1, station->sendMsgSync(A));
    EXPECT_EQ(0, station->killTimer(7, 0));
}

TEST_F(ThreadTimerTest, KillingTakesBackAStartThatIsStillQueued) {
    HeldStation station;
    EXPECT_EQ(1, station->setTimer(1, 1, 0, FREE_RUNNING));
    EXPECT_EQ(1, station->killTimer(1, 0));
    EXPECT_EQ(0, station->killTimer(1, 0));
    EXPECT_EQ(1, station->postMsg(LAST));
    station.released.open();
    EXPECT_TRUE(station.waitFor(LAST));
    EXPECT_TRUE(timersOf(station.writeEnd).empty());
}

TEST_F(ThreadTimerTest, WhatAHandlerErasesReleasesWhoWaitsForIt) {
    for (int const timers : {0, 1, 3}) {  // with none, one more is set; else one is killed
        RunningStation station;
        station.on(A, [&] {
            station.hold();
            station->eraseMsg(EXPIRY);
        });
        for (int i = 1; i <= timers; ++i) {
            EXPECT_EQ(i, station->setTimer(HOUR, 0, 0, REARMED));
        }
        ASSERT_TRUE(station->postMsg(A) && station.entered.wait());
        auto answer = inThread([&] {
            return timers == 0 ? station->setTimer(HOUR, 0, 0, REARMED)
                               : station->killTimer((timers + 1) / 2, 0);
        });
        EXPECT_TRUE(station.awaitWords(1));
        station.released.open();
        EXPECT_EQ(timers == 0 ? -1 : 1, answer.get());
        EXPECT_EQ(0, station->killTimer(1, 0));
    }
}

TEST_F(ThreadTimerTest, AnExpiryThatFindsNoRoomIsNotCountedAsWaiting) {
    constexpr int ROOM = 256 + 1;
    RunningStation station(1, ROOM + 1);
    station.on(HOLD, [&] {
        EXPECT_EQ(1, station->setTimer(1, 0, 0, REARMED));
        station.hold();
    });
    ASSERT_TRUE(station->postMsg(HOLD) && station.entered.wait());
    EXPECT_TRUE(station.awaitWords(1));
    for (int i = 2; i <= ROOM + 1; ++i) {
        EXPECT_EQ(i, station->setTimer(HOUR, 1, 0, REARMED));
    }
    station.released.open();
    EXPECT_TRUE(log.waitFor("Overflow ThreadCtlMsgQueue  MaxCount:257 MsgId:0x000083fc"));
    EXPECT_TRUE(station.waitFor(EXPIRY, 2));
}

TEST_F(ThreadTimerTest, AnExpiryErasedForItsIdDoesNotEndItsTimer) {
    RunningStation station;
    station->setNextUserTimerIdForTesting(1000000);  // no kernel id
    int const other = station->setTimer(HOUR, 0, 0, REARMED);
    int const otherKernelId = timersOf(station.writeEnd).at(0);
    station->setNextUserTimerIdForTesting(otherKernelId);
    station.on(A, [&] {
        EXPECT_EQ(otherKernelId, station->setTimer(5, 0, 0, REARMED));
        station.hold();
    });
    station.on(LAST, [&] {
        EXPECT_EQ(1, station->hasMsg(EXPIRY));
        EXPECT_EQ(1, station->killTimer(other, 0));
        EXPECT_EQ(0, station->hasMsg(EXPIRY));  // it carried the number of the other's kernel timer
    });
    ASSERT_TRUE(station->postMsg(A) && station.entered.wait());
    EXPECT_TRUE(station.awaitWords(1));
    EXPECT_EQ(1, station->postMsg(LAST));
    station.released.open();
    EXPECT_TRUE(station.waitFor(LAST) && station.waitFor(EXPIRY, 2));
}

TEST_F(ThreadTimerTest, AnIntervalThatTheKernelRefusesLeavesNoEntry) {
    RunningStation station;
    station.on(A, [&] { EXPECT_EQ(-1, station->setTimer(0x80000000ul, 0, 0, REARMED)); });
    EXPECT_EQ(-1, station->setTimer(ULONG_MAX, 0, 0, REARMED));
    EXPECT_EQ(1, station->sendMsgSync(A));
    EXPECT_EQ(2u, log.count("<UTIL> ERR: MsgDrivenThread(station) timer_settime SysTimerId:0x"));
    EXPECT_EQ(2u, log.count(" errno:22\r\n"));
    station->setNextUserTimerIdForTesting(INT_MAX);
    for (int const id : {INT_MAX, 1, 2, 3, -1}) {  // there is room for four
        EXPECT_EQ(id, station->setTimer(INT_MAX, 0, 0, REARMED));
    }
}

TEST_F(ThreadTimerTest, WithoutASignalToQueueThereIsNoTimer) {
    RunningStation station;
    rlimit limit;
    getrlimit(RLIMIT_SIGPENDING, &limit);
    rlimit const none = {0, limit.rlim_max};
    setrlimit(RLIMIT_SIGPENDING, &none);
    int const refused = station->setTimer(1, 0, 0, REARMED);
    setrlimit(RLIMIT_SIGPENDING, &limit);
    EXPECT_EQ(-1, refused);
    EXPECT_TRUE(log.has("timer_create SysTimerId:0xffffffff errno:11\r\n"));
    EXPECT_EQ(0, station->killTimer(1, 0));
    EXPECT_EQ(2, station->setTimer(1, 0, 0, REARMED));
    EXPECT_TRUE(station.waitFor(EXPIRY));
}

// The parameter drops all timers.
class DropTest : public ThreadTimerTest,
                 public ::testing::WithParamInterface<int (*)(MsgDrivenThread&)> {};

TEST_P(DropTest, PassesOverEverySecondTimer) {
    RunningStation station;
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(i, station->setTimer(HOUR, 0, 0, REARMED));
    }
    std::vector<int> const all = timersOf(station.writeEnd);
    ASSERT_EQ(3u, all.size());
    EXPECT_EQ(1, GetParam()(station.thread));
    EXPECT_EQ(std::vector<int>{all[1]}, timersOf(station.writeEnd));
    EXPECT_EQ(0, station->killTimer(2, 0));
}

TEST_P(DropTest, AStrayExpiryReachesNoFileThatHasThePipesNumberNow) {
    // Nobody takes the signals before all is gone: threads inherit what their maker blocks.
    int const signal = std::max(34, SIGRTMIN);
    sigset_t expiries;
    sigemptyset(&expiries);
    sigaddset(&expiries, signal);
    pthread_sigmask(SIG_BLOCK, &expiries, nullptr);
    auto station = std::make_unique<RunningStation>();
    int const writeEnd = station->writeEnd;
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(i, station->thread.setTimer(1, 0, 0, FREE_RUNNING));
    }
    EXPECT_TRUE(test::comesTrue([&] {
        sigset_t pending;
        return sigpending(&pending) == 0 && sigismember(&pending, signal) == 1;
    }));
    EXPECT_EQ(1, GetParam()(station->thread));
    station.reset();
    EXPECT_TRUE(timersOf(writeEnd).empty());

    int const file = memfd_create("heir", 0);
    ASSERT_EQ(writeEnd, dup2(file, writeEnd));
    pthread_sigmask(SIG_UNBLOCK, &expiries, nullptr);  // here come those that are under way
    sigval carried = {};
    carried.sival_int = writeEnd;
    EXPECT_EQ(0, pthread_sigqueue(pthread_self(), signal, carried));
    EXPECT_EQ(0, lseek(writeEnd, 0, SEEK_END));
    close(file);
    close(writeEnd);
}

INSTANTIATE_TEST_SUITE_P(
    ByEraseMsgOrStop, DropTest,
    ::testing::Values([](MsgDrivenThread& thread) { return thread.eraseMsg(EXPIRY); },
                      [](MsgDrivenThread& thread) { return thread.stop(1, 0) + 1; }));

}  // namespace
}  // namespace utl
