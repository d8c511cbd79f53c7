// Internal. The device's time zone, by the companion library's class, and the lock for conversions.

#ifndef UTL_PLATFORM_TIME_ZONE_H
#define UTL_PLATFORM_TIME_ZONE_H

#include <time.h>

#include "platform/UtlStaticLock.h"

// The companion time-zone library of a device supplies it. Where there is none this library does.
class LocalTimeTzApp {
public:
    LocalTimeTzApp();
    ~LocalTimeTzApp();

    // Turns seconds since the epoch into local broken-down time. -1 on failure.
    int LocalTimeTz(long const& seconds, tm& result);
};

namespace utl {
namespace platform {

// The C library converts times under a lock of its own, for UTC too. The thread sanitizer does not
// see that one, and a child process would inherit it locked: whoever converts holds this one.
inline StaticLock timeZoneLock(LockOrder::TIME_ZONE);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_TIME_ZONE_H
