// Internal. What a File has read ahead of its position, in large blocks, so that most lines take no
// system call. While it is on, the position is the one that is kept here; the one that the system
// knows stands still.
//
//     if (lines.isReady() || lines.start(descriptor, forks)) {
//         unsigned long const size = lineSize(lines.bytes(), lines.size());
//         lines.advance(size);
//     }
//     ...
//     lines.settle();  // the system knows the position again
//
// Whoever else has the descriptor knows only the system's position. In this process those are
// copies of the File, which does not let this be on while there are any. A forked child shares the
// descriptor too: before a fork every position is given to the system, and what was opened before
// it is never read ahead again.

#ifndef UTL_LINE_BUFFER_H
#define UTL_LINE_BUFFER_H

#include <atomic>

#include "platform/UtlFork.h"

namespace utl {

// Used by one thread at a time; any thread may fork.
class LineBuffer {
public:
    LineBuffer() = default;
    ~LineBuffer() { settle(); }
    LineBuffer(LineBuffer const&) = delete;
    LineBuffer& operator=(LineBuffer const&) = delete;

    // From here on forks are followed, by a number that is another one after each; 0 without memory
    // for that.
    static unsigned followForks();

    // Begins with an empty block at the position of `descriptor`. False when there was a fork since
    // that had the number `forks`, when the file ends there, and when it cannot say so.
    bool start(int descriptor, unsigned forks);

    // Gives the position to the system and the block up.
    void settle();

    // Whether it goes on from where it is. After a fork it does not: what is left to do is to
    // settle.
    bool isReady() const { return mIsOn && !isForked(); }

    long long position() const { return mBegin + mAt.load(std::memory_order_relaxed); }

    // What has been read from the position on. One byte behind it may be written to as well.
    unsigned char* bytes() { return mBlock + mAt.load(std::memory_order_relaxed); }
    unsigned long size() const { return mEnd - mAt.load(std::memory_order_relaxed); }

    // Reads on behind that; blocks. It may be at another place then.
    enum Filling { MORE, END, FAILED };
    Filling fill();

    // Goes `size` bytes on, which have been read.
    void advance(unsigned long size) {
        mAt.store(mAt.load(std::memory_order_relaxed) + static_cast<unsigned>(size),
                  std::memory_order_relaxed);
    }

private:
    static constexpr unsigned long FIRST_SIZE = 8192;  // for those who seek from line to line
    static constexpr unsigned long LARGEST_SIZE = 65536;

    static void settleAllLocked();

    bool isForked() const { return mForks == 0 || mForks != platform::forkCount(); }
    bool moveToFront();
    void knowSize();

    bool mIsOn = false;
    int mDescriptor = 0;
    unsigned mForks = 0;
    long long mSizeSeen = 0;  // of the file; it may have grown since
    unsigned long mEnd = 0;   // of what the block holds
    unsigned long mRoom = 0;  // what the block may hold now

    // Guarded by a lock of the process, but that the thread which uses this reads them without.
    long long mBegin = 0;          // of the block in the file
    std::atomic<unsigned> mAt{0};  // the position in the block; its thread sets it without
    unsigned mSettledAt = 0;       // the one that the system was given before the fork
    LineBuffer* mNext = nullptr;   // of those that are on
    LineBuffer* mPrevious = nullptr;

    unsigned char mBlock[LARGEST_SIZE + 1];
};

}  // namespace utl

#endif  // UTL_LINE_BUFFER_H
