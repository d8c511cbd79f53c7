// Internal. What a message-driven thread and a shared timer do alike with the timers they keep. The
// caller holds the lock that guards them.

#ifndef UTL_TIMER_TABLE_H
#define UTL_TIMER_TABLE_H

#include <cstdint>
#include <limits>

#include "UtlMap.h"
#include "UtlTimerInfo.h"

namespace utl {

using TimerTable = Map<int, TimerInfo>;

// The id after `timerId`, from 1 again after the largest, that no timer has.
inline int nextUserTimerId(TimerTable& timers, int timerId) {
    do {
        bool const isLast = timerId == std::numeric_limits<int>::max();
        timerId = isLast || timerId < 0 ? 1 : timerId + 1;
    } while (timers.find(timerId) != nullptr);
    return timerId;
}

// Whether another expiry of the timer may wait for its listener: one may, and one more if it is
// free-running. What comes beyond them is lost on purpose: a slow listener sees no burst.
inline bool takesExpiry(TimerInfo const& info) {
    std::uint32_t const mostPending = info.freeRunning != 0 ? 2 : 1;
    return info.runEvent->isOn() && info.pendingCount < mostPending;
}

}  // namespace utl

#endif  // UTL_TIMER_TABLE_H
