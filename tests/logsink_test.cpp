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
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "UtlFile.h"
#include "UtlLog.h"

#include "support/FakeClock.h"
#include "support/Gate.h"
#include "support/Process.h"
#include "support/Scratch.h"

namespace {

int unknownFlags = 0;        // what this kernel does not know
bool hasDescriptors = true;  // to open standard error again
ssize_t room = SSIZE_MAX;    // bytes
std::vector<int> waits;      // the time-outs of those who waited for more
std::function<void()> whileWaiting;

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
// is gone when he uses it, unless he has no better way.
extern "C" int poll(pollfd* fds, nfds_t count, int timeout) {
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

// What standard error may be, each with the end that reads it.
struct Ends {
    int read;
    int write;
};

Ends makePipe() {
    int fds[2];
    EXPECT_EQ(0, pipe(fds));
    return {fds[0], fds[1]};
}

Ends makeSocket() {
    int fds[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
    return {fds[0], fds[1]};
}

// Of this process, which is in the background, and stops those who write there.
Ends makeTerminal() {
    int const reader = posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_TRUE(setsid() != -1 && unlockpt(reader) == 0);
    Ends const ends = {reader, open(ptsname(reader), O_RDWR)};
    termios raw = {};
    cfmakeraw(&raw);
    raw.c_lflag |= TOSTOP;
    EXPECT_EQ(0, tcsetattr(ends.write, TCSANOW, &raw));
    pid_t const foreground = fork();
    if (foreground == 0) {
        pause();
    }
    setpgid(foreground, foreground);
    EXPECT_EQ(0, tcsetpgrp(ends.write, foreground));
    kill(foreground, SIGKILL);
    signal(SIGHUP, SIG_IGN);  // when the reading end is closed
    return ends;
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

void expectNext(int reader, std::string const& expected) {
    control(TCOON);
    std::string text(expected.size(), '\0');
    std::size_t done = 0;
    for (ssize_t got;
         done < text.size() && (got = read(reader, &text[done], text.size() - done)) > 0;) {
        done += static_cast<std::size_t>(got);
    }
    EXPECT_EQ(expected, text);
}

std::string line(std::string const& head, std::string const& text) {
    return head + '(' + std::to_string(getpid()) + "): " + text + '\n';
}

void logByThreads(int count) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([] { rawlog(-1, 3, "by a thread"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Runs `work` with the reading end, in a process whose standard error this is.
template <typename Work>
bool withStandardError(Ends (*make)(), Work work) {
    return test::inChild([&] {
        alarm(static_cast<unsigned>(test::PATIENCE.count()));
        Ends const ends = make();
        dup2(ends.write, STDERR_FILENO);
        close(ends.write);
        work(ends.read);
    });
}

void isNotHeldUp(int reader) {
    unsigned const descriptors = test::openDescriptors();
    logByThreads(1);
    expectNext(reader, line("D/", "by a thread"));

    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    rlimit const none = {3, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, hasDescriptors ? &limit : &none);
    std::size_t const stored = stopReading();
    logByThreads(30);
    EXPECT_EQ(1u, waits.size());
    expectNext(reader, std::string(stored, 'x'));
    rawlog(-1, 3, "next");
    rawlog(-1, 3, "last");
    expectNext(reader, line("W/", "lines lost: 30") + line("D/", "next") + line("D/", "last"));
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
    for (auto const make : {makePipe, makeSocket, makeTerminal}) {
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
    EXPECT_TRUE(withStandardError(makePipe, [](int reader) {
        test::FakeClock clock(1000);
        test::FakeClock::Use const use(clock);
        room = 0;
        whileWaiting = [&] {
            clock.advance(40);
            room = waits.size() < 3 ? 1 : SSIZE_MAX;
        };
        rawlog(-1, 3, "whole");
        expectNext(reader, line("D/", "whole"));
        room = 0;
        whileWaiting = [&] {
            clock.advance(50);
            room = waits.back() == 100 ? 1 : 0;
        };
        rawlog(-1, 3, "of one byte only");
        EXPECT_EQ((std::vector<int>{100, 60, 20, 100, 50}), waits);
        expectNext(reader, "D");

        room = SSIZE_MAX;
        EXPECT_TRUE(test::inChild([&] {
            rawlog(-1, 3, "of another process");
            expectNext(reader, line("D/", "of another process"));
        }));
        rawlog(-1, 3, "next");
        room = 0;
        whileWaiting = nullptr;
        rawlog(-1, 3, "not at all");
        room = SSIZE_MAX;
        rawlog(-1, 3, "last");
        std::string const lost = line("W/", "lines lost: 1");
        expectNext(reader, '\n' + lost + line("D/", "next") + lost + line("D/", "last"));
    }));
}

TEST(LogSinkTest, TimeBehindOthersCounts) {
    EXPECT_TRUE(withStandardError(makePipe, [](int) {
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
            room = static_cast<ssize_t>(line("D/", "first").size());
            whileWaiting = nullptr;
        };
        rawlog(-1, 3, "first");
        second.join();
        EXPECT_EQ((std::vector<int>{100, 10}), waits);
    }));
}

TEST(LogSinkTest, ProgramsMayCallItThemselves) {
    EXPECT_TRUE(withStandardError(makePipe, [](int reader) {
        constexpr wchar_t NO_CHARACTER[] = {static_cast<wchar_t>(0xDC00), 0};
        // Named in the source, it would be LogCapture's.
        auto const print = reinterpret_cast<int (*)(int, char const*, char const*, ...)>(
            dlsym(RTLD_DEFAULT, "__android_log_print"));
        print(-1, nullptr, "%ls", NO_CHARACTER);
        print(7, "", "last letter");
        print(8, "", "%s", std::string(2000, 'x').c_str());
        std::string const empty = line("?/", "");
        expectNext(reader, empty + line("F/", "last letter") +
                               line("?/", std::string(1023 - empty.size(), 'x')));
    }));
}

TEST(LogSinkTest, LoggingAndWritingAreNoCancellationPoints) {
    test::Scratch const scratch;
    EXPECT_TRUE(withStandardError(makePipe, [&](int) {
        utl::File file(scratch("lines"), utl::File::UTF8);
        EXPECT_EQ(1, file.open(utl::File::EMPTY, utl::File::WRITE));
        bool hasLogged = false;
        std::thread cancelled([&] {
            pthread_cancel(pthread_self());
            applog(-1, 3, "to standard error");
            applog(-1, 3, &file, "to a file too");
            EXPECT_EQ(10, file.writeText("and a text", 10, 0));
            hasLogged = true;
        });
        cancelled.join();
        EXPECT_TRUE(hasLogged);
    }));
}

}  // namespace
