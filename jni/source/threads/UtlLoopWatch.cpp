#include "threads/UtlLoopWatch.h"

#include "UtlStatementInfo.h"

#include "platform/UtlErrno.h"
#include "threads/UtlManagerAccess.h"

namespace utl {

std::atomic<unsigned> LoopWatch::sChanges{1};

void LoopWatch::registrationChanged() {
    sChanges.fetch_add(1, std::memory_order_release);
}

void LoopWatch::askManager(unsigned present) {
    ManagerAccess const manager;
    mChangesSeen = present;
    mIsRegistered = manager && manager->isRegisteredWatchdog(mThreadId);
}

void LoopWatch::startAndReport(unsigned long line) {
    ManagerAccess const manager;
    if (manager && manager->startWatchdog(mThreadId)) {
        manager->keepAliveWatchdog(StatementInfo(mFile, mFunction, line, 0));
    }
}

LoopWatch::Pause::Pause(LoopWatch& watch, unsigned long before, unsigned long after)
    : mWatch(watch), mAfter(after) {
    if (!mWatch.isRegistered()) {
        return;
    }
    ManagerAccess const manager;
    if (manager) {
        manager->keepAliveWatchdog(StatementInfo(mWatch.mFile, mWatch.mFunction, before, 0));
        manager->stopWatchdog(mWatch.mThreadId);
    }
}

LoopWatch::Pause::~Pause() {
    platform::ErrnoGuard const guard;
    mWatch.reportAtWork(mAfter);
}

}  // namespace utl
