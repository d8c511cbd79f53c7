// Internal. The live allocations of the heap accounting. Zero at load and never destroyed; takes up
// memory only as it fills. Not synchronised.

#ifndef UTL_HEAP_TABLE_H
#define UTL_HEAP_TABLE_H

#include <algorithm>
#include <cstdint>
#include <utility>

#include "UtlMemory.h"

namespace utl {

// Which entries of a table of CAPACITY to look at for a key: those in the chain of its hash, the
// latest first. Links are the number of an entry plus 1, or 0 at the end.
template <std::uint32_t CAPACITY>
class HashChains {
public:
    using Link = std::uint32_t;

    // The link to the first entry that `isWanted` is true of; one that is 0 if there is none.
    template <typename IsWanted>
    Link* find(std::uint32_t hash, IsWanted isWanted) {
        Link* link = &mFirst[hash % CAPACITY];
        while (*link != 0 && !isWanted(*link - 1)) {
            link = &mNext[*link - 1];
        }
        return link;
    }

    void add(std::uint32_t hash, std::uint32_t entry) {
        mNext[entry] = mFirst[hash % CAPACITY];
        mFirst[hash % CAPACITY] = entry + 1;
    }

    // Takes the entry that a link leads to out of its chain.
    void remove(Link* link) { *link = mNext[*link - 1]; }

    void clear() { std::fill(mFirst, mFirst + CAPACITY, 0); }

private:
    Link mFirst[CAPACITY];
    Link mNext[CAPACITY];
};

// What it costs to add and to remove does not depend on how many there are.
template <std::uint32_t CAPACITY>
class HeapTable {
public:
    using Info = Memory::DetailHeapInfo;

    // False when it is full.
    bool add(Info const& info) {
        if (mFreeCount == 0 && mPlaces == CAPACITY) {
            return false;
        }
        std::uint32_t const place = mFreeCount != 0 ? mFree[--mFreeCount] : mPlaces++;
        mInfos[place] = info;
        mChains.add(hashOf(info.address), place);
        return true;
    }

    // Removes the latest of those at `address`. False when there is none.
    bool remove(std::uintptr_t address, Info* removed) {
        auto const link = mChains.find(
            hashOf(address), [=](std::uint32_t place) { return mInfos[place].address == address; });
        if (*link == 0) {
            return false;
        }
        std::uint32_t const place = *link - 1;
        mChains.remove(link);
        *removed = std::exchange(mInfos[place], Memory::INITIAL_DETAIL_HEAP_INFO);
        mFree[mFreeCount++] = place;
        return true;
    }

    void clear() {
        mChains.clear();
        mPlaces = 0;
        mFreeCount = 0;
    }

    std::uint32_t count() const { return mPlaces - mFreeCount; }

    // Places in no order, some of them empty: these have a serial of 0.
    std::uint32_t places() const { return mPlaces; }
    Info const& operator[](std::uint32_t place) const { return mInfos[place]; }

private:
    static std::uint32_t hashOf(std::uintptr_t address) {
        constexpr std::uint64_t SPREAD = 0x9E3779B97F4A7C15u;  // neighbours go to different chains
        return static_cast<std::uint32_t>(address * SPREAD >> 32);
    }

    Info mInfos[CAPACITY];
    HashChains<CAPACITY> mChains;
    std::uint32_t mFree[CAPACITY];
    std::uint32_t mFreeCount;
    std::uint32_t mPlaces;
};

}  // namespace utl

#endif  // UTL_HEAP_TABLE_H
