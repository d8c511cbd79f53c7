#include "platform/UtlTimeZone.h"

#include "platform/UtlStaticLock.h"

namespace {

// The C library has a lock of its own, which the thread sanitizer does not see.
utl::platform::StaticLock zoneLock(utl::platform::LockOrder::TIME_ZONE);

}  // namespace

LocalTimeTzApp::LocalTimeTzApp() = default;

LocalTimeTzApp::~LocalTimeTzApp() = default;

int LocalTimeTzApp::LocalTimeTz(long const& seconds, tm& result) {
    utl::platform::StaticGuard const guard(zoneLock);
    // localtime_r() alone would keep to the zone it saw first; a process that runs for months
    // follows a change.
    tzset();
    time_t const time = static_cast<time_t>(seconds);
    return localtime_r(&time, &result) != nullptr ? 0 : -1;
}
