// Internal. Counts who is inside a stretch of code, so that whoever takes away what is used there
// can wait until nobody is.
//
//     visitor:  VisitorCount::Visit const visit(count);  if (T* t = pointer.load()) { use it }
//     remover:  pointer.store(nullptr);  count.awaitNone();  delete the old one
//
// Entering and the two looks at the pointer are sequentially consistent, so a visitor who still saw
// the pointer is always counted. Async-signal-safe, but for awaitNone().

#ifndef UTL_VISITOR_COUNT_H
#define UTL_VISITOR_COUNT_H

#include <atomic>
#include <cstdint>

#include "platform/UtlFutex.h"

namespace utl {

class VisitorCount {
public:
    class Visit {
    public:
        explicit Visit(VisitorCount& count) : mInside(count.mInside) { mInside.fetch_add(1); }
        ~Visit() {
            if (mInside.fetch_sub(1, std::memory_order_release) == (IS_AWAITED | 1)) {
                platform::wakeSleeper(&mInside);
            }
        }
        Visit(Visit const&) = delete;
        Visit& operator=(Visit const&) = delete;

    private:
        std::atomic<std::uint32_t>& mInside;
    };

    // One thread at a time. For visits that never wait for it.
    void awaitNone() {
        while ((mInside.load() & ~IS_AWAITED) != 0) {
            std::uint32_t const inside = mInside.fetch_or(IS_AWAITED) | IS_AWAITED;
            if (inside != IS_AWAITED) {
                platform::sleepOnWord(mInside, inside);
            }
        }
        mInside.fetch_and(~IS_AWAITED);
    }

    // When it is certain that nobody is inside, whatever the count says.
    void forget() { mInside.store(0); }

private:
    static constexpr std::uint32_t IS_AWAITED = std::uint32_t{1} << 31;

    std::atomic<std::uint32_t> mInside{0};
};

}  // namespace utl

#endif  // UTL_VISITOR_COUNT_H
