#include "UtlLoop.h"

namespace utl {

struct Large {
    void operator()() {}
    char bytes[MAX_TASK_BYTES + 1];
};

struct alignas(64) Strict {
    void operator()() {}
};

struct Throwing {
    Throwing() = default;
    Throwing(Throwing&&) noexcept(false) {}
    void operator()() {}
};

void refuse(Loop& loop) {
    loop.post(Large());                                        // refused: has 64 bytes at the most
    loop.post(Strict());                                       // refused: not more strictly
    loop.post(Throwing());                                     // refused: its move constructor must
    loop.post([](int) {});                                     // refused: without an argument
    loop.watch(0, Loop::READABLE, [](unsigned, unsigned) {});  // refused: without an argument
}

}  // namespace utl
