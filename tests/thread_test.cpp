#include "UtlThread.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "UtlStatementInfo.h"
#include "UtlThreadManager.h"

#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/Process.h"
#include "support/Worker.h"

namespace utl {
namespace {

using namespace test;

int niceValue() {
    return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
}

ThreadPriority withNiceValue(int value) {
    ThreadPriority priority(ThreadPriority::NORMAL);
    priority.OsValue(value);
    return priority;
}

class ThreadTest : public ManagerTest {};

TEST(ThreadPriorityTest, HasANiceValueForEachLabelAndALabelForMoreOfThem) {
    int const ofLabel[] = {100, -4, -2, -1, 0, 1, 2, 3, 100};
    for (int label = -1; label <= 7; ++label) {
        EXPECT_EQ(ofLabel[label + 1], ThreadPriority(label).OsValue()) << label;
    }
    int const labelOf[] = {0, 0, 1, 1, 2, 3, 4, 5, 6, -1};
    for (int value = -5; value <= 4; ++value) {
        EXPECT_EQ(labelOf[value + 5], withNiceValue(value).value()) << value;
    }
}

TEST_F(ThreadTest, PassesItsStagesInOrder) {
    std::string seen;
    unsigned long result = 0;
    Worker worker("stages");
    auto const note = [&](char const* step) {
        seen += step;
        for (int stage = Thread::STARTED; stage <= Thread::EXECUTED; ++stage) {
            seen += worker.hasDone(stage) ? '1' : '0';
        }
        EXPECT_TRUE(worker.isRunning() && !worker.getResult(&result));
        EXPECT_EQ(gettid(), worker.getId());
        EXPECT_STREQ("stages", manager()->findName(gettid()));
    };
    worker.onPreExecute = [&] { note("pre"); };
    worker.onExecute = [&] { return note(" work"), -5; };
    worker.onPostExecute = [&] { note(" post"); };

    EXPECT_TRUE(worker.runsToItsEnd());
    EXPECT_EQ("pre1000 work1100 post1100", seen);
    EXPECT_TRUE(worker.getResult(&result) && !worker.getResult(nullptr));
    EXPECT_EQ(NONE - 4, result);
    EXPECT_EQ(-1, worker.start());
    EXPECT_EQ(-1, worker.stop(1, 0));
}

TEST_F(ThreadTest, WaitsForWhatComesAndForNothingThatCannotCome) {
    Gate mayGoOn;
    Gate mayEnd;
    Worker worker("unasked", [&] { return mayEnd.wait() ? 0 : -1; });
    worker.onPreExecute = [&] { mayGoOn.wait(); };
    for (int stage : {-1, 2, 3, 4}) {
        EXPECT_EQ(WAIT_FAILED, worker.waitTo(stage, 0));
    }
    EXPECT_EQ(TIMED_OUT, worker.waitTo(Thread::STARTED, 1));
    EXPECT_EQ(-1, worker.stop(1, 0));

    auto begun = inThread([&] { return worker.waitTo(Thread::PRE_EXECUTED, 0); });
    EXPECT_EQ(TIMED_OUT, worker.startAndWait(1));
    auto asked = inThread([&] { return worker.waitTo(Thread::STOP_REQUESTED, 0); });
    mayGoOn.open();
    EXPECT_EQ(REACHED, begun.get());
    EXPECT_EQ(TIMED_OUT, worker.waitTo(Thread::EXECUTED, 1));
    EXPECT_EQ(TIMED_OUT, worker.waitTo(Thread::STOP_REQUESTED, 1));
    // It has not ended before it has left the registry, which is locked while it is printed.
    static std::function<void()> whilePrinting;
    whilePrinting = [&] {
        mayEnd.open();
        EXPECT_EQ(WAIT_FAILED, asked.get());  // of a thread that nobody asked
        EXPECT_FALSE(worker.hasDone(Thread::EXECUTED));
    };
    replaceNextLine([] { whilePrinting(); });
    manager()->printThreadInfoReg(3);
    EXPECT_TRUE(worker.comesToAnEnd());
    EXPECT_EQ(WAIT_FAILED, worker.waitTo(Thread::STOP_REQUESTED, 0));
}

TEST_F(ThreadTest, NobodyWaitsForItself) {
    Worker worker;
    worker.onPreExecute = [&] {
        EXPECT_EQ(-1, worker.start());
        EXPECT_EQ(WAIT_FAILED, worker.waitTo(Thread::PRE_EXECUTED, 0));
        EXPECT_EQ(WAIT_FAILED, worker.waitTo(Thread::EXECUTED, 0));
        EXPECT_EQ(WAIT_FAILED, manager()->waitToStop(gettid(), 0));
        EXPECT_EQ(0, worker.stop(0, 0));
        EXPECT_EQ(-1, worker.stop(1, 0));
    };
    EXPECT_EQ(REACHED, worker.startAndWait(0));
    EXPECT_TRUE(worker.comesToAnEnd());
}

TEST_F(ThreadTest, StopWaitsUntilAStartIsComplete) {
    Gate isStarting;
    Worker worker;
    worker.onPreExecute = [&] {
        isStarting.open();
        EXPECT_EQ(TIMED_OUT, worker.waitTo(Thread::STOP_REQUESTED, 50));
    };
    auto started = inThread([&] { return worker.startAndWait(0); });
    EXPECT_TRUE(isStarting.wait());
    EXPECT_EQ(REACHED, worker.stop(1, 0));
    EXPECT_EQ(REACHED, started.get());
}

TEST_F(ThreadTest, StartsAndStopsMayRace) {
    for (int round = 0; round < 100; ++round) {
        Worker worker;
        auto first = inThread([&] { return worker.start(); });
        auto second = inThread([&] { return worker.start(); });
        int const early = worker.stop(1, 0);
        EXPECT_EQ(-1, first.get() + second.get()) << "one is refused";
        EXPECT_EQ(early == -1 ? 0 : -1, worker.stop(1, 0));
        EXPECT_TRUE(worker.leaveManagement());
    }
}

TEST_F(ThreadTest, DestroyingARunningThreadWaitsForItsEnd) {
    struct Patient : Command {
        Thread* thread = nullptr;
        std::atomic<bool> hasEnded{false};
        int execute() override {
            thread->waitTo(Thread::STOP_REQUESTED, 0);
            return hasEnded = comesTrue([] { return isAsleep(getpid()); });
        }
    } patient;
    {
        Thread thread(nullptr, &patient);
        patient.thread = &thread;
        EXPECT_EQ(0, thread.start(0, 0, nullptr, 0, 0, ThreadPriority::NORMAL, 0));
    }
    EXPECT_TRUE(patient.hasEnded);
}

// At once, perhaps before start() has returned, and whatever it is at.
TEST_F(ThreadTest, AThreadMayDestroyItsOwnObject) {
    for (int round = 0; round < 150; ++round) {
        std::atomic<int> id{0};
        auto* const thread = new Worker("ephemeral");
        auto const step = [&](int number) {
            return [&, number] {
                if (round % 3 == number) {
                    id = gettid();
                    delete thread;
                }
                return 0;
            };
        };
        thread->onPreExecute = step(0);
        thread->onExecute = step(1);
        thread->onPostExecute = step(2);
        EXPECT_EQ(0, round % 2 == 0 ? thread->start() : thread->startAndWait(0));
        EXPECT_TRUE(comesTrue([&] { return id != 0; }));
        // Nobody is left who could take it out of the registry.
        EXPECT_TRUE(comesTrue([&] { return !manager()->isThreadExist(id); }));
    }
}

unsigned long addressSpace() {
    unsigned long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
}

// More of them than the registry has room for, and than the system's cache keeps stacks of.
TEST_F(ThreadTest, EndedOnesGiveBackTheirStacksAndDestroyedOnesTheirEntries) {
    constexpr int COUNT = 50;
    constexpr unsigned long STACK = 8ul << 20;
    manager();
    mallopt(M_ARENA_MAX, 1);  // or the allocator takes more for threads that start at one time
    unsigned long const before = addressSpace();
    for (int round = 0; round < 6; ++round) {
        std::vector<std::unique_ptr<Worker>> ended;
        for (int i = 0; i < COUNT; ++i) {
            Worker& worker = *ended.emplace_back(new Worker("ended", [] { return 0; }));
            EXPECT_TRUE(worker.runsToItsEnd());
            EXPECT_TRUE(manager()->isThreadExist(worker.getId()));
        }
        EXPECT_TRUE(comesTrue([&] { return addressSpace() < before + COUNT * STACK / 2; }));
    }
}

TEST_F(ThreadTest, OneThatCannotBeRegisteredNeverRuns) {
    ASSERT_TRUE(ThreadManager::initializeEntryMax(2));  // the watchdog's thread and one more
    EXPECT_FALSE(ThreadManager::initializeEntryMax(200));
    EXPECT_FALSE(ThreadManager::getIfCreated()->entryWatchdog(1, nullptr, 0)) << "not started yet";
    Worker first;
    EXPECT_EQ(0, first.startRegistered(60000, nullptr));
    EXPECT_TRUE(manager()->isRegisteredWatchdog(first.getId()));

    LogCapture log;
    Gate hasRun;
    Worker refused("refused");
    refused.onPreExecute = [&] { hasRun.open(); };
    EXPECT_EQ(-1, refused.startAndWait(0));
    EXPECT_TRUE(log.has("<UTIL> ERR: entry() Error Thread Register           ID:"));
    EXPECT_TRUE(log.has(", PriOs:0, Name:refused\r\n"));
    EXPECT_TRUE(comesToThreads(2));
    EXPECT_FALSE(hasRun.isOpen());

    auto const open = [](void* gate) { static_cast<Gate*>(gate)->open(); };
    EXPECT_EQ(0, manager()->entry(open, &hasRun, 0, 0, nullptr, "bare", ThreadPriority::NORMAL, 0));
    EXPECT_TRUE(hasRun.wait());  // a function is not held back

    EXPECT_EQ(0, manager()->entryCaller(0, 0, nullptr, "third"));
    EXPECT_TRUE(log.has("<UTIL> ERR: entryCaller() Error Thread Register           ID:"));
    EXPECT_EQ(REACHED, first.stop(1, 0));
    EXPECT_TRUE(first.leaveManagement());
    EXPECT_EQ(REACHED, refused.startAndWait(0));
}

TEST_F(ThreadTest, APriorityIsTheThreadsOwnAndOnlyItChangesIt) {
    LogCapture log;
    int const own = niceValue();
    Worker worker;
    worker.onPreExecute = [&] {
        EXPECT_EQ(own + 1, niceValue());
        EXPECT_FALSE(worker.getPriority(nullptr));
        EXPECT_FALSE(worker.setPriority(ThreadPriority(7)));
        EXPECT_TRUE(worker.setPriority(withNiceValue(own + 2)));
        EXPECT_EQ(own + 2, niceValue());
    };
    EXPECT_EQ(0, worker.start(withNiceValue(own + 1)));
    EXPECT_EQ(REACHED, worker.waitTo(Thread::PRE_EXECUTED, 0));
    EXPECT_FALSE(worker.setPriority(withNiceValue(own)));
    ThreadPriority changed(ThreadPriority::NORMAL);
    EXPECT_TRUE(worker.getPriority(&changed) && changed == withNiceValue(own + 2));
    EXPECT_TRUE(log.has("<UTIL> ERR: ThreadManager::setPriority() Error ID:" +
                        std::to_string(worker.getId()) + ", invalidOsValue:100\r\n"));

    Worker invalid;
    invalid.onPreExecute = [&] { EXPECT_EQ(own, niceValue()); };
    EXPECT_TRUE(invalid.start(7) == 0 && invalid.stop(1, 0) == REACHED);
    EXPECT_TRUE(log.has("startThread() Error setpriority() OsValue:100\r\n"));
    EXPECT_EQ(2u, log.count("riority() "));  // and none of the others
    EXPECT_EQ(own, niceValue());
}

// Id 0 stands for the caller elsewhere: it must not be reached through a thread that has no id.
TEST_F(ThreadTest, OneThatDoesNotRunRefusesAndLeavesTheCallerAlone) {
    ASSERT_NE(0, manager()->entryCaller(1, 60000, nullptr, "caller"));
    ASSERT_TRUE(manager()->startWatchdog(0));
    Thread fresh("fresh", nullptr);
    Thread finished("finished", nullptr);  // without a command there is nothing to do
    unsigned long result = 0;
    EXPECT_EQ(0, finished.start(StartOptions()));
    EXPECT_EQ(REACHED, finished.waitTo(Thread::EXECUTED, 0));
    EXPECT_TRUE(finished.getResult(&result) && result == NONE);
    for (Thread* thread : {&fresh, &finished}) {
        ThreadPriority priority(ThreadPriority::NORMAL);
        EXPECT_FALSE(thread->setPriority(priority) || thread->getPriority(&priority));
        EXPECT_FALSE(thread->keepAliveWatchdog(StatementInfo::INVALID));
        EXPECT_FALSE(thread->setWatchdogAliveTime(1));
        EXPECT_FALSE(thread->startWatchdog() || thread->stopWatchdog());
    }
    EXPECT_FALSE(fresh.leaveManagement());
    EXPECT_TRUE(manager()->isThreadExist(gettid()) && manager()->isWatchingWatchdog(0));
}

TEST_F(ThreadTest, AFinishedOneStaysFinishedWhenItsIdIsGivenAway) {
    Worker finished("finished", [] { return 0; });
    EXPECT_TRUE(finished.runsToItsEnd());
    int const id = finished.getId();
    EXPECT_TRUE(manager()->unregister(id));
    auto heir = std::make_unique<Worker>();
    for (int tries = 0; tries < 100 && heir->getId() != id; ++tries) {  // others take ids as well
        std::ofstream("/proc/sys/kernel/ns_last_pid") << id - 1 << std::flush;
        heir = std::make_unique<Worker>("heir");
        EXPECT_EQ(0, heir->start());
    }
    if (heir->getId() != id) {
        GTEST_SKIP() << "the kernel does not let this process choose a thread id";
    }
    EXPECT_TRUE(finished.hasDone(Thread::EXECUTED) && !finished.isRunning());
    EXPECT_EQ(-1, finished.stop(1, 0));
    EXPECT_EQ(REACHED, heir->stop(1, 0));
    EXPECT_FALSE(finished.leaveManagement());
    EXPECT_STREQ("heir", manager()->findName(id));
}

}  // namespace
}  // namespace utl
