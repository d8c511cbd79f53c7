// Internal. What fork() does to the library: the child has one thread, and no lock of the whole
// process (StaticLock) is held by one that is not there.
//
// What belongs to a single object may be locked for ever in the child. Its owner keeps the number
// of the process that it works in, and looks at it before it locks anything:
//
//     if (mProcess != platform::processNumber()) { return 0; }  // the thread is the parent's

#ifndef UTL_PLATFORM_FORK_H
#define UTL_PLATFORM_FORK_H

#include <atomic>

namespace utl {
namespace platform {

class StaticLock;

extern std::atomic<unsigned> processNumberNow;

// One more in a child than in its parent. Async-signal-safe.
inline unsigned processNumber() {
    return processNumberNow.load(std::memory_order_relaxed);
}

// What is to be done in the child, where all StaticLocks are free and nobody else is there; its
// thread had the id that is given in the parent, or 0 if nobody has ever asked for it. One function
// for the whole process.
void onFork(void (*inChild)(int parentsThreadId));

// What is to be done before each fork, with all StaticLocks held. One function for the whole
// process.
void beforeForks(void (*function)());

// From here on forks are followed; false without memory.
bool followForks();

// Another number after each fork that was followed, in the parent as well as in the child. Never 0.
extern std::atomic<unsigned> forks;
inline unsigned forkCount() {
    return forks.load(std::memory_order_relaxed);
}

// From here on forks take `lock`, which is the first thing its first user does.
void followForks(StaticLock& lock);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_FORK_H
