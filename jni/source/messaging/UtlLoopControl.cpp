#include "messaging/UtlLoopControl.h"

#include <errno.h>

#include <new>

#include "UtlLog.h"
#include "UtlThreadManager.h"

#include "foundation/UtlAwait.h"
#include "foundation/UtlLogLine.h"
#include "messaging/UtlControlIds.h"
#include "messaging/UtlLoopExtension.h"
#include "platform/UtlFutex.h"
#include "platform/UtlThreadLocal.h"

namespace utl {

namespace {

constexpr std::uint32_t ANY_CHANNEL = 1;

UTL_THREAD_LOCAL LoopControl* ofThisThread = nullptr;
UTL_THREAD_LOCAL LoopControl* leftByThisThread = nullptr;
UTL_THREAD_LOCAL bool isInTransfer = false;

void logNoPipe(char const* label, char const* name, int error) {
    applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) pipe errno:%d", label, name, error);
}

}  // namespace

std::unique_ptr<LoopControl> LoopControl::make(Names const& names, TimerHandler& handler,
                                               unsigned long maxEntries, unsigned long maxTimers) {
    std::unique_ptr<LoopControl> control(new (std::nothrow)
                                             LoopControl(names, handler, maxEntries, maxTimers));
    if (control == nullptr || !control->isOpen()) {
        logNoPipe(names.label, names.name, control != nullptr ? errno : ENOMEM);
    }
    return control;
}

LoopControl::LoopControl(Names const& names, TimerHandler& handler, unsigned long maxEntries,
                         unsigned long maxTimers)
    : mLabel(names.label),
      mName(names.name, 0, 0),
      mTimers(names.label, mName.c_str(), handler, mPipe, maxTimers),
      mWatch(names.source, "execute"),
      mEntries(sizeof(Entry), maxEntries) {}

LoopControl* LoopControl::current() {
    return ofThisThread;
}

LoopControl* LoopControl::ofThread() {
    return ofThisThread != nullptr ? ofThisThread : leftByThisThread;
}

LoopControl::Transfer::Transfer() : mIsInner(isInTransfer) {
    isInTransfer = true;
}

LoopControl::Transfer::~Transfer() {
    isInTransfer = mIsInner;
}

bool LoopControl::isRefusedInTransfer() const {
    if (isInTransfer) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "%s(%s) Refused. A message asks for it while it is stored or restored", mLabel,
               name());
    }
    return isInTransfer;
}

// With the mutex held, before and, if it is taken, after: which the analysis cannot follow.
void LoopControl::Access::awaitShared() UTL_NO_THREAD_SAFETY_ANALYSIS {
    if (current() == &mLoop) {
        return;
    }
    mVisit.emplace(mLoop.mVisitors);
    while (mIsTaken && mLoop.mIsExclusive) {
        unsigned const turn = mLoop.mExclusiveTurns.load();
        mLoop.mMutex.unlock();
        LoopWait const wait(&mLoop, mLoop.mExclusiveTurns, turn);
        mIsTaken = !wait.isRefused();
        if (mIsTaken) {
            awaitEndOf(turn);
            mLoop.mMutex.lock();
        }
    }
}

// Of this one, whether the next has begun or not: it is this one that others believe is waited for.
void LoopControl::Access::awaitEndOf(unsigned turn) const {
    while (mLoop.mExclusiveTurns.load() == turn) {
        platform::waitWord(mLoop.mExclusiveTurns, turn, ANY_CHANNEL, platform::NO_LIMIT);
    }
}

// A loop that has ended answers everybody, although its thread may have something left to do.
LoopControl::Asking::Asking(LoopControl& loop)
    : mLoop(loop), mVisit(loop.mVisitors), mWait(&loop, loop.mEnds, 0) {
    if (!mWait.isRefused() && !loop.isRefusedInTransfer()) {
        mGuard.emplace(loop.mRequestLock);
    }
}

LoopControl::Posting LoopControl::Asking::postLocked(Request const& request, Entry const& entry,
                                                     Bell* bell) {
    mLoop.mMutex.assumeHeld();
    mLoop.mRequest = request;
    mLoop.mAsker = ofThread();
    mLoop.mIsAnswered.setOff();
    mLoop.mIsAsked.store(true, std::memory_order_release);  // the loop may come to any entry now
    Posting const posting = mLoop.postLocked(entry, bell);
    if (posting != Posting::DONE) {
        mLoop.mIsAsked.store(false, std::memory_order_relaxed);
    }
    return posting;
}

bool LoopControl::Asking::ring(Bell& bell) {
    return bell.ring([this] { mLoop.mIsAsked.store(false, std::memory_order_relaxed); });
}

bool LoopControl::Asking::await() {
    awaitOn(mLoop.mIsAnswered, 0);
    return mLoop.mIsServed;
}

// For a loop that was found in this sleep. Whether there is a word, or a bell that will see to it.
bool LoopControl::wakeLocked(unsigned sleep, Entry const& entry, Bell* bell) {
    if (bell != nullptr && !isRinging(sleep)) {
        bell->mLoop = this;
        bell->mWord = entry;
        bell->mSleep = sleep + 1;
        bell->mVisit.emplace(mVisitors);
        mSleep.store(bell->mSleep, std::memory_order_relaxed);
        return true;
    }
    if (!write(entry)) {
        return false;  // the mark stays: the next entry tries again
    }
    mSleep.store(AWAKE, std::memory_order_relaxed);
    return true;
}

bool LoopControl::wake(Bell const& bell) {
    if (!write(bell.mWord)) {
        return false;
    }
    unsigned sleep = bell.mSleep;
    mSleep.compare_exchange_strong(sleep, AWAKE, std::memory_order_relaxed);
    return true;
}

bool LoopControl::write(Entry const& word) {
    ssize_t const written = mPipe.wake(word);
    if (written != static_cast<ssize_t>(sizeof word)) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) Error. write Ret:%u errno:%d", mLabel, name(),
               static_cast<unsigned>(written), errno);
        return false;
    }
    return true;
}

void LoopControl::enter() {
    mThreadId = ThreadManager::getCallerId();
    mWatch.begin(mThreadId);
    ofThisThread = this;
    mFigures.wake();
    LoopList::add(*this);
    mTimers.enter();
}

void LoopControl::leaveLoop() {
    LoopList::remove(*this);
    mTimers.leave();
    ofThisThread = nullptr;
    leftByThisThread = this;
}

void LoopControl::leaveThread() {
    leftByThisThread = nullptr;
}

bool LoopControl::nudge() {
    return write({static_cast<std::int32_t>(CTL_SERVICE), -1});
}

bool LoopControl::sleep(unsigned long before, unsigned long after, LoopExtension* extension) {
    {
        platform::MutexGuard const guard(mMutex);
        if (mEntries.count() != 0 && isOpen()) {
            return true;
        }
        mSleep.store(nextSleepLocked(), std::memory_order_relaxed);
    }
    bool isWhole = true;
    if (mTimers.beginSleep()) {
        LoopWatch::Pause const pause(mWatch, before, after);
        bool const hasWord = extension == nullptr || extension->awaitWord(mPipe.readEnd());
        isWhole = !hasWord || read();
    }
    mTimers.endSleep();
    {
        platform::MutexGuard const guard(mMutex);
        mSleep.store(AWAKE, std::memory_order_relaxed);
    }
    mFigures.wake();
    return isWhole;
}

// Even, and never AWAKE.
unsigned LoopControl::nextSleepLocked() {
    mLastSleep += 2;
    if (mLastSleep == AWAKE) {
        mLastSleep += 2;
    }
    return mLastSleep;
}

void LoopControl::finishHandler(long msgId) {
    unsigned long const took = mFigures.noteHandler(msgId);
    unsigned long const limit = mFigures.limit();
    if (limit == 0 || took <= limit) {
        return;
    }
    if (msgId == LoopStatistics::TASK) {
        applog(LIBRARY_LOG, LEVEL_INFORMATION, "%s(%s) Slow. Task Time:%lums Limit:%lums", mLabel,
               name(), took, limit);
    } else {
        applog(LIBRARY_LOG, LEVEL_INFORMATION, "%s(%s) Slow. MsgId:0x%08x Time:%lums Limit:%lums",
               mLabel, name(), static_cast<unsigned>(msgId), took, limit);
    }
}

bool LoopControl::read() {
    for (;;) {
        ssize_t const got = mPipe.read();
        if (got == static_cast<ssize_t>(sizeof(Entry))) {
            return true;
        }
        int const error = errno;
        unsigned const result = static_cast<unsigned>(got);
        if (error != EINTR) {
            applog(LIBRARY_LOG, LEVEL_ERROR,
                   "%s(%s) Error. read Ret:%u errno:%d !!Break msg loop!!", mLabel, name(), result,
                   error);
            return false;
        }
        applog(LIBRARY_LOG, LEVEL_INFORMATION,
               "%s(%s) Error. read Ret:%u errno:%d=EINTR Retry read", mLabel, name(), result,
               error);
    }
}

// One that was noted may not have been posted.
bool LoopControl::isReallyAsked(Request* request) {
    platform::MutexGuard const guard(mMutex);
    return isAskedLocked(request);
}

bool LoopControl::isAskedLocked(Request* request) const {
    *request = mRequest;
    return mIsAsked.load(std::memory_order_relaxed);
}

void LoopControl::answerLocked(bool isServed) {
    if (mIsAsked.load(std::memory_order_relaxed)) {
        mIsServed = isServed;
        mIsAsked.store(false, std::memory_order_relaxed);
        LoopWait::end(mAsker);
        mIsAnswered.setOn();
    }
}

void LoopControl::forgetOtherThreads() {
    new (&mMutex) platform::Mutex;
}

void LoopControl::followFork() {
    forgetOtherThreads();
    mPipe.reopen();
    if (!isOpen()) {
        logNoPipe(label(), name(), errno);
    }
}

void LoopControl::beginExclusive() {
    platform::MutexGuard const guard(mMutex);
    mIsExclusive = true;
}

void LoopControl::endExclusiveLocked() {
    mIsExclusive = false;
    mExclusiveTurns.fetch_add(1);
    platform::wakeWord(&mExclusiveTurns, ANY_CHANNEL);
}

}  // namespace utl
