#include "messaging/UtlLoopPipe.h"

#include <errno.h>

#include <new>

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "threads/UtlWatchPause.h"

namespace utl {

std::unique_ptr<LoopPipe> LoopPipe::make(char const* label, Thread const& owner,
                                         unsigned long maxEntries, unsigned long maxTimers) {
    std::unique_ptr<LoopPipe> pipe(new (std::nothrow)
                                       LoopPipe(label, owner, maxEntries, maxTimers));
    if (pipe == nullptr || !pipe->isOpen()) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) pipe errno:%d", label, owner.getName().c_str(),
               pipe != nullptr ? errno : ENOMEM);
    }
    return pipe;
}

bool LoopPipe::wake(WakePipe::Word const& word) {
    ssize_t const written = mPipe.wake(word);
    if (written == static_cast<ssize_t>(sizeof word)) {
        return true;
    }
    applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) Error. write Ret:%u errno:%d", mLabel,
           mOwner.getName().c_str(), static_cast<unsigned>(written), errno);
    return false;
}

bool LoopPipe::wait(WakePipe::Word* word, StatementInfo const& before, StatementInfo const& after) {
    for (;;) {
        ssize_t got;
        int error;
        {
            WatchPause const pause(mOwner.getId(), before, after);
            got = mPipe.read(word);
            error = errno;
        }
        if (got == static_cast<ssize_t>(sizeof *word)) {
            return true;
        }
        char const* const name = mOwner.getName().c_str();
        unsigned const result = static_cast<unsigned>(got);
        if (error != EINTR) {
            applog(LIBRARY_LOG, LEVEL_ERROR,
                   "%s(%s) Error. read Ret:%u errno:%d !!Break msg loop!!", mLabel, name, result,
                   error);
            return false;
        }
        applog(LIBRARY_LOG, LEVEL_INFORMATION,
               "%s(%s) Error. read Ret:%u errno:%d=EINTR Retry read", mLabel, name, result, error);
    }
}

}  // namespace utl
