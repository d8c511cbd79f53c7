#include "timers/UtlSharedTimerLoop.h"

#include "UtlLog.h"

#include "foundation/UtlAwait.h"
#include "foundation/UtlBlockingCall.h"
#include "foundation/UtlLogLine.h"
#include "foundation/UtlUserCode.h"
#include "platform/UtlFork.h"
#include "platform/UtlKernelTimer.h"

namespace utl {

namespace {

constexpr char LABEL[] = "SharedTimerThread";
constexpr char SOURCE[] = "jni/source/UtlSharedTimer";

constexpr unsigned long CTL_CAPACITY = 256;

// Two of these mean something else to a message-driven thread, which never sees them.
constexpr std::int32_t TIMER_CTL_WAKE_TO_STOP = 0x83FB;
constexpr std::int32_t TIMER_CTL_TIMEOUT = 0x83FC;
constexpr std::int32_t TIMER_CTL_ERASE = 0x83FD;
constexpr std::int32_t TIMER_CTL_STOP = 0x83FE;
constexpr std::int32_t TIMER_CTL_START = 0x83FF;

TimerHandler timeoutHandler("SharedTimer", platform::sharedTimerSignal);

// Where the loop reports alive.
constexpr unsigned long BEFORE_SLEEP = 412;
constexpr unsigned long AFTER_SLEEP = 423;
constexpr unsigned long AFTER_WORK = 479;

std::unique_ptr<LoopControl> makeControl(char const* name, unsigned long maxTimerCount) {
    BlockingCall const blocking(SOURCE, "SharedTimer", 85);
    return LoopControl::make({LABEL, name, SOURCE}, timeoutHandler, CTL_CAPACITY, maxTimerCount);
}

}  // namespace

SharedTimer::Loop::Loop(SharedTimer& timer, unsigned long maxTimerCount)
    : mTimer(timer),
      mProcess(platform::processNumber()),
      mControl(makeControl(timer.getName().c_str(), maxTimerCount)),
      mTimers(maxTimerCount, 0) {
    BlockingCall const blocking(SOURCE, "SharedTimer", 96);
    timeoutHandler.install();
}

SharedTimer::Loop::~Loop() {
    if (mControl != nullptr) {
        mControl->awaitNobody();
    }
}

void SharedTimer::Loop::setNextUserTimerId(int timerId) {
    platform::MutexGuard const guard(mControl->mutex());
    mNextUserTimerId = timerId;
}

int SharedTimer::Loop::addTimer(TimerInfo const& info) {
    platform::MutexGuard const guard(mControl->mutex());
    if (!mIsLooping || !mControl->isOpen()) {
        return -1;
    }
    int const timerId = mNextUserTimerId;
    if (!mTimers.insert(timerId, info, 0)) {
        return -1;
    }
    mNextUserTimerId = nextUserTimerId(mTimers, timerId);
    return timerId;
}

// Nothing to do for a timer that runs, unless it is about to be stopped: what was asked for last
// holds.
bool SharedTimer::Loop::start(int timerId, int noWait) {
    if (isLoopThread()) {
        return startByListener(timerId);
    }
    Caller caller(*this, noWait);
    if (!caller) {
        return false;
    }
    {
        platform::MutexGuard const guard(mControl->mutex());
        TimerInfo const* const info = mTimers.find(timerId);
        if (info == nullptr || isQueuedLocked(TIMER_CTL_ERASE, timerId)) {
            return false;
        }
        if (info->runEvent->isOn() && !isQueuedLocked(TIMER_CTL_STOP, timerId)) {
            return true;
        }
        if (!caller.postLocked(TIMER_CTL_START, timerId)) {
            return false;
        }
    }
    return caller.await();
}

// The other way round.
bool SharedTimer::Loop::stop(int timerId, int noWait) {
    if (isLoopThread()) {
        return stopByListener(timerId);
    }
    Caller caller(*this, noWait);
    if (!caller) {
        return false;
    }
    {
        platform::MutexGuard const guard(mControl->mutex());
        TimerInfo const* const info = mTimers.find(timerId);
        // A listener that has stopped its timer may still be at work: the loop answers when it has
        // left.
        bool const isAtWork = isDeliveringLocked(timerId);
        if (info == nullptr && !isAtWork) {
            return false;
        }
        bool const isOff = info == nullptr || info->runEvent->isOff();
        if (isOff && !isAtWork && !isQueuedLocked(TIMER_CTL_START, timerId)) {
            return true;
        }
        if (!caller.postLocked(TIMER_CTL_STOP, timerId)) {
            return false;
        }
    }
    return caller.await();
}

// By the loop, so that nobody can start the timer again on the way.
bool SharedTimer::Loop::eraseTimer(int timerId, int noWait) {
    if (isLoopThread()) {
        return eraseByListener(timerId);
    }
    Caller caller(*this, noWait);
    if (!caller) {
        return false;
    }
    {
        platform::MutexGuard const guard(mControl->mutex());
        bool const isThere = mTimers.find(timerId) != nullptr || isDeliveringLocked(timerId);
        if (!isThere || !caller.postLocked(TIMER_CTL_ERASE, timerId)) {
            return false;
        }
    }
    return caller.await();
}

bool SharedTimer::Loop::setInterval(int timerId, unsigned long intervalMs) {
    platform::MutexGuard const guard(mControl->mutex());
    TimerInfo* const info = mTimers.find(timerId);
    if (info == nullptr) {
        return false;
    }
    info->interval = TimerInfo::toInterval(intervalMs);
    info->intervalChanged = true;
    return true;
}

unsigned long SharedTimer::Loop::getInterval(int timerId) const {
    platform::MutexGuard const guard(mControl->mutex());
    TimerInfo const* const info = mTimers.find(timerId);
    return info != nullptr ? static_cast<std::uint32_t>(info->interval) : NONE;
}

bool SharedTimer::Loop::isRunning(int timerId) const {
    platform::MutexGuard const guard(mControl->mutex());
    TimerInfo const* const info = mTimers.find(timerId);
    return info != nullptr && info->runEvent->isOn();
}

bool SharedTimer::Loop::getTimerIdSet(Array<int>* ids) const {
    platform::MutexGuard const guard(mControl->mutex());
    ids->setCount(0);
    for (unsigned long i = 0; i < mTimers.count(); ++i) {
        if (!ids->insertAt(i, mTimers[i].key())) {
            return false;
        }
    }
    return true;
}

TimerListener* SharedTimer::Loop::listenerOf(int timerId) const {
    platform::MutexGuard const guard(mControl->mutex());
    TimerInfo const* const info = mTimers.find(timerId);
    return info != nullptr ? info->listener : nullptr;
}

bool SharedTimer::Loop::requestStop() {
    platform::MutexGuard const guard(mControl->mutex());
    return postLocked(TIMER_CTL_WAKE_TO_STOP, -1);
}

void SharedTimer::Loop::awaitBegin() const {
    awaitOn(mHasBegun, 0);
}

SharedTimer::Loop::Caller::Caller(Loop& loop, int noWait) : mLoop(loop), mWaits(noWait == 0) {
    if (mWaits) {
        mAsking.emplace(*loop.mControl);
    }
}

bool SharedTimer::Loop::Caller::postLocked(std::int32_t msgId, int timerId) {
    mLoop.mControl->mutex().assumeHeld();
    if (!mLoop.mIsLooping) {
        return false;
    }
    if (!mWaits) {
        return mLoop.postLocked(msgId, timerId);
    }
    return mAsking->postLocked({msgId, timerId}, {msgId, timerId}) == LoopControl::Posting::DONE;
}

bool SharedTimer::Loop::startByListener(int timerId) {
    platform::MutexGuard const guard(mControl->mutex());
    return outlastsLocked(TIMER_CTL_STOP, TIMER_CTL_START, timerId) &&
           mTimers.find(timerId) != nullptr && updateOnStartLocked(timerId) == 0;
}

bool SharedTimer::Loop::stopByListener(int timerId) {
    platform::MutexGuard const guard(mControl->mutex());
    mIsDeliveryOver = mIsDeliveryOver || isDeliveringLocked(timerId);
    return outlastsLocked(TIMER_CTL_START, TIMER_CTL_STOP, timerId) &&
           mTimers.find(timerId) != nullptr && updateOnStopLocked(timerId) == 0;
}

bool SharedTimer::Loop::eraseByListener(int timerId) {
    if (!stopByListener(timerId)) {
        return false;
    }
    platform::MutexGuard const guard(mControl->mutex());
    mTimers.eraseKey(timerId);
    return true;
}

// Whether what a listener asks for will still hold when what other threads have asked for before is
// done: for that it is queued behind the opposite.
bool SharedTimer::Loop::outlastsLocked(std::int32_t opposite, std::int32_t msgId, int timerId) {
    return !isQueuedLocked(opposite, timerId) || postLocked(msgId, timerId);
}

bool SharedTimer::Loop::isDeliveringLocked(int timerId) const {
    return mIsDelivering && mDelivered == timerId;
}

bool SharedTimer::Loop::isQueuedLocked(std::int32_t msgId, int timerId) const {
    SlotRing const& entries = mControl->entriesLocked();
    for (unsigned long i = 0; i < entries.count(); ++i) {
        LoopControl::Entry const entry = LoopControl::entryIn(entries.at(i));
        if (entry.id == msgId && entry.parameter == timerId) {
            return true;
        }
    }
    return false;
}

// A full queue refuses without a word: there are as many requests under way as anybody can want.
bool SharedTimer::Loop::postLocked(std::int32_t msgId, int timerId) {
    return mControl->postLocked({msgId, timerId}) == LoopControl::Posting::DONE;
}

int SharedTimer::Loop::run() {
    mControl->enter();
    mControl->watch().reportAtWork(AFTER_SLEEP);
    {
        platform::MutexGuard const guard(mControl->mutex());
        mIsLooping = true;
    }
    mHasBegun.setOn();
    Step step;
    do {
        step = executeStep();
        if (mProcess != platform::processNumber()) {
            return -1;  // in a child of that process, which inherited this call: nothing is its own
        }
    } while (step == Step::NEXT);
    mControl->leave(
        [this] {
            mControl->mutex().assumeHeld();
            mIsLooping = false;
            eraseAllTimerLocked();
        },
        [] {});
    if (mIsThreadGone) {
        delete this;
    }
    return step == Step::STOPPED ? 0 : -1;
}

// Takes one control entry and does what it asks for, or sleeps until there is one.
SharedTimer::Loop::Step SharedTimer::Loop::executeStep() {
    executeExpiries();
    TimerCtlMsg ctl;
    bool isTaken;
    int result = 0;
    {
        platform::MutexGuard const guard(mControl->mutex());
        LoopControl::Entry entry;
        isTaken = mControl->isOpen() && mControl->take(&entry);
        if (isTaken) {
            ctl.msgId = entry.id;
            ctl.timerId = entry.parameter;
            result = executeCtlLocked(ctl);
        }
    }
    if (!isTaken) {
        return mControl->sleep(BEFORE_SLEEP, AFTER_SLEEP) ? Step::NEXT : Step::BROKEN;
    }
    if (ctl.msgId == TIMER_CTL_TIMEOUT) {
        result = executeTimeout(ctl.timerId);
    }
    mControl->watch().reportAtWork(AFTER_WORK);
    if (result != 0) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "!!!!!!!! SharedTimerThread(%s) Error. MsgId:0x%08x !!!!!!!!", mControl->name(),
               static_cast<unsigned>(ctl.msgId));
    }
    return mIsThreadGone || mTimer.hasRequestedStop() ? Step::STOPPED : Step::NEXT;
}

// In front of every entry that is dealt with; what an expiry queues is behind all that were there
// before.
void SharedTimer::Loop::executeExpiries() {
    while (mControl->timers().hasExpired()) {
        platform::MutexGuard const guard(mControl->mutex());
        mControl->timers().take([this](int timerId) {
            mControl->mutex().assumeHeld();
            executeTimeoutSignalLocked(timerId);
        });
    }
}

// Queues an expiry unless enough of them wait.
void SharedTimer::Loop::executeTimeoutSignalLocked(int timerId) {
    TimerInfo* const info = mTimers.find(timerId);
    if (info != nullptr && takesExpiry(*info) && postLocked(TIMER_CTL_TIMEOUT, timerId)) {
        ++info->pendingCount;
    }
}

// Delivers an expiry, with no lock held. A listener that has stopped its timer, even if it started
// it again, leaves nothing to be done for it.
int SharedTimer::Loop::executeTimeout(int timerId) {
    {
        platform::MutexGuard const guard(mControl->mutex());
        mIsDelivering = true;
        mDelivered = timerId;
        mIsDeliveryOver = false;
    }
    callUserCode("TimerListener::onTime", mControl->name(),
                 [this, timerId] { mTimer.onTime(timerId); });
    if (mProcess != platform::processNumber()) {
        mControl->forgetOtherThreads();
        return 0;  // in a child, where the kernel's ids of timers mean others
    }

    platform::MutexGuard const guard(mControl->mutex());
    mIsDelivering = false;
    return mIsDeliveryOver ? 0 : updateOnTimeoutLocked(timerId);
}

// Everything but expiries.
int SharedTimer::Loop::executeCtlLocked(TimerCtlMsg const& ctl) {
    bool const isKnown = mTimers.find(ctl.timerId) != nullptr;
    int result = 0;
    switch (ctl.msgId) {
        case TIMER_CTL_START:
            result = updateOnStartLocked(ctl.timerId);
            answerLocked(ctl, isKnown && result == 0);
            break;
        case TIMER_CTL_STOP:
            result = updateOnStopLocked(ctl.timerId);
            answerLocked(ctl, result == 0);
            break;
        case TIMER_CTL_ERASE:
            result = updateOnStopLocked(ctl.timerId);
            mTimers.eraseKey(ctl.timerId);
            answerLocked(ctl, result == 0);
            break;
        default:
            break;
    }
    return result;
}

// Releases the thread that waits for `ctl`, which is the last of its kind in the queue.
void SharedTimer::Loop::answerLocked(TimerCtlMsg const& ctl, bool isServed) {
    LoopControl::Request request;
    if (mControl->isAskedLocked(&request) && request.kind == ctl.msgId &&
        request.argument == ctl.timerId && !isQueuedLocked(ctl.msgId, ctl.timerId)) {
        mControl->answerLocked(isServed);
    }
}

// A timer that runs already has its kernel timer.
int SharedTimer::Loop::updateOnStartLocked(int timerId) {
    TimerInfo* const info = mTimers.find(timerId);
    if (info == nullptr || info->runEvent->isOn()) {
        return 0;
    }
    info->firedCount = 0;
    if (!startTimerByTimerInfoLocked(timerId, info)) {
        return -1;
    }
    info->runEvent->setOn();
    return 0;
}

int SharedTimer::Loop::updateOnStopLocked(int timerId) {
    TimerInfo* const info = mTimers.find(timerId);
    if (info == nullptr) {
        return 0;
    }
    if (!stopTimerByTimerInfoLocked(timerId, info)) {
        return -1;
    }
    info->runEvent->setOff();
    return 0;
}

int SharedTimer::Loop::updateOnTimeoutLocked(int timerId) {
    TimerInfo* const info = mTimers.find(timerId);
    if (info == nullptr) {
        return 0;
    }
    ++info->firedCount;
    if (info->pendingCount != 0) {
        --info->pendingCount;
    }
    if (info->repeatCount != 0 && info->firedCount >= info->repeatCount) {
        stopTimerByTimerInfoLocked(timerId, info);
        info->runEvent->setOff();
        return 0;
    }
    if (info->freeRunning != 0 && !info->intervalChanged) {
        return 0;
    }
    // Afresh, so that the next interval begins now, or is the new one.
    eraseTimeoutsLocked(timerId);
    info->pendingCount = 0;
    info->intervalChanged = false;
    BlockingCall const blocking(SOURCE, "startTimerByTimerInfo", 655);
    if (mControl->timers().restart(info)) {
        return 0;
    }
    info->runEvent->setOff();  // no expiry will come
    return -1;
}

bool SharedTimer::Loop::startTimerByTimerInfoLocked(int timerId, TimerInfo* info) {
    BlockingCall const blocking(SOURCE, "startTimerByTimerInfo", 655);
    info->intervalChanged = false;
    return mControl->timers().start(timerId, info);
}

bool SharedTimer::Loop::stopTimerByTimerInfoLocked(int timerId, TimerInfo* info) {
    if (info->systemTimerId == TimerInfo::NO_SYSTEM_TIMER || info->runEvent->isOff()) {
        return true;
    }
    {
        BlockingCall const blocking(SOURCE, "stopTimerByTimerInfo", 698);
        if (!mControl->timers().remove(info)) {
            return false;
        }
    }
    eraseTimeoutsLocked(timerId);
    info->pendingCount = 0;
    return true;
}

void SharedTimer::Loop::eraseTimeoutsLocked(int timerId) {
    mControl->entriesLocked().eraseIf([timerId](unsigned char const* slot) {
        LoopControl::Entry const entry = LoopControl::entryIn(slot);
        return entry.id == TIMER_CTL_TIMEOUT && entry.parameter == timerId;
    });
}

void SharedTimer::Loop::eraseAllTimerLocked() {
    mControl->entriesLocked().eraseIf([](unsigned char const*) { return true; });
    for (unsigned long i = 0; i < mTimers.count(); ++i) {
        updateOnStopLocked(mTimers[i].key());
    }
    mTimers.setCount(0);
    // A request to stop a timer has got what it asked for; one to start a timer never will.
    LoopControl::Request request;
    if (mControl->isAskedLocked(&request)) {
        mControl->answerLocked(request.kind != TIMER_CTL_START);
    }
}

}  // namespace utl
