// Internal. What a loop counts of itself, cheaply enough to do it always: one look at the kernel's
// last tick for each thing that is posted and for each that was handled, and no write that another
// processor waits for.

#ifndef UTL_LOOP_FIGURES_H
#define UTL_LOOP_FIGURES_H

#include <atomic>
#include <cstdint>

#include "UtlMsgDrivenThread.h"

#include "messaging/UtlCacheDistance.h"
#include "platform/UtlClock.h"

namespace utl {

class LoopFigures {
public:
    // When something is posted, for noteWait().
    static std::int32_t stamp() { return static_cast<std::int32_t>(platform::coarseTick()); }

    // With the mutex of the queue held.

    void countPostedLocked() { add(&mPosted, 1); }
    void countTakenBackLocked() { add(&mPosted, -1UL); }
    unsigned long maxWaiting() const { return mMaxWaiting.load(std::memory_order_relaxed); }
    void noteWaitingLocked(unsigned long waiting) {
        if (waiting > maxWaiting()) {
            mMaxWaiting.store(waiting, std::memory_order_relaxed);
        }
    }

    // Any thread.

    void countRefused() { mRefused.fetch_add(1, std::memory_order_relaxed); }
    void setLimit(unsigned long ms) { mLimit.store(ms, std::memory_order_relaxed); }
    unsigned long limit() const { return mLimit.load(std::memory_order_relaxed); }
    LoopStatistics read(unsigned long waiting) const {
        LoopStatistics statistics;
        statistics.waiting = waiting;
        statistics.maxWaiting = maxWaiting();
        statistics.posted = mPosted.load(std::memory_order_relaxed);
        statistics.refused = mRefused.load(std::memory_order_relaxed);
        statistics.handled = handled();
        statistics.longestWaitMs = mLongestWait.load(std::memory_order_relaxed);
        statistics.longestHandlerMs = mLongestHandler.load(std::memory_order_relaxed);
        statistics.longestHandlerId = mLongestHandlerId.load(std::memory_order_relaxed);
        return statistics;
    }
    unsigned long handled() const { return mHandled.load(std::memory_order_relaxed); }

    // The loop only.

    void wake() { mNow = platform::coarseTick(); }
    void countHandled() { add(&mHandled, 1); }

    // What was posted at `stamp` is about to be handled. It may have been posted after this looked
    // at the clock last.
    void noteWait(std::int32_t stamp) {
        auto const wait = static_cast<std::int32_t>(mNow - static_cast<std::uint32_t>(stamp));
        if (wait > static_cast<std::int32_t>(mLongestWait.load(std::memory_order_relaxed))) {
            mLongestWait.store(static_cast<std::uint32_t>(wait), std::memory_order_relaxed);
        }
    }

    // It was handled: how long that took since the last call of this or of wake().
    std::uint32_t noteHandler(long msgId) {
        std::uint32_t const begin = mNow;
        mNow = platform::coarseTick();
        std::uint32_t const took = mNow - begin;
        if (took > mLongestHandler.load(std::memory_order_relaxed)) {
            mLongestHandler.store(took, std::memory_order_relaxed);
            mLongestHandlerId.store(msgId, std::memory_order_relaxed);
        }
        return took;
    }

private:
    // By one writer at a time.
    static void add(std::atomic<unsigned long>* count, unsigned long more) {
        count->store(count->load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
    }

    std::atomic<unsigned long> mHandled{0};
    std::uint32_t mNow = 0;
    std::atomic<std::uint32_t> mLongestWait{0};
    std::atomic<std::uint32_t> mLongestHandler{0};
    std::atomic<long> mLongestHandlerId{LoopStatistics::NOTHING};
    std::atomic<unsigned long> mLimit{0};  // 0: none

    CacheDistance mBeforeSending;
    std::atomic<unsigned long> mPosted{0};
    std::atomic<unsigned long> mMaxWaiting{0};
    std::atomic<unsigned long> mRefused{0};
    CacheDistance mBehindSending;
};

}  // namespace utl

#endif  // UTL_LOOP_FIGURES_H
