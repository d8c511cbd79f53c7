// Internal. The pipe that a thread sleeps on.

#ifndef UTL_PLATFORM_PIPE_H
#define UTL_PLATFORM_PIPE_H

#include <poll.h>

namespace utl {
namespace platform {

struct PipeEnds {
    int read = -1;
    int write = -1;
};

// Makes a pipe whose reads block and whose writes never do; both ends are closed on exec. False
// with errno, and nothing open.
bool openPipe(PipeEnds* ends);

// poll() which goes on after a signal: with a timeout of 0, or of -1 for no limit.
int pollDescriptors(pollfd* descriptors, nfds_t count, int timeoutMs);

// The same without a limit, which a ManualClock knows of.
int awaitDescriptors(pollfd* descriptors, nfds_t count);

// poll() for so many milliseconds of the kernel's time, or until a signal.
int lookAtDescriptors(pollfd* descriptors, nfds_t count, int limitMs);

// read(), which the handler of a signal may end early where it does not restart calls.
long readPipe(int end, void* bytes, unsigned long size);

// write(), but no thread is ever cancelled in it: it may hold a lock. Async-signal-safe.
long writePipe(int end, void const* bytes, unsigned long size);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_PIPE_H
