// The log of a program that has no __android_log_print of its own: nothing here may use LogCapture,
// which brings one.

#include <gtest/gtest.h>

#include <cstdlib>

#include "UtlLog.h"

namespace {

struct LogsWhenDestroyed {
    bool isOn = false;
    ~LogsWhenDestroyed() {
        if (isOn) {
            rawlog(-2, 3, "static destructor\n\n");
        }
    }
} logsWhenDestroyed;

void logAndExit() {
    rawlog(-1, 3, "no tag yet");
    setLogTag("TAG");
    setFilterLevel(-2, 4);
    applog(-2, 1, "errno:%d", 5);
    applog(-2, 2, "two\r\nlines");
    applog(-2, 4, "%s", "100%s");
    setLogTag("1234567890123456789012345678901");
    rawlog(-2, 3, "%0300d", 0);
    logsWhenDestroyed.isOn = true;
    std::atexit([] { applog(-2, 3, "exit handler"); });
    std::exit(0);
}

TEST(LogSinkDeathTest, LinesGoToStandardErrorInBriefFormUntilTheProcessHasEnded) {
    EXPECT_EXIT(logAndExit(), ::testing::ExitedWithCode(0),
                "^D/\\([0-9]+\\): no tag yet\n"
                "W/XM_SYSERR\\([0-9]+\\): <UTIL> ERR: errno:5\n"
                "W/TAG\\([0-9]+\\): <UTIL> ERR: errno:5\n"
                "I/XM_SYSERR\\([0-9]+\\): <UTIL> INF: two\r\nlines\n"
                "I/TAG\\([0-9]+\\): <UTIL> INF: two\r\nlines\n"
                "V/TAG\\([0-9]+\\): <UTIL> DBG: 100%s\n"
                "D/1234567890123456789012345678901\\([0-9]+\\): 0{252}\\.\\.\\.\n"
                "D/1234567890123456789012345678901\\([0-9]+\\): <UTIL> DTL: exit handler\n"
                "D/1234567890123456789012345678901\\([0-9]+\\): static destructor\n$");
}

}  // namespace
