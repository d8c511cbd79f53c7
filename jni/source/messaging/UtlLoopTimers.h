// Internal. The kernel timers of one loop, and what their signals leave for it.
//
// The signals go to the loop's own thread, which lets them in while it loops, whatever it
// inherited. The handler therefore interrupts nobody else, and may use what the thread knows: it
// counts the expiry at the timer's place, puts the place in a line, and wakes the thread by a word
// in its pipe if that may be asleep.

#ifndef UTL_LOOP_TIMERS_H
#define UTL_LOOP_TIMERS_H

#include <signal.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "UtlThreadSafety.h"
#include "UtlTimerInfo.h"

#include "messaging/UtlWakePipe.h"
#include "platform/UtlStaticLock.h"

namespace utl {

// The handler of a timer signal. Installed once in the process by whoever needs it first and never
// removed. For static storage.
class TimerHandler {
public:
    // `label` heads the log lines: "MsgDrivenThread sigaction ...".
    constexpr TimerHandler(char const* label, int (*number)()) : mLabel(label), mNumber(number) {}

    int signal() const { return mNumber(); }

    // A failure is logged, and tried again by the next caller.
    bool install();

private:
    char const* const mLabel;
    int (*const mNumber)();
    platform::StaticLock mLock{platform::LockOrder::TIMER_HANDLERS};
    bool mIsInstalled UTL_GUARDED_BY(mLock) = false;
};

// Everything is called on the loop's thread, start() to abandon() with its owner's lock held.
class LoopTimers {
public:
    // `label` and `name`, which live as long, head the log lines: "MsgDrivenThread(%s)". Room for
    // `maxTimers`; without memory for none.
    LoopTimers(char const* label, char const* name, TimerHandler& handler, WakePipe& pipe,
               unsigned long maxTimers);

    // Any thread, once the loop has ended.
    ~LoopTimers();
    LoopTimers(LoopTimers const&) = delete;
    LoopTimers& operator=(LoopTimers const&) = delete;

    // The loop begins, and is over: no signal comes any more, and no kernel timer is left.
    void enter();
    void leave();

    // Gives `info`, which has none, a kernel timer that expires every interval. False, logged, with
    // `info` as it was, when the kernel refuses or nobody would take the signal.
    bool start(int userId, TimerInfo* info);

    // Makes a kernel timer that stands still, for `userId`, until the loop is over; any thread may
    // arm it by its kernel id. NO_SYSTEM_TIMER, logged, when the kernel refuses or nobody would
    // take the signal.
    int add(int userId);

    // Lets an interval begin now. False, logged, when the kernel refuses it; the timer is abandoned
    // then.
    bool restart(TimerInfo* info);

    // Stops the timer, but keeps what it needs to start again: as restart() with an interval of 0.
    void hold(TimerInfo const& info);

    // Deletes the kernel timer of `info`, which has none afterwards. False, logged, with `info` as
    // it was, when it is gone.
    bool remove(TimerInfo* info);

    // Leaves the kernel timer of `info`, which has none afterwards, to the next one that needs one;
    // until then it is stopped where it disturbs.
    void abandon(TimerInfo* info);

    // Takes the next timer that has expired: calls `hear` with its user id as often as it has
    // expired, but at the most twice. False when there is none.
    template <typename Hear>
    bool take(Hear hear);

    bool hasExpired() const { return mFirst.load() != mEnd.load(); }

    // Between these two the handler wakes the thread, which may be asleep. False: an expiry came
    // before.
    bool beginSleep();
    void endSleep();

    static void handleSignal(siginfo_t const& info);

private:
    struct Place;

    static constexpr unsigned MOST_EXPIRIES = 2;
    static constexpr int NOBODY = -1;
    static constexpr int NO_PLACE = -1;

    // Of what the handler shares with the thread it interrupts: plain accesses, in their order.
    template <typename T>
    class Shared {
    public:
        Shared() = default;
        explicit Shared(T value) : mValue(value) {}
        T load() const {
            T const value = mValue.load(std::memory_order_relaxed);
            std::atomic_signal_fence(std::memory_order_seq_cst);
            return value;
        }
        void store(T value) {
            std::atomic_signal_fence(std::memory_order_seq_cst);
            mValue.store(value, std::memory_order_relaxed);
            std::atomic_signal_fence(std::memory_order_seq_cst);
        }
        T exchange(T value) {
            std::atomic_signal_fence(std::memory_order_seq_cst);
            T const previous = mValue.exchange(value, std::memory_order_relaxed);
            std::atomic_signal_fence(std::memory_order_seq_cst);
            return previous;
        }

    private:
        std::atomic<T> mValue{};
    };

    struct Expiry {
        int userId;
        unsigned times;
    };

    bool isPlace(int index) const;
    int reusablePlace();
    bool makeKernelTimer(int index);
    bool arm(Place& place, std::int32_t intervalMs);
    bool takeNext(Expiry* expiry);
    void expired(int index, int kernelId);
    void push(int* top, int index);
    int pop(int* top);
    void logError(char const* call, int systemTimerId, int error) const;

    char const* const mLabel;
    char const* const mName;
    TimerHandler& mHandler;
    WakePipe& mPipe;
    unsigned mProcess = 0;  // in which the loop began
    int const mPlaceCount;
    std::unique_ptr<Place[]> const mPlaces;

    // Stacks of places, linked through them: without a kernel timer, and with one that nobody has.
    int mFree = NO_PLACE;
    int mAbandoned = NO_PLACE;

    // The line of places that have expired, each once: a ring with one more slot than places.
    std::unique_ptr<int[]> const mLine;
    Shared<int> mFirst;  // the thread's
    Shared<int> mEnd;    // the handler's
    Shared<bool> mMayBeAsleep;
};

template <typename Hear>
bool LoopTimers::take(Hear hear) {
    Expiry expiry;
    if (!takeNext(&expiry)) {
        return false;
    }
    for (unsigned i = 0; i < expiry.times; ++i) {
        hear(expiry.userId);
    }
    return true;
}

}  // namespace utl

#endif  // UTL_LOOP_TIMERS_H
