// Internal. What the loop of a message-driven thread does besides messages and timers, for whoever
// builds on it: it takes entries of its own out of the queue, has a kernel timer, and a word in how
// the loop sleeps.

#ifndef UTL_LOOP_EXTENSION_H
#define UTL_LOOP_EXTENSION_H

#include <atomic>

namespace utl {

class LoopControl;

// Counted: a loop may outlive its thread object, and others the loop.
class LoopExtension {
public:
    // The user id of its kernel timer, which no timer of a thread has.
    static constexpr int TIMER = 0;

    LoopExtension() = default;
    LoopExtension(LoopExtension const&) = delete;
    LoopExtension& operator=(LoopExtension const&) = delete;

    virtual void retain() = 0;
    virtual void release() = 0;

    // How many entries of its own it queues at the most, and how many kernel timers it has.
    virtual unsigned long entryCount() const = 0;
    virtual unsigned long timerCount() const = 0;

    // Any thread: how many entries wait; and how many tasks wait for any reason or, when the loop
    // is over, have waited for nothing.
    virtual unsigned long queuedCount() const = 0;
    virtual unsigned long waitingCount() const = 0;

    // The loop only.

    // The loop begins. False, logged, when it cannot.
    virtual bool enter(LoopControl& control) = 0;

    // Does what the next entry is for.
    virtual void executeEntry() = 0;

    // The kernel timer has expired. With the control's mutex held.
    virtual void expire() = 0;

    // If there is a turn, once for each entry that the loop deals with: does one thing that has no
    // entry. False when there is nothing left.
    bool hasTurn() const { return mHasTurn.load(std::memory_order_relaxed); }
    virtual bool executeTurn() = 0;

    // Blocks until there is a word in the pipe that ends at `wakeEnd`, or something for a turn.
    // False when no word is there.
    virtual bool awaitWord(int wakeEnd) = 0;

    // The loop is over: from now on nothing is taken on and the kernel timer is left alone; and,
    // once nothing can be queued, all that was not run is destroyed.
    virtual void close() = 0;
    virtual void drop() = 0;

protected:
    ~LoopExtension() = default;

    std::atomic<bool> mHasTurn{false};
};

struct ExtensionRelease {
    void operator()(LoopExtension* extension) const { extension->release(); }
};

}  // namespace utl

#endif  // UTL_LOOP_EXTENSION_H
