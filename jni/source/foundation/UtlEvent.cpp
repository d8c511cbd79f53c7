#include "UtlEvent.h"

#include <pthread.h>

#include <cstdint>

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "platform/UtlClock.h"
#include "platform/UtlCondition.h"
#include "platform/UtlMutex.h"

namespace utl {

class Event::Guard {
public:
    explicit Guard(Event const& event) : mMutex(event.mMutex) { pthread_mutex_lock(&mMutex); }
    ~Guard() { pthread_mutex_unlock(&mMutex); }
    Guard(Guard const&) = delete;
    Guard& operator=(Guard const&) = delete;

private:
    pthread_mutex_t& mMutex;
};

Event::Event(int initialOn, int mode)
    : mMode(mode), mOn{"mOn", initialOn != 0, {}}, mOff{"mOff", initialOn == 0, {}} {
    platform::initializeRecursiveMutex(mMutex);
    platform::initializeCondition(mOn.condition);
    platform::initializeCondition(mOff.condition);
}

Event::~Event() {
    pthread_cond_destroy(&mOff.condition);
    pthread_cond_destroy(&mOn.condition);
    pthread_mutex_destroy(&mMutex);
}

void Event::setOn() {
    Guard const guard(*this);
    mOn.state = true;
    mOff.state = false;
    pthread_cond_broadcast(&mOn.condition);
}

void Event::setOff() {
    Guard const guard(*this);
    mOn.state = false;
    mOff.state = true;
    pthread_cond_broadcast(&mOff.condition);
}

bool Event::isOn() const {
    Guard const guard(*this);
    return mOn.state;
}

bool Event::isOff() const {
    return !isOn();
}

int Event::waitToOn(unsigned long timeout) const {
    Guard const guard(*this);
    return waitLocked(mOn, timeout);
}

int Event::waitToOff(unsigned long timeout) const {
    if (mMode != TWO_CONDITIONS) {
        return WAIT_FAILED;
    }
    Guard const guard(*this);
    return waitLocked(mOff, timeout);
}

// The caller holds mMutex; it is free while this waits. `timeout` in milliseconds, 0 for no limit.
int Event::waitLocked(Side const& side, unsigned long timeout) const {
    if (side.state) {
        return REACHED;
    }
    if (timeout == 0) {
        // Deliberate: not a loop. A pulse (on, and off again at once) must release every untimed
        // waiter, and those who need the state ask for it again.
        pthread_cond_wait(&side.condition, &mMutex);
        return REACHED;
    }

    unsigned long remaining = timeout;
    for (;;) {
        std::uint32_t const begin = platform::monotonicTick();
        int const result = platform::waitCondition(side.condition, mMutex, remaining);
        if (result != REACHED || side.state) {
            return result;
        }

        std::uint32_t const waited = platform::monotonicTick() - begin;  // right across the wrap
        if (waited >= remaining) {
            return TIMED_OUT;
        }
        remaining -= waited;
        applog(LIBRARY_LOG, LEVEL_DETAIL,
               "Wait OK, but Status(%s)=false.  Timeout=%lumsec Waited=%lumsec Retry wait %lumsec "
               "after",
               side.name, timeout, static_cast<unsigned long>(waited), remaining);
    }
}

}  // namespace utl
