#include "UtlThreadWatchdog.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "UtlStatementInfo.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"

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

    explicit Alarm(Action action = nullptr) : mAction(std::move(action)) {}

    void onTime(int id, Map<int, WatchdogInfo> const& infos) override {
        mLastTick = TimeCounter::getTickTime();
        if (mAction) {
            mAction(id, infos);
        }
        calls.add();
    }

    std::uint32_t lastTick() const { return mLastTick; }

    test::Counter calls;

private:
    Action const mAction;
    std::atomic<std::uint32_t> mLastTick{0};
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

    // The row of a thread in the watchdog's table, as it stands now.
    static std::string row(int id) {
        test::LogCapture log;
        manager()->printWatchdogInfo(3);
        std::string const column = " " + std::to_string(id) + ", ";
        for (test::LogLine const& line : log.all()) {
            if (line.text.find(column) < sizeof "<UTIL> DTL: 0123456789") {
                return line.text;
            }
        }
        return "none";
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
    EXPECT_TRUE(
        log.has("<UTIL> DTL: ThreadWatchdog Register ID:" + id + ", AliveTime:50, Name:me\r\n"));
    passSeveralChecks();  // registered, but the watch has not begun
    EXPECT_EQ(0u, alarm.calls.count());

    std::uint32_t const begin = TimeCounter::getTickTime();
    EXPECT_TRUE(manager()->startWatchdog(0));
    EXPECT_TRUE(alarm.calls.waitFor(1));
    EXPECT_GE(alarm.lastTick() - begin, 50u);
    passSeveralChecks();
    EXPECT_EQ(1u, alarm.calls.count());
    EXPECT_EQ(1u, log.count(timeout));

    EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    EXPECT_EQ(1u, log.count("<UTIL> INF: ThreadWatchdog Timeout->Alive ID:" + id + " Name:me\r\n"));
    EXPECT_TRUE(alarm.calls.waitFor(2));
    EXPECT_EQ(2u, log.count(timeout));
    EXPECT_NE(std::string::npos, row(gettid()).find(", TIMEOUT     ,             2, (here.cpp, "));
}

TEST_F(WatchdogTest, ShowsTheListenerAllRegistrationsAsTheyWere) {
    int const me = gettid();
    Alarm alarm([me](int id, Map<int, WatchdogInfo> const& infos) {
        EXPECT_EQ(me, id);
        ASSERT_EQ(2u, infos.count());
        WatchdogInfo const& info = *infos.find(me);
        EXPECT_EQ(WatchdogInfo::WATCHING, info.watchStatus());
        EXPECT_EQ(WatchdogInfo::TIMEOUT, info.aliveStatus());
        EXPECT_EQ(1u, info.aliveTime());
        EXPECT_EQ(1u, info.timeoutCount());
        EXPECT_TRUE(info.lastAliveInfo() == HERE);
        EXPECT_STREQ("me", info.name().c_str());
        WatchdogInfo const other(NOBODY, LONG_ALIVE, nullptr, "", WatchdogInfo::NOT_WATCHING);
        EXPECT_TRUE(*infos.find(NOBODY) == other);
        EXPECT_TRUE(info != other);
    });
    EXPECT_TRUE(manager()->entryWatchdog(LONG_ALIVE, nullptr, NOBODY));
    watchMe(LONG_ALIVE, &alarm);
    EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    EXPECT_TRUE(manager()->setWatchdogAliveTime(1, 0));
    EXPECT_TRUE(alarm.calls.waitFor(1));
}

TEST_F(WatchdogTest, PrintsItsTableWhenNobodyListens) {
    test::LogCapture log;
    watchMe(LONG_ALIVE, nullptr);
    manager()->keepAliveWatchdog(StatementInfo(nullptr, nullptr, 4294967295u, 7));
    manager()->setWatchdogAliveTime(1, 0);
    std::string const id = std::to_string(gettid());
    EXPECT_TRUE(log.waitFor("<UTIL> INF: " + std::string(10 - id.size(), ' ') + id +
                            ", me                              ,          1, WATCHING    , "
                            "TIMEOUT     ,             1, (, :4294967295:7)\r\n"));
    EXPECT_TRUE(
        log.has("<UTIL> INF: ThreadWatchdog:: Watchdog info of threads in this "
                "process.\r\n"));
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
    for (auto const& renew : renewals) {
        Alarm alarm;
        EXPECT_TRUE(manager()->setWatchdogWatchInterval(ONE_HOUR));
        std::uint32_t const begin = TimeCounter::getTickTime();
        watchMe(ALIVE_TIME, &alarm);
        test::comesTrue([&] { return TimeCounter::getTickTime() - begin > ALIVE_TIME; });
        std::uint32_t const renewed = TimeCounter::getTickTime();
        EXPECT_TRUE(renew());
        EXPECT_TRUE(manager()->setWatchdogWatchInterval(INTERVAL));
        EXPECT_TRUE(alarm.calls.waitFor(1));
        EXPECT_GE(alarm.lastTick() - renewed, ALIVE_TIME) << &renew - renewals;
        EXPECT_TRUE(manager()->unregister(gettid()));
    }
}

TEST_F(WatchdogTest, NeitherRecordsNorReportsAThreadThatIsNotWatched) {
    Alarm alarm;
    watchMe(LONG_ALIVE, &alarm);
    EXPECT_TRUE(manager()->isWatchingWatchdog(0));
    EXPECT_TRUE(manager()->stopWatchdog(0));
    EXPECT_FALSE(manager()->isWatchingWatchdog(gettid()));
    EXPECT_TRUE(manager()->setWatchdogAliveTime(1, 0));
    EXPECT_TRUE(manager()->keepAliveWatchdog(HERE));
    passSeveralChecks();
    EXPECT_EQ(0u, alarm.calls.count());
    EXPECT_NE(std::string::npos,
              row(gettid()).find("NOT_WATCHING, UNKNOWN     ,             0, ("));
    EXPECT_EQ(std::string::npos, row(gettid()).find("here.cpp"));
}

TEST_F(WatchdogTest, RefusesUnknownThreadsSecondRegistrationsAndNoAliveTime) {
    test::LogCapture log;
    std::string const id = std::to_string(gettid());
    EXPECT_FALSE(manager()->setWatchdogAliveTime(LONG_ALIVE, 0));
    EXPECT_FALSE(manager()->keepAliveWatchdog(HERE));
    EXPECT_FALSE(manager()->startWatchdog(0));
    EXPECT_FALSE(manager()->stopWatchdog(0));
    EXPECT_FALSE(manager()->unregisterWatchdog(0));
    EXPECT_FALSE(manager()->entryWatchdog(0, nullptr, 0));
    EXPECT_FALSE(manager()->setWatchdogAliveTime(0, gettid()));
    EXPECT_EQ(2u,
              log.count("<UTIL> ERR: ThreadWatchdog Register AliveTime is 0 ID:" + id + " \r\n"));
    EXPECT_TRUE(manager()->entryWatchdog(LONG_ALIVE, nullptr, 0));
    EXPECT_FALSE(manager()->entryWatchdog(LONG_ALIVE, nullptr, gettid()));
    EXPECT_EQ(1u, log.count("<UTIL> ERR: ThreadWatchdog Register EntryMap ID:" + id + "\r\n"));
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
    Alarm alarm([](int id, Map<int, WatchdogInfo> const&) {
        ThreadManager::destroy();  // refused: it would wait for itself
        EXPECT_EQ(manager(), ThreadManager::getIfCreated());
        EXPECT_STREQ("me", manager()->findName(id));
        EXPECT_TRUE(manager()->unregister(id));
        EXPECT_TRUE(manager()->setWatchdogWatchInterval(INTERVAL));
        manager()->printWatchdogInfo(3);
        Worker other("other", [] { return 0; });
        EXPECT_EQ(0, other.startRegistered(LONG_ALIVE, nullptr));
        EXPECT_TRUE(other.comesToAnEnd());
        EXPECT_TRUE(other.leaveManagement());
    });
    watchMe(1, &alarm);
    EXPECT_TRUE(alarm.calls.waitFor(1));
    passSeveralChecks();
    EXPECT_EQ(1u, alarm.calls.count());
}

TEST_F(WatchdogTest, TheManagerIsThereUntilTheListenerHasReturned) {
    test::Gate isInside;
    ThreadManager* const present = manager();
    Alarm alarm([&](int, Map<int, WatchdogInfo> const&) {
        isInside.open();
        // Once it was asked to stop, the watchdog's thread makes no timers any more.
        EXPECT_TRUE(test::comesTrue([&] { return !present->setWatchdogWatchInterval(INTERVAL); }));
        EXPECT_EQ(present, manager());
        EXPECT_FALSE(ThreadManager::initializeEntryMax(5));
    });
    watchMe(1, &alarm);
    EXPECT_TRUE(isInside.wait());
    ThreadManager::destroy();
    EXPECT_EQ(1u, alarm.calls.count());
    EXPECT_EQ(nullptr, ThreadManager::getIfCreated());
}

// Where the library reports, by itself, that the calling thread is alive.
TEST_F(WatchdogTest, KnowsWhereAThreadLastCalledWhatMayBlock) {
    auto const startAnother = [] {
        return manager()->entry([](void*) {}, nullptr, 0, 0, nullptr, "another",
                                ThreadPriority::NORMAL, 0);
    };
    Time time;
    struct {
        char const* statement;
        std::function<void()> call;
    } const cases[] = {
        {"(UtlThread, sleep:39:2)", [] { Thread::sleep(0); }},
        {"(UtlTimepiece, getSystemTime:41:2)", [&] { getSystemTime(&time); }},
        {"(UtlTimepiece, getLocalTime:94:2)", [&] { getLocalTime(&time); }},
        {"(UtlThreadManager, entry:432:2)", startAnother},
        {"(UtlThreadManager, operator():140:2)",
         [&] {
             int const id = startAnother();
             manager()->waitToStop(id, 0);
             manager()->unregister(id);
         }},
        {"(UtlThreadManager, entryCaller:522:2)",
         [] { manager()->entryCaller(0, 0, nullptr, "me"); }},
    };
    watchMe(LONG_ALIVE, nullptr);
    for (auto const& c : cases) {
        c.call();
        std::string const text = row(gettid());
        EXPECT_NE(std::string::npos, text.find(c.statement)) << text;
    }
}

TEST_F(WatchdogTest, ShowsThatAThreadIsAsleep) {
    struct sigaction action = {};
    struct sigaction before;
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &before);

    test::Gate mayEnd;
    pthread_t sleeper{};
    Worker worker("sleeper");
    worker.onPreExecute = [&] { sleeper = pthread_self(), worker.startWatchdog(); };
    worker.onExecute = [&] { return Thread::sleep(ONE_HOUR), mayEnd.wait() ? 0 : -1; };
    EXPECT_EQ(0, worker.startRegistered(LONG_ALIVE, nullptr));
    auto const isAt = [&](char const* statement) {
        return row(worker.getId()).find(statement) != std::string::npos;
    };
    EXPECT_TRUE(test::comesTrue([&] { return isAt("(UtlThread, sleep:39:1)"); }));
    EXPECT_TRUE(test::comesTrue([&] {
        pthread_kill(sleeper, SIGUSR1);
        return isAt("(UtlThread, sleep:39:2)");
    }));
    mayEnd.open();
    EXPECT_TRUE(worker.comesToAnEnd());
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(WatchdogTest, NeedsATimerAndLeavesNoThreadWithoutOne) {
    EXPECT_FALSE(manager()->setWatchdogWatchInterval(BEYOND_TIMERS));
    EXPECT_TRUE(manager()->setWatchdogWatchInterval(INTERVAL));
    passSeveralChecks();

    ThreadWatchdog watchdog(4);
    EXPECT_FALSE(watchdog.initialize(BEYOND_TIMERS));
    EXPECT_TRUE(comesToThreads(1));  // the manager's own
    EXPECT_FALSE(watchdog.setWatchInterval(INTERVAL));
    EXPECT_FALSE(watchdog.entry(gettid(), LONG_ALIVE, nullptr, "me"));
}

TEST_F(WatchdogTest, MayBeDestroyedWhileItLooks) {
    unsigned const timers = test::kernelTimers();
    for (int round = 0; round < 20; ++round) {
        Alarm alarm;
        ThreadWatchdog watchdog(4);
        EXPECT_TRUE(watchdog.initialize(1));
        EXPECT_FALSE(watchdog.initialize(1));
        EXPECT_FALSE(watchdog.entry(1, 1, &alarm, nullptr));
        EXPECT_TRUE(watchdog.entry(1, 1, &alarm, "one"));
        EXPECT_TRUE(watchdog.start(1));
        EXPECT_TRUE(alarm.calls.waitFor(1));
    }
    EXPECT_EQ(timers, test::kernelTimers());
}

}  // namespace
}  // namespace utl
