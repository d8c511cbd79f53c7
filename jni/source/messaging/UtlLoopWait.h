// Internal. Finds out that threads with loops would wait for each other in a circle, before the
// wait that would close it.
//
//     LoopWait const wait(awaited);
//     if (wait.isRefused()) { return false; }
//     ... wait until `awaited` has answered, or lets go ...
//
// Only the thread of a loop can be waited for by others, so only its waits are kept: for each the
// innermost that it is in.

#ifndef UTL_LOOP_WAIT_H
#define UTL_LOOP_WAIT_H

namespace utl {

class LoopControl;

class LoopWait {
public:
    // The calling thread is about to wait for what the thread of `awaited` does. A refusal is
    // logged with the names of both.
    explicit LoopWait(LoopControl& awaited);
    ~LoopWait();
    LoopWait(LoopWait const&) = delete;
    LoopWait& operator=(LoopWait const&) = delete;

    bool isRefused() const { return mIsRefused; }

    // What the thread of `waiter` waits for is done: from now on it stands in nobody's way,
    // although it may not run yet. nullptr for a thread without a loop.
    static void end(LoopControl* waiter);

private:
    LoopControl* const mWaiter;  // nullptr for a thread without a loop
    LoopControl const* mOuter = nullptr;
    bool mIsRefused = false;
};

}  // namespace utl

#endif  // UTL_LOOP_WAIT_H
