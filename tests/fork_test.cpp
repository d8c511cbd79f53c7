// A child that is made while other threads use the library finds it usable, and nothing of the
// parent's running.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlMemory.h"
#include "UtlMsgDrivenThread.h"
#include "UtlSharedTimer.h"
#include "UtlString.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"
#include "UtlTimer.h"

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

}  // namespace

// What other threads of the parent held is lost in a child, as a leak checker sees it.
extern "C" int __lsan_is_turned_off() {
    return getpid() != parent ? 1 : 0;
}

namespace utl {
namespace {

using test::Worker;

constexpr long MSG_ID = 0x8002;
constexpr unsigned long LONG_ALIVE = 60000;

struct Counting : TimerListener {
    void onTime(int) override { calls.add(); }
    test::Counter calls;
};

// Threads that hold every lock of the library again and again, and objects that have been in use.
class Crowd {
public:
    explicit Crowd(std::string const& directory) : mDirectory(directory) {
        mStation.start(1);
        mStation->setTimer(1, 0, 0, 1);
        mTimers.start(mTimers.addTimer(&mListener, 1, 0, 1), 0);
        mTimer.start(0);
        for (int i = 0; i < 4; ++i) {
            Worker& worker = mWorkers.emplace_back("busy");
            worker.onExecute = [this, &worker, i] { return work(worker, i); };
            worker.startRegistered(LONG_ALIVE, nullptr);
        }
        mListener.calls.waitFor(5);
    }

    // 0, or the number of the first line that does not hold in a child.
    int deny() {
        if (mStation->isRunning() || mStation->postMsg(MSG_ID) || mStation->sendMsgSync(MSG_ID) ||
            mStation->sendMsgAsync(SimpleMsg(MSG_ID))) {
            return __LINE__;
        }
        if (mStation->hasMsg(MSG_ID) || mStation->stop(1, 0) != -1 ||
            mStation->setTimer(1, 0, 0, 0) != -1 || mStation->waitTo(Thread::EXECUTED, 0) != -1) {
            return __LINE__;
        }
        if (mTimers.start(1, 0) || mTimers.addTimer(nullptr, 1, 0, 0) != -1 || mTimers.stop(1, 0)) {
            return __LINE__;
        }
        for (Worker& worker : mWorkers) {
            if (worker.isRunning() || worker.stop(1, 0) != -1 || worker.leaveManagement()) {
                return __LINE__;
            }
        }
        return mTimer.isRunning() || mTimer.stop(0) ? __LINE__ : 0;
    }

private:
    int work(Worker& self, int number) {
        std::string const path = mDirectory + "/busy" + std::to_string(number);
        self.startWatchdog();
        while (!self.hasRequestedStop()) {
            File file(path.c_str(), File::UTF8);
            if (file.open(File::EMPTY, File::WRITE)) {
                file.writeLine("a line of text");
            }
            compareStrNoCase("one text", "ONE TEXT", ALL);
            Time time;
            getLocalTime(&time);
            TimeCounter::start(static_cast<unsigned long>(number));
            applog(1, 2, "busy at %d", time.second());
            mStation->postMsg(MSG_ID);
            mStation->sendMsgAsync(SimpleMsg(MSG_ID));
            mStation->hasMsg(MSG_ID);
            ThreadManager::get()->getName(self.getId());
            Memory::get()->mark();
        }
        return 0;
    }

    std::string const mDirectory;
    Counting mListener;
    test::Station mStation{32};
    SharedTimer mTimers{1, LONG_ALIVE, nullptr, 2, "shared"};
    Timer mTimer{&mListener, 1, 0, 0, nullptr, 0, 1, "timer"};
    std::list<Worker> mWorkers;
};

// The same for what a child may use as any other process, with a thread that the parent has not
// started.
int useTheLibrary(std::string const& path, test::Station& station) {
    if (compareStrNoCase("one text", "ONE TEXT", ALL) != 0) {
        return __LINE__;
    }
    applog(1, 2, "a child");
    File file(path.c_str(), File::UTF8);
    Time time;
    if (!file.open(File::EMPTY, File::WRITE) || file.writeLine("text") != 5 || !file.close() ||
        !getLocalTime(&time) || !TimeCounter::start(100) || Memory::get() == nullptr) {
        return __LINE__;
    }

    ThreadManager* const manager = ThreadManager::get();
    Map<int, BasicString<char>> names(8, 0);
    if (!manager->getNames(&names) || names.count() != 1 || names[0].key() != gettid() ||
        compareStr(names[0].value().c_str(), "forks", ALL) != 0 ||
        ThreadManager::getCallerId() != gettid() || manager->isRegisteredWatchdog(0) ||
        manager->isRegisteredWatchdog(parent)) {
        return __LINE__;
    }
    if (!HAS_THREADS_IN_CHILD) {
        return 0;
    }
    if (station.start() != 0 || station->setTimer(1, 0, 0, 0) == -1 ||
        station->setTimer(1, 0, 0, 0) == -1 || !station.waitFor(TimerMsg::ID) ||
        !station->sendMsgSync(MSG_ID) || !manager->entryCaller(1, LONG_ALIVE, nullptr, "child") ||
        !manager->startWatchdog(0)) {
        return __LINE__;
    }
    station->stop(1, 0);
    ThreadManager::destroy();
    return test::kernelTimers() == 0 ? 0 : __LINE__;
}

class ForkTest : public test::ManagerTest {
protected:
    // What a child exits with that runs `scenario`; -1 when it does not end in time.
    static int exitCodeOf(std::function<int()> const& scenario) {
        pid_t const child = fork();
        if (child == 0) {
            alarm(static_cast<unsigned>(test::PATIENCE.count()));
            _exit(scenario() % 251);
        }
        int status = 0;
        while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    test::Scratch scratch;
    test::LogCapture log;
};

TEST_F(ForkTest, AChildFindsTheLibraryUsableAndNothingOfTheParentsRunning) {
    std::string const path = scratch("child");
    EXPECT_NE(0, manager()->entryCaller(1, LONG_ALIVE, nullptr, "forks"));
    test::Station station;
    auto crowd = std::make_unique<Crowd>(scratch("crowd"));
    for (int i = 0; i < 60; ++i) {
        ASSERT_EQ(0, exitCodeOf([&] {
                      int const line = i % 2 == 0 ? crowd->deny() : useTheLibrary(path, station);
                      crowd.reset();
                      return line != 0 || i % 2 != 0 ? line : useTheLibrary(path, station);
                  }))
            << "line, modulo 251";
    }
    EXPECT_TRUE(manager()->isRegisteredWatchdog(0));
}

// The child goes on in the middle of a call, and returns into the loop.
TEST_F(ForkTest, AChildOfALoopsThreadLeavesWhatIsQueuedToTheParent) {
    if (!HAS_THREADS_IN_CHILD) {
        GTEST_SKIP();
    }
    constexpr int MESSAGES = 20;
    int toParent[2];
    ASSERT_EQ(0, pipe(toParent));
    test::RunningStation station(MESSAGES + 2);
    std::atomic<pid_t> child{0};
    station.on(MSG_ID, [&] {
        if (getpid() != parent) {
            EXPECT_EQ(1, write(toParent[1], "d", 1));
        }
    });
    station.on(test::Station::HOLD, [&] {
        station.hold();
        child = fork();
    });
    EXPECT_TRUE(station->postMsg(test::Station::HOLD) && station.entered.wait());
    for (int i = 0; i < MESSAGES; ++i) {
        EXPECT_EQ(1, station->postMsg(MSG_ID));
    }
    station.released.open();
    EXPECT_TRUE(station.waitFor(MSG_ID, MESSAGES));
    int status = -1;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    close(toParent[1]);
    char byte;
    EXPECT_EQ(0, read(toParent[0], &byte, 1)) << "the child has delivered a message";
    close(toParent[0]);
    EXPECT_EQ(1, station->sendMsgSync(0x8003));
}

TEST_F(ForkTest, AChildMayDestroyTheObjectWhoseWorkItWasMadeIn) {
    if (!HAS_THREADS_IN_CHILD) {
        GTEST_SKIP();
    }
    struct Forking : ThreadMsgListener, TimerListener {
        int receiveMsg(int, ThreadRawMsg&) override {
            return work([this] { loop.reset(); });
        }
        void onTime(int) override {
            work([this] { timer.reset(); });
        }

        int work(std::function<void()> const& destroy) {
            pid_t const child = fork();
            if (child == 0) {
                alarm(static_cast<unsigned>(test::PATIENCE.count()));
                destroy();
            } else {
                EXPECT_EQ(0, test::exitCodeOf(child));
                children.add();
            }
            return 0;
        }

        test::Counter children;
        std::unique_ptr<MsgDrivenThread> loop = std::make_unique<MsgDrivenThread>(4, 4, "loop", 0);
        std::unique_ptr<Timer> timer =
            std::make_unique<Timer>(this, 1, 0, 0, nullptr, 1, 0, "timer");
        std::unique_ptr<Worker> worker =
            std::make_unique<Worker>("worker", [this] { return work([this] { worker.reset(); }); });
    } forking;
    EXPECT_EQ(0, forking.loop->start(&forking, 0, 0, nullptr, 1, 0, ThreadPriority::NORMAL, 0));
    EXPECT_EQ(1, forking.loop->postMsg(MSG_ID));
    EXPECT_TRUE(forking.timer->start(0) && forking.worker->start() == 0);
    EXPECT_TRUE(forking.children.waitFor(3));
}

}  // namespace
}  // namespace utl
