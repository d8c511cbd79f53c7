// Internal. The system's mutexes.

#ifndef UTL_PLATFORM_MUTEX_H
#define UTL_PLATFORM_MUTEX_H

#include <pthread.h>

#include <mutex>

namespace utl {
namespace platform {

// Makes `mutex` one that its holder may lock again.
void initializeRecursiveMutex(pthread_mutex_t& mutex);

// For what is held for a few lines only: whoever finds it locked tries again for a moment before
// going to sleep. Not recursive. Lock it with a MutexGuard.
class Mutex {
public:
    Mutex() = default;
    ~Mutex() { pthread_mutex_destroy(&mMutex); }
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    void lock();
    void unlock() { pthread_mutex_unlock(&mMutex); }

private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
};

using MutexGuard = std::lock_guard<Mutex>;

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_MUTEX_H
