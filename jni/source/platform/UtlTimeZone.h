// Internal. The device's time zone, by the companion library's class.

#ifndef UTL_PLATFORM_TIME_ZONE_H
#define UTL_PLATFORM_TIME_ZONE_H

#include <time.h>

// Android: the companion time-zone library supplies it. Elsewhere this library does.
class LocalTimeTzApp {
public:
    LocalTimeTzApp();
    ~LocalTimeTzApp();

    // Turns seconds since the epoch into local broken-down time. -1 on failure.
    int LocalTimeTz(long const& seconds, tm& result);
};

#endif  // UTL_PLATFORM_TIME_ZONE_H
