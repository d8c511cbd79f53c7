#include "platform/UtlPipe.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/UtlFileSystem.h"
#include "platform/UtlManualTime.h"

namespace utl {
namespace platform {

bool openPipe(PipeEnds* ends) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    if (fcntl(fds[1], F_SETFL, O_NONBLOCK) != 0) {
        closeFile(fds[0]);
        closeFile(fds[1]);
        return false;
    }
    ends->read = fds[0];
    ends->write = fds[1];
    return true;
}

int pollDescriptors(pollfd* descriptors, nfds_t count, int timeoutMs) {
    int ready;
    do {
        ready = poll(descriptors, count, timeoutMs);
    } while (ready == -1 && errno == EINTR);
    return ready;
}

int awaitDescriptors(pollfd* descriptors, nfds_t count) {
    if (ManualTime* const time = ManualTime::inUse()) {
        return time->awaitDescriptors(descriptors, count);
    }
    return pollDescriptors(descriptors, count, -1);
}

int lookAtDescriptors(pollfd* descriptors, nfds_t count, int limitMs) {
    return poll(descriptors, count, limitMs);
}

long readPipe(int end, void* bytes, unsigned long size) {
    if (ManualTime* const time = ManualTime::inUse()) {
        pollfd readable = {end, POLLIN, 0};
        time->awaitDescriptors(&readable, 1);
    }
#if defined(__SANITIZE_THREAD__)
    // Holds a signal back as long as its thread blocks in read(), but not in poll().
    pollfd readable = {end, POLLIN, 0};
    if (end >= 0 && poll(&readable, 1, -1) == -1 && errno == EINTR && poll(&readable, 1, 0) == 0) {
        errno = EINTR;
        return -1;
    }
    errno = 0;  // poll() is refused where descriptors are short
#endif
    return read(end, bytes, size);
}

long writePipe(int end, void const* bytes, unsigned long size) {
    return syscall(SYS_write, end, bytes, size);
}

}  // namespace platform
}  // namespace utl
