// A clock that a program's tests move by hand: what takes an hour takes no time, and comes in the
// same order each time.
//
//     TEST(PollerTest, AsksEveryMinute) {
//         utl::ManualClock clock;      // first: before any thread of the library
//         Poller poller;               // a MsgDrivenThread that calls setTimer(60000, 0, 0, 0)
//         clock.advance(std::chrono::minutes(10));
//         EXPECT_EQ(10, poller.asked);
//         poller.stop(1, 0);
//         utl::ThreadManager::destroy();
//     }                                // last: the kernel's clock holds again
//
// While one lives, all that the library waits for or measures goes by it: the timers of message-
// driven threads, the tasks that a Loop delays or repeats, SharedTimer and Timer, the watchdog's
// checks, waits with a limit (Event, starts and stops of threads), Thread::sleep, and TimeCounter.
// It stands still until it is moved. What comes from outside keeps its own time: descriptors that a
// Loop watches, files, terminals and the readers of the log, the calendar (getSystemTime,
// getLocalTime), and whatever the program does without the library.
//
// Rules:
// - It is made before the first thread of the library, and before ThreadManager::get(); otherwise
//   it is refused, and the kernel's clock goes on to hold. ThreadManager::destroy() makes a new
//   beginning, when the threads have been stopped.
// - It goes when those threads have ended and the ThreadManager has been destroyed. What is left
//   then is not lost, but it does not go on either: timers stand still for good, which is logged,
//   and waits with a limit end with TIMED_OUT.
// - It waits for the threads that the library has started, until each has ended or waits by means
//   of the library: a loop for work, an Event, a sleep, an answer. A listener that waits for the
//   test by other means (a condition variable, a mutex, a descriptor) holds the clock up; every 10
//   seconds a line in the log says so.
// - The thread that moves it waits for nothing that takes time, since nobody moves it meanwhile: it
//   hangs when it stops or destroys a thread that is in Thread::sleep(), or a Loop whose task is,
//   with a limit too.
// - In a child of fork() the kernel's clock holds.

#ifndef UTL_MANUAL_CLOCK_H
#define UTL_MANUAL_CLOCK_H

#include <chrono>
#include <cstdint>

#include "UtlApi.h"

namespace utl {

namespace platform {
class ManualTime;
}

// One at a time in the process. One thread at a time, which is none that the library has started:
// there nothing moves, which is logged.
class UTL_API ManualClock {
public:
    // Stands at 0. A refusal is logged: then nothing moves it.
    ManualClock();
    ~ManualClock();
    ManualClock(ManualClock const&) = delete;
    ManualClock& operator=(ManualClock const&) = delete;

    // Whether it has taken the kernel's place.
    explicit operator bool() const { return mTime != nullptr; }

    // How far it was moved. After almost 292 years it stands still.
    std::chrono::nanoseconds now() const;

    // Moves it on, from one thing that is due to the next: at the moment of each the timer expires
    // or the wait runs out, and before the next all that comes of it is over: messages are handled,
    // other threads have done what they were asked for, timers are armed anew. Of two that are due
    // at one moment, the one that was armed first comes first. A wait that begins meanwhile takes
    // its limit from the moment at which it begins. First of all it waits for what was begun
    // before, as settle() does. A `duration` below 0 does nothing.
    void advance(std::chrono::nanoseconds duration);

    // The same up to the next moment at which something is due. False when nothing is.
    bool advanceToNext();

    // As when the whole process stands still for so long: nothing happens on the way. What has
    // become due happens late, when the clock is next moved or settles; a timer that should have
    // expired more than once expires once.
    void jump(std::chrono::nanoseconds duration);

    // Blocks until everything is over that needs no time.
    void settle();

private:
    bool isHere() const;
    bool isMovable() const;

    platform::ManualTime* const mTime;  // nullptr if it was refused
    std::uint64_t const mBegin;
};

}  // namespace utl

#endif  // UTL_MANUAL_CLOCK_H
