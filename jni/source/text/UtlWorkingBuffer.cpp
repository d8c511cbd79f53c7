#include "UtlString.h"

#include "platform/UtlStaticLock.h"

namespace utl {
namespace {

constexpr int SLOT_COUNT = 3;

platform::StaticLock slotLock(platform::LockOrder::SCRATCH);
int slotDepth UTL_GUARDED_BY(slotLock) = 0;  // as are the slots, which their borrowers use
char slots[SLOT_COUNT][WorkingBuffer<char>::SIZE];

}  // namespace

StaticBuffer& StaticBuffer::get() {
    static StaticBuffer buffer;
    return buffer;
}

// Returns with the lock held, until the slot is given back.
int StaticBuffer::borrow() UTL_NO_THREAD_SAFETY_ANALYSIS {
    slotLock.lock();  // no guard: giveBack() is in the destructor of the borrower
    return slotDepth++;
}

// See borrow().
void StaticBuffer::giveBack() UTL_NO_THREAD_SAFETY_ANALYSIS {
    --slotDepth;
    slotLock.unlock();
}

char* StaticBuffer::slot(int number) const {
    if (number < 0) {
        return slots[0];
    }
    // Deliberate: a fourth nested buffer shares the last slot. The library nests three at most.
    return slots[number < SLOT_COUNT ? number : SLOT_COUNT - 1];
}

template <typename CharT>
WorkingBuffer<CharT>::WorkingBuffer() : mOwner(StaticBuffer::get()), mSlot(mOwner.borrow()) {}

template <typename CharT>
WorkingBuffer<CharT>::~WorkingBuffer() {
    mOwner.giveBack();
}

template <typename CharT>
WorkingBuffer<CharT>::operator CharT*() const {
    return mOwner.slot(mSlot);
}

template class WorkingBuffer<char>;

}  // namespace utl
