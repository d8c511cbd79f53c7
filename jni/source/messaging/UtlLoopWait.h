// Internal. Finds out that threads with loops would wait for each other in a circle, before the
// wait that would close it.
//
//     LoopWait const wait(&awaited);
//     if (wait.isRefused()) { return false; }
//     ... wait until `awaited` has answered, or lets go ...
//
// Only the thread of a loop can be waited for by others, so only its waits are kept: for each the
// innermost that it is in.

#ifndef UTL_LOOP_WAIT_H
#define UTL_LOOP_WAIT_H

#include <atomic>

#include "UtlThreadSafety.h"

#include "platform/UtlStaticLock.h"

namespace utl {

class LoopControl;

// Something that the thread of a loop is in again and again, and that others wait for the end of:
// how often it has begun and ended.
using Turns = std::atomic<unsigned>;

class LoopWait {
public:
    // The calling thread is about to wait for what the thread of `awaited` does; with nullptr, for
    // nobody. A refusal is logged with the names of both.
    explicit LoopWait(LoopControl* awaited) : LoopWait(awaited, nullptr, 0) {}

    // The same for the end of one `turn` only: once that is over, the calling thread stands in
    // nobody's way, although it may not run yet.
    LoopWait(LoopControl* awaited, Turns const& turns, unsigned turn)
        : LoopWait(awaited, &turns, turn) {}
    ~LoopWait();
    LoopWait(LoopWait const&) = delete;
    LoopWait& operator=(LoopWait const&) = delete;

    bool isRefused() const { return mIsRefused; }

    // What the thread of `waiter` waits for is done: from now on it stands in nobody's way,
    // although it may not run yet. nullptr for a thread without a loop.
    static void end(LoopControl* waiter);

private:
    friend class LoopControl;

    // What the thread of a loop waits for.
    struct Edge {
        LoopControl const* loop = nullptr;
        Turns const* turns = nullptr;
        unsigned turn = 0;
    };

    LoopWait(LoopControl* awaited, Turns const* turns, unsigned turn);
    static LoopControl const* awaitedLocked(Edge const& edge) UTL_REQUIRES(mLock);

    static platform::StaticLock mLock;  // of all waits

    LoopControl* const mWaiter;  // nullptr for a thread without a loop, or that waits for nobody
    Edge mOuter;
    bool mIsRefused = false;
};

}  // namespace utl

#endif  // UTL_LOOP_WAIT_H
