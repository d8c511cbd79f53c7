#include "UtlMsgDrivenThread.h"

#include <cstdint>
#include <limits>
#include <new>

#include "UtlLog.h"
#include "UtlRawMemory.h"
#include "UtlStatementInfo.h"

#include "foundation/UtlAwait.h"
#include "foundation/UtlLogLine.h"
#include "messaging/UtlControlIds.h"
#include "messaging/UtlLoopPipe.h"
#include "messaging/UtlOwnedTimers.h"
#include "messaging/UtlTimerTable.h"
#include "platform/UtlKernelTimer.h"
#include "threads/UtlWatchPause.h"

namespace utl {

namespace {

constexpr char LABEL[] = "MsgDrivenThread";

// Control entries beyond those of the messages: requests, and what the timers queue.
constexpr unsigned long EXTRA_CTL_ENTRIES = 256;

// What getFirstMsgId() looks for: any message.
constexpr long ANY_MSG = -2;

// Deliberate: only for ids from here on does the loop look, after a synchronous message, whether
// its handler has erased the message whose turn it was. One with a lower id is dispatched all the
// same, and reported as a mismatch.
constexpr long MIN_REVISITED_ID = 0x8400;

TimerHandler timeoutHandler(LABEL);

StatementInfo loopStatement(unsigned long line) {
    return StatementInfo("UtlMsgDrivenThread", "execute", line, 0);
}

// Sizes that have no room in their type become ones that nobody can allocate: what is made with
// them refuses everything.
constexpr unsigned long LARGEST = std::numeric_limits<unsigned long>::max();

unsigned long sum(unsigned long a, unsigned long b) {
    return a < LARGEST - b ? a + b : LARGEST;
}

unsigned long product(unsigned long a, unsigned long b) {
    return a == 0 || b <= LARGEST / a ? a * b : LARGEST;
}

}  // namespace

ThreadMsgListener::~ThreadMsgListener() = default;

MsgDrivenThread::MsgDrivenThread(unsigned long maxMsgSize, unsigned long maxMsgCount,
                                 char const* name, unsigned long maxTimerCount)
    : Thread(name, nullptr),
      mMaxMsgCount(maxMsgCount),
      mSlotSize(sum(maxMsgSize, ThreadRawMsg::ID_SIZE)),
      mCtlQueue(sum(maxMsgCount, EXTRA_CTL_ENTRIES)),
      mDataQueue(product(mSlotSize, maxMsgCount)),
      mSyncQueue(mSlotSize),
      mSendMsg(mSlotSize),
      mReceiveMsg(mSlotSize),
      mSyncEvent(0, Event::TWO_CONDITIONS),
      mEraseEvent(0, Event::TWO_CONDITIONS),
      mFindEvent(0, Event::TWO_CONDITIONS),
      mTimerEvent(0, Event::TWO_CONDITIONS),
      mRequestFound(mSlotSize),
      mLoopFound(mSlotSize),
      mTimers(maxTimerCount, 0),
      mPipe(LoopPipe::make(LABEL, *this, mCtlQueue.capacity(), maxTimerCount)) {
    if (mPipe != nullptr && hasAllBuffers()) {
        mKernelTimers.reset(new (std::nothrow) OwnedTimers(
            LABEL, *this, platform::threadTimerSignal(), mPipe->carriedValue(), maxTimerCount));
    }
    timeoutHandler.install(platform::threadTimerSignal());
}

// Without one of them a message that was accepted could be lost: then the thread never starts.
bool MsgDrivenThread::hasAllBuffers() const {
    return mCtlQueue.capacity() != 0 && mSyncQueue.capacity() == mSlotSize &&
           mDataQueue.capacity() == product(mSlotSize, mMaxMsgCount) &&
           mSendMsg.maxSize() == mSlotSize && mReceiveMsg.maxSize() == mSlotSize &&
           mRequestFound.record.maxSize() == mSlotSize && mLoopFound.record.maxSize() == mSlotSize;
}

MsgDrivenThread::~MsgDrivenThread() {
    stop(1, 0);
}

int MsgDrivenThread::start(ThreadMsgListener* listener, int watchdogMode,
                           unsigned long watchdogAliveTime, WatchdogTimerListener* watchdogListener,
                           int waitMode, unsigned long waitTimeout, ThreadPriority const& priority,
                           unsigned long reserved) {
    if (isCaller() || listener == nullptr || mKernelTimers == nullptr) {
        return -1;
    }
    SyncGuard const api(mApiLock);
    // Deliberate: the listener stays for good, so that an object is started once; what was queued
    // for one listener never reaches another.
    if (mListener != nullptr) {
        return -1;
    }
    mListener = listener;
    return Thread::start(watchdogMode, watchdogAliveTime, watchdogListener, waitMode, waitTimeout,
                         priority, reserved);
}

int MsgDrivenThread::stop(int waitMode, unsigned long timeout) {
    if (isCaller()) {
        return -1;
    }
    SyncGuard const api(mApiLock);
    int const result = Thread::stop(waitMode, timeout);
    leaveManagement();
    return result;
}

int MsgDrivenThread::requestStop() {
    return postThreadCtlMsg(CTL_STOP, -1);
}

int MsgDrivenThread::postMsg(Msg const& msg) {
    if (!isRunning() || hasRequestedStop()) {
        return 0;
    }
    if (isCaller()) {
        return sendMsgAsync(msg);
    }
    SyncGuard const api(mApiLock);
    SyncGuard const queue(mQueueLock);
    return mHasLoopEnded ? 0 : sendMsgAsync(msg);
}

int MsgDrivenThread::postMsg(long msgId) {
    return postMsg(SimpleMsg(msgId));
}

int MsgDrivenThread::sendMsgAsync(Msg const& msg) {
    long const msgId = msg.getMsgId();
    if (isReservedId(msgId)) {
        logError(msgId);
        return 0;
    }
    SyncGuard const queue(mQueueLock);
    if (!storeLocked(msg)) {
        return 0;
    }
    if (!mDataQueue.enqueue(mSendMsg.buffer(), mSlotSize)) {
        // A sender that keeps trying is reported once for each delivery it waits for.
        applog(LIBRARY_LOG, mHasDataQueueOverflowed ? LEVEL_DETAIL : LEVEL_ERROR,
               "MsgDrivenThread(%s) Overflow MsgDataQueue  MaxCount:%d MsgId:0x%08x",
               getName().c_str(), static_cast<int>(mMaxMsgCount), static_cast<unsigned>(msgId));
        mHasDataQueueOverflowed = true;
        return 0;
    }
    if (!postThreadCtlMsg(msgId, -1)) {
        mDataQueue.eraseAt(mDataQueue.count() - mSlotSize, mSlotSize);
        return 0;
    }
    return 1;
}

int MsgDrivenThread::sendMsgSync(Msg const& msg) {
    if (!isRunning() || hasRequestedStop() || isCaller()) {
        return 0;
    }
    SyncGuard const api(mApiLock);
    {
        SyncGuard const queue(mQueueLock);
        if (mHasLoopEnded || !storeLocked(msg)) {
            return 0;
        }
        mSyncQueue.clear();
        mSyncQueue.enqueue(mSendMsg.buffer(), mSlotSize);
        if (!postRequestLocked(mSyncEvent, CTL_SERVICE, -1)) {
            return 0;
        }
    }
    awaitOff(mSyncEvent);
    return mIsRequestServed ? 1 : 0;
}

int MsgDrivenThread::sendMsgSync(long msgId) {
    return sendMsgSync(SimpleMsg(msgId));
}

// Calls `use` with the message found, or with nullptr.
template <typename Use>
auto MsgDrivenThread::find(long msgId, Use use) {
    if (isCaller()) {
        SyncGuard const queue(mQueueLock);
        return use(executeFindMsg(msgId, &mLoopFound) ? &mLoopFound.record : nullptr);
    }
    SyncGuard const api(mApiLock);
    return use(findByLoop(msgId) ? &mRequestFound.record : nullptr);
}

int MsgDrivenThread::peekMsg(long msgId, Msg* out) {
    if (!isRunning() || out == nullptr) {
        return 0;
    }
    return find(msgId, [out](ThreadRawMsg* record) {
        return record != nullptr ? out->restoreFrom(*record) : 0;
    });
}

int MsgDrivenThread::hasMsg(long msgId) {
    if (!isRunning()) {
        return 0;
    }
    return find(msgId, [](ThreadRawMsg* record) { return record != nullptr ? 1 : 0; });
}

long MsgDrivenThread::getFirstMsgId() {
    if (!isRunning()) {
        return -1;
    }
    return find(ANY_MSG, [](ThreadRawMsg* record) {
        long msgId = -1;
        if (record != nullptr) {
            record->getMsgId(&msgId);
        }
        return msgId;
    });
}

int MsgDrivenThread::eraseMsg(long msgId) {
    if (!isRunning() || isReservedId(msgId)) {
        return 0;  // no messages: a request whose entry is gone would never be answered
    }
    if (isCaller()) {
        executeEraseMsg(msgId);
        return 1;
    }
    SyncGuard const api(mApiLock);
    return eraseByLoop(msgId);
}

int MsgDrivenThread::execute() {
    Step step;
    do {
        step = executeStep();
    } while (step == Step::NEXT);
    leaveLoop();
    return step == Step::STOPPED ? 0 : -1;
}

// Appends a control entry and wakes the loop for it.
int MsgDrivenThread::postThreadCtlMsg(long id, int parameter) {
    SyncGuard const queue(mQueueLock);
    ThreadCtlMsg ctl;
    ctl.id = static_cast<std::int32_t>(id);
    ctl.parameter = parameter;
    if (!mCtlQueue.enqueue(&ctl, 1)) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "MsgDrivenThread(%s) Overflow ThreadCtlMsgQueue  MaxCount:%d MsgId:0x%08x",
               getName().c_str(), static_cast<int>(mCtlQueue.capacity()),
               static_cast<unsigned>(id));
        return 0;
    }
    // Deliberate: an entry whose wake-up failed stays, and is served when a later one gets through.
    // The loop takes entries by their order, not by what it read.
    return mPipe != nullptr && mPipe->wake({ctl.id, ctl.parameter}) ? 1 : 0;
}

// Asks the loop for what the caller has written down, and what `event` stands for. The caller holds
// both locks and, when this succeeds, waits for the event without the queue lock.
bool MsgDrivenThread::postRequestLocked(Event& event, long id, int parameter) {
    mIsRequestServed = false;
    event.setOn();
    if (!postThreadCtlMsg(id, parameter)) {
        event.setOff();
        return false;
    }
    return true;
}

bool MsgDrivenThread::storeLocked(Msg const& msg) {
    if (msg.storeTo(&mSendMsg)) {
        return true;
    }
    applog(LIBRARY_LOG, LEVEL_ERROR,
           "MsgDrivenThread(%s) Overflow MsgSize  MaxSize(include MsgId):%d MsgId:0x%08x",
           getName().c_str(), static_cast<int>(mSendMsg.maxSize()),
           static_cast<unsigned>(msg.getMsgId()));
    return false;
}

void MsgDrivenThread::logError(long msgId) const {
    applog(LIBRARY_LOG, LEVEL_ERROR, "!!!!!!!! MsgDrivenThread(%s) Error. MsgId:0x%08x !!!!!!!!",
           getName().c_str(), static_cast<unsigned>(msgId));
}

// The caller holds the API lock.
bool MsgDrivenThread::findByLoop(long msgId) {
    {
        SyncGuard const queue(mQueueLock);
        mFindTarget = msgId;
        if (mHasLoopEnded || !postRequestLocked(mFindEvent, CTL_SERVICE, -1)) {
            return false;
        }
    }
    awaitOff(mFindEvent);
    return mIsRequestServed && mRequestFound.isThere;
}

// The caller holds the API lock.
int MsgDrivenThread::eraseByLoop(long msgId) {
    {
        SyncGuard const queue(mQueueLock);
        mEraseTarget = msgId;
        if (mHasLoopEnded || !postRequestLocked(mEraseEvent, CTL_SERVICE, -1)) {
            return 0;
        }
    }
    awaitOff(mEraseEvent);
    return mIsRequestServed ? 1 : 0;
}

// Waits for one word from the pipe and does what it asks for.
MsgDrivenThread::Step MsgDrivenThread::executeStep() {
    WakePipe::Word word;
    if (!mPipe->wait(&word, loopStatement(879), loopStatement(890))) {
        return Step::BROKEN;
    }
    if (word.id == CTL_TIMER_SIGNAL) {
        SyncGuard const queue(mQueueLock);
        executeTimeoutSignal(toUserTimerId(mTimers, word.parameter));
        return Step::NEXT;
    }

    // Any other word is only a wake-up: the queue says what there is to do.
    ThreadCtlMsg ctl;
    int result = 0;
    {
        SyncGuard const queue(mQueueLock);
        if (!mCtlQueue.dequeue(&ctl, 1) || !serveRequestsLocked(ctl.id) || ctl.id == CTL_SERVICE) {
            return Step::NEXT;
        }
        if (isTimerRequest(ctl.id)) {
            result = executeTimerRequest(ctl);  // in one go: killTimer() looks for queued starts
        }
    }
    if (!isTimerRequest(ctl.id)) {
        result = dispatch(ctl);
    }
    reportAlive(getId(), loopStatement(1030));
    if (result != 0) {
        logError(ctl.id);
    }
    return hasRequestedStop() ? Step::STOPPED : Step::NEXT;
}

// Serves what other threads ask for, before the entry `ctlId` that was dequeued, whatever that is:
// a synchronous message deliberately overtakes all that are queued. False when a request has taken
// the entry away.
bool MsgDrivenThread::serveRequestsLocked(long ctlId) {
    if (mSyncEvent.isOn()) {
        // Deliberate: the listener is called with the queue locked. Nobody queues anything while a
        // synchronous message is handled.
        mIsRequestServed = executeReceiveMsg(mSyncQueue) == 0;
        mSyncEvent.setOff();
        if (ctlId >= MIN_REVISITED_ID && !executeFindMsg(ctlId, &mLoopFound)) {
            return false;
        }
    }
    if (mEraseEvent.isOn()) {
        executeEraseMsg(mEraseTarget);
        bool const isErased = judgeEraseMsg(ctlId);
        mIsRequestServed = true;
        mEraseEvent.setOff();
        if (isErased) {
            return false;
        }
    }
    if (mFindEvent.isOn()) {
        executeFindMsg(mFindTarget, &mRequestFound);
        mIsRequestServed = true;
        mFindEvent.setOff();
    }
    return true;
}

// Everything but timer requests. No lock is held.
int MsgDrivenThread::dispatch(ThreadCtlMsg const& ctl) {
    switch (ctl.id) {
        case CTL_STOP:
            return 0;
        case CTL_TIMEOUT:
            return executeTimeout(ctl.parameter);
        default: {
            int const result = executeReceiveMsg(mDataQueue, ctl.id);
            SyncGuard const queue(mQueueLock);
            mHasDataQueueOverflowed = false;
            return result;
        }
    }
}

// Whoever waits for the loop is released, and nobody starts to: both under the lock that they take.
void MsgDrivenThread::leaveLoop() {
    SyncGuard const queue(mQueueLock);
    mHasLoopEnded = true;
    eraseAllTimer();
    mSyncEvent.setOff();
    mEraseEvent.setOff();
    mFindEvent.setOff();
}

// The first message of the queue, whatever its id.
int MsgDrivenThread::executeReceiveMsg(Queue<unsigned char>& queue) {
    if (!queue.dequeue(mReceiveMsg.buffer(), mSlotSize)) {
        return -1;
    }
    mListener->receiveMsg(getId(), mReceiveMsg);
    return 0;
}

// The first message with `msgId`. Those before it have lost their control entries and are dropped,
// which brings the two queues together again.
int MsgDrivenThread::executeReceiveMsg(Queue<unsigned char>& queue, long msgId) {
    if (msgId < MIN_MSG_ID) {
        return -1;
    }
    {
        SyncGuard const guard(mQueueLock);
        for (;;) {
            long queuedId;
            if (!queue.dequeue(mReceiveMsg.buffer(), mSlotSize) ||
                !mReceiveMsg.getMsgId(&queuedId)) {
                return -1;
            }
            if (queuedId == msgId) {
                break;
            }
            applog(LIBRARY_LOG, LEVEL_ERROR,
                   "!!!!!!!! MsgDrivenThread(%s) MismatchedMsg... DataQueueMsgId:0x%08x "
                   "CtlMsgId:0x%08x Erased Data !!!!!!!!",
                   getName().c_str(), static_cast<unsigned>(queuedId),
                   static_cast<unsigned>(msgId));
        }
    }
    mListener->receiveMsg(getId(), mReceiveMsg);
    return 0;
}

// The caller holds the queue lock, here and in what follows.
bool MsgDrivenThread::executeFindMsg(long msgId, Found* found) {
    bool const isSlot = msgId != TimerMsg::ID && findSlotLocked(msgId, found);
    bool const mayBeTimeout =
        msgId == TimerMsg::ID || (msgId == ANY_MSG && mDataQueue.count() == 0);
    found->isThere = isSlot || (mayBeTimeout && findTimeoutLocked(found));
    return found->isThere;
}

bool MsgDrivenThread::findSlotLocked(long msgId, Found* found) {
    for (unsigned long position = 0; position < mDataQueue.count(); position += mSlotSize) {
        if (msgId == ANY_MSG || slotIdLocked(position) == msgId) {
            return mDataQueue.peek(found->record.buffer(), position, mSlotSize) != 0;
        }
    }
    return false;
}

bool MsgDrivenThread::findTimeoutLocked(Found* found) {
    for (unsigned long i = 0; i < mCtlQueue.count(); ++i) {
        if (mCtlQueue[i].id == CTL_TIMEOUT) {
            TimerMsg msg;
            msg.setTimerId(mCtlQueue[i].parameter);
            return msg.storeTo(&found->record) != 0;
        }
    }
    return false;
}

void MsgDrivenThread::executeEraseMsg(long msgId) {
    SyncGuard const queue(mQueueLock);
    if (msgId == TimerMsg::ID) {
        eraseAllTimer();  // deliberate: erasing expiries kills the timers that would send more
    } else if (msgId != -1) {
        eraseMsgFromQueue(msgId);
    }
}

void MsgDrivenThread::eraseMsgFromQueue(long msgId) {
    mCtlQueue.eraseIf([msgId](ThreadCtlMsg const& ctl) { return ctl.id == msgId; });
    mDataQueue.eraseGroupsIf(mSlotSize, [this, msgId](unsigned long position) {
        return slotIdLocked(position) == msgId;
    });
}

// Whether the erase request covers the entry `ctlId`, which is already out of the queue.
bool MsgDrivenThread::judgeEraseMsg(long ctlId) const {
    return ctlId == mEraseTarget || (mEraseTarget == TimerMsg::ID && isTimerCtl(ctlId));
}

long MsgDrivenThread::slotIdLocked(unsigned long position) {
    std::int32_t msgId = -1;
    unsigned char bytes[sizeof msgId];
    mDataQueue.peek(bytes, position, sizeof bytes);
    copyMemory(&msgId, bytes, sizeof msgId);
    return msgId;
}

}  // namespace utl
