// Internal. The tasks of a loop: those that were posted, in a queue whose order is that of the
// control entries; and those that wait for their time or for a descriptor, in a table.
//
// Two locks, of which no function takes one with the other held. Who posts holds the mutex of the
// loop's control, as for a message, and moves the task straight into its slot, inside a Transfer.
// The own mutex guards the table; no user code runs with it held: a place is TAKEN first and filled
// or emptied without it. It is also what handles need, which may outlive the loop.
//
// The kernel timer is armed for the earliest moment in the heap or an earlier one, by whoever makes
// it come earlier; but on the loop's thread the loop looks by itself before it sleeps. Nobody
// disarms it: an expiry makes the loop look at the clock, and that is all.

#ifndef UTL_LOOP_TASKS_H
#define UTL_LOOP_TASKS_H

#include <atomic>
#include <cstdint>
#include <limits>
#include <optional>

#include "UtlMsgDrivenThread.h"
#include "UtlMsgHandlers.h"
#include "UtlTask.h"
#include "UtlThreadSafety.h"

#include "loop/UtlDeadlineHeap.h"
#include "loop/UtlPollSet.h"
#include "loop/UtlTaskTable.h"
#include "loop/UtlWatchList.h"
#include "messaging/UtlLoopControl.h"
#include "messaging/UtlLoopExtension.h"
#include "messaging/UtlSlotRing.h"
#include "platform/UtlFork.h"
#include "platform/UtlMutex.h"

namespace utl {

class LoopTasks final : public LoopExtension {
public:
    // With one reference, the caller's. Without memory it is not made whole.
    LoopTasks(unsigned long maxTaskCount, unsigned long maxTimerCount,
              unsigned long maxDescriptorCount);
    bool isWhole() const;

    void retain() override { mReferences.fetch_add(1, std::memory_order_relaxed); }
    void release() override;

    // For messages, until the loop is over.
    MsgHandlers* handlers() { return &*mHandlers; }

    // Any thread, as long as there is the loop's object: what Loop does.
    bool post(TaskType const& type, void* callable);
    TaskHandle delay(TaskType const& type, void* callable, std::int64_t delay, std::int64_t period);
    TaskHandle watch(TaskType const& type, void* callable, int descriptor, unsigned events);

    // Any thread, as long as there is a reference: what TaskHandle does.
    bool cancel(std::uint32_t place, std::uint32_t generation);

    unsigned long entryCount() const override { return mMaxTaskCount; }
    unsigned long timerCount() const override { return mMaxTimerCount != 0 ? 1 : 0; }
    unsigned long queuedCount() const override { return mQueue.count(); }
    unsigned long waitingCount() const override;

    // The loop only.
    bool enter(LoopControl& control) override;
    void executeEntry() override;
    void expire() override;
    bool executeTurn() override;
    bool awaitWord(int wakeEnd) override;
    void close() override;
    void drop() override;

private:
    static constexpr std::uint64_t NEVER = std::numeric_limits<std::uint64_t>::max();

    ~LoopTasks();

    bool isOfThisProcess() const { return mProcess == platform::processNumber(); }
    bool isLoopThread() const;
    bool isTakingTasks() const;

    TaskRoom* postLocked(LoopControl::Entry const& entry, TaskType const& type, void* callable,
                         LoopControl::Bell* bell) UTL_REQUIRES(mControl->mutex());
    void takeBackLocked(TaskRoom& room, void* callable) UTL_REQUIRES(mControl->mutex());
    KeptTask* take(TaskTable& table, TaskType const& type, void* callable) UTL_EXCLUDES(mMutex);
    void putBack(TaskTable& table, KeptTask& task) UTL_EXCLUDES(mMutex);
    TaskHandle handleLocked(unsigned long place, KeptTask& task) UTL_REQUIRES(mMutex);
    void changeWatchesLocked() UTL_REQUIRES(mMutex);
    void endWatchLocked(KeptTask& task) UTL_REQUIRES(mMutex);
    bool armLocked(std::uint64_t due, std::uint64_t now) UTL_REQUIRES(mMutex);
    bool armKernelTimerLocked(std::uint64_t due) UTL_REQUIRES(mMutex);

    template <typename Code>
    void callTask(Code code) UTL_EXCLUDES(mMutex);
    template <typename Destructor>
    void destroy(Destructor destructor) UTL_EXCLUDES(mMutex);
    void runKept(TaskTable& table, KeptTask& task, unsigned long told) UTL_EXCLUDES(mMutex);
    bool goesOnWaiting(TaskTable& table, KeptTask& task) UTL_EXCLUDES(mMutex);
    bool executeDue() UTL_EXCLUDES(mMutex);
    KeptTask* takeDueLocked(unsigned long* missed) UTL_REQUIRES(mMutex);
    bool executeReady() UTL_EXCLUDES(mMutex);
    KeptTask* takeReadyLocked(PollSet::Ready const& ready) UTL_REQUIRES(mMutex);
    void collectWatches() UTL_EXCLUDES(mMutex);
    unsigned long dropTable(TaskTable& table) UTL_EXCLUDES(mMutex);

    std::atomic<unsigned> mReferences{1};
    unsigned long const mMaxTaskCount;
    unsigned long const mMaxTimerCount;
    unsigned long const mMaxDescriptorCount;

    // Written as the loop begins, before anybody else knows of it.
    LoopControl* mControl = nullptr;
    unsigned mProcess = 0;
    int mKernelTimer = -1;

    std::optional<MsgHandlers> mHandlers{std::in_place};

    SlotRing mQueue;  // what is put in is guarded by the control's mutex

    mutable platform::Mutex mMutex;
    bool mHasEnded UTL_GUARDED_BY(mMutex) = false;
    TaskTable mDelayed;  // guarded by mMutex, but for what is in a TAKEN place, as is mWatching
    TaskTable mWatching;
    DeadlineHeap mDeadlines UTL_GUARDED_BY(mMutex);
    WatchList mWatches UTL_GUARDED_BY(mMutex);      // those whose handles mean them
    bool mIsNudged UTL_GUARDED_BY(mMutex) = false;  // since the loop collected them last
    std::uint64_t mArmedFor UTL_GUARDED_BY(mMutex) = NEVER;
    unsigned long mOnceCount UTL_GUARDED_BY(mMutex) = 0;  // of those that wait and are called once
    unsigned long mDroppedCount UTL_GUARDED_BY(mMutex) = 0;  // when the loop is over

    std::atomic<bool> mHaveWatchesChanged{false};
    std::atomic<bool> mIsTimerRefused{false};

    // The loop's.
    bool mLooksForDue = false;
    bool mHasFired = false;
    int mPollError = 0;  // of the last look at the descriptors
    std::atomic<bool> mIsFrontRunning{false};
    bool mIsDescriptorsTurn = false;
    unsigned mTurnsWithoutLook = 0;
    std::uint64_t mNow = 0;  // when it looked at the clock last
    PollSet mPolled;
};

}  // namespace utl

#endif  // UTL_LOOP_TASKS_H
