#include "UtlThreadManager.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "UtlStatementInfo.h"
#include "UtlTimepiece.h"

#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/Worker.h"

namespace utl {
namespace {

using test::Worker;

constexpr unsigned long LONG_ALIVE = 60000;

class ThreadManagerTest : public test::ManagerTest {};

// Runs `work` on that many threads, all of which live until the last is done.
void runTogether(unsigned count, std::function<void()> const& work) {
    test::Counter present;
    test::Counter done;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            present.add();
            present.waitFor(count);
            work();
            done.add();
            done.waitFor(count);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(ThreadManagerTest, NobodyNeedsOneToReadTheTimeOrToSleep) {
    Time time;
    EXPECT_EQ(1, getSystemTime(&time));
    EXPECT_EQ(1, getLocalTime(&time));
    Thread::sleep(0);
    EXPECT_FALSE(Worker().startWatchdog());
    EXPECT_EQ(nullptr, ThreadManager::getIfCreated());
    EXPECT_TRUE(comesToThreads(0));
}

TEST_F(ThreadManagerTest, WhoeverGetsItFindsARunningWatchdog) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<ThreadManager*> first{nullptr};
        runTogether(8, [&] {
            ThreadManager* const found = manager();
            ThreadManager* none = nullptr;
            EXPECT_TRUE(first.compare_exchange_strong(none, found) || none == found);
            EXPECT_TRUE(found->entryWatchdog(LONG_ALIVE, nullptr, 0));
            EXPECT_TRUE(found->isRegisteredWatchdog(gettid()));
        });
        ThreadManager::destroy();
        EXPECT_EQ(nullptr, ThreadManager::getIfCreated());
    }
}

TEST_F(ThreadManagerTest, ACallersOwnMaximumIsWatchedFromTheFirstGet) {
    EXPECT_TRUE(ThreadManager::initializeEntryMax(2));
    EXPECT_FALSE(ThreadManager::initializeEntryMax(200));
    ASSERT_NE(nullptr, ThreadManager::getIfCreated());
    EXPECT_FALSE(ThreadManager::getIfCreated()->entryWatchdog(LONG_ALIVE, nullptr, 0));
    EXPECT_NE(0, manager()->entryCaller(1, LONG_ALIVE, nullptr, "main"));
    EXPECT_TRUE(manager()->isRegisteredWatchdog(0));
    std::thread([] { EXPECT_EQ(0, manager()->entryCaller(0, 0, nullptr, "third")); }).join();
}

TEST_F(ThreadManagerTest, KeepsAFinishedThreadUntilItIsUnregistered) {
    test::Gate gate;
    auto const entry = [&](void (*function)(void*), char const* name) {
        return manager()->entry(function, &gate, 0, 0, nullptr, name, ThreadPriority::NORMAL, 0);
    };
    auto const wait = [](void* argument) { static_cast<test::Gate*>(argument)->wait(); };
    EXPECT_EQ(0, entry(nullptr, "none"));
    EXPECT_EQ(0, entry(wait, nullptr));
    int const id = entry(wait, "gate");
    EXPECT_EQ(0, access(("/proc/self/task/" + std::to_string(id)).c_str(), F_OK));
    EXPECT_TRUE(manager()->isActive(id));
    EXPECT_EQ(TIMED_OUT, manager()->waitToStop(id, 1));
    EXPECT_FALSE(manager()->unregister(id));

    gate.open();
    EXPECT_EQ(REACHED, manager()->waitToStop(id, 0));
    EXPECT_FALSE(manager()->isThreadActive(id));
    EXPECT_STREQ("gate", manager()->getName(id));
    EXPECT_TRUE(manager()->unregister(id));
    EXPECT_FALSE(manager()->unregister(id));
    EXPECT_EQ(WAIT_FAILED, manager()->waitToStop(id, 0));
    EXPECT_STREQ("", manager()->findName(id));
}

TEST_F(ThreadManagerTest, ACallerRegistersItselfAnewButNotOverAManagedThread) {
    test::LogCapture log;
    manager()->enableRegistrationLog();
    int const id = gettid();
    EXPECT_EQ(0, manager()->entryCaller(0, 0, nullptr, nullptr));
    EXPECT_EQ(id, manager()->entryCaller(0, 0, nullptr, "before"));
    EXPECT_EQ(id, manager()->entryCaller(0, 0, nullptr, "after"));
    EXPECT_TRUE(log.has("<UTIL> INF: Thread Register           ID:" + std::to_string(id) +
                        ", Name:after\r\n"));
    EXPECT_STREQ("after", manager()->findName(id));
    EXPECT_TRUE(manager()->isThreadExist(id));
    EXPECT_FALSE(manager()->isActive(id));
    EXPECT_EQ(WAIT_FAILED, manager()->waitToStop(id, 0));
    EXPECT_FALSE(manager()->setPriority(id, ThreadPriority::LOW));
    EXPECT_TRUE(manager()->unregister(id));
    EXPECT_FALSE(manager()->isThreadExist(id));

    Worker worker("managed");
    worker.onPreExecute = [] { EXPECT_EQ(0, manager()->entryCaller(0, 0, nullptr, "renamed")); };
    EXPECT_EQ(REACHED, worker.startAndWait(0));
    EXPECT_STREQ("managed", manager()->findName(worker.getId()));
    EXPECT_TRUE(log.has("<UTIL> INF: Thread Start and Register ID:" +
                        std::to_string(worker.getId()) + ", PriOs:0, Name:managed\r\n"));
    EXPECT_FALSE(log.has("Register Error"));
}

TEST_F(ThreadManagerTest, HoldsOneHundredAndTwentyEightThreadsItsOwnIncluded) {
    test::LogCapture log;
    std::atomic<int> refused{0};
    runTogether(
        128, [&] { refused += manager()->entryCaller(0, 0, nullptr, "one of many") == 0 ? 1 : 0; });
    EXPECT_EQ(1, refused);
    EXPECT_EQ(1u, log.count("<UTIL> ERR: entryCaller() Error Thread Register           ID:"));
    EXPECT_EQ(1u, log.count(", Name:one of many\r\n"));
}

TEST_F(ThreadManagerTest, ANameStaysWhereItIsWhileOthersComeAndGo) {
    int const id = manager()->entryCaller(0, 0, nullptr, "the one that stays");
    char const* const name = manager()->findName(id);
    runTogether(4, [&] {
        for (int round = 0; round < 200; ++round) {
            std::string const own = "comes and goes " + std::to_string(round);
            EXPECT_NE(0, manager()->entryCaller(0, 0, nullptr, own.c_str()));
            EXPECT_EQ(own, manager()->findName(gettid()));
            EXPECT_EQ(name, manager()->getName(id));
            EXPECT_STREQ("the one that stays", name);
            EXPECT_TRUE(manager()->unregister(gettid()));
        }
    });
}

TEST_F(ThreadManagerTest, CopiesNamesUntilThereIsNoRoom) {
    int const id = manager()->entryCaller(0, 0, nullptr, "main");
    Map<int, BasicString<char>> all(2, 0);
    all.insert(id, BasicString<char>("outdated", 0, 0), 0);
    EXPECT_TRUE(manager()->getNames(&all));
    EXPECT_EQ(2u, all.count());
    EXPECT_STREQ("main", all.find(id)->c_str());

    Map<int, BasicString<char>> tooSmall(1, 0);
    EXPECT_FALSE(manager()->getNames(&tooSmall));
    ASSERT_EQ(1u, tooSmall.count());
    EXPECT_EQ(all[0].key(), tooSmall[0].key());
    EXPECT_FALSE(manager()->getNames(nullptr));
}

TEST_F(ThreadManagerTest, PrintsItsThreadsInTheOrderOfTheirIds) {
    std::string const cut(29, 'a');
    Worker running((cut + "\xE3\x81\x82").c_str());  // 31 bytes would end inside the last character
    Worker finished("finished", [] { return 0; });
    EXPECT_EQ(0, running.start(ThreadPriority::LOW));
    EXPECT_EQ(0, finished.start());
    EXPECT_TRUE(finished.comesToAnEnd());
    EXPECT_NE(0, manager()->entryCaller(1, LONG_ALIVE, nullptr, "main"));

    test::LogCapture log;
    manager()->printThreadInfo(3);
    EXPECT_TRUE(log.all().empty());
    auto const has = [&](int id, std::string const& rest) {
        std::string const digits = std::to_string(id);
        std::string const column = std::string(10 - digits.size(), ' ') + digits;
        return log.count("<UTIL> DTL: " + column + ", " + rest + "\r\n") == 1;
    };
    manager()->printThreadInfoReg(3);
    std::vector<test::LogLine> const lines = log.all();
    ASSERT_EQ(6u, lines.size());  // the watchdog's thread among them
    EXPECT_EQ("<UTIL> DTL: ThreadManager:: Registered info of threads in this process.\r\n",
              lines[0].text);
    EXPECT_EQ(
        "<UTIL> DTL: ID        , Name                            , Status      , Pri.Os    , "
        "Pri.Label       , \r\n",
        lines[1].text);
    EXPECT_TRUE(has(running.getId(), cut + "   , ACTIVE      ,          2, LOW             , "));
    char const* const inactive = ", UNKNOWN     ,        100, INVALID         , ";
    EXPECT_TRUE(has(finished.getId(), "finished                        " + std::string(inactive)));
    EXPECT_TRUE(has(gettid(), "main                            " + std::string(inactive)));
    EXPECT_TRUE(std::is_sorted(lines.begin() + 2, lines.end(),
                               [](auto const& a, auto const& b) { return a.text < b.text; }));

    log.clear();
    manager()->printWatchdogInfo(3);
    EXPECT_EQ(8u, log.all().size());
    EXPECT_TRUE(has(gettid(),
                    "main                            ,      60000, NOT_WATCHING, "
                    "UNKNOWN     ,             0, (, :0:0)"));
    EXPECT_TRUE(
        log.has("<UTIL> DTL: ThreadManager:: Registered info of threads in this process."
                "(But not registered watchdog)\r\n"));
    EXPECT_TRUE(log.has("<UTIL> DTL: ID        , Name                            , \r\n"));
    EXPECT_TRUE(has(running.getId(), cut + "   , "));
}

TEST_F(ThreadManagerTest, MayBeDestroyedWhileManagedThreadsRunOn) {
    Worker worker("survivor");
    worker.onPostExecute = [&] { EXPECT_FALSE(worker.stopWatchdog()); };
    EXPECT_EQ(0, worker.startRegistered(LONG_ALIVE, nullptr));
    ThreadManager::destroy();
    ThreadManager::destroy();
    EXPECT_TRUE(worker.isRunning());
    EXPECT_EQ(REACHED, worker.stop(1, 0));
    EXPECT_FALSE(worker.leaveManagement());
    manager();  // another one, which does not know the thread
    EXPECT_FALSE(worker.leaveManagement());
    EXPECT_TRUE(worker.hasDone(Thread::EXECUTED));
}

// What threads do without holding the manager must not meet a deleted one, nor keep it from going.
struct Habit {
    char const* name;
    std::function<void(Worker&)> act;
};

class ThreadManagerDestroyTest : public ThreadManagerTest,
                                 public ::testing::WithParamInterface<Habit> {};

TEST_P(ThreadManagerDestroyTest, RacesWithThreads) {
    std::atomic<bool> isOver{false};
    test::Counter acts;
    std::list<Worker> workers;
    for (int i = 0; i < 8; ++i) {
        Worker& worker = workers.emplace_back();
        worker.onExecute = [&] {
            for (; !isOver; acts.add()) {
                GetParam().act(worker);
            }
            return 0;
        };
        EXPECT_EQ(0, worker.startRegistered(LONG_ALIVE, nullptr));
    }
    for (int round = 0; round < 20; ++round) {
        ThreadManager::destroy();
        EXPECT_TRUE(acts.waitFor(acts.count() + 2));
        ThreadManager::get();
    }
    isOver = true;
}

INSTANTIATE_TEST_SUITE_P(WhileThey, ThreadManagerDestroyTest,
                         ::testing::Values(Habit{"Sleep", [](Worker&) { Thread::sleep(0); }},
                                           Habit{"StopAndStartTheirWatch",
                                                 [](Worker& self) {
                                                     self.stopWatchdog(), self.startWatchdog();
                                                 }},
                                           Habit{"StartOthers",
                                                 [](Worker&) {
                                                     Worker other("other", [] { return 0; });
                                                     EXPECT_EQ(0, other.start());
                                                     EXPECT_TRUE(other.comesToAnEnd());
                                                     other.leaveManagement();
                                                 }}),
                         [](auto const& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace utl
