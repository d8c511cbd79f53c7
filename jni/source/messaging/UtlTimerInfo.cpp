#include "UtlTimerInfo.h"

#include <limits>
#include <new>

namespace utl {

TimerInfo::TimerInfo(bool withEvent) {
    if (withEvent) {
        runEvent.set(new (std::nothrow) Event(0, Event::TWO_CONDITIONS));
    }
}

TimerInfo::TimerInfo(TimerListener* timerListener, unsigned long intervalMs,
                     unsigned int timerRepeatCount, int timerFreeRunning)
    : TimerInfo(true) {
    listener = timerListener;
    interval = toInterval(intervalMs);
    repeatCount = timerRepeatCount;
    freeRunning = timerFreeRunning;
}

std::int32_t TimerInfo::toInterval(unsigned long intervalMs) {
    constexpr std::uint32_t LONGEST = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::int32_t>(intervalMs < LONGEST ? static_cast<std::uint32_t>(intervalMs)
                                                          : LONGEST);
}

}  // namespace utl
