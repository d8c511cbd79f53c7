// Internal. What the thread manager is asked to start.

#ifndef UTL_START_REQUEST_H
#define UTL_START_REQUEST_H

#include "UtlThreadManager.h"

namespace utl {

struct ThreadManager::StartRequest {
    void (*function)(void*);
    void* argument;
    char const* name;
    int osPriority;
    SmartPointer<Event> stopEvent;  // switched on when `function` has left
    bool onlyRegistered;            // a thread that cannot be registered must not run
    int watchdogMode;
    unsigned long watchdogAliveTime;
    WatchdogTimerListener* listener;
};

}  // namespace utl

#endif  // UTL_START_REQUEST_H
