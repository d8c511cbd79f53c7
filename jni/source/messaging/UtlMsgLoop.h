// Internal. The loop of a message-driven thread, with its queues and timers.

#ifndef UTL_MSG_LOOP_H
#define UTL_MSG_LOOP_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "UtlMap.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadRawMsg.h"
#include "UtlThreadSafety.h"
#include "UtlTimerInfo.h"

#include "messaging/UtlBorrowedRecord.h"
#include "messaging/UtlCacheDistance.h"
#include "messaging/UtlLoopControl.h"
#include "messaging/UtlLoopExtension.h"
#include "messaging/UtlSlotRing.h"
#include "platform/UtlFork.h"

namespace utl {

// The public operations return what those of MsgDrivenThread do. Functions whose names end in
// `Locked` are called with the mutex of the control held; `execute...` and `serve...` run on the
// loop's thread.
class MsgDrivenThread::Loop {
public:
    // `extension` may be null.
    Loop(MsgDrivenThread& thread, unsigned long maxMsgSize, unsigned long maxMsgCount,
         unsigned long maxTimerCount, LoopExtension* extension);
    ~Loop();

    // Without one of them a message that was accepted could be lost.
    bool hasAllBuffers() const;

    // Before the loop is used that has not begun: if it was made in the parent of this process,
    // what other threads held of it there is free, and its pipe another.
    void followFork();

    // Any thread, whether the loop runs or not.
    void setNextUserTimerId(int userId);
    unsigned long entryCount() const { return mControl->count(); }
    LoopControl& control() { return *mControl; }
    int requestStop();

    // From now on nothing is accepted; with Rest::RUN what was accepted is handled before the loop
    // stops, but no message begins after `until` in nanoseconds; unless somebody asks for
    // Rest::DROP.
    void close(Rest rest, std::uint64_t until);
    void closeIfOpen();

    // How many were handled since then, and how many wait, or were left.
    StopResult stopResult(int result) const;

    // Refused after the end of the loop if it `needsLoop`.
    int post(Msg const& msg, bool needsLoop);

    // Any thread while the loop runs; on the loop's own what is asked for is done at once, but for
    // send() and askMsg(), which are for others.
    int send(Msg const& msg);
    int askMsg(Msg const& question, Msg* answer);
    bool call(void (*function)(void* context), void* context);
    int erase(long msgId);
    int setTimer(TimerInfo const& info, int noWait);
    int killTimer(int userId, int noWait);

    // A timer that stands still keeps its kernel timer: what it needs to go on is never refused.
    // The first is for the loop's thread.
    void restTimer(int userId);
    bool resumeTimer(int userId);

    // The result is that of `use`, which is called with the record that was found, or with nullptr.
    template <typename Use>
    auto find(long msgId, Use use);

    // Loops until the thread is asked to stop or the pipe breaks. The result of the thread.
    int run();

    // The loop's thread destroys its own object: the loop ends, and with it this.
    void outliveThread() { mIsThreadGone = true; }

private:
    enum class Step { NEXT, STOPPED, BROKEN };
    enum class Queuing { DONE, TOO_LARGE, NO_ROOM, NO_CTL_ROOM, UNHEARD };

    // Of what is queued when the loop stops, instead of a moment until which it is handled.
    static constexpr std::uint64_t LEFT = 0;
    static constexpr std::uint64_t DROPPED = 1;  // for good

    // What another thread asks for; the argument is an id, or the address of a Call.
    enum Request { SYNC, QUESTION, ERASE, FIND, START_TIMER, STOP_TIMER, CALL };
    struct Call;

    static constexpr long NOBODYS = -1;

    bool isLoopThread() const { return LoopControl::current() == mControl.get(); }

    static bool store(Msg const& msg, ThreadRawMsg* record);
    Queuing queueLocked(Msg const& msg, std::int32_t stamp, LoopControl::Bell* bell)
        UTL_REQUIRES(mControl->mutex());
    int report(Queuing queuing, long msgId);
    bool restoreAnswer(Msg* answer);
    bool send(LoopControl::Asking& asking, Request request, Msg const& msg);
    bool ask(LoopControl::Asking& asking, Request request, long argument);
    bool isFirstOverflow();
    bool report(LoopControl::Posting posting, long ctlId);
    void logTooLarge(long msgId);
    void logError(long msgId);
    int startTimer(TimerInfo const& info);
    LoopControl::Posting postTimerCtlLocked(std::optional<LoopControl::Asking>& asking,
                                            Request request, long ctlId, int userId)
        UTL_REQUIRES(mControl->mutex());

    bool isInChild() const {
        return mProcess.load(std::memory_order_relaxed) != platform::processNumber();
    }
    bool isOver() const;
    bool isWorkingOff() const;
    unsigned long leftCount() const;
    void finish();

    Step executeStep();
    bool sleep();
    bool serveRequest(long ctlId);
    bool serve(LoopControl::Request const& request, long ctlId);
    void serveCall(Call const& call);
    bool serveSync(bool isQuestion, long ctlId);
    bool closeQuestion();
    void serveErase(long target);
    int dispatch(ThreadCtlMsg const& ctl);
    int executeReceiveMsg(long msgId);
    void deliver();
    bool executeFindMsgLocked(long msgId, ThreadRawMsg* found) UTL_REQUIRES(mControl->mutex());
    bool findSlotLocked(long msgId, ThreadRawMsg* found) UTL_REQUIRES(mControl->mutex());
    bool findTimeoutLocked(ThreadRawMsg* found) UTL_REQUIRES(mControl->mutex());
    void executeEraseMsgLocked(long msgId) UTL_REQUIRES(mControl->mutex());
    void eraseMsgFromQueueLocked(long msgId) UTL_REQUIRES(mControl->mutex());

    void executeExpiries();
    void executeTimeoutSignalLocked(int userId) UTL_REQUIRES(mControl->mutex());
    int executeTimeout(int userId);
    int finishTimeoutLocked(int userId) UTL_REQUIRES(mControl->mutex());
    int executeTimerRequest(ThreadCtlMsg const& ctl);
    int executeStartTimerLocked(int userId) UTL_REQUIRES(mControl->mutex());
    int executeStopTimerLocked(int userId) UTL_REQUIRES(mControl->mutex());
    bool removeSystemTimerLocked(TimerInfo* info) UTL_REQUIRES(mControl->mutex());
    bool eraseTimerByTimerInfoLocked(TimerInfo* info) UTL_REQUIRES(mControl->mutex());
    void eraseAllTimerLocked() UTL_REQUIRES(mControl->mutex());

    MsgDrivenThread& mThread;
    bool mIsThreadGone = false;                                 // the loop's
    std::atomic<unsigned> mProcess{platform::processNumber()};  // in which it was made, or runs
    unsigned long const mMaxMsgCount;
    unsigned long const mSlotSize;  // of every message in the queues: the largest, with its id
    std::unique_ptr<LoopExtension, ExtensionRelease> const mExtension;
    std::unique_ptr<LoopControl> const mControl;

    CacheDistance mBeforeSending;
    // Of a message that finds no slot.
    ThreadRawMsg mRefusedMsg UTL_GUARDED_BY(mControl->mutex());
    std::atomic<unsigned> mOverflowedAt{~0u};  // what mDelivered was when one last found none
    CacheDistance mBehindSending;
    SlotRing mDataQueue;  // what is put in is guarded by the mutex of the control
    Map<int, TimerInfo> mTimers UTL_GUARDED_BY(mControl->mutex());
    int mNextUserTimerId UTL_GUARDED_BY(mControl->mutex()) = 1;

    bool mIsStopQueued UTL_GUARDED_BY(mControl->mutex()) = false;

    // Of a stop; what it was when somebody closed.
    std::atomic<std::uint64_t> mRunsUntil{LEFT};
    std::atomic<unsigned long> mHandledBefore{0};

    // What a request comes with, and what it is answered with: the asking thread's while it has the
    // right to ask, and the loop's until it answers.
    ThreadRawMsg mSyncMsg;
    ThreadRawMsg mAnsweredMsg;

    // The loop's.
    std::atomic<unsigned> mDelivered{0};  // data messages, wraps
    long mTurn = NOBODYS;                 // of the entry in hand, until its message is erased
    std::unique_ptr<unsigned char[]> const mReceiveBuffer;
    BorrowedRecord mReceiveMsg;  // what the listener sees
    ThreadRawMsg mFoundMsg;      // what the listener has looked for itself
};

template <typename Use>
auto MsgDrivenThread::Loop::find(long msgId, Use use) {
    if (isLoopThread()) {
        bool isThere;
        {
            platform::MutexGuard const guard(mControl->mutex());
            isThere = executeFindMsgLocked(msgId, &mFoundMsg);
        }
        LoopControl::Transfer const transfer;
        return use(isThere ? &mFoundMsg : nullptr);
    }
    LoopControl::Asking asking(*mControl);
    bool const isThere = ask(asking, FIND, msgId);
    LoopControl::Transfer const transfer;
    return use(isThere ? &mAnsweredMsg : nullptr);
}

}  // namespace utl

#endif  // UTL_MSG_LOOP_H
