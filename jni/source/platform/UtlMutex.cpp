#include "platform/UtlMutex.h"

namespace utl {
namespace platform {

namespace {

// About as long as a holder needs, and far less than going to sleep costs.
constexpr int TRIES = 40;

void relax() {
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

}  // namespace

void initializeRecursiveMutex(pthread_mutex_t& mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void Mutex::lock() {
    for (int i = 0; i < TRIES; ++i) {
        if (pthread_mutex_trylock(&mMutex) == 0) {
            return;
        }
        relax();
    }
    pthread_mutex_lock(&mMutex);
}

}  // namespace platform
}  // namespace utl
