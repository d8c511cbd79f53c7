// A child that is made while other threads use the library finds it usable, and nothing of the
// parent's running.

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlLoop.h"
#include "UtlMemory.h"
#include "UtlSharedTimer.h"
#include "UtlString.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"
#include "UtlTimer.h"

#include "support/Crowd.h"
#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/MessageStation.h"
#include "support/Process.h"
#include "support/Scratch.h"
#include "support/Worker.h"

namespace {

pid_t const parent = getpid();

#ifdef __SANITIZE_THREAD__  // starts and ends no thread in the child of a process with threads
constexpr bool HAS_THREADS_IN_CHILD = false;
#else
constexpr bool HAS_THREADS_IN_CHILD = true;
#endif
#ifdef __SANITIZE_ADDRESS__  // see below
constexpr bool MAY_THREADS_END_IN_CHILD = false;
#else
constexpr bool MAY_THREADS_END_IN_CHILD = HAS_THREADS_IN_CHILD;
#endif

}  // namespace

// What other threads of the parent held is lost in a child, as a leak checker sees it.
extern "C" int __lsan_is_turned_off() {
    return getpid() != parent ? 1 : 0;
}

#ifdef __SANITIZE_ADDRESS__
// The allocator of this sanitizer is not made ready for a fork: a lock of it that another thread
// holds stays held in the child, where who allocates, or ends his thread, waits for it for ever. So
// a fork waits until nobody allocates.
namespace {

pthread_mutex_t allocating = PTHREAD_MUTEX_INITIALIZER;
int const isForkSafe = pthread_atfork([] { pthread_mutex_lock(&allocating); },
                                      [] { pthread_mutex_unlock(&allocating); },
                                      [] { pthread_mutex_unlock(&allocating); });

void* allocate(std::size_t size) {
    pthread_mutex_lock(&allocating);
    void* const memory = std::malloc(size);
    pthread_mutex_unlock(&allocating);
    return memory;
}

void release(void* memory) {
    pthread_mutex_lock(&allocating);
    std::free(memory);
    pthread_mutex_unlock(&allocating);
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}
#endif

namespace utl {
namespace {

using namespace test;

constexpr long MSG_ID = Crowd::MSG_ID;
constexpr unsigned long LONG_ALIVE = Crowd::LONG_ALIVE;

struct Listener : TimerListener {
    explicit Listener(std::function<void()> action) : onExpiry(std::move(action)) {}
    void onTime(int) override { onExpiry(); }
    std::function<void()> const onExpiry;
};

bool writesTo(std::string const& path) {
    File file(path.c_str(), File::UTF8);
    return file.open(File::EMPTY, File::WRITE) && file.writeLine("text") == 5 && file.close();
}

// With files and timers.
struct BusyParent {
    explicit BusyParent(std::string const& directory)
        : crowd([=](int number) {
              writesTo(directory + "/busy" + std::to_string(number));
              ThreadManager::get()->getName(gettid());
          }) {
        crowd.station->setTimer(1, 0, 0, 1);
        timers.start(timers.addTimer(&listener, 1, 0, 1), 0);
        expiries.waitFor(5);
    }

    Counter expiries;
    Listener listener{[this] { expiries.add(); }};
    SharedTimer timers{1, LONG_ALIVE, nullptr, 2, "shared"};
    Crowd crowd;
};

// In a child.
void expectNothingRuns(BusyParent& busy, Worker& beginning) {
    Station& station = busy.crowd.station;
    EXPECT_FALSE(station->isRunning());
    EXPECT_EQ(0, station->postMsg(MSG_ID) + station->hasMsg(MSG_ID));
    EXPECT_EQ(0, station->sendMsgSync(MSG_ID) + station->sendMsgAsync(SimpleMsg(MSG_ID)));
    EXPECT_EQ(-2, station->stop(1, 0) + station->setTimer(1, 0, 0, 0));
    EXPECT_EQ(WAIT_FAILED, station->waitTo(Thread::EXECUTED, 0));
    EXPECT_EQ(-1, busy.timers.addTimer(nullptr, 1, 0, 0));
    EXPECT_EQ(-1, beginning.start());
    EXPECT_FALSE(busy.timers.start(1, 0) || busy.timers.stop(1, 0));
    for (Worker& worker : busy.crowd.workers) {
        EXPECT_FALSE(worker.isRunning() || worker.leaveManagement());
        EXPECT_EQ(-1, worker.stop(1, 0));
    }
}

// The same, with a thread that the parent has not started.
void expectLibraryIsUsable(std::string const& path, Station& station) {
    EXPECT_EQ(0, compareStrNoCase("one text", "ONE TEXT", ALL));
    applog(1, 2, "a child");
    Time time;
    EXPECT_TRUE(writesTo(path) && getLocalTime(&time) && TimeCounter::start(100));
    EXPECT_NE(nullptr, Memory::get());

    ThreadManager* const manager = ThreadManager::get();
    EXPECT_EQ(gettid(), ThreadManager::getCallerId());
    Map<int, BasicString<char>> names(8, 0);
    EXPECT_TRUE(manager->getNames(&names) && names.count() == 1);
    EXPECT_STREQ("forks", names.find(gettid())->c_str());
    EXPECT_FALSE(manager->isRegisteredWatchdog(0) || manager->isRegisteredWatchdog(parent));
    if (HAS_THREADS_IN_CHILD) {
        EXPECT_EQ(0, station.start());
        EXPECT_EQ(3, station->setTimer(1, 0, 0, 0) + station->setTimer(1, 0, 0, 0));
        EXPECT_TRUE(station.waitFor(TimerMsg::ID) && station->sendMsgSync(MSG_ID));
        EXPECT_NE(0, manager->entryCaller(1, LONG_ALIVE, nullptr, "child"));
        EXPECT_TRUE(manager->startWatchdog(0));
        station->stop(1, 0);
        ThreadManager::destroy();
        EXPECT_EQ(0u, kernelTimers());
    }
}

class ForkTest : public ManagerTest {
protected:
    Scratch scratch;
    LogCapture log;
};

TEST_F(ForkTest, AChildFindsTheLibraryUsableAndNothingOfTheParentsRunning) {
    std::string const path = scratch("child");
    EXPECT_NE(0, manager()->entryCaller(1, LONG_ALIVE, nullptr, "forks"));
    Station station;
    std::atomic<bool> isOver{false};
    auto const sending = inThread([&] {
        while (!isOver) {
            station->sendMsgAsync(SimpleMsg(MSG_ID));
        }
    });
    auto busy = std::make_unique<BusyParent>(scratch("crowd"));
    Gate isBeginning;
    test::Hold begins;
    Worker beginning;
    beginning.onPreExecute = [&] { isBeginning.open(), begins.wait(); };
    auto const starting = inThread([&] { return beginning.startAndWait(0); });
    EXPECT_TRUE(isBeginning.wait());
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(inChild([&] {
            endWhenStuck();
            if (i % 2 == 0) {
                expectNothingRuns(*busy, beginning);
                busy.reset();
            }
            expectLibraryIsUsable(path, station);
            busy.reset();
        }));
    }
    isOver = true;
    begins.open();
    EXPECT_TRUE(manager()->isRegisteredWatchdog(0));
}

TEST_F(ForkTest, WhatIsStartedInBothProcessesSharesNothing) {
    Station station;
    pid_t const child = fork();
    if (child == 0) {
        endWhenStuck();
    }
    if (child != 0 || HAS_THREADS_IN_CHILD) {
        EXPECT_EQ(0, station.start());
        for (int i = 0; i < 3000; ++i) {
            EXPECT_EQ(1, station->sendMsgSync(MSG_ID));
        }
    }
    if (child == 0) {
        _exit(HasFailure() ? 1 : 0);
    }
    EXPECT_EQ(0, exitCodeOf(child));
}

// These children go on in the middle of a call, return into the loop and end their thread.
class ForkInACallTest : public ForkTest {
protected:
    void SetUp() override {
        if (!MAY_THREADS_END_IN_CHILD) {
            GTEST_SKIP();
        }
    }
};

TEST_F(ForkInACallTest, AChildOfALoopsThreadLeavesWhatIsQueuedToTheParent) {
    constexpr int MESSAGES = 20;
    RunningStation station(MESSAGES + 2);
    std::atomic<pid_t> child{0};
    station.on(MSG_ID, [&] {
        if (getpid() != parent) {
            _exit(1);
        }
    });
    station.on(Station::HOLD, [&] {
        station.hold();
        child = fork();
    });
    EXPECT_TRUE(station->postMsg(Station::HOLD) && station.entered.wait());
    for (int i = 0; i < MESSAGES; ++i) {
        EXPECT_EQ(1, station->postMsg(MSG_ID));
    }
    station.released.open();
    EXPECT_TRUE(station.waitFor(MSG_ID, MESSAGES));
    EXPECT_EQ(0, exitCodeOf(child)) << "it has delivered a message";
    EXPECT_EQ(1, station->sendMsgSync(0x8003));
}

// The kernel counts a child's timers anew: its first has the id of the one that the call is due to.
TEST_F(ForkInACallTest, AChildsOwnTimersOutliveTheCall) {
    Counter children;
    auto const haveAChild = [&] {
        pid_t const child = fork();
        if (child != 0) {
            EXPECT_EQ(0, exitCodeOf(child));
            children.add();
            return 0;
        }
        endWhenStuck();
        auto* const own = new RunningStation;
        own->on(TimerMsg::ID, [own] {
            if (own->count(TimerMsg::ID) == 50) {
                _exit(0);
            }
        });
        return (*own)->setTimer(1, 0, 0, 1);
    };
    RunningStation station;
    station.on(TimerMsg::ID, haveAChild);
    station->setTimer(1, 0, 1, 0);
    Listener listener{haveAChild};
    Timer timer(&listener, std::chrono::milliseconds(1), "timer", 1);
    timer.start();
    EXPECT_TRUE(children.waitFor(2));
}

TEST_F(ForkInACallTest, AChildOfABeginningEndsAndTakesNoWordOfTheParents) {
    struct Forking : MsgDrivenThread {
        using MsgDrivenThread::MsgDrivenThread;
        ~Forking() override { stop(1, 0); }
        void preExecute() override { child = fork(); }
        pid_t child = 0;
    };
    Station listener;
    Forking thread(8, 8, "forking", 0);
    EXPECT_EQ(0, thread.start(&listener, {}));
    EXPECT_EQ(0, exitCodeOf(thread.child));
    EXPECT_EQ(1, thread.sendMsgSync(MSG_ID));
}

// With the lock of its loop held by others; and as it is dropped, with others that the child
// leaves.
TEST_F(ForkInACallTest, ATaskMayForkAsItIsDestroyed) {
    std::unique_ptr<Loop> const loop = Loop::make({});
    Counter children;
    auto const fork = [&](int*) {
        if (getpid() != parent) {
            _exit(1);
        }
        pid_t const child = ::fork();
        if (child == 0) {
            endWhenStuck();
        } else {
            EXPECT_EQ(0, exitCodeOf(child));
            children.add();
        }
    };
    auto const takeItsLockAgainAndAgain = [&] {
        while (children.count() < 40) {
            loop->postAfter(std::chrono::hours(1), [] {}).cancel();
        }
    };
    auto const another = inThread(takeItsLockAgainAndAgain);
    auto const third = inThread(takeItsLockAgainAndAgain);
    for (unsigned i = 0; i < 40; ++i) {
        loop->postAfter(std::chrono::seconds(0), [last = std::shared_ptr<int>(nullptr, fork)] {});
        EXPECT_TRUE(children.waitFor(i + 1));
    }
    another.wait();
    third.wait();
    loop->on<StructMsg<MSG_ID, int>>([last = std::shared_ptr<int>(nullptr, fork)](int) {});
    loop->on<StructMsg<MSG_ID + 1, int>>([last = std::shared_ptr<int>(nullptr, fork)](int) {});
    loop->post([&] {
        for (int i = 0; i < 2; ++i) {
            loop->post([last = std::shared_ptr<int>(nullptr, fork)] {});
            loop->postAfter(std::chrono::hours(1), [last = std::shared_ptr<int>(nullptr, fork)] {});
        }
        loop->stop(Rest::DROP);
    });
    EXPECT_EQ(REACHED, loop->thread().waitTo(Thread::EXECUTED, 0));
    EXPECT_EQ(46u, children.count());
    EXPECT_EQ(1u, log.count("Dropped:4"));
}

TEST_F(ForkInACallTest, AChildMayDestroyTheObjectWhoseWorkItWasMadeIn) {
    Counter children;
    auto const forkForTheEndOf = [&](auto& object) {
        return [&] {
            pid_t const child = fork();
            if (child == 0) {
                endWhenStuck();
                object.reset();
            } else {
                EXPECT_EQ(0, exitCodeOf(child));
                children.add();
            }
            return 0;
        };
    };
    std::optional<RunningStation> station(std::in_place);
    station->on(MSG_ID, forkForTheEndOf(station));
    std::optional<Timer> timer;
    Listener listener{forkForTheEndOf(timer)};
    timer.emplace(&listener, 1, 0, 0, nullptr, 40, 0, "timer");
    std::optional<Worker> worker(std::in_place, "worker", forkForTheEndOf(worker));

    EXPECT_EQ(1, station->thread.postMsg(MSG_ID));
    EXPECT_TRUE(timer->start(0) && worker->start() == 0);
    auto const holdItsLockAgainAndAgain = [&] {
        for (int i = 0; i % 1000 != 0 || children.count() < 42; ++i) {
            timer->getInterval();
        }
    };
    auto const another = inThread(holdItsLockAgainAndAgain);
    holdItsLockAgainAndAgain();
}

}  // namespace
}  // namespace utl
