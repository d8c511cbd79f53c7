// Internal. The loop of a shared timer, with its queue and its timers.

#ifndef UTL_SHARED_TIMER_LOOP_H
#define UTL_SHARED_TIMER_LOOP_H

#include <cstdint>
#include <memory>
#include <optional>

#include "UtlArray.h"
#include "UtlEvent.h"
#include "UtlSharedTimer.h"

#include "messaging/UtlLoopControl.h"
#include "messaging/UtlTimerTable.h"

namespace utl {

// The public operations return what those of SharedTimer do; any thread may call them. Functions
// whose names end in `Locked` are called with the mutex of the control held; `execute...` and
// `update...` run on the loop's thread.
class SharedTimer::Loop {
public:
    Loop(SharedTimer& timer, unsigned long maxTimerCount);

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
    bool outlastsLocked(std::int32_t opposite, std::int32_t msgId, int timerId);
    bool isDeliveringLocked(int timerId) const;
    bool isQueuedLocked(std::int32_t msgId, int timerId) const;
    bool postLocked(std::int32_t msgId, int timerId);

    Step executeStep();
    void executeExpiries();
    void executeTimeoutSignalLocked(int timerId);
    int executeCtlLocked(TimerCtlMsg const& ctl);
    int executeTimeout(int timerId);
    void answerLocked(TimerCtlMsg const& ctl, bool isServed);
    int updateOnStartLocked(int timerId);
    int updateOnStopLocked(int timerId);
    int updateOnTimeoutLocked(int timerId);
    bool startTimerByTimerInfoLocked(int timerId, TimerInfo* info);
    bool stopTimerByTimerInfoLocked(int timerId, TimerInfo* info);
    void eraseTimeoutsLocked(int timerId);
    void eraseAllTimerLocked();

    SharedTimer& mTimer;
    bool mIsThreadGone = false;  // the loop's
    unsigned const mProcess;     // in which the thread may run
    std::unique_ptr<LoopControl> const mControl;
    Event mHasBegun{0, 0};

    // Guarded by the mutex of the control, with which the loop also takes entries.
    TimerTable mTimers;
    int mNextUserTimerId = 1;
    bool mIsLooping = false;
    bool mIsDelivering = false;  // the listener of mDelivered is being called
    int mDelivered = -1;
    bool mIsDeliveryOver = false;  // that listener has stopped its timer
};

}  // namespace utl

#endif  // UTL_SHARED_TIMER_LOOP_H
