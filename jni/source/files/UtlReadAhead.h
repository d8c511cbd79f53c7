// Internal. Reads an open file block by block ahead of its position, which stays where it is: who
// looks at every byte seeks only once, when it is clear where to.
//
//     ReadAhead ahead(file, file.position(), file.availableSize());
//     while (ahead.readBlock()) {
//         sum += sumOf(ahead.block(), ahead.size());
//     }
//     if (ahead.hasFailed()) {
//         // what was read so far is not all
//     }

#ifndef UTL_READ_AHEAD_H
#define UTL_READ_AHEAD_H

namespace utl {

class File;

// Lives on the stack of the call that walks through the file; used by one thread.
class ReadAhead {
public:
    static constexpr unsigned long BLOCK_SIZE = 5120;

    // For `limit` bytes of `file`, which is open, from the position `begin` on. A `limit` of -1 is
    // a failure before anything was read.
    ReadAhead(File const& file, long long begin, long long limit);
    ReadAhead(ReadAhead const&) = delete;
    ReadAhead& operator=(ReadAhead const&) = delete;

    // Blocks while it reads the next block, of BLOCK_SIZE unless it is the last one. False at the
    // limit, where the block stays, at the end of the file, and after a failure, which is logged.
    bool readBlock();

    // Has the first block again, without reading where no second one was read.
    bool returnToBegin();

    // One byte behind it may be written to as well.
    unsigned char* block() { return mBlock; }
    unsigned long size() const { return mSize; }

    // Where the block begins in the file.
    long long position() const { return mNext - static_cast<long long>(mSize); }

    bool hasFailed() const { return mHasFailed; }

private:
    File const& mFile;
    long long const mBegin;
    long long const mEnd;
    long long mNext;  // behind the block
    unsigned long mSize = 0;
    bool mHasFailed;
    unsigned char mBlock[BLOCK_SIZE + 1];
};

}  // namespace utl

#endif  // UTL_READ_AHEAD_H
