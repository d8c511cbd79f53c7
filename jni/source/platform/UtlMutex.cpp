#include "platform/UtlMutex.h"

#include "platform/UtlFutex.h"

namespace utl {
namespace platform {

namespace {

// Few: each takes the word, and what lies beside it, away from the holder. With 40 of them a sender
// and its loop got in each other's way, and a posted message cost a sixth more.
constexpr int TRIES = 3;

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

void Mutex::lockOfOthers() {
    for (int i = 0; i < TRIES; ++i) {
        std::uint32_t state = FREE;
        if (mState.load(std::memory_order_relaxed) == FREE &&
            mState.compare_exchange_weak(state, LOCKED, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
            return;
        }
        relax();
    }
    // Who has slept cannot know whether others still do: he leaves the mark.
    while (mState.exchange(AWAITED, std::memory_order_acquire) != FREE) {
        sleepOnWord(mState, AWAITED);
    }
}

void Mutex::wakeOne() {
    wakeSleeper(&mState);
}

}  // namespace platform
}  // namespace utl
