// A process may end while threads of the library run and log: it neither crashes nor hangs.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "UtlThreadManager.h"

#include "support/Crowd.h"
#include "support/LogCapture.h"
#include "support/Process.h"
#include "support/Worker.h"

namespace utl {
namespace {

using namespace test;

constexpr int EXIT_CODE = 3;

Crowd& neverDestroyed() {
    static Crowd& crowd = *new Crowd;
    return crowd;
}

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void useTheLibraryInStaticDestructors() {
    static struct LastWords {
        ~LastWords() {
            ThreadManager* const manager = ThreadManager::get();
            require(manager->entryCaller(1, Crowd::LONG_ALIVE, nullptr, "last") != 0);
            manager->printThreadInfoReg(2);
            manager->printWatchdogInfo(2);
            require(neverDestroyed().station->sendMsgSync(Crowd::MSG_ID) == 1);
            Worker late("late", [] { return 0; });
            require(late.runsToItsEnd() && late.leaveManagement());
        }
    } lastWords;
}

void destroyTheManagerUnderThem() {
    std::atexit(ThreadManager::destroy);
}

// What a process does before it starts threads, which it leaves running.
class ExitTest : public ::testing::TestWithParam<void (*)()> {};

TEST_P(ExitTest, EndsAsItWasToldTo) {
    LogCapture const log;
    for (int round = 0; round < 3; ++round) {
        std::fflush(stdout);
        pid_t const child = fork();
        if (child == 0) {
            endWhenStuck();
            GetParam()();
            neverDestroyed();
            std::exit(EXIT_CODE);
        }
        EXPECT_EQ(EXIT_CODE, exitCodeOf(child));
    }
}

INSTANTIATE_TEST_SUITE_P(AProcessThat, ExitTest,
                         ::testing::Values([] {}, useTheLibraryInStaticDestructors,
                                           destroyTheManagerUnderThem));

}  // namespace
}  // namespace utl
