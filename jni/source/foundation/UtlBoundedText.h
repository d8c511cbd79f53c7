// Internal. A caller's buffer that is filled with whole pieces, and what all of them would need.

#ifndef UTL_BOUNDED_TEXT_H
#define UTL_BOUNDED_TEXT_H

#include <cstring>

namespace utl {

class BoundedText {
public:
    // A null `dst` counts as no room.
    BoundedText(char* dst, unsigned long size)
        : mDst(dst), mRoom(dst != nullptr && size != 0 ? size - 1 : 0) {
        if (dst != nullptr && size != 0) {
            *dst = '\0';
        }
    }
    BoundedText(BoundedText const&) = delete;
    BoundedText& operator=(BoundedText const&) = delete;

    // From the first piece on that finds no room nothing more is stored.
    void add(char const* piece, unsigned long length) {
        if (mNeeded - 1 + length <= mRoom) {
            std::memcpy(mDst + mNeeded - 1, piece, length);
            mDst[mNeeded - 1 + length] = '\0';
        } else {
            mRoom = 0;
        }
        mNeeded += length;
    }

    // With the terminator.
    unsigned long needed() const { return mNeeded; }

private:
    char* const mDst;
    unsigned long mRoom;  // without the terminator
    unsigned long mNeeded = 1;
};

}  // namespace utl

#endif  // UTL_BOUNDED_TEXT_H
