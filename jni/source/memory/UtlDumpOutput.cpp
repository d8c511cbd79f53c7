#include "memory/UtlDumpOutput.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <time.h>

#include <algorithm>

#include "files/UtlDescriptor.h"
#include "platform/UtlClock.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFileSystem.h"
#include "platform/UtlLogSink.h"

namespace utl {

namespace {

constexpr char LOG_TAG[] = "UtlMemory";

// Keeps from the calling thread what a write may raise: SIGPIPE, and SIGTTOU, with which a terminal
// stops processes in the background.
class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t held;
        sigemptyset(&held);
        sigaddset(&held, SIGPIPE);
        sigaddset(&held, SIGTTOU);
        pthread_sigmask(SIG_BLOCK, &held, &mBefore);
        sigset_t pending;
        sigpending(&pending);
        mIsProgramsPending = sigismember(&pending, SIGPIPE) == 1;
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalsHeld(SignalsHeld const&) = delete;
    SignalsHeld& operator=(SignalsHeld const&) = delete;

    // Takes back the SIGPIPE that a write has raised; the program's own stays.
    void consumePipeSignal() const {
        sigset_t pipeSignal;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        timespec const atOnce = {0, 0};
        if (!mIsProgramsPending) {
            sigtimedwait(&pipeSignal, nullptr, &atOnce);
        }
    }

private:
    sigset_t mBefore;
    bool mIsProgramsPending;
};

}  // namespace

void DumpOutput::print(char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    printList(format, arguments);
    va_end(arguments);
}

void DumpOutput::printList(char const* format, va_list arguments) {
    platform::ErrnoGuard const errnoGuard;
    char message[1024];
    int const length = vsnprintf(message, sizeof message, format, arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= sizeof message) {
        return;
    }
    if (mIsLogged) {
        __android_log_print(platform::LOG_PRIORITY_INFO, LOG_TAG, "%s", message);
    }
    if (mDescriptor != Descriptor::NO_DESCRIPTOR &&
        !write(message, static_cast<unsigned long>(length))) {
        mDescriptor = Descriptor::NO_DESCRIPTOR;
    }
}

// A message fits into the room that poll() knows of: no write waits, not even on a descriptor that
// may, and none stores a part.
bool DumpOutput::write(char const* text, unsigned long size) const {
    SignalsHeld const held;
    long written;
    do {
        if (!awaitRoom()) {
            return false;
        }
        written = platform::writeFile(mDescriptor, text, size);
    } while (written == -1 && errno == EAGAIN);  // another writer was faster
    if (written == -1 && errno == EPIPE) {
        held.consumePipeSignal();
    }
    return written == static_cast<long>(size);
}

bool DumpOutput::awaitRoom() const {
    std::uint32_t const begin = platform::monotonicTick();
    std::uint32_t waited = 0;
    int ready;
    do {
        pollfd output = {mDescriptor, POLLOUT, 0};
        ready = poll(&output, 1, static_cast<int>(mWaitMs - waited));
        waited = std::min(platform::monotonicTick() - begin, mWaitMs);
    } while (ready == -1 && errno == EINTR && waited < mWaitMs);
    return ready == 1;  // for an error too, of which the write tells
}

}  // namespace utl
