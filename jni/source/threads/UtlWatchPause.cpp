#include "threads/UtlWatchPause.h"

#include "platform/UtlErrno.h"
#include "threads/UtlManagerAccess.h"

namespace utl {

WatchPause::WatchPause(int threadId, StatementInfo const& before, StatementInfo const& after)
    : mThreadId(threadId), mAfter(after) {
    ManagerAccess const manager;
    if (manager && manager->isRegisteredWatchdog(mThreadId)) {
        mIsWatched = true;
        manager->keepAliveWatchdog(before);
        manager->stopWatchdog(mThreadId);
    }
}

WatchPause::~WatchPause() {
    platform::ErrnoGuard const guard;
    ManagerAccess const manager;
    if (mIsWatched && manager && manager->startWatchdog(mThreadId)) {
        manager->keepAliveWatchdog(mAfter);
    }
}

void reportAtWork(int threadId, StatementInfo const& statement) {
    ManagerAccess const manager;
    if (manager && manager->startWatchdog(threadId)) {
        manager->keepAliveWatchdog(statement);
    }
}

}  // namespace utl
