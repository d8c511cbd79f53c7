#include "UtlSharedTimer.h"

#include <new>

#include "UtlTimer.h"

#include "foundation/UtlBlockingCall.h"
#include "timers/UtlSharedTimerLoop.h"

namespace utl {

SharedTimer::SharedTimer(int watchdogMode, unsigned long watchdogAliveTime,
                         WatchdogTimerListener* watchdogListener, unsigned long maxTimerCount,
                         char const* threadName)
    : Thread(threadName, nullptr), mLoop(new (std::nothrow) Loop(*this, maxTimerCount)) {
    if (isUsable() && Thread::start(watchdogMode, watchdogAliveTime, watchdogListener, 1, 0,
                                    ThreadPriority::NORMAL, 0) == 0) {
        // Until the thread has found the way into its loop, by a virtual call, no derived class may
        // go on with the making of this object.
        mLoop->awaitBegin();
    }
}

SharedTimer::~SharedTimer() {
    if (isUsable() && mLoop->isLoopThread()) {
        mLoop.release()->outliveThread();
        return;
    }
    {
        LoopWait const wait(Thread::isRunning() ? &mLoop->control() : nullptr);
        Thread::stop(1, 0);
    }
    if (isUsable() && hasDone(STARTED) && !isOfThisProcess()) {
        mLoop->control().closePipe();
        mLoop.release();  // the parent's thread may have been in the middle of changing it
        return;
    }
    BlockingCall const blocking("jni/source/UtlSharedTimer", "~SharedTimer", 139);
    mLoop.reset();
}

// Without memory for a loop there are no timers, and nothing refers to any.
bool SharedTimer::isUsable() const {
    return mLoop != nullptr && mLoop->isUsable();
}

bool SharedTimer::destroy() {
    if (isCaller()) {
        return false;
    }
    LoopWait const wait(Thread::isRunning() ? &mLoop->control() : nullptr);
    if (wait.isRefused()) {
        Thread::stop(0, 0);
        return false;
    }
    Thread::stop(1, 0);
    leaveManagement();
    return true;
}

int SharedTimer::addTimer(TimerListener* listener, unsigned long intervalMs,
                          unsigned int repeatCount, int freeRunning) {
    TimerInfo const info(listener, intervalMs, repeatCount, freeRunning);
    if (!Thread::isRunning() || hasRequestedStop() || info.runEvent.get() == nullptr) {
        return -1;
    }
    return mLoop->addTimer(info);
}

bool SharedTimer::start(int timerId, int noWait) {
    return Thread::isRunning() && mLoop->start(timerId, noWait);
}

bool SharedTimer::stop(int timerId, int noWait) {
    return Thread::isRunning() && mLoop->stop(timerId, noWait);
}

bool SharedTimer::restart(int timerId, int noWait) {
    return stop(timerId, noWait) && start(timerId, noWait);
}

// A snapshot of the timers; without memory, none.
template <typename Operation>
void SharedTimer::forEachTimer(Operation operation) {
    Array<int> ids(0, Array<int>::GROWS);
    if (getTimerIdSet(&ids)) {
        for (unsigned long i = 0; i < ids.count(); ++i) {
            operation(ids[i]);
        }
    }
}

void SharedTimer::startAll(int noWait) {
    forEachTimer([this, noWait](int timerId) { start(timerId, noWait); });
}

void SharedTimer::stopAll(int noWait) {
    forEachTimer([this, noWait](int timerId) { stop(timerId, noWait); });
}

void SharedTimer::restartAll(int noWait) {
    stopAll(noWait);
    startAll(noWait);
}

bool SharedTimer::eraseTimer(int timerId, int noWait) {
    return Thread::isRunning() && mLoop->eraseTimer(timerId, noWait);
}

bool SharedTimer::setInterval(int timerId, unsigned long intervalMs) {
    return Thread::isRunning() && mLoop->setInterval(timerId, intervalMs);
}

unsigned long SharedTimer::getInterval(int timerId) const {
    return Thread::isRunning() ? mLoop->getInterval(timerId) : NONE;
}

bool SharedTimer::isRunning(int timerId) const {
    return Thread::isRunning() && mLoop->isRunning(timerId);
}

bool SharedTimer::getTimerIdSet(Array<int>* ids) const {
    if (ids == nullptr) {
        return false;
    }
    ids->setCount(0);
    return !Thread::isRunning() || mLoop->getTimerIdSet(ids);
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
    if (TimerListener* const listener = mLoop->listenerOf(timerId)) {
        listener->onTime(timerId);
    }
}

unsigned long SharedTimer::queuedEntriesForTesting() const {
    return mLoop->control().count();
}

void SharedTimer::setNextUserTimerIdForTesting(int timerId) {
    mLoop->setNextUserTimerId(timerId);
}

int SharedTimer::execute() {
    return mLoop->run();
}

int SharedTimer::requestStop() {
    return mLoop->requestStop() ? 1 : 0;
}

}  // namespace utl
