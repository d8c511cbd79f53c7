#include "platform/UtlKernelThread.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace utl {
namespace platform {

int threadId() {
    return static_cast<int>(syscall(SYS_gettid));
}

bool setThreadPriority(int osValue) {
    // The kernel takes process 0 for the calling thread, not for its whole process.
    return setpriority(PRIO_PROCESS, 0, osValue) == 0;
}

}  // namespace platform
}  // namespace utl
