// What a Loop does not take: each of these is a compile error with a sentence in it.

#include <array>
#include <memory>

#include "UtlLoop.h"

namespace utl {

struct Throwing {
    Throwing() = default;
    Throwing(Throwing&&) noexcept(false) {}
    void operator()() {}
};

struct alignas(64) Strict {
    void operator()() {}
};

void misuse(Loop& loop) {
    std::array<char, 65> large = {};
#ifdef TOO_LARGE
    loop.post([large] { static_cast<void>(large); });
#elif defined TOO_STRICT
    loop.post(Strict());
#elif defined MAY_THROW
    loop.post(Throwing());
#elif defined TOLD_TOO_MUCH
    loop.post([](int) {});
#else
    loop.post([number = std::make_unique<int>(1)] {});
    loop.every(std::chrono::hours(1), [](unsigned long) {});
    static_cast<void>(large);
#endif
}

}  // namespace utl
