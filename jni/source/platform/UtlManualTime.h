// Internal. Time that stands still until somebody moves it: what a ManualClock puts in the place of
// the kernel's clock, timers and waits. There is one in the process, in use or not, and it is never
// destroyed: who has found it in use may still be in it when it is not any more.
//
//     if (ManualTime* const time = ManualTime::inUse()) { return time->sleep(nanoseconds); }
//
// It knows who is at work: the threads that the library has started meanwhile, but for those that
// wait by its means, and whoever was released and has not returned yet. A thread is counted by the
// one that releases it, so that nobody looks idle between a wake-up and its effect; a thread that
// waits for descriptors is released by them, and they are asked. Time moves on only when nobody is
// at work: when all that was caused is over.

#ifndef UTL_PLATFORM_MANUAL_TIME_H
#define UTL_PLATFORM_MANUAL_TIME_H

#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "UtlThreadSafety.h"

#include "platform/UtlFutex.h"

namespace utl {
namespace platform {

class UTL_CAPABILITY("mutex") ManualTime {
public:
    // nullptr: the kernel's time holds, as in a child of the process that uses this one.
    // Async-signal-safe.
    static ManualTime* inUse() {
        return used.load(std::memory_order_relaxed) != nullptr ? usedHere() : nullptr;
    }

    // For its owner.

    // Takes over at the next whole second of the kernel's time. nullptr when it is in use already,
    // or that cannot be read.
    static ManualTime* begin();

    // The kernel's time holds again. Who waits is released, as if the limit had come if there is
    // one. Returns how many timers stand still for good.
    int end();

    // Blocks until nobody is at work, or for so many seconds of the kernel's time; how many are.
    int awaitRest(int patienceS);

    // When nobody is: goes on to the next moment at which something is due, unless it is over, but
    // not beyond `target`, and lets one thing happen. False when there is none, and time is
    // `target`.
    bool step(std::uint64_t target);

    // When nobody is: goes on to `moment`, and lets nothing happen.
    void jump(std::uint64_t moment) { mNow.store(moment); }

    // The next moment at which something is due, or NO_LIMIT.
    std::uint64_t nextDue() const;

    // Whether the calling thread is one of those that are waited for.
    bool isWorker() const;

    // For the rest of the platform layer.

    // Async-signal-safe.
    std::uint64_t now() const { return mNow.load(std::memory_order_acquire); }

    // As waitWord() and wakeWord().
    int wait(std::atomic<std::uint32_t> const& word, std::uint32_t expected, std::uint32_t channels,
             std::uint64_t limit);
    void wake(std::atomic<std::uint32_t> const* word, std::uint32_t channels);

    // An expiry of one of the thread's own timers ends it.
    void sleep(std::uint64_t nanoseconds);

    // poll() without a limit, in which no signal is seen.
    int awaitDescriptors(pollfd* descriptors, nfds_t count);

    // For a kernel timer that the calling thread has made: false without memory.
    bool addTimer(int kernelId);
    void removeTimer(int kernelId);

    // Lets it expire at a moment, NO_LIMIT for never, and then every `interval`, if that is not 0.
    // False when it was not made under this.
    bool armTimer(int kernelId, std::uint64_t moment, std::uint64_t interval);

    // The handler of its signal has returned. Async-signal-safe.
    void finishExpiry(int kernelId);

    // Counts a thread that the calling one is about to start: the number of the use in which it is
    // counted, or 0. And takes that back, when there will be none.
    static unsigned countWorker();
    static void forgetWorker(unsigned use);

    // The calling thread, counted in that use, for a scope.
    class Worker {
    public:
        explicit Worker(unsigned use);
        ~Worker();
        Worker(Worker const&) = delete;
        Worker& operator=(Worker const&) = delete;
    };

private:
    // When something happens. Of two things at one moment, what was armed first comes first.
    struct Due {
        std::uint64_t moment = NO_LIMIT;
        std::uint64_t order = 0;

        bool isBefore(Due const& other) const {
            return moment != other.moment ? moment < other.moment : order < other.order;
        }
    };
    struct Timer;
    struct Wait;
    struct DescriptorWait;
    class Lock;

    static constexpr std::uint32_t NO_TIMER = UINT32_MAX;

    constexpr ManualTime() = default;

    static ManualTime* usedHere();
    bool isWorkerLocked() const UTL_REQUIRES(this);
    int atWorkLocked() const UTL_REQUIRES(this);
    void changeWorkLocked(unsigned use, int by) UTL_REQUIRES(this);
    Due dueLocked(std::uint64_t moment) UTL_REQUIRES(this);
    int waitLocked(Lock* lock, void const* word, std::uint32_t channels, std::uint64_t limit)
        UTL_REQUIRES(this);
    void releaseLocked(Wait* wait, int result) UTL_REQUIRES(this);
    Timer* findTimerLocked(int kernelId) const UTL_REQUIRES(this);
    void expireLocked(Timer* timer) UTL_REQUIRES(this);
    void awaitHandler() const;
    void endSleepOf(int threadId, std::uint64_t last);

    static std::atomic<ManualTime*> used;
    static ManualTime theOne;

    std::atomic<unsigned> mProcess{0};
    std::atomic<std::uint64_t> mNow{0};
    std::atomic<std::uint32_t> mExpiring{NO_TIMER};  // the timer whose signal is under way

    mutable pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t mWorkChanged = PTHREAD_COND_INITIALIZER;

    // Who holds the mutex holds the object, by a Lock. Nodes that are no timers are on the stacks
    // of those who wait.
    unsigned mUse UTL_GUARDED_BY(this) = 0;  // 0 while it is not in use
    std::uint64_t mOrder UTL_GUARDED_BY(this) = 0;
    int mAtWork UTL_GUARDED_BY(this) = 0;
    Timer* mTimers UTL_GUARDED_BY(this) = nullptr;
    Wait* mWaits UTL_GUARDED_BY(this) = nullptr;
    DescriptorWait* mDescriptorWaits UTL_GUARDED_BY(this) = nullptr;
};

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_MANUAL_TIME_H
