// Internal. The system's mutexes.

#ifndef UTL_PLATFORM_MUTEX_H
#define UTL_PLATFORM_MUTEX_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "UtlThreadSafety.h"

namespace utl {
namespace platform {

// Makes `mutex` one that its holder may lock again.
void initializeRecursiveMutex(pthread_mutex_t& mutex);

// For what is held for a few lines only: whoever finds it locked tries again for a moment before
// going to sleep. Not recursive.
class UTL_CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    // An atomic says nothing to the analysis.
    void lock() UTL_ACQUIRE() UTL_NO_THREAD_SAFETY_ANALYSIS {
        std::uint32_t state = FREE;
        if (!mState.compare_exchange_strong(state, LOCKED, std::memory_order_acquire,
                                            std::memory_order_relaxed)) {
            lockOfOthers();
        }
    }
    void unlock() UTL_RELEASE() UTL_NO_THREAD_SAFETY_ANALYSIS {
        if (mState.exchange(FREE, std::memory_order_release) == AWAITED) {
            wakeOne();
        }
    }

    // Tells the analysis that the caller holds it, of which it cannot know: in a lambda, or where
    // the lock has another name. Checks nothing.
    void assumeHeld() const UTL_ASSERT_CAPABILITY() {}

private:
    static constexpr std::uint32_t FREE = 0;
    static constexpr std::uint32_t LOCKED = 1;
    static constexpr std::uint32_t AWAITED = 2;  // locked, and somebody may sleep until it is free

    void lockOfOthers();
    void wakeOne();

    std::atomic<std::uint32_t> mState{FREE};
};

// One of them for a scope.
class UTL_SCOPED_CAPABILITY MutexGuard {
public:
    explicit MutexGuard(Mutex& mutex) UTL_ACQUIRE(mutex) : mMutex(mutex) { mMutex.lock(); }
    ~MutexGuard() UTL_RELEASE() { mMutex.unlock(); }
    MutexGuard(MutexGuard const&) = delete;
    MutexGuard& operator=(MutexGuard const&) = delete;

private:
    Mutex& mMutex;
};

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_MUTEX_H
