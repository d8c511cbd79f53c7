// Internal. The pipe that a thread sleeps on.

#ifndef UTL_PLATFORM_PIPE_H
#define UTL_PLATFORM_PIPE_H

#include <cstddef>

namespace utl {
namespace platform {

struct PipeEnds {
    int read = -1;
    int write = -1;
};

// Makes a pipe whose reads block and whose writes never do; both ends are closed on exec. It holds
// at least `capacityBytes` written in pieces that divide a page, however much of the oldest page
// has been read. False with errno, and nothing open: EPERM when an unprivileged process asks for
// more than the system grants.
bool openPipe(PipeEnds* ends, std::size_t capacityBytes);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_PIPE_H
