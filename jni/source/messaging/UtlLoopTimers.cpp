#include "messaging/UtlLoopTimers.h"

#include <errno.h>

#include <limits>
#include <new>

#include "UtlArray.h"
#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "platform/UtlClock.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFork.h"
#include "platform/UtlKernelTimer.h"

namespace utl {

namespace {

constexpr std::uint64_t NEVER = std::numeric_limits<std::uint64_t>::max();

// The timers of the loop that runs on this thread: what the handler finds.
thread_local LoopTimers* ofThisThread = nullptr;

// Async-signal-safe.
void TimeoutSignalHandler(int, siginfo_t* info, void*) {
    platform::ErrnoGuard const guard;
    LoopTimers::handleSignal(*info);
    platform::finishExpiry(*info);
}

}  // namespace

bool TimerHandler::install() {
    platform::StaticGuard const guard(mLock);
    if (mIsInstalled) {
        return true;
    }
    mIsInstalled = platform::installSignalHandler(mNumber(), TimeoutSignalHandler);
    if (mIsInstalled) {
        applog(LIBRARY_LOG, LEVEL_DETAIL, "%s sigaction  success:%d", mLabel, mNumber());
    } else {
        applog(LIBRARY_LOG, LEVEL_ERROR, "%s sigaction  errno:%d", mLabel, errno);
    }
    return mIsInstalled;
}

// Where a kernel timer is kept. Its signal carries the index.
struct LoopTimers::Place {
    int userId = NOBODY;
    int next = NO_PLACE;  // in the stack it is in

    // Shared with the handler.
    Shared<int> kernelId{TimerInfo::NO_SYSTEM_TIMER};
    Shared<unsigned> expiries;  // that the thread has not taken
    Shared<bool> isInLine;
    std::uint64_t due = 0;  // no expiry counts before; changed while no more expiries are taken
};

LoopTimers::LoopTimers(char const* label, char const* name, TimerHandler& handler, WakePipe& pipe,
                       unsigned long maxTimers)
    : mLabel(label),
      mName(name),
      mHandler(handler),
      mPipe(pipe),
      mPlaceCount(maxTimers < static_cast<unsigned long>(std::numeric_limits<int>::max())
                      ? static_cast<int>(maxTimers)
                      : 0),
      mPlaces(allocateElements<Place>(static_cast<unsigned long>(mPlaceCount))),
      mLine(allocateElements<int>(static_cast<unsigned long>(mPlaceCount) + 1)) {
    for (int i = mPlaceCount; isPlace(i - 1); --i) {
        push(&mFree, i - 1);
    }
}

LoopTimers::~LoopTimers() = default;

void LoopTimers::enter() {
    mProcess = platform::processNumber();
    ofThisThread = this;
    platform::letSignalIn(mHandler.signal());
}

void LoopTimers::leave() {
    platform::shutSignalOut(mHandler.signal());
    ofThisThread = nullptr;
    // A child of this process has none of its timers, but perhaps some with the same ids.
    for (int i = 0; mProcess == platform::processNumber() && isPlace(i); ++i) {
        if (mPlaces[i].kernelId.load() != TimerInfo::NO_SYSTEM_TIMER) {
            platform::deleteTimer(mPlaces[i].kernelId.load());
        }
    }
}

bool LoopTimers::start(int userId, TimerInfo* info) {
    // Before anything else: without a handler the first signal would end the process.
    if (!mHandler.install()) {
        return false;
    }
    int const index = reusablePlace();
    if (index == NO_PLACE) {
        return false;
    }
    Place& place = mPlaces[index];
    if (!arm(place, info->interval)) {
        // Deliberate: the kernel timer, which does not run, stays. Its id is not the info's, so
        // whoever cleans up after this finds nothing to delete; the next timer takes it.
        logError("timer_settime", place.kernelId.load(), errno);
        push(&mAbandoned, index);
        return false;
    }
    place.userId = userId;
    info->systemTimerId = place.kernelId.load();
    info->systemTimerPlace = index;
    return true;
}

int LoopTimers::add(int userId) {
    int const index = mHandler.install() ? reusablePlace() : NO_PLACE;
    if (index == NO_PLACE) {
        return TimerInfo::NO_SYSTEM_TIMER;
    }
    mPlaces[index].userId = userId;
    return mPlaces[index].kernelId.load();
}

// The same kernel timer, armed anew: there is nothing that the kernel could refuse for want of
// room.
bool LoopTimers::restart(TimerInfo* info) {
    Place& place = mPlaces[info->systemTimerPlace];
    if (arm(place, info->interval)) {
        return true;
    }
    logError("timer_settime", info->systemTimerId, errno);
    abandon(info);
    return false;
}

void LoopTimers::hold(TimerInfo const& info) {
    arm(mPlaces[info.systemTimerPlace], 0);
}

bool LoopTimers::remove(TimerInfo* info) {
    if (!platform::deleteTimer(info->systemTimerId)) {
        logError("timer_delete", info->systemTimerId, errno);
        return false;
    }
    Place& place = mPlaces[info->systemTimerPlace];
    place.kernelId.store(TimerInfo::NO_SYSTEM_TIMER);
    place.expiries.store(0);
    place.userId = NOBODY;
    push(&mFree, info->systemTimerPlace);
    info->systemTimerId = TimerInfo::NO_SYSTEM_TIMER;
    return true;
}

void LoopTimers::abandon(TimerInfo* info) {
    mPlaces[info->systemTimerPlace].userId = NOBODY;
    push(&mAbandoned, info->systemTimerPlace);
    info->systemTimerId = TimerInfo::NO_SYSTEM_TIMER;
}

// Of a timer that nobody has, the expiry is its last.
bool LoopTimers::takeNext(Expiry* expiry) {
    while (hasExpired()) {
        int const first = mFirst.load();
        Place& place = mPlaces[mLine[first]];
        mFirst.store(first < mPlaceCount ? first + 1 : 0);
        place.isInLine.store(false);  // from here on the next expiry puts it in the line again
        expiry->times = place.expiries.exchange(0);
        expiry->userId = place.userId;
        if (expiry->times != 0 && expiry->userId != NOBODY) {
            return true;
        }
        if (expiry->times != 0) {
            arm(place, 0);
        }
    }
    return false;
}

bool LoopTimers::beginSleep() {
    mMayBeAsleep.store(true);
    return !hasExpired();
}

void LoopTimers::endSleep() {
    mMayBeAsleep.store(false);
}

// Async-signal-safe. Whoever sends such a signal by hand finds no loop or no timer.
void LoopTimers::handleSignal(siginfo_t const& info) {
    LoopTimers* const timers = ofThisThread;
    if (timers != nullptr && platform::isExpiry(info)) {
        timers->expired(platform::carriedValue(info), platform::expiredTimer(info));
    }
}

// Async-signal-safe. Two expiries of one timer may wait; a fast timer with a slow listener takes
// nothing away from the others.
void LoopTimers::expired(int index, int kernelId) {
    if (!isPlace(index) || mPlaces[index].kernelId.load() != kernelId) {
        return;
    }
    Place& place = mPlaces[index];
    unsigned const expiries = place.expiries.load();
    if (expiries >= MOST_EXPIRIES || platform::monotonicNanoseconds() < place.due) {
        return;  // the second: it was under way when the timer was armed anew
    }
    place.expiries.store(expiries + 1);
    if (!place.isInLine.load()) {
        place.isInLine.store(true);
        int const end = mEnd.load();
        mLine[end] = index;
        mEnd.store(end < mPlaceCount ? end + 1 : 0);
    }
    if (mMayBeAsleep.load()) {
        mMayBeAsleep.store(false);  // one word wakes for all that follow
        mPipe.wake({WakePipe::TIMER_SIGNAL, kernelId});
    }
}

bool LoopTimers::isPlace(int index) const {
    return mPlaces != nullptr && mLine != nullptr && index >= 0 && index < mPlaceCount;
}

// One that has a kernel timer already, if there is such a one. NO_PLACE, logged, when there is none
// to be had.
int LoopTimers::reusablePlace() {
    int index = pop(&mAbandoned);
    if (index != NO_PLACE) {
        return index;
    }
    index = pop(&mFree);
    if (index == NO_PLACE || !makeKernelTimer(index)) {
        int const error = index == NO_PLACE ? ENOMEM : errno;
        logError("timer_create", TimerInfo::NO_SYSTEM_TIMER, error);
        push(&mFree, index);
        return NO_PLACE;
    }
    return index;
}

bool LoopTimers::makeKernelTimer(int index) {
    int const kernelId = platform::createTimer(mHandler.signal(), index);
    if (kernelId == TimerInfo::NO_SYSTEM_TIMER) {
        return false;
    }
    mPlaces[index].kernelId.store(kernelId);
    return true;
}

// An expiry of what the timer did before may be under way until the kernel has taken the new
// interval, and does not count: it comes before the new one can be due. What the kernel refuses
// leaves the timer still.
bool LoopTimers::arm(Place& place, std::int32_t intervalMs) {
    place.expiries.store(MOST_EXPIRIES);  // the handler keeps off
    place.due = NEVER;
    if (intervalMs > 0) {
        place.due = platform::monotonicNanoseconds() +
                    static_cast<std::uint64_t>(intervalMs) * platform::NANOSECONDS_PER_MILLISECOND;
    }
    place.expiries.store(0);
    if (platform::armTimer(place.kernelId.load(), intervalMs)) {
        return true;
    }
    platform::ErrnoGuard const guard;
    platform::armTimer(place.kernelId.load(), 0);
    return false;
}

void LoopTimers::push(int* top, int index) {
    if (index != NO_PLACE) {
        mPlaces[index].next = *top;
        *top = index;
    }
}

int LoopTimers::pop(int* top) {
    int const index = *top;
    if (index != NO_PLACE) {
        *top = mPlaces[index].next;
    }
    return index;
}

void LoopTimers::logError(char const* call, int systemTimerId, int error) const {
    applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) %s SysTimerId:0x%08x errno:%d", mLabel, mName, call,
           static_cast<unsigned>(systemTimerId), error);
}

}  // namespace utl
