#include "files/UtlLineBuffer.h"

#include <algorithm>

#include "UtlRawMemory.h"

#include "platform/UtlFileSystem.h"
#include "platform/UtlStaticLock.h"

namespace utl {

namespace {

platform::StaticLock listLock(platform::LockOrder::LINES);
LineBuffer* firstOn UTL_GUARDED_BY(listLock) = nullptr;

}  // namespace

unsigned LineBuffer::followForks() {
    platform::beforeForks(settleAllLocked);
    return platform::followForks() ? platform::forkCount() : 0;
}

bool LineBuffer::start(int descriptor, unsigned forks) {
    mDescriptor = descriptor;
    knowSize();  // the file system may take long: without the lock that everybody's forks wait for
    platform::StaticGuard const guard(listLock);
    mForks = forks;
    if (isForked()) {
        return false;
    }
    mBegin = platform::seekFile(descriptor, 0, SEEK_CUR);
    mAt.store(0, std::memory_order_relaxed);
    mEnd = 0;
    mRoom = FIRST_SIZE;
    if (mBegin == -1 || mBegin >= mSizeSeen) {
        return false;
    }
    mPrevious = nullptr;
    mNext = firstOn;
    if (mNext != nullptr) {
        mNext->mPrevious = this;
    }
    firstOn = this;
    mIsOn = true;
    return true;
}

void LineBuffer::settle() {
    if (!mIsOn) {
        return;
    }
    platform::StaticGuard const guard(listLock);
    unsigned const at = mAt.load(std::memory_order_relaxed);
    if (isForked()) {
        // By so much as this thread has gone on before it came to see the fork; others may have
        // moved the position meanwhile.
        platform::seekFile(mDescriptor, static_cast<long long>(at) - mSettledAt, SEEK_CUR);
    } else {
        platform::seekFile(mDescriptor, mBegin + at, SEEK_SET);
    }
    (mPrevious != nullptr ? mPrevious->mNext : firstOn) = mNext;
    if (mNext != nullptr) {
        mNext->mPrevious = mPrevious;
    }
    mIsOn = false;
}

// The threads that use them go on without looking: what they add meanwhile they add when they see
// that there was a fork.
void LineBuffer::settleAllLocked() UTL_REQUIRES(listLock) {
    for (LineBuffer* lines = firstOn; lines != nullptr; lines = lines->mNext) {
        if (!lines->isForked()) {
            lines->mSettledAt = lines->mAt.load(std::memory_order_relaxed);
            platform::seekFile(lines->mDescriptor, lines->mBegin + lines->mSettledAt, SEEK_SET);
        }
    }
}

// False after a fork: its child then has the position in the block as it was.
bool LineBuffer::moveToFront() {
    platform::StaticGuard const guard(listLock);
    if (isForked()) {
        return false;
    }
    unsigned const at = mAt.load(std::memory_order_relaxed);
    moveMemory(mBlock, mBlock + at, mEnd - at);
    mEnd -= at;
    mBegin += at;
    mAt.store(0, std::memory_order_relaxed);
    return true;
}

void LineBuffer::knowSize() {
    platform::FileStatus status;
    mSizeSeen = platform::descriptorStatus(mDescriptor, &status) ? status.st_size : -1;
}

LineBuffer::Filling LineBuffer::fill() {
    if (!moveToFront()) {
        return FAILED;
    }
    long long const begin = mBegin + static_cast<long long>(mEnd);
    if (begin >= mSizeSeen) {
        knowSize();
    }
    if (begin >= mSizeSeen) {
        return mSizeSeen != -1 ? END : FAILED;
    }
    long long const wanted =
        std::min(mSizeSeen - begin, static_cast<long long>(mRoom) - static_cast<long long>(mEnd));
    long const got =
        platform::readFileAt(mDescriptor, begin, mBlock + mEnd, static_cast<unsigned long>(wanted));
    mRoom = LARGEST_SIZE;
    if (got <= 0) {
        return got == 0 ? END : FAILED;
    }
    mEnd += static_cast<unsigned long>(got);
    return MORE;
}

}  // namespace utl
