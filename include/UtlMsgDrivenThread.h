// A thread that sleeps until there is something to do: it hands posted messages, synchronous sends
// and the expiries of its own timers to one listener, one after the other.
//
//     class Printer : public ThreadMsgListener {
//         int receiveMsg(int threadId, ThreadRawMsg& msg) override {
//             LineMsg line;
//             line.restoreFrom(msg);
//             ...
//             return 0;
//         }
//     };
//
//     Printer printer;
//     MsgDrivenThread thread(256, 100, "printer", 0);  // 100 messages of 256 bytes, no timers
//     thread.start(&printer, 0, 0, nullptr, 1, 0, ThreadPriority::NORMAL, 0);
//     thread.postMsg(LineMsg(...));
//     thread.stop(1, 0);
//
// All room is allocated when the object is made; posting and delivering allocate nothing. The
// listener is called on the thread, with no lock held but for synchronous sends, and may post,
// find, erase, set and kill timers there. An expiry arrives as a TimerMsg.

#ifndef UTL_MSG_DRIVEN_THREAD_H
#define UTL_MSG_DRIVEN_THREAD_H

#include <cstdint>
#include <memory>

#include "UtlApi.h"
#include "UtlEvent.h"
#include "UtlMap.h"
#include "UtlMsg.h"
#include "UtlQueue.h"
#include "UtlSyncObject.h"
#include "UtlThread.h"
#include "UtlThreadRawMsg.h"
#include "UtlTimerInfo.h"

namespace utl {

class LoopPipe;
class OwnedTimers;

class UTL_API ThreadMsgListener {
public:
    virtual ~ThreadMsgListener();

    // On the message-driven thread `threadId`. `msg` is good during the call. The result is
    // ignored.
    virtual int receiveMsg(int threadId, ThreadRawMsg& msg) = 0;
};

// Any thread may call any operation; but the thread itself must not destroy its object. Operations
// return 1 for done and 0 for refused unless they say otherwise. Those that wait for the thread do
// so one at a time, and end when it stops; other threads' posts wait meanwhile.
class UTL_API MsgDrivenThread : public Thread {
public:
    // Two words of the machine: what the pipe carries and the control queue holds.
    struct ThreadCtlMsg {
        std::int32_t id = -1;
        std::int32_t parameter = -1;
    };

    // Room for `maxMsgCount` messages whose fields take up to `maxMsgSize` bytes, and for
    // `maxTimerCount` timers. When the pipe cannot be made, which is logged, the thread ends as
    // soon as it is started: a process without privileges gets none for more than some 130000
    // messages.
    MsgDrivenThread(unsigned long maxMsgSize, unsigned long maxMsgCount, char const* name,
                    unsigned long maxTimerCount);

    // Stops a running thread and waits for it.
    ~MsgDrivenThread() override;

    // As Thread::start(), for the work of calling `listener`, which must live as long as the thread
    // runs. -1 also for a null listener, on the thread itself, and when it was called before, even
    // if that failed.
    int start(ThreadMsgListener* listener, int watchdogMode, unsigned long watchdogAliveTime,
              WatchdogTimerListener* watchdogListener, int waitMode, unsigned long waitTimeout,
              ThreadPriority const& priority, unsigned long reserved);

    // As Thread::stop(). What is queued is not delivered, but for at most one message. A thread
    // that has ended leaves the manager's registry; one that was not waited for leaves it with the
    // next stop() or with its object. -1 on the thread itself.
    int stop(int waitMode, unsigned long timeout);

    // Queue a message: messages of one sender arrive in their order. Refused, and logged, when it
    // is too large, has a reserved id, or the queue is full; refused when the thread does not run
    // or was asked to stop.
    int postMsg(Msg const& msg);
    int postMsg(long msgId);

    // As postMsg(), whatever the thread's state.
    int sendMsgAsync(Msg const& msg);

    // Deliver a message before all that are queued and block until the listener has returned. The
    // thread's queue is locked meanwhile: nobody else can post. 0 when it was not delivered, and on
    // the thread itself, which would wait for itself.
    int sendMsgSync(Msg const& msg);
    int sendMsgSync(long msgId);

    // These three ask the thread, and block until it has answered.
    // Restores the first queued message with `msgId` into `*out`; it stays queued. 1 as a `msgId`
    // stands for the first pending expiry.
    int peekMsg(long msgId, Msg* out);
    int hasMsg(long msgId);

    // The id of the oldest queued message; 1 when only expiries are pending, -1 when there is
    // nothing or the thread does not run.
    long getFirstMsgId();

    // Removes every queued message with `msgId`, and blocks until that is done. 1 as a `msgId`
    // kills all timers. 0 when it could not be done, and for reserved ids.
    int eraseMsg(long msgId);

    // Makes a timer that expires every `intervalMs` milliseconds (with 0 never), `repeatCount`
    // times or, with 0, without end. With `freeRunning` 0 the next interval begins when an expiry
    // has been handled, and at most one waits to be; otherwise the interval runs on, and at most
    // two wait. Its id, which is positive, or -1. With `noWait` 0 it blocks until the thread has
    // started the timer.
    int setTimer(unsigned long intervalMs, int noWait, unsigned int repeatCount, int freeRunning);

    // Stops and forgets a timer; an expiry that is queued still arrives. With `noWait` 0 it blocks
    // until that is done. 0 when it is unknown, which on the thread itself counts as done.
    int killTimer(int userId, int noWait);

    // The next timer gets this id.
    void setNextUserTimerIdForTesting(int userId);

protected:
    // The message loop.
    int execute() override;

    // Wakes the loop.
    int requestStop() override;

private:
    enum class Step { NEXT, STOPPED, BROKEN };

    // The answer to a find: whether there is such a message, and the message.
    struct Found {
        explicit Found(unsigned long size) : record(size) {}

        ThreadRawMsg record;
        bool isThere = false;
    };

    bool hasAllBuffers() const;

    int postThreadCtlMsg(long id, int parameter);
    bool postRequestLocked(Event& event, long id, int parameter);
    bool storeLocked(Msg const& msg);
    void logError(long msgId) const;

    template <typename Use>
    auto find(long msgId, Use use);
    bool findByLoop(long msgId);
    int eraseByLoop(long msgId);

    Step executeStep();
    bool serveRequestsLocked(long ctlId);
    int dispatch(ThreadCtlMsg const& ctl);
    void leaveLoop();

    int executeReceiveMsg(Queue<unsigned char>& queue);
    int executeReceiveMsg(Queue<unsigned char>& queue, long msgId);
    bool executeFindMsg(long msgId, Found* found);
    bool findSlotLocked(long msgId, Found* found);
    bool findTimeoutLocked(Found* found);
    void executeEraseMsg(long msgId);
    void eraseMsgFromQueue(long msgId);
    bool judgeEraseMsg(long ctlId) const;
    long slotIdLocked(unsigned long position);

    // All of these with the queue lock held, but for the first two and executeTimeout().
    int setTimerByLoop(TimerInfo const& info, int noWait);
    int killTimerByLoop(int userId, int noWait);
    int executeTimeout(int userId);
    int executeTimerRequest(ThreadCtlMsg const& ctl);
    int executeStartTimer(int userId);
    int executeStopTimer(int userId);
    int finishTimeout(int userId);
    void executeTimeoutSignal(int userId);
    bool eraseTimerByTimerInfo(TimerInfo* info);
    void eraseAllTimer();
    bool postTimerRequestLocked(long ctlId, int userId, int noWait);
    void answerTimerRequest(bool isServed);

    unsigned long const mMaxMsgCount;
    unsigned long const mSlotSize;  // of every message in the queues: the largest, with its id

    // Locks, outer first. Other threads hold the API lock for a whole operation, waits for the loop
    // included, so that one of them is served at a time. The loop takes only the queue lock.
    SyncObject mApiLock;
    SyncObject mQueueLock;

    ThreadMsgListener* mListener = nullptr;  // written once by start(), before there is a loop

    // Guarded by mQueueLock from here on.
    Queue<ThreadCtlMsg> mCtlQueue;
    Queue<unsigned char> mDataQueue;
    bool mHasDataQueueOverflowed = false;  // until the loop next delivers a message
    Queue<unsigned char> mSyncQueue;       // the one message of a synchronous send
    ThreadRawMsg mSendMsg;
    ThreadRawMsg mReceiveMsg;  // the loop's, what the listener sees
    bool mHasLoopEnded = false;

    // The request of another thread, one at a time. Its event is on until the loop has answered or
    // has ended; the answer is good while the asking thread holds the API lock.
    Event mSyncEvent;
    Event mEraseEvent;
    Event mFindEvent;
    Event mTimerEvent;
    bool mIsRequestServed = false;
    long mEraseTarget = -1;
    long mFindTarget = -1;
    ThreadCtlMsg mTimerRequest;
    Found mRequestFound;
    Found mLoopFound;  // for what the listener looks for itself, lest it change another's answer

    Map<int, TimerInfo> mTimers;
    int mNextUserTimerId = 1;

    // The kernel's timers go first: their signals find the pipe.
    std::unique_ptr<LoopPipe> mPipe;
    std::unique_ptr<OwnedTimers> mKernelTimers;
};

}  // namespace utl

#endif  // UTL_MSG_DRIVEN_THREAD_H
