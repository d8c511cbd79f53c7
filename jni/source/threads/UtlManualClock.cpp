#include "UtlManualClock.h"

#include <algorithm>
#include <cstdint>

#include "UtlLog.h"
#include "UtlThreadManager.h"

#include "foundation/UtlLogLine.h"
#include "platform/UtlManualTime.h"

namespace utl {

namespace {

using platform::ManualTime;
using std::chrono::nanoseconds;

// Longer than a listener works.
constexpr int PATIENCE_S = 10;

// What is due any length of time after it still has a number of its own.
constexpr std::uint64_t LAST_MOMENT = INT64_MAX;

// The watchdog's timer, and those of the threads, would go on by the kernel's clock.
ManualTime* takeOver() {
    bool const isFirst = ThreadManager::getIfCreated() == nullptr;
    ManualTime* const time = isFirst ? ManualTime::begin() : nullptr;
    if (time == nullptr) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "ManualClock Refused. %s",
               isFirst ? "There is one" : "The ThreadManager was there first");
    }
    return time;
}

void awaitRest(ManualTime& time) {
    while (int const atWork = time.awaitRest(PATIENCE_S)) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "ManualClock Waiting. Threads at work:%d", atWork);
    }
}

std::uint64_t momentAfter(ManualTime const& time, nanoseconds duration) {
    return std::min(time.now() + static_cast<std::uint64_t>(duration.count()), LAST_MOMENT);
}

void advanceTo(ManualTime& time, std::uint64_t target) {
    do {
        awaitRest(time);
    } while (time.step(target));
}

}  // namespace

ManualClock::ManualClock() : mTime(takeOver()), mBegin(mTime != nullptr ? mTime->now() : 0) {}

ManualClock::~ManualClock() {
    int const still = isHere() ? mTime->end() : 0;
    if (still != 0) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "ManualClock Gone. Timers that stand still:%d", still);
    }
}

nanoseconds ManualClock::now() const {
    return nanoseconds(isHere() ? mTime->now() - mBegin : 0);
}

void ManualClock::settle() {
    advance(nanoseconds(0));
}

void ManualClock::advance(nanoseconds duration) {
    if (isMovable() && duration.count() >= 0) {
        advanceTo(*mTime, momentAfter(*mTime, duration));
    }
}

bool ManualClock::advanceToNext() {
    if (!isMovable()) {
        return false;
    }
    awaitRest(*mTime);
    std::uint64_t const next = mTime->nextDue();
    if (next > LAST_MOMENT) {
        return false;
    }
    advanceTo(*mTime, next);
    return true;
}

void ManualClock::jump(nanoseconds duration) {
    if (isMovable() && duration.count() >= 0) {
        awaitRest(*mTime);
        mTime->jump(momentAfter(*mTime, duration));
    }
}

// Not in a child of the process.
bool ManualClock::isHere() const {
    return mTime != nullptr && mTime == ManualTime::inUse();
}

bool ManualClock::isMovable() const {
    if (isHere() && mTime->isWorker()) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "ManualClock Refused. The calling thread is one whose time it moves");
        return false;
    }
    return isHere();
}

}  // namespace utl
