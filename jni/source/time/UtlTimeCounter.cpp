#include "UtlTimepiece.h"

#include <errno.h>

#include <cstdint>

#include "UtlLog.h"

#include "containers/UtlFixedMap.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlClock.h"
#include "platform/UtlStaticLock.h"

namespace utl {

namespace {

using platform::NO_TICK;

platform::StaticLock counterIdsLock(platform::LockOrder::COUNTERS);
FixedMap<unsigned long, std::uint32_t, TimeCounter::MAX_COUNTERS> counterIds
    UTL_GUARDED_BY(counterIdsLock);  // start ticks

std::uint32_t elapsed(unsigned long id, std::uint32_t tick) {
    platform::StaticGuard const guard(counterIdsLock);
    std::uint32_t const* const start = counterIds.find(id);
    if (start == nullptr) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "TimeCounter::Failed. Key Not Applicable. CounterId:[%lu]",
               id);
        return NO_TICK;
    }
    if (*start == NO_TICK || tick == NO_TICK) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "TimeCounter::watch(ID)/stop(ID) Failed. StartTime:[%u], TickTime:[%u]", *start,
               tick);
        return NO_TICK;
    }
    return tick - *start;
}

}  // namespace

TimeCounter::~TimeCounter() = default;

int TimeCounter::start() {
    mStartTick = getTickTime();
    if (mStartTick == NO_TICK) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "TimeCounter::start() Failed.");
        return 0;
    }
    mHasStarted = true;
    return 1;
}

std::uint32_t TimeCounter::watch() {
    std::uint32_t const tick = getTickTime();
    if (!mHasStarted || tick == NO_TICK) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "TimeCounter::watch()/stop() Failed. HasStarted:[%s], TickTime:[%u]",
               mHasStarted ? "On" : "Off", tick);
        return NO_TICK;
    }
    return tick - mStartTick;
}

std::uint32_t TimeCounter::stop() {
    std::uint32_t const result = watch();
    mHasStarted = false;
    mStartTick = NO_TICK;
    return result;
}

int TimeCounter::start(unsigned long id) {
    platform::StaticGuard const guard(counterIdsLock);
    std::uint32_t* const start = counterIds.insert(id, 0);
    if (start == nullptr) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "TimeCounter::start(ID) Failed. InsertMap Error. CounterId:[%lu]", id);
        return 0;
    }
    *start = getTickTime();
    if (*start == NO_TICK) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "TimeCounter::start(ID) Failed. TickTime is Invalid. CounterId:[%lu]", id);
        counterIds.erase(id);
        return 0;
    }
    return 1;
}

std::uint32_t TimeCounter::watch(unsigned long id) {
    // Before the lock: waiting for it is not part of what is measured.
    return elapsed(id, getTickTime());
}

std::uint32_t TimeCounter::stop(unsigned long id) {
    std::uint32_t const result = watch(id);
    platform::StaticGuard const guard(counterIdsLock);
    counterIds.erase(id);
    return result;
}

std::uint32_t TimeCounter::getTickTime() {
    std::uint32_t tick;
    if (!platform::readMonotonicTick(&tick)) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "[CAUTION!!!]clock_gettime() Failed. CLOCK_MONOTONIC. errno:[%d]", errno);
        return NO_TICK;
    }
    return tick;
}

}  // namespace utl
