// Internal. The message-driven thread that a Loop is.

#ifndef UTL_LOOP_THREAD_H
#define UTL_LOOP_THREAD_H

#include "UtlLoop.h"
#include "UtlMsgHandlers.h"

#include "loop/UtlLoopTasks.h"

namespace utl {

class LoopThread final : public MsgDrivenThread {
public:
    // Takes a reference of its own to `tasks`.
    LoopThread(LoopOptions const& options, LoopTasks& tasks)
        : MsgDrivenThread(options.messageSize, options.mostMessages, options.name, 0, &tasks) {}

    // Here already: the thread looks at what class this is until it has ended.
    ~LoopThread() override { Thread::stop(1, 0); }

    // Whether it runs now.
    bool begin(LoopOptions const& options);

    // For messages, unless the owner has a listener.
    MsgHandlers& handlers() { return mHandlers; }

    // Has `function` called on the thread. False when it was not.
    bool call(void (*function)(void* context), void* context);

private:
    MsgHandlers mHandlers;
};

}  // namespace utl

#endif  // UTL_LOOP_THREAD_H
