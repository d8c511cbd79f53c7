#include "UtlThreadWatchdog.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "UtlStatementInfo.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"

#include "support/FakeClock.h"
#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/Process.h"
#include "support/Worker.h"

namespace utl {
namespace {

using test::Worker;

constexpr unsigned long INTERVAL = 20;
constexpr unsigned long LONG_ALIVE = 60000;
constexpr unsigned long ONE_HOUR = 3600000;
constexpr unsigned long BEYOND_TIMERS = 0x80000000ul;

constexpr int NOBODY = -1;  // an id that no thread has

StatementInfo const HERE("here.cpp", "work", 12, 0);

class Alarm : public WatchdogTimerListener {
public:
    using Action = std::function<void(int id, Map<int, WatchdogInfo> const& infos)>;

    explicit Alarm(Action action = [](int, Map<int, WatchdogInfo> const&) {})
        : mAction(std::move(action)) {}

    void onTime(int id, Map<int, WatchdogInfo> const& infos) override {
        lastTick = TimeCounter::getTickTime();
        mAction(id, infos);
        calls.add();
    }

    test::Counter calls;
    std::atomic<std::uint32_t> lastTick{0};

private:
    Action const mAction;
};

// The thread of the test is watched itself, unless the test is about others.
class WatchdogTest : public test::ManagerTest {
protected:
    void SetUp() override { ASSERT_TRUE(manager()->setWatchdogWatchInterval(INTERVAL)); }

    static void watchMe(unsigned long aliveTimeMs, WatchdogTimerListener* listener) {
        EXPECT_EQ(gettid(), manager()->entryCaller(1, aliveTimeMs, listener, "me"));
        EXPECT_TRUE(manager()->startWatchdog(0));
    }

    // Another one falls silent again and again.
    void passSeveralChecks() {
        unsigned const last = mMetronome.calls.count() + 4;
        manager()->entryWatchdog(1, &mMetronome, NOBODY);
        manager()->startWatchdog(NOBODY);
        EXPECT_TRUE(mMetronome.calls.waitFor(last));
    }

    // Whether the watchdog's table has it.
    static bool hasRow(std::string const& part) {
        test::LogCapture const log;
        manager()->printWatchdogInfo(3);
        return log.has(part);
    }

private:
    Alarm mMetronome{[](int id, Map<int, WatchdogInfo> const& infos) {
        manager()->unregisterWatchdog(id);
        manager()->entryWatchdog(1, infos.find(id)->listener(), id);
        manager()->startWatchdog(id);
    }};
};

TEST_F(WatchdogTest, ReportsASilentThreadOnceAndAgainAfterItHasRecovered) {
    test::LogCapture log;
    Alarm alarm;
    std::string const id = std::to_string(gettid());
    std::string const timeout =
        "<UTIL> ERR: !!!!!!!! ThreadWatchdog Timeout ID:" + id + " Name:me !!!!!!!!\r\n";
    EXPECT_EQ(gettid(), manager()->entryCaller(1, 50, &alarm, "me"));
    EXPECT_TRUE(log.has("DTL: ThreadWatchdog Register ID:" + id + ", AliveTime:50, Name:me\r\n"));
    passSeveralChecks();  // registered, but the watch has not begun
    EXPECT_EQ(0u, alarm.calls.count());

    std::uint32_t const begin = TimeCounter::getTickTime();
    EXPECT_TRUE(manager()->startWatchdog(0));
    EXPECT_TRUE(alarm.calls.waitFor(1));
    EXPECT_GE(alarm.lastTick - begin, 50u);
    EXPECT_TRUE(WatchdogInfo::INVALID == WatchdogInfo() && WatchdogInfo::INVALID.id() == 0);
    EXPECT_TRUE(WatchdogInfo::INVALID.lastAliveInfo() == StatementInfo::INVALID);
    passSeveralChecks();
    EXPECT_EQ(1u, alarm.calls.count());
    EXPECT_EQ(1u, log.count(timeout));

    EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    EXPECT_EQ(1u, log.count("<UTIL> INF: ThreadWatchdog Timeout->Alive ID:" + id + " Name:me\r\n"));
    EXPECT_TRUE(alarm.calls.waitFor(2));
    EXPECT_EQ(2u, log.count(timeout));
}

TEST_F(WatchdogTest, RecordsAreEqualFieldByField) {
    using Info = WatchdogInfo;
    Alarm alarm;
    Info const info(1, 2, &alarm, "a", Info::WATCHING);
    EXPECT_TRUE(info == Info(1, 2, &alarm, std::string("a").c_str(), Info::WATCHING));
    EXPECT_TRUE(info != Info(3, 2, &alarm, "a", Info::WATCHING) &&
                info != Info(1, 3, &alarm, "a", Info::WATCHING) &&
                info != Info(1, 2, nullptr, "a", Info::WATCHING) &&
                info != Info(1, 2, &alarm, "b", Info::WATCHING) &&
                info != Info(1, 2, &alarm, "a", Info::NOT_WATCHING));

    // The fields that the watchdog changes, one by one. What lies ahead of it is never overdue.
    test::FakeClock clock(TimeCounter::getTickTime() + ONE_HOUR);
    auto const report = [&](StatementInfo const& statement) {
        test::FakeClock::Use const use(clock);
        manager()->startWatchdog(0);
        manager()->keepAliveWatchdog(statement);
    };
    std::vector<Info> states;
    Alarm witness([&, me = gettid()](int, Map<int, Info> const& infos) {
        states.push_back(*infos.find(me));
    });
    auto const look = [&] {
        unsigned const calls = witness.calls.count();
        manager()->entryWatchdog(1, &witness, NOBODY);
        manager()->startWatchdog(NOBODY);
        EXPECT_TRUE(witness.calls.waitFor(calls + 1) && manager()->unregisterWatchdog(NOBODY));
    };
    EXPECT_EQ(gettid(), manager()->entryCaller(1, 1, &alarm, "me"));
    {
        test::FakeClock::Use const use(clock);
        EXPECT_TRUE(manager()->startWatchdog(0));
    }
    look();
    report(StatementInfo::INVALID);
    look();
    report(HERE);
    look();
    EXPECT_TRUE(manager()->stopWatchdog(0) && manager()->startWatchdog(0));
    EXPECT_TRUE(alarm.calls.waitFor(1));
    report(HERE);
    look();
    clock.advance(1);
    report(HERE);
    look();
    for (std::size_t i = 1; i < states.size(); ++i) {
        EXPECT_TRUE(states[i] != states[i - 1]) << i;
        EXPECT_TRUE(Info(states[i]) == states[i]);
    }
}

TEST_F(WatchdogTest, PrintsItsTableWhenNobodyListens) {
    test::LogCapture log;
    watchMe(LONG_ALIVE, nullptr);
    manager()->keepAliveWatchdog(StatementInfo(nullptr, nullptr, 4294967295u, 7));
    manager()->setWatchdogAliveTime(1, 0);
    EXPECT_TRUE(log.waitFor(std::to_string(gettid()) +
                            ", me                              ,          1, WATCHING    , "
                            "TIMEOUT     ,             1, (, :4294967295:7)\r\n"));
    EXPECT_TRUE(
        log.has("<UTIL> INF: ID        , Name                            , AliveTime , "
                "WatchStatus , AliveStatus , TimeoutCount , LastAliveInfo(File, "
                "Function:Line:Sub) , \r\n"));
}

TEST_F(WatchdogTest, AReportANewAliveTimeAndANewWatchGiveAFullAliveTime) {
    constexpr std::uint32_t ALIVE_TIME = 60;
    std::function<bool()> const renewals[] = {
        [] { return manager()->keepAliveWatchdog(HERE); },
        [] { return manager()->setWatchdogAliveTime(ALIVE_TIME, 0); },
        [] { return manager()->stopWatchdog(0) && manager()->startWatchdog(0); },
    };
    EXPECT_TRUE(manager()->entryWatchdog(LONG_ALIVE, nullptr, NOBODY));  // and never watched
    for (auto const& renew : renewals) {
        Alarm alarm;
        EXPECT_TRUE(manager()->setWatchdogWatchInterval(ONE_HOUR));
        watchMe(ALIVE_TIME, &alarm);
        std::this_thread::sleep_for(std::chrono::milliseconds(ALIVE_TIME + 1));
        std::uint32_t const renewed = TimeCounter::getTickTime();
        EXPECT_TRUE(renew() && manager()->setWatchdogWatchInterval(INTERVAL));
        EXPECT_TRUE(alarm.calls.waitFor(1));
        EXPECT_GE(alarm.lastTick - renewed, ALIVE_TIME) << &renew - renewals;
        EXPECT_TRUE(manager()->unregister(gettid()));
    }
}

TEST_F(WatchdogTest, NeitherRecordsNorReportsAThreadThatIsNotWatched) {
    Alarm alarm;
    watchMe(LONG_ALIVE, &alarm);
    EXPECT_TRUE(manager()->stopWatchdog(0));
    EXPECT_FALSE(manager()->isWatchingWatchdog(gettid()));
    EXPECT_TRUE(manager()->setWatchdogAliveTime(1, 0));
    EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    passSeveralChecks();
    EXPECT_EQ(0u, alarm.calls.count());
    EXPECT_FALSE(hasRow("here.cpp"));
}

TEST_F(WatchdogTest, RefusesUnknownThreadsSecondRegistrationsAndNoAliveTime) {
    test::LogCapture log;
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
        ThreadManager::destroy();  // refused: it would wait for itself
        EXPECT_EQ(manager(), ThreadManager::getIfCreated());
        EXPECT_TRUE(manager()->unregister(id));
        EXPECT_TRUE(manager()->setWatchdogWatchInterval(INTERVAL));
        manager()->printWatchdogInfo(3);
        Worker other("other", [] { return 0; });
        EXPECT_TRUE(other.runsToItsEnd() && other.leaveManagement());
    });
    watchMe(1, &alarm);
    EXPECT_TRUE(alarm.calls.waitFor(1));
    passSeveralChecks();
    EXPECT_EQ(1u, alarm.calls.count());
}

void unregisterWatchdog(Worker& worker) {
    ThreadManager::get()->unregisterWatchdog(worker.getId());
}

void stop(Worker& worker) {
    worker.stop(1, 0);
}

// The parameter takes a worker off the watchdog.
class LettingGoTest : public WatchdogTest,
                      public ::testing::WithParamInterface<void (*)(Worker&)> {};

TEST_P(LettingGoTest, WaitsForTheCallOfTheListener) {
    test::Gate entered;
    test::Gate released;
    std::atomic<bool> hasReturned{false};
    Alarm alarm([&](int id, Map<int, WatchdogInfo> const&) {
        entered.open();
        released.wait();
        EXPECT_FALSE(manager()->unregisterWatchdog(id));  // by now; from here it waits for nobody
        hasReturned = true;
    });
    Worker worker;
    worker.onPreExecute = [&] { worker.startWatchdog(); };
    EXPECT_EQ(0, worker.startRegistered(1, &alarm));
    EXPECT_TRUE(entered.wait());
    auto const removed = std::async(std::launch::async, [&] {
        GetParam()(worker);
        EXPECT_TRUE(hasReturned);
    });
    EXPECT_EQ(std::future_status::timeout, removed.wait_for(std::chrono::milliseconds(20)));
    EXPECT_TRUE(test::comesTrue([&] { return !manager()->isRegisteredWatchdog(worker.getId()); }));
    if (GetParam() == stop) {
        EXPECT_TRUE(worker.comesToAnEnd());
        EXPECT_EQ(TIMED_OUT, worker.stop(1, 20));
        EXPECT_EQ(-1, worker.stop(0, 0));
    }
    released.open();
    removed.wait();
    EXPECT_EQ(1u, alarm.calls.count());
}

// A thread that works for longer than it may, and then ends while its listener is being called.
TEST_F(WatchdogTest, AStopOfALoopKeepsItsLimit) {
    struct Busy : ThreadMsgListener {
        int receiveMsg(int, ThreadRawMsg&) override { return done.wait() ? 0 : -1; }
        test::Gate done;
    } busy;
    test::Gate entered;
    test::Gate released;
    Alarm alarm([&](int, Map<int, WatchdogInfo> const&) { entered.open(), released.wait(); });
    MsgDrivenThread loop(4, 4, "loop", 0);
    EXPECT_EQ(0, loop.start(&busy, 1, 1, &alarm, 1, 0, ThreadPriority::NORMAL, 0));
    EXPECT_TRUE(loop.startWatchdog() && loop.postMsg(0x8001) == 1);
    EXPECT_TRUE(entered.wait());
    busy.done.open();
    EXPECT_EQ(TIMED_OUT, loop.stop(1, 20));
    EXPECT_EQ(-1, loop.stop(0, 0));
    EXPECT_FALSE(alarm.calls.count());
    released.open();
}

INSTANTIATE_TEST_SUITE_P(BeforeItIsGone, LettingGoTest,
                         ::testing::Values(unregisterWatchdog, stop));

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

// Another process stops this one for longer than anybody may be silent, and gives the beat in which
// the watched thread reports: not at once when the process goes on.
TEST_F(WatchdogTest, TimeInWhichTheProcessStoodStillIsNobodysSilence) {
    constexpr unsigned long ALIVE_TIME = 500;
    constexpr unsigned ONE_BEAT = 30000;  // microseconds
    Alarm listener;
    watchMe(ALIVE_TIME, &listener);
    int beats[2];
    ASSERT_EQ(0, pipe(beats));
    pid_t const here = getpid();
    if (fork() == 0) {
        for (int i = 0; i < 2; ++i) {
            usleep(ONE_BEAT);
            kill(here, SIGSTOP);
            usleep(2 * ALIVE_TIME * 1000);
            kill(here, SIGCONT);
            usleep(ONE_BEAT);
            (void)!write(beats[1], "b", 1);
        }
        _exit(0);
    }
    close(beats[1]);
    char beat;
    while (read(beats[0], &beat, 1) == 1) {
        EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    }
    EXPECT_EQ(0u, listener.calls.count());
    close(beats[0]);
    wait(nullptr);
}

TEST_F(WatchdogTest, TheManagerIsThereUntilTheListenerHasReturned) {
    test::Gate isInside;
    ThreadManager* const present = manager();
    Alarm alarm([&](int, Map<int, WatchdogInfo> const&) {
        isInside.open();
        // Once it was asked to stop, the watchdog's thread makes no timers any more.
        EXPECT_TRUE(test::comesTrue([&] { return !present->setWatchdogWatchInterval(INTERVAL); }));
        EXPECT_EQ(present, manager());
    });
    watchMe(1, &alarm);
    EXPECT_TRUE(isInside.wait());
    ThreadManager::destroy();
    EXPECT_EQ(nullptr, ThreadManager::getIfCreated());
}

// Where the library reports, by itself, that the calling thread is alive.
TEST_F(WatchdogTest, KnowsWhereAThreadIsAndWhereItLastCalledWhatMayBlock) {
    Time time;
    watchMe(LONG_ALIVE, nullptr);
    Thread::sleep(0);
    EXPECT_TRUE(hasRow("(UtlThread, sleep:39:2)"));
    getSystemTime(&time);
    EXPECT_TRUE(hasRow("(UtlTimepiece, getSystemTime:41:2)"));
    getLocalTime(&time);
    EXPECT_TRUE(hasRow("(UtlTimepiece, getLocalTime:94:2)"));
    manager()->entryCaller(0, 0, nullptr, "me");
    EXPECT_TRUE(hasRow("(UtlThreadManager, entryCaller:522:2)"));

    test::Gate isSeen;
    Worker worker("sleeper", [&] {
        while (!isSeen.isOpen()) {
            Thread::sleep(50);
        }
        return 0;
    });
    worker.onPreExecute = [&] { worker.startWatchdog(); };
    EXPECT_EQ(0, worker.startRegistered(LONG_ALIVE, nullptr));
    EXPECT_TRUE(hasRow("(UtlThreadManager, entry:432:2)"));
    EXPECT_TRUE(test::comesTrue([] { return hasRow("(UtlThread, sleep:39:1)"); }));
    isSeen.open();
    EXPECT_TRUE(worker.comesToAnEnd());
}

TEST_F(WatchdogTest, NeedsATimerAndLeavesNoThreadWithoutOne) {
    Alarm alarm;
    watchMe(1, &alarm);
    EXPECT_FALSE(manager()->setWatchdogWatchInterval(BEYOND_TIMERS));
    EXPECT_TRUE(alarm.calls.waitFor(1));  // the check goes on as it was
    ThreadWatchdog watchdog(4);
    EXPECT_FALSE(watchdog.initialize(BEYOND_TIMERS));
    EXPECT_TRUE(comesToThreads(1));  // the manager's own
    EXPECT_FALSE(watchdog.entry(gettid(), LONG_ALIVE, nullptr, "me"));
    ThreadWatchdog smallest(1);
    EXPECT_TRUE(smallest.initialize(INTERVAL) && smallest.setWatchInterval(2 * INTERVAL));
}

TEST_F(WatchdogTest, RestsWhileNobodyIsWatched) {
    Map<int, BasicString<char>> names(8, 0);
    EXPECT_TRUE(manager()->getNames(&names));
    ASSERT_EQ(1u, names.count());
    std::vector<int> const timers = test::kernelTimersOf(names[0].key());
    ASSERT_EQ(1u, timers.size());
    watchMe(LONG_ALIVE, nullptr);
    EXPECT_TRUE(test::comesTrue([&] { return test::isArmed(timers[0]); }));
    EXPECT_TRUE(manager()->stopWatchdog(0));
    EXPECT_TRUE(test::comesTrue([&] { return !test::isArmed(timers[0]); }));
    EXPECT_TRUE(manager()->startWatchdog(0));
    EXPECT_TRUE(test::comesTrue([&] { return test::isArmed(timers[0]); }));
}

TEST_F(WatchdogTest, MayBeDestroyedWhileItLooks) {
    unsigned const timers = test::kernelTimers();
    for (int round = 0; round < 20; ++round) {
        ThreadWatchdog watchdog(1);
        Alarm alarm([&](int id, Map<int, WatchdogInfo> const&) {
            watchdog.shutdown();  // refused: it would wait for itself
            EXPECT_TRUE(watchdog.isRegistered(id));
        });
        EXPECT_TRUE(watchdog.initialize(1) && !watchdog.initialize(1));
        EXPECT_TRUE(watchdog.entry(1, 5, &alarm, "one") && watchdog.start(1));
        EXPECT_TRUE(alarm.calls.waitFor(1));
        watchdog.shutdown();
    }
    EXPECT_EQ(timers, test::kernelTimers());
}

}  // namespace
}  // namespace utl
