// The one unit of the library that is built to see exceptions.

#include "foundation/UtlUserCode.h"

#include <pthread.h>

#include <cstdlib>

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "platform/UtlKernelThread.h"

namespace utl {

namespace {

// What the line is written to may be such code itself.
thread_local bool isEnding = false;

void endProcess(void* context) {
    UserCall const& call = *static_cast<UserCall const*>(context);
    if (!isEnding) {
        isEnding = true;
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "!!!!!!!! %s(%s) ID:%d threw, ended its thread or was cancelled. The process ends "
               "!!!!!!!!",
               call.call, call.name, platform::threadId());
    }
    std::abort();
}

}  // namespace

// Some C libraries unwind the stack when a thread ends itself or is cancelled, others only call
// what was pushed here.
void runUserCode(UserCall const& call, void (*code)(void* context), void* context) {
    void* const present = const_cast<UserCall*>(&call);
    pthread_cleanup_push(endProcess, present);
    try {
        code(context);
    } catch (...) {
        endProcess(present);
    }
    pthread_cleanup_pop(0);
}

}  // namespace utl
