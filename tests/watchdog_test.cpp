#include "UtlThreadWatchdog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "UtlStatementInfo.h"
#include "UtlThreadManager.h"

#include "support/Gate.h"
#include "support/TimeTest.h"
#include "support/Worker.h"

namespace utl {
namespace {

using std::chrono::milliseconds;
using test::Worker;

constexpr unsigned long INTERVAL = 20;
constexpr unsigned long LONG_ALIVE = 60000;
constexpr unsigned long BEYOND_TIMERS = 0x80000000ul;

constexpr int NOBODY = -1;  // an id that no thread has

StatementInfo const HERE("here.cpp", "work", 12, 0);

class Alarm : public WatchdogTimerListener {
public:
    using Action = std::function<void(int id, Map<int, WatchdogInfo> const& infos)>;

    explicit Alarm(Action action = [](int, Map<int, WatchdogInfo> const&) {})
        : mAction(std::move(action)) {}

    void onTime(int id, Map<int, WatchdogInfo> const& infos) override {
        mAction(id, infos);
        calls.add();
    }

    test::Counter calls;

private:
    Action const mAction;
};

// The thread of the test is watched itself, unless the test is about others.
void watchMe(unsigned long aliveTimeMs, WatchdogTimerListener* listener) {
    EXPECT_EQ(gettid(), ThreadManager::get()->entryCaller(1, aliveTimeMs, listener, "me"));
    EXPECT_TRUE(ThreadManager::get()->startWatchdog(0));
}

class KernelWatchdogTest : public test::KernelTimeTest {};

// From one check to the next.
class WatchdogTest : public test::ManualTimeTest {
protected:
    void SetUp() override { ASSERT_TRUE(manager()->setWatchdogWatchInterval(INTERVAL)); }

    // Whether the watchdog's table has it.
    bool hasRow(std::string const& part) {
        log.clear();
        manager()->printWatchdogInfo(3);
        return log.has(part);
    }
};

TEST_F(WatchdogTest, ReportsASilentThreadOnceAndAgainAfterItHasRecovered) {
    Alarm alarm;
    std::string const id = std::to_string(gettid());
    std::string const timeout =
        "<UTIL> ERR: !!!!!!!! ThreadWatchdog Timeout ID:" + id + " Name:me !!!!!!!!\r\n";
    EXPECT_EQ(gettid(), manager()->entryCaller(1, 50, &alarm, "me"));
    EXPECT_TRUE(log.has("DTL: ThreadWatchdog Register ID:" + id + ", AliveTime:50, Name:me\r\n"));
    pass(500);  // registered, but the watch has not begun
    EXPECT_TRUE(manager()->startWatchdog(0));
    pass(59);
    EXPECT_EQ(0u, alarm.calls.count());
    pass(1);
    EXPECT_EQ(1u, alarm.calls.count());
    pass(500);
    EXPECT_EQ(1u, alarm.calls.count());
    EXPECT_EQ(1u, log.count(timeout));

    EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    EXPECT_EQ(1u, log.count("<UTIL> INF: ThreadWatchdog Timeout->Alive ID:" + id + " Name:me\r\n"));
    pass(60);
    EXPECT_EQ(2u, alarm.calls.count());
    EXPECT_EQ(2u, log.count(timeout));
}

TEST(WatchdogInfoTest, RecordsAreEqualFieldByField) {
    using Info = WatchdogInfo;
    Alarm alarm;
    Info const info(1, 2, &alarm, "a", Info::WATCHING);
    EXPECT_TRUE(info == Info(1, 2, &alarm, std::string("a").c_str(), Info::WATCHING));
    EXPECT_TRUE(info != Info(3, 2, &alarm, "a", Info::WATCHING) &&
                info != Info(1, 3, &alarm, "a", Info::WATCHING) &&
                info != Info(1, 2, nullptr, "a", Info::WATCHING) &&
                info != Info(1, 2, &alarm, "b", Info::WATCHING) &&
                info != Info(1, 2, &alarm, "a", Info::NOT_WATCHING));
    EXPECT_TRUE(Info::INVALID == Info() && Info::INVALID.id() == 0);
    EXPECT_TRUE(Info::INVALID.lastAliveInfo() == StatementInfo::INVALID);
}

TEST_F(WatchdogTest, PrintsItsTableWhenNobodyListens) {
    watchMe(LONG_ALIVE, nullptr);
    manager()->keepAliveWatchdog(StatementInfo(nullptr, nullptr, 4294967295u, 7));
    manager()->setWatchdogAliveTime(1, 0);
    pass(INTERVAL);
    EXPECT_TRUE(log.has(std::to_string(gettid()) +
                        ", me                              ,          1, WATCHING    , "
                        "TIMEOUT     ,             1, (, :4294967295:7)\r\n"));
    EXPECT_TRUE(
        log.has("<UTIL> INF: ID        , Name                            , AliveTime , "
                "WatchStatus , AliveStatus , TimeoutCount , LastAliveInfo(File, "
                "Function:Line:Sub) , \r\n"));
}

TEST_F(WatchdogTest, AReportANewAliveTimeAndANewWatchGiveAFullAliveTime) {
    std::function<bool()> const renewals[] = {
        [] { return manager()->keepAliveWatchdog(HERE); },
        [] { return manager()->setWatchdogAliveTime(60, 0); },
        [] { return manager()->stopWatchdog(0) && manager()->startWatchdog(0); },
    };
    Alarm alarm;
    EXPECT_TRUE(manager()->entryWatchdog(LONG_ALIVE, nullptr, NOBODY));  // and never watched
    EXPECT_TRUE(manager()->setWatchdogWatchInterval(1));
    watchMe(60, &alarm);
    for (unsigned const& calls : {0u, 1u, 2u}) {
        pass(59);
        EXPECT_TRUE(renewals[calls]());
        pass(59);
        EXPECT_EQ(calls, alarm.calls.count());
        pass(1);
        EXPECT_EQ(calls + 1, alarm.calls.count());
        EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    }
}

TEST_F(WatchdogTest, NeitherRecordsNorReportsAThreadThatIsNotWatched) {
    Alarm alarm;
    watchMe(LONG_ALIVE, &alarm);
    EXPECT_TRUE(manager()->stopWatchdog(0));
    EXPECT_FALSE(manager()->isWatchingWatchdog(gettid()));
    EXPECT_TRUE(manager()->setWatchdogAliveTime(1, 0));
    EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    pass(500);
    EXPECT_EQ(0u, alarm.calls.count());
    EXPECT_FALSE(hasRow("here.cpp"));
    EXPECT_FALSE(clock.advanceToNext());  // nothing wakes up to look
    EXPECT_TRUE(manager()->startWatchdog(0));
    EXPECT_TRUE(clock.advanceToNext());
}

TEST_F(WatchdogTest, RefusesUnknownThreadsSecondRegistrationsAndNoAliveTime) {
    std::string const id = std::to_string(gettid());
    EXPECT_FALSE(manager()->setWatchdogAliveTime(LONG_ALIVE, 0));
    EXPECT_FALSE(manager()->keepAliveWatchdog(HERE));
    EXPECT_FALSE(manager()->startWatchdog(0) || manager()->stopWatchdog(0));
    EXPECT_FALSE(manager()->entryWatchdog(0, nullptr, 0));
    EXPECT_FALSE(manager()->setWatchdogAliveTime(0, gettid()));
    EXPECT_EQ(2u, log.count("ERR: ThreadWatchdog Register AliveTime is 0 ID:" + id + " \r\n"));
    EXPECT_TRUE(manager()->entryWatchdog(LONG_ALIVE, nullptr, 0));
    EXPECT_FALSE(manager()->entryWatchdog(LONG_ALIVE, nullptr, gettid()));
    EXPECT_EQ(1u, log.count("ERR: ThreadWatchdog Register EntryMap ID:" + id + "\r\n"));
}

TEST_F(WatchdogTest, ForgetsThreadsThatEndAreStoppedOrLeave) {
    Worker ended("ended", [] { return 0; });
    Worker stopped("stopped");
    EXPECT_EQ(0, ended.startRegistered(LONG_ALIVE, nullptr));
    EXPECT_EQ(0, stopped.startRegistered(LONG_ALIVE, nullptr));
    EXPECT_TRUE(ended.comesToAnEnd());
    EXPECT_FALSE(manager()->isRegisteredWatchdog(ended.getId()));
    EXPECT_TRUE(manager()->isRegisteredWatchdog(stopped.getId()));
    stopped.onRequestStop = [&] { EXPECT_FALSE(manager()->isRegisteredWatchdog(stopped.getId())); };
    EXPECT_EQ(0, stopped.stop(1, 0));

    watchMe(LONG_ALIVE, nullptr);
    EXPECT_TRUE(manager()->unregister(gettid()));
    EXPECT_FALSE(manager()->isRegisteredWatchdog(0));
}

TEST_F(WatchdogTest, AListenerMayCallBack) {
    Alarm alarm([](int id, Map<int, WatchdogInfo> const& infos) {
        EXPECT_EQ(1u, infos.find(id)->timeoutCount());
        EXPECT_EQ(WatchdogInfo::WATCHING, infos.find(id)->watchStatus()) << "as it was then";
        ThreadManager::destroy();  // refused: it would wait for itself
        EXPECT_EQ(manager(), ThreadManager::getIfCreated());
        EXPECT_TRUE(manager()->unregister(id));
        EXPECT_TRUE(manager()->setWatchdogWatchInterval(INTERVAL));
        manager()->printWatchdogInfo(3);
        Worker other("other", [] { return 0; });
        EXPECT_TRUE(other.runsToItsEnd() && other.leaveManagement());
    });
    watchMe(1, &alarm);
    static int const me = gettid();
    test::replaceNextLine([] { EXPECT_TRUE(manager()->stopWatchdog(me)); });  // that of the timeout
    pass(500);
    EXPECT_EQ(1u, alarm.calls.count());
}

// The parameter: whether a thread is taken off the watchdog by its stop.
class LettingGoTest : public WatchdogTest, public ::testing::WithParamInterface<bool> {};

// A thread that works for longer than it may, and is idle while its listener is being called.
TEST_P(LettingGoTest, WaitsForTheCallOfTheListener) {
    struct Slow : ThreadMsgListener {
        int receiveMsg(int, ThreadRawMsg&) override { return overdue.wait(), 0; }
        test::Hold overdue;
    } slow;
    test::Hold released;
    std::atomic<bool> hasReturned{false};
    Alarm alarm([&](int id, Map<int, WatchdogInfo> const&) {
        slow.overdue.open();
        released.wait();
        EXPECT_FALSE(manager()->unregisterWatchdog(id));  // by now; from here it waits for nobody
        hasReturned = true;
    });
    MsgDrivenThread loop(4, 4, "loop", 0);
    EXPECT_EQ(0, loop.start(&slow, 1, 1, &alarm, 1, 0, ThreadPriority::NORMAL, 0));
    EXPECT_EQ(1, loop.postMsg(0x8001));
    pass(INTERVAL);
    Worker remover("remover", [&] {
        GetParam() ? loop.stop(1, 0) : manager()->unregisterWatchdog(loop.getId());
        return hasReturned ? 1 : 0;
    });
    EXPECT_EQ(0, remover.start());
    clock.settle();
    EXPECT_TRUE(remover.isRunning());
    EXPECT_FALSE(manager()->isRegisteredWatchdog(loop.getId()));
    if (GetParam()) {
        int result = REACHED;
        Worker stopper("stopper", [&] { return result = loop.stop(1, 20); });
        EXPECT_EQ(0, stopper.start());
        pass(19);
        EXPECT_EQ(REACHED, result);
        pass(1);
        EXPECT_EQ(TIMED_OUT, result);
        EXPECT_EQ(-1, loop.stop(0, 0));
    }
    released.open();
    unsigned long hadReturned = 0;
    EXPECT_TRUE(remover.comesToAnEnd() && remover.getResult(&hadReturned) && hadReturned);
    EXPECT_EQ(1u, alarm.calls.count());
}

INSTANTIATE_TEST_SUITE_P(BeforeItIsGone, LettingGoTest, ::testing::Bool());

TEST_F(WatchdogTest, NobodyWaitsForItWhileItLogs) {
    Worker other("other");
    EXPECT_EQ(0, other.startRegistered(LONG_ALIVE, nullptr));
    watchMe(LONG_ALIVE, nullptr);
    std::thread printer;
    std::thread reporter;
    {
        test::StuckLog const stuck;
        printer = std::thread([] { manager()->printWatchdogInfo(1); });
        reporter = std::thread([] { manager()->entryWatchdog(LONG_ALIVE, nullptr, NOBODY); });
        EXPECT_TRUE(test::comesTrue([] { return manager()->isRegisteredWatchdog(NOBODY); }));
        EXPECT_TRUE(manager()->keepAliveWatchdog(HERE) && other.startWatchdog());
    }
    printer.join();
    reporter.join();
}

TEST_F(WatchdogTest, TimeInWhichTheProcessStoodStillIsNobodysSilence) {
    Alarm alarm;
    watchMe(50, &alarm);
    for (int i = 0; i < 3; ++i) {
        pass(15);
        clock.jump(milliseconds(1000));
        pass(20);
        EXPECT_EQ(0u, alarm.calls.count());
        EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    }
    pass(60);
    EXPECT_EQ(1u, alarm.calls.count());
}

TEST_F(KernelWatchdogTest, IsThereUntilTheListenerHasReturned) {
    for (int round = 0; round < 10; ++round) {
        ThreadManager* const present = manager();
        EXPECT_TRUE(present->setWatchdogWatchInterval(1));
        test::Gate isInside;
        Alarm alarm([&](int id, Map<int, WatchdogInfo> const&) {
            isInside.open();
            // Once it was asked to stop, the watchdog's thread makes no timers any more.
            EXPECT_TRUE(test::comesTrue([&] { return !present->setWatchdogWatchInterval(1); }));
            EXPECT_TRUE(manager() == present && present->isRegisteredWatchdog(id));
        });
        watchMe(1, &alarm);
        EXPECT_TRUE(isInside.wait());
        ThreadManager::destroy();
        EXPECT_EQ(nullptr, ThreadManager::getIfCreated());
    }
}

// Where the library reports, by itself, that the calling thread is alive.
TEST_F(WatchdogTest, KnowsWhereAThreadIsAndWhereItLastCalledWhatMayBlock) {
    watchMe(LONG_ALIVE, nullptr);
    Thread::sleep(0);
    EXPECT_TRUE(hasRow("(UtlThread, sleep:39:2)"));
    manager()->entryCaller(0, 0, nullptr, "me");
    EXPECT_TRUE(hasRow("(UtlThreadManager, entryCaller:522:2)"));

    Worker worker("sleeper", [] {
        Thread::sleep(50);
        return 0;
    });
    worker.onPreExecute = [&] { worker.startWatchdog(); };
    EXPECT_EQ(0, worker.startRegistered(LONG_ALIVE, nullptr));
    EXPECT_TRUE(hasRow("(UtlThreadManager, entry:432:2)"));
    clock.settle();
    EXPECT_TRUE(hasRow("(UtlThread, sleep:39:1)"));
    pass(50);
    EXPECT_TRUE(worker.comesToAnEnd());
}

TEST_F(WatchdogTest, NeedsATimerAndLeavesNoThreadWithoutOne) {
    Alarm alarm;
    watchMe(1, &alarm);
    EXPECT_FALSE(manager()->setWatchdogWatchInterval(BEYOND_TIMERS));
    pass(INTERVAL);
    EXPECT_EQ(1u, alarm.calls.count());  // the check goes on as it was
    ThreadWatchdog watchdog(4);
    EXPECT_FALSE(watchdog.initialize(BEYOND_TIMERS));
    EXPECT_TRUE(comesToThreads(1));  // the manager's own
    EXPECT_FALSE(watchdog.entry(gettid(), LONG_ALIVE, nullptr, "me"));
    ThreadWatchdog smallest(1);
    EXPECT_TRUE(smallest.initialize(INTERVAL) && smallest.setWatchInterval(2 * INTERVAL));
}

}  // namespace
}  // namespace utl
