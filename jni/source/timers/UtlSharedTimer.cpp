#include "UtlSharedTimer.h"

#include <new>
#include <optional>

#include "UtlLog.h"
#include "UtlStatementInfo.h"
#include "UtlTimer.h"

#include "foundation/UtlAwait.h"
#include "foundation/UtlBlockingCall.h"
#include "foundation/UtlLogLine.h"
#include "messaging/UtlLoopPipe.h"
#include "messaging/UtlOwnedTimers.h"
#include "messaging/UtlTimerTable.h"
#include "platform/UtlKernelTimer.h"
#include "threads/UtlWatchPause.h"

namespace utl {

namespace {

constexpr char LABEL[] = "SharedTimerThread";
constexpr char SOURCE[] = "jni/source/UtlSharedTimer";

constexpr unsigned long CTL_CAPACITY = 256;

// The control ids. Two of them mean something else to a message-driven thread, which never sees
// these.
constexpr std::int32_t CTL_WAKE_TO_STOP = 0x83FB;
constexpr std::int32_t CTL_TIMEOUT = 0x83FC;
constexpr std::int32_t CTL_ERASE = 0x83FD;
constexpr std::int32_t CTL_STOP = 0x83FE;
constexpr std::int32_t CTL_START = 0x83FF;

TimerHandler timeoutHandler("SharedTimer");

StatementInfo loopStatement(unsigned long line) {
    return StatementInfo(SOURCE, "execute", line, 0);
}

}  // namespace

// The API lock, unless it is the loop that calls: a listener may be called while another thread
// holds the lock and waits for the loop.
class SharedTimer::ApiGuard {
public:
    explicit ApiGuard(SharedTimer const& timer) {
        if (!timer.isCaller()) {
            mGuard.emplace(timer.mApiLock);
        }
    }

private:
    std::optional<SyncGuard> mGuard;
};

SharedTimer::SharedTimer(int watchdogMode, unsigned long watchdogAliveTime,
                         WatchdogTimerListener* watchdogListener, unsigned long maxTimerCount,
                         char const* threadName)
    : Thread(threadName, nullptr),
      mTimerCtlQueue(CTL_CAPACITY),
      mTimers(maxTimerCount, 0),
      mRequestEvent(0, Event::TWO_CONDITIONS),
      mHasEnteredLoop(0, 0) {
    {
        BlockingCall const blocking(SOURCE, "SharedTimer", 85);
        mPipe = LoopPipe::make(LABEL, *this, CTL_CAPACITY, maxTimerCount);
    }
    {
        BlockingCall const blocking(SOURCE, "SharedTimer", 96);
        timeoutHandler.install(platform::sharedTimerSignal());
    }
    if (mPipe == nullptr || mTimerCtlQueue.capacity() == 0) {
        return;  // nothing could wake the thread
    }
    mKernelTimers.reset(new (std::nothrow) OwnedTimers(LABEL, *this, platform::sharedTimerSignal(),
                                                       mPipe->carriedValue(), maxTimerCount));
    if (mKernelTimers != nullptr && Thread::start(watchdogMode, watchdogAliveTime, watchdogListener,
                                                  1, 0, ThreadPriority::NORMAL, 0) == 0) {
        // Until the thread has found the way into its loop, by a virtual call, no derived class may
        // go on with the making of this object.
        awaitOn(mHasEnteredLoop, 0);
    }
}

SharedTimer::~SharedTimer() {
    destroy();
    BlockingCall const blocking(SOURCE, "~SharedTimer", 139);
    mKernelTimers.reset();
    mPipe.reset();
}

bool SharedTimer::destroy() {
    if (isCaller()) {
        return false;
    }
    SyncGuard const api(mApiLock);
    Thread::stop(1, 0);
    leaveManagement();
    return true;
}

int SharedTimer::addTimer(TimerListener* listener, unsigned long intervalMs,
                          unsigned int repeatCount, int freeRunning) {
    ApiGuard const api(*this);
    TimerInfo const info(listener, intervalMs, repeatCount, freeRunning);
    SyncGuard const data(mDataLock);
    if (!mIsLooping || hasRequestedStop() || !mPipe->isOpen() || info.runEvent.get() == nullptr) {
        return -1;
    }
    int const timerId = mNextUserTimerId;
    if (!mTimers.insert(timerId, info, 0)) {
        return -1;
    }
    mNextUserTimerId = nextUserTimerId(mTimers, timerId);
    return timerId;
}

bool SharedTimer::start(int timerId, int noWait) {
    ApiGuard const api(*this);
    return isCaller() ? startByListener(timerId) : startByLoop(timerId, noWait);
}

bool SharedTimer::stop(int timerId, int noWait) {
    ApiGuard const api(*this);
    return isCaller() ? stopByListener(timerId) : stopByLoop(timerId, noWait);
}

bool SharedTimer::restart(int timerId, int noWait) {
    ApiGuard const api(*this);
    return stop(timerId, noWait) && start(timerId, noWait);
}

void SharedTimer::startAll(int noWait) {
    ApiGuard const api(*this);
    forEachTimer([this, noWait](int timerId) { start(timerId, noWait); });
}

void SharedTimer::stopAll(int noWait) {
    ApiGuard const api(*this);
    forEachTimer([this, noWait](int timerId) { stop(timerId, noWait); });
}

void SharedTimer::restartAll(int noWait) {
    ApiGuard const api(*this);
    stopAll(noWait);
    startAll(noWait);
}

bool SharedTimer::eraseTimer(int timerId, int noWait) {
    ApiGuard const api(*this);
    return isCaller() ? eraseByListener(timerId) : eraseByLoop(timerId, noWait);
}

bool SharedTimer::setInterval(int timerId, unsigned long intervalMs) {
    SyncGuard const data(mDataLock);
    TimerInfo* const info = mTimers.find(timerId);
    if (info == nullptr) {
        return false;
    }
    info->interval = TimerInfo::toInterval(intervalMs);
    info->intervalChanged = true;
    return true;
}

unsigned long SharedTimer::getInterval(int timerId) const {
    SyncGuard const data(mDataLock);
    TimerInfo const* const info = mTimers.find(timerId);
    return info != nullptr ? static_cast<std::uint32_t>(info->interval) : NONE;
}

bool SharedTimer::isRunning(int timerId) const {
    SyncGuard const data(mDataLock);
    TimerInfo const* const info = mTimers.find(timerId);
    return info != nullptr && info->runEvent->isOn();
}

bool SharedTimer::getTimerIdSet(Array<int>* ids) const {
    if (ids == nullptr) {
        return false;
    }
    SyncGuard const data(mDataLock);
    ids->setCount(0);
    for (unsigned long i = 0; i < mTimers.count(); ++i) {
        if (!ids->insertAt(i, mTimers[i].key())) {
            return false;
        }
    }
    return true;
}

bool SharedTimer::setThreadWatchdogAliveTime(unsigned long aliveTimeMs) {
    return setWatchdogAliveTime(aliveTimeMs);
}

bool SharedTimer::startThreadWatchdog() {
    return startWatchdog();
}

bool SharedTimer::stopThreadWatchdog() {
    return stopWatchdog();
}

void SharedTimer::onTime(int timerId) {
    TimerListener* listener = nullptr;
    {
        SyncGuard const data(mDataLock);
        if (TimerInfo const* const info = mTimers.find(timerId)) {
            listener = info->listener;
        }
    }
    if (listener != nullptr) {
        listener->onTime(timerId);
    }
}

void SharedTimer::setNextUserTimerIdForTesting(int timerId) {
    SyncGuard const data(mDataLock);
    mNextUserTimerId = timerId;
}

bool SharedTimer::startByListener(int timerId) {
    SyncGuard const data(mDataLock);
    return outlasts(CTL_STOP, CTL_START, timerId) && mTimers.find(timerId) != nullptr &&
           updateOnStart(timerId) == 0;
}

bool SharedTimer::stopByListener(int timerId) {
    SyncGuard const data(mDataLock);
    mIsDeliveryOver = mIsDeliveryOver || mDelivering == timerId;
    return outlasts(CTL_START, CTL_STOP, timerId) && mTimers.find(timerId) != nullptr &&
           updateOnStop(timerId) == 0;
}

// Whether what a listener asks for will still hold when what other threads have asked for before is
// done: for that it is queued behind the opposite.
bool SharedTimer::outlasts(std::int32_t opposite, std::int32_t msgId, int timerId) {
    return !isQueued(opposite, timerId) || postTimerCtlMsg(msgId, timerId);
}

bool SharedTimer::eraseByListener(int timerId) {
    if (!stopByListener(timerId)) {
        return false;
    }
    SyncGuard const data(mDataLock);
    mTimers.eraseKey(timerId);
    return true;
}

// Nothing to do for a timer that runs, unless it is about to be stopped: what was asked for last
// holds.
bool SharedTimer::startByLoop(int timerId, int noWait) {
    {
        SyncGuard const data(mDataLock);
        TimerInfo const* const info = mTimers.find(timerId);
        if (info == nullptr || isQueued(CTL_ERASE, timerId)) {
            return false;
        }
        if (info->runEvent->isOn() && !isQueued(CTL_STOP, timerId)) {
            return true;
        }
    }
    return askLoop(CTL_START, timerId, noWait);
}

// The other way round.
bool SharedTimer::stopByLoop(int timerId, int noWait) {
    {
        SyncGuard const data(mDataLock);
        TimerInfo const* const info = mTimers.find(timerId);
        if (info == nullptr && mDelivering != timerId) {
            return false;
        }
        // A listener that has stopped its timer may still be at work: the loop answers when it has
        // left.
        bool const isOff = info == nullptr || info->runEvent->isOff();
        if (isOff && mDelivering != timerId && !isQueued(CTL_START, timerId)) {
            return true;
        }
    }
    return askLoop(CTL_STOP, timerId, noWait);
}

// By the loop, so that nobody can start the timer again on the way.
bool SharedTimer::eraseByLoop(int timerId, int noWait) {
    if (noWait == 0) {
        SyncGuard const data(mDataLock);
        if (mTimers.find(timerId) == nullptr && mDelivering != timerId) {
            return false;
        }
    }
    return askLoop(CTL_ERASE, timerId, noWait);
}

// The caller holds the API lock and, unless `noWait` is set, waits for the answer.
bool SharedTimer::askLoop(std::int32_t msgId, int timerId, int noWait) {
    {
        SyncGuard const data(mDataLock);
        if (!mIsLooping || !postTimerCtlMsg(msgId, timerId)) {
            return false;
        }
        if (noWait != 0) {
            return true;
        }
        mRequest.msgId = msgId;
        mRequest.timerId = timerId;
        mRequestEvent.setOn();
    }
    awaitOff(mRequestEvent);
    return mIsRequestServed;
}

// A snapshot of the timers; without memory, none.
template <typename Operation>
void SharedTimer::forEachTimer(Operation operation) const {
    Array<int> ids(0, Array<int>::GROWS);
    if (getTimerIdSet(&ids)) {
        for (unsigned long i = 0; i < ids.count(); ++i) {
            operation(ids[i]);
        }
    }
}

int SharedTimer::requestStop() {
    SyncGuard const data(mDataLock);
    return postTimerCtlMsg(CTL_WAKE_TO_STOP, -1) ? 1 : 0;
}

int SharedTimer::execute() {
    enterLoop();
    Step step;
    do {
        step = executeStep();
    } while (step == Step::NEXT);
    leaveLoop();
    return step == Step::STOPPED ? 0 : -1;
}

// Waits for one word from the pipe and does what it asks for.
SharedTimer::Step SharedTimer::executeStep() {
    WakePipe::Word word;
    if (!mPipe->wait(&word, loopStatement(412), loopStatement(423))) {
        return Step::BROKEN;
    }
    if (word.id == WakePipe::TIMER_SIGNAL) {
        SyncGuard const data(mDataLock);
        executeTimeoutSignal(toUserTimerId(mTimers, word.parameter));
        return Step::NEXT;
    }

    // Any other word is only a wake-up: the queue says what there is to do.
    TimerCtlMsg ctl;
    int result = 0;
    {
        SyncGuard const data(mDataLock);
        if (!mTimerCtlQueue.dequeue(&ctl, 1)) {
            return Step::NEXT;
        }
        result = executeCtl(ctl);
    }
    if (ctl.msgId == CTL_TIMEOUT) {
        result = executeTimeout(ctl.timerId);
    }
    reportAlive(getId(), loopStatement(479));
    if (result != 0) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "!!!!!!!! SharedTimerThread(%s) Error. MsgId:0x%08x !!!!!!!!", getName().c_str(),
               static_cast<unsigned>(ctl.msgId));
    }
    return hasRequestedStop() ? Step::STOPPED : Step::NEXT;
}

// Delivers an expiry, with no lock held. A listener that has stopped its timer, even if it started
// it again, leaves nothing to be done for it.
int SharedTimer::executeTimeout(int timerId) {
    {
        SyncGuard const data(mDataLock);
        mDelivering = timerId;
        mIsDeliveryOver = false;
    }
    onTime(timerId);

    SyncGuard const data(mDataLock);
    mDelivering = -1;
    return mIsDeliveryOver ? 0 : updateOnTimeout(timerId);
}

void SharedTimer::enterLoop() {
    SyncGuard const data(mDataLock);
    mIsLooping = true;
    mHasEnteredLoop.setOn();
}

// Whoever waits for the loop is released, and nobody starts to: both under the lock that they take.
void SharedTimer::leaveLoop() {
    SyncGuard const data(mDataLock);
    mIsLooping = false;
    eraseAllTimer();
}

// A full queue refuses without a word: there are as many requests under way as anybody can want.
bool SharedTimer::postTimerCtlMsg(std::int32_t msgId, int timerId) {
    TimerCtlMsg ctl;
    ctl.msgId = msgId;
    ctl.timerId = timerId;
    // Deliberate: an entry whose wake-up failed stays, and is served when a later one gets through.
    return mTimerCtlQueue.enqueue(&ctl, 1) && mPipe->wake({msgId, timerId});
}

bool SharedTimer::isQueued(std::int32_t msgId, int timerId) {
    for (unsigned long i = 0; i < mTimerCtlQueue.count(); ++i) {
        if (mTimerCtlQueue[i].msgId == msgId && mTimerCtlQueue[i].timerId == timerId) {
            return true;
        }
    }
    return false;
}

// Everything but expiries.
int SharedTimer::executeCtl(TimerCtlMsg const& ctl) {
    bool const isKnown = mTimers.find(ctl.timerId) != nullptr;
    int result = 0;
    switch (ctl.msgId) {
        case CTL_START:
            result = updateOnStart(ctl.timerId);
            answerRequest(ctl, isKnown && result == 0);
            break;
        case CTL_STOP:
            result = updateOnStop(ctl.timerId);
            answerRequest(ctl, result == 0);
            break;
        case CTL_ERASE:
            result = updateOnStop(ctl.timerId);
            mTimers.eraseKey(ctl.timerId);
            answerRequest(ctl, result == 0);
            break;
        default:
            break;
    }
    return result;
}

// Releases the thread that waits for `ctl`, which is the last of its kind in the queue.
void SharedTimer::answerRequest(TimerCtlMsg const& ctl, bool isServed) {
    if (mRequestEvent.isOn() && ctl.msgId == mRequest.msgId && ctl.timerId == mRequest.timerId &&
        !isQueued(ctl.msgId, ctl.timerId)) {
        mIsRequestServed = isServed;
        mRequestEvent.setOff();
    }
}

// A signal has come. Queues an expiry unless enough of them wait.
void SharedTimer::executeTimeoutSignal(int timerId) {
    TimerInfo* const info = mTimers.find(timerId);
    if (info == nullptr || !takesExpiry(*info)) {
        return;
    }
    ++info->pendingCount;
    if (!postTimerCtlMsg(CTL_TIMEOUT, timerId)) {
        --info->pendingCount;
    }
}

// A timer that runs already has its kernel timer; one more would run on after the next stop.
int SharedTimer::updateOnStart(int timerId) {
    TimerInfo* const info = mTimers.find(timerId);
    if (info == nullptr || info->runEvent->isOn()) {
        return 0;
    }
    info->firedCount = 0;
    if (!startTimerByTimerInfo(info)) {
        return -1;
    }
    info->runEvent->setOn();
    return 0;
}

int SharedTimer::updateOnStop(int timerId) {
    TimerInfo* const info = mTimers.find(timerId);
    if (info == nullptr) {
        return 0;
    }
    if (!stopTimerByTimerInfo(timerId, info)) {
        return -1;
    }
    info->runEvent->setOff();
    return 0;
}

int SharedTimer::updateOnTimeout(int timerId) {
    TimerInfo* const info = mTimers.find(timerId);
    if (info == nullptr) {
        return 0;
    }
    ++info->firedCount;
    if (info->pendingCount != 0) {
        --info->pendingCount;
    }
    if (info->repeatCount != 0 && info->firedCount >= info->repeatCount) {
        stopTimerByTimerInfo(timerId, info);
        info->runEvent->setOff();
        return 0;
    }
    if (info->freeRunning != 0 && !info->intervalChanged) {
        return 0;
    }
    // Afresh, so that the next interval begins now, or is the new one.
    if (stopTimerByTimerInfo(timerId, info) && startTimerByTimerInfo(info)) {
        return 0;
    }
    info->runEvent->setOff();  // no expiry will come
    return -1;
}

bool SharedTimer::startTimerByTimerInfo(TimerInfo* info) {
    BlockingCall const blocking(SOURCE, "startTimerByTimerInfo", 655);
    if (!mKernelTimers->start(info)) {
        return false;
    }
    info->intervalChanged = false;
    return true;
}

bool SharedTimer::stopTimerByTimerInfo(int timerId, TimerInfo* info) {
    if (info->systemTimerId == TimerInfo::NO_SYSTEM_TIMER || info->runEvent->isOff()) {
        return true;
    }
    {
        BlockingCall const blocking(SOURCE, "stopTimerByTimerInfo", 698);
        if (!mKernelTimers->remove(*info)) {
            return false;
        }
    }
    mTimerCtlQueue.eraseIf([timerId](TimerCtlMsg const& ctl) {
        return ctl.msgId == CTL_TIMEOUT && ctl.timerId == timerId;
    });
    info->systemTimerId = TimerInfo::NO_SYSTEM_TIMER;
    info->pendingCount = 0;
    return true;
}

void SharedTimer::eraseAllTimer() {
    mTimerCtlQueue.clear();
    for (unsigned long i = 0; i < mTimers.count(); ++i) {
        updateOnStop(mTimers[i].key());
    }
    mTimers.setCount(0);
    // A request to stop a timer has got what it asked for; one to start a timer never will.
    answerRequest(mRequest, mRequest.msgId != CTL_START);
}

}  // namespace utl
