#include "messaging/UtlOwnedTimers.h"

#include <errno.h>

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "messaging/UtlWakePipe.h"

namespace utl {

namespace {

// Async-signal-safe.
void TimeoutSignalHandler(int, siginfo_t* info, void*) {
    WakePipe::timerExpired(platform::carriedValue(*info), platform::expiredTimer(*info));
}

}  // namespace

OwnedTimers::OwnedTimers(char const* label, Thread const& owner, int signal, int carriedValue,
                         unsigned long maxTimers)
    : mLabel(label),
      mOwner(owner),
      mSignal(signal),
      mCarriedValue(carriedValue),
      mKernelIds(maxTimers, Array<int>::GROWS) {}

OwnedTimers::~OwnedTimers() {
    for (unsigned long i = 0; i < mKernelIds.count(); ++i) {
        platform::deleteTimer(mKernelIds[i]);
    }
}

bool OwnedTimers::start(TimerInfo* info) {
    int const kernelId = platform::createTimer(mSignal, mCarriedValue);
    if (kernelId == -1) {
        logError("timer_create", TimerInfo::NO_SYSTEM_TIMER, errno);
        return false;
    }
    if (!mKernelIds.insertAt(mKernelIds.count(), kernelId)) {
        platform::deleteTimer(kernelId);
        logError("timer_create", TimerInfo::NO_SYSTEM_TIMER, ENOMEM);
        return false;
    }
    if (!platform::armTimer(kernelId, info->interval)) {
        // Deliberate: the kernel timer, which never runs, stays until the owner goes. Its id is not
        // the info's yet, so whoever cleans up after this finds nothing to delete.
        logError("timer_settime", kernelId, errno);
        return false;
    }
    info->systemTimerId = kernelId;
    return true;
}

bool OwnedTimers::remove(TimerInfo const& info) {
    for (unsigned long i = 0; i < mKernelIds.count(); ++i) {
        if (mKernelIds[i] == info.systemTimerId) {
            mKernelIds.eraseAt(i, 1);
            break;
        }
    }
    if (!platform::deleteTimer(info.systemTimerId)) {
        logError("timer_delete", info.systemTimerId, errno);
        return false;
    }
    return true;
}

void OwnedTimers::logError(char const* call, int systemTimerId, int error) const {
    applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) %s SysTimerId:0x%08x errno:%d", mLabel,
           mOwner.getName().c_str(), call, static_cast<unsigned>(systemTimerId), error);
}

void TimerHandler::install(int signal) {
    platform::StaticGuard const guard(mLock);
    if (mIsInstalled) {
        return;
    }
    mIsInstalled = platform::installSignalHandler(signal, TimeoutSignalHandler);
    if (mIsInstalled) {
        applog(LIBRARY_LOG, LEVEL_DETAIL, "%s sigaction  success:%d", mLabel, signal);
    } else {
        applog(LIBRARY_LOG, LEVEL_ERROR, "%s sigaction  errno:%d", mLabel, errno);
    }
}

}  // namespace utl
