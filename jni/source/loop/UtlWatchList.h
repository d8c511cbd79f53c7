// Internal. What a loop watches: one descriptor behind the other, in no order, and found by its
// number. What is done to one of them costs the same however many there are.

#ifndef UTL_WATCH_LIST_H
#define UTL_WATCH_LIST_H

#include <cstdint>
#include <memory>

#include "UtlArray.h"

namespace utl {

// The task of a loop, by its place in a table and its generation, that waits for a descriptor.
struct Watch {
    int descriptor;
    unsigned events;  // of Loop::Events
    std::uint32_t owner;
    std::uint32_t generation;
};

class WatchList {
public:
    // For 1 and more.
    explicit WatchList(unsigned long capacity)
        : mWatches(allocateElements<Watch>(capacity)),
          mPlaces(allocateElements<std::uint32_t>(placeCount(capacity))),
          mMask(static_cast<std::uint32_t>(placeCount(capacity) - 1)) {}
    WatchList(WatchList const&) = delete;
    WatchList& operator=(WatchList const&) = delete;

    // Whether there was memory.
    bool isMade() const { return mWatches != nullptr && mPlaces != nullptr; }

    Watch const* begin() const { return mWatches.get(); }
    Watch const* end() const { return mWatches.get() + mCount; }

    // There is room. False for a descriptor that is in it.
    bool insert(Watch const& watch) {
        std::uint32_t const place = find(watch.descriptor);
        if (mPlaces[place] != VACANT) {
            return false;
        }
        mWatches[mCount] = watch;
        mPlaces[place] = ++mCount;
        return true;
    }

    // It is in it.
    void erase(int descriptor) {
        std::uint32_t const place = find(descriptor);
        Watch const& last = mWatches[mCount - 1];
        mPlaces[find(last.descriptor)] = mPlaces[place];
        mWatches[mPlaces[place] - 1] = last;
        --mCount;
        vacate(place);
    }

private:
    static constexpr std::uint32_t VACANT = 0;

    // A power of two, so large that one half at the least is vacant.
    static unsigned long placeCount(unsigned long capacity) {
        unsigned long count = 2;
        while (count / 2 < capacity && count <= NONE / 2) {
            count *= 2;
        }
        return count;
    }

    // Numbers of descriptors are dense: most have a place to themselves.
    std::uint32_t homeOf(int descriptor) const {
        return static_cast<std::uint32_t>(descriptor) & mMask;
    }

    // The place that leads to the descriptor, or else the vacant one where it belongs.
    std::uint32_t find(int descriptor) const {
        std::uint32_t place = homeOf(descriptor);
        while (mPlaces[place] != VACANT && mWatches[mPlaces[place] - 1].descriptor != descriptor) {
            place = (place + 1) & mMask;
        }
        return place;
    }

    // Whoever stands behind and was to stand here, or before, moves up: nobody is looked for beyond
    // a vacant place.
    void vacate(std::uint32_t place) {
        for (std::uint32_t next = (place + 1) & mMask; mPlaces[next] != VACANT;
             next = (next + 1) & mMask) {
            std::uint32_t const home = homeOf(mWatches[mPlaces[next] - 1].descriptor);
            if (((next - home) & mMask) >= ((next - place) & mMask)) {
                mPlaces[place] = mPlaces[next];
                place = next;
            }
        }
        mPlaces[place] = VACANT;
    }

    std::unique_ptr<Watch[]> const mWatches;
    std::unique_ptr<std::uint32_t[]> const mPlaces;  // which watch it is, from 1
    std::uint32_t const mMask;
    std::uint32_t mCount = 0;
};

}  // namespace utl

#endif  // UTL_WATCH_LIST_H
