// A thread that does what it is handed: callables, now, later or again and again, and whenever a
// descriptor has something to say. It runs when it has been made and is stopped when the object
// goes.
//
//     LoopOptions options;
//     options.name = "harbour";
//     std::unique_ptr<Loop> const loop = Loop::make(options);
//     if (loop == nullptr) { ... }  // no thread, no descriptors or no memory
//
//     loop->post([ship = std::move(ship)] { ship->unload(); });
//     std::optional<int> const free = loop->call([&] { return berths.free(); });
//     ScopedTask const log = loop->every(std::chrono::minutes(1), [] { logBerths(); });
//     TaskHandle const radio = loop->watch(fd, Loop::READABLE, [&] { readRadio(); });
//
// It is built on a MsgDrivenThread, and is one: in the registry, for the watchdog and for messages.
// All room is allocated when it is made. What was posted, what is due, and descriptors are served
// in turn, so that none of them keeps another waiting; what one thread posts is done in its order.
//
// Tasks run on the loop's thread with no lock held and may do with the loop whatever they like,
// destroy it too: it ends when they have returned. Have them know it by reference: a unique_ptr is
// empty already while the loop ends. They must return: one that throws, or ends its
// thread, ends the process with a line that names the loop. A task is destroyed once: after it has
// run, by who takes it back, or on the loop's thread when the loop ends. Its move constructor may
// not ask anything of a loop.
//
// In a child of a fork nothing of the parent's loop runs or is destroyed, and everything is
// refused.

#ifndef UTL_LOOP_H
#define UTL_LOOP_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "UtlApi.h"
#include "UtlDuration.h"
#include "UtlMsgDrivenThread.h"
#include "UtlMsgHandlers.h"
#include "UtlTask.h"
#include "UtlThread.h"

namespace utl {

class LoopThread;

// What a loop is made of.
struct LoopOptions {
    char const* name = "loop";  // copied; must not be null
    ThreadPriority priority = ThreadPriority::NORMAL;

    // At once; what is being called counts too.
    unsigned long maxTaskCount = 256;       // posted, and not yet done
    unsigned long maxTimerCount = 64;       // that wait for their time
    unsigned long maxDescriptorCount = 16;  // that are watched

    // For messages. A `listener` gets them as that of a MsgDrivenThread does, and must live as long
    // as the loop; without one they go to what is given to Loop::on().
    ThreadMsgListener* listener = nullptr;
    unsigned long maxMsgCount = 0;
    unsigned long maxMsgSize = 0;

    // With one the thread is registered with the watchdog and reports by itself; one of 0 or less
    // is refused there, which is logged, and the loop is not watched. The listener may be null, and
    // must live as long as the loop.
    std::optional<Duration> aliveTime;
    WatchdogTimerListener* watchdogListener = nullptr;
};

// Any thread may call any operation.
class UTL_API Loop {
public:
    // What a descriptor is watched for, and what was seen of it; they add up.
    enum Events : unsigned {
        READABLE = 1,  // or at its end, or failed: read() says which
        WRITABLE = 2,  // or failed
        CLOSED = 4     // only seen: somebody has closed it; the watch is over
    };

    // Returns when the loop runs. Empty, logged, when threads, descriptors, kernel timers or memory
    // are lacking. Blocks for as long as the thread needs to begin.
    static std::unique_ptr<Loop> make(LoopOptions const& options);

    // Stops the loop as stop(Rest::DROP) does, and waits without limit, but in a task of its own:
    // so no task of another loop may do that while one of this waits for that loop.
    ~Loop();
    Loop(Loop const&) = delete;
    Loop& operator=(Loop const&) = delete;

    // Has the loop call `task`, which takes no argument. False, with the task untouched, when there
    // is no room, and once the loop was asked to stop.
    template <typename Task>
    bool post(Task&& task) {
        return keep<Task, void>(task, [this](TaskType const& type, void* callable) {
            return postTask(type, callable);
        });
    }

    // Has the loop call `question` before all that is queued, blocks until it has, and returns what
    // it returned: in a std::optional, or true where that is void. Also while the loop is stopping;
    // empty, or false, when it has ended, none of its tasks being under way then. Empty, and
    // logged, when the wait would close a circle of loops that wait for each other. It was not
    // called then. On the loop's own thread it is called at once.
    template <typename Question>
    auto call(Question&& question);

    // Has the loop call `task` once, when `delay` has passed; at the next opportunity if there is
    // none. An empty handle when it was refused: for want of room, which leaves it untouched, or by
    // a loop that was asked to stop. Tasks are called in the order in which they are due.
    template <typename Rep, typename Period, typename Task>
    TaskHandle postAfter(std::chrono::duration<Rep, Period> delay, Task&& task) {
        return keep<Task, void>(task, [&](TaskType const& type, void* callable) {
            return delayTask(type, callable, toNanoseconds(delay), 0);
        });
    }

    // The same again and again, at every full `period` from now on, which must be positive. Times
    // at which the task could not be called are missed: it may take an unsigned long, and is told
    // how many lie between the one it is called for and now.
    template <typename Rep, typename Period, typename Task>
    TaskHandle every(std::chrono::duration<Rep, Period> period, Task&& task) {
        return keep<Task, unsigned long>(task, [&](TaskType const& type, void* callable) {
            std::int64_t const nanoseconds = toNanoseconds(period);
            return nanoseconds > 0 ? delayTask(type, callable, nanoseconds, nanoseconds)
                                   : TaskHandle();
        });
    }

    // Has the loop call `task` again and again as long as `descriptor` is what it is watched for:
    // READABLE, WRITABLE or both. The task may take an unsigned, and is told which. Cancel before
    // closing the descriptor; one that somebody has closed is reported to the task once, as CLOSED,
    // logged and dropped, when the loop looks next: until then the system may keep the file open,
    // and another that gets the number is taken for it. An empty handle when it was refused: as
    // postAfter(), or because the descriptor is negative, the loop watches it already, or `events`
    // are none or others.
    template <typename Task>
    TaskHandle watch(int descriptor, unsigned events, Task&& task) {
        return keep<Task, unsigned>(task, [&](TaskType const& type, void* callable) {
            return watchTask(type, callable, descriptor, events);
        });
    }

    // As MsgDrivenThread::stop(): with Rest::RUN what was posted is done before. The counts are of
    // tasks and messages; those that wait for their time are dropped, the last of every() and
    // watch() not counted. In a task it does not wait: result is WAIT_FAILED, and the loop ends
    // after the task, or the rest.
    StopResult stop(Rest rest) { return mThread->stop(rest); }
    StopResult stop(Rest rest, Duration limit) { return mThread->stop(rest, limit); }

    // Has the loop call `callable` with each message of the type M, as MsgHandlers::on() does, from
    // now on. False also when the loop was made with a listener, and where call() is refused. Room
    // for messages is in the options.
    template <typename M, typename Callable>
    bool on(Callable&& callable) {
        auto const add = [&] {
            return mHandlers->template on<M>(std::forward<Callable>(callable));
        };
        return mHandlers != nullptr && call(add).value_or(false);
    }

    // As those of a MsgDrivenThread.
    int postMsg(Msg const& msg) { return mThread->postMsg(msg); }
    int sendMsgSync(Msg const& msg) { return mThread->sendMsgSync(msg); }
    template <typename Question>
    auto ask(typename Question::Value const& question) {
        return mThread->ask<Question>(question);
    }

    // The thread that the loop is.
    MsgDrivenThread& thread() { return *mThread; }

private:
    Loop(std::unique_ptr<MsgDrivenThread> thread, LoopTasks& tasks, MsgHandlers* handlers)
        : mThread(std::move(thread)), mTasks(tasks), mHandlers(handlers) {}

    LoopThread& loopThread();
    bool postTask(TaskType const& type, void* callable);
    bool callFunction(void (*function)(void* context), void* context);
    template <typename Body>
    bool callBody(Body body) {
        return callFunction([](void* context) { (*static_cast<Body*>(context))(); }, &body);
    }
    TaskHandle delayTask(TaskType const& type, void* callable, std::int64_t delay,
                         std::int64_t period);
    TaskHandle watchTask(TaskType const& type, void* callable, int descriptor, unsigned events);

    // Calls `take` with the task that was given, or with a copy if that is to stay with the caller.
    template <typename Task, typename Told, typename Given, typename Take>
    static auto keep(Given& task, Take take) {
        using Callable = std::decay_t<Task>;
        if constexpr (std::is_same_v<Task, Callable>) {
            return take(TaskTypeOf<Callable, Told>::TYPE, &task);
        } else {
            Callable copy(task);
            return take(TaskTypeOf<Callable, Told>::TYPE, &copy);
        }
    }

    template <typename Rep, typename Period>
    static constexpr std::int64_t toNanoseconds(std::chrono::duration<Rep, Period> duration) {
        using Nanoseconds = std::chrono::nanoseconds;
        std::chrono::duration<long double, std::nano> const exact = duration;
        if (!(exact.count() > 0)) {  // nor is NaN
            return 0;
        }
        return exact < Nanoseconds::max()
                   ? std::chrono::duration_cast<Nanoseconds>(duration).count()
                   : Nanoseconds::max().count();
    }

    std::unique_ptr<MsgDrivenThread> mThread;
    LoopTasks& mTasks;             // the thread's
    MsgHandlers* const mHandlers;  // likewise; nullptr if it has another listener
};

template <typename Question>
auto Loop::call(Question&& question) {
    using Answer = std::decay_t<std::invoke_result_t<Question&>>;
    if constexpr (std::is_void_v<Answer>) {
        return callBody([&] { question(); });
    } else {
        std::optional<Answer> answer;
        callBody([&] { answer.emplace(question()); });
        return answer;
    }
}

}  // namespace utl

#endif  // UTL_LOOP_H
