// The timers of a message-driven thread.

#include "UtlMsgDrivenThread.h"

#include "foundation/UtlAwait.h"
#include "messaging/UtlControlIds.h"
#include "messaging/UtlOwnedTimers.h"
#include "messaging/UtlTimerTable.h"

namespace utl {

int MsgDrivenThread::setTimer(unsigned long intervalMs, int noWait, unsigned int repeatCount,
                              int freeRunning) {
    if (!isRunning() || hasRequestedStop()) {
        return -1;
    }
    TimerInfo const info(nullptr, intervalMs, repeatCount, freeRunning);
    if (info.runEvent.get() == nullptr) {
        return -1;
    }
    if (!isCaller()) {
        SyncGuard const api(mApiLock);
        return setTimerByLoop(info, noWait);
    }
    SyncGuard const queue(mQueueLock);
    int const userId = mNextUserTimerId;
    if (!mTimers.insert(userId, info, 0) || executeStartTimer(userId) != 0) {
        return -1;
    }
    mNextUserTimerId = nextUserTimerId(mTimers, userId);
    return userId;
}

// The caller holds the API lock.
int MsgDrivenThread::setTimerByLoop(TimerInfo const& info, int noWait) {
    int userId;
    {
        SyncGuard const queue(mQueueLock);
        userId = mNextUserTimerId;
        // Deliberate: an entry whose start could not be posted stays, and keeps its id from being
        // given again until all timers are erased. The refusal is seen by whoever sets the next.
        if (mHasLoopEnded || !mTimers.insert(userId, info, 0) ||
            !postTimerRequestLocked(CTL_START_TIMER, userId, noWait)) {
            return -1;
        }
        mNextUserTimerId = nextUserTimerId(mTimers, userId);
    }
    if (noWait != 0) {
        return userId;
    }
    awaitOff(mTimerEvent);
    return mIsRequestServed ? userId : -1;
}

int MsgDrivenThread::killTimer(int userId, int noWait) {
    if (!isRunning()) {
        return 0;
    }
    if (!isCaller()) {
        SyncGuard const api(mApiLock);
        return killTimerByLoop(userId, noWait);
    }
    // Deliberate: an unknown id is fine here and refused from other threads. A listener may kill a
    // timer that has just ended by itself.
    SyncGuard const queue(mQueueLock);
    return executeStopTimer(userId) == 0 ? 1 : 0;
}

// The caller holds the API lock.
int MsgDrivenThread::killTimerByLoop(int userId, int noWait) {
    {
        SyncGuard const queue(mQueueLock);
        TimerInfo const* const info = mTimers.find(userId);
        if (mHasLoopEnded || info == nullptr) {
            return 0;
        }
        if (info->runEvent->isOff()) {
            unsigned long const erasedStarts = mCtlQueue.eraseIf([userId](ThreadCtlMsg const& ctl) {
                return ctl.id == CTL_START_TIMER && ctl.parameter == userId;
            });
            if (erasedStarts != 0) {
                mTimers.eraseKey(userId);
            }
            return 1;
        }
        if (!postTimerRequestLocked(CTL_STOP_TIMER, userId, noWait)) {
            return 0;
        }
    }
    if (noWait != 0) {
        return 1;
    }
    awaitOff(mTimerEvent);
    return mIsRequestServed ? 1 : 0;
}

void MsgDrivenThread::setNextUserTimerIdForTesting(int userId) {
    SyncGuard const queue(mQueueLock);
    mNextUserTimerId = userId;
}

bool MsgDrivenThread::postTimerRequestLocked(long ctlId, int userId, int noWait) {
    if (noWait != 0) {
        return postThreadCtlMsg(ctlId, userId) != 0;
    }
    mTimerRequest.id = static_cast<std::int32_t>(ctlId);
    mTimerRequest.parameter = userId;
    return postRequestLocked(mTimerEvent, ctlId, userId);
}

// Releases the thread that waits for mTimerRequest.
void MsgDrivenThread::answerTimerRequest(bool isServed) {
    if (mTimerEvent.isOn()) {
        mIsRequestServed = isServed;
        mTimerEvent.setOff();
    }
}

int MsgDrivenThread::executeTimerRequest(ThreadCtlMsg const& ctl) {
    int const result = ctl.id == CTL_START_TIMER ? executeStartTimer(ctl.parameter)
                                                 : executeStopTimer(ctl.parameter);
    if (ctl.id == mTimerRequest.id && ctl.parameter == mTimerRequest.parameter) {
        answerTimerRequest(result == 0);
    }
    return result;
}

// A timer that cannot be started leaves no entry, lest its id be blocked.
int MsgDrivenThread::executeStartTimer(int userId) {
    TimerInfo* const info = mTimers.find(userId);
    if (info == nullptr) {
        return 0;
    }
    info->firedCount = 0;
    if (!mKernelTimers->start(info)) {
        mTimers.eraseKey(userId);
        return -1;
    }
    info->runEvent->setOn();
    return 0;
}

int MsgDrivenThread::executeStopTimer(int userId) {
    TimerInfo* const info = mTimers.find(userId);
    if (info == nullptr) {
        return 0;
    }
    if (!eraseTimerByTimerInfo(info)) {
        return -1;
    }
    info->runEvent->setOff();
    mTimers.eraseKey(userId);
    return 0;
}

// A signal has come. Queues an expiry unless enough of them wait.
void MsgDrivenThread::executeTimeoutSignal(int userId) {
    TimerInfo* const info = mTimers.find(userId);
    if (info == nullptr || !takesExpiry(*info)) {
        return;
    }
    ++info->pendingCount;
    if (!postThreadCtlMsg(CTL_TIMEOUT, userId)) {
        --info->pendingCount;
    }
}

// Delivers an expiry. The timer is looked up afterwards, so one that was killed while its expiry
// waited is still heard.
int MsgDrivenThread::executeTimeout(int userId) {
    TimerMsg msg;
    msg.setTimerId(userId);
    if (!msg.storeTo(&mReceiveMsg)) {
        return -1;
    }
    mListener->receiveMsg(getId(), mReceiveMsg);

    SyncGuard const queue(mQueueLock);
    return finishTimeout(userId);
}

int MsgDrivenThread::finishTimeout(int userId) {
    TimerInfo* const info = mTimers.find(userId);
    if (info == nullptr) {
        return 0;
    }
    ++info->firedCount;
    if (info->pendingCount != 0) {
        --info->pendingCount;
    }
    if (info->repeatCount != 0 && info->firedCount >= info->repeatCount) {
        eraseTimerByTimerInfo(info);
        info->runEvent->setOff();
        mTimers.eraseKey(userId);
        return 0;
    }
    if (info->freeRunning != 0) {
        return 0;
    }
    // Afresh, so that the next interval begins now.
    eraseTimerByTimerInfo(info);
    return mKernelTimers->start(info) ? 0 : -1;
}

bool MsgDrivenThread::eraseTimerByTimerInfo(TimerInfo* info) {
    if (info->systemTimerId == TimerInfo::NO_SYSTEM_TIMER) {
        return true;
    }
    if (!mKernelTimers->remove(*info)) {
        return false;
    }
    // Deliberate: the entries hold user ids and are compared with the kernel's id. Expiries of this
    // timer that wait are still delivered; one that is hit by chance is lost, and its timer must
    // not go on counting it.
    int const systemTimerId = info->systemTimerId;
    mCtlQueue.eraseIf([this, systemTimerId](ThreadCtlMsg const& ctl) {
        bool const isHit = ctl.id == CTL_TIMEOUT && ctl.parameter == systemTimerId;
        TimerInfo* const owner = isHit ? mTimers.find(ctl.parameter) : nullptr;
        if (owner != nullptr && owner->pendingCount != 0) {
            --owner->pendingCount;
        }
        return isHit;
    });
    info->systemTimerId = TimerInfo::NO_SYSTEM_TIMER;
    info->pendingCount = 0;
    return true;
}

void MsgDrivenThread::eraseAllTimer() {
    // Deliberate: the index goes on after a successful stop has moved the later timers down, so
    // every second one is passed over. Those lose their entries below, but not their kernel timers,
    // which run on, heard by nobody, until this object goes.
    for (unsigned long i = 0; i < mTimers.count(); ++i) {
        executeStopTimer(mTimers[i].key());
    }
    for (unsigned long i = 0; i < mTimers.count(); ++i) {
        mTimers[i].value().runEvent->setOff();
    }
    mTimers.setCount(0);
    mCtlQueue.eraseIf([](ThreadCtlMsg const& ctl) { return isTimerCtl(ctl.id); });
    // A request to stop a timer has got what it asked for; one to start a timer never will.
    answerTimerRequest(mTimerRequest.id == CTL_STOP_TIMER);
}

}  // namespace utl
