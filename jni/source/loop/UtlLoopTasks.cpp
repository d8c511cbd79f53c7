#include "loop/UtlLoopTasks.h"

#include <errno.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <new>

#include "UtlLog.h"
#include "UtlLoop.h"

#include "foundation/UtlLogLine.h"
#include "foundation/UtlUserCode.h"
#include "messaging/UtlControlIds.h"
#include "platform/UtlClock.h"
#include "platform/UtlKernelTimer.h"

namespace utl {

namespace {

// A loop that always has something queued looks at its descriptors after so many turns.
constexpr unsigned MOST_TURNS_WITHOUT_LOOK = 16;

constexpr int NO_KERNEL_TIMER = -1;

constexpr unsigned long MOST_MISSED = std::numeric_limits<unsigned long>::max();

}  // namespace

LoopTasks::LoopTasks(unsigned long maxTaskCount, unsigned long maxTimerCount,
                     unsigned long maxDescriptorCount)
    : mMaxTaskCount(maxTaskCount),
      mMaxTimerCount(maxTimerCount),
      mMaxDescriptorCount(maxDescriptorCount),
      mQueue(sizeof(TaskRoom), maxTaskCount),
      mDelayed(maxTimerCount),
      mWatching(maxDescriptorCount),
      mDeadlines(maxTimerCount),
      mWatches(maxDescriptorCount),
      mPolled(maxDescriptorCount) {}

LoopTasks::~LoopTasks() = default;

// Nobody else knows of it yet.
bool LoopTasks::isWhole() const UTL_NO_THREAD_SAFETY_ANALYSIS {
    return mQueue.capacity() == mMaxTaskCount && mDelayed.capacity() == mMaxTimerCount &&
           mWatching.capacity() == mMaxDescriptorCount &&
           (mMaxTimerCount == 0 || mDeadlines.isMade()) &&
           (mMaxDescriptorCount == 0 || mWatches.isMade()) && mPolled.isMade();
}

void LoopTasks::release() {
    if (mReferences.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

bool LoopTasks::isLoopThread() const {
    return LoopControl::current() == mControl;
}

bool LoopTasks::isTakingTasks() const {
    return isOfThisProcess() && !mControl->isClosed();
}

bool LoopTasks::post(TaskType const& type, void* callable) {
    if (!isOfThisProcess() || mControl->isRefusedInTransfer()) {
        return false;
    }
    std::int32_t const stamp = LoopFigures::stamp();
    LoopControl::Bell bell;
    TaskRoom* room;
    {
        platform::MutexGuard const guard(mControl->mutex());
        if (mControl->isClosed() || mControl->hasEndedLocked()) {
            return false;
        }
        room = postLocked({CTL_EXTENSION, stamp}, type, callable, &bell);
    }
    bool const isPosted = room != nullptr && bell.ring([&] {
        mControl->mutex().assumeHeld();
        takeBackLocked(*room, callable);
    });
    if (!isPosted) {
        mControl->figures().countRefused();
    }
    return isPosted;
}

// Where it is in the queue; nullptr when it is not.
TaskRoom* LoopTasks::postLocked(LoopControl::Entry const& entry, TaskType const& type,
                                void* callable, LoopControl::Bell* bell) {
    unsigned char* const slot = mQueue.end();
    TaskRoom* room = nullptr;
    auto const publish = [&] {
        LoopControl::Transfer const transfer;
        room = new (slot) TaskRoom;
        room->fill(type, callable);
        mQueue.put();
        mControl->figures().countPostedLocked();
    };
    if (slot != nullptr) {
        mControl->postLocked(entry, publish, bell);
    }
    return room;
}

void LoopTasks::takeBackLocked(TaskRoom& room, void* callable) {
    LoopControl::Transfer const transfer;
    room.giveBack(callable);
    mQueue.takeBack();
    mControl->figures().countTakenBackLocked();
}

TaskHandle LoopTasks::delay(TaskType const& type, void* callable, std::int64_t delay,
                            std::int64_t period) {
    std::uint64_t const now = platform::monotonicNanoseconds();
    std::uint64_t const due = now + static_cast<std::uint64_t>(delay);
    KeptTask* const task = isTakingTasks() ? take(mDelayed, type, callable) : nullptr;
    if (task == nullptr) {
        return TaskHandle();
    }
    task->due = due;
    task->period = static_cast<std::uint64_t>(period);
    {
        platform::MutexGuard const guard(mMutex);
        if (!mHasEnded && armLocked(due, now)) {
            mDeadlines.insert(due, mDelayed.placeOf(*task));
            mOnceCount += period == 0 ? 1 : 0;
            return handleLocked(mDelayed.placeOf(*task), *task);
        }
    }
    putBack(mDelayed, *task);
    return TaskHandle();
}

TaskHandle LoopTasks::watch(TaskType const& type, void* callable, int descriptor, unsigned events) {
    bool const isWatchable =
        descriptor >= 0 && events != 0 && (events & ~(Loop::READABLE | Loop::WRITABLE)) == 0;
    KeptTask* const task =
        isWatchable && isTakingTasks() ? take(mWatching, type, callable) : nullptr;
    if (task == nullptr) {
        return TaskHandle();
    }
    {
        platform::MutexGuard const guard(mMutex);
        std::uint32_t const place = mWatching.placeOf(*task);
        if (!mHasEnded && mWatches.insert({descriptor, events, place, task->generation})) {
            task->descriptor = descriptor;
            changeWatchesLocked();
            return handleLocked(mMaxTimerCount + place, *task);
        }
    }
    putBack(mWatching, *task);
    return TaskHandle();
}

bool LoopTasks::cancel(std::uint32_t place, std::uint32_t generation) {
    if (!isOfThisProcess()) {
        return false;
    }
    bool const isDelayed = place < mMaxTimerCount;
    TaskTable& table = isDelayed ? mDelayed : mWatching;
    auto const index = static_cast<std::uint32_t>(isDelayed ? place : place - mMaxTimerCount);
    KeptTask& task = table[index];
    {
        platform::MutexGuard const guard(mMutex);
        if (task.generation != generation) {
            return false;
        }
        if (isDelayed) {
            task.forsakeHandles();
        } else {
            endWatchLocked(task);
        }
        if (task.state == KeptTask::RUNNING) {
            task.state = KeptTask::CANCELLED;
            return true;
        }
        task.state = KeptTask::TAKEN;
        if (isDelayed) {
            mDeadlines.erase(index);
            mOnceCount -= task.period == 0 ? 1 : 0;
        }
    }
    putBack(table, task);
    return true;
}

// A place, with the callable in it. nullptr when there is none, or the loop is over.
KeptTask* LoopTasks::take(TaskTable& table, TaskType const& type, void* callable) {
    KeptTask* task;
    {
        platform::MutexGuard const guard(mMutex);
        task = mHasEnded ? nullptr : table.take();
    }
    if (task != nullptr) {
        task->room.fill(type, callable);
        task->isLast = false;
    }
    return task;
}

// What is destroyed may hold the last reference to the loop, and to the handle that is used. Its
// own thread has a reference besides.
void LoopTasks::putBack(TaskTable& table, KeptTask& task) {
    std::unique_ptr<LoopTasks, ExtensionRelease> kept;
    if (!isLoopThread()) {
        retain();
        kept.reset(this);
    }
    destroy([&task] { task.room.destroy(); });
    platform::MutexGuard const guard(mMutex);
    table.free(task);
}

TaskHandle LoopTasks::handleLocked(unsigned long place, KeptTask& task) {
    task.state = KeptTask::WAITING;
    return TaskHandle(*this, static_cast<std::uint32_t>(place), task.generation);
}

// A loop that sleeps must let go of a descriptor that is not watched any more, too: in poll() it
// would keep open what its owner closes. One word does for all changes until it comes to them.
void LoopTasks::changeWatchesLocked() {
    mHaveWatchesChanged.store(true);
    mHasTurn.store(true);
    if (!mIsNudged && !mHasEnded && !isLoopThread()) {
        mIsNudged = mControl->nudge();
    }
}

void LoopTasks::endWatchLocked(KeptTask& task) {
    task.forsakeHandles();
    mWatches.erase(task.descriptor);
    changeWatchesLocked();
}

// Whether the loop will look at the clock in time. Where it should have done that already, its
// expiry is under way, or has been lost, and is made good.
bool LoopTasks::armLocked(std::uint64_t due, std::uint64_t now) {
    if (mArmedFor <= now) {
        mArmedFor = NEVER;
        due = mDeadlines.isEmpty() ? due : std::min(due, mDeadlines.first().due);
    }
    if (due >= mArmedFor) {
        return true;
    }
    if (!isLoopThread()) {
        return armKernelTimerLocked(due);
    }
    mLooksForDue = true;
    mHasTurn.store(true);
    return true;
}

bool LoopTasks::armKernelTimerLocked(std::uint64_t due) {
    bool const isArmed = platform::armTimerAt(mKernelTimer, due);
    if (!isArmed && !mIsTimerRefused.load()) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) timer_settime SysTimerId:0x%08x errno:%d",
               mControl->label(), mControl->name(), static_cast<unsigned>(mKernelTimer), errno);
    }
    mIsTimerRefused.store(!isArmed);
    mArmedFor = isArmed ? due : NEVER;
    if (!isArmed && !isLoopThread()) {
        mControl->nudge();  // it has to look by itself
    }
    return isArmed;
}

unsigned long LoopTasks::waitingCount() const {
    platform::MutexGuard const guard(mMutex);
    return mQueue.count() - (mIsFrontRunning.load() ? 1 : 0) + mOnceCount + mDroppedCount;
}

bool LoopTasks::enter(LoopControl& control) {
    mControl = &control;
    mProcess = platform::processNumber();
    mKernelTimer = mMaxTimerCount != 0 ? control.timers().add(TIMER) : NO_KERNEL_TIMER;
    return mMaxTimerCount == 0 || mKernelTimer != NO_KERNEL_TIMER;
}

// What a task has forked goes on in the child as the thread of nobody's loop.
template <typename Code>
void LoopTasks::callTask(Code code) {
    callUserCode("Loop task", mControl->name(), code);
    mControl->finishHandler(LoopStatistics::TASK);
    if (!isOfThisProcess()) {
        new (&mMutex) platform::Mutex;
        mControl->forgetOtherThreads();
    }
}

// What a destructor has forked goes on likewise, though maybe not on the loop's thread.
template <typename Destructor>
void LoopTasks::destroy(Destructor destructor) {
    destructor();
    if (!isOfThisProcess()) {
        new (&mMutex) platform::Mutex;
    }
}

// An entry has no task when the loop could not be woken for it.
void LoopTasks::executeEntry() {
    unsigned char* const slot = mQueue.front();
    if (slot == nullptr) {
        return;
    }
    TaskRoom& room = *reinterpret_cast<TaskRoom*>(slot);
    mControl->figures().countHandled();
    mIsFrontRunning.store(true);
    callTask([&room] {
        room.run(0);
        room.destroy();
    });
    mIsFrontRunning.store(false);
    mQueue.drop();
}

void LoopTasks::expire() {
    mHasFired = true;
    mLooksForDue = true;
    mHasTurn.store(true);
}

bool LoopTasks::executeTurn() {
    mIsDescriptorsTurn = !mIsDescriptorsTurn;
    if (mIsDescriptorsTurn) {
        executeReady() || executeDue();
    } else {
        executeDue() || executeReady();
    }
    mHasTurn.store(false);
    if (mLooksForDue || !mPolled.isEmpty() || mHaveWatchesChanged.load()) {
        mHasTurn.store(true);
    }
    return mLooksForDue || mPolled.hasReady();
}

// False when nothing is due; the kernel timer is armed for what comes next, then: with a little
// more, where that is near, which spares tasks in a dense row an expiry each.
bool LoopTasks::executeDue() {
    if (!mLooksForDue) {
        return false;
    }
    unsigned long missed = 0;
    KeptTask* task;
    {
        platform::MutexGuard const guard(mMutex);
        task = takeDueLocked(&missed);
    }
    if (task == nullptr) {
        return false;
    }
    if (task->isLast) {
        mControl->figures().countHandled();
    }
    runKept(mDelayed, *task, missed);
    return true;
}

KeptTask* LoopTasks::takeDueLocked(unsigned long* missed) {
    if (mHasFired) {
        mHasFired = false;
        mArmedFor = NEVER;
    }
    std::uint64_t const due = mDeadlines.isEmpty() ? NEVER : mDeadlines.first().due;
    if (due > mNow) {
        mNow = platform::monotonicNanoseconds();
    }
    if (due > mNow) {
        mLooksForDue = false;
        mArmedFor = mArmedFor <= mNow ? NEVER : mArmedFor;  // that expiry has been lost
        if (due < mArmedFor) {
            armKernelTimerLocked(std::max(due, mNow + platform::sleepSlack()));
        }
        return nullptr;
    }
    std::uint32_t const place = mDeadlines.first().owner;
    mDeadlines.erase(place);
    if (!mDeadlines.isEmpty()) {
        mDelayed.expect(mDeadlines.first().owner);
    }
    KeptTask& task = mDelayed[place];
    task.state = KeptTask::RUNNING;
    task.isLast = task.period == 0;
    if (task.isLast) {
        task.forsakeHandles();
        --mOnceCount;
    } else {
        mNow = platform::monotonicNanoseconds();
        std::uint64_t const periods = (mNow - due) / task.period;
        task.due = due + (periods + 1) * task.period;
        *missed = static_cast<unsigned long>(std::min<std::uint64_t>(periods, MOST_MISSED));
    }
    return &task;
}

// The task is RUNNING.
void LoopTasks::runKept(TaskTable& table, KeptTask& task, unsigned long told) {
    callTask([&task, told] { task.room.run(told); });
    if (task.isLast || !goesOnWaiting(table, task)) {
        putBack(table, task);
    }
}

bool LoopTasks::goesOnWaiting(TaskTable& table, KeptTask& task) {
    platform::MutexGuard const guard(mMutex);
    if (task.state != KeptTask::RUNNING) {
        return false;
    }
    task.state = KeptTask::WAITING;
    if (&table == &mDelayed) {
        mDeadlines.insert(task.due, mDelayed.placeOf(task));
        mLooksForDue = true;
    }
    return true;
}

// False when no descriptor has anything.
bool LoopTasks::executeReady() {
    if (!mPolled.hasReady()) {
        if (mHaveWatchesChanged.load()) {
            collectWatches();
        }
        if (mPolled.isEmpty() || ++mTurnsWithoutLook < MOST_TURNS_WITHOUT_LOOK) {
            return false;
        }
        mTurnsWithoutLook = 0;
        mPolled.look();
    }
    PollSet::Ready ready;
    while (mPolled.takeReady(&ready)) {
        KeptTask* task;
        {
            platform::MutexGuard const guard(mMutex);
            task = takeReadyLocked(ready);
        }
        if (task != nullptr) {
            runKept(mWatching, *task, ready.events);
            return true;
        }
    }
    return false;
}

// nullptr for one that was cancelled since poll() saw it.
KeptTask* LoopTasks::takeReadyLocked(PollSet::Ready const& ready) {
    KeptTask& task = mWatching[ready.owner];
    if (task.generation != ready.generation || task.state != KeptTask::WAITING) {
        return nullptr;
    }
    task.state = KeptTask::RUNNING;
    task.isLast = ready.events == Loop::CLOSED;
    if (task.isLast) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) watched descriptor:%d is closed",
               mControl->label(), mControl->name(), task.descriptor);
        endWatchLocked(task);
    }
    return &task;
}

void LoopTasks::collectWatches() {
    platform::MutexGuard const guard(mMutex);
    mHaveWatchesChanged.store(false);
    mIsNudged = false;
    mPolled.assign(mWatches);
}

// Where the kernel has refused its timer the loop looks at the clock, and asks again, by itself.
bool LoopTasks::awaitWord(int wakeEnd) {
    if (mHaveWatchesChanged.load()) {
        collectWatches();
    }
    bool const isTimed = !mIsTimerRefused.load();
    if (mPolled.isEmpty() && isTimed) {
        return true;
    }
    int error;
    bool const hasWord =
        isTimed ? mPolled.await(wakeEnd, &error) : mPolled.awaitMoment(wakeEnd, &error);
    mLooksForDue = mLooksForDue || !isTimed;
    mTurnsWithoutLook = 0;
    mHasTurn.store(true);
    if (error != 0 && error != mPollError) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) poll errno:%d", mControl->label(),
               mControl->name(), error);
    }
    mPollError = error;
    return hasWord;
}

void LoopTasks::close() {
    platform::MutexGuard const guard(mMutex);
    mHasEnded = true;
}

// In a child of a fork that one of them makes the rest stays as it is.
void LoopTasks::drop() {
    unsigned long dropped = 0;
    while (isOfThisProcess() && mQueue.front() != nullptr) {
        destroy([this] { reinterpret_cast<TaskRoom*>(mQueue.front())->destroy(); });
        mQueue.drop();
        ++dropped;
    }
    dropped += dropTable(mDelayed);
    dropTable(mWatching);
    if (isOfThisProcess()) {
        destroy([this] { mHandlers.reset(); });
    }
    platform::MutexGuard const guard(mMutex);
    mDroppedCount = dropped;
}

// How many of them were to be called once.
unsigned long LoopTasks::dropTable(TaskTable& table) {
    unsigned long dropped = 0;
    for (std::uint32_t i = 0; isOfThisProcess() && i < table.capacity(); ++i) {
        KeptTask& task = table[i];
        {
            platform::MutexGuard const guard(mMutex);
            if (task.state != KeptTask::WAITING) {
                continue;
            }
            task.forsakeHandles();
            task.state = KeptTask::TAKEN;
            if (&table == &mDelayed && task.period == 0) {
                --mOnceCount;
                ++dropped;
            }
        }
        putBack(table, task);
    }
    return dropped;
}

}  // namespace utl
