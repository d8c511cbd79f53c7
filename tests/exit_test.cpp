// A process may end while threads of the library run and log: it neither crashes nor hangs.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <list>

#include "UtlLog.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"

#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/Process.h"
#include "support/Worker.h"

namespace utl {
namespace {

using test::Worker;

constexpr int EXIT_CODE = 3;
constexpr long MSG_ID = 0x9000;
constexpr unsigned long LONG_ALIVE = 60000;

// Threads that keep all of the library busy.
class Crowd : public ThreadMsgListener {
public:
    Crowd() : mMailbox(0, 32, "mailbox", 1) {
        mMailbox.start(this, 1, LONG_ALIVE, nullptr, 1, 0, ThreadPriority::NORMAL, 0);
        for (int i = 0; i < 3; ++i) {
            Worker& worker = mWorkers.emplace_back("busy");
            worker.onExecute = [this, &worker] { return work(worker); };
            worker.startRegistered(LONG_ALIVE, nullptr);
        }
        mReceived.waitFor(10);
    }

    // Whether the thread that receives still does.
    bool answers() { return mMailbox.sendMsgSync(MSG_ID) == 1; }

    int receiveMsg(int, ThreadRawMsg&) override {
        applog(1, 2, "received");
        mReceived.add();
        return 0;
    }

private:
    int work(Worker& self) {
        self.startWatchdog();
        while (!self.hasRequestedStop()) {
            Time time;
            getLocalTime(&time);
            applog(1, 2, "busy at %d", time.second());
            mMailbox.postMsg(MSG_ID);
            Thread::sleep(0);
        }
        return 0;
    }

    test::Counter mReceived;
    MsgDrivenThread mMailbox;
    std::list<Worker> mWorkers;
};

Crowd& neverDestroyed() {
    static Crowd& crowd = *new Crowd;
    return crowd;
}

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Each of these ends the process, or returns to have it ended.

void leavesThreadsRunning() {
    neverDestroyed();
}

void usesTheLibraryInStaticDestructors() {
    static struct LastWords {
        ~LastWords() {
            ThreadManager* const manager = ThreadManager::get();
            require(manager->entryCaller(1, LONG_ALIVE, nullptr, "last") != 0);
            manager->printThreadInfoReg(2);
            manager->printWatchdogInfo(2);
            require(neverDestroyed().answers());
            Worker late("late", [] { return 0; });
            require(late.start() == 0 && late.comesToAnEnd() && late.leaveManagement());
        }
    } lastWords;
    neverDestroyed();
}

void destroysTheManagerUnderThem() {
    std::atexit(ThreadManager::destroy);
    neverDestroyed();
}

// In a process of its own, which an alarm ends should it hang. -1 unless it exits.
int exitCodeOf(void (*scenario)()) {
    test::LogCapture const log;
    std::fflush(stdout);
    pid_t const child = fork();
    if (child == 0) {
        alarm(static_cast<unsigned>(test::PATIENCE.count()));
        scenario();
        std::exit(EXIT_CODE);
    }
    return test::exitCodeOf(child);
}

class ExitTest : public ::testing::TestWithParam<void (*)()> {};

TEST_P(ExitTest, EndsAsItWasToldTo) {
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(EXIT_CODE, exitCodeOf(GetParam()));
    }
}

INSTANTIATE_TEST_SUITE_P(AProcessThat, ExitTest,
                         ::testing::Values(leavesThreadsRunning, usesTheLibraryInStaticDestructors,
                                           destroysTheManagerUnderThem));

}  // namespace
}  // namespace utl
