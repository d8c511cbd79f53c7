#include "platform/UtlOutput.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>

#include "platform/UtlCancellation.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFileSystem.h"

namespace utl {
namespace platform {

namespace {

constexpr int NO_WAIT = 0x8;      // RWF_NOWAIT
constexpr int NO_SIGNAL = 0x100;  // RWF_NOSIGNAL, since Linux 6.18

// Keeps from the calling thread what a write may raise: SIGPIPE; SIGXFSZ, where a file may not grow
// any more; and SIGTTOU, with which a terminal stops processes in the background. The program's own
// stay its own.
class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t held;
        sigemptyset(&held);
        for (int const signal : {SIGPIPE, SIGXFSZ, SIGTTOU}) {
            sigaddset(&held, signal);
        }
        pthread_sigmask(SIG_BLOCK, &held, &mBefore);
        sigemptyset(&mPrograms);
        if (sigismember(&mBefore, SIGPIPE) == 1 || sigismember(&mBefore, SIGXFSZ) == 1) {
            sigpending(&mPrograms);
        }
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalsHeld(SignalsHeld const&) = delete;
    SignalsHeld& operator=(SignalsHeld const&) = delete;

    // Takes back the signal that a write which failed with `error` has raised. One that was there
    // before has swallowed it.
    void consumeSignalOf(int error) const {
        int const raised = error == EPIPE ? SIGPIPE : SIGXFSZ;
        if ((error != EPIPE && error != EFBIG) || sigismember(&mPrograms, raised) == 1) {
            return;
        }
        ErrnoGuard const guard;
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, raised);
        timespec const atOnce = {0, 0};
        sigtimedwait(&signals, nullptr, &atOnce);
    }

private:
    sigset_t mBefore;
    sigset_t mPrograms;  // those that were pending already
};

// Ways to write without waiting. No kernel knows each of them for everything: EOPNOTSUPP; EINVAL
// from one that is older than the flags, ENOSYS from one that is older than the call.

bool isUnknownToTheKernel(ssize_t result) {
    return result == -1 && (errno == EOPNOTSUPP || errno == EINVAL || errno == ENOSYS);
}

ssize_t writeWithFlags(int descriptor, char const* text, std::size_t size, int flags) {
#ifdef __ANDROID__
    // The call would end the process on systems whose filter does not know it.
    (void)descriptor, (void)text, (void)size, (void)flags;
    errno = ENOSYS;
    return -1;
#else
    iovec const piece = {const_cast<char*>(text), size};
    return pwritev2(descriptor, &piece, 1, -1, flags);
#endif
}

// A description of our own may be one that does not block.
ssize_t writeReopened(int descriptor, char const* text, std::size_t size) {
    char name[32];
    snprintf(name, sizeof name, "/proc/self/fd/%d", descriptor);
    // Appending, should the program have put a file there in this moment.
    int const own = open(name, O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own < 0) {
        errno = EOPNOTSUPP;
        return -1;
    }
    ssize_t const written = write(own, text, size);
    closeFile(own);
    return written;
}

// Where the process may not open it, after a change of its user, or has no descriptor left. This
// can wait if another process takes the room in between.
ssize_t writeIfReady(int descriptor, char const* text, std::size_t size) {
    if (!awaitRoom(descriptor, 0)) {
        errno = EAGAIN;
        return -1;
    }
    return write(descriptor, text, size);
}

ssize_t writeToPipeOrTerminal(int descriptor, void const* bytes, std::size_t size) {
    char const* const text = static_cast<char const*>(bytes);
    ssize_t written = writeWithFlags(descriptor, text, size, NO_WAIT);
    if (isUnknownToTheKernel(written)) {
        written = writeReopened(descriptor, text, size);
    }
    return isUnknownToTheKernel(written) ? writeIfReady(descriptor, text, size) : written;
}

using Write = ssize_t (*)(int descriptor, void const* text, std::size_t size);

ssize_t withSignalsHeld(Write write, int descriptor, char const* text, std::size_t size) {
    SignalsHeld const held;
    ssize_t const written = write(descriptor, text, size);
    if (written == -1) {
        held.consumeSignalOf(errno);
    }
    return written;
}

}  // namespace

ssize_t writeAtOnce(int descriptor, char const* text, std::size_t size) {
    NoCancellation const noCancellation;
    // Asked each time: the program may put something else there whenever it likes.
    struct stat status;
    if (fstat(descriptor, &status) != 0) {
        return -1;
    }
    switch (status.st_mode & S_IFMT) {
        case S_IFSOCK:
            return send(descriptor, text, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        case S_IFIFO: {
            ssize_t const written = writeWithFlags(descriptor, text, size, NO_WAIT | NO_SIGNAL);
            return isUnknownToTheKernel(written)
                       ? withSignalsHeld(writeToPipeOrTerminal, descriptor, text, size)
                       : written;
        }
        case S_IFCHR:
            return withSignalsHeld(writeToPipeOrTerminal, descriptor, text, size);
        default:  // a file, which has no reader to wait for
            return withSignalsHeld(write, descriptor, text, size);
    }
}

bool awaitRoom(int descriptor, std::uint32_t milliseconds) {
    NoCancellation const noCancellation;
    pollfd output = {descriptor, POLLOUT, 0};
    int const ready = poll(&output, 1, static_cast<int>(milliseconds));
    // After a signal nobody knows, and where a reader has gone there is no waiting: a write tells.
    return ready > 0 || (ready == -1 && errno == EINTR);
}

}  // namespace platform
}  // namespace utl
