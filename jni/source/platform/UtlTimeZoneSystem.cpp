#include "platform/UtlTimeZone.h"

LocalTimeTzApp::LocalTimeTzApp() = default;

LocalTimeTzApp::~LocalTimeTzApp() = default;

int LocalTimeTzApp::LocalTimeTz(long const& seconds, tm& result) {
    utl::platform::StaticGuard const guard(utl::platform::timeZoneLock);
    // localtime_r() alone would keep to the zone it saw first; a process that runs for months
    // follows a change.
    tzset();
    time_t const time = static_cast<time_t>(seconds);
    return localtime_r(&time, &result) != nullptr ? 0 : -1;
}
