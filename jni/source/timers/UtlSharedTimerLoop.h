// Internal. The loop of a shared timer, with its queue and its timers.

#ifndef UTL_SHARED_TIMER_LOOP_H
#define UTL_SHARED_TIMER_LOOP_H

#include <cstdint>
#include <memory>
#include <optional>

#include "UtlArray.h"
#include "UtlEvent.h"
#include "UtlSharedTimer.h"
#include "UtlThreadSafety.h"

#include "messaging/UtlLoopControl.h"
#include "messaging/UtlTimerTable.h"

namespace utl {

// The public operations return what those of SharedTimer do; any thread may call them. Functions
// whose names end in `Locked` are called with the mutex of the control held; `execute...` and
// `update...` run on the loop's thread.
class SharedTimer::Loop {
public:
    Loop(SharedTimer& timer, unsigned long maxTimerCount);
    ~Loop();

    // Whether anything could wake the thread.
    bool isUsable() const { return mControl != nullptr && mControl->capacity() != 0; }
    LoopControl& control() { return *mControl; }
    bool isLoopThread() const { return LoopControl::current() == mControl.get(); }
    void setNextUserTimerId(int timerId);

    int addTimer(TimerInfo const& info);
    bool start(int timerId, int noWait);
    bool stop(int timerId, int noWait);
    bool eraseTimer(int timerId, int noWait);
    bool setInterval(int timerId, unsigned long intervalMs);
    unsigned long getInterval(int timerId) const;
    bool isRunning(int timerId) const;
    bool getTimerIdSet(Array<int>* ids) const;
    TimerListener* listenerOf(int timerId) const;
    bool requestStop();

    // Blocks until the thread has found the way into run().
    void awaitBegin() const;

    // Loops until the thread is asked to stop or the pipe breaks. The result of the thread.
    int run();

    // The loop's thread destroys its own object: the loop ends, and with it this.
    void outliveThread() { mIsThreadGone = true; }

private:
    enum class Step { NEXT, STOPPED, BROKEN };

    // Another thread's operation: with the right to ask the loop if it is going to wait.
    class Caller {
    public:
        Caller(Loop& loop, int noWait);
        explicit operator bool() const { return !mWaits || *mAsking; }

        // With the mutex held; then, without it, whether what was asked for is done, or queued.
        bool postLocked(std::int32_t msgId, int timerId);
        bool await() { return !mWaits || mAsking->await(); }

    private:
        Loop& mLoop;
        bool const mWaits;
        std::optional<LoopControl::Asking> mAsking;
    };

    bool startByListener(int timerId);
    bool stopByListener(int timerId);
    bool eraseByListener(int timerId);
    bool outlastsLocked(std::int32_t opposite, std::int32_t msgId, int timerId)
        UTL_REQUIRES(mControl->mutex());
    bool isDeliveringLocked(int timerId) const UTL_REQUIRES(mControl->mutex());
    bool isQueuedLocked(std::int32_t msgId, int timerId) const UTL_REQUIRES(mControl->mutex());
    bool postLocked(std::int32_t msgId, int timerId) UTL_REQUIRES(mControl->mutex());

    Step executeStep();
    void executeExpiries();
    void executeTimeoutSignalLocked(int timerId) UTL_REQUIRES(mControl->mutex());
    int executeCtlLocked(TimerCtlMsg const& ctl) UTL_REQUIRES(mControl->mutex());
    int executeTimeout(int timerId);
    void answerLocked(TimerCtlMsg const& ctl, bool isServed) UTL_REQUIRES(mControl->mutex());
    int updateOnStartLocked(int timerId) UTL_REQUIRES(mControl->mutex());
    int updateOnStopLocked(int timerId) UTL_REQUIRES(mControl->mutex());
    int updateOnTimeoutLocked(int timerId) UTL_REQUIRES(mControl->mutex());
    bool startTimerByTimerInfoLocked(int timerId, TimerInfo* info) UTL_REQUIRES(mControl->mutex());
    bool stopTimerByTimerInfoLocked(int timerId, TimerInfo* info) UTL_REQUIRES(mControl->mutex());
    void eraseTimeoutsLocked(int timerId) UTL_REQUIRES(mControl->mutex());
    void eraseAllTimerLocked() UTL_REQUIRES(mControl->mutex());

    SharedTimer& mTimer;
    bool mIsThreadGone = false;  // the loop's
    unsigned const mProcess;     // in which the thread may run
    std::unique_ptr<LoopControl> const mControl;
    Event mHasBegun{0, 0};

    // With the mutex of the control the loop also takes entries.
    TimerTable mTimers UTL_GUARDED_BY(mControl->mutex());
    int mNextUserTimerId UTL_GUARDED_BY(mControl->mutex()) = 1;
    bool mIsLooping UTL_GUARDED_BY(mControl->mutex()) = false;
    // The listener of mDelivered is being called, and has stopped its timer.
    bool mIsDelivering UTL_GUARDED_BY(mControl->mutex()) = false;
    int mDelivered UTL_GUARDED_BY(mControl->mutex()) = -1;
    bool mIsDeliveryOver UTL_GUARDED_BY(mControl->mutex()) = false;
};

}  // namespace utl

#endif  // UTL_SHARED_TIMER_LOOP_H
