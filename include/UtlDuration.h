// A length of time, given as a std::chrono duration, in the unit that the library counts in.
//
//     using namespace std::chrono_literals;
//
//     Thread::sleep(1500us);           // two milliseconds
//     if (ready.waitToOn(2s) == REACHED) { ... }
//
// Waits, sleeps, timers and the watchdog take a Duration as well as a number of milliseconds. What
// becomes of a duration:
//
// | duration              | milliseconds                                                          |
// |-----------------------|-----------------------------------------------------------------------|
// | with a fraction       | the next whole one up: nothing ends before its time                   |
// | 0 or less, or no time | 0 for a sleep, an alive time and what is said to be refused;          |
// | at all, as NaN        | 1, the shortest time there is, for every limit and interval: never    |
// |                       | "no limit" and never "never", which the number 0 means there          |
// | longer than fits      | the longest that an unsigned long holds                               |
//
// A wait without limit is asked for by the number 0, as before.

#ifndef UTL_DURATION_H
#define UTL_DURATION_H

#include <chrono>
#include <cstdint>
#include <limits>
#include <ratio>
#include <type_traits>

namespace utl {

// A plain value, made by handing over any duration of the standard library.
class Duration {
public:
    template <typename Rep, typename Period>
    constexpr Duration(std::chrono::duration<Rep, Period> duration)
        : mMilliseconds(toMilliseconds<Rep, Period>(duration.count())) {}

    constexpr unsigned long milliseconds() const { return mMilliseconds; }

    // For a limit or an interval: at least 1.
    constexpr unsigned long atLeastOne() const { return mMilliseconds != 0 ? mMilliseconds : 1; }

private:
    static constexpr unsigned long LONGEST = std::numeric_limits<unsigned long>::max();

    template <typename Rep, typename Period>
    static constexpr unsigned long toMilliseconds(Rep count) {
        static_assert(std::is_arithmetic_v<Rep>,
                      "a Duration is made of a duration that counts in "
                      "numbers: cast it to std::chrono::milliseconds");
        using Scale = std::ratio_divide<Period, std::milli>;
        static_assert(
            Scale::num <= INTMAX_MAX / Scale::den,
            "this unit has no whole relation to milliseconds that can be calculated with: "
            "cast the duration to std::chrono::milliseconds");
        if (!(count > 0)) {  // nor is NaN
            return 0;
        }
        if constexpr (std::is_floating_point_v<Rep>) {
            return roundUp(count * static_cast<Rep>(Scale::num) / static_cast<Rep>(Scale::den));
        } else {
            return scale(static_cast<std::uint64_t>(count), Scale::num, Scale::den);
        }
    }

    template <typename Real>
    static constexpr unsigned long roundUp(Real milliseconds) {
        if (milliseconds >= static_cast<Real>(LONGEST)) {
            return LONGEST;
        }
        auto const whole = static_cast<unsigned long>(milliseconds);
        return static_cast<Real>(whole) < milliseconds ? whole + 1 : whole;
    }

    // count * num / den, rounded up, without a product that has no room.
    static constexpr unsigned long scale(std::uint64_t count, std::uint64_t num,
                                         std::uint64_t den) {
        std::uint64_t const rest = (count % den * num + den - 1) / den;
        std::uint64_t const wholes = count / den;
        bool const fits = rest <= LONGEST && wholes <= (LONGEST - rest) / num;
        return fits ? static_cast<unsigned long>(wholes * num + rest) : LONGEST;
    }

    unsigned long mMilliseconds;
};

}  // namespace utl

#endif  // UTL_DURATION_H
