// A first-in first-out queue of fixed capacity. Elements go in and out in groups; a group that does
// not fit is refused whole. Allocates only when it is made; used by one thread at a time.

#ifndef UTL_QUEUE_H
#define UTL_QUEUE_H

#include <algorithm>

#include "UtlRingArray.h"

namespace utl {

// Elements come out in the order in which they went in.
template <typename T>
class Queue {
public:
    explicit Queue(unsigned long capacity) : mRing(capacity) {}
    Queue(Queue const&) = delete;
    Queue& operator=(Queue const&) = delete;
    virtual ~Queue() = default;

    unsigned long count() const { return mRing.count(); }
    unsigned long capacity() const { return mRing.capacity(); }

    // The element `index` places behind the front; `index` must be below count().
    T& operator[](unsigned long index) { return mRing[index]; }
    T& at(unsigned long index) { return mRing[index]; }

    // Appends `n` elements in order. 0, with nothing stored, for a null source or too little room.
    int enqueue(T const* src, unsigned long n) {
        if (src == nullptr || n > mRing.capacity() - mRing.count()) {
            return 0;
        }
        unsigned long const end = mRing.count();
        mRing.setCount(end + n);
        if (T* const slots = mRing.row(end, n)) {
            std::copy(src, src + n, slots);
            return 1;
        }
        for (unsigned long done = 0, length; done < n; done += length) {
            T* const slots = mRing.stretch(end + done, n - done, &length);
            std::copy(src + done, src + done + length, slots);
        }
        return 1;
    }

    // Copies up to `n` elements from the one at `offset` on and leaves the queue as it is. 0 for a
    // null destination or an `offset` that is not below count().
    int peek(T* dst, unsigned long offset, unsigned long n) {
        if (offset >= mRing.count() || dst == nullptr) {
            return 0;
        }
        copyOut(dst, offset, n);
        return 1;
    }

    // Takes up to `n` elements from the front; a null `dst` discards them. 0 when the queue is
    // empty.
    int dequeue(T* dst, unsigned long n) {
        if (mRing.count() == 0) {
            return 0;
        }
        if (dst != nullptr) {
            copyOut(dst, 0, n);
        }
        mRing.dropFront(std::min(n, mRing.count()));
        return 1;
    }

    // Removes `n` elements from the one at `index` on, or as many as there are. Moves those before
    // or those behind, whichever are fewer: none at either end.
    int eraseAt(unsigned long index, unsigned long n) { return mRing.eraseWithFewMoves(index, n); }

    // Removes every element that `isCondemned` is true of. Their number.
    template <typename IsCondemned>
    unsigned long eraseIf(IsCondemned isCondemned) {
        return mRing.eraseGroupsIf(
            1, [this, isCondemned](unsigned long index) { return isCondemned(mRing[index]); });
    }

    // Removes every group of `size` elements, counted from the front, whose first index
    // `isCondemned` is true of. count() must be a multiple of `size`. The number of elements.
    template <typename IsCondemned>
    unsigned long eraseGroupsIf(unsigned long size, IsCondemned isCondemned) {
        return mRing.eraseGroupsIf(size, isCondemned);
    }

    void clear() { mRing.clear(); }

private:
    // Groups that lie in a row are copied with the size that the caller has given, which is often
    // known where this is compiled.
    void copyOut(T* dst, unsigned long offset, unsigned long n) {
        if (n <= mRing.count() - offset) {
            if (T const* const slots = mRing.row(offset, n)) {
                std::copy(slots, slots + n, dst);
                return;
            }
        }
        unsigned long const copied = std::min(n, mRing.count() - offset);
        for (unsigned long done = 0, length; done < copied; done += length) {
            T const* const slots = mRing.stretch(offset + done, copied - done, &length);
            std::copy(slots, slots + length, dst + done);
        }
    }

    RingArray<T, T const&> mRing;
};

}  // namespace utl

#endif  // UTL_QUEUE_H
