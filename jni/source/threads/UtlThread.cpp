#include "UtlThread.h"

#include <cstddef>
#include <new>

#include "UtlStatementInfo.h"
#include "UtlThreadManager.h"

#include "foundation/UtlAwait.h"
#include "foundation/UtlBlockingCall.h"
#include "foundation/UtlDeadline.h"
#include "foundation/UtlUserCode.h"
#include "platform/UtlClock.h"
#include "platform/UtlFork.h"
#include "platform/UtlThreadLocal.h"
#include "threads/UtlManagerAccess.h"
#include "threads/UtlStartRequest.h"

namespace utl {

namespace {

constexpr unsigned NOBODYS = ~0u;  // of processes

constexpr int LABEL_VALUES[] = {-4, -2, -1, 0, 1, 2, 3};
constexpr std::size_t LABEL_COUNT = sizeof LABEL_VALUES / sizeof LABEL_VALUES[0];

// The object whose work the calling thread does.
UTL_THREAD_LOCAL Thread const* ofThisThread = nullptr;

class WorkScope {
public:
    explicit WorkScope(Thread const* thread) { ofThisThread = thread; }
    ~WorkScope() { ofThisThread = nullptr; }
    WorkScope(WorkScope const&) = delete;
    WorkScope& operator=(WorkScope const&) = delete;
};

// An event that is off for a scope.
class OffScope {
public:
    explicit OffScope(Event& event) : mEvent(event) { mEvent.setOff(); }
    ~OffScope() { mEvent.setOn(); }
    OffScope(OffScope const&) = delete;
    OffScope& operator=(OffScope const&) = delete;

private:
    Event& mEvent;
};

}  // namespace

ThreadPriority::ThreadPriority(int label) {
    value(label);
}

ThreadPriority::~ThreadPriority() = default;

ThreadPriority& ThreadPriority::operator=(Priority label) {
    value(label);
    return *this;
}

void ThreadPriority::value(int label) {
    std::size_t const index = static_cast<std::size_t>(label);  // a negative one is too large
    mOsValue = index < LABEL_COUNT ? LABEL_VALUES[index] : INVALID_OS_VALUE;
}

// Deliberate: not the exact inverse. Values that no label has, set by hand, read as the nearest
// label above them; the registry's dump relies on having a word for them.
int ThreadPriority::value() const {
    if (mOsValue < -3) {
        return TIME_CRITICAL;
    }
    if (mOsValue < -1) {
        return HIGH;
    }
    return mOsValue <= 3 ? mOsValue + NORMAL : -1;
}

void ThreadPriority::OsValue(int osValue) {
    mOsValue = osValue;
}

Command::~Command() = default;

Thread::Thread(char const* name, Command* command)
    : mCommand(command),
      mName(name, 0, 0),
      mStages{{0, 0}, {0, 0}, {0, 0}, {0, 0}},
      mAskedOrDone(0, 0),
      mIsStartOver(1, 0),
      mProcess(NOBODYS) {}

Thread::~Thread() {
    if (ofThisThread == this) {
        *mIsDestroyed = true;
    }
    if (isCaller()) {
        // A start() that waits for preExecute() is released, and has left before the object goes.
        mStages[PRE_EXECUTED].setOn();
        SyncGuard const guard(mSyncObject);
    }
    stop(1, 0);
    if (ManagerAccess const manager; manager && hasDone(STARTED)) {
        manager->releaseEntry(getId(), mStopEvent.get());
    }
}

int Thread::start(int watchdogMode, unsigned long watchdogAliveTime,
                  WatchdogTimerListener* listener, int waitMode, unsigned long waitTimeout,
                  ThreadPriority const& priority, unsigned long) {
    // Before the lock: the thread that starts this one may hold it and wait, and in the parent of
    // this process somebody may have held it.
    if (isCaller() || !isOfThisProcess()) {
        return -1;
    }
    mProcess.store(platform::processNumber());
    SyncGuard const guard(mSyncObject);
    if (hasDone(STARTED)) {
        return -1;
    }
    OffScope const starting(mIsStartOver);
    mStopEvent.set(new (std::nothrow) Event(0, 0));
    ThreadManager::StartRequest const request = {
        startImpl,  this, mName.c_str(), priority.OsValue(),
        mStopEvent, true, watchdogMode,  watchdogAliveTime,
        listener};
    if (ThreadManager::startOnCurrent(request) == 0) {
        mStopEvent.release();
        return -1;
    }
    awaitOn(mStages[STARTED], 0);  // switched on by the new thread, the first thing it does
    return waitMode == 1 ? waitTo(PRE_EXECUTED, waitTimeout) : 0;
}

int Thread::start(StartOptions const& options) {
    unsigned long const aliveTimeMs = options.aliveTime ? options.aliveTime->milliseconds() : 0;
    return start(options.aliveTime ? 1 : 0, aliveTimeMs, options.watchdogListener, 1,
                 options.limit ? options.limit->atLeastOne() : 0, options.priority, 0);
}

int Thread::stop(int waitMode, unsigned long timeout) {
    Deadline const deadline(waitMode == 1 ? timeout : 0);
    int started = REACHED;
    if (!isOfThisProcess()) {
        return -1;
    }
    if (!isCaller()) {  // start() may wait for the thread that asks here
        started = deadline.await(mIsStartOver);
        if (!hasDone(STARTED)) {
            return started == REACHED ? -1 : started;
        }
        if (hasDone(EXECUTED)) {
            bool const hasReturned = waitMode != 1 || awaitListener(deadline) != TIMED_OUT;
            return hasReturned ? -1 : TIMED_OUT;
        }
    }
    if (ManagerAccess const manager; manager) {
        manager->forgetWatchdog(getId());
    }
    mStages[STOP_REQUESTED].setOn();
    mAskedOrDone.setOn();
    callUserCode("Thread::requestStop", mName.c_str(), [this] { requestStop(); });
    if (waitMode != 1) {
        return 0;
    }
    return started == REACHED ? awaitEnd(deadline) : started;
}

// Of the thread, and of a call of its watchdog listener.
int Thread::awaitEnd(Deadline const& deadline) {
    if (isCaller()) {
        return WAIT_FAILED;
    }
    int const result = deadline.await(*mStopEvent.get());
    return result == REACHED ? awaitListener(deadline) : result;
}

int Thread::awaitListener(Deadline const& deadline) {
    ManagerAccess const manager;
    return manager ? manager->awaitWatchdogListener(getId(), deadline) : REACHED;
}

int Thread::waitTo(int stage, unsigned long timeout) {
    if (stage < STARTED || stage > EXECUTED) {
        return WAIT_FAILED;
    }
    if (!hasDone(STARTED) && (stage == STOP_REQUESTED || stage == EXECUTED)) {
        return WAIT_FAILED;
    }
    // Only the thread could bring it about: not while it waits itself, and not in another process.
    bool const isAsleep = isCaller() && stage != STOP_REQUESTED;
    if (!hasDone(stage) && (isAsleep || !isOfThisProcess())) {
        return WAIT_FAILED;
    }
    if (stage == STOP_REQUESTED) {
        int const result = awaitOn(mAskedOrDone, timeout);
        return result == REACHED && !hasRequestedStop() ? WAIT_FAILED : result;
    }
    // By its own event, not through the registry: right also when the entry has gone, or its id is
    // another thread's.
    return awaitOn(stage == EXECUTED ? *mStopEvent.get() : mStages[stage], timeout);
}

bool Thread::hasDone(int stage) const {
    if (stage < STARTED || stage > EXECUTED || !mStages[stage].isOn()) {
        return false;
    }
    return stage != EXECUTED || !isRunning();
}

bool Thread::getResult(unsigned long* out) const {
    if (!hasDone(EXECUTED) || out == nullptr) {
        return false;
    }
    *out = mResult.load();
    return true;
}

bool Thread::isRunning() const {
    return mStages[STARTED].isOn() && mStopEvent->isOff() && isOfThisProcess();
}

bool Thread::isOfThisProcess() const {
    unsigned const process = mProcess.load(std::memory_order_relaxed);
    return process == platform::processNumber() || process == NOBODYS;
}

bool Thread::isCaller() const {
    return isRunning() && getId() == ThreadManager::getCallerId();
}

bool Thread::setPriority(ThreadPriority const& priority) {
    ManagerAccess const manager;
    return manager && isRunning() && manager->setPriority(getId(), priority);
}

bool Thread::getPriority(ThreadPriority* out) const {
    ManagerAccess const manager;
    return manager && isRunning() && manager->getPriority(getId(), out);
}

bool Thread::keepAliveWatchdog(StatementInfo const& statement) {
    ManagerAccess const manager;
    return manager && isRunning() && manager->keepAliveWatchdog(statement);
}

bool Thread::setWatchdogAliveTime(unsigned long aliveTimeMs) {
    ManagerAccess const manager;
    return manager && isRunning() && manager->setWatchdogAliveTime(aliveTimeMs, getId());
}

bool Thread::startWatchdog() {
    ManagerAccess const manager;
    return manager && isRunning() && manager->startWatchdog(getId());
}

bool Thread::stopWatchdog() {
    ManagerAccess const manager;
    return manager && isRunning() && manager->stopWatchdog(getId());
}

bool Thread::leaveManagement() {
    ManagerAccess const manager;
    return manager && hasDone(STARTED) && manager->eraseEntry(getId(), mStopEvent.get());
}

void Thread::sleep(unsigned long milliseconds) {
    BlockingCall const blocking("UtlThread", "sleep", 39);
    platform::sleepFor(milliseconds);
}

void Thread::preExecute() {}

int Thread::execute() {
    return mCommand != nullptr ? mCommand->execute() : -1;
}

void Thread::postExecute() {}

int Thread::requestStop() {
    return 1;
}

void Thread::startImpl(void* argument) {
    static_cast<Thread*>(argument)->run();
}

// Its own work may destroy the object; nothing of it is touched afterwards.
void Thread::run() {
    bool isDestroyed = false;
    mIsDestroyed = &isDestroyed;
    WorkScope const scope(this);
    mId.store(ThreadManager::getCallerId());
    mStages[STARTED].setOn();

    callUserCode("Thread::preExecute", mName.c_str(), [this] { preExecute(); });
    if (isDestroyed) {
        return;
    }
    mStages[PRE_EXECUTED].setOn();

    int result = 0;
    callUserCode("Thread::execute", mName.c_str(), [this, &result] { result = execute(); });
    if (isDestroyed) {
        return;
    }
    callUserCode("Thread::postExecute", mName.c_str(), [this] { postExecute(); });
    if (isDestroyed) {
        return;
    }
    mResult.store(static_cast<unsigned long>(result));
    mStages[EXECUTED].setOn();
    mAskedOrDone.setOn();
}

}  // namespace utl
