// Internal. The tasks that a loop keeps until their time has come or somebody cancels them. A place
// is used again and again; a generation tells the tasks apart that were there.

#ifndef UTL_TASK_TABLE_H
#define UTL_TASK_TABLE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "UtlArray.h"
#include "UtlTask.h"

#include "messaging/UtlCacheDistance.h"

namespace utl {

// A callable in memory of the loop. It is moved in and destroyed by who has the room to himself.
struct TaskRoom {
    void fill(TaskType const& ofCallable, void* callable) {
        type = &ofCallable;
        type->move(bytes, callable);
    }
    // To where it was moved from.
    void giveBack(void* callable) {
        type->destroy(callable);
        type->move(callable, bytes);
        destroy();
    }
    void run(unsigned long told) { type->run(bytes, told); }
    void destroy() { type->destroy(bytes); }

    alignas(std::max_align_t) unsigned char bytes[MAX_TASK_BYTES];
    TaskType const* type;
};

struct alignas(CACHE_LINE) KeptTask {
    // FREE; TAKEN by one thread, that fills or empties it; WAITING to be run; RUNNING on the loop;
    // running still, but CANCELLED. Only who takes it, or the loop while it runs, uses the room.
    enum State { FREE, TAKEN, WAITING, RUNNING, CANCELLED };

    // To be called as its handles cease to mean it.
    void forsakeHandles() { ++generation; }

    TaskRoom room;
    std::uint32_t generation = 0;
    std::uint32_t next = 0;  // of the free ones
    State state = FREE;
    bool isLast = false;  // the call under way is its last

    // Of a task that waits for its time: nanoseconds on the monotonic clock.
    std::uint64_t due = 0;
    std::uint64_t period = 0;  // 0 for one that is called once

    // Of one that waits for a descriptor.
    int descriptor = -1;
};

// Everything with a lock of its owner held.
class TaskTable {
public:
    explicit TaskTable(unsigned long capacity)
        : mTasks(allocateElements<KeptTask>(capacity)),
          mCapacity(mTasks != nullptr ? static_cast<std::uint32_t>(capacity) : 0) {
        for (std::uint32_t i = 0; i < mCapacity; ++i) {
            mTasks[i].next = i + 1;
        }
    }
    TaskTable(TaskTable const&) = delete;
    TaskTable& operator=(TaskTable const&) = delete;

    std::uint32_t capacity() const { return mCapacity; }
    KeptTask& operator[](std::uint32_t place) { return mTasks[place]; }
    std::uint32_t placeOf(KeptTask const& task) const {
        return static_cast<std::uint32_t>(&task - mTasks.get());
    }

    // A free one, which is TAKEN from then on; nullptr when there is none.
    KeptTask* take() {
        if (mFirstFree == mCapacity) {
            return nullptr;
        }
        KeptTask& task = mTasks[mFirstFree];
        mFirstFree = task.next;
        task.state = KeptTask::TAKEN;
        expect(mFirstFree);
        return &task;
    }

    // Has the memory of what is used next, of many in no order, fetched in time.
    void expect(std::uint32_t place) const {
        auto const* const bytes = reinterpret_cast<unsigned char const*>(mTasks.get() + place);
        for (std::size_t i = 0; i < sizeof(KeptTask); i += CACHE_LINE) {
            __builtin_prefetch(bytes + i, 1);
        }
    }

    void free(KeptTask& task) {
        task.state = KeptTask::FREE;
        task.next = mFirstFree;
        mFirstFree = placeOf(task);
    }

private:
    std::unique_ptr<KeptTask[]> const mTasks;
    std::uint32_t const mCapacity;
    std::uint32_t mFirstFree = 0;
};

}  // namespace utl

#endif  // UTL_TASK_TABLE_H
