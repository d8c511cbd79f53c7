// Internal. The descriptors that a loop watches, as poll() takes them, behind the pipe that wakes
// it; and those of them that have something to say, one after the other. The loop's alone: others
// change a list that this is made of anew, in less time than poll() takes for it.

#ifndef UTL_POLL_SET_H
#define UTL_POLL_SET_H

#include <poll.h>

#include <cstdint>
#include <memory>

#include "UtlArray.h"

#include "loop/UtlWatchList.h"

namespace utl {

class PollSet {
public:
    struct Ready {
        std::uint32_t owner;
        std::uint32_t generation;
        unsigned events;  // of Loop::Events
    };

    explicit PollSet(unsigned long capacity);
    PollSet(PollSet const&) = delete;
    PollSet& operator=(PollSet const&) = delete;

    // Whether there was memory.
    bool isMade() const { return mPolled != nullptr && mOwners != nullptr; }

    // Nothing has been seen of them yet.
    void assign(WatchList const& watches);
    bool isEmpty() const { return mEnd == 1; }

    // Blocks until `wakeEnd` or a descriptor has something. Whether `wakeEnd` has. When the system
    // refuses, with errno in `*error`, only for `wakeEnd`, and for a moment.
    bool await(int wakeEnd, int* error);

    // The same, but blocks for a moment only.
    bool awaitMoment(int wakeEnd, int* error);

    // Looks at the descriptors without blocking.
    void look();

    // The next one that had something, of those that were seen last.
    bool hasReady() const { return mNext != mEnd; }
    bool takeReady(Ready* ready);

private:
    bool note(int count, int* error);
    bool awaitWakeEndOnly() const;

    struct Owner {
        std::uint32_t place;
        std::uint32_t generation;
    };

    std::unique_ptr<pollfd[]> const mPolled;
    std::unique_ptr<Owner[]> const mOwners;
    std::uint32_t mEnd = 1;
    std::uint32_t mNext = 1;
};

}  // namespace utl

#endif  // UTL_POLL_SET_H
