// Internal. A ring of slots of one size. Any thread puts in at the end, one at a time, under a
// lock; the loop takes out at the front without it, so that senders and the loop do not wait for
// each other.

#ifndef UTL_SLOT_RING_H
#define UTL_SLOT_RING_H

#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>

#include "UtlArray.h"

#include "messaging/UtlCacheDistance.h"

namespace utl {

class SlotRing {
public:
    // Allocates `capacity` slots of `slotSize` bytes, which must not be 0; the first is aligned for
    // anything. Without memory the capacity is 0.
    SlotRing(unsigned long slotSize, unsigned long capacity)
        : mSlotSize(slotSize),
          mRoom(capacity <= NONE / slotSize
                    ? allocateElements<Aligned>(capacity * slotSize / sizeof(Aligned) + 1)
                    : nullptr),
          mBytes(reinterpret_cast<unsigned char*>(mRoom.get())),
          mCapacity(mBytes != nullptr ? capacity : 0) {}
    SlotRing(SlotRing const&) = delete;
    SlotRing& operator=(SlotRing const&) = delete;

    unsigned long capacity() const { return mCapacity; }

    // Any thread. Exact for the loop, and for who holds the lock but that the loop may take
    // meanwhile.
    unsigned long count() const {
        unsigned long const taken = mTaken.load(std::memory_order_acquire);
        return mPut.load(std::memory_order_acquire) - taken;
    }

    // With the lock held: at least as many as there are, by what is known of the loop; and exactly.
    unsigned long mostCount() const { return mPut.load(std::memory_order_relaxed) - mTakenSeen; }
    unsigned long countAgain() {
        mTakenSeen = mTaken.load(std::memory_order_acquire);
        return mostCount();
    }

    // With the lock held: the slot behind the last one, with whatever was in it before, for put()
    // to make it the last. nullptr when the ring is full.
    unsigned char* end() {
        unsigned long const put = mPut.load(std::memory_order_relaxed);
        if (put - mTakenSeen >= mCapacity) {
            mTakenSeen = mTaken.load(std::memory_order_acquire);
        }
        return put - mTakenSeen < mCapacity ? slot(mEnd) : nullptr;
    }
    void put() {
        mEnd = mEnd + 1 < mCapacity ? mEnd + 1 : 0;
        setPut(mPut.load(std::memory_order_relaxed) + 1);
    }

    // With the lock held, while the loop takes nothing: the last slot is none any more.
    void takeBack() {
        mEnd = mEnd != 0 ? mEnd - 1 : mCapacity - 1;
        setPut(mPut.load(std::memory_order_relaxed) - 1);
    }

    // The loop: the first slot, or nullptr; and taking it out.
    unsigned char* front() {
        unsigned long const taken = mTaken.load(std::memory_order_relaxed);
        if (taken == mPutSeen) {
            mPutSeen = mPut.load(std::memory_order_acquire);
        }
        return taken != mPutSeen ? slot(mFront) : nullptr;
    }
    void drop() {
        mFront = mFront + 1 < mCapacity ? mFront + 1 : 0;
        unsigned long const taken = mTaken.load(std::memory_order_relaxed) + 1;
        mTaken.store(taken, std::memory_order_release);
        if (mPutSeen - taken > 2 * SLOTS_AHEAD) {
            __builtin_prefetch(at(SLOTS_AHEAD));
        }
    }

    // The loop, with the lock held; or who holds the lock of a loop that takes with it held.
    // `index` counts from the front and must be below count().
    unsigned char const* at(unsigned long index) const { return slot(place(index)); }

    // The loop, with the lock held. Removes every slot that `isCondemned` is true of; their number.
    template <typename IsCondemned>
    unsigned long eraseIf(IsCondemned isCondemned) {
        unsigned long const present = count();
        unsigned long kept = 0;
        for (unsigned long i = 0; i < present; ++i) {
            if (isCondemned(at(i))) {
                continue;
            }
            if (kept != i) {
                std::memcpy(slot(place(kept)), at(i), mSlotSize);
            }
            ++kept;
        }
        unsigned long const erased = present - kept;
        if (erased != 0) {
            mEnd = place(kept);
            mPutSeen = mPut.load(std::memory_order_relaxed) - erased;
            setPut(mPutSeen);
        }
        return erased;
    }

private:
    struct alignas(std::max_align_t) Aligned {
        unsigned char bytes[alignof(std::max_align_t)];
    };

    // Where the senders are well ahead, the loop asks for the memory of the slots to come, which
    // was last written on another processor, while it deals with this one. Nearer to the senders it
    // would take from them what they are about to write.
    static constexpr unsigned long SLOTS_AHEAD = 8;

    unsigned char* slot(unsigned long index) const { return mBytes + index * mSlotSize; }
    unsigned long place(unsigned long index) const {
        unsigned long const behind = mCapacity - mFront;
        return index < behind ? mFront + index : index - behind;
    }
    void setPut(unsigned long put) { mPut.store(put, std::memory_order_release); }

    unsigned long const mSlotSize;
    std::unique_ptr<Aligned[]> const mRoom;
    unsigned char* const mBytes;
    unsigned long const mCapacity;

    // Each side looks at the other's counter only when what it saw last is used up.

    CacheDistance mBeforePutting;
    unsigned long mEnd = 0;              // guarded by the lock
    unsigned long mTakenSeen = 0;        // likewise
    std::atomic<unsigned long> mPut{0};  // how many there ever were; wraps

    CacheDistance mBeforeTaking;
    unsigned long mFront = 0;    // the loop's
    unsigned long mPutSeen = 0;  // likewise
    std::atomic<unsigned long> mTaken{0};
};

}  // namespace utl

#endif  // UTL_SLOT_RING_H
