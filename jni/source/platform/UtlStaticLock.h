// Internal. A recursive lock for objects of static storage: it needs no construction, so that any
// static constructor may use it, and is never destroyed, so that threads may hold it while the
// process exits. A fork waits until it is free, and the child finds it free. Lock it with a
// StaticGuard.

#ifndef UTL_PLATFORM_STATIC_LOCK_H
#define UTL_PLATFORM_STATIC_LOCK_H

#include <pthread.h>

#include <atomic>
#include <mutex>

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

class StaticLock {
public:
    constexpr explicit StaticLock(LockOrder order) : mOrder(order) {}
    StaticLock(StaticLock const&) = delete;
    StaticLock& operator=(StaticLock const&) = delete;

    void lock() {
        follow();
        pthread_mutex_lock(&mMutex);
    }
    bool try_lock() {
        follow();
        return pthread_mutex_trylock(&mMutex) == 0;
    }
    void unlock() { pthread_mutex_unlock(&mMutex); }

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

using StaticGuard = std::lock_guard<StaticLock>;

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_STATIC_LOCK_H
