// One timer with a thread of its own.
//
//     class Blinker : public TimerListener {
//         void onTime(int timerId) override { ... }
//     };
//
//     Blinker blinker;
//     Timer timer(&blinker, 500ms, "blinker");
//     timer.start();
//     ...
//     timer.destroy();

#ifndef UTL_TIMER_H
#define UTL_TIMER_H

#include "UtlApi.h"
#include "UtlSharedTimer.h"

namespace utl {

class WatchdogTimerListener;

// Who is called when a timer expires.
class UTL_API TimerListener {
public:
    virtual ~TimerListener();

    // On the timer's thread.
    virtual void onTime(int timerId) = 0;
};

// Any thread may call any operation, and so may onTime(), but for destroy(). The operations, their
// results and the meaning of `noWait` are those of SharedTimer.
class UTL_API Timer : public TimerListener {
public:
    // A stopped timer that expires every `intervalMs` milliseconds, `repeatCount` times or, with 0,
    // without end; `freeRunning` as in SharedTimer::addTimer(), the other arguments as in
    // SharedTimer. It calls its own onTime(), for a derived class to override. That class calls
    // destroy() in its own destructor: expiries that come when it is half gone would not reach it.
    Timer(unsigned long intervalMs, int watchdogMode, unsigned long watchdogAliveTime,
          WatchdogTimerListener* watchdogListener, unsigned int repeatCount, int freeRunning,
          char const* threadName);

    // Calls `listener`, which must live as long as the timer runs; nullptr for nobody.
    Timer(TimerListener* listener, unsigned long intervalMs, int watchdogMode,
          unsigned long watchdogAliveTime, WatchdogTimerListener* watchdogListener,
          unsigned int repeatCount, int freeRunning, char const* threadName);

    // The same, without the watchdog.
    Timer(TimerListener* listener, Duration interval, char const* threadName,
          unsigned int repeatCount = 0, int freeRunning = 0)
        : Timer(listener, interval.atLeastOne(), 0, 0, nullptr, repeatCount, freeRunning,
                threadName) {}

    // As destroy().
    ~Timer() override;
    Timer(Timer const&) = delete;
    Timer& operator=(Timer const&) = delete;

    // As in SharedTimer, for this one timer.
    bool start(int noWait = 0);
    bool stop(int noWait = 0);
    bool restart(int noWait = 0);
    bool setInterval(unsigned long intervalMs);
    bool setInterval(Duration interval) { return setInterval(interval.atLeastOne()); }
    unsigned long getInterval() const;
    bool isRunning() const;

    // Ends the timer for good.
    bool destroy();

    // Calls the listener, if there is one.
    void onTime(int timerId) override;

private:
    SharedTimer mSharedTimer;
    TimerListener* const mListener;
    int const mTimerId;
};

}  // namespace utl

#endif  // UTL_TIMER_H
