// Internal. The records of a heap table in the order of their addresses, the latest first of those
// at one address, for as long as it takes and while others change the table.
//
//     HeapListing<Table> listing(table, tableLock, 1, nextSerial, table.count());
//     while (Memory::DetailHeapInfo const* info = listing.next()) { ... }
//
// Gives what was in the table when it was made, less what was released before it came to that. The
// lock is held for a few records at a time.

#ifndef UTL_HEAP_LISTING_H
#define UTL_HEAP_LISTING_H

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>

#include "UtlMemory.h"

#include "platform/UtlStaticLock.h"

namespace utl {

// Memory from the system itself: what is listed may be why the heap has none.
class SystemMemory {
public:
    explicit SystemMemory(unsigned long size)
        : mSize(size),
          mAddress(
              mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
    ~SystemMemory() {
        if (mAddress != MAP_FAILED) {
            munmap(mAddress, mSize);
        }
    }
    SystemMemory(SystemMemory const&) = delete;
    SystemMemory& operator=(SystemMemory const&) = delete;

    void* get() const { return mAddress != MAP_FAILED ? mAddress : nullptr; }

private:
    unsigned long const mSize;
    void* const mAddress;
};

template <typename Table>
class HeapListing {
public:
    using Info = Memory::DetailHeapInfo;

    // Of the records with serials from `begin`, at least 1, up to but not including `end`; about
    // `expected` in number.
    HeapListing(Table const& table, platform::StaticLock& lock, std::uint64_t begin,
                std::uint64_t end, unsigned long expected)
        : mTable(table),
          mLock(lock),
          mBegin(begin),
          mEnd(end),
          mMemory((expected + 1) * sizeof(Info)) {
        if (mMemory.get() != nullptr) {
            mRows = static_cast<Info*>(mMemory.get());
            mRoom = expected + 1;
        }
    }

    // nullptr behind the last one.
    Info const* next() {
        if (mGiven == mCount && !mIsComplete) {
            collect();
        }
        return mGiven != mCount ? &mRows[mGiven++] : nullptr;
    }

private:
    static constexpr std::uint32_t STEP = 64;
    static constexpr Info BEFORE_ALL = {~std::uint64_t{0}, 0, 0, 0, 0, 0};

    static bool precedes(Info const& a, Info const& b) {
        return a.address != b.address ? a.address < b.address : a.serial > b.serial;
    }

    // The rows that follow, as many as there is room for: without memory for all of them, this goes
    // through the table again for every few.
    void collect() {
        Info const last = mCount != 0 ? mRows[mCount - 1] : BEFORE_ALL;
        mGiven = mCount = 0;
        Info infos[STEP];
        unsigned long copied = 0;
        for (std::uint32_t place = 0; copyStep(place, infos, &copied); place += STEP) {
            for (unsigned long i = 0; i < copied; ++i) {
                if (precedes(last, infos[i])) {
                    keep(infos[i]);
                }
            }
        }
        std::sort_heap(mRows, mRows + mCount, precedes);
        mIsComplete = mCount < mRoom;
    }

    // False behind the last place.
    bool copyStep(std::uint32_t begin, Info* infos, unsigned long* copied) const {
        platform::StaticGuard const guard(mLock);
        *copied = 0;
        std::uint32_t const end = std::min(begin + STEP, mTable.places());
        for (std::uint32_t place = begin; place < end; ++place) {
            Info const& info = mTable[place];
            if (info.serial >= mBegin && info.serial < mEnd) {
                infos[(*copied)++] = info;
            }
        }
        return begin < end;
    }

    // In a heap with the last row on top, which makes room for one that precedes it.
    void keep(Info const& info) {
        if (mCount == mRoom) {
            if (!precedes(info, mRows[0])) {
                return;
            }
            std::pop_heap(mRows, mRows + mCount--, precedes);
        }
        mRows[mCount++] = info;
        std::push_heap(mRows, mRows + mCount, precedes);
    }

    Table const& mTable UTL_GUARDED_BY(mLock);
    platform::StaticLock& mLock;
    std::uint64_t const mBegin;
    std::uint64_t const mEnd;
    SystemMemory const mMemory;
    Info mFew[STEP];
    Info* mRows = mFew;
    unsigned long mRoom = STEP;
    unsigned long mCount = 0;
    unsigned long mGiven = 0;
    bool mIsComplete = false;
};

}  // namespace utl

#endif  // UTL_HEAP_LISTING_H
