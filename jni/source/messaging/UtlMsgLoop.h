// Internal. The loop of a message-driven thread, with its queues and timers.

#ifndef UTL_MSG_LOOP_H
#define UTL_MSG_LOOP_H

#include <atomic>
#include <memory>
#include <optional>

#include "UtlMap.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadRawMsg.h"
#include "UtlTimerInfo.h"

#include "messaging/UtlBorrowedRecord.h"
#include "messaging/UtlCacheDistance.h"
#include "messaging/UtlLoopControl.h"
#include "messaging/UtlSlotRing.h"

namespace utl {

// The public operations return what those of MsgDrivenThread do. Functions whose names end in
// `Locked` are called with the mutex of the control held; `execute...` and `serve...` run on the
// loop's thread.
class MsgDrivenThread::Loop {
public:
    Loop(MsgDrivenThread& thread, unsigned long maxMsgSize, unsigned long maxMsgCount,
         unsigned long maxTimerCount);

    // Without one of them a message that was accepted could be lost.
    bool hasAllBuffers() const;

    // Any thread, whether the loop runs or not.
    void setNextUserTimerId(int userId);
    unsigned long entryCount() const { return mControl->count(); }
    LoopControl& control() { return *mControl; }
    int requestStop();

    // Refused after the end of the loop if it `needsLoop`.
    int post(Msg const& msg, bool needsLoop);

    // Any thread while the loop runs; on the loop's own what is asked for is done at once, but for
    // send() and askMsg(), which are for others.
    int send(Msg const& msg);
    int askMsg(Msg const& question, Msg* answer);
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

    // What another thread asks for; the argument is an id.
    enum Request { SYNC, QUESTION, ERASE, FIND, START_TIMER, STOP_TIMER };

    bool isLoopThread() const { return LoopControl::current() == mControl.get(); }

    static bool store(Msg const& msg, ThreadRawMsg* record);
    Queuing queueLocked(Msg const& msg);
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
                                            Request request, long ctlId, int userId);

    Step executeStep();
    bool serveRequest(long ctlId);
    bool serveSync(bool isQuestion, long ctlId);
    bool closeQuestion();
    bool serveErase(long target, long ctlId);
    int dispatch(ThreadCtlMsg const& ctl);
    int executeReceiveMsg(long msgId);
    void deliver();
    bool executeFindMsgLocked(long msgId, ThreadRawMsg* found);
    bool findSlotLocked(long msgId, ThreadRawMsg* found);
    bool findTimeoutLocked(ThreadRawMsg* found);
    void executeEraseMsgLocked(long msgId);
    void eraseMsgFromQueueLocked(long msgId);

    void executeExpiries();
    void executeTimeoutSignalLocked(int userId);
    int executeTimeout(int userId);
    int finishTimeoutLocked(int userId);
    int executeTimerRequest(ThreadCtlMsg const& ctl);
    int executeStartTimerLocked(int userId);
    int executeStopTimerLocked(int userId);
    bool removeSystemTimerLocked(TimerInfo* info);
    bool eraseTimerByTimerInfoLocked(TimerInfo* info);
    void eraseAllTimerLocked();

    MsgDrivenThread& mThread;
    bool mIsThreadGone = false;  // the loop's
    unsigned mProcess = 0;       // likewise: in which it runs
    unsigned long const mMaxMsgCount;
    unsigned long const mSlotSize;  // of every message in the queues: the largest, with its id
    std::unique_ptr<LoopControl> const mControl;

    // Guarded by the mutex of the control, but that the loop takes out of the queue without it.
    BorrowedRecord mSendMsg;
    ThreadRawMsg mRefusedMsg;                  // of a message that finds no slot
    std::atomic<unsigned> mOverflowedAt{~0u};  // what mDelivered was when one last found none
    CacheDistance mBehindSending;
    SlotRing mDataQueue;
    Map<int, TimerInfo> mTimers;
    int mNextUserTimerId = 1;

    // What a request comes with, and what it is answered with: the asking thread's while it has the
    // right to ask, and the loop's until it answers.
    ThreadRawMsg mSyncMsg;
    ThreadRawMsg mAnsweredMsg;

    // The loop's.
    std::atomic<unsigned> mDelivered{0};  // data messages, wraps
    std::unique_ptr<unsigned char[]> const mReceiveBuffer;
    BorrowedRecord mReceiveMsg;  // what the listener sees
    ThreadRawMsg mFoundMsg;      // what the listener has looked for itself
};

template <typename Use>
auto MsgDrivenThread::Loop::find(long msgId, Use use) {
    if (isLoopThread()) {
        bool isThere;
        {
            LoopControl::Guard const guard(*mControl);
            isThere = executeFindMsgLocked(msgId, &mFoundMsg);
        }
        return use(isThere ? &mFoundMsg : nullptr);
    }
    LoopControl::Asking asking(*mControl);
    bool const isThere = ask(asking, FIND, msgId);
    LoopControl::Transfer const transfer;
    return use(isThere ? &mAnsweredMsg : nullptr);
}

}  // namespace utl

#endif  // UTL_MSG_LOOP_H
