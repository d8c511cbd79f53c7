// Internal. The kernel timers of one thread: those that it made and did not delete go with it.

#ifndef UTL_OWNED_TIMERS_H
#define UTL_OWNED_TIMERS_H

#include "UtlArray.h"
#include "UtlThread.h"
#include "UtlTimerInfo.h"

#include "platform/UtlKernelTimer.h"
#include "platform/UtlStaticLock.h"

namespace utl {

// Guarded by its owner's lock.
class OwnedTimers {
public:
    // `label` and the thread's name head the log lines: "MsgDrivenThread(%s)". The timers raise
    // `signal` carrying `carriedValue`. There is room for `maxTimers` at first.
    OwnedTimers(char const* label, Thread const& owner, int signal, int carriedValue,
                unsigned long maxTimers);
    ~OwnedTimers();
    OwnedTimers(OwnedTimers const&) = delete;
    OwnedTimers& operator=(OwnedTimers const&) = delete;

    // Gives `info` a kernel timer that expires every interval. False, logged, with its system timer
    // id as it was, when the kernel refuses; EAGAIN when the process has no more signals to queue.
    bool start(TimerInfo* info);

    // Deletes the kernel timer of `info`, which keeps the id. False, logged, when it is gone.
    bool remove(TimerInfo const& info);

private:
    void logError(char const* call, int systemTimerId, int error) const;

    char const* const mLabel;
    Thread const& mOwner;
    int const mSignal;
    int const mCarriedValue;
    Array<int> mKernelIds;  // made and not deleted
};

// The handler of a timer signal, which wakes the loop whose pipe the signal carries. Installed once
// in the process by whoever needs it first and never removed. For static storage.
class TimerHandler {
public:
    // `label` heads the log lines: "MsgDrivenThread sigaction ...".
    constexpr explicit TimerHandler(char const* label) : mLabel(label) {}

    // A failure is logged, and tried again by the next caller.
    void install(int signal);

private:
    char const* const mLabel;
    platform::StaticLock mLock;
    bool mIsInstalled = false;  // guarded by mLock
};

}  // namespace utl

#endif  // UTL_OWNED_TIMERS_H
