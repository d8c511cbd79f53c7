// What a message-driven thread and a shared timer keep of each of their timers.

#ifndef UTL_TIMER_INFO_H
#define UTL_TIMER_INFO_H

#include <cstdint>

#include "UtlApi.h"
#include "UtlCountingPointer.h"
#include "UtlEvent.h"

namespace utl {

class TimerListener;

// Copies share the run event. Guarded by its owner's lock.
struct UTL_API TimerInfo {
    static constexpr int NO_SYSTEM_TIMER = -1;

    // With `withEvent` an event that is off and can be waited for either way; none without memory.
    explicit TimerInfo(bool withEvent = false);

    // A stopped timer. An interval that needs more than 31 bits becomes one that the kernel
    // refuses.
    TimerInfo(TimerListener* listener, unsigned long intervalMs, unsigned int repeatCount,
              int freeRunning);

    // Of its 32 bits; one that needs more is as good as the longest: the kernel refuses both.
    static std::int32_t toInterval(unsigned long intervalMs);

    TimerListener* listener = nullptr;  // the shared timer's; a message-driven thread has none
    int systemTimerId = NO_SYSTEM_TIMER;
    std::int32_t interval = 0;       // milliseconds
    std::uint32_t repeatCount = 0;   // 0 for no end
    std::uint32_t firedCount = 0;    // expiries delivered since the last start
    std::int32_t freeRunning = 0;    // 0: armed afresh after each delivery
    SmartPointer<Event> runEvent;    // on while the timer runs
    std::uint32_t pendingCount = 0;  // expiries queued and not yet delivered
    bool intervalChanged = false;    // not yet applied; the shared timer's
    int systemTimerPlace = -1;       // where its loop keeps the kernel timer
};

}  // namespace utl

#endif  // UTL_TIMER_INFO_H
