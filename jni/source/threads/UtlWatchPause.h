// Internal. A thread that blocks on purpose, waiting for work, is not watched meanwhile. Nothing
// happens when the calling thread, whose id is given lest the kernel be asked for it each time, is
// not registered with the watchdog.
//
//     WatchPause const pause(getId(), StatementInfo(...), StatementInfo(...));
//     read(mFd, buffer, size);

#ifndef UTL_WATCH_PAUSE_H
#define UTL_WATCH_PAUSE_H

#include "UtlStatementInfo.h"

namespace utl {

class WatchPause {
public:
    // Reports alive at `before` and stops the watch.
    WatchPause(int threadId, StatementInfo const& before, StatementInfo const& after);

    // Starts the watch, which gives a full alive time, and reports alive at `after`. Leaves errno.
    ~WatchPause();
    WatchPause(WatchPause const&) = delete;
    WatchPause& operator=(WatchPause const&) = delete;

private:
    int const mThreadId;
    StatementInfo const mAfter;
    bool mIsWatched = false;
};

// Has the calling thread, `threadId`, watched and reports it alive at `statement`, if it is
// registered with the watchdog. For a loop between two things it does: it may not come to a pause
// for long.
void reportAtWork(int threadId, StatementInfo const& statement);

}  // namespace utl

#endif  // UTL_WATCH_PAUSE_H
