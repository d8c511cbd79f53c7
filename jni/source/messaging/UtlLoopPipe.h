// Internal. The wake pipe of a thread that loops over what is queued for it, with the log lines for
// what goes wrong and the report to the watchdog that the thread sleeps on purpose.

#ifndef UTL_LOOP_PIPE_H
#define UTL_LOOP_PIPE_H

#include <memory>

#include "UtlStatementInfo.h"
#include "UtlThread.h"

#include "messaging/UtlWakePipe.h"

namespace utl {

class LoopPipe {
public:
    // `label` and the thread's name head the log lines: "MsgDrivenThread(%s)". The other arguments
    // are the wake pipe's. A pipe that cannot be made is logged and not open; nullptr without
    // memory.
    static std::unique_ptr<LoopPipe> make(char const* label, Thread const& owner,
                                          unsigned long maxEntries, unsigned long maxTimers);

    bool isOpen() const { return mPipe.isOpen(); }
    int carriedValue() const { return mPipe.carriedValue(); }

    // As WakePipe::wake(). False, logged, when it failed.
    bool wake(WakePipe::Word const& word);

    // Blocks until there is a word. The watch of the thread pauses meanwhile: it reports alive at
    // `before` and `after`. False, logged, when the pipe is broken.
    bool wait(WakePipe::Word* word, StatementInfo const& before, StatementInfo const& after);

private:
    LoopPipe(char const* label, Thread const& owner, unsigned long maxEntries,
             unsigned long maxTimers)
        : mLabel(label), mOwner(owner), mPipe(maxEntries, maxTimers) {}

    char const* const mLabel;
    Thread const& mOwner;
    WakePipe mPipe;
};

}  // namespace utl

#endif  // UTL_LOOP_PIPE_H
