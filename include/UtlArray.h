// A bounded array that allocates only when it is made, resized or allowed to grow.
//
//     Array<int> ids(16, 0);  // never more than 16
//     if (!ids.insertAt(ids.count(), id)) { ... }  // full
//
// Operations return 1 for done and 0 for refused, and change nothing when they refuse. Appending
// takes the same time however long the array is; inserting and erasing elsewhere move the elements
// behind, trivially copyable ones as a block. An array is used by one thread at a time.

#ifndef UTL_ARRAY_H
#define UTL_ARRAY_H

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "UtlApi.h"

namespace utl {

// `count` default elements for delete[]; nullptr for 0 and without memory. A count whose bytes
// cannot be counted is no memory either; the language would throw.
template <typename T>
T* allocateElements(unsigned long count) {
    bool const isCountable = count <= NONE / 4 / sizeof(T);
    return count != 0 && isCountable ? new (std::nothrow) T[count]() : nullptr;
}

// Whether an element can be moved over another one byte by byte.
template <typename T>
struct IsMovedAsBytes : std::is_trivially_copyable<T> {};

// Moves `count` elements to where others are; the areas may overlap.
template <typename T>
void moveElements(T* dst, T* src, unsigned long count) {
    if constexpr (IsMovedAsBytes<T>::value) {
        if (count != 0) {
            std::memmove(static_cast<void*>(dst), static_cast<void const*>(src), count * sizeof(T));
        }
    } else if (std::less<T*>()(src, dst)) {
        std::move_backward(src, src + count, dst + count);
    } else {
        std::move(src, src + count, dst);
    }
}

// T must be default-constructible and assignable. ArgT is how elements are passed in.
template <typename T, typename ArgT = T const&>
class Array {
public:
    static constexpr int FIXED = 0;
    static constexpr int GROWS = 1;

    // Room for `capacity` elements. In growth mode GROWS an operation that needs more makes the
    // capacity exactly what it needs; in any other mode it is refused. Allocates; without memory
    // the array has capacity 0.
    Array(unsigned long capacity, int growthMode)
        : mData(allocateElements<T>(capacity)),
          mCapacity(mData != nullptr ? capacity : 0),
          mRoom(mCapacity),
          mGrowthMode(growthMode) {}

    // The elements of `src`, with room for `minCapacity` at the least.
    Array(Array const& src, unsigned long minCapacity, int growthMode)
        : Array(src.mCount > minCapacity ? src.mCount : minCapacity, growthMode) {
        if (mCapacity >= src.mCount) {
            assignFrom(src, src.mCount);
        }
    }

    Array(Array const& src) : Array(src, src.mCapacity, src.mGrowthMode) {}

    // Assignment could be refused without a way to say so: copy() instead.
    Array& operator=(Array const&) = delete;

    virtual ~Array() { delete[] mData; }

    unsigned long count() const { return mCount; }
    unsigned long capacity() const { return mCapacity; }

    // `index` must be below count().
    T& operator[](unsigned long index) { return mData[index]; }
    T const& operator[](unsigned long index) const { return mData[index]; }
    T& at(unsigned long index) { return mData[index]; }
    T const& at(unsigned long index) const { return mData[index]; }

    // All elements in a row; nullptr while the capacity is 0.
    T const* data() const { return mData; }

    // Drops the elements from `count` on, or adds default ones. 0 when `count` is above the
    // capacity.
    int setCount(unsigned long count) {
        if (count > mCapacity) {
            return 0;
        }
        endAt(count);
        if constexpr (IsMovedAsBytes<T>::value) {
            resetSlots(mCount, count);
        }
        mCount = count;
        return 1;
    }

    // Makes the capacity exactly `newCapacity`; elements that find no room are dropped. Allocates
    // before it frees, and neither when the memory is large enough and more than half of it used.
    int resizeMax(unsigned long newCapacity) {
        if (newCapacity == mCapacity) {
            return 1;
        }
        bool const staysInPlace = newCapacity <= mRoom && newCapacity > mRoom / 2;
        if (!staysInPlace && !moveTo(newCapacity)) {
            return 0;
        }
        setCount(std::min(mCount, newCapacity));
        mCapacity = newCapacity;
        return 1;
    }

    // Replaces the elements by the first `n` of `src`, or all of them when it has fewer. Copying
    // an array to itself does nothing.
    int copy(Array const& src, unsigned long n) {
        if (&src == this) {
            return 1;
        }
        unsigned long const wanted = std::min(n, src.mCount);
        if (!makeRoom(wanted)) {
            return 0;
        }
        assignFrom(src, wanted);
        return 1;
    }

    // Puts `value`, which may be an element of this array, before the element at `index`;
    // an index of count() appends.
    int insertAt(unsigned long index, ArgT value) {
        if (index > mCount) {
            return 0;
        }
        if (isElement(value)) {
            T const held(value);
            return insertAt(index, held);
        }
        // Deliberate: the capacity grows by one element; one that callers can read stays exactly
        // what was needed. It is the memory behind it that grows in larger steps.
        if (!makeRoom(mCount + 1)) {
            return 0;
        }
        moveElements(mData + index + 1, mData + index, mCount - index);
        mData[index] = value;
        ++mCount;
        return 1;
    }

    int setAt(unsigned long index, ArgT value) {
        if (index >= mCount) {
            return 0;
        }
        mData[index] = value;
        return 1;
    }

    // Removes `n` elements from `index` on, or as many as there are.
    int eraseAt(unsigned long index, unsigned long n) {
        if (index >= mCount) {
            return 0;
        }
        unsigned long const erased = std::min(n, mCount - index);
        if (erased == 0) {
            return 1;
        }
        moveElements(mData + index, mData + index + erased, mCount - index - erased);
        return setCount(mCount - erased);
    }

private:
    // Takes the elements, as many as find room, to new memory. More than is needed where they are
    // to grow, so that growing by one again and again does not move them each time; but just what
    // is needed rather than none.
    bool moveTo(unsigned long needed) {
        unsigned long const ample = mRoom + mRoom / 2;  // cannot wrap: see allocateElements()
        unsigned long room = needed > mRoom ? std::max(needed, ample) : needed;
        T* data = allocateElements<T>(room);
        if (data == nullptr && room != needed) {
            room = needed;
            data = allocateElements<T>(room);
        }
        if (data == nullptr && needed != 0) {
            return false;
        }
        mCount = std::min(mCount, needed);
        moveElements(data, mData, mCount);
        delete[] mData;
        mData = data;
        mRoom = room;
        return true;
    }

    bool makeRoom(unsigned long needed) {
        return needed <= mCapacity || (mGrowthMode == GROWS && resizeMax(needed) != 0);
    }

    bool isElement(T const& value) const {
        std::less<T const*> const before;
        T const* const address = std::addressof(value);
        return !before(address, mData) && before(address, mData + mCount);
    }

    void assignFrom(Array const& src, unsigned long n) {
        std::copy(src.mData, src.mData + n, mData);
        endAt(n);
        mCount = n;
    }

    // A slot that holds no element holds nothing else either: no counted handle lives on in one.
    // What is only bytes may stay until the slot is used again.
    void endAt(unsigned long count) {
        if constexpr (!IsMovedAsBytes<T>::value) {
            resetSlots(count, mCount);
        }
    }

    void resetSlots(unsigned long begin, unsigned long end) {
        for (unsigned long i = begin; i < end; ++i) {
            mData[i] = T();
        }
    }

    T* mData;
    unsigned long mCount = 0;
    unsigned long mCapacity;
    unsigned long mRoom;  // elements in memory: mCapacity, or more than it tells
    int mGrowthMode;
};

}  // namespace utl

#endif  // UTL_ARRAY_H
