// Internal. Moments, each with its owner, of which the earliest is at hand: a heap with four
// branches at each fork. Owners are numbers below the capacity, each in it once at the most.

#ifndef UTL_DEADLINE_HEAP_H
#define UTL_DEADLINE_HEAP_H

#include <cstdint>
#include <memory>

#include "UtlArray.h"

namespace utl {

class DeadlineHeap {
public:
    struct Entry {
        std::uint64_t due;
        std::uint32_t order;  // in which equal ones were inserted; wraps
        std::uint32_t owner;
    };

    explicit DeadlineHeap(unsigned long capacity)
        : mEntries(allocateElements<Entry>(capacity)),
          mPlaces(allocateElements<std::uint32_t>(capacity)) {}
    DeadlineHeap(DeadlineHeap const&) = delete;
    DeadlineHeap& operator=(DeadlineHeap const&) = delete;

    // Whether there was memory.
    bool isMade() const { return mEntries != nullptr && mPlaces != nullptr; }

    bool isEmpty() const { return mCount == 0; }

    // The earliest, of equal ones the one that was inserted first. Not of an empty heap.
    Entry const& first() const { return mEntries[0]; }

    void insert(std::uint64_t due, std::uint32_t owner) {
        rise(mCount++, {due, mNextOrder++, owner});
    }

    // `owner` is in it.
    void erase(std::uint32_t owner) {
        std::uint32_t const place = mPlaces[owner];
        Entry const last = mEntries[--mCount];
        if (place == mCount) {
            return;
        }
        if (place != 0 && isBefore(last, mEntries[parentOf(place)])) {
            rise(place, last);
        } else {
            sink(place, last);
        }
    }

private:
    static constexpr std::uint32_t BRANCHES = 4;

    static std::uint32_t parentOf(std::uint32_t place) { return (place - 1) / BRANCHES; }

    static bool isBefore(Entry const& a, Entry const& b) {
        return a.due != b.due ? a.due < b.due : static_cast<std::int32_t>(a.order - b.order) < 0;
    }

    void put(std::uint32_t place, Entry const& entry) {
        mEntries[place] = entry;
        mPlaces[entry.owner] = place;
    }

    void rise(std::uint32_t place, Entry const& entry) {
        while (place != 0 && isBefore(entry, mEntries[parentOf(place)])) {
            put(place, mEntries[parentOf(place)]);
            place = parentOf(place);
        }
        put(place, entry);
    }

    void sink(std::uint32_t place, Entry const& entry) {
        for (;;) {
            std::uint32_t const child = earliestChildOf(place);
            if (child >= mCount || !isBefore(mEntries[child], entry)) {
                put(place, entry);
                return;
            }
            put(place, mEntries[child]);
            place = child;
        }
    }

    // mCount or more when there is none.
    std::uint32_t earliestChildOf(std::uint32_t place) const {
        std::uint32_t const first = place * BRANCHES + 1;
        std::uint32_t earliest = first;
        for (std::uint32_t child = first + 1; child < first + BRANCHES && child < mCount; ++child) {
            if (isBefore(mEntries[child], mEntries[earliest])) {
                earliest = child;
            }
        }
        return earliest;
    }

    std::unique_ptr<Entry[]> const mEntries;
    std::unique_ptr<std::uint32_t[]> const mPlaces;  // of each owner
    std::uint32_t mCount = 0;
    std::uint32_t mNextOrder = 0;
};

}  // namespace utl

#endif  // UTL_DEADLINE_HEAP_H
