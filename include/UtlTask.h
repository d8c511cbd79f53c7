// What a Loop is given to do: any callable of up to 64 bytes, which it keeps without allocating;
// and the handles on those that wait for their time or for a descriptor.
//
//     TaskHandle reminder = loop.postAfter(std::chrono::seconds(5), [&] { remind(); });
//     ...
//     reminder.cancel();
//
//     ScopedTask const heartbeat = loop.every(std::chrono::seconds(1), [this] { beat(); });
//     ...  // cancelled at the end of the scope

#ifndef UTL_TASK_H
#define UTL_TASK_H

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include "UtlApi.h"

namespace utl {

class LoopTasks;

// As large as the callable of a task may be.
constexpr std::size_t MAX_TASK_BYTES = 64;

// How a loop deals with the callables of one type. For the loop.
struct TaskType {
    void (*move)(void* slot, void* callable);     // makes one in `slot` of the one that is given
    void (*run)(void* slot, unsigned long told);  // tells it `told` if it takes that
    void (*destroy)(void* slot);                  // once, and last
};

// `Told` is what they are told if they take it: a number, or void for nothing.
template <typename Callable, typename Told>
struct TaskTypeOf {
    static constexpr bool IS_TOLD = !std::is_void_v<Told> && std::is_invocable_v<Callable&, Told>;

    static_assert(IS_TOLD || std::is_invocable_v<Callable&>,
                  "A task is called without an argument, or by every() and watch() with a number.");
    static_assert(
        sizeof(Callable) <= MAX_TASK_BYTES,
        "A task has 64 bytes at the most: let it hold a pointer, or a std::unique_ptr, to "
        "what is larger.");
    static_assert(alignof(Callable) <= alignof(std::max_align_t),
                  "A task is aligned as what operator new returns, and not more strictly.");
    static_assert(std::is_nothrow_move_constructible_v<Callable>,
                  "A task is moved into the loop: its move constructor must be noexcept.");
    static_assert(std::is_nothrow_destructible_v<Callable>,
                  "A task is destroyed by the loop: its destructor must be noexcept.");

    // What TYPE leads to.
    static void move(void* slot, void* callable) {
        ::new (slot) Callable(std::move(*static_cast<Callable*>(callable)));
    }

    // Likewise.
    static void run(void* slot, [[maybe_unused]] unsigned long told) {
        Callable& callable = *static_cast<Callable*>(slot);
        if constexpr (IS_TOLD) {
            static_cast<void>(callable(static_cast<Told>(told)));
        } else {
            static_cast<void>(callable());
        }
    }
    static void destroy(void* slot) { static_cast<Callable*>(slot)->~Callable(); }

    static constexpr TaskType TYPE = {move, run, destroy};
};

// A task that waits in a loop. It may be copied, and may outlive the task and the loop. Each object
// is for one thread at a time; copies of it may be on others.
class UTL_API TaskHandle {
public:
    // Of no task.
    TaskHandle() = default;
    ~TaskHandle();
    TaskHandle(TaskHandle const& other);
    TaskHandle(TaskHandle&& other) noexcept;
    TaskHandle& operator=(TaskHandle other) noexcept;

    // Whether the loop took the task; it may be over by now.
    explicit operator bool() const { return mTasks != nullptr; }

    // No call of the task begins once this has returned, on whatever thread; one that the loop has
    // taken up is under way, though its first line may still be to come, and is not waited for, as
    // nobody else is: where that matters, cancel on the loop's thread, as in
    // loop.call([&] { handle.cancel(); }): when that has returned, none is under way. True: it was
    // taken back. False: it has begun for the only time, was cancelled before, or the loop has
    // ended. What was taken back is destroyed here, or, where a call is under way, when that
    // returns.
    bool cancel() const;

private:
    friend class LoopTasks;

    TaskHandle(LoopTasks& tasks, std::uint32_t place, std::uint32_t generation);

    LoopTasks* mTasks = nullptr;  // stays until the last handle has gone
    std::uint32_t mPlace = 0;
    std::uint32_t mGeneration = 0;
};

// Cancels a task when it goes, as TaskHandle::cancel() does: what the task uses must live until a
// call that is under way has returned.
class ScopedTask {
public:
    ScopedTask() = default;
    ScopedTask(TaskHandle handle) : mHandle(std::move(handle)) {}
    ~ScopedTask() { mHandle.cancel(); }
    ScopedTask(ScopedTask&& other) noexcept : mHandle(std::move(other.mHandle)) {}

    // Cancels the task that it had.
    ScopedTask& operator=(ScopedTask other) noexcept {
        std::swap(mHandle, other.mHandle);
        return *this;
    }

    // As those of TaskHandle.
    explicit operator bool() const { return static_cast<bool>(mHandle); }
    bool cancel() const { return mHandle.cancel(); }

private:
    TaskHandle mHandle;
};

}  // namespace utl

#endif  // UTL_TASK_H
