#include "UtlThreadManager.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <list>
#include <string>
#include <vector>

#include "UtlTimepiece.h"

#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/Process.h"
#include "support/Worker.h"

namespace utl {
namespace {

using namespace test;

constexpr unsigned long LONG_ALIVE = 60000;
constexpr int NOBODY = -1;  // an id that no thread has

class ThreadManagerTest : public ManagerTest {};

// Runs `work` on that many threads, all of which live until the last is done.
void runTogether(unsigned count, std::function<void()> const& work) {
    Counter present;
    Counter done;
    std::vector<std::future<void>> threads;
    for (unsigned i = 0; i < count; ++i) {
        threads.push_back(inThread([&] {
            present.add();
            present.waitFor(count);
            work();
            done.add();
            done.waitFor(count);
        }));
    }
}

// What a sanitizer wants a descriptor for has been there before.
TEST_F(ThreadManagerTest, WhatCouldNotBeMadeAtFirstIsMadeGood) {
    EXPECT_TRUE(manager()->entryCaller(1, LONG_ALIVE, nullptr, "me"));
    ThreadManager::destroy();
    ThreadManager* kept;
    {
        NoDescriptors const limit;
        kept = manager();
        ASSERT_NE(nullptr, kept);
        EXPECT_TRUE(kept->entryCaller(1, LONG_ALIVE, nullptr, "me"));
        EXPECT_FALSE(kept->isRegisteredWatchdog(0));
    }
    EXPECT_TRUE(kept->entryCaller(1, LONG_ALIVE, nullptr, "me"));
    EXPECT_TRUE(kept->isRegisteredWatchdog(0));
}

TEST_F(ThreadManagerTest, NobodyNeedsOneToReadTheTimeOrToSleep) {
    Time time;
    EXPECT_EQ(1, getSystemTime(&time) & getLocalTime(&time) & TimeCounter::start(1));
    EXPECT_NE(0xFFFFFFFFu, TimeCounter::stop(1));
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
        });
        ThreadManager::destroy();
        EXPECT_EQ(nullptr, ThreadManager::getIfCreated());
    }
}

TEST_F(ThreadManagerTest, KeepsAFinishedThreadUntilItIsUnregistered) {
    Gate gate;
    auto const wait = [](void* argument) { static_cast<Gate*>(argument)->wait(); };
    auto const enter = [&gate](void (*function)(void*), char const* name) {
        return manager()->entry(function, &gate, 0, 0, nullptr, name, ThreadPriority::NORMAL, 0);
    };
    int const id = enter(wait, "gate");
    EXPECT_EQ(0, enter(nullptr, "gate") + enter(wait, nullptr));
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
}

TEST_F(ThreadManagerTest, ACallerRegistersItselfAnewButNotOverAManagedThread) {
    LogCapture log;
    manager()->enableRegistrationLog();
    int const id = gettid();
    EXPECT_EQ(id, manager()->entryCaller(0, 0, nullptr, "before"));
    EXPECT_EQ(id, manager()->entryCaller(0, 0, nullptr, "after"));
    EXPECT_TRUE(log.has("<UTIL> INF: Thread Register           ID:" + std::to_string(id) +
                        ", Name:after\r\n"));
    EXPECT_STREQ("after", manager()->findName(id));
    EXPECT_EQ(WAIT_FAILED, manager()->waitToStop(id, 0));
    EXPECT_EQ(0, manager()->entryCaller(0, 0, nullptr, nullptr));

    Worker worker("managed", [] { return manager()->entryCaller(0, 0, nullptr, "renamed"); });
    unsigned long result = 1;
    EXPECT_TRUE(worker.runsToItsEnd() && worker.getResult(&result));
    EXPECT_EQ(0u, result);
    EXPECT_TRUE(log.has("<UTIL> INF: Thread Start and Register ID:" +
                        std::to_string(worker.getId()) + ", PriOs:0, Name:managed\r\n"));
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
            Map<int, BasicString<char>> names(8, 0);
            EXPECT_TRUE(manager()->getNames(&names));
            EXPECT_TRUE(manager()->unregister(gettid()));
        }
    });
}

TEST_F(ThreadManagerTest, GivesAllNamesInThePlaceOfOlderOnes) {
    BasicString<char> const older("older", 0, 0);
    int const id = manager()->entryCaller(0, 0, nullptr, "me");
    Map<int, BasicString<char>> names(3, 0);
    EXPECT_EQ(2u, names.insert(id, older, 0) + names.insert(NOBODY, older, 0));
    EXPECT_TRUE(manager()->getNames(&names));
    EXPECT_EQ(3u, names.count());  // the watchdog's thread among them
    EXPECT_STREQ("me", names.find(id)->c_str());
    EXPECT_STREQ("older", names.find(NOBODY)->c_str());
    Map<int, BasicString<char>> small(1, 0);
    EXPECT_FALSE(manager()->getNames(&small) || manager()->getNames(nullptr));
    EXPECT_EQ(1u, small.count());
}

TEST_F(ThreadManagerTest, PrintsItsThreadsInTheOrderOfTheirIds) {
    std::string const cut(29, 'a');
    Worker running((cut + "\xE3\x81\x82").c_str());  // 31 bytes would end inside the last character
    EXPECT_EQ(0, running.start(ThreadPriority::LOW));
    Worker finished("finished", [] { return 0; });
    EXPECT_TRUE(finished.runsToItsEnd());
    EXPECT_NE(0, manager()->entryCaller(1, LONG_ALIVE, nullptr, "main"));
    LogCapture log;
    auto const hasRow = [&](int id, std::string const& rest) {
        std::string const digits = std::to_string(id);
        return log.has("<UTIL> DTL: " + std::string(10 - digits.size(), ' ') + digits + ", " +
                       rest);
    };
    manager()->printThreadInfo(1);  // which prints nothing
    manager()->printThreadInfoReg(3);
    std::vector<LogLine> const lines = log.all();
    ASSERT_EQ(6u, lines.size());  // the watchdog's thread among them
    EXPECT_EQ(
        "<UTIL> DTL: ID        , Name                            , Status      , Pri.Os    , "
        "Pri.Label       , \r\n",
        lines[1].text);
    EXPECT_TRUE(std::is_sorted(lines.begin() + 2, lines.end(),
                               [](auto const& a, auto const& b) { return a.text < b.text; }));
    EXPECT_TRUE(hasRow(running.getId(), cut + "   , ACTIVE      ,          2, LOW             , "));
    std::string const inactive = ", UNKNOWN     ,        100, INVALID         , ";
    EXPECT_TRUE(hasRow(gettid(), "main                            " + inactive));
    EXPECT_TRUE(hasRow(finished.getId(), "finished                        " + inactive));
    manager()->printWatchdogInfo(3);
    EXPECT_TRUE(hasRow(gettid(),
                       "main                            ,      60000, NOT_WATCHING, UNKNOWN     ,  "
                       "           0, (, :0:0)"));
    EXPECT_TRUE(hasRow(running.getId(), cut + "   , \r\n"));
}

void startAnother(Worker&) {
    Worker other("other", [] { return 0; });
    EXPECT_TRUE(other.runsToItsEnd());
    other.leaveManagement();
}

// What threads do without holding the manager must not meet a deleted one, nor keep it from going.
TEST_F(ThreadManagerTest, MayBeDestroyedWhileThreadsUseIt) {
    using Use = void (*)(Worker&);
    auto const watch = [](Worker& self) { self.stopWatchdog(), self.startWatchdog(); };
    for (Use use : {Use([](Worker&) { Thread::sleep(0); }), Use(watch), Use(startAnother)}) {
        Counter acts;
        std::list<Worker> workers;
        for (int i = 0; i < 8; ++i) {
            Worker& worker = workers.emplace_back();
            worker.onExecute = [&worker, &acts, use] {
                for (; !worker.hasRequestedStop(); acts.add()) {
                    use(worker);
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
        EXPECT_FALSE(workers.front().leaveManagement());  // of this one, which does not know it
        ThreadManager::destroy();
        ThreadManager::destroy();
        EXPECT_EQ(REACHED, workers.front().stop(1, 0));
        EXPECT_FALSE(workers.front().leaveManagement());
    }
}

}  // namespace
}  // namespace utl
