#include "platform/UtlKernelThread.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/UtlFork.h"
#include "platform/UtlThreadLocal.h"

namespace utl {
namespace platform {

namespace {

constexpr int UNKNOWN = 0;

UTL_THREAD_LOCAL int keptId = UNKNOWN;

}  // namespace

int threadId() {
    if (keptId != UNKNOWN) {
        return keptId;
    }
    int const id = static_cast<int>(syscall(SYS_gettid));
    if (followForks()) {  // or it would be wrong in a child
        keptId = id;
    }
    return id;
}

int forgetThreadId() {
    int const id = keptId;
    keptId = UNKNOWN;
    return id;
}

bool setThreadPriority(int osValue) {
    // The kernel takes process 0 for the calling thread, not for its whole process.
    return setpriority(PRIO_PROCESS, 0, osValue) == 0;
}

void nameThread(char const* name) {
    prctl(PR_SET_NAME, name);
}

void copyThreadName(char (&name)[THREAD_NAME_SIZE]) {
    if (prctl(PR_GET_NAME, name) != 0) {
        name[0] = '\0';
    }
}

}  // namespace platform
}  // namespace utl
