// A state, on or off, that threads wait for. Waiting never changes it.
//
//     Event ready(0, 0);
//     ready.setOn();                       // one thread
//     if (ready.waitToOn(500) == REACHED)  // any number of others
//
// Any thread may use an event. Nobody may wait for it when it is destroyed.

#ifndef UTL_EVENT_H
#define UTL_EVENT_H

#include <pthread.h>

#include "UtlApi.h"

namespace utl {

class UTL_API Event {
public:
    // The mode in which off can be waited for as well.
    static constexpr int TWO_CONDITIONS = 1;

    // On at first when `initialOn` is not 0. In any mode but TWO_CONDITIONS only on can be waited
    // for.
    Event(int initialOn, int mode);
    virtual ~Event();
    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;

    // Releases every thread that waits for on.
    void setOn();

    // Releases, in mode TWO_CONDITIONS, every thread that waits for off.
    void setOff();

    bool isOn() const;
    bool isOff() const;

    // Block for `timeout` milliseconds at the most, 0 for no limit: REACHED, TIMED_OUT or
    // WAIT_FAILED, which waitToOff() also gives in any mode but TWO_CONDITIONS. With a limit, the
    // state was seen; without one, the thread was woken, and the state may have changed again.
    int waitToOn(unsigned long timeout) const;
    int waitToOff(unsigned long timeout) const;

private:
    struct Side {
        char const* name;
        bool state;
        mutable pthread_cond_t condition;
    };

    class Guard;

    int waitLocked(Side const& side, unsigned long timeout) const;

    int const mMode;
    mutable pthread_mutex_t mMutex;  // guards the sides
    Side mOn;
    Side mOff;  // used in mode TWO_CONDITIONS only
};

}  // namespace utl

#endif  // UTL_EVENT_H
