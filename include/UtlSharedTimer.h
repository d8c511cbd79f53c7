// A thread that runs any number of millisecond timers and calls their listeners, one after the
// other, when they expire.
//
//     SharedTimer timers(0, 0, nullptr, 8, "timers");  // not watched, up to 8 timers
//     int const id = timers.addTimer(&poller, 500, 0, 0);
//     timers.start(id, 0);
//     ...
//     timers.destroy();

#ifndef UTL_SHARED_TIMER_H
#define UTL_SHARED_TIMER_H

#include <cstdint>
#include <memory>

#include "UtlApi.h"
#include "UtlArray.h"
#include "UtlEvent.h"
#include "UtlMap.h"
#include "UtlQueue.h"
#include "UtlSyncObject.h"
#include "UtlThread.h"
#include "UtlTimerInfo.h"

namespace utl {

class LoopPipe;
class OwnedTimers;

// Any thread may call any operation; but the thread itself must not destroy its object. Listeners
// are called with no lock held and may call everything but destroy(): what they ask for is done at
// once, whatever `noWait` says, also while another thread waits for this one.
//
// With `noWait` 0 an operation of another thread blocks until the thread has carried it out or has
// ended; with another value it is queued, which fails while 256 of them wait.
class UTL_API SharedTimer : private Thread {
public:
    // Two words of the machine: what the pipe carries and the control queue holds.
    struct TimerCtlMsg {
        std::int32_t msgId = -1;
        std::int32_t timerId = -1;
    };

    // Starts the thread, with the watchdog's arguments as in Thread::start(). There is room for
    // `maxTimerCount` timers. When the pipe, which is logged, or the thread cannot be made,
    // addTimer() refuses.
    SharedTimer(int watchdogMode, unsigned long watchdogAliveTime,
                WatchdogTimerListener* watchdogListener, unsigned long maxTimerCount,
                char const* threadName);

    // As destroy(). A derived class that overrides onTime() calls destroy() in its own destructor.
    ~SharedTimer() override;
    SharedTimer(SharedTimer const&) = delete;
    SharedTimer& operator=(SharedTimer const&) = delete;

    // Makes a stopped timer that expires every `intervalMs` milliseconds (with 0 never),
    // `repeatCount` times or, with 0, without end. With `freeRunning` 0 the next interval begins
    // when an expiry has been handled, and at most one waits to be; otherwise the interval runs on,
    // and at most two wait. `listener`, which may be null, must live as long as the timer. The
    // timer's id, which is positive, or -1: there is no more room, or the thread is ending.
    int addTimer(TimerListener* listener, unsigned long intervalMs, unsigned int repeatCount,
                 int freeRunning);

    // True also for a timer that runs already. False for an unknown one, and when it cannot be
    // started.
    bool start(int timerId, int noWait);

    // True also for a timer that does not run. With `noWait` 0 no call of its listener begins
    // afterwards. False for an unknown timer.
    bool stop(int timerId, int noWait);

    // Stops the timer if it runs, and starts it.
    bool restart(int timerId, int noWait);

    // All timers, in ascending order of their ids.
    void startAll(int noWait);
    void stopAll(int noWait);
    void restartAll(int noWait);

    // Stops and forgets a timer. With `noWait` 0 false for an unknown one.
    bool eraseTimer(int timerId, int noWait);

    // Takes effect at the timer's next expiry or start. False for an unknown one.
    bool setInterval(int timerId, unsigned long intervalMs);

    // In milliseconds; all bits set for an unknown timer.
    unsigned long getInterval(int timerId) const;

    bool isRunning(int timerId) const;

    // Fills `ids` in ascending order. False for nullptr and without memory.
    bool getTimerIdSet(Array<int>* ids) const;

    // Stops the thread, waits for it and takes it out of the manager's registry; all timers go.
    // False on the thread itself, which would wait for itself.
    bool destroy();

    // As setWatchdogAliveTime(), startWatchdog() and stopWatchdog() of Thread.
    bool setThreadWatchdogAliveTime(unsigned long aliveTimeMs);
    bool startThreadWatchdog();
    bool stopThreadWatchdog();

    // On the timer thread: calls the timer's listener.
    virtual void onTime(int timerId);

    // The next timer gets this id.
    void setNextUserTimerIdForTesting(int timerId);

protected:
    // The timer loop.
    int execute() override;

    // Wakes the loop.
    int requestStop() override;

private:
    enum class Step { NEXT, STOPPED, BROKEN };
    class ApiGuard;

    bool startByListener(int timerId);
    bool stopByListener(int timerId);
    bool eraseByListener(int timerId);
    bool startByLoop(int timerId, int noWait);
    bool stopByLoop(int timerId, int noWait);
    bool eraseByLoop(int timerId, int noWait);
    bool askLoop(std::int32_t msgId, int timerId, int noWait);
    template <typename Operation>
    void forEachTimer(Operation operation) const;

    Step executeStep();
    int executeTimeout(int timerId);
    void enterLoop();
    void leaveLoop();

    // All of these with the data lock held.
    bool outlasts(std::int32_t opposite, std::int32_t msgId, int timerId);
    bool postTimerCtlMsg(std::int32_t msgId, int timerId);
    bool isQueued(std::int32_t msgId, int timerId);
    int executeCtl(TimerCtlMsg const& ctl);
    void executeTimeoutSignal(int timerId);
    int updateOnStart(int timerId);
    int updateOnStop(int timerId);
    int updateOnTimeout(int timerId);
    bool startTimerByTimerInfo(TimerInfo* info);
    bool stopTimerByTimerInfo(int timerId, TimerInfo* info);
    void eraseAllTimer();
    void answerRequest(TimerCtlMsg const& ctl, bool isServed);

    // Locks, outer first. Other threads hold the API lock for a whole operation, waits for the loop
    // included, so that one of them is served at a time. The loop takes only the data lock.
    SyncObject mApiLock;
    mutable SyncObject mDataLock;

    // Guarded by mDataLock from here on.
    Queue<TimerCtlMsg> mTimerCtlQueue;
    Map<int, TimerInfo> mTimers;
    int mNextUserTimerId = 1;
    bool mIsLooping = false;

    // The request of another thread, one at a time. The event is on until the loop has carried it
    // out or has ended; the answer is good while the asking thread holds the API lock.
    Event mRequestEvent;
    TimerCtlMsg mRequest;
    bool mIsRequestServed = false;

    int mDelivering = -1;          // the timer whose listener is being called
    bool mIsDeliveryOver = false;  // that listener has stopped it

    Event mHasEnteredLoop;  // from here on nothing is guarded: made once

    // The kernel's timers go first: their signals find the pipe.
    std::unique_ptr<LoopPipe> mPipe;
    std::unique_ptr<OwnedTimers> mKernelTimers;
};

}  // namespace utl

#endif  // UTL_SHARED_TIMER_H
