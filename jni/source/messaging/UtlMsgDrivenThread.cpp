#include "UtlMsgDrivenThread.h"

#include <new>
#include <optional>

#include "foundation/UtlLineOutput.h"
#include "messaging/UtlControlIds.h"
#include "messaging/UtlMsgLoop.h"
#include "platform/UtlFutex.h"

namespace utl {

ThreadMsgListener::~ThreadMsgListener() = default;

MsgDrivenThread::MsgDrivenThread(unsigned long maxMsgSize, unsigned long maxMsgCount,
                                 char const* name, unsigned long maxTimerCount)
    : MsgDrivenThread(maxMsgSize, maxMsgCount, name, maxTimerCount, nullptr) {}

MsgDrivenThread::MsgDrivenThread(unsigned long maxMsgSize, unsigned long maxMsgCount,
                                 char const* name, unsigned long maxTimerCount,
                                 LoopExtension* extension)
    : Thread(name, nullptr),
      mLoop(new (std::nothrow) Loop(*this, maxMsgSize, maxMsgCount, maxTimerCount, extension)) {}

MsgDrivenThread::~MsgDrivenThread() {
    // In the child of a fork, too, that a listener has made.
    if (mLoop != nullptr && mLoop->hasAllBuffers() && LoopControl::ofThread() == &control()) {
        mLoop.release()->outliveThread();
        return;
    }
    {
        LoopWait const wait(isRunning() ? &control() : nullptr);
        Thread::stop(1, 0);
    }
    if (mLoop != nullptr && mLoop->hasAllBuffers() && hasDone(STARTED) && !isOfThisProcess()) {
        control().closePipe();
        mLoop.release();  // the parent's thread may have been in the middle of changing it
    }
}

int MsgDrivenThread::start(ThreadMsgListener* listener, int watchdogMode,
                           unsigned long watchdogAliveTime, WatchdogTimerListener* watchdogListener,
                           int waitMode, unsigned long waitTimeout, ThreadPriority const& priority,
                           unsigned long reserved) {
    return takeListener(listener) ? Thread::start(watchdogMode, watchdogAliveTime, watchdogListener,
                                                  waitMode, waitTimeout, priority, reserved)
                                  : -1;
}

int MsgDrivenThread::start(ThreadMsgListener* listener, StartOptions const& options) {
    return takeListener(listener) ? Thread::start(options) : -1;
}

// False when the thread may not be started with it.
bool MsgDrivenThread::takeListener(ThreadMsgListener* listener) {
    if (isCaller() || listener == nullptr || mLoop == nullptr || !mLoop->hasAllBuffers()) {
        return false;
    }
    followForkUnlessStarted();
    // Deliberate: the listener stays for good, so that an object is started once; what was queued
    // for one listener never reaches another.
    ThreadMsgListener* none = nullptr;
    return mListener.compare_exchange_strong(none, listener);
}

int MsgDrivenThread::stop(int waitMode, unsigned long timeout) {
    if (isCaller() || (isRunning() && control().isRefusedInTransfer())) {
        return -1;
    }
    bool const isUnlimited = waitMode == 1 && timeout == 0 && isRunning();
    LoopWait const wait(isUnlimited ? &control() : nullptr);
    if (wait.isRefused()) {
        Thread::stop(0, 0);
        return WAIT_FAILED;
    }
    int const result = Thread::stop(waitMode, timeout);
    leaveManagement();
    return result;
}

StopResult MsgDrivenThread::stop(Rest rest) {
    return stopWithin(rest, 0);
}

StopResult MsgDrivenThread::stop(Rest rest, Duration limit) {
    return stopWithin(rest, limit.atLeastOne());
}

// `timeout` in milliseconds, 0 for no limit.
StopResult MsgDrivenThread::stopWithin(Rest rest, unsigned long timeout) {
    if (!hasDone(STARTED) || !isOfThisProcess() || control().isRefusedInTransfer()) {
        return {WAIT_FAILED, 0, 0};
    }
    std::uint64_t until;
    if (isRunning() && platform::limitAfter(timeout, &until)) {
        mLoop->close(rest, until);
    }
    int const result = isCaller() ? (Thread::stop(0, 0), WAIT_FAILED) : stop(1, timeout);
    return mLoop->stopResult(hasDone(EXECUTED) ? REACHED : result);
}

int MsgDrivenThread::requestStop() {
    return mLoop->requestStop();
}

int MsgDrivenThread::execute() {
    return mLoop->run();
}

// Whether it runs and may be asked for something.
bool MsgDrivenThread::isServing() const {
    return isRunning() && !mLoop->control().isRefusedInTransfer();
}

int MsgDrivenThread::postMsg(Msg const& msg) {
    return isServing() && !hasRequestedStop() && mLoop->post(msg, true);
}

int MsgDrivenThread::postMsg(long msgId) {
    return postMsg(SimpleMsg(msgId));
}

int MsgDrivenThread::sendMsgAsync(Msg const& msg) {
    bool const isOfOtherProcess = hasDone(STARTED) && !isOfThisProcess();
    if (isOfOtherProcess || mLoop == nullptr || !mLoop->hasAllBuffers() ||
        control().isRefusedInTransfer()) {
        return 0;
    }
    followForkUnlessStarted();
    return mLoop->post(msg, false);
}

void MsgDrivenThread::followForkUnlessStarted() {
    if (!hasDone(STARTED)) {
        mLoop->followFork();
    }
}

// Whether the caller may wait for its listener.
bool MsgDrivenThread::mayBeSentTo() const {
    return isServing() && !hasRequestedStop() && !isCaller();
}

int MsgDrivenThread::sendMsgSync(Msg const& msg) {
    return mayBeSentTo() && mLoop->send(msg);
}

int MsgDrivenThread::sendMsgSync(long msgId) {
    return sendMsgSync(SimpleMsg(msgId));
}

int MsgDrivenThread::askMsg(Msg const& question, Msg* answer) {
    return mayBeSentTo() && answer != nullptr && mLoop->askMsg(question, answer);
}

int MsgDrivenThread::peekMsg(long msgId, Msg* out) {
    if (!isServing() || out == nullptr) {
        return 0;
    }
    return mLoop->find(msgId, [out](ThreadRawMsg* found) {
        return found != nullptr ? out->restoreFrom(*found) : 0;
    });
}

int MsgDrivenThread::hasMsg(long msgId) {
    return isServing() && mLoop->find(msgId, [](ThreadRawMsg* found) { return found != nullptr; });
}

long MsgDrivenThread::getFirstMsgId() {
    if (!isServing()) {
        return -1;
    }
    return mLoop->find(ANY_MSG, [](ThreadRawMsg* found) {
        long msgId = -1;
        if (found != nullptr) {
            found->getMsgId(&msgId);
        }
        return msgId;
    });
}

int MsgDrivenThread::eraseMsg(long msgId) {
    return isServing() && !isReservedId(msgId) && mLoop->erase(msgId);
}

int MsgDrivenThread::setTimer(unsigned long intervalMs, int noWait, unsigned int repeatCount,
                              int freeRunning) {
    if (!isServing() || hasRequestedStop()) {
        return -1;
    }
    TimerInfo const info(nullptr, intervalMs, repeatCount, freeRunning);
    return info.runEvent.get() != nullptr ? mLoop->setTimer(info, noWait) : -1;
}

int MsgDrivenThread::killTimer(int userId, int noWait) {
    return isServing() && mLoop->killTimer(userId, noWait);
}

LoopControl& MsgDrivenThread::control() {
    return mLoop->control();
}

void MsgDrivenThread::restTimer(int userId) {
    mLoop->restTimer(userId);
}

bool MsgDrivenThread::resumeTimer(int userId) {
    return isRunning() && mLoop->resumeTimer(userId);
}

LoopStatistics MsgDrivenThread::statistics() const {
    return mLoop != nullptr && mLoop->hasAllBuffers() ? mLoop->control().statistics()
                                                      : LoopStatistics();
}

void MsgDrivenThread::printStatistics(int level) {
    LineOutput output(level);
    LoopList::print(output);
}

unsigned long MsgDrivenThread::storeStatistics(char* dst, unsigned long size) {
    return printInto(dst, size, [](LineOutput& output) { LoopList::print(output); });
}

void MsgDrivenThread::setHandlerLimit(std::optional<Duration> limit) {
    if (mLoop != nullptr && mLoop->hasAllBuffers()) {
        control().figures().setLimit(limit ? limit->atLeastOne() : 0);
    }
}

unsigned long MsgDrivenThread::queuedEntriesForTesting() const {
    return mLoop->entryCount();
}

void MsgDrivenThread::setNextUserTimerIdForTesting(int userId) {
    mLoop->setNextUserTimerId(userId);
}

}  // namespace utl
