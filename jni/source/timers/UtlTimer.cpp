#include "UtlTimer.h"

namespace utl {

TimerListener::~TimerListener() = default;

Timer::Timer(unsigned long intervalMs, int watchdogMode, unsigned long watchdogAliveTime,
             WatchdogTimerListener* watchdogListener, unsigned int repeatCount, int freeRunning,
             char const* threadName)
    : Timer(nullptr, intervalMs, watchdogMode, watchdogAliveTime, watchdogListener, repeatCount,
            freeRunning, threadName) {}

Timer::Timer(TimerListener* listener, unsigned long intervalMs, int watchdogMode,
             unsigned long watchdogAliveTime, WatchdogTimerListener* watchdogListener,
             unsigned int repeatCount, int freeRunning, char const* threadName)
    : mSharedTimer(watchdogMode, watchdogAliveTime, watchdogListener, 1, threadName),
      mListener(listener),
      mTimerId(mSharedTimer.addTimer(this, intervalMs, repeatCount, freeRunning)) {}

// The thread calls this object: it ends before anything here goes.
Timer::~Timer() {
    destroy();
}

bool Timer::start(int noWait) {
    return mSharedTimer.start(mTimerId, noWait);
}

bool Timer::stop(int noWait) {
    return mSharedTimer.stop(mTimerId, noWait);
}

bool Timer::restart(int noWait) {
    return mSharedTimer.restart(mTimerId, noWait);
}

bool Timer::setInterval(unsigned long intervalMs) {
    return mSharedTimer.setInterval(mTimerId, intervalMs);
}

unsigned long Timer::getInterval() const {
    return mSharedTimer.getInterval(mTimerId);
}

bool Timer::isRunning() const {
    return mSharedTimer.isRunning(mTimerId);
}

bool Timer::destroy() {
    return mSharedTimer.destroy();
}

void Timer::onTime(int timerId) {
    if (mListener != nullptr) {
        mListener->onTime(timerId);
    }
}

}  // namespace utl
