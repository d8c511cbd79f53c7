// Internal. The message-driven thread that a Loop is.

#ifndef UTL_LOOP_THREAD_H
#define UTL_LOOP_THREAD_H

#include "UtlLoop.h"

#include "loop/UtlLoopTasks.h"

namespace utl {

class LoopThread final : public MsgDrivenThread {
public:
    // Takes a reference of its own to `tasks`.
    LoopThread(LoopOptions const& options, LoopTasks& tasks)
        : MsgDrivenThread(options.maxMsgSize, options.maxMsgCount, options.name, 0, &tasks),
          mTasks(tasks) {}

    // Here already: the thread looks at what class this is until it has ended.
    ~LoopThread() override { end(); }

    // Whether it runs now.
    bool begin(LoopOptions const& options);

    // Has `function` called on the thread. False when it was not.
    bool call(void (*function)(void* context), void* context);

    // Drops what is left and waits until the thread has ended, which its own does not do.
    void end();

private:
    int requestStop() override;

    LoopTasks& mTasks;
};

}  // namespace utl

#endif  // UTL_LOOP_THREAD_H
