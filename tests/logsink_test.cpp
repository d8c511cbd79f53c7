// The log of a program that has no __android_log_print of its own: nothing here may use LogCapture,
// which brings one.

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "UtlFile.h"
#include "UtlLog.h"

#include "support/Gate.h"
#include "support/Scratch.h"

namespace {

int unknownFlags = 0;            // what this kernel does not know
bool mayReopen = true;           // or has no descriptor left
ssize_t room = SSIZE_MAX;        // bytes
std::atomic<unsigned> waits{0};  // for room

}  // namespace

// Takes the place of the C library's, as on an older kernel or with less room.
extern "C" ssize_t pwritev2(int fd, iovec const* pieces, int, off_t, int flags) {
    if ((flags & unknownFlags) != 0 || room == 0) {
        errno = room == 0 ? EAGAIN : EOPNOTSUPP;
        return -1;
    }
    iovec const part = {pieces->iov_base, std::min(pieces->iov_len, static_cast<size_t>(room))};
    room -= room < SSIZE_MAX ? static_cast<ssize_t>(part.iov_len) : 0;
    return syscall(SYS_pwritev2, fd, &part, 1, -1L, -1L, flags);
}

// Likewise: may refuse to open standard error again.
extern "C" int open(char const* path, int flags, ...) {
    if (!mayReopen && std::strcmp(path, "/proc/self/fd/2") == 0) {
        errno = EMFILE;
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return openat(AT_FDCWD, path, flags, mode);
}

// Likewise: what has to wait gets three bytes of room twice, or waits in vain, at once.
extern "C" int poll(pollfd* fds, nfds_t count, int timeout) {
    waits += timeout > 0 ? 1 : 0;
    if (timeout > 0 && room == 0) {
        room = waits <= 2 ? 3 : 0;
        return room > 0 ? 1 : 0;
    }
    timespec const atOnce = {0, 0};
    return ppoll(fds, count, &atOnce, nullptr);
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

// Reads on: the next `size` bytes.
std::string take(int reader, std::size_t size) {
    control(TCOON);
    std::string text(size, '\0');
    std::size_t done = 0;
    for (ssize_t got; done < size && (got = read(reader, &text[done], size - done)) > 0;) {
        done += static_cast<std::size_t>(got);
    }
    return text;
}

std::string line(std::string const& head, std::string const& text) {
    return head + '(' + std::to_string(getpid()) + "): " + text + '\n';
}

struct Kind {
    char const* name;
    Ends (*make)();
};

struct Kernel {
    char const* name;
    int unknownFlags;
    bool mayReopen;
};

// Runs `work` with the reading end, in a process whose standard error this is.
template <typename Work>
void withStandardError(Ends (*make)(), Work work) {
    EXPECT_TRUE(test::inChild([&] {
        alarm(static_cast<unsigned>(test::PATIENCE.count()));
        Ends const ends = make();
        dup2(ends.write, STDERR_FILENO);
        close(ends.write);
        work(ends.read);
    }));
}

class StandardErrorTest : public ::testing::TestWithParam<std::tuple<Kind, Kernel>> {
protected:
    template <typename Work>
    void withKernel(Work work) {
        auto const& [kind, kernel] = GetParam();
        withStandardError(kind.make, [&](int reader) {
            unknownFlags = kernel.unknownFlags;
            mayReopen = kernel.mayReopen;
            work(reader);
        });
    }
};

TEST_P(StandardErrorTest, OneLineWaitsForAReaderThatHasStopped) {
    withKernel([](int reader) {
        rawlog(-1, 3, "first");
        std::size_t const stored = stopReading();
        std::vector<std::thread> threads;
        for (int i = 0; i < 30; ++i) {
            threads.emplace_back([] { rawlog(-1, 3, "lost"); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(1u, waits);

        std::string expected = line("D/", "first") + std::string(stored, 'x');
        EXPECT_EQ(expected, take(reader, expected.size()));
        rawlog(-1, 3, "next");
        rawlog(-1, 3, "last");
        expected = line("W/", "lines lost: 30") + line("D/", "next") + line("D/", "last");
        EXPECT_EQ(expected, take(reader, expected.size()));
        stopReading();
        rawlog(-1, 3, "waits again");
        EXPECT_EQ(2u, waits);
    });
}

TEST_P(StandardErrorTest, ReaderThatHasGoneLeavesTheProcessAndItsSignalsAlone) {
    withKernel([](int reader) {
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
    });
}

INSTANTIATE_TEST_SUITE_P(
    Of, StandardErrorTest,
    ::testing::Combine(::testing::Values(Kind{"Pipe", makePipe}, Kind{"Socket", makeSocket},
                                         Kind{"Terminal", makeTerminal}),
                       ::testing::Values(Kernel{"Newest", 0, true},
                                         Kernel{"Newer", ~RWF_NOWAIT, true},
                                         Kernel{"Older", ~0, true},
                                         Kernel{"OlderThatMayNotReopen", ~0, false})),
    [](auto const& c) {
        return std::get<0>(c.param).name + std::string("OfThe") + std::get<1>(c.param).name;
    });

TEST(LogSinkTest, LineGoesOnWhereItsReaderStoppedOrEndsThere) {
    withStandardError(makePipe, [](int reader) {
        room = 0;
        rawlog(-1, 3, "of six bytes only");
        std::string const six = line("D/", "").substr(0, 6);
        EXPECT_EQ(six, take(reader, 6));

        EXPECT_TRUE(test::inChild([&] {
            room = SSIZE_MAX;
            rawlog(-1, 3, "of another process");
            std::string const expected = line("D/", "of another process");
            EXPECT_EQ(expected, take(reader, expected.size()));
        }));
        room = SSIZE_MAX;
        rawlog(-1, 3, "next");
        std::string const expected = '\n' + line("W/", "lines lost: 1") + line("D/", "next");
        EXPECT_EQ(expected, take(reader, expected.size()));
    });
}

TEST(LogSinkTest, LoggingIsNoCancellationPoint) {
    test::Scratch const scratch;
    utl::File file(scratch("lines"), utl::File::UTF8);
    ASSERT_EQ(1, file.open(utl::File::EMPTY, utl::File::WRITE));
    bool hasLogged = false;
    std::thread cancelled([&] {
        pthread_cancel(pthread_self());
        applog(-1, 3, &file, "to a file and standard error");
        hasLogged = true;
    });
    cancelled.join();
    EXPECT_TRUE(hasLogged);
}

}  // namespace
