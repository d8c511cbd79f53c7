// Internal. A recursive lock for objects of static storage: it needs no construction, so that any
// static constructor may use it, and is never destroyed, so that threads may hold it while the
// process exits. Lock it with std::lock_guard.

#ifndef UTL_PLATFORM_STATIC_LOCK_H
#define UTL_PLATFORM_STATIC_LOCK_H

#include <pthread.h>

#include <mutex>

namespace utl {
namespace platform {

class StaticLock {
public:
    constexpr StaticLock() = default;
    StaticLock(StaticLock const&) = delete;
    StaticLock& operator=(StaticLock const&) = delete;

    void lock() { pthread_mutex_lock(&mMutex); }
    void unlock() { pthread_mutex_unlock(&mMutex); }

private:
    pthread_mutex_t mMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
};

using StaticGuard = std::lock_guard<StaticLock>;

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_STATIC_LOCK_H
