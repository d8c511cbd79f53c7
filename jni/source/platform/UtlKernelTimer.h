// Internal. Timers of the kernel on the monotonic clock, each of which raises a signal.
//
// They are reached by system calls: the C libraries disagree on what a timer_t is, while the
// kernel's integer id is what a signal carries.

#ifndef UTL_PLATFORM_KERNEL_TIMER_H
#define UTL_PLATFORM_KERNEL_TIMER_H

#include <signal.h>

#include <cstdint>

namespace utl {
namespace platform {

// The signal of the shared timers: 33 where the C library leaves that number free.
int sharedTimerSignal();

// The signal of the message-driven threads' timers: 34 where the C library leaves it free.
int threadTimerSignal();

using SignalHandler = void (*)(int signal, siginfo_t* info, void* context);

// Installs `handler` for the whole process; interrupted calls are restarted. False with errno.
bool installSignalHandler(int signal, SignalHandler handler);

// Let the calling thread, and it alone, take `signal`, or no more.
void letSignalIn(int signal);
void shutSignalOut(int signal);

// Makes a timer that raises `signal` carrying `value` on the calling thread, and on no other; not
// yet running. Its kernel id, or -1 with errno: EAGAIN when the user has used up the pending
// signals.
int createTimer(int signal, int value);

// Lets the timer expire every `intervalMs` milliseconds, first after one interval, whatever it did
// before. 0 keeps it still; the kernel refuses a negative one. False with errno.
bool armTimer(int kernelId, std::int32_t intervalMs);

// Lets the timer expire once, at `moment` on the monotonic clock in nanoseconds, or at once if that
// is over, whatever it did before. A moment that the kernel's type cannot hold becomes an earlier
// one. False with errno.
bool armTimerAt(int kernelId, std::uint64_t moment);

// Lets it expire at once, and not again. False with errno.
bool expireTimerNow(int kernelId);

// False with errno when there is no such timer.
bool deleteTimer(int kernelId);

// From inside a handler: whether a timer has raised the signal, its id, and the value it carries.
bool isExpiry(siginfo_t const& info);
int expiredTimer(siginfo_t const& info);
int carriedValue(siginfo_t const& info);

// The last thing that such a handler does.
void finishExpiry(siginfo_t const& info);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_KERNEL_TIMER_H
