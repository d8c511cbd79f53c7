// Internal. What every thread that loops over what is queued for it has: a queue of control
// entries, a pipe to sleep on, timers, and a place for the one request that another thread waits
// for.
//
// Two locks. The request lock is held by a thread that waits for the loop's answer, from before it
// asks until it has the answer, and taken for nothing else. The mutex guards the queue and is held
// for a few lines; the loop takes entries out without it.
//
// No wake-up is lost, although an entry that is queued while the loop is awake gets no word in the
// pipe. The loop goes to sleep in two steps: with the mutex held it sees that the queue is empty
// and marks itself asleep; then it reads. Whoever queues an entry does so with the mutex held, and
// sees to a word if he finds the mark. So an entry is queued either before the mark, and then the
// loop has seen it, or after it, and then there is a word, for the mark is set only when every
// entry before it has been taken. A word that was written for an entry that the loop has taken in
// the meantime, because a timer woke it, makes it look once for nothing.
//
// Where it matters how soon the loop wakes, the word is written without the mutex (Bell): a loop
// that takes the sender's place on a processor would run into it. Meanwhile the mark says so, and
// others write words of their own, with the mutex held, before they let the loop see what they have
// queued. The mark goes when a word is there, unless the loop has slept again by then: every sleep
// has its number. Should the one word not get into the pipe, nothing that others count on has come
// behind what the sender queued, and the loop, which takes the mutex when it wakes, has not begun
// to take it: he takes it back.
//
// The signals of the timers come to the loop's own thread: LoopTimers::beginSleep() and the handler
// do the same with a mark of their own. tests/wakemodel_test.cpp tries every order of these steps.
// An extension that sleeps in poll() has the pipe among its descriptors, and what other threads
// change for it comes with a word of its own (nudge), whether the loop is asleep or not: it is
// there before poll() looks, or ends it.

#ifndef UTL_LOOP_CONTROL_H
#define UTL_LOOP_CONTROL_H

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>

#include "UtlEvent.h"
#include "UtlString.h"
#include "UtlSyncObject.h"
#include "UtlThreadSafety.h"

#include "foundation/UtlVisitorCount.h"
#include "messaging/UtlCacheDistance.h"
#include "messaging/UtlLoopFigures.h"
#include "messaging/UtlLoopList.h"
#include "messaging/UtlLoopTimers.h"
#include "messaging/UtlLoopWait.h"
#include "messaging/UtlSlotRing.h"
#include "messaging/UtlWakePipe.h"
#include "platform/UtlMutex.h"
#include "threads/UtlLoopWatch.h"

namespace utl {

class LoopExtension;

class LoopControl {
public:
    // Two words of the machine: what the queue holds and the pipe carries.
    using Entry = WakePipe::Word;

    enum class Posting { DONE, FULL, UNHEARD };

    // What another thread asks the loop for, and waits for.
    struct Request {
        int kind = 0;
        long argument = 0;
    };

    // What heads the log lines, "MsgDrivenThread(%s)", with the name, which is copied; and the
    // source that the loop reports alive from.
    struct Names {
        char const* label;
        char const* name;
        char const* source;
    };

    // Room for `maxEntries` entries and `maxTimers` timers. nullptr without memory; that, and a
    // pipe that cannot be made, is logged.
    static std::unique_ptr<LoopControl> make(Names const& names, TimerHandler& handler,
                                             unsigned long maxEntries, unsigned long maxTimers);
    LoopControl(LoopControl const&) = delete;
    LoopControl& operator=(LoopControl const&) = delete;

    char const* label() const { return mLabel; }
    char const* name() const { return mName.c_str(); }
    bool isOpen() const { return mPipe.isOpen(); }
    unsigned long capacity() const { return mEntries.capacity(); }
    unsigned long count() const { return mEntries.count(); }
    LoopTimers& timers() { return mTimers; }
    LoopWatch& watch() { return mWatch; }

    // Any thread.

    // The loop that the calling thread is in, or nullptr.
    static LoopControl* current();

    // The same, and still when that loop has ended, until leave() has returned.
    static LoopControl* ofThread();

    // Whether somebody has said that nothing more is accepted. Exact with the mutex held.
    bool isClosed() const { return mIsClosed.load(std::memory_order_relaxed); }

    LoopFigures& figures() { return mFigures; }
    LoopStatistics statistics() const { return mFigures.read(count()); }

    // Has the loop look whether there is something to do, although nothing is queued. Takes no
    // lock: a word that is there when the loop goes to sleep keeps it awake. False, logged, when it
    // could not be written.
    bool nudge();

    platform::Mutex& mutex() const UTL_RETURN_CAPABILITY(mMutex) { return mMutex; }

    // A scope in which a message writes itself into memory of a loop, or is read out of it, with a
    // lock held. Its functions are user code: what they ask of any loop is refused meanwhile, and
    // logged, rather than waiting for that lock or one that another message holds.
    class Transfer {
    public:
        Transfer();
        ~Transfer();
        Transfer(Transfer const&) = delete;
        Transfer& operator=(Transfer const&) = delete;

    private:
        bool const mIsInner;  // of one that goes on
    };

    // Whether the calling thread is in one. Logged.
    bool isRefusedInTransfer() const;

    // The mutex for a scope that changes the queue: waits while the loop has the queue for itself,
    // but on the loop's own thread. Not taken, logged, when the loop waits for the calling thread:
    // the analysis, which knows no such case, relies on the caller's asking first.
    class UTL_SCOPED_CAPABILITY Access {
    public:
        explicit Access(LoopControl& loop) UTL_ACQUIRE(loop.mMutex) : mLoop(loop) {
            mLoop.mMutex.lock();
            if (mLoop.mIsExclusive) {
                awaitShared();
            }
        }
        ~Access() UTL_RELEASE() {
            if (mIsTaken) {
                mLoop.mMutex.unlock();
            }
        }
        Access(Access const&) = delete;
        Access& operator=(Access const&) = delete;

        explicit operator bool() const { return mIsTaken; }

    private:
        void awaitShared();
        void awaitEndOf(unsigned turn) const;

        LoopControl& mLoop;
        std::optional<VisitorCount::Visit> mVisit;  // of one who has to wait
        bool mIsTaken = true;
    };

    // Wakes the loop for what was queued, if that was left to it. While it lives, so does the loop.
    class Bell {
    public:
        Bell() = default;
        Bell(Bell const&) = delete;
        Bell& operator=(Bell const&) = delete;

        // To be called without the mutex. False, logged, when the loop could not be woken; before
        // that `takeBack` is called, with the mutex held, to undo what was published with the
        // entry, which stays.
        template <typename TakeBack>
        bool ring(TakeBack takeBack);

    private:
        friend class LoopControl;

        LoopControl* mLoop = nullptr;
        Entry mWord = {};
        unsigned mSleep = AWAKE;  // as it has marked it
        std::optional<VisitorCount::Visit> mVisit;
    };

    // The right to ask the loop, which one thread has at a time, until the answer was dealt with.
    // None, logged, when the loop waits for the calling thread, and in a transfer.
    class Asking {
    public:
        explicit Asking(LoopControl& loop);
        Asking(Asking const&) = delete;
        Asking& operator=(Asking const&) = delete;

        explicit operator bool() const { return mGuard.has_value(); }

        // With the mutex held, which callers know by another name than this does. Whether the loop
        // was asked, by the entry that was queued.
        Posting postLocked(Request const& request, Entry const& entry, Bell* bell = nullptr);

        // Without it, when the loop was asked: whether it was, though it was left to the bell;
        // blocks until the loop has answered or ended, and whether it did what it was asked for.
        bool ring(Bell& bell);
        bool await();

    private:
        LoopControl& mLoop;
        VisitorCount::Visit const mVisit;
        LoopWait const mWait;
        std::optional<SyncGuard> mGuard;
    };

    // With the mutex held.

    // Queues an entry and sees to it that the loop comes to it: `publish` is called right before
    // the loop may find it. UNHEARD, logged: it is queued, without that call, but the loop could
    // not be woken. With a bell, that may be left to it.
    template <typename Publish>
    Posting postLocked(Entry const& entry, Publish publish, Bell* bell = nullptr)
        UTL_REQUIRES(mMutex);
    Posting postLocked(Entry const& entry, Bell* bell = nullptr) UTL_REQUIRES(mMutex) {
        return postLocked(
            entry, [] {}, bell);
    }

    void closeLocked() UTL_REQUIRES(mMutex) { mIsClosed.store(true, std::memory_order_relaxed); }
    bool hasEndedLocked() const UTL_REQUIRES(mMutex) {
        return mEnds.load(std::memory_order_relaxed) != 0;
    }
    SlotRing& entriesLocked() UTL_REQUIRES(mMutex) { return mEntries; }
    static Entry entryIn(unsigned char const* slot) {
        Entry entry;
        std::memcpy(&entry, slot, sizeof entry);
        return entry;
    }

    // The loop only.

    int threadId() const { return mThreadId; }
    LoopList::Link& link() { return mLink; }

    // The loop begins; it is over. From then on nobody is asked for anything, and who waits is
    // released: both with the mutex held, as is `cleanUp` called. `drop` is called at last, without
    // it: it may destroy what is user code.
    void enter();
    template <typename CleanUp, typename Drop>
    void leave(CleanUp cleanUp, Drop drop) UTL_EXCLUDES(mMutex);

    // Takes the next entry. False when there is none.
    bool take(Entry* entry) {
        unsigned char const* const slot = mEntries.front();
        if (slot == nullptr) {
            return false;
        }
        *entry = entryIn(slot);
        mEntries.drop();
        return true;
    }

    // What the thread has called has returned. Logged when it took too long.
    void finishHandler(long msgId);

    // Blocks until there may be something to do, for an extension too if there is one. The watch of
    // the thread pauses meanwhile: it reports alive at the lines `before` and `after`. False,
    // logged, when the pipe is broken.
    bool sleep(unsigned long before, unsigned long after, LoopExtension* extension = nullptr)
        UTL_EXCLUDES(mMutex);

    // After that: blocks until nobody is left of those who wait or ring, so that this may be
    // destroyed.
    void awaitNobody() { mVisitors.awaitNone(); }

    // What the loop is asked for, until it answers. False when it is not asked.
    bool isAsked(Request* request) UTL_EXCLUDES(mMutex) {
        return mIsAsked.load(std::memory_order_acquire) && isReallyAsked(request);
    }
    bool isAskedLocked(Request* request) const UTL_REQUIRES(mMutex);
    void answerLocked(bool isServed) UTL_REQUIRES(mMutex);

    // In a child of a fork, where this stays for good: only the descriptors are given back.
    void closePipe() { mPipe.close(); }

    // In a child of a fork made on this thread: what other threads held is free.
    void forgetOtherThreads();

    // In a child, before the loop begins: that, and a pipe of its own. Logged when there is none.
    void followFork();

    // Between these two nobody else queues anything.
    void beginExclusive() UTL_EXCLUDES(mMutex);
    void endExclusiveLocked() UTL_REQUIRES(mMutex);

private:
    friend class LoopWait;

    // Of the sleeps' numbers.
    static constexpr unsigned AWAKE = 0;

    LoopControl(Names const& names, TimerHandler& handler, unsigned long maxEntries,
                unsigned long maxTimers);

    bool isReallyAsked(Request* request) UTL_EXCLUDES(mMutex);
    static bool isRinging(unsigned sleep) { return sleep % 2 != 0; }
    bool wakeLocked(unsigned sleep, Entry const& entry, Bell* bell) UTL_REQUIRES(mMutex);
    bool wake(Bell const& bell);
    unsigned nextSleepLocked() UTL_REQUIRES(mMutex);
    bool write(Entry const& word);
    void leaveLoop();
    static void leaveThread();
    bool read();

    char const* const mLabel;
    BasicString<char> const mName;
    int mThreadId = 0;  // the loop's
    WakePipe mPipe;
    LoopTimers mTimers;
    LoopWatch mWatch;

    VisitorCount mVisitors;  // who wait, or may have to, and who ring
    SyncObject mRequestLock;

    CacheDistance mBeforeSending;
    mutable platform::Mutex mMutex;
    std::atomic<unsigned> mSleep{AWAKE};  // set with the mutex held: even, odd while a bell rings
    unsigned mLastSleep UTL_GUARDED_BY(mMutex) = AWAKE;
    std::atomic<bool> mIsClosed{false};  // likewise
    Turns mEnds{0};                      // 1 when the loop is over; likewise
    bool mIsExclusive UTL_GUARDED_BY(mMutex) = false;
    Turns mExclusiveTurns{0};  // that have ended
    CacheDistance mBehindSending;

    SlotRing mEntries;  // what is put in is guarded by the mutex
    LoopFigures mFigures;

    // Written with the mutex held. The answer is good while the asker has the request lock.
    std::atomic<bool> mIsAsked{false};
    Request mRequest UTL_GUARDED_BY(mMutex);
    LoopControl* mAsker UTL_GUARDED_BY(mMutex) = nullptr;
    bool mIsServed = false;
    Event mIsAnswered{0, 0};

    LoopList::Link mLink;
    LoopWait::Edge mWaitsFor UTL_GUARDED_BY(LoopWait::mLock);
};

template <typename Publish>
LoopControl::Posting LoopControl::postLocked(Entry const& entry, Publish publish, Bell* bell) {
    unsigned char* const slot = mEntries.end();
    // First the word, but for that of a bell: nothing that the loop may have taken already needs to
    // be taken back. Where no word got into the pipe until the queue was full, one is tried still.
    unsigned const sleep = mSleep.load(std::memory_order_relaxed);
    bool const isHeard =
        sleep == AWAKE || wakeLocked(sleep, entry, slot != nullptr ? bell : nullptr);
    if (slot == nullptr) {
        return Posting::FULL;
    }
    if (isHeard) {
        publish();
    }
    // One by one, as they were made: read back as a whole they would be waited for, and with them
    // all that was stored before.
    std::memcpy(slot, &entry.id, sizeof entry.id);
    std::memcpy(slot + sizeof entry.id, &entry.parameter, sizeof entry.parameter);
    mEntries.put();
    if (mEntries.mostCount() > mFigures.maxWaiting()) {
        mFigures.noteWaitingLocked(mEntries.countAgain());
    }
    return isHeard ? Posting::DONE : Posting::UNHEARD;
}

template <typename TakeBack>
bool LoopControl::Bell::ring(TakeBack takeBack) {
    if (mLoop == nullptr || mLoop->wake(*this)) {
        return true;
    }
    platform::MutexGuard const guard(mLoop->mMutex);
    if (mLoop->mSleep.load(std::memory_order_relaxed) != mSleep) {
        return true;  // something else has woken it
    }
    mLoop->mSleep.store(mSleep - 1, std::memory_order_relaxed);
    takeBack();
    return false;
}

template <typename CleanUp, typename Drop>
void LoopControl::leave(CleanUp cleanUp, Drop drop) {
    {
        platform::MutexGuard const guard(mMutex);
        mEnds.store(1);
        cleanUp();
        answerLocked(false);
    }
    leaveLoop();
    drop();
    leaveThread();
}

}  // namespace utl

#endif  // UTL_LOOP_CONTROL_H
