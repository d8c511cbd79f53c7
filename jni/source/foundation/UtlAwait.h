// Internal. Waits that end when the state is there, not merely when something has woken the thread:
// an untimed wait of an event returns after any wake-up.

#ifndef UTL_AWAIT_H
#define UTL_AWAIT_H

#include "UtlEvent.h"

namespace utl {

// As Event::waitToOn(). For events that nobody switches off again while somebody waits.
inline int awaitOn(Event const& event, unsigned long timeout) {
    int result;
    do {
        result = event.waitToOn(timeout);
    } while (timeout == 0 && result == REACHED && !event.isOn());
    return result;
}

// Blocks until `event`, which has two conditions, is off. For events that nobody switches on again
// while somebody waits.
inline void awaitOff(Event const& event) {
    do {
        event.waitToOff(0);
    } while (event.isOn());
}

}  // namespace utl

#endif  // UTL_AWAIT_H
