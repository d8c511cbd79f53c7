// Internal. The pipe that a loop sleeps on, and is woken by: eight bytes for each wake-up.

#ifndef UTL_WAKE_PIPE_H
#define UTL_WAKE_PIPE_H

#include <sys/types.h>

#include <cstdint>

#include "platform/UtlPipe.h"

namespace utl {

class WakePipe {
public:
    struct Word {
        std::int32_t id;
        std::int32_t parameter;
    };

    // The id of a timer's word; its parameter is the kernel's timer id.
    static constexpr std::int32_t TIMER_SIGNAL = 0x83F0;

    // When it cannot be made it is not open, with errno.
    WakePipe();
    ~WakePipe() { close(); }
    WakePipe(WakePipe const&) = delete;
    WakePipe& operator=(WakePipe const&) = delete;

    // Nobody uses it any more.
    void close();

    // In a child of a fork: as a new one, which the parent's loop does not read.
    void reopen();

    bool isOpen() const { return mEnds.write != -1; }

    // What the one reader may poll.
    int readEnd() const { return mEnds.read; }

    // Any thread, and signal handlers. What write() returned, which is the size of a word unless it
    // failed with errno. A full pipe counts as written: it wakes well enough.
    ssize_t wake(Word const& word);

    // The one reader. Blocks until there is a word, and takes those that are there: all of them say
    // only that there is something to do. The size of a word; after a failure what read() returned,
    // with its errno, and 0 without one. A word that is not whole is a failure.
    ssize_t read();

private:
    platform::PipeEnds mEnds;
};

}  // namespace utl

#endif  // UTL_WAKE_PIPE_H
