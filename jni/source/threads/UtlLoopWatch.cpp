#include "threads/UtlLoopWatch.h"

#include <atomic>

#include "UtlStatementInfo.h"

#include "platform/UtlErrno.h"
#include "threads/UtlManagerAccess.h"

namespace utl {

namespace {

// Of registrations, from 1 on: a thread asks once before it believes anything.
std::atomic<unsigned> changes{1};

}  // namespace

void LoopWatch::registrationChanged() {
    changes.fetch_add(1, std::memory_order_release);
}

bool LoopWatch::isRegistered() {
    unsigned const present = changes.load(std::memory_order_acquire);
    if (present != mChangesSeen) {
        ManagerAccess const manager;
        mChangesSeen = present;
        mIsRegistered = manager && manager->isRegisteredWatchdog(mThreadId);
    }
    return mIsRegistered;
}

void LoopWatch::reportAtWork(unsigned long line) {
    if (!isRegistered()) {
        return;
    }
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
