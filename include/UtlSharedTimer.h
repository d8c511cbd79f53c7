// A thread that runs any number of millisecond timers and calls their listeners, one after the
// other, when they expire.
//
//     SharedTimer timers("timers", 8);  // up to 8 timers
//     int const id = timers.addTimer(&poller, 500ms);
//     timers.start(id);
//     ...
//     timers.destroy();

#ifndef UTL_SHARED_TIMER_H
#define UTL_SHARED_TIMER_H

#include <cstdint>
#include <memory>

#include "UtlApi.h"
#include "UtlArray.h"
#include "UtlThread.h"

namespace utl {

class TimerListener;

// Any thread may call any operation. Listeners are called with no lock held and may call
// everything; what they ask for is done at once, whatever `noWait` says, also while another thread
// waits for this one.
//
// With `noWait` 0 an operation of another thread blocks until the thread has carried it out or has
// ended; with another value it is queued, which fails while 256 of them wait. What the operations
// lock and whom they may wait for:
//
// | operation                       | locks         | waits for                                |
// |---------------------------------|---------------|------------------------------------------|
// | start, stop, restart,           | request, data | the thread: what it is calling, what was |
// | eraseTimer                      |               | queued before, who asked before          |
// | those with noWait, and addTimer,| data          | nobody                                   |
// | setInterval, isRunning, ...     |               |                                          |
// | destroy                         | data          | the thread's end                         |
//
// A wait that would close a circle, with message-driven threads or other timers that wait for each
// other, is refused and logged. The thread may destroy its own object, in a call of a listener: it
// ends when that has returned.
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

    // The same, without the watchdog.
    SharedTimer(char const* threadName, unsigned long maxTimerCount)
        : SharedTimer(0, 0, nullptr, maxTimerCount, threadName) {}

    // As destroy(), but cannot be refused: where the thread waits for the caller already, that is
    // logged, and both wait for ever. A derived class that overrides onTime() calls destroy() in
    // its own destructor.
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
    int addTimer(TimerListener* listener, Duration interval, unsigned int repeatCount = 0,
                 int freeRunning = 0) {
        return addTimer(listener, interval.atLeastOne(), repeatCount, freeRunning);
    }

    // True also for a timer that runs already. False for an unknown one, and when it cannot be
    // started.
    bool start(int timerId, int noWait = 0);

    // True also for a timer that does not run. With `noWait` 0 no call of its listener is under way
    // or begins afterwards. False for an unknown timer.
    bool stop(int timerId, int noWait = 0);

    // Stops the timer if it runs, and starts it.
    bool restart(int timerId, int noWait = 0);

    // All timers, in ascending order of their ids.
    void startAll(int noWait = 0);
    void stopAll(int noWait = 0);
    void restartAll(int noWait = 0);

    // Stops and forgets a timer. False for an unknown one.
    bool eraseTimer(int timerId, int noWait = 0);

    // Takes effect at the timer's next expiry or start. False for an unknown one. With more than 24
    // days, which the kernel refuses, a timer cannot be started, and one that runs stops there.
    bool setInterval(int timerId, unsigned long intervalMs);
    bool setInterval(int timerId, Duration interval) {
        return setInterval(timerId, interval.atLeastOne());
    }

    // In milliseconds; all bits set for an unknown timer.
    unsigned long getInterval(int timerId) const;

    // False for an unknown timer.
    bool isRunning(int timerId) const;

    // Fills `ids` in ascending order. False for nullptr and without memory.
    bool getTimerIdSet(Array<int>* ids) const;

    // Stops the thread, waits for it and takes it out of the manager's registry; all timers go.
    // False on the thread itself, which would wait for itself.
    bool destroy();

    // As setWatchdogAliveTime(), startWatchdog() and stopWatchdog() of Thread.
    bool setThreadWatchdogAliveTime(unsigned long aliveTimeMs);
    bool setThreadWatchdogAliveTime(Duration aliveTime) {
        return setThreadWatchdogAliveTime(aliveTime.milliseconds());
    }
    bool startThreadWatchdog();
    bool stopThreadWatchdog();

    // On the timer thread: calls the timer's listener.
    virtual void onTime(int timerId);

    // How many requests and expiries wait.
    unsigned long queuedEntriesForTesting() const;

    // The next timer gets this id.
    void setNextUserTimerIdForTesting(int timerId);

protected:
    // The timer loop.
    int execute() override;

    // Wakes the loop.
    int requestStop() override;

private:
    class Loop;

    bool isUsable() const;
    template <typename Operation>
    void forEachTimer(Operation operation);

    std::unique_ptr<Loop> mLoop;
};

}  // namespace utl

#endif  // UTL_SHARED_TIMER_H
