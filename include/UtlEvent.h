// A state, on or off, that threads wait for. Waiting never changes it.
//
//     Event ready(0, 0);
//     ready.setOn();                       // one thread
//     if (ready.waitToOn(500ms) == REACHED)  // any number of others
//
// Any thread may use an event. Nobody may wait for it when it is destroyed; whoever has seen it on
// may destroy it, even if the one who switched it on has not returned yet.

#ifndef UTL_EVENT_H
#define UTL_EVENT_H

#include <atomic>
#include <cstdint>

#include "UtlApi.h"
#include "UtlDuration.h"

namespace utl {

// On or off, for others to wait for.
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

    // Without a lock.
    bool isOn() const { return (mState.load(std::memory_order_acquire) & ON) != 0; }
    bool isOff() const { return !isOn(); }

    // Block for `timeout` milliseconds at the most, 0 for no limit: REACHED, TIMED_OUT or
    // WAIT_FAILED, which waitToOff() also gives in any mode but TWO_CONDITIONS. With a limit, the
    // state was seen; without one, the thread was woken, and the state may have changed again.
    int waitToOn(unsigned long timeout) const;
    int waitToOff(unsigned long timeout) const;
    int waitToOn(Duration limit) const { return waitToOn(limit.atLeastOne()); }
    int waitToOff(Duration limit) const { return waitToOff(limit.atLeastOne()); }

private:
    struct Side;

    static constexpr std::uint32_t ON = 1;  // of the bits of mState
    static Side const ON_SIDE;
    static Side const OFF_SIDE;

    void change(Side const& side) const;
    int wait(Side const& side, unsigned long timeout) const;
    int awaitChange(Side const& side, std::uint32_t seen, unsigned long timeout) const;

    int const mMode;

    // All there is, in one word: whether it is on, whether somebody waits for on and for off, and
    // how often it was switched on and off. Whoever switches it touches it once and no more:
    // whoever sees the change may destroy the event.
    mutable std::atomic<std::uint32_t> mState;
};

}  // namespace utl

#endif  // UTL_EVENT_H
