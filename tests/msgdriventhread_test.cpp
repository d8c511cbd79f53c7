#include "UtlMsgDrivenThread.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <fstream>
#include <memory>
#include <thread>

#include "UtlThreadManager.h"

#include "support/LogCapture.h"
#include "support/MessageStation.h"

namespace utl {
namespace {

using test::inThread;
using test::NumberMsg;
using test::Station;
using Ids = Station::Ids;

constexpr long HOLD = Station::HOLD;
constexpr long A = 0x8002;
constexpr long B = 0x8003;
constexpr long SYNC = 0x8004;
constexpr unsigned long HOUR = 3600000;

class MsgDrivenThreadTest : public ::testing::Test {
protected:
    void SetUp() override { ThreadManager::get(); }
    void TearDown() override { ThreadManager::destroy(); }

    test::LogCapture log;
};

TEST_F(MsgDrivenThreadTest, RefusesWhatDoesNotFitItsLife) {
    Station station;
    Ids inside;
    station.on(A, [&] {
        inside = {station.start(), station->stop(1, 0), station->sendMsgSync(SYNC)};
    });
    auto const expectRefusals = [&] {
        TimerMsg out;
        EXPECT_EQ(0, station->postMsg(A) + station->sendMsgSync(A) + station->eraseMsg(A));
        EXPECT_EQ(0, station->peekMsg(A, &out) + station->hasMsg(A) + station->killTimer(1, 0));
        EXPECT_EQ(-1, station->getFirstMsgId());
        EXPECT_EQ(-1, station->setTimer(HOUR, 0, 0, 0));
    };

    expectRefusals();
    EXPECT_EQ(-1, station->stop(1, 0));
    EXPECT_EQ(-1, station->start(nullptr, 0, 0, nullptr, 1, 0, ThreadPriority::NORMAL, 0));
    EXPECT_EQ(1, station->sendMsgAsync(SimpleMsg(B)));  // heard once the thread runs
    ASSERT_EQ(0, station.start());
    EXPECT_EQ(-1, station.start());
    EXPECT_EQ(1, station->sendMsgSync(A));
    EXPECT_EQ((Ids{-1, -1, 0}), inside);
    EXPECT_EQ(0, station->peekMsg(A, nullptr));
    EXPECT_TRUE(station.waitFor(B));

    EXPECT_EQ(0, station->stop(1, 0));
    EXPECT_FALSE(ThreadManager::get()->isThreadExist(station->getId()));
    EXPECT_EQ(-1, station.start());
    expectRefusals();
}

TEST_F(MsgDrivenThreadTest, KeepsEverySendersOrderAndLosesNothingWhenItIsFull) {
    constexpr int SENDERS = 4;
    constexpr int COUNT = 1000;
    Station station(8);
    ASSERT_EQ(0, station.start());
    std::vector<std::thread> senders;
    for (int sender = 0; sender < SENDERS; ++sender) {
        senders.emplace_back([&station, sender] {
            for (int i = 0; i < COUNT; ++i) {
                while (!station->postMsg(NumberMsg(A + sender, i))) {
                    std::this_thread::yield();
                }
            }
        });
    }
    int next[SENDERS] = {};
    for (int sender = 0; sender < SENDERS; ++sender) {
        senders[static_cast<unsigned>(sender)].join();
        EXPECT_TRUE(station.waitFor(A + sender, COUNT));
    }
    for (auto const& heard : station.heard()) {
        EXPECT_EQ(next[heard.first - A]++, heard.second);
    }
}

TEST_F(MsgDrivenThreadTest, ReportsAFullDataQueueOnceForEachDelivery) {
    std::string const text =
        "MsgDrivenThread(station) Overflow MsgDataQueue  MaxCount:2 MsgId:0x00008002\r\n";
    Station station(2);
    station.on(B, [&] {  // one place is free again
        EXPECT_EQ(1, station->postMsg(A) + station->postMsg(A) + station->postMsg(A));
    });
    ASSERT_TRUE(station.startAndHold());
    EXPECT_EQ(2, station->postMsg(B) + station->postMsg(SYNC));
    EXPECT_EQ(0, station->postMsg(A) + station->postMsg(A) + station->postMsg(A));
    EXPECT_EQ(1u, log.count("<UTIL> ERR: " + text));
    EXPECT_EQ(2u, log.count("<UTIL> DTL: " + text));
    station.released.open();
    EXPECT_TRUE(station.waitFor(A));
    EXPECT_EQ(2u, log.count("<UTIL> ERR: " + text));
    EXPECT_EQ(3u, log.count("<UTIL> DTL: " + text));
}

TEST_F(MsgDrivenThreadTest, AFullControlQueueRefusesEverythingAndLeavesNothingBehind) {
    constexpr int ROOM = 256 + 1;
    Station station(1, 2 * ROOM);
    station.on(HOLD, [&] {
        station.hold();
        station->eraseMsg(TimerMsg::ID);
    });
    ASSERT_TRUE(station.startAndHold());
    for (int i = 1; i <= ROOM; ++i) {
        EXPECT_EQ(i, station->setTimer(HOUR, 1, 0, 0));
    }
    EXPECT_EQ(0, station->postMsg(A));
    EXPECT_EQ(1u, log.count("Overflow ThreadCtlMsgQueue  MaxCount:257 MsgId:0x00008002"));
    EXPECT_EQ(0, station->sendMsgSync(SYNC) + station->hasMsg(A) + station->eraseMsg(A));
    EXPECT_EQ(-1, station->setTimer(HOUR, 0, 0, 0));
    EXPECT_EQ(4u, log.count("Overflow ThreadCtlMsgQueue  MaxCount:257 MsgId:0x000083f"));

    // There is room again, but the entry of the timer that could not be posted blocks its id.
    EXPECT_EQ(1, station->killTimer(1, 0));
    EXPECT_EQ(-1, station->setTimer(HOUR, 1, 0, 0));
    station.released.open();
    EXPECT_EQ(1, station->sendMsgSync(SYNC));  // all timers are erased by now
    EXPECT_EQ(ROOM + 1, station->setTimer(HOUR, 0, 0, 0));

    EXPECT_EQ(1, station->postMsg(B));
    EXPECT_TRUE(station.waitFor(B));
    EXPECT_EQ((Ids{HOLD, SYNC, B}), station.ids());
    EXPECT_FALSE(log.has("MismatchedMsg"));
}

TEST_F(MsgDrivenThreadTest, RefusesLargeMessagesAndReservedIdsAndDeliversTheirNeighbours) {
    Station station(16, 0, 3);
    Ids const neighbours = {0x8000, 0x83EF, 0x83F1, 0x83FA, 0x8400, INT_MAX};
    ASSERT_EQ(0, station.start());
    EXPECT_EQ(0, station->postMsg(NumberMsg(A)) + station->sendMsgSync(NumberMsg(A)));
    EXPECT_EQ(2u, log.count("<UTIL> ERR: MsgDrivenThread(station) Overflow MsgSize  "
                            "MaxSize(include MsgId):7 MsgId:0x00008002\r\n"));
    EXPECT_EQ(-1, station->getFirstMsgId());
    for (long id : {0x83F0, 0x83FB, 0x83FC, 0x83FD, 0x83FE, 0x83FF}) {
        EXPECT_EQ(0, station->postMsg(id) + station->eraseMsg(id));
    }
    EXPECT_EQ(6u,
              log.count("<UTIL> ERR: !!!!!!!! MsgDrivenThread(station) Error. MsgId:0x000083f"));
    if (sizeof(long) > 4) {
        EXPECT_EQ(0, station->postMsg(static_cast<long>(0x100008002ll)));
    }
    for (long id : neighbours) {
        EXPECT_EQ(1, station->postMsg(id));
    }
    EXPECT_TRUE(station.waitFor(INT_MAX));
    EXPECT_EQ(neighbours, station.ids());
}

TEST_F(MsgDrivenThreadTest, AMessageWithALowIdStaysUntilALaterOneDropsIt) {
    Station station;
    ASSERT_EQ(0, station.start());
    EXPECT_EQ(1, station->postMsg(0x7FFF));
    EXPECT_TRUE(log.waitFor("MsgDrivenThread(station) Error. MsgId:0x00007fff !!!!!!!!"));
    EXPECT_EQ(1, station->hasMsg(0x7FFF));
    EXPECT_EQ(2, station->postMsg(-5) + station->postMsg(A));
    EXPECT_TRUE(station.waitFor(A));
    EXPECT_EQ(1u, log.count("<UTIL> ERR: !!!!!!!! MsgDrivenThread(station) MismatchedMsg... "
                            "DataQueueMsgId:0x00007fff CtlMsgId:0x00008002 Erased Data !!!!!!!!"));
    EXPECT_EQ(1u, log.count("DataQueueMsgId:0xfffffffb CtlMsgId:0x00008002"));
    EXPECT_EQ(Ids{A}, station.ids());
    EXPECT_EQ(-1, station->getFirstMsgId());
}

// Also what becomes of the entry under way when the message that it made way for erases it.
TEST_F(MsgDrivenThreadTest, ASynchronousMessageOvertakesAllThatAreQueued) {
    struct Case {
        long first;
        long erased;
        Ids heard;
        unsigned mismatches;
    };
    Case const cases[] = {{A, -1, {HOLD, SYNC, A, B, 0x9000}, 0},
                          {0x8400, 0x8400, {HOLD, SYNC, B, 0x9000}, 0},
                          {0x83EF, 0x83EF, {HOLD, SYNC, 0x9000}, 1}};
    for (Case const& one : cases) {
        Station station;
        bool isHandled = false;
        station.on(SYNC, [&] { isHandled = station->eraseMsg(one.erased) == 1; });
        ASSERT_TRUE(station.startAndHold());
        EXPECT_EQ(2, station->postMsg(one.first) + station->postMsg(B));
        auto sent = inThread([&] { return station->sendMsgSync(SYNC) && isHandled; });
        EXPECT_TRUE(station.awaitWords(3));
        station.released.open();
        EXPECT_TRUE(sent.get());
        station->hasMsg(A);  // answered once the entry under way has been dealt with
        EXPECT_EQ(1, station->postMsg(0x9000));
        EXPECT_TRUE(station.waitFor(0x9000));
        EXPECT_EQ(one.heard, station.ids());
        EXPECT_EQ(one.mismatches, log.count("MsgId:0x00008003 CtlMsgId:0x000083ef Erased Data"));
    }
}

bool isAsleep(int threadId) {
    std::ifstream stat("/proc/self/task/" + std::to_string(threadId) + "/stat");
    std::string line;
    std::getline(stat, line);
    return line.find(") S") != std::string::npos;
}

TEST_F(MsgDrivenThreadTest, NobodyQueuesAnythingWhileASynchronousMessageIsHandled) {
    Station station;
    std::atomic<int> sender{0};
    std::atomic<bool> isQueued{false};
    std::future<void> sent;
    station.on(SYNC, [&] {
        sent = inThread([&] {
            sender = ThreadManager::getCallerId();
            station->sendMsgAsync(SimpleMsg(A));
            isQueued = true;
        });
        test::comesTrue([&] { return sender != 0 && (isAsleep(sender) || isQueued); });
        EXPECT_FALSE(isQueued);
    });
    ASSERT_EQ(0, station.start());
    EXPECT_EQ(1, station->sendMsgSync(SYNC));
    EXPECT_TRUE(station.waitFor(A));
    sent.wait();
}

TEST_F(MsgDrivenThreadTest, ErasesQueuedMessagesAndTheOneUnderWay) {
    Station station;
    ASSERT_TRUE(station.startAndHold());
    for (long id : {A, B, A, SYNC, A, B}) {
        EXPECT_EQ(1, station->postMsg(id));
    }
    auto erased = inThread([&] { return station->eraseMsg(A); });
    EXPECT_TRUE(station.awaitWords(7));
    station.released.open();
    EXPECT_EQ(1, erased.get());
    EXPECT_EQ(2, station->eraseMsg(A) + station->eraseMsg(-1));
    EXPECT_TRUE(station.waitFor(B, 2));
    EXPECT_EQ((Ids{HOLD, B, SYNC, B}), station.ids());
    EXPECT_FALSE(log.has("Error")) << "no entry is left without its message";
}

TEST_F(MsgDrivenThreadTest, FindsTheFirstMessageWhateverEntryComes) {
    Station station;
    NumberMsg out(0);
    ASSERT_TRUE(station.startAndHold());
    EXPECT_EQ(3, station->postMsg(NumberMsg(B, 1)) + station->postMsg(NumberMsg(A, 2)) +
                     station->postMsg(NumberMsg(A, 3)));
    auto peeked = inThread([&] { return station->peekMsg(A, &out); });
    EXPECT_TRUE(station.awaitWords(4));
    station.released.open();
    EXPECT_EQ(1, peeked.get());
    EXPECT_EQ(A, out.getMsgId());
    EXPECT_EQ(2, out.number);
    EXPECT_TRUE(station.waitFor(A, 2));
    EXPECT_EQ(0, station->hasMsg(A) + station->peekMsg(A, &out));
    EXPECT_EQ(-1, station->getFirstMsgId());
}

TEST_F(MsgDrivenThreadTest, AHandlersSearchNeverChangesAnotherThreadsAnswer) {
    Station station;
    auto const peek = [&](long id) {
        NumberMsg out(0);
        return station->peekMsg(id, &out) == 1 && out.getMsgId() == id ? out.number : -1;
    };
    std::atomic<int> wrong{0};
    station.on(A, [&] {
        wrong += peek(B) != 2;
        station->postMsg(NumberMsg(A, 1));
    });
    station.on(B, [&] {
        wrong += peek(A) != 1;
        station->postMsg(NumberMsg(B, 2));
    });
    station->sendMsgAsync(NumberMsg(A, 1));
    station->sendMsgAsync(NumberMsg(B, 2));
    ASSERT_EQ(0, station.start());
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(1, peek(A));
    }
    EXPECT_EQ(0, wrong);
}

TEST_F(MsgDrivenThreadTest, WakesForEverythingThatIsPostedAfterThePipeWasFull) {
    Station station(40);
    station.on(SYNC, [&] {
        for (int i = 0; i < 50000; ++i) {
            station->postMsg(A);
            station->eraseMsg(A);
        }
        for (int i = 0; i < 20; ++i) {
            station->postMsg(B);
        }
    });
    ASSERT_EQ(0, station.start());
    EXPECT_EQ(1, station->sendMsgSync(SYNC));
    EXPECT_TRUE(station.waitFor(B, 20));
    EXPECT_EQ(0, station.count(A));
    EXPECT_FALSE(log.has("ERR"));
}

// What every write into it refuses, and every read finds at its end.
void replaceByFull(int end) {
    int const full = open("/dev/full", O_RDWR | O_CLOEXEC);
    dup2(full, end);
    close(full);
}

TEST_F(MsgDrivenThreadTest, NoRequestHangsOrIsToldALieWhenTheThreadStopsOrItsPipeBreaks) {
    for (int round = 0; round < 80; ++round) {
        Station station;
        test::Gate begin;
        std::atomic<long> sent{0};
        std::function<void()> const requests[] = {
            [&] { sent += station->sendMsgSync(SYNC); },
            [&] {
                NumberMsg out(0);
                station->peekMsg(A, &out);
                station->hasMsg(A);
                station->getFirstMsgId();
                station->eraseMsg(A);
            },
            [&] { station->killTimer(station->setTimer(HOUR, 0, 0, 0), 0); },
            [&] { station->postMsg(A); }};
        ASSERT_EQ(0, station.start());
        std::vector<std::thread> askers;
        for (auto const& request : requests) {
            askers.emplace_back([&] {
                begin.wait();
                for (int i = 0; i < 8; ++i) {
                    request();
                }
            });
        }
        begin.open();
        station.waitFor(SYNC, round % 8);
        if (round % 3 == 0) {
            replaceByFull(station.writeEnd);  // the loop reads the end of its pipe
        } else {
            station->stop(round % 3 - 1, 0);
        }
        for (std::thread& asker : askers) {
            asker.join();
        }
        EXPECT_EQ(sent, station.count(SYNC));
    }
}

TEST_F(MsgDrivenThreadTest, WhoWaitsForALoopThatBreaksIsReleasedWithAFailure) {
    std::function<long(MsgDrivenThread&)> const requests[] = {
        [](MsgDrivenThread& thread) { return thread.sendMsgSync(SYNC); },
        [](MsgDrivenThread& thread) { return thread.hasMsg(HOLD); },
        [](MsgDrivenThread& thread) { return thread.eraseMsg(A); },
        [](MsgDrivenThread& thread) { return thread.getFirstMsgId() + 1; },
        [](MsgDrivenThread& thread) { return thread.setTimer(HOUR, 0, 0, 0) + 1; }};
    for (auto const& request : requests) {
        Station station;
        char word[8] = {};
        unsigned long result = 0;
        ASSERT_TRUE(station.startAndHold());
        auto answer = inThread([&] { return request(station.thread); });
        EXPECT_TRUE(station.awaitWords(1));
        EXPECT_EQ(8, read(station.readEnd, word, 8));  // in place of the loop
        EXPECT_EQ(4, write(station.writeEnd, word, 4));
        station.released.open();
        EXPECT_EQ(0, answer.get());
        EXPECT_EQ(0, station->waitTo(Thread::EXECUTED, 0));
        EXPECT_TRUE(station->getResult(&result));
        EXPECT_EQ(NONE, result);
        EXPECT_EQ(Ids{HOLD}, station.ids());
    }
    EXPECT_EQ(5u, log.count("<UTIL> ERR: MsgDrivenThread(station) Error. read Ret:4 errno:0 "
                            "!!Break msg loop!!\r\n"));
}

TEST_F(MsgDrivenThreadTest, AWriteThatFailsRefusesTheRequestAndDelaysNoLaterOne) {
    Station station;
    ASSERT_EQ(0, station.start());
    int const kept = dup(station.writeEnd);
    replaceByFull(station.writeEnd);
    EXPECT_EQ(0, station->hasMsg(A) + station->sendMsgSync(SYNC) + station->eraseMsg(A));
    dup2(kept, station.writeEnd);
    close(kept);
    EXPECT_EQ(3u, log.count("<UTIL> ERR: MsgDrivenThread(station) Error. write Ret:4294967295 "
                            "errno:28\r\n"));
    // The refused entries stay queued, but take nobody's wake-up.
    test::Gate isDone;
    auto later = inThread([&] {
        EXPECT_EQ(1, station->setTimer(HOUR, 0, 0, 0));
        EXPECT_EQ(0, station->stop(1, 0));
        isDone.open();
    });
    char const word[8] = {};
    EXPECT_TRUE(isDone.wait());
    while (!isDone.isOpen() && write(station.writeEnd, word, 8) == 8) {
    }
    later.wait();
    EXPECT_EQ(0, station.count(SYNC));
}

TEST_F(MsgDrivenThreadTest, AnInterruptedReadIsRepeated) {
    struct sigaction previous;
    struct sigaction interrupting = {};
    interrupting.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupting, &previous);
    Station station;
    ASSERT_EQ(0, station.start());
    // A signal that comes before the thread reads interrupts nothing.
    EXPECT_TRUE(test::comesTrue([&] {
        syscall(SYS_tgkill, getpid(), station->getId(), SIGUSR1);
        return log.has(
            "<UTIL> INF: MsgDrivenThread(station) Error. read Ret:4294967295 "
            "errno:4=EINTR Retry read\r\n");
    }));
    EXPECT_EQ(1, station->sendMsgSync(SYNC));
    station->stop(1, 0);
    sigaction(SIGUSR1, &previous, nullptr);
}

TEST_F(MsgDrivenThreadTest, StopsAfterTheMessageUnderWay) {
    Station station;
    ASSERT_TRUE(station.startAndHold());
    EXPECT_EQ(1, station->postMsg(A));
    EXPECT_EQ(-2, station->stop(1, 1));
    EXPECT_EQ(0, station->postMsg(A) + station->sendMsgSync(SYNC));
    EXPECT_EQ(-1, station->setTimer(HOUR, 1, 0, 0));
    station.released.open();
    EXPECT_EQ(0, station->waitTo(Thread::EXECUTED, 0));
    EXPECT_EQ(Ids{HOLD}, station.ids());
}

TEST_F(MsgDrivenThreadTest, DestroyingARunningThreadStopsItAndLeavesNothing) {
    unsigned const threads = test::threads();
    unsigned const descriptors = test::openDescriptors();
    auto station = std::make_unique<Station>();
    ASSERT_TRUE(station->startAndHold());
    int const id = station->thread.getId();
    station.reset();
    EXPECT_FALSE(ThreadManager::get()->isThreadExist(id));
    EXPECT_EQ(descriptors, test::openDescriptors());
    EXPECT_TRUE(test::comesTrue([&] { return test::threads() == threads; }));
}

TEST_F(MsgDrivenThreadTest, WithoutAPipeTheThreadEndsAsSoonAsItStarts) {
    Station listener;
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    rlimit const none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    MsgDrivenThread thread(8, 16, "station", 4);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(1u, log.count("<UTIL> ERR: MsgDrivenThread(station) pipe errno:24\r\n"));
    thread.start(&listener, 0, 3600000, nullptr, 1, 0, ThreadPriority::NORMAL, 0);
    EXPECT_EQ(0, thread.sendMsgSync(SYNC));
    EXPECT_EQ(0, thread.waitTo(Thread::EXECUTED, 0));
}

TEST_F(MsgDrivenThreadTest, IsWatchedWhileItWorksAndNotWhileItWaits) {
    Station station;
    ThreadManager* const manager = ThreadManager::get();
    station.on(A, [&] {
        EXPECT_TRUE(manager->isWatchingWatchdog(0));
        manager->printWatchdogInfo(2);
        EXPECT_TRUE(log.has("(UtlMsgDrivenThread, execute:890:0)"));
    });
    ASSERT_EQ(0, station.start(1));
    EXPECT_EQ(1, station->sendMsgSync(A));
    EXPECT_TRUE(test::comesTrue([&] { return !manager->isWatchingWatchdog(station->getId()); }));
    manager->printWatchdogInfo(2);
    EXPECT_TRUE(log.has("(UtlMsgDrivenThread, execute:879:0)"));
}

}  // namespace
}  // namespace utl
