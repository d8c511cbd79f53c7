// Internal. Stores a text piece by piece, as copyGeneral() would store each behind the one before,
// but without measuring it again.

#ifndef UTL_TEXT_APPENDER_H
#define UTL_TEXT_APPENDER_H

#include "UtlRawMemory.h"
#include "UtlString.h"

#include "text/UtlUtf8.h"

namespace utl {

class Appender {
public:
    Appender(char* dst, unsigned long size, int trunc) : mDst(dst), mSize(size), mTrunc(trunc) {}

    // A piece of whole characters, if it is not malformed. False when it fails.
    bool append(char const* piece, unsigned long bytes) {
        if (bytes == 0) {
            return true;
        }
        if (fits(bytes) && (mTrunc != TRUNCATE || utf8::validBytes(piece, bytes) == bytes)) {
            store(piece, bytes);
            return true;
        }
        unsigned long const used = copyGeneral(mDst, mSize, mStored, piece, 0, bytes, mTrunc);
        mStored = used - 1;
        return used != NONE;
    }

    // Characters that are valid, one by one where not all of them find room. Deliberate: what trunc
    // leaves out does not end that; something shorter behind it may still be stored, and the
    // results of callers with short buffers show it.
    bool appendEach(char const* characters, unsigned long bytes) {
        if (fits(bytes)) {
            store(characters, bytes);
            return true;
        }
        for (unsigned long pos = 0, step; pos < bytes; pos += step) {
            step = utf8::bytesFromLead(characters[pos]);
            if (!append(characters + pos, step)) {
                return false;
            }
        }
        return true;
    }

    // Stores the last piece, all of `text`, and returns the bytes used then.
    unsigned long finish(char const* text) {
        return copyGeneral(mDst, mSize, mStored, text, 0, ALL, mTrunc);
    }

private:
    bool fits(unsigned long bytes) const {
        return mDst != nullptr && mStored < mSize && bytes < mSize - mStored;
    }

    void store(char const* piece, unsigned long bytes) {
        moveMemory(mDst + mStored, piece, bytes);
        mStored += bytes;
    }

    char* const mDst;
    unsigned long const mSize;
    int const mTrunc;
    unsigned long mStored = 0;  // without the terminator, which only finish() is sure to store
};

}  // namespace utl

#endif  // UTL_TEXT_APPENDER_H
