// The log of a program that has no __android_log_print of its own: nothing here may use LogCapture,
// which brings one.

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlMemory.h"

#include "support/FakeClock.h"
#include "support/Gate.h"
#include "support/Process.h"
#include "support/Scratch.h"
#include "support/Worker.h"

namespace {

int unknownFlags = 0;        // what this kernel does not know
bool hasDescriptors = true;  // to open standard error again
ssize_t room = SSIZE_MAX;    // bytes
std::vector<int> waits;      // the time-outs of those who waited for more
std::function<void()> whileWaiting;
std::time_t shownTime = 0;  // the local time that is now; 0 for UTC
int const noColours = setenv("NO_COLOR", "1", 1);

}  // namespace

// Takes the place of the C library's, as on an older kernel or with less room.
extern "C" ssize_t pwritev2(int fd, iovec const* pieces, int count, off_t at, int flags) {
    if ((flags & unknownFlags) != 0 || room == 0) {
        errno = room == 0 ? EAGAIN : EOPNOTSUPP;
        return -1;
    }
    if (room == SSIZE_MAX) {
        return syscall(SYS_pwritev2, fd, pieces, count, at, at, flags);
    }
    std::size_t const size = std::min(pieces->iov_len, static_cast<std::size_t>(room));
    room -= static_cast<ssize_t>(size);
    return write(fd, pieces->iov_base, size);
}

// Likewise: a wait ends at once, interrupted when room has come. Who merely looks finds some, which
// is gone when he uses it, unless he has no better way. Who waits without limit is no sink.
extern "C" int poll(pollfd* fds, nfds_t count, int timeout) {
    if (timeout < 0) {
        return ppoll(fds, count, nullptr, nullptr);
    }
    if (timeout == 0) {
        timespec const atOnce = {0, 0};
        return hasDescriptors ? 1 : ppoll(fds, count, &atOnce, nullptr);
    }
    waits.push_back(timeout);
    if (std::function<void()> const event = whileWaiting) {
        event();
        errno = EINTR;
        return -1;
    }
    return 0;
}

extern "C" tm* localtime_r(time_t const* time, tm* local) noexcept {
    local->tm_gmtoff = static_cast<long>(shownTime != 0 ? shownTime - *time : 0);
    return local;
}

namespace {

void logAndExit() {
    static struct LastWords {
        ~LastWords() { rawlog(-2, 3, "static destructor\n\n"); }
    } lastWords;
    rawlog(-1, utl::LEVEL_DETAIL, "no tag yet\r\n");
    setLogTag("TAG");
    setFilterLevel(utl::LIBRARY_LOG, utl::LEVEL_DEBUG);
    applog(utl::LIBRARY_LOG, utl::LEVEL_ERROR, "errno:%d", 5);
    applog(utl::LIBRARY_LOG, utl::LEVEL_INFORMATION, "two\r\nlines\t\x1B[31m\x7F");
    registerLogType(1, "name", utl::LEVEL_DEBUG);
    applog(1, utl::LEVEL_DEBUG, "%s",
           "\u00E9,\xC2\x9B,\xE3\x81,\xED\xA0\x80,\xF4\x90\x80\x80,100%s");
    rawlog(1, utl::LEVEL_DETAIL, "%0300d", 0);
    test::Worker("\u65E5\u672C\u8A9E\u540D\u524D\u7CF8", [] {
        return rawlog(-1, 2, "by a thread");
    }).runsToItsEnd();
    std::atexit([] { applog(-2, 3, "exit handler"); });
    std::exit(0);
}

constexpr char TIME[] = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}";

std::string shown(std::string const& level, std::string const& text,
                  std::string const& thread = "logsink_test") {
    return TIME + (' ' + level) + " T?A?G?\\([0-9]+\\) \\[" + thread + "\\] " + text + '\n';
}

TEST(LogSinkDeathTest, EachMessageIsALineOnStandardErrorUntilTheProcessHasEnded) {
    EXPECT_EXIT(logAndExit(), ::testing::ExitedWithCode(0),
                '^' + shown("detail", "no tag yet") + shown("error ", "<UTIL> errno:5") +
                    shown("info  ", "<UTIL> two\\\\r\\\\nlines\\\\t\\\\x1B\\[31m\\\\x7F") +
                    shown("debug ",
                          "name \u00E9,\\\\xC2\\\\x9B,\\\\xE3\\\\x81,\\\\xED\\\\xA0\\\\x80,"
                          "\\\\xF4\\\\x90\\\\x80\\\\x80,100%s") +
                    shown("detail", "0{252}\\.\\.\\.") +
                    shown("detail", "<UTIL> MsgDrivenThread sigaction  success:[0-9]+") +
                    shown("info  ", "by a thread", "\u65E5\u672C\u8A9E\u540D\u524D") +
                    shown("detail", "<UTIL> exit handler") + shown("detail", "static destructor") +
                    '$');
}

// What standard error may be besides a pipe: each is made as pipe() makes one.
using MakeEnds = int (*)(int* ends);

int makeSocket(int* ends) {
    return socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
}

// Of this process, which is in the background, and stops those who write there.
int makeTerminal(int* ends) {
    ends[0] = posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_TRUE(setsid() != -1 && unlockpt(ends[0]) == 0);
    ends[1] = open(ptsname(ends[0]), O_RDWR);
    termios raw = {};
    cfmakeraw(&raw);
    raw.c_lflag |= TOSTOP;
    EXPECT_EQ(0, tcsetattr(ends[1], TCSANOW, &raw));
    pid_t const foreground = fork();
    if (foreground == 0) {
        pause();
    }
    setpgid(foreground, foreground);
    EXPECT_EQ(0, tcsetpgrp(ends[1], foreground));
    kill(foreground, SIGKILL);
    signal(SIGHUP, SIG_IGN);  // when the reading end is closed
    return 0;
}

// As somebody in the foreground.
void control(int action) {
    signal(SIGTTOU, SIG_IGN);
    tcflow(STDERR_FILENO, action);
    signal(SIGTTOU, SIG_DFL);
}

// Leaves no room in standard error. How many bytes it holds for that.
std::size_t stopReading() {
    if (isatty(STDERR_FILENO) == 1) {
        control(TCOOFF);
        return 0;
    }
    int const flags = fcntl(STDERR_FILENO, F_GETFL);
    fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK);
    std::size_t stored = 0;
    while (write(STDERR_FILENO, "x", 1) == 1) {
        ++stored;
    }
    fcntl(STDERR_FILENO, F_SETFL, flags);
    return stored;
}

constexpr char SOME_TIME[] = "YYYY-MM-DD HH:MM:SS.mmm";

void expectNext(int reader, std::string const& expected) {
    control(TCOON);
    std::string text;
    for (char byte; text.size() < expected.size() && read(reader, &byte, 1) == 1;) {
        text += byte;
    }
    EXPECT_EQ(expected, std::regex_replace(text, std::regex(TIME), SOME_TIME));
}

std::string line(std::string const& level, std::string const& text, std::string const& tag = "") {
    return SOME_TIME + (' ' + level + ' ' + tag) + '(' + std::to_string(getpid()) +
           ") [logsink_test] " + text + '\n';
}

// Runs `work` with the reading end, in a process whose standard error this is.
template <typename Work>
bool withStandardError(MakeEnds make, Work work) {
    return test::inChild([&] {
        test::endWhenStuck();
        int ends[2];
        ASSERT_EQ(0, make(ends));
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        work(ends[0]);
    });
}

void isNotHeldUp(int reader) {
    unsigned const descriptors = test::openDescriptors();
    // One for all threads: a sanitizer that meets a class for the first time wants descriptors.
    auto const logOnce = [] { rawlog(-1, 3, "by a thread"); };
    std::thread(logOnce).join();
    expectNext(reader, line("detail", "by a thread"));

    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    rlimit const none = {3, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, hasDescriptors ? &limit : &none);
    std::size_t const stored = stopReading();
    std::vector<std::thread> threads(30);
    for (std::thread& thread : threads) {
        thread = std::thread(logOnce);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1u, waits.size());
    EXPECT_EQ(30u, lostLogLines());
    expectNext(reader, std::string(stored, 'x'));
    rawlog(-1, 3, "next");
    rawlog(-1, 3, "last");
    expectNext(reader,
               line("error ", "lines lost: 30") + line("detail", "next") + line("detail", "last"));
    stopReading();
    rawlog(-1, 3, "waits again");
    EXPECT_EQ(2u, waits.size());
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(descriptors, test::openDescriptors());
}

void isLeftAlone(int reader) {
    close(reader);
    rawlog(-1, 3, "kills nobody");

    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
    timespec const atOnce = {0, 0};
    rawlog(-1, 3, "leaves none");
    EXPECT_EQ(-1, sigtimedwait(&pipeSignal, nullptr, &atOnce));
    raise(SIGPIPE);
    rawlog(-1, 3, "takes none");
    EXPECT_EQ(SIGPIPE, sigtimedwait(&pipeSignal, nullptr, &atOnce));
}

TEST(LogSinkTest, ReaderThatHasStoppedOrGoneNeitherHoldsUpNorKills) {
    for (MakeEnds const make : {MakeEnds{pipe}, makeSocket, makeTerminal}) {
        for (int const unknown : {0, ~RWF_NOWAIT, ~0}) {
            for (bool const has : {true, false}) {
                SCOPED_TRACE(std::to_string(unknown) + (has ? "" : " without descriptors"));
                unknownFlags = unknown;
                hasDescriptors = has;
                EXPECT_TRUE(withStandardError(make, isNotHeldUp));
                EXPECT_TRUE(withStandardError(make, isLeftAlone));
            }
        }
    }
    unknownFlags = 0;
    hasDescriptors = true;
}

// A file that may not grow raises a signal of its own.
TEST(LogSinkTest, FileThatIsFullKillsNobody) {
    test::Scratch const scratch;
    EXPECT_TRUE(test::inChild([&] {
        int const file = open(scratch("full"), O_RDWR | O_CREAT, 0600);
        dup2(file, STDERR_FILENO);
        rlimit const one = {1, 1};
        setrlimit(RLIMIT_FSIZE, &one);
        rawlog(-1, 3, "cut");
        rawlog(-1, 3, "lost");
        char text[8];
        EXPECT_EQ(1, pread(file, text, sizeof text, 0));
    }));
}

TEST(LogSinkTest, LineGoesOnWhereItsReaderStoppedOrEndsThere) {
    EXPECT_TRUE(withStandardError(pipe, [](int reader) {
        test::FakeClock clock(1000);
        test::FakeClock::Use const use(clock);
        room = 0;
        whileWaiting = [&] {
            clock.advance(40);
            room = waits.size() < 3 ? 1 : SSIZE_MAX;
        };
        rawlog(-1, 3, "whole");
        expectNext(reader, line("detail", "whole"));
        room = 0;
        whileWaiting = [&] {
            clock.advance(50);
            room = waits.back() == 100 ? 1 : 0;
        };
        rawlog(-1, 3, "of one byte only");
        EXPECT_EQ((std::vector<int>{100, 60, 20, 100, 50}), waits);
        expectNext(reader, "2");

        room = SSIZE_MAX;
        EXPECT_TRUE(test::inChild([&] {
            rawlog(-1, 3, "of another process");
            expectNext(reader, line("detail", "of another process"));
        }));
        rawlog(-1, 3, "next");
        room = 0;
        whileWaiting = nullptr;
        rawlog(-1, 3, "not at all");
        room = SSIZE_MAX;
        rawlog(-1, 3, "last");
        std::string const lost = line("error ", "lines lost: 1");
        expectNext(reader, '\n' + lost + line("detail", "next") + lost + line("detail", "last"));
    }));
}

TEST(LogSinkTest, TimeBehindOthersCounts) {
    EXPECT_TRUE(withStandardError(pipe, [](int) {
        test::FakeClock clock(1000);
        test::FakeClock::Use const use(clock);
        std::thread second;
        room = 0;
        whileWaiting = [&] {
            unsigned const reads = clock.reads;
            second = std::thread([&] {
                test::FakeClock::Use const useToo(clock);
                rawlog(-1, 3, "finds no room");
            });
            while (clock.reads == reads) {
                sched_yield();
            }
            clock.advance(90);
            room = static_cast<ssize_t>(line("detail", "first").size());
            whileWaiting = nullptr;
        };
        rawlog(-1, 3, "first");
        second.join();
        EXPECT_EQ((std::vector<int>{100, 10}), waits);
    }));
}

TEST(LogSinkTest, ProgramsMayCallItThemselves) {
    EXPECT_TRUE(withStandardError(pipe, [](int reader) {
        constexpr wchar_t NO_CHARACTER[] = {static_cast<wchar_t>(0xDC00), 0};
        // Named in the source, it would be LogCapture's.
        auto const print = reinterpret_cast<int (*)(int, char const*, char const*, ...)>(
            dlsym(RTLD_DEFAULT, "__android_log_print"));
        print(-1, nullptr, "%ls", NO_CHARACTER);
        print(7, "", "last letter");
        print(8, "", "%s", std::string(2000, 'x').c_str());
        expectNext(reader, line("?     ", "") + line("error ", "last letter") +
                               line("?     ", std::string(1023, 'x')));
    }));
}

TEST(LogSinkTest, LoggingAndWritingAreNoCancellationPoints) {
    test::Scratch const scratch;
    EXPECT_TRUE(withStandardError(pipe, [&](int) {
        utl::File file(scratch("lines"), utl::File::UTF8);
        EXPECT_EQ(1, file.open(utl::File::EMPTY, utl::File::WRITE));
        bool hasLogged = false;
        std::thread cancelled([&] {
            pthread_cancel(pthread_self());
            applog(-1, 3, "to standard error");
            applog(-1, 3, &file, "to a file too");
            EXPECT_EQ(10, file.writeText("and a text", 10, 0));
            setLogSink([](auto&, void*) { return pthread_testcancel(), true; }, nullptr);
            applog(-1, 3, "to a sink of the program's own");
            hasLogged = true;
        });
        cancelled.join();
        EXPECT_TRUE(hasLogged);
    }));
}

TEST(LogSinkTest, TimeIsLocalTime) {
    for (char const* const date :
         {"1999-12-31 23:59:59", "2000-02-29 00:00:00", "2000-03-01 12:30:05",
          "2023-03-01 00:00:00", "2024-02-29 23:59:59", "2036-11-01 09:08:07"}) {
        EXPECT_TRUE(withStandardError(pipe, [&](int reader) {
            tm parts = {};
            strptime(date, "%Y-%m-%d %H:%M:%S", &parts);
            shownTime = timegm(&parts);
            rawlog(-1, 3, "now");
            char text[20] = "";
            EXPECT_EQ(19, read(reader, text, 19));
            EXPECT_STREQ(date, text);
        }));
    }
}

TEST(LogSinkTest, LevelsAreColouredOnATerminalOfAUserWhoLikesIt) {
    auto const expectLevel = [](char const* level, MakeEnds make, char const* terminal,
                                char const* noColour = "") {
        setenv("TERM", terminal, 1);
        setenv("NO_COLOR", noColour, 1);
        EXPECT_TRUE(withStandardError(make, [&](int reader) {
            rawlog(-1, utl::LEVEL_ERROR, "text");
            expectNext(reader, line(level, "text"));
        }));
    };
    expectLevel("\x1B[31merror \x1B[0m", makeTerminal, "xterm");
    expectLevel("error ", makeTerminal, "dumb");
    expectLevel("error ", makeTerminal, "");
    expectLevel("error ", pipe, "xterm");
    expectLevel("error ", makeTerminal, "xterm", "1");
}

TEST(LogSinkTest, LibraryTellsDetailsOnceItIsAskedTo) {
    for (auto const ask : {+[] { setFilterLevel(-2, 3); }, +[] { setAllFilterLevel(3); }}) {
        EXPECT_TRUE(withStandardError(pipe, [&](int reader) {
            rawlog(-2, utl::LEVEL_DETAIL, "hidden");
            rawlog(-2, utl::LEVEL_INFORMATION, "shown");
            ask();
            rawlog(-2, utl::LEVEL_DETAIL, "shown too");
            expectNext(reader, line("info  ", "shown") + line("detail", "shown too"));
            EXPECT_EQ(0u, lostLogLines());
        }));
    }
}

TEST(LogSinkTest, DumpsOfTheHeapAreTheLinesThatTheyHave) {
    EXPECT_TRUE(withStandardError(pipe, [&](int reader) {
        utl::Memory::get()->printMessage(1, -1, "head\n  column\t%s\n", "\x1B");
        expectNext(reader, line("info  ", "head", "UtlMemory") +
                               line("info  ", "  column\\t\\x1B", "UtlMemory"));
    }));
}

}  // namespace
