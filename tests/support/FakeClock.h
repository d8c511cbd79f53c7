// A monotonic clock that stands still until a test moves it, for what takes days or must be exact.
// Takes the place of clock_gettime() for the thread that uses it: for one source of a program.
//
//     test::FakeClock clock(1000);
//     test::FakeClock::Use const use(clock);
//     counter.start();
//     clock.advance(25);

#ifndef UTL_TESTS_SUPPORT_FAKE_CLOCK_H
#define UTL_TESTS_SUPPORT_FAKE_CLOCK_H

#include <dlfcn.h>
#include <errno.h>
#include <time.h>

#include <atomic>
#include <cstdint>

namespace test {

struct FakeClock {
    explicit FakeClock(std::int64_t ms) : milliseconds(ms) {}
    void advance(std::int64_t ms) { milliseconds += ms; }

    struct Use {
        explicit Use(FakeClock const& clock) { used = &clock; }
        ~Use() { used = nullptr; }
    };

    std::atomic<std::int64_t> milliseconds;
    mutable std::atomic<unsigned> reads{0};
    std::atomic<int> error{0};  // what reading it fails with; 0 for nothing

    static inline thread_local FakeClock const* used = nullptr;
};

}  // namespace test

extern "C" int clock_gettime(clockid_t id, timespec* now) noexcept {
    test::FakeClock const* const fake = test::FakeClock::used;
    if (id != CLOCK_MONOTONIC || fake == nullptr) {
        using Function = int (*)(clockid_t, timespec*);
        static auto const real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "clock_gettime"));
        return real(id, now);
    }
    std::int64_t const read = fake->milliseconds;
    ++fake->reads;  // behind it: who sees this moves the clock too late for the reader
    now->tv_sec = static_cast<time_t>(read / 1000);
    now->tv_nsec = static_cast<long>(read % 1000) * 1000000;
    errno = fake->error != 0 ? fake->error.load() : errno;
    return fake->error != 0 ? -1 : 0;
}

#endif  // UTL_TESTS_SUPPORT_FAKE_CLOCK_H
