// The timers of a message-driven thread.

#include <optional>

#include "foundation/UtlLogLine.h"
#include "messaging/UtlControlIds.h"
#include "messaging/UtlMsgLoop.h"
#include "messaging/UtlTimerTable.h"

namespace utl {

namespace {

// In place of the place of a kernel timer: the timer's start is queued.
constexpr int START_IS_QUEUED = -2;

}  // namespace

void MsgDrivenThread::Loop::setNextUserTimerId(int userId) {
    platform::MutexGuard const guard(mControl->mutex());
    mNextUserTimerId = userId;
}

int MsgDrivenThread::Loop::setTimer(TimerInfo const& info, int noWait) {
    if (isLoopThread()) {
        return startTimer(info);
    }
    std::optional<LoopControl::Asking> asking;
    if (noWait == 0 && !asking.emplace(*mControl)) {
        return -1;
    }
    int userId;
    LoopControl::Posting posting;
    {
        LoopControl::Access const access(*mControl);
        if (!access || mControl->hasEndedLocked()) {
            return -1;
        }
        userId = mNextUserTimerId;
        // Deliberate: an entry whose start could not be posted stays, and keeps its id from being
        // given again until all timers are erased. The refusal is seen by whoever sets the next.
        if (!mTimers.insert(userId, info, 0)) {
            return -1;
        }
        posting = postTimerCtlLocked(asking, START_TIMER, CTL_START_TIMER, userId);
        if (posting == LoopControl::Posting::DONE) {
            mTimers.find(userId)->systemTimerPlace = START_IS_QUEUED;
            mNextUserTimerId = nextUserTimerId(mTimers, userId);
        }
    }
    bool const isDone = report(posting, CTL_START_TIMER) && (noWait != 0 || asking->await());
    return isDone ? userId : -1;
}

// On the loop's thread.
int MsgDrivenThread::Loop::startTimer(TimerInfo const& info) {
    platform::MutexGuard const guard(mControl->mutex());
    int const userId = mNextUserTimerId;
    if (!mTimers.insert(userId, info, 0) || executeStartTimerLocked(userId) != 0) {
        return -1;
    }
    mNextUserTimerId = nextUserTimerId(mTimers, userId);
    return userId;
}

int MsgDrivenThread::Loop::killTimer(int userId, int noWait) {
    if (isLoopThread()) {
        // Deliberate: an unknown id is fine here and refused from other threads. A listener may
        // kill a timer that has just ended by itself.
        platform::MutexGuard const guard(mControl->mutex());
        return executeStopTimerLocked(userId) == 0;
    }
    std::optional<LoopControl::Asking> asking;
    if (noWait == 0 && !asking.emplace(*mControl)) {
        return 0;
    }
    LoopControl::Posting posting;
    {
        LoopControl::Access const access(*mControl);
        TimerInfo const* const info = access ? mTimers.find(userId) : nullptr;
        if (info == nullptr || mControl->hasEndedLocked()) {
            return 0;
        }
        if (info->runEvent->isOff() && info->systemTimerId == TimerInfo::NO_SYSTEM_TIMER) {
            if (info->systemTimerPlace == START_IS_QUEUED) {
                mTimers.eraseKey(userId);  // the start will find nothing to start
            }
            return 1;
        }
        posting = postTimerCtlLocked(asking, STOP_TIMER, CTL_STOP_TIMER, userId);
    }
    return report(posting, CTL_STOP_TIMER) && (noWait != 0 || asking->await());
}

void MsgDrivenThread::Loop::restTimer(int userId) {
    platform::MutexGuard const guard(mControl->mutex());
    if (TimerInfo* const info = mTimers.find(userId)) {
        info->runEvent->setOff();
        mControl->timers().hold(*info);
    }
}

bool MsgDrivenThread::Loop::resumeTimer(int userId) {
    LoopControl::Access const access(*mControl);
    return access && report(mControl->postLocked({CTL_START_TIMER, userId}), CTL_START_TIMER);
}

// Who has the right to ask waits for an answer.
LoopControl::Posting MsgDrivenThread::Loop::postTimerCtlLocked(
    std::optional<LoopControl::Asking>& asking, Request request, long ctlId, int userId) {
    LoopControl::Entry const entry = {static_cast<std::int32_t>(ctlId), userId};
    return asking ? asking->postLocked({request, userId}, entry) : mControl->postLocked(entry);
}

int MsgDrivenThread::Loop::executeTimerRequest(ThreadCtlMsg const& ctl) {
    platform::MutexGuard const guard(mControl->mutex());
    bool const isStart = ctl.id == CTL_START_TIMER;
    int const result =
        isStart ? executeStartTimerLocked(ctl.parameter) : executeStopTimerLocked(ctl.parameter);
    LoopControl::Request request;
    if (mControl->isAskedLocked(&request) && request.kind == (isStart ? START_TIMER : STOP_TIMER) &&
        request.argument == ctl.parameter) {
        mControl->answerLocked(result == 0);
    }
    return result;
}

// A timer that cannot be started leaves no entry, lest its id be blocked. One that runs was started
// by an entry for the one that had its id before.
int MsgDrivenThread::Loop::executeStartTimerLocked(int userId) {
    TimerInfo* const info = mTimers.find(userId);
    if (info == nullptr || info->runEvent->isOn()) {
        return 0;
    }
    info->firedCount = 0;
    bool const isResting = info->systemTimerId != TimerInfo::NO_SYSTEM_TIMER;
    if (isResting ? !mControl->timers().restart(info) : !mControl->timers().start(userId, info)) {
        mTimers.eraseKey(userId);
        return -1;
    }
    info->runEvent->setOn();
    return 0;
}

int MsgDrivenThread::Loop::executeStopTimerLocked(int userId) {
    TimerInfo* const info = mTimers.find(userId);
    if (info == nullptr) {
        return 0;
    }
    if (!eraseTimerByTimerInfoLocked(info)) {
        return -1;
    }
    info->runEvent->setOff();
    mTimers.eraseKey(userId);
    return 0;
}

// In front of every entry that is dealt with, so that no number of messages keeps a timer waiting;
// what an expiry queues is behind all that were there before.
void MsgDrivenThread::Loop::executeExpiries() {
    do {
        platform::MutexGuard const guard(mControl->mutex());
        mControl->timers().take([this](int userId) {
            mControl->mutex().assumeHeld();
            executeTimeoutSignalLocked(userId);
        });
    } while (mControl->timers().hasExpired());
}

// Queues an expiry unless enough of them wait.
void MsgDrivenThread::Loop::executeTimeoutSignalLocked(int userId) {
    if (mExtension != nullptr && userId == LoopExtension::TIMER) {
        mExtension->expire();
        return;
    }
    TimerInfo* const info = mTimers.find(userId);
    if (info != nullptr && takesExpiry(*info) &&
        report(mControl->postLocked({CTL_TIMEOUT, userId}), CTL_TIMEOUT)) {
        ++info->pendingCount;
    }
}

// Delivers an expiry. The timer is looked up afterwards, so one that was killed while its expiry
// waited is still heard.
int MsgDrivenThread::Loop::executeTimeout(int userId) {
    TimerMsg msg;
    msg.setTimerId(userId);
    mReceiveMsg.attach(mReceiveBuffer.get(), mSlotSize);
    if (!msg.storeTo(&mReceiveMsg)) {
        return -1;
    }
    deliver();
    if (isInChild()) {
        return 0;  // where the kernel's ids of timers mean others
    }
    platform::MutexGuard const guard(mControl->mutex());
    return finishTimeoutLocked(userId);
}

int MsgDrivenThread::Loop::finishTimeoutLocked(int userId) {
    TimerInfo* const info = mTimers.find(userId);
    if (info == nullptr) {
        return 0;
    }
    ++info->firedCount;
    if (info->pendingCount != 0) {
        --info->pendingCount;
    }
    if (info->repeatCount != 0 && info->firedCount >= info->repeatCount) {
        eraseTimerByTimerInfoLocked(info);
        info->runEvent->setOff();
        mTimers.eraseKey(userId);
        return 0;
    }
    if (info->freeRunning != 0 || info->runEvent->isOff()) {
        return 0;
    }
    info->pendingCount = 0;
    return mControl->timers().restart(info) ? 0 : -1;  // the next interval begins now
}

bool MsgDrivenThread::Loop::removeSystemTimerLocked(TimerInfo* info) {
    return info->systemTimerId == TimerInfo::NO_SYSTEM_TIMER || mControl->timers().remove(info);
}

bool MsgDrivenThread::Loop::eraseTimerByTimerInfoLocked(TimerInfo* info) {
    int const systemTimerId = info->systemTimerId;
    if (!removeSystemTimerLocked(info)) {
        return false;
    }
    if (systemTimerId == TimerInfo::NO_SYSTEM_TIMER) {
        return true;
    }
    // Deliberate: the entries hold user ids and are compared with the kernel's id. Expiries of this
    // timer that wait are still delivered; one that is hit by chance is lost, and its timer must
    // not go on counting it.
    mControl->entriesLocked().eraseIf([this, systemTimerId](unsigned char const* slot) {
        mControl->mutex().assumeHeld();
        LoopControl::Entry const entry = LoopControl::entryIn(slot);
        bool const isHit = entry.id == CTL_TIMEOUT && entry.parameter == systemTimerId;
        TimerInfo* const owner = isHit ? mTimers.find(entry.parameter) : nullptr;
        if (owner != nullptr && owner->pendingCount != 0) {
            --owner->pendingCount;
        }
        return isHit;
    });
    info->pendingCount = 0;
    return true;
}

void MsgDrivenThread::Loop::eraseAllTimerLocked() {
    // Deliberate: every one that follows one whose kernel timer was deleted is passed over. Those
    // lose their entries below, and their kernel timers to the next who needs one.
    bool isPassedOver = false;
    for (unsigned long i = 0; i < mTimers.count(); ++i) {
        isPassedOver = !isPassedOver && removeSystemTimerLocked(&mTimers[i].value());
    }
    for (unsigned long i = 0; i < mTimers.count(); ++i) {
        TimerInfo& info = mTimers[i].value();
        info.runEvent->setOff();
        if (info.systemTimerId != TimerInfo::NO_SYSTEM_TIMER) {
            mControl->timers().abandon(&info);
        }
    }
    mTimers.setCount(0);
    mControl->entriesLocked().eraseIf(
        [](unsigned char const* slot) { return isTimerCtl(LoopControl::entryIn(slot).id); });
    // A request to stop a timer has got what it asked for; one to start a timer never will.
    LoopControl::Request request;
    if (mControl->isAskedLocked(&request) &&
        (request.kind == START_TIMER || request.kind == STOP_TIMER)) {
        mControl->answerLocked(request.kind == STOP_TIMER);
    }
}

}  // namespace utl
