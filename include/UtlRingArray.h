// A circular buffer of fixed capacity: elements are found by their distance from a movable head.
// Allocates only when it is made; used by one thread at a time.

#ifndef UTL_RING_ARRAY_H
#define UTL_RING_ARRAY_H

#include <algorithm>
#include <type_traits>
#include <utility>

#include "UtlArray.h"

namespace utl {

// T must be default-constructible and assignable. ArgT is how elements are passed in.
template <typename T, typename ArgT = T const&>
class RingArray {
public:
    // `capacity` default-constructed slots; without memory the capacity is 0.
    explicit RingArray(unsigned long capacity)
        : mData(allocateElements<T>(capacity)), mCapacity(mData != nullptr ? capacity : 0) {}

    RingArray(RingArray const&) = delete;
    RingArray& operator=(RingArray const&) = delete;
    virtual ~RingArray() { delete[] mData; }

    unsigned long count() const { return mCount; }
    unsigned long capacity() const { return mCapacity; }

    // Logical elements. `index` must be below the capacity.
    T& operator[](unsigned long index) { return refRing(static_cast<long long>(index)); }
    T& at(unsigned long index) { return refRing(static_cast<long long>(index)); }

    // The slot `offset` places behind the head. `offset` must lie between -capacity and capacity,
    // both excluded: the wrap is a single correction. Not checked against count().
    T& refRing(long long offset) { return mData[wrap(mHead + offset)]; }

    // Up to `n` slots from logical element `offset` on that lie in a row, for copying in bulk.
    // `offset` must be below the capacity; `*length` becomes their number.
    T* stretch(unsigned long offset, unsigned long n, unsigned long* length) {
        unsigned long const slot = wrap(mHead + static_cast<long long>(offset));
        unsigned long const behind = mCapacity - slot;
        *length = std::min(n, behind);
        return mData + slot;
    }

    // The `n` slots from there on; nullptr where they do not lie in a row.
    T* row(unsigned long offset, unsigned long n) {
        unsigned long const slot = wrap(mHead + static_cast<long long>(offset));
        return n <= mCapacity - slot ? mData + slot : nullptr;
    }

    // Appends the next `n` slots as they stand, or drops the last elements. 0 when `count` is above
    // the capacity.
    int setCount(unsigned long count) {
        if (count > mCapacity) {
            return 0;
        }
        resetSlots(count, mCount);
        mCount = count;
        return 1;
    }

    // Drops the first `n` elements; `n` must not be above count().
    void dropFront(unsigned long n) {
        resetSlots(0, n);
        mHead = static_cast<long long>(wrap(mHead + static_cast<long long>(n)));
        mCount -= n;
    }

    // Empties the ring and brings its head back to the first slot.
    void clear() {
        setCount(0);
        mHead = 0;
    }

    // Removes `n` elements from `index` on, or as many as there are, by moving the later ones; the
    // head stays. 0 when `index` is not below count().
    int eraseAt(unsigned long index, unsigned long n) {
        if (index >= mCount) {
            return 0;
        }
        unsigned long const erased = std::min(n, mCount - index);
        if (erased == 0) {
            return 1;
        }
        unsigned long const moved = mCount - index - erased;
        for (unsigned long done = 0, length = 0; done < moved; done += length) {
            T* const from = stretch(index + erased + done, moved - done, &length);
            T* const to = stretch(index + done, length, &length);
            std::move(from, from + length, to);
        }
        return setCount(mCount - erased);
    }

    // The same, but moves the earlier elements, and the head, where those are fewer.
    int eraseWithFewMoves(unsigned long index, unsigned long n) {
        if (index >= mCount || n == 0 || n > mCount - index || index >= mCount - index - n) {
            return eraseAt(index, n);
        }
        for (unsigned long i = index; i > 0; --i) {
            at(i - 1 + n) = std::move(at(i - 1));
        }
        dropFront(n);
        return 1;
    }

    // Removes, in one pass, every group of `size` elements whose first index `isCondemned` is true
    // of. count() must be a multiple of `size`. The number of elements removed.
    template <typename IsCondemned>
    unsigned long eraseGroupsIf(unsigned long size, IsCondemned isCondemned) {
        unsigned long kept = 0;
        for (unsigned long i = 0; i < mCount; i += size) {
            if (isCondemned(i)) {
                continue;
            }
            for (unsigned long j = 0; j < size && kept != i; ++j) {
                at(kept + j) = std::move(at(i + j));
            }
            kept += size;
        }
        unsigned long const erased = mCount - kept;
        setCount(kept);
        return erased;
    }

private:
    unsigned long wrap(long long slot) const {
        long long const capacity = static_cast<long long>(mCapacity);
        if (slot < 0) {
            slot += capacity;
        } else if (slot >= capacity) {
            slot -= capacity;
        }
        return static_cast<unsigned long>(slot);
    }

    // What an element owned goes with it; plain values may stay behind.
    void resetSlots(unsigned long begin, unsigned long end) {
        if constexpr (!std::is_trivially_destructible<T>::value) {
            for (unsigned long i = begin; i < end; ++i) {
                at(i) = T();
            }
        }
    }

    T* mData;
    unsigned long mCount = 0;
    unsigned long mCapacity;
    long long mHead = 0;
};

}  // namespace utl

#endif  // UTL_RING_ARRAY_H
