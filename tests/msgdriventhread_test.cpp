#include "UtlMsgDrivenThread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <functional>
#include <future>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/MessageStation.h"
#include "support/TimeTest.h"

namespace utl {
namespace {

using namespace test;
using Ids = Station::Ids;

constexpr long HOLD = Station::HOLD;

class MsgDrivenThreadTest : public ManagerTest {
protected:
    LogCapture log;
};

TEST_F(MsgDrivenThreadTest, RefusesWhatDoesNotFitItsLife) {
    Station station;
    Ids inside;
    station.on(A, [&] {
        inside = {station.start(), station->stop(1, 0), station->sendMsgSync(SYNC)};
    });
    auto const expectRefusals = [&] {
        EXPECT_EQ(0, station->postMsg(A) + station->sendMsgSync(A) + station->eraseMsg(A));
        EXPECT_EQ(0, station->hasMsg(A) + station->killTimer(1, 0));
        EXPECT_EQ(-1, station->getFirstMsgId());
        EXPECT_EQ(-1, station->setTimer(HOUR, 0, 0, 0));
    };

    expectRefusals();
    EXPECT_EQ(-1, station->stop(1, 0));
    EXPECT_EQ(1, station->sendMsgAsync(SimpleMsg(B)));  // heard once the thread runs
    ASSERT_EQ(0, station.start());
    EXPECT_EQ(-1, station.start());
    EXPECT_EQ(1, station->sendMsgSync(A));
    EXPECT_EQ((Ids{-1, -1, 0}), inside);
    EXPECT_FALSE(log.has("Refused")) << "as a circle of waits";
    EXPECT_TRUE(station.waitFor(B));

    EXPECT_EQ(0, station->stop(1, 0));
    EXPECT_FALSE(manager()->isThreadExist(station->getId()));
    EXPECT_EQ(-1, station.start());
    expectRefusals();
}

TEST_F(MsgDrivenThreadTest, KeepsEverySendersOrderAndLosesNothingWhenItIsFull) {
    constexpr int COUNT = 1000;
    RunningStation station(8);
    std::vector<std::future<void>> senders;
    for (long id = A; id < A + 4; ++id) {
        senders.push_back(inThread([&station, id] {
            for (int i = 0; i < COUNT; ++i) {
                while (!station->postMsg(NumberMsg(id, i))) {
                    std::this_thread::yield();
                }
            }
        }));
    }
    EXPECT_EQ(4u * COUNT, station.hears(4 * COUNT).size());
    std::map<long, int> next;
    for (auto const& [id, number] : station.heard()) {
        EXPECT_EQ(next[id]++, number);
    }
}

TEST_F(MsgDrivenThreadTest, ReportsAFullDataQueueOnceForEachDelivery) {
    std::string const text =
        "MsgDrivenThread(station) Overflow MsgDataQueue  MaxCount:2 MsgId:0x00008002\r\n";
    HeldStation station(2);
    station.on(B, [&] { EXPECT_EQ(1, station.post({A, A, A})); });
    EXPECT_EQ(2, station.post({B, A, A, A}));
    EXPECT_TRUE(log.count("ERR: " + text) == 1 && log.count("DTL: " + text) == 1);
    station.released.open();
    EXPECT_EQ((Ids{HOLD, B, A, A}), station.hears(4));
    EXPECT_TRUE(log.count("ERR: " + text) == 2 && log.count("DTL: " + text) == 2);
}

TEST_F(MsgDrivenThreadTest, AFullControlQueueRefusesEverythingAndLeavesNothingBehind) {
    constexpr int ROOM = 256 + 1;
    HeldStation station(1, 2 * ROOM);
    station.on(SYNC, [&] { station->eraseMsg(TimerMsg::ID); });
    for (int i = 1; i <= ROOM; ++i) {
        EXPECT_EQ(i, station->setTimer(HOUR, 1, 0, 0));
    }
    EXPECT_EQ(-1, station->setTimer(HOUR, 0, 0, 0));
    EXPECT_EQ(0, station->postMsg(A) + station->hasMsg(A));
    EXPECT_EQ(0, station->sendMsgSync(SYNC));
    EXPECT_EQ(4u, log.count("Overflow ThreadCtlMsgQueue  MaxCount:257 MsgId:0x0000"));

    // There is room again, but the entry of the timer that could not be posted blocks its id.
    station.released.open();
    EXPECT_TRUE(comesTrue([&] { return station->queuedEntriesForTesting() == 0; }));
    EXPECT_EQ(-1, station->setTimer(HOUR, 1, 0, 0));
    EXPECT_EQ(1, station->sendMsgSync(SYNC));
    EXPECT_EQ(ROOM + 1, station->setTimer(HOUR, 0, 0, 0));
    EXPECT_EQ(1, station->postMsg(B));
    EXPECT_EQ((Ids{HOLD, SYNC, B}), station.hears(3));
}

TEST_F(MsgDrivenThreadTest, RefusesLargeMessagesAndReservedIdsAndDeliversTheirNeighbours) {
    RunningStation station(16, 0, 3);
    Ids const neighbours = {0x8000, 0x83EF, 0x83F1, 0x83FA, 0x8400, INT_MAX};
    EXPECT_EQ(0, station->postMsg(NumberMsg(A)) + station->sendMsgSync(NumberMsg(A)));
    EXPECT_EQ(2u, log.count("<UTIL> ERR: MsgDrivenThread(station) Overflow MsgSize  "
                            "MaxSize(include MsgId):7 MsgId:0x00008002\r\n"));
    for (long id : {0x83F0, 0x83FB, 0x83FC, 0x83FD, 0x83FE, 0x83FF}) {
        EXPECT_EQ(0, station->postMsg(id) + station->eraseMsg(id));
    }
    EXPECT_EQ(6u,
              log.count("<UTIL> ERR: !!!!!!!! MsgDrivenThread(station) Error. MsgId:0x000083f"));
    EXPECT_EQ(6, station.post(neighbours));
    EXPECT_EQ(neighbours, station.hears(6));
}

TEST_F(MsgDrivenThreadTest, AMessageWithALowIdStaysUntilALaterOneDropsIt) {
    RunningStation station;
    EXPECT_EQ(1, station->postMsg(0x7FFF));
    EXPECT_TRUE(log.waitFor("MsgDrivenThread(station) Error. MsgId:0x00007fff !!!!!!!!"));
    EXPECT_EQ(1, station->hasMsg(0x7FFF));
    EXPECT_EQ(2, station.post({-5, A}));
    EXPECT_EQ(Ids{A}, station.hears(1));
    EXPECT_TRUE(
        log.has("<UTIL> ERR: !!!!!!!! MsgDrivenThread(station) MismatchedMsg... "
                "DataQueueMsgId:0x00007fff CtlMsgId:0x00008002 Erased Data !!!!!!!!"));
    EXPECT_TRUE(log.has("DataQueueMsgId:0xfffffffb CtlMsgId:0x00008002"));
}

using StatisticsTest = ManualTimeTest;

TEST_F(StatisticsTest, AThreadKnowsWhatItHadToDo) {
    HeldStation station(2);
    station->setHandlerLimit(std::chrono::milliseconds(40));
    EXPECT_EQ(2, station->postMsg(A) + station->postMsg(B) + station->postMsg(B));
    pass(50);
    LoopStatistics const held = station->statistics();
    EXPECT_EQ(2u, held.waiting);
    EXPECT_EQ(3u, held.posted);
    EXPECT_EQ(1u, held.refused);
    EXPECT_EQ(1u, held.handled);
    EXPECT_EQ(LoopStatistics::NOTHING, held.longestHandlerId);
    std::string table(4096, '\0');
    MsgDrivenThread::storeStatistics(table.data(), table.size());
    EXPECT_NE(std::string::npos, table.find("station                         ,          2"));
    MsgDrivenThread::printStatistics(1);
    EXPECT_EQ(1u, log.count("station                         ,          2"));
    station.released.open();
    clock.settle();
    LoopStatistics const rested = station->statistics();
    EXPECT_EQ(0u, rested.waiting);
    EXPECT_EQ(2u, rested.maxWaiting);
    EXPECT_EQ(3u, rested.handled);
    EXPECT_EQ(50u, rested.longestWaitMs);
    EXPECT_EQ(50u, rested.longestHandlerMs);
    EXPECT_EQ(HOLD, rested.longestHandlerId);
    EXPECT_EQ(1u,
              log.count("MsgDrivenThread(station) Slow. MsgId:0x00008001 Time:50ms Limit:40ms"));
}

TEST_F(MsgDrivenThreadTest, AStopDeliversWhatWasAcceptedOrSaysWhatItDropped) {
    for (Rest const rest : {Rest::RUN, Rest::DROP}) {
        HeldStation station;
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(1, station->postMsg(A));
        }
        auto stopped = inThread([&] { return station->stop(rest, std::chrono::hours(1)); });
        EXPECT_TRUE(comesTrue([&] { return station->hasRequestedStop(); }));
        EXPECT_EQ(0, station->postMsg(B) + station->sendMsgAsync(SimpleMsg(B)));
        station.released.open();
        StopResult const result = stopped.get();
        bool const isRun = rest == Rest::RUN;
        EXPECT_EQ(REACHED, result.result);
        EXPECT_EQ(isRun ? 10u : 0u, result.ran);
        EXPECT_EQ(isRun ? 0u : 10u, result.dropped);
        EXPECT_EQ(static_cast<long>(result.ran), station.count(A));
    }
    EXPECT_EQ(1u, log.count("MsgDrivenThread(station) stopped. Dropped:10"));
    EXPECT_EQ(WAIT_FAILED, Station()->stop(Rest::RUN, std::chrono::hours(1)).result);
}

// One that was asked for before has its entry in front of what is accepted until it is closed.
TEST_F(MsgDrivenThreadTest, AStopThatWorksOffEndsWhateverBecomesOfTheLastMessage) {
    HeldStation station;
    station.on(A, [&] { EXPECT_TRUE(station.awaitEntries(3)) << "B, a stop, a request"; });
    EXPECT_EQ(0, station->stop(0, 0));
    EXPECT_EQ(2, station->sendMsgAsync(SimpleMsg(A)) + station->sendMsgAsync(SimpleMsg(B)));
    auto stopped = inThread([&] { return station->stop(Rest::RUN); });
    EXPECT_TRUE(station.awaitEntries(4));
    station.released.open();
    EXPECT_TRUE(station.waitFor(A));
    EXPECT_EQ(1, station->eraseMsg(B));
    EXPECT_EQ(REACHED, stopped.get().result);
}

// Whatever entry is under way: it goes when the message that overtakes it erases it.
TEST_F(MsgDrivenThreadTest, ASynchronousMessageOvertakesAllThatAreQueued) {
    struct {
        long first;
        Ids heard;
    } const cases[] = {{A, {HOLD, SYNC, A, B, LAST}},
                       {0x8400, {HOLD, SYNC, B, LAST}},
                       {0x83EF, {HOLD, SYNC, LAST}}};
    for (auto const& [first, heard] : cases) {
        HeldStation station;
        if (first != A) {
            station.on(SYNC, [&station, id = first] { EXPECT_EQ(1, station->eraseMsg(id)); });
        }
        EXPECT_EQ(2, station.post({first, B}));
        EXPECT_EQ(1, station.answerTo([&] { return station->sendMsgSync(SYNC); }));
        // Each answered before one more entry is dealt with: the one under way, and that of B,
        // which may have lost its message and would take LAST for it.
        station->hasMsg(A);
        station->hasMsg(A);
        EXPECT_EQ(1, station->postMsg(LAST));
        EXPECT_EQ(heard, station.hears(heard.size()));
    }
    EXPECT_EQ(1u, log.count("MsgId:0x00008003 CtlMsgId:0x000083ef Erased Data"));
}

TEST_F(MsgDrivenThreadTest, ASynchronousMessageKeepsOthersFromQueuingAndNoStopBeyondItsLimit) {
    RunningStation station;
    station.on(SYNC, [&] { station.hold(); });
    auto sent = inThread([&] { return station->sendMsgSync(SYNC); });
    EXPECT_TRUE(station.entered.wait());
    auto queued = inThread([&] { return station->sendMsgAsync(SimpleMsg(A)); });
    EXPECT_EQ(std::future_status::timeout, queued.wait_for(std::chrono::milliseconds(50)));
    EXPECT_EQ(TIMED_OUT, station->stop(1, 20));
    station.released.open();
    EXPECT_EQ(1, sent.get() * queued.get());
    EXPECT_EQ(REACHED, station->waitTo(Thread::EXECUTED, 0));
}

// Of two threads that ask each other at one time, or of one that waits while the other asks it
// back.
TEST_F(MsgDrivenThreadTest, WaitsThatWouldCloseACircleAreRefusedAndNothingElse) {
    std::string const refusal =
        "<UTIL> ERR: MsgDrivenThread(station) Refused. MsgDrivenThread(station) waits for this "
        "thread\r\n";
    RunningStation a;
    RunningStation b;
    std::atomic<int> posted{0};
    Gate isInA;
    Gate isInB;
    a.on(SYNC, [&] { isInA.open(), isInB.wait(), posted += b->postMsg(LAST); });
    b.on(SYNC, [&] { isInB.open(), isInA.wait(), posted += a->postMsg(LAST); });
    auto sent = inThread([&] { return a->sendMsgSync(SYNC); });
    EXPECT_EQ(1, b->sendMsgSync(SYNC));
    EXPECT_EQ(1, sent.get());
    EXPECT_EQ(1, posted);
    EXPECT_EQ(1u, log.count(refusal));

    // Once answered, nobody is in the way of a call back, although he may not run yet.
    a.on(HOLD, [&] { EXPECT_EQ(1, b->sendMsgSync(HOLD)); });
    b.on(HOLD, [&] { EXPECT_EQ(1, b->postMsg(0x9001)); });
    b.on(0x9001, [&] { EXPECT_EQ(1, a->sendMsgSync(0x9001)); });
    for (int i = 1; i <= 20; ++i) {
        ASSERT_TRUE(a->postMsg(HOLD) && a.waitFor(0x9001, i));
    }

    std::future<int> found;
    a.on(A, [&] { EXPECT_EQ(1, b->sendMsgSync(B)); });
    b.on(B, [&] {
        SimpleMsg out(LAST);
        EXPECT_EQ(0, a->askMsg(out, &out) + a->eraseMsg(LAST));
        EXPECT_EQ(-1, a->setTimer(HOUR, 0, 0, 0));
        EXPECT_LT(0, a->setTimer(HOUR, 1, 0, 0));
        EXPECT_EQ(1, a->postMsg(LAST));
        found = inThread([&] { return a->hasMsg(B); });
        EXPECT_TRUE(a.awaitEntries(3));
        EXPECT_EQ(TIMED_OUT, a->stop(1, 20));
        EXPECT_EQ(0, a->postMsg(LAST));
        EXPECT_EQ(WAIT_FAILED, a->stop(1, 0));
    });
    EXPECT_EQ(1, a->postMsg(A));
    EXPECT_EQ(REACHED, a->waitTo(Thread::EXECUTED, 0));
    EXPECT_EQ(0, found.get());
    EXPECT_EQ(5u, log.count(refusal));

    // A destructor waits as well.
    std::optional<MsgDrivenThread> gone;
    RunningStation c;
    Gate isInGone;
    Station listener;
    listener.on(A, [&] {
        isInGone.open();
        EXPECT_TRUE(comesTrue([&] { return gone->hasRequestedStop(); }));
        EXPECT_EQ(0, c->sendMsgSync(B));
    });
    gone.emplace(8, 8, "gone", 0);
    EXPECT_EQ(1, gone->start(&listener, {}) + gone->postMsg(A));
    c.on(A, [&] { isInGone.wait(), gone.reset(); });
    EXPECT_EQ(1, c->sendMsgSync(A));
    EXPECT_TRUE(log.has("(gone) Refused. MsgDrivenThread(station) waits for this thread"));
}

// Who waits for the end of one synchronous message is not taken for one who waits no more when the
// next has begun before he runs.
TEST_F(MsgDrivenThreadTest, ACircleIsFoundHoweverSoonTheNextTurnBegins) {
    RunningStation asked;
    RunningStation poster(64);
    asked.on(SYNC, [&] { poster->hasMsg(A); });
    poster.on(A, [&] { asked->postMsg(B); });
    auto const send = [&] {
        for (int i = 0; i < 3000; ++i) {
            asked->sendMsgSync(SYNC);
        }
    };
    auto const alsoSent = inThread(send);
    auto const sent = inThread(send);
    while (sent.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        poster->postMsg(A);
    }
    EXPECT_EQ(2, asked->sendMsgSync(LAST) + poster->sendMsgSync(LAST)) << "both still serve";
}

// A message is user code, which runs with a lock of the loop held.
struct AskingMsg : Msg {
    AskingMsg(MsgDrivenThread& a, MsgDrivenThread& b) : Msg(A), threads{&a, &b} {}
    void storeDataTo(MsgDataBroker*) const override { ask(); }
    void restoreDataFrom(MsgDataBroker&) override { ask(); }
    void ask() const {
        for (MsgDrivenThread* const thread : threads) {
            EXPECT_EQ(0, thread->postMsg(B) + thread->sendMsgSync(B) + thread->hasMsg(A));
            EXPECT_EQ(-2, thread->setTimer(HOUR, 0, 0, 0) + thread->stop(1, 0));
        }
    }
    MsgDrivenThread* const threads[2];
};

TEST_F(MsgDrivenThreadTest, AMessageAsksForNothingWhileItIsStoredOrRestored) {
    HeldStation own;
    RunningStation other;
    AskingMsg msg(own.thread, other.thread);
    EXPECT_EQ(1, own->postMsg(msg));
    EXPECT_EQ(1, own.answerTo([&] { return own->peekMsg(A, &msg); }));
    EXPECT_EQ(1, own->sendMsgSync(msg));
    own.on(SYNC, [&] { EXPECT_EQ(2, own->postMsg(SimpleMsg(A)) + own->peekMsg(A, &msg)); });
    EXPECT_EQ(1, own->sendMsgSync(SYNC));
    EXPECT_EQ(39u, log.count(" Refused. A message asks for it while it is stored or restored"));
}

TEST_F(MsgDrivenThreadTest, AListenerMayDestroyTheThreadThatOthersWaitFor) {
    std::optional<RunningStation> station(std::in_place);
    Gate isGone;
    station->on(A, [&] {
        station.reset();
        isGone.open();
    });
    EXPECT_EQ(1, station->thread.setTimer(HOUR, 0, 0, 0));
    EXPECT_EQ(1, station->thread.sendMsgSync(A));
    EXPECT_TRUE(isGone.wait() && comesToThreads(1));
}

TEST_F(MsgDrivenThreadTest, ErasesQueuedMessagesAndTheOneUnderWay) {
    HeldStation station;
    EXPECT_EQ(6, station.post({A, B, A, SYNC, A, B}));
    EXPECT_EQ(1, station.answerTo([&] { return station->eraseMsg(A); }));
    EXPECT_EQ((Ids{HOLD, B, SYNC, B}), station.hears(4));
    EXPECT_FALSE(log.has("Error. MsgId")) << "no entry is left without its message";
}

TEST_F(MsgDrivenThreadTest, FindsTheFirstMessageWhateverEntryComes) {
    HeldStation station;
    NumberMsg out(0);
    EXPECT_EQ(3, station->postMsg(B) + station->postMsg(NumberMsg(A, 2)) +
                     station->postMsg(NumberMsg(A, 3)));
    EXPECT_EQ(1, station.answerTo([&] { return station->peekMsg(A, &out); }));
    EXPECT_EQ(2, out.number);
    EXPECT_TRUE(station.waitFor(A, 2));
    EXPECT_EQ(0, station->hasMsg(A) + station->peekMsg(A, &out) + station->peekMsg(A, nullptr));
    EXPECT_EQ(-1, station->getFirstMsgId());
}

TEST_F(MsgDrivenThreadTest, AHandlersSearchNeverChangesAnotherThreadsAnswer) {
    RunningStation station;
    auto const find = [&](long id) {
        NumberMsg out(0);
        return station->peekMsg(id, &out) == 1 && out.getMsgId() == id;
    };
    std::atomic<int> wrong{0};
    station.on(A, [&] { wrong += !find(B), station->postMsg(NumberMsg(A)); });
    station.on(B, [&] { wrong += !find(A), station->postMsg(NumberMsg(B)); });
    station.on(HOLD, [&] { station->postMsg(NumberMsg(A)), station->postMsg(NumberMsg(B)); });
    EXPECT_EQ(1, station->sendMsgSync(HOLD));
    for (int i = 0; i < 3000; ++i) {
        ASSERT_TRUE(find(A));
    }
    EXPECT_EQ(0, wrong);
}

// What every write into it refuses, and every read finds at its end.
TEST_F(MsgDrivenThreadTest, NoRequestHangsOrIsToldALieWhenTheThreadStopsOrItsPipeBreaks) {
    for (int round = 0; round < 80; ++round) {
        RunningStation station;
        std::atomic<long> sent{0};
        NumberMsg out(0);
        std::function<void()> const requests[] = {
            [&] { sent += station->sendMsgSync(SYNC); },
            [&] { station->peekMsg(A, &out), station->askMsg(out, &out), station->hasMsg(A); },
            [&] { station->killTimer(station->setTimer(HOUR, 0, 0, 0), 0); },
            [&] { station->postMsg(A), station->eraseMsg(A); }};
        std::vector<std::future<void>> askers;
        for (auto const& request : requests) {
            askers.push_back(inThread([&] {
                for (int i = 0; i < 8; ++i) {
                    request();
                }
            }));
        }
        station.waitFor(SYNC, round % 8);
        if (round % 3 == 0) {
            replaceByFull(station.writeEnd);  // the loop reads the end of its pipe
        } else {
            station->stop(round % 3 - 1, 0);
        }
        askers.clear();  // once all have been answered
        EXPECT_EQ(sent, station.count(SYNC));
    }
}

TEST_F(MsgDrivenThreadTest, AWriteThatFailsRefusesTheRequestAndDelaysNoLaterOne) {
    RunningStation station;
    auto const fallsAsleep = [&] { return isAsleep(station->getId()); };
    int const kept = dup(station.writeEnd);
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
    while (write(ends[1], "word", 4) == 4) {
    }
    EXPECT_EQ(1, station->sendMsgSync(B));
    EXPECT_TRUE(comesTrue(fallsAsleep));
    dup2(ends[1], station.writeEnd);
    EXPECT_EQ(1, station->postMsg(LAST)) << "who finds the pipe full need not write";
    EXPECT_EQ(8, write(kept, "one word", 8));
    EXPECT_TRUE(station.waitFor(LAST) && comesTrue(fallsAsleep));
    close(ends[0]);
    close(ends[1]);

    replaceByFull(station.writeEnd);
    EXPECT_EQ(0, station->hasMsg(A) + station->sendMsgSync(SYNC) + station->eraseMsg(A));
    EXPECT_EQ(0, station->postMsg(A));
    EXPECT_EQ(4u, log.count("<UTIL> ERR: MsgDrivenThread(station) Error. write Ret:4294967295 "
                            "errno:28\r\n"));
    // The refused entries stay queued, but take nobody's wake-up.
    while (!log.has("Overflow ThreadCtlMsgQueue")) {
        EXPECT_EQ(0, station->hasMsg(A));
    }
    dup2(kept, station.writeEnd);
    close(kept);
    EXPECT_EQ(0, station->hasMsg(A)) << "there is no room, but the loop wakes for it";
    EXPECT_TRUE(comesTrue([&] { return station->queuedEntriesForTesting() == 0; }));
    EXPECT_EQ(1, station->setTimer(HOUR, 0, 0, 0));
    EXPECT_EQ(0, station->stop(1, 0));
    EXPECT_EQ((Ids{B, LAST}), station.ids());
}

TEST_F(MsgDrivenThreadTest, AnInterruptedReadIsRepeated) {
    struct sigaction interrupting = {};
    interrupting.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupting, nullptr);
    RunningStation station;
    // A signal that comes before the thread reads interrupts nothing.
    EXPECT_TRUE(comesTrue([&] {
        syscall(SYS_tgkill, getpid(), station->getId(), SIGUSR1);
        return log.has("Error. read Ret:4294967295 errno:4=EINTR Retry read\r\n");
    }));
    EXPECT_EQ(1, station->sendMsgSync(SYNC));
    station->stop(1, 0);
    std::signal(SIGUSR1, SIG_DFL);
}

// Its thread works on when its loop has ended.
struct LingeringThread : MsgDrivenThread {
    using MsgDrivenThread::MsgDrivenThread;
    void postExecute() override { accepted = postMsg(A); }
    int accepted = -1;
};

TEST_F(MsgDrivenThreadTest, WithoutAPipeOrAWholeWordInItTheThreadEndsAndWhatIsAskedOfIt) {
    RunningStation withHalfAWord;
    int const writeEnd = nextWriteEnd();
    LingeringThread lingering(8, 4, "lingering", 0);
    EXPECT_EQ(8, write(withHalfAWord.writeEnd, "half", 4) + write(writeEnd, "half", 4));
    std::optional<NoDescriptors> limit(std::in_place);
    Station withoutPipe;
    limit.reset();
    EXPECT_TRUE(withoutPipe->sendMsgAsync(SimpleMsg(A)) && withoutPipe.start() == 0);
    EXPECT_EQ(0, lingering.start(&withoutPipe, StartOptions()));
    EXPECT_EQ(REACHED, lingering.waitTo(Thread::EXECUTED, 0));
    EXPECT_EQ(0, lingering.accepted);
    for (Station* station : std::initializer_list<Station*>{&withHalfAWord, &withoutPipe}) {
        EXPECT_EQ(REACHED, station->thread.waitTo(Thread::EXECUTED, 0));
        EXPECT_EQ(0, station->thread.sendMsgSync(SYNC) + station->thread.hasMsg(HOLD));
        EXPECT_EQ(0, station->thread.eraseMsg(A));
        EXPECT_EQ(Ids{}, station->ids());
    }
    EXPECT_EQ(1u, log.count("<UTIL> ERR: MsgDrivenThread(station) Error. read Ret:4 errno:0 "
                            "!!Break msg loop!!\r\n"));
    EXPECT_EQ(1u, log.count("<UTIL> ERR: MsgDrivenThread(station) pipe errno:24\r\n"));
}

TEST_F(MsgDrivenThreadTest, IsWatchedWhileItWorksAndNotWhileItWaits) {
    Station station;
    station.on(A, [] { EXPECT_TRUE(manager()->isWatchingWatchdog(0)); });
    ASSERT_EQ(0, station.start(1));
    EXPECT_EQ(1, station->sendMsgSync(A));
    EXPECT_TRUE(comesTrue([&] { return !manager()->isWatchingWatchdog(station->getId()); }));
    manager()->printWatchdogInfo(1);
    EXPECT_TRUE(log.has("(UtlMsgDrivenThread, execute:879:0)"));
}

}  // namespace
}  // namespace utl
