// Internal. A recursive lock for objects of static storage: it needs no construction, so that any
// static constructor may use it, and is never destroyed, so that threads may hold it while the
// process exits. A fork waits until it is free, and the child finds it free. Lock it with a
// StaticGuard.

#ifndef UTL_PLATFORM_STATIC_LOCK_H
#define UTL_PLATFORM_STATIC_LOCK_H

#include <pthread.h>

#include <atomic>

#include "UtlThreadSafety.h"

#include "platform/UtlFork.h"

namespace utl {
namespace platform {

// The locks of the process, in the order in which a thread may take them. Two of one order are
// never held together.
enum class LockOrder {
    SCRATCH,         // the working buffers, for as long as somebody has one
    MANAGER,         // there is a thread manager
    REGISTRY,        // its threads
    MEMORY,          // there is a heap accounting
    TIMER_HANDLERS,  // the handlers of timer signals
    PARENT_MODES,    // the directories that are opened up
    HEAP_TABLE,
    COUNTERS,    // the stopwatches by number
    WATCHDOG,    // who is watched
    LOOP_WAITS,  // which loop waits for which
    LOOPS,       // those that run
    LINES,       // the files that are read ahead
    LOG_OUTPUT,
    LOG_TABLE,
    TIME_ZONE  // conversions of times, by lines of the log too
};

class UTL_CAPABILITY("mutex") StaticLock {
public:
    constexpr explicit StaticLock(LockOrder order) : mOrder(order) {}
    StaticLock(StaticLock const&) = delete;
    StaticLock& operator=(StaticLock const&) = delete;

    // Of the system's mutex nothing is said to the analysis.
    void lock() UTL_ACQUIRE() UTL_NO_THREAD_SAFETY_ANALYSIS {
        follow();
        pthread_mutex_lock(&mMutex);
    }
    bool try_lock() UTL_TRY_ACQUIRE(true) {
        follow();
        return pthread_mutex_trylock(&mMutex) == 0;
    }
    void unlock() UTL_RELEASE() UTL_NO_THREAD_SAFETY_ANALYSIS { pthread_mutex_unlock(&mMutex); }

    // As Mutex::assumeHeld().
    void assumeHeld() const UTL_ASSERT_CAPABILITY() {}

private:
    friend bool followForks();
    friend void followForks(StaticLock& lock);

    class List;

    void follow() {
        if (!mIsFollowed.load(std::memory_order_relaxed)) {
            followForks(*this);
        }
    }

    pthread_mutex_t mMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    LockOrder const mOrder;
    std::atomic<bool> mIsFollowed{false};
};

// Holds one for a scope.
class UTL_SCOPED_CAPABILITY StaticGuard {
public:
    explicit StaticGuard(StaticLock& lock) UTL_ACQUIRE(lock) : mLock(lock) { mLock.lock(); }
    ~StaticGuard() UTL_RELEASE() { mLock.unlock(); }
    StaticGuard(StaticGuard const&) = delete;
    StaticGuard& operator=(StaticGuard const&) = delete;

private:
    StaticLock& mLock;
};

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_STATIC_LOCK_H
