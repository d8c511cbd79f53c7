#include "platform/UtlPipe.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace utl {
namespace platform {

namespace {

bool makeRoom(int fd, std::size_t capacityBytes) {
    // A page that has been read in part keeps its place until it is empty: one page more.
    std::size_t const needed = capacityBytes + static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    int const present = fcntl(fd, F_GETPIPE_SZ);
    if (present >= 0 && static_cast<std::size_t>(present) >= needed) {
        return true;
    }
    if (needed > static_cast<std::size_t>(0x7FFFFFFF)) {
        errno = EPERM;
        return false;
    }
    return fcntl(fd, F_SETPIPE_SZ, static_cast<int>(needed)) >= 0;
}

}  // namespace

bool openPipe(PipeEnds* ends, std::size_t capacityBytes) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    if (fcntl(fds[1], F_SETFL, O_NONBLOCK) != 0 || !makeRoom(fds[1], capacityBytes)) {
        int const cause = errno;
        close(fds[0]);
        close(fds[1]);
        errno = cause;
        return false;
    }
    ends->read = fds[0];
    ends->write = fds[1];
    return true;
}

}  // namespace platform
}  // namespace utl
