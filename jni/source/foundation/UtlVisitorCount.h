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

#include <sched.h>

#include <atomic>

namespace utl {

class VisitorCount {
public:
    class Visit {
    public:
        explicit Visit(VisitorCount& count) : mInside(count.mInside) { mInside.fetch_add(1); }
        ~Visit() { mInside.fetch_sub(1, std::memory_order_release); }
        Visit(Visit const&) = delete;
        Visit& operator=(Visit const&) = delete;

    private:
        std::atomic<int>& mInside;
    };

    // For visits that are short and never wait for the thread that calls this.
    void awaitNone() const {
        while (mInside.load() != 0) {
            sched_yield();
        }
    }

    // When it is certain that nobody is inside, whatever the count says.
    void forget() { mInside.store(0); }

private:
    std::atomic<int> mInside{0};
};

}  // namespace utl

#endif  // UTL_VISITOR_COUNT_H
