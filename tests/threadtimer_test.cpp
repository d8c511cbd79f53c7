// The timers of a message-driven thread.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>

#include <climits>
#include <csignal>
#include <utility>
#include <vector>

#include "UtlMsgDrivenThread.h"

#include "support/MessageStation.h"
#include "support/TimeTest.h"

namespace utl {
namespace {

using namespace test;

constexpr long HOLD = Station::HOLD;

std::vector<int> timersOf(Station& station) {
    return kernelTimersOf(station->getId());
}

// Of the calling thread, whose sleep it ends.
void awaitExpiry() {
    Thread::sleep(HOUR);
}

class KernelThreadTimerTest : public KernelTimeTest {};

class ThreadTimerTest : public ManualTimeTest {};

TEST_F(ThreadTimerTest, ExpiresAsOftenAsAskedAndEachTimeAnIntervalAfterItWasHandled) {
    RunningStation station;
    station.on(EXPIRY, [&] { station.hold(); });
    EXPECT_EQ(1, station->setTimer(30, 0, 2, REARMED));
    pass(80);
    station.released.open();
    pass(29);
    EXPECT_EQ(1, station.count(EXPIRY));
    EXPECT_EQ(1u, timersOf(station).size());
    pass(1);
    EXPECT_EQ(2, station.count(EXPIRY));
    pass(HOUR);
    EXPECT_EQ(2, station.count(EXPIRY));
    EXPECT_TRUE(timersOf(station).empty());
}

// The parameter: whether they run free.
class WaitingTest : public ThreadTimerTest, public ::testing::WithParamInterface<int> {};

TEST_P(WaitingTest, AStuckListenerMissesExpiriesAndNoMessage) {
    constexpr int TIMERS = 8;
    constexpr int MESSAGES = 60;
    constexpr int FIRST_ID = 1000000;  // no kernel id
    RunningStation station(MESSAGES + 1, TIMERS + 1);
    station->setNextUserTimerIdForTesting(FIRST_ID);
    station.on(HOLD, [&] {
        for (int i = 0; i < TIMERS; ++i) {
            EXPECT_EQ(FIRST_ID + i, station->setTimer(10, 0, 0, GetParam()));
        }
        EXPECT_EQ(FIRST_ID + TIMERS, station->setTimer(400, 0, 1, GetParam()));
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
    EXPECT_EQ(1, station->postMsg(HOLD));
    for (int i = 0; i < MESSAGES; ++i) {
        pass(10);
        EXPECT_EQ(1, station->postMsg(A));
    }
    EXPECT_EQ(1, station->postMsg(LAST));
    station.released.open();
    clock.settle();
    EXPECT_EQ(MESSAGES + 1, station.count(A));

    auto const heard = station.heard();
    for (int i = 0; i <= TIMERS; ++i) {
        bool const isTwice = GetParam() == FREE_RUNNING && i != TIMERS;
        std::pair<long, int> const expiry(EXPIRY, FIRST_ID + i);
        EXPECT_EQ(isTwice ? 2 : 1, std::count(heard.begin(), heard.end(), expiry)) << i;
    }
    EXPECT_FALSE(log.has("ERR"));
}

INSTANTIATE_TEST_SUITE_P(OfTimers, WaitingTest, ::testing::Values(REARMED, FREE_RUNNING));

TEST_F(ThreadTimerTest, ExpiriesOfAKilledTimerDelayNoLaterOne) {
    RunningStation station;
    station.on(A, [&] {
        EXPECT_EQ(1, station->setTimer(1, 0, 0, FREE_RUNNING));
        awaitExpiry();
        awaitExpiry();
        EXPECT_EQ(1, station->killTimer(1, 0));
        EXPECT_EQ(2, station->setTimer(300, 0, 1, REARMED));
        awaitExpiry();
    });
    EXPECT_EQ(1, station->postMsg(A));
    pass(2 + 300);
    EXPECT_EQ((std::pair<long, int>(EXPIRY, 2)), station.heard().back());
}

TEST_F(ThreadTimerTest, KillingTakesBackAStartThatIsStillQueued) {
    HeldStation station;
    EXPECT_EQ(1, station->setTimer(1, 1, 0, FREE_RUNNING));
    EXPECT_EQ(2, station->setTimer(1, 1, 0, FREE_RUNNING));
    EXPECT_EQ(1, station->killTimer(1, 0));
    EXPECT_EQ(0, station->killTimer(1, 0));
    station.released.open();
    pass(3);
    EXPECT_EQ(3, station.count(EXPIRY));
    EXPECT_EQ(2, station.heard().back().second);
    EXPECT_EQ(1u, timersOf(station).size());
}

TEST_F(ThreadTimerTest, ExpiriesThatWaitGoWithAllTimers) {
    RunningStation station;
    station.on(HOLD, [&] {
        EXPECT_EQ(1, station->setTimer(1, 0, 0, FREE_RUNNING));
        awaitExpiry();
        EXPECT_TRUE(station->postMsg(A) && station->postMsg(LAST));
    });
    station.on(A, [&] {
        EXPECT_EQ(1, station->hasMsg(EXPIRY));
        EXPECT_EQ(1, station->eraseMsg(EXPIRY));
        EXPECT_EQ(0, station->hasMsg(EXPIRY));
        EXPECT_EQ(LAST, station->getFirstMsgId());
    });
    EXPECT_EQ(1, station->postMsg(HOLD));
    pass(100);
    EXPECT_EQ((Station::Ids{HOLD, A, LAST}), station.ids());
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
        EXPECT_TRUE(station.awaitEntries(1));
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
        awaitExpiry();
        station.hold();
    });
    EXPECT_EQ(1, station->postMsg(HOLD));
    pass(1);
    for (int i = 2; i <= ROOM + 1; ++i) {
        EXPECT_EQ(i, station->setTimer(HOUR, 1, 0, REARMED));
    }
    station.released.open();
    pass(2);
    EXPECT_TRUE(log.has("Overflow ThreadCtlMsgQueue  MaxCount:257 MsgId:0x000083fc"));
    EXPECT_EQ(2, station.count(EXPIRY));
}

TEST_F(ThreadTimerTest, AnExpiryErasedForItsIdDoesNotEndItsTimer) {
    RunningStation station;
    station->setNextUserTimerIdForTesting(1000000);  // no kernel id
    int const other = station->setTimer(HOUR, 0, 0, REARMED);
    int const otherKernelId = timersOf(station).at(0);
    station->setNextUserTimerIdForTesting(otherKernelId);
    station.on(A, [&] {
        EXPECT_EQ(otherKernelId, station->setTimer(5, 0, 0, REARMED));
        awaitExpiry();
        EXPECT_EQ(1, station->postMsg(LAST));
    });
    station.on(LAST, [&] {
        EXPECT_EQ(1, station->hasMsg(EXPIRY));
        EXPECT_EQ(1, station->killTimer(other, 0));
        EXPECT_EQ(0, station->hasMsg(EXPIRY));  // it carried the number of the other's kernel timer
    });
    EXPECT_EQ(1, station->postMsg(A));
    pass(15);
    EXPECT_EQ(2, station.count(EXPIRY));
}

TEST_F(ThreadTimerTest, AnIntervalThatTheKernelRefusesLeavesNoEntry) {
    RunningStation station;
    station.on(A, [&] {
        EXPECT_EQ(-1, station->setTimer(0x80000000ul, 0, 0, REARMED));
        EXPECT_EQ(1, station->killTimer(7, 0));  // an unknown one: on the thread only
    });
    EXPECT_EQ(-1, station->setTimer(ULONG_MAX, 0, 0, REARMED));
    EXPECT_EQ(1, station->sendMsgSync(A));
    EXPECT_EQ(2u, log.count("<UTIL> ERR: MsgDrivenThread(station) timer_settime SysTimerId:0x"));
    EXPECT_EQ(2u, log.count(" errno:22\r\n"));
    EXPECT_EQ(0, station->killTimer(7, 0));
    station->setNextUserTimerIdForTesting(INT_MAX);
    for (int const id : {INT_MAX, 1, 2, 3, -1}) {  // there is room for four
        EXPECT_EQ(id, station->setTimer(INT_MAX, 0, 0, REARMED));
    }
}

TEST_F(ThreadTimerTest, DroppingAllStopsEveryOtherOneAndForgetsTheRest) {
    for (bool const byStop : {false, true}) {
        RunningStation station;
        for (int i = 1; i <= 3; ++i) {
            EXPECT_EQ(i, station->setTimer(HOUR, 0, 0, REARMED));
        }
        std::vector<int> const all = timersOf(station);
        EXPECT_TRUE(byStop ? station->stop(1, 0) == 0 : station->eraseMsg(EXPIRY));
        EXPECT_EQ(byStop ? std::vector<int>() : std::vector<int>{all.at(1)}, timersOf(station));
        EXPECT_EQ(0, station->killTimer(2, 0));
    }
}

TEST_F(ThreadTimerTest, KernelTimersThatAreLeftBehindRestAndAreUsedAgain) {
    constexpr int ROOM = 4;
    RunningStation station(16, ROOM);
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < ROOM; ++i) {
            EXPECT_LT(0, station->setTimer(1, 0, 0, FREE_RUNNING));
        }
        EXPECT_EQ(1, station->eraseMsg(EXPIRY));
        EXPECT_EQ(-1, station->setTimer(0x80000000ul, 0, 0, REARMED));
    }
    EXPECT_GE(std::size_t{ROOM}, timersOf(station).size());
    pass(HOUR);
    EXPECT_FALSE(clock.advanceToNext());
    EXPECT_LT(0, station->setTimer(1, 0, 1, REARMED));
    pass(1);
    EXPECT_EQ(1, station.count(EXPIRY));
}

// As when another process of this user has used them up.
TEST_F(KernelThreadTimerTest, WithoutASignalToQueueThereIsNoNewTimerAndTheOthersGoOn) {
    RunningStation station;
    EXPECT_EQ(1, station->setTimer(1, 0, 0, REARMED));
    {
        NoPendingSignals const limit;
        EXPECT_EQ(-1, station->setTimer(1, 0, 0, REARMED));
        long const heard = station.count(EXPIRY);
        EXPECT_TRUE(station.waitFor(EXPIRY, heard + 10));
    }
    EXPECT_TRUE(log.has("timer_create SysTimerId:0xffffffff errno:11\r\n"));
    EXPECT_EQ(0, station->killTimer(2, 0));
    EXPECT_EQ(3, station->setTimer(1, 0, 0, REARMED));
}

TEST_F(KernelThreadTimerTest, ExpiresWhateverSignalsItsMakerBlocksAndInterruptsNobodyElse) {
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &previous);
    RunningStation blocked;
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    EXPECT_EQ(1, blocked->setTimer(1, 0, 0, FREE_RUNNING));
    for (int i = 2; i <= 50; ++i) {  // some have come and gone before anybody can wait for them
        EXPECT_EQ(i, blocked->setTimer(1, 0, 1, REARMED));
        EXPECT_EQ(0, poll(nullptr, 0, 4));
    }
    EXPECT_TRUE(blocked.waitFor(EXPIRY, 50));
}

TEST_F(KernelThreadTimerTest, ASignalThatSomebodySendsIsNoExpiry) {
    int const signal = std::max(34, SIGRTMIN);
    RunningStation station;
    EXPECT_EQ(1, station->setTimer(HOUR, 0, 0, FREE_RUNNING));
    siginfo_t info = {};
    for (int const value : {0, -1, INT_MAX}) {
        info.si_value.sival_int = value;
        for (int const code : {SI_QUEUE, SI_TIMER}) {
            info.si_code = code;
            for (int const threadId : {gettid(), station->getId()}) {
                EXPECT_EQ(0, syscall(SYS_rt_tgsigqueueinfo, getpid(), threadId, signal, &info));
            }
        }
    }
    EXPECT_EQ(1, station->sendMsgSync(A));
    EXPECT_EQ(Station::Ids{A}, station.ids());
}

}  // namespace
}  // namespace utl
