// Internal. A time limit that holds for several waits together.

#ifndef UTL_DEADLINE_H
#define UTL_DEADLINE_H

#include <cstdint>

#include "UtlEvent.h"

#include "foundation/UtlAwait.h"
#include "platform/UtlClock.h"

namespace utl {

class Deadline {
public:
    // That lies `timeoutMs` milliseconds ahead; 0 for none.
    explicit Deadline(unsigned long timeoutMs)
        : mTimeoutMs(timeoutMs), mBegin(platform::monotonicTick()) {}

    // As Event::waitToOn() with what is left.
    int wait(Event const& event) const {
        if (mTimeoutMs == 0) {
            return event.waitToOn(0);
        }
        std::uint32_t const waited = platform::monotonicTick() - mBegin;  // right across the wrap
        if (waited >= mTimeoutMs) {
            return event.isOn() ? REACHED : TIMED_OUT;
        }
        return event.waitToOn(mTimeoutMs - waited);
    }

    // The same, until the event is on: for one that nobody switches off while somebody waits.
    int await(Event const& event) const {
        return mTimeoutMs == 0 ? awaitOn(event, 0) : wait(event);
    }

private:
    unsigned long const mTimeoutMs;
    std::uint32_t const mBegin;
};

}  // namespace utl

#endif  // UTL_DEADLINE_H
