#include "messaging/UtlMsgLoop.h"

#include <cstdint>
#include <cstring>
#include <limits>

#include "UtlArray.h"
#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "foundation/UtlUserCode.h"
#include "messaging/UtlControlIds.h"
#include "platform/UtlClock.h"
#include "platform/UtlKernelTimer.h"
#include "platform/UtlStaticLock.h"

namespace utl {

namespace {

constexpr char LABEL[] = "MsgDrivenThread";

// Control entries beyond those of the messages: requests, and what the timers queue.
constexpr unsigned long EXTRA_CTL_ENTRIES = 256;

// Deliberate: only for ids from here on does the loop look, after a synchronous message, whether
// its handler has erased the message whose turn it was. One with a lower id is dispatched all the
// same, and reported as a mismatch.
constexpr long MIN_REVISITED_ID = 0x8400;

TimerHandler timeoutHandler(LABEL, platform::threadTimerSignal);

platform::StaticLock followLock(platform::LockOrder::LOOPS);

// Where the loop reports alive.
constexpr unsigned long BEFORE_SLEEP = 879;
constexpr unsigned long AFTER_SLEEP = 890;
constexpr unsigned long AFTER_WORK = 1030;

// A size that has no room in its type becomes one that nobody can allocate: what is made with it
// refuses everything.
unsigned long sum(unsigned long a, unsigned long b) {
    constexpr unsigned long LARGEST = std::numeric_limits<unsigned long>::max();
    return a < LARGEST - b ? a + b : LARGEST;
}

long idIn(unsigned char const* slot) {
    std::int32_t msgId;
    std::memcpy(&msgId, slot, sizeof msgId);
    return msgId;
}

}  // namespace

// Of the thread that asks, which waits.
struct MsgDrivenThread::Loop::Call {
    void (*function)(void* context);
    void* context;
};

MsgDrivenThread::Loop::Loop(MsgDrivenThread& thread, unsigned long maxMsgSize,
                            unsigned long maxMsgCount, unsigned long maxTimerCount,
                            LoopExtension* extension)
    : mThread(thread),
      mMaxMsgCount(maxMsgCount),
      mSlotSize(sum(maxMsgSize, ThreadRawMsg::ID_SIZE)),
      mExtension(extension),
      mControl(LoopControl::make(
          {LABEL, thread.getName().c_str(), "UtlMsgDrivenThread"}, timeoutHandler,
          sum(sum(maxMsgCount, EXTRA_CTL_ENTRIES),
              extension != nullptr ? extension->entryCount() : 0),
          sum(maxTimerCount, extension != nullptr ? extension->timerCount() : 0))),
      mRefusedMsg(mSlotSize),
      mDataQueue(mSlotSize, maxMsgCount),
      mTimers(maxTimerCount, 0),
      mSyncMsg(mSlotSize),
      mAnsweredMsg(mSlotSize),
      mReceiveBuffer(allocateElements<unsigned char>(mSlotSize)),
      mFoundMsg(mSlotSize) {
    timeoutHandler.install();
    if (extension != nullptr) {
        extension->retain();
    }
}

MsgDrivenThread::Loop::~Loop() {
    if (mControl != nullptr) {
        mControl->awaitNobody();
    }
}

// Nobody else knows of it yet.
bool MsgDrivenThread::Loop::hasAllBuffers() const UTL_NO_THREAD_SAFETY_ANALYSIS {
    return mControl != nullptr && mControl->capacity() != 0 &&
           mDataQueue.capacity() == mMaxMsgCount && mRefusedMsg.maxSize() == mSlotSize &&
           mSyncMsg.maxSize() == mSlotSize && mAnsweredMsg.maxSize() == mSlotSize &&
           mReceiveBuffer != nullptr && mFoundMsg.maxSize() == mSlotSize;
}

void MsgDrivenThread::Loop::followFork() {
    unsigned const now = platform::processNumber();
    if (mProcess.load() == now) {
        return;
    }
    platform::StaticGuard const guard(followLock);
    if (mProcess.load() != now) {
        mControl->followFork();
        mProcess.store(now);
    }
}

// One entry does for all who ask until the loop comes to it: there is room for others' requests
// however often they ask.
int MsgDrivenThread::Loop::requestStop() {
    LoopControl::Posting posting = LoopControl::Posting::DONE;
    {
        platform::MutexGuard const guard(mControl->mutex());
        if (!mIsStopQueued) {
            posting = mControl->postLocked({CTL_STOP, -1});
            mIsStopQueued = posting == LoopControl::Posting::DONE;
        }
    }
    return report(posting, CTL_STOP);
}

void MsgDrivenThread::Loop::close(Rest rest, std::uint64_t until) {
    closeIfOpen();
    std::uint64_t seen = mRunsUntil.load();
    while (seen != DROPPED &&
           !mRunsUntil.compare_exchange_weak(seen, rest == Rest::RUN ? until : DROPPED)) {
    }
}

void MsgDrivenThread::Loop::closeIfOpen() {
    platform::MutexGuard const guard(mControl->mutex());
    if (!mControl->isClosed()) {
        mControl->closeLocked();
        mIsStopQueued = false;  // one that is may have others behind it, which a stop has to be
        mHandledBefore.store(mControl->figures().handled());
    }
}

StopResult MsgDrivenThread::Loop::stopResult(int result) const {
    unsigned long const ran =
        mControl->isClosed() ? mControl->figures().handled() - mHandledBefore.load() : 0;
    return {result, ran, leftCount()};
}

unsigned long MsgDrivenThread::Loop::leftCount() const {
    return mDataQueue.count() + (mExtension != nullptr ? mExtension->waitingCount() : 0);
}

int MsgDrivenThread::Loop::post(Msg const& msg, bool needsLoop) {
    long const msgId = msg.getMsgId();
    if (isReservedId(msgId)) {
        logError(msgId);
        return 0;
    }
    std::int32_t const stamp = LoopFigures::stamp();
    LoopControl::Bell bell;
    Queuing queuing;
    {
        LoopControl::Access const access(*mControl);
        if (!access || mControl->isClosed() || (needsLoop && mControl->hasEndedLocked())) {
            return 0;
        }
        queuing = queueLocked(msg, stamp, &bell);
    }
    auto const takeBack = [this] {
        mControl->mutex().assumeHeld();
        mDataQueue.takeBack();
        mControl->figures().countTakenBackLocked();
    };
    if (queuing == Queuing::DONE && !bell.ring(takeBack)) {
        queuing = Queuing::UNHEARD;
    }
    return queuing == Queuing::DONE || report(queuing, msgId);
}

bool MsgDrivenThread::Loop::store(Msg const& msg, ThreadRawMsg* record) {
    LoopControl::Transfer const transfer;
    return msg.storeTo(record);
}

// The message writes itself straight into its slot, which nobody sees before it is whole.
MsgDrivenThread::Loop::Queuing MsgDrivenThread::Loop::queueLocked(Msg const& msg,
                                                                  std::int32_t stamp,
                                                                  LoopControl::Bell* bell) {
    unsigned char* const slot = mDataQueue.end();
    BorrowedRecord record;
    record.attach(slot != nullptr ? slot : mRefusedMsg.buffer(), mSlotSize);
    if (!store(msg, &record)) {
        return Queuing::TOO_LARGE;
    }
    if (slot == nullptr) {
        return Queuing::NO_ROOM;
    }
    LoopControl::Entry const entry = {static_cast<std::int32_t>(msg.getMsgId()), stamp};
    auto const publish = [this] {
        mDataQueue.put();
        mControl->figures().countPostedLocked();
    };
    switch (mControl->postLocked(entry, publish, bell)) {
        case LoopControl::Posting::DONE:
            return Queuing::DONE;
        case LoopControl::Posting::FULL:
            return Queuing::NO_CTL_ROOM;
        default:
            return Queuing::UNHEARD;
    }
}

// Logs what was refused. 0.
int MsgDrivenThread::Loop::report(Queuing queuing, long msgId) {
    mControl->figures().countRefused();
    switch (queuing) {
        case Queuing::TOO_LARGE:
            logTooLarge(msgId);
            break;
        case Queuing::NO_ROOM:
            applog(LIBRARY_LOG, isFirstOverflow() ? LEVEL_ERROR : LEVEL_DETAIL,
                   "MsgDrivenThread(%s) Overflow MsgDataQueue  MaxCount:%d MsgId:0x%08x",
                   mControl->name(), static_cast<int>(mMaxMsgCount), static_cast<unsigned>(msgId));
            break;
        case Queuing::NO_CTL_ROOM:
            report(LoopControl::Posting::FULL, msgId);
            break;
        default:
            break;
    }
    return 0;
}

// A sender that keeps trying is reported once for each delivery it waits for.
bool MsgDrivenThread::Loop::isFirstOverflow() {
    unsigned const delivered = mDelivered.load(std::memory_order_relaxed);
    return mOverflowedAt.exchange(delivered, std::memory_order_relaxed) != delivered;
}

// Whether it was posted; what was not for want of room is logged.
bool MsgDrivenThread::Loop::report(LoopControl::Posting posting, long ctlId) {
    if (posting == LoopControl::Posting::FULL) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "MsgDrivenThread(%s) Overflow ThreadCtlMsgQueue  MaxCount:%d MsgId:0x%08x",
               mControl->name(), static_cast<int>(mControl->capacity()),
               static_cast<unsigned>(ctlId));
    }
    return posting == LoopControl::Posting::DONE;
}

void MsgDrivenThread::Loop::logTooLarge(long msgId) {
    applog(LIBRARY_LOG, LEVEL_ERROR,
           "MsgDrivenThread(%s) Overflow MsgSize  MaxSize(include MsgId):%d MsgId:0x%08x",
           mControl->name(), static_cast<int>(mSlotSize), static_cast<unsigned>(msgId));
}

void MsgDrivenThread::Loop::logError(long msgId) {
    applog(LIBRARY_LOG, LEVEL_ERROR, "!!!!!!!! MsgDrivenThread(%s) Error. MsgId:0x%08x !!!!!!!!",
           mControl->name(), static_cast<unsigned>(msgId));
}

int MsgDrivenThread::Loop::send(Msg const& msg) {
    LoopControl::Asking asking(*mControl);
    return send(asking, SYNC, msg);
}

int MsgDrivenThread::Loop::askMsg(Msg const& question, Msg* answer) {
    LoopControl::Asking asking(*mControl);
    return send(asking, QUESTION, question) && restoreAnswer(answer);
}

// Whether the message was delivered and, being a question, answered.
bool MsgDrivenThread::Loop::send(LoopControl::Asking& asking, Request request, Msg const& msg) {
    if (!asking) {
        return false;
    }
    if (!store(msg, &mSyncMsg)) {
        logTooLarge(msg.getMsgId());
        return false;
    }
    return ask(asking, request, -1);
}

// The caller has the right to ask. Records do not tell what is in them; but this one was written by
// the answer alone, so that one of another type is found by its length.
bool MsgDrivenThread::Loop::restoreAnswer(Msg* answer) {
    long const expectedId = answer->getMsgId();
    long msgId = -1;
    mAnsweredMsg.getMsgId(&msgId);
    bool isExpected = msgId == expectedId;
    if (isExpected) {
        LoopControl::Transfer const transfer;
        isExpected = answer->restoreFrom(mAnsweredMsg) && mAnsweredMsg.isReadToEnd();
    }
    if (!isExpected) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "MsgDrivenThread(%s) Refused. Another answer MsgId:0x%08x Expected:0x%08x",
               mControl->name(), static_cast<unsigned>(msgId), static_cast<unsigned>(expectedId));
    }
    return isExpected;
}

bool MsgDrivenThread::Loop::call(void (*function)(void* context), void* context) {
    if (isLoopThread()) {
        function(context);
        return true;
    }
    Call const call = {function, context};
    LoopControl::Asking asking(*mControl);
    return ask(asking, CALL, reinterpret_cast<long>(&call));
}

int MsgDrivenThread::Loop::erase(long msgId) {
    if (isLoopThread()) {
        platform::MutexGuard const guard(mControl->mutex());
        executeEraseMsgLocked(msgId);
        return 1;
    }
    LoopControl::Asking asking(*mControl);
    return ask(asking, ERASE, msgId);
}

// Whether the loop did what it was asked for.
bool MsgDrivenThread::Loop::ask(LoopControl::Asking& asking, Request request, long argument) {
    if (!asking) {
        return false;
    }
    LoopControl::Bell bell;
    LoopControl::Posting posting;
    {
        platform::MutexGuard const guard(mControl->mutex());
        if (mControl->hasEndedLocked()) {
            return false;
        }
        posting = asking.postLocked({request, argument}, {CTL_SERVICE, -1}, &bell);
    }
    return report(posting, CTL_SERVICE) && asking.ring(bell) && asking.await();
}

int MsgDrivenThread::Loop::run() {
    if (isInChild()) {
        return -1;  // preExecute() has forked
    }
    mControl->enter();
    mControl->watch().reportAtWork(AFTER_SLEEP);
    bool const canBegin = mExtension == nullptr || mExtension->enter(*mControl);
    Step step = canBegin ? Step::NEXT : Step::BROKEN;
    while (step == Step::NEXT) {
        step = executeStep();
        if (isInChild()) {
            return -1;  // in a child of that process, which inherited this call: nothing is its own
        }
    }
    finish();
    if (mIsThreadGone && !isInChild()) {
        delete this;
    }
    return step == Step::STOPPED ? 0 : -1;
}

void MsgDrivenThread::Loop::finish() {
    if (mExtension != nullptr) {
        mExtension->close();
    }
    bool isCounted = mExtension != nullptr;  // a plain stop leaves messages without a word
    mControl->leave(
        [this, &isCounted] {
            mControl->mutex().assumeHeld();
            isCounted = isCounted || mControl->isClosed();
            eraseAllTimerLocked();
        },
        [this] {
            if (mExtension != nullptr) {
                mExtension->drop();
            }
        });
    unsigned long const dropped = leftCount();
    if (isCounted && dropped != 0 && !isInChild()) {
        applog(LIBRARY_LOG, LEVEL_INFORMATION, "MsgDrivenThread(%s) stopped. Dropped:%u",
               mControl->name(), static_cast<unsigned>(dropped));
    }
}

// Whether the loop ends here.
bool MsgDrivenThread::Loop::isOver() const {
    return mIsThreadGone || (mThread.hasRequestedStop() && !isWorkingOff());
}

// Whether, although a stop was asked for, what was accepted is handled before.
bool MsgDrivenThread::Loop::isWorkingOff() const {
    std::uint64_t const until = mRunsUntil.load();
    if (until == LEFT || until == DROPPED || mControl->count() == 0) {
        return false;
    }
    bool const isLeft =
        mDataQueue.count() != 0 || (mExtension != nullptr && mExtension->queuedCount() != 0);
    return isLeft && platform::monotonicNanoseconds() < until;
}

// Takes one control entry and does what it asks for, or sleeps until there is one.
MsgDrivenThread::Loop::Step MsgDrivenThread::Loop::executeStep() {
    if (mControl->timers().hasExpired()) {
        executeExpiries();
    }
    bool isMore = false;
    if (mExtension != nullptr && mExtension->hasTurn()) {
        isMore = mExtension->executeTurn();
        mControl->watch().reportAtWork(AFTER_WORK);
        if (isInChild() || isOver()) {
            return Step::STOPPED;
        }
    }
    LoopControl::Entry entry;
    if (!mControl->isOpen() || !mControl->take(&entry)) {
        return isMore || sleep() ? Step::NEXT : Step::BROKEN;
    }
    ThreadCtlMsg const ctl = {entry.id, entry.parameter};
    if (!serveRequest(ctl.id) || ctl.id == CTL_SERVICE) {
        return mIsThreadGone ? Step::STOPPED : Step::NEXT;
    }
    int const result = dispatch(ctl);
    mControl->watch().reportAtWork(AFTER_WORK);
    if (result != 0) {
        logError(ctl.id);
    }
    return isOver() ? Step::STOPPED : Step::NEXT;
}

bool MsgDrivenThread::Loop::sleep() {
    return mControl->sleep(BEFORE_SLEEP, AFTER_SLEEP, mExtension.get());
}

// Serves what another thread asks for, before the entry `ctlId` that was taken, whatever that is: a
// synchronous message deliberately overtakes all that are queued. False when the entry is nobody's
// any more.
bool MsgDrivenThread::Loop::serveRequest(long ctlId) {
    LoopControl::Request request;
    if (!mControl->isAsked(&request)) {
        return true;
    }
    return serve(request, ctlId) && !mIsThreadGone && !isInChild();
}

bool MsgDrivenThread::Loop::serve(LoopControl::Request const& request, long ctlId) {
    mTurn = ctlId;
    switch (request.kind) {
        case SYNC:
        case QUESTION:
            return serveSync(request.kind == QUESTION, ctlId);
        case ERASE:
            serveErase(request.argument);
            return mTurn == ctlId;
        case FIND: {
            platform::MutexGuard const guard(mControl->mutex());
            mControl->answerLocked(executeFindMsgLocked(request.argument, &mAnsweredMsg));
            return true;
        }
        case CALL:
            serveCall(*reinterpret_cast<Call const*>(request.argument));
            return mTurn == ctlId;
        default:
            return true;  // of a timer: by its own entry
    }
}

// Deliberate: nobody queues anything while a synchronous message is handled. Its handler finds the
// queue as it left it.
bool MsgDrivenThread::Loop::serveSync(bool isQuestion, long ctlId) {
    mControl->beginExclusive();
    std::memcpy(mReceiveBuffer.get(), mSyncMsg.buffer(), mSlotSize);
    if (isQuestion) {
        mAnsweredMsg.beginInput();
        mReceiveMsg.mAnswer = &mAnsweredMsg;
    }
    deliver();
    bool const isServed = !isQuestion || closeQuestion();

    platform::MutexGuard const guard(mControl->mutex());
    mControl->answerLocked(isServed);
    bool const isStillThere = ctlId < MIN_REVISITED_ID || executeFindMsgLocked(ctlId, &mFoundMsg);
    mControl->endExclusiveLocked();
    return isStillThere;
}

// Whether the listener has answered the question that it was given, which it cannot any more.
// Logged if it has not.
bool MsgDrivenThread::Loop::closeQuestion() {
    if (mReceiveMsg.mAnswer == nullptr) {
        return true;
    }
    mReceiveMsg.mAnswer = nullptr;
    if (mAnsweredMsg.getResult() != 0) {
        logTooLarge(idIn(mAnsweredMsg.buffer()));
    } else {
        applog(LIBRARY_LOG, LEVEL_ERROR, "MsgDrivenThread(%s) Not answered MsgId:0x%08x",
               mControl->name(), static_cast<unsigned>(idIn(mSyncMsg.buffer())));
    }
    return false;
}

void MsgDrivenThread::Loop::serveCall(Call const& call) {
    callUserCode("Loop::call", mControl->name(), [&] { call.function(call.context); });
    mControl->finishHandler(LoopStatistics::TASK);
    if (isInChild()) {
        mControl->forgetOtherThreads();
    }
    platform::MutexGuard const guard(mControl->mutex());
    mControl->answerLocked(true);
}

void MsgDrivenThread::Loop::serveErase(long target) {
    platform::MutexGuard const guard(mControl->mutex());
    executeEraseMsgLocked(target);
    mControl->answerLocked(true);
}

// No lock is held.
int MsgDrivenThread::Loop::dispatch(ThreadCtlMsg const& ctl) {
    switch (ctl.id) {
        case CTL_STOP: {
            platform::MutexGuard const guard(mControl->mutex());
            mIsStopQueued = false;
            return 0;
        }
        case CTL_TIMEOUT:
            return executeTimeout(ctl.parameter);
        case CTL_START_TIMER:
        case CTL_STOP_TIMER:
            return executeTimerRequest(ctl);
        case CTL_EXTENSION:
            mControl->figures().noteWait(ctl.parameter);
            mExtension->executeEntry();
            return 0;
        default: {
            mControl->figures().noteWait(ctl.parameter);
            int const result = executeReceiveMsg(ctl.id);
            mDelivered.store(mDelivered.load(std::memory_order_relaxed) + 1,
                             std::memory_order_relaxed);
            return result;
        }
    }
}

// The first message with `msgId`. Those before it have lost their control entries and are dropped,
// which brings the two queues together again.
int MsgDrivenThread::Loop::executeReceiveMsg(long msgId) {
    if (msgId < MIN_MSG_ID) {
        return -1;
    }
    while (unsigned char const* const slot = mDataQueue.front()) {
        long const queuedId = idIn(slot);
        if (queuedId == msgId) {
            std::memcpy(mReceiveBuffer.get(), slot, mSlotSize);
            mDataQueue.drop();
            mControl->figures().countHandled();
            deliver();
            return 0;
        }
        mDataQueue.drop();
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "!!!!!!!! MsgDrivenThread(%s) MismatchedMsg... DataQueueMsgId:0x%08x "
               "CtlMsgId:0x%08x Erased Data !!!!!!!!",
               mControl->name(), static_cast<unsigned>(queuedId), static_cast<unsigned>(msgId));
    }
    return -1;
}

// Hands what is in the receive buffer to the listener.
void MsgDrivenThread::Loop::deliver() {
    mReceiveMsg.attach(mReceiveBuffer.get(), mSlotSize);
    ThreadMsgListener* const listener = mThread.mListener.load(std::memory_order_relaxed);
    long const msgId = idIn(mReceiveBuffer.get());
    callUserCode("ThreadMsgListener::receiveMsg", mControl->name(),
                 [&] { listener->receiveMsg(mControl->threadId(), mReceiveMsg); });
    mControl->finishHandler(msgId);
    if (isInChild()) {
        mControl->forgetOtherThreads();
    }
}

bool MsgDrivenThread::Loop::executeFindMsgLocked(long msgId, ThreadRawMsg* found) {
    bool const mayBeTimeout =
        msgId == TimerMsg::ID || (msgId == ANY_MSG && mDataQueue.count() == 0);
    return (msgId != TimerMsg::ID && findSlotLocked(msgId, found)) ||
           (mayBeTimeout && findTimeoutLocked(found));
}

bool MsgDrivenThread::Loop::findSlotLocked(long msgId, ThreadRawMsg* found) {
    for (unsigned long i = 0; i < mDataQueue.count(); ++i) {
        unsigned char const* const slot = mDataQueue.at(i);
        if (msgId == ANY_MSG || idIn(slot) == msgId) {
            std::memcpy(found->buffer(), slot, mSlotSize);
            return true;
        }
    }
    return false;
}

bool MsgDrivenThread::Loop::findTimeoutLocked(ThreadRawMsg* found) {
    SlotRing const& entries = mControl->entriesLocked();
    for (unsigned long i = 0; i < entries.count(); ++i) {
        LoopControl::Entry const entry = LoopControl::entryIn(entries.at(i));
        if (entry.id == CTL_TIMEOUT) {
            TimerMsg msg;
            msg.setTimerId(entry.parameter);
            return msg.storeTo(found) != 0;
        }
    }
    return false;
}

void MsgDrivenThread::Loop::executeEraseMsgLocked(long msgId) {
    if (msgId == TimerMsg::ID ? isTimerCtl(mTurn) : msgId == mTurn) {
        mTurn = NOBODYS;
    }
    if (msgId == TimerMsg::ID) {
        eraseAllTimerLocked();  // deliberate: erasing expiries kills the timers that would send
                                // more
    } else if (msgId != -1) {
        eraseMsgFromQueueLocked(msgId);
    }
}

void MsgDrivenThread::Loop::eraseMsgFromQueueLocked(long msgId) {
    mControl->entriesLocked().eraseIf(
        [msgId](unsigned char const* slot) { return LoopControl::entryIn(slot).id == msgId; });
    mDataQueue.eraseIf([msgId](unsigned char const* slot) { return idIn(slot) == msgId; });
}

}  // namespace utl
