// Internal. A record in memory that belongs to somebody else: a slot of a queue, the room of a
// loop.

#ifndef UTL_BORROWED_RECORD_H
#define UTL_BORROWED_RECORD_H

#include "UtlThreadRawMsg.h"

namespace utl {

class BorrowedRecord : public ThreadRawMsg {
public:
    BorrowedRecord() = default;
    BorrowedRecord(BorrowedRecord const&) = delete;
    BorrowedRecord& operator=(BorrowedRecord const&) = delete;

    // The record is what is at `bytes` from now on, whatever became of it before: a listener may
    // have assigned another record to the one that it was given.
    void attach(unsigned char* bytes, unsigned long size) { replaceBuffer(bytes, size, true); }
};

}  // namespace utl

#endif  // UTL_BORROWED_RECORD_H
