// Internal. The monotonic clock: it never jumps, whoever sets the time of day. A ManualClock may
// stand in for the kernel's.

#ifndef UTL_PLATFORM_CLOCK_H
#define UTL_PLATFORM_CLOCK_H

#include <cstdint>

namespace utl {
namespace platform {

constexpr std::uint32_t NO_TICK = 0xFFFFFFFFu;

constexpr std::uint64_t NANOSECONDS_PER_MILLISECOND = 1000000;
constexpr std::uint64_t NANOSECONDS_PER_SECOND = 1000 * NANOSECONDS_PER_MILLISECOND;

// Nanoseconds on the monotonic clock. Async-signal-safe. False with errno when it cannot be read.
bool readMonotonicNanoseconds(std::uint64_t* now);

// The same; 0 when the clock cannot be read.
std::uint64_t monotonicNanoseconds();

// Milliseconds on the monotonic clock. Wraps every 49.7 days: take differences in 32 bits. False
// with errno when the clock cannot be read.
bool readMonotonicTick(std::uint32_t* tick);

// The same; NO_TICK when it cannot be read, and for a millisecond in 49.7 days.
std::uint32_t monotonicTick();

// The same at the kernel's last tick, which may be 10 milliseconds ago, for a fraction of the cost.
std::uint32_t coarseTick();

// Both by the kernel's clock, whatever stands in for it: for waits that only the kernel ends.
bool readKernelNanoseconds(std::uint64_t* now);
std::uint32_t kernelTick();

// By how many nanoseconds a thread may sleep longer than it asked for: Linux gives every thread a
// slack of 50 us unless it wants another (prctl(2), PR_SET_TIMERSLACK). None by a clock that is
// moved by hand.
std::uint64_t sleepSlack();

// Blocks the calling thread for `milliseconds`, or until a signal handler has run.
void sleepFor(unsigned long milliseconds);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_CLOCK_H
