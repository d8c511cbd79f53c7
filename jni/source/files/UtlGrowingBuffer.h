// Internal. Elements in a row that takes what room it needs, by doubling: adding one costs the same
// however many there are.

#ifndef UTL_GROWING_BUFFER_H
#define UTL_GROWING_BUFFER_H

#include <memory>
#include <new>
#include <type_traits>

#include "UtlApi.h"
#include "UtlRawMemory.h"

namespace utl {

template <typename T>
class GrowingBuffer {
    static_assert(std::is_trivially_copyable<T>::value, "elements are moved as bytes");

public:
    unsigned long size() const { return mSize; }
    bool isEmpty() const { return mSize == 0; }
    T const* data() const { return mData.get(); }
    T& last() { return mData[mSize - 1]; }

    // False, and nothing is added, without memory.
    bool append(T const* elements, unsigned long count) {
        if (!makeRoom(count)) {
            return false;
        }
        copyMemory(mData.get() + mSize, elements, count * sizeof(T));
        mSize += count;
        return true;
    }

    // Drops what is behind the first `size` elements.
    void cut(unsigned long size) { mSize = size; }

private:
    bool makeRoom(unsigned long count) {
        unsigned long const most = NONE / 2 / sizeof(T);
        if (count <= mCapacity - mSize) {
            return true;
        }
        if (count > most / 2 || mSize > most / 2) {
            return false;
        }
        unsigned long const capacity = 2 * (mSize + count);
        std::unique_ptr<T[]> data(new (std::nothrow) T[capacity]);
        if (data == nullptr) {
            return false;
        }
        copyMemory(data.get(), mData.get(), mSize * sizeof(T));
        mData = std::move(data);
        mCapacity = capacity;
        return true;
    }

    std::unique_ptr<T[]> mData;
    unsigned long mSize = 0;
    unsigned long mCapacity = 0;
};

}  // namespace utl

#endif  // UTL_GROWING_BUFFER_H
