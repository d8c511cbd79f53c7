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
        : mTimeoutMs(timeoutMs), mBeginNs(platform::monotonicNanoseconds()) {}

    // As Event::waitToOn() with what is left.
    int wait(Event const& event) const {
        if (mTimeoutMs == 0) {
            return event.waitToOn(0);
        }
        // Whole ones that have passed, not ticks that were seen: nothing ends before its time.
        std::uint64_t const waitedMs =
            (platform::monotonicNanoseconds() - mBeginNs) / platform::NANOSECONDS_PER_MILLISECOND;
        if (waitedMs >= mTimeoutMs) {
            return event.isOn() ? REACHED : TIMED_OUT;
        }
        return event.waitToOn(mTimeoutMs - static_cast<unsigned long>(waitedMs));
    }

    // The same, until the event is on: for one that nobody switches off while somebody waits.
    int await(Event const& event) const {
        return mTimeoutMs == 0 ? awaitOn(event, 0) : wait(event);
    }

private:
    unsigned long const mTimeoutMs;
    std::uint64_t const mBeginNs;
};

}  // namespace utl

#endif  // UTL_DEADLINE_H
