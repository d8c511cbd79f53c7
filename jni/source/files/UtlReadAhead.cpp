#include "files/UtlReadAhead.h"

#include <algorithm>

#include "UtlFile.h"

namespace utl {

ReadAhead::ReadAhead(File const& file, long long begin, long long limit)
    : mFile(file), mBegin(begin), mEnd(begin + limit), mNext(begin), mHasFailed(limit < 0) {}

bool ReadAhead::readBlock() {
    if (mNext >= mEnd) {
        return false;
    }
    unsigned long const wanted =
        static_cast<unsigned long>(std::min<long long>(mEnd - mNext, BLOCK_SIZE));
    long got = 1;
    for (mSize = 0; mSize < wanted && got > 0;) {
        got = mFile.readAt(mNext, mBlock + mSize, wanted - mSize);
        unsigned long const more = got > 0 ? static_cast<unsigned long>(got) : 0;
        mSize += more;
        mNext += static_cast<long long>(more);
    }
    mHasFailed = got < 0;
    return !mHasFailed && mSize != 0;
}

bool ReadAhead::returnToBegin() {
    if (position() == mBegin) {
        return true;
    }
    mNext = mBegin;
    return readBlock();
}

}  // namespace utl
