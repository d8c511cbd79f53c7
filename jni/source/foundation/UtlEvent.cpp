#include "UtlEvent.h"

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "platform/UtlClock.h"
#include "platform/UtlFutex.h"

namespace utl {

// One of the two states as somebody waits for it.
struct Event::Side {
    char const* name;
    std::uint32_t value;    // of the bit ON
    std::uint32_t waiters;  // the bit that says that somebody waits; also what they are woken by
    std::uint32_t count;    // the bits that count how often this side was reached
    std::uint32_t one;      // their lowest

    bool isReached(std::uint32_t state) const { return (state & ON) == value; }
    bool isCounted(std::uint32_t state, std::uint32_t seen) const {
        return ((state ^ seen) & count) != 0;
    }
    std::uint32_t reachedFrom(std::uint32_t state) const {
        std::uint32_t const counted = (state & ~count) | ((state + one) & count);
        return (counted & ~(ON | waiters)) | value;
    }
};

constexpr Event::Side Event::ON_SIDE = {"mOn", ON, 1u << 1, 0x7FFFu << 3, 1u << 3};
constexpr Event::Side Event::OFF_SIDE = {"mOff", 0, 1u << 2, 0x3FFFu << 18, 1u << 18};

Event::Event(int initialOn, int mode) : mMode(mode), mState(initialOn != 0 ? ON : 0) {}

Event::~Event() = default;

void Event::setOn() {
    change(ON_SIDE);
}

void Event::setOff() {
    change(OFF_SIDE);
}

int Event::waitToOn(unsigned long timeout) const {
    return wait(ON_SIDE, timeout);
}

int Event::waitToOff(unsigned long timeout) const {
    return mMode == TWO_CONDITIONS ? wait(OFF_SIDE, timeout) : WAIT_FAILED;
}

void Event::change(Side const& side) const {
    std::uint32_t state = mState.load(std::memory_order_relaxed);
    while (!mState.compare_exchange_weak(state, side.reachedFrom(state), std::memory_order_acq_rel,
                                         std::memory_order_relaxed)) {
    }
    if ((state & side.waiters) != 0) {
        platform::wakeWord(&mState, side.waiters);
    }
}

// `timeout` in milliseconds, 0 for no limit.
int Event::wait(Side const& side, unsigned long timeout) const {
    std::uint32_t state = mState.load(std::memory_order_acquire);
    if (side.isReached(state)) {
        return REACHED;
    }
    if (timeout == 0) {
        // Deliberate: not a loop. A pulse (on, and off again at once) must release every untimed
        // waiter, and those who need the state ask for it again.
        return awaitChange(side, state, 0);
    }

    unsigned long remaining = timeout;
    for (;;) {
        std::uint32_t const begin = platform::monotonicTick();
        int const result = awaitChange(side, state, remaining);
        state = mState.load(std::memory_order_acquire);
        if (result != REACHED || side.isReached(state)) {
            return result;
        }

        std::uint32_t const waited = platform::monotonicTick() - begin;  // right across the wrap
        if (waited >= remaining) {
            return TIMED_OUT;
        }
        remaining -= waited;
        applog(LIBRARY_LOG, LEVEL_DETAIL,
               "Wait OK, but Status(%s)=false.  Timeout=%lumsec Waited=%lumsec Retry wait %lumsec "
               "after",
               side.name, timeout, static_cast<unsigned long>(waited), remaining);
    }
}

// Blocks until `side` has been reached, perhaps only for a moment, since the state was `seen`.
int Event::awaitChange(Side const& side, std::uint32_t seen, unsigned long timeout) const {
    std::uint64_t limit;
    if (!platform::limitAfter(timeout, &limit)) {
        return WAIT_FAILED;
    }
    std::uint32_t state = seen;
    for (;;) {
        std::uint32_t const awaited = state | side.waiters;
        if (mState.compare_exchange_strong(state, awaited, std::memory_order_acq_rel,
                                           std::memory_order_acquire)) {
            int const result = platform::waitWord(mState, awaited, side.waiters, limit);
            if (result != REACHED) {
                return result;
            }
            state = mState.load(std::memory_order_acquire);
        }
        if (side.isCounted(state, seen)) {
            return REACHED;
        }
    }
}

}  // namespace utl
