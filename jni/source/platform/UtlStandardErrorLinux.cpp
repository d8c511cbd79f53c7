#include "platform/UtlStandardError.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include "platform/UtlErrno.h"

namespace utl {
namespace platform {

namespace {

constexpr int NO_SIGNAL = 0x100;  // RWF_NOSIGNAL, since Linux 6.18

// Keeps from the calling thread what a write may raise: SIGPIPE, and SIGTTOU, with which a terminal
// stops processes in the background. The program's own SIGPIPE stays its own.
class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t held;
        sigemptyset(&held);
        sigaddset(&held, SIGPIPE);
        sigaddset(&held, SIGTTOU);
        pthread_sigmask(SIG_BLOCK, &held, &mBefore);
        if (sigismember(&mBefore, SIGPIPE) == 1) {
            sigset_t pending;
            sigpending(&pending);
            mIsProgramsPending = sigismember(&pending, SIGPIPE) == 1;
        }
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalsHeld(SignalsHeld const&) = delete;
    SignalsHeld& operator=(SignalsHeld const&) = delete;

    // Takes back the SIGPIPE that a write has raised. One that was there before has swallowed it.
    void consumePipeSignal() const {
        if (mIsProgramsPending) {
            return;
        }
        ErrnoGuard const guard;
        sigset_t pipeSignal;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        timespec const atOnce = {0, 0};
        sigtimedwait(&pipeSignal, nullptr, &atOnce);
    }

private:
    sigset_t mBefore;
    bool mIsProgramsPending = false;
};

// Ways to write without waiting. No kernel knows each of them for everything: EOPNOTSUPP; EINVAL
// from one that is older than the flags, ENOSYS from one that is older than the call.

bool isUnknownToTheKernel(ssize_t result) {
    return result == -1 && (errno == EOPNOTSUPP || errno == EINVAL || errno == ENOSYS);
}

ssize_t writeWithFlags(char const* text, std::size_t size, int flags) {
    iovec const piece = {const_cast<char*>(text), size};
    return pwritev2(STDERR_FILENO, &piece, 1, -1, flags);
}

// A description of our own may be one that does not block.
ssize_t writeReopened(char const* text, std::size_t size) {
    // Appending, should the program have put a file there in this moment.
    int const fd = open("/proc/self/fd/2", O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        errno = EOPNOTSUPP;
        return -1;
    }
    ssize_t const written = write(fd, text, size);
    ErrnoGuard const guard;
    close(fd);
    return written;
}

// Where the process may not open it, after a change of its user, or has no descriptor left. This
// can wait if another process takes the room in between.
ssize_t writeIfReady(char const* text, std::size_t size) {
    if (!awaitRoomInStandardError(0)) {
        errno = EAGAIN;
        return -1;
    }
    return write(STDERR_FILENO, text, size);
}

ssize_t writeWithSignalsHeld(char const* text, std::size_t size) {
    SignalsHeld const held;
    ssize_t written = writeWithFlags(text, size, RWF_NOWAIT);
    if (isUnknownToTheKernel(written)) {
        written = writeReopened(text, size);
    }
    if (isUnknownToTheKernel(written)) {
        written = writeIfReady(text, size);
    }
    if (written == -1 && errno == EPIPE) {
        held.consumePipeSignal();
    }
    return written;
}

}  // namespace

ssize_t writeToStandardError(char const* text, std::size_t size) {
    // Asked each time: the program may put something else there whenever it likes.
    struct stat status;
    if (fstat(STDERR_FILENO, &status) != 0) {
        return -1;
    }
    switch (status.st_mode & S_IFMT) {
        case S_IFSOCK:
            return send(STDERR_FILENO, text, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        case S_IFIFO: {
            ssize_t const written = writeWithFlags(text, size, RWF_NOWAIT | NO_SIGNAL);
            return isUnknownToTheKernel(written) ? writeWithSignalsHeld(text, size) : written;
        }
        case S_IFCHR:
            return writeWithSignalsHeld(text, size);
        default:  // a file, which has no reader to wait for
            return write(STDERR_FILENO, text, size);
    }
}

bool awaitRoomInStandardError(std::uint32_t milliseconds) {
    pollfd output = {STDERR_FILENO, POLLOUT, 0};
    int const ready = poll(&output, 1, static_cast<int>(milliseconds));
    // After a signal nobody knows, and where a reader has gone there is no waiting: a write tells.
    return ready > 0 || (ready == -1 && errno == EINTR);
}

}  // namespace platform
}  // namespace utl
