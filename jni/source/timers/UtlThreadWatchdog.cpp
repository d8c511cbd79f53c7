#include "UtlThreadWatchdog.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"

#include "foundation/UtlDeadline.h"
#include "foundation/UtlImmortal.h"
#include "foundation/UtlLineOutput.h"
#include "foundation/UtlLogLine.h"
#include "foundation/UtlUserCode.h"
#include "messaging/UtlLoopWait.h"
#include "platform/UtlClock.h"
#include "platform/UtlStaticLock.h"
#include "threads/UtlLoopWatch.h"
#include "threads/UtlTableName.h"

namespace utl {

namespace {

// The watchdog's own thread only ever receives the expiries of its check timer.
constexpr unsigned long MSG_SIZE = 4;
constexpr unsigned long MSG_COUNT = 64;

// A check that gets another interval has two for a moment.
constexpr unsigned long LEAST_TIMERS = 2;
constexpr char NAME[] = "Watchdog Thread";

constexpr char const* WATCH_WORDS[] = {"WATCHING", "NOT_WATCHING"};
constexpr char const* ALIVE_WORDS[] = {"UNKNOWN", "ALIVE", "TIMEOUT"};

std::uint32_t toAliveTime(unsigned long milliseconds) {
    constexpr std::uint32_t LONGEST = std::numeric_limits<std::uint32_t>::max();
    return milliseconds < LONGEST ? static_cast<std::uint32_t>(milliseconds) : LONGEST;
}

void logNoAliveTime(int id) {
    applog(LIBRARY_LOG, LEVEL_ERROR, "ThreadWatchdog Register AliveTime is 0 ID:%d ", id);
}

// What the table shows of a registration: a copy that needs no memory.
struct Row {
    explicit Row(WatchdogInfo const& info)
        : id(info.id()),
          name(info.name().c_str()),
          aliveTime(info.aliveTime()),
          watchWord(WATCH_WORDS[info.watchStatus()]),
          aliveWord(ALIVE_WORDS[info.aliveStatus()]),
          timeoutCount(info.timeoutCount()),
          statement(info.lastAliveInfo()) {}

    void print(LineOutput& output) const {
        output.print("%10d, %-32s, %10u, %-12s, %-12s, %13u, (%s, %s:%u:%u)", id, name.text(),
                     aliveTime, watchWord, aliveWord, timeoutCount, statement.file(),
                     statement.function(), statement.line(), statement.sub());
    }

    int id;
    TableName name;
    std::uint32_t aliveTime;
    char const* watchWord;
    char const* aliveWord;
    std::uint32_t timeoutCount;
    StatementInfo statement;
};

void printHead(LineOutput& output) {
    output.print("ThreadWatchdog:: Watchdog info of threads in this process.");
    output.print(
        "ID        , Name                            , AliveTime , WatchStatus , AliveStatus , "
        "TimeoutCount , LastAliveInfo(File, Function:Line:Sub) , ");
}

// A name that is logged when the entry may have gone.
class LoggedName {
public:
    void take(WatchdogInfo const& info) {
        formatStr(mText, sizeof mText, "%s", info.name().c_str());
    }
    char const* text() const { return mText; }

private:
    char mText[256];  // no line of the log is longer
};

using TableGuard = platform::StaticGuard;

Immortal<WatchdogInfo> invalid;

UTL_BEFORE_ALL_CONSTRUCTORS void makeInvalid() {
    new (invalid.bytes) WatchdogInfo();
}

}  // namespace

platform::StaticLock ThreadWatchdog::mTableLock(platform::LockOrder::WATCHDOG);

WatchdogInfo const& WatchdogInfo::INVALID = reinterpret_cast<WatchdogInfo const&>(invalid.bytes);

WatchdogInfo::WatchdogInfo() = default;

WatchdogInfo::WatchdogInfo(int id, unsigned long aliveTimeMs, WatchdogTimerListener* listener,
                           char const* name, int watchStatus)
    : mId(id),
      mAliveTime(toAliveTime(aliveTimeMs)),
      mListener(listener),
      mWatchStatus(watchStatus),
      mName(name, 0, 0) {}

WatchdogInfo::~WatchdogInfo() = default;

bool operator==(WatchdogInfo const& a, WatchdogInfo const& b) {
    return a.mId == b.mId && a.mAliveTime == b.mAliveTime && a.mListener == b.mListener &&
           a.mLastAliveTick == b.mLastAliveTick && a.mWatchStatus == b.mWatchStatus &&
           a.mAliveStatus == b.mAliveStatus && a.mTimeoutCount == b.mTimeoutCount &&
           a.mLastAliveInfo == b.mLastAliveInfo &&
           compareStr(a.mName.c_str(), b.mName.c_str(), ALL) == 0;
}

// Deliberate: a tick that lies after `now`, NO_TICK among them, never makes a thread overdue; one
// that has just been started must not be reported for a check that began before.
bool WatchdogInfo::isOverdue(std::uint32_t now) const {
    return mWatchStatus == WATCHING && mAliveStatus != TIMEOUT && now >= mLastAliveTick &&
           now - mLastAliveTick >= mAliveTime;
}

// Time in which nobody could have reported; the last report never lies in the future for it.
void WatchdogInfo::addTime(std::uint32_t milliseconds, std::uint32_t now) {
    if (mLastAliveTick != NO_TICK && now >= mLastAliveTick) {
        mLastAliveTick += std::min(milliseconds, now - mLastAliveTick);
    }
}

WatchdogTimerListener::~WatchdogTimerListener() = default;

class ThreadWatchdog::DefaultTimerListener : public WatchdogTimerListener {
public:
    void onTime(int, Map<int, WatchdogInfo> const& infos) override {
        LineOutput output(LEVEL_INFORMATION);
        printHead(output);
        for (unsigned long i = 0; i < infos.count(); ++i) {
            Row(infos[i].value()).print(output);
        }
    }
};

ThreadWatchdog::ThreadWatchdog(unsigned long capacity) : mCapacity(capacity), mInfos(capacity, 0) {}

// The loop calls this object: it ends before anything here goes.
ThreadWatchdog::~ThreadWatchdog() {
    shutdown();
}

// Nobody else knows of it yet.
bool ThreadWatchdog::hasRoom() const UTL_NO_THREAD_SAFETY_ANALYSIS {
    return mInfos.capacity() == mCapacity;
}

bool ThreadWatchdog::initialize(unsigned long watchIntervalMs) {
    if (isInitialized()) {
        return false;
    }
    // By its rule a thread is started once: each attempt has its own.
    mThread.reset(new (std::nothrow) MsgDrivenThread(MSG_SIZE, MSG_COUNT, NAME,
                                                     std::max(mCapacity, LEAST_TIMERS)));
    if (mThread == nullptr ||
        mThread->start(this, 0, 0, nullptr, 1, 0, ThreadPriority::NORMAL, 0) != 0) {
        return false;
    }
    mThreadId.store(mThread->getId());
    int const timerId = mThread->setTimer(watchIntervalMs, 0, 0, 0);
    if (timerId == -1) {
        mThread->stop(1, 0);
        return false;
    }
    TableGuard const guard(mTableLock);
    mWatchTimerId = timerId;
    mWatchIntervalMs = watchIntervalMs;
    mIsResting = false;
    expectCheckLocked();
    mIsInitialized = true;
    return true;
}

void ThreadWatchdog::shutdown() {
    if (isOwnThread()) {
        return;
    }
    exchangeWatchTimer(-1);
    if (mThread != nullptr) {
        mThread->stop(1, 0);
    }
    TableGuard const guard(mTableLock);
    mIsInitialized = false;
    LoopWatch::registrationChanged();
}

bool ThreadWatchdog::setWatchInterval(unsigned long intervalMs) {
    if (!isInitialized()) {
        return false;
    }
    // Without the lock: the thread that is asked here may wait for it.
    int const timerId = mThread->setTimer(intervalMs, 0, 0, 0);
    if (timerId == -1) {
        return false;
    }
    int const previous = exchangeWatchTimer(timerId);
    {
        TableGuard const guard(mTableLock);
        mWatchIntervalMs = intervalMs;
        mIsResting = false;
        expectCheckLocked();
    }
    mThread->killTimer(previous, 0);
    return true;
}

bool ThreadWatchdog::entry(int id, unsigned long aliveTimeMs, WatchdogTimerListener* listener,
                           char const* name) {
    if (aliveTimeMs == 0) {
        logNoAliveTime(id);
        return false;
    }
    if (name == nullptr || !isInitialized()) {
        return false;
    }
    WatchdogInfo const info(id, aliveTimeMs, listener, name, WatchdogInfo::NOT_WATCHING);
    bool isInserted;
    {
        TableGuard const guard(mTableLock);
        isInserted = mIsInitialized && holdsName(info.name(), name) && insertLocked(info);
    }
    if (!isInserted) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "ThreadWatchdog Register EntryMap ID:%d", id);
        return false;
    }
    applog(LIBRARY_LOG, LEVEL_DETAIL, "ThreadWatchdog Register ID:%d, AliveTime:%u, Name:%s", id,
           info.aliveTime(), name);
    return true;
}

// False also without memory for a name of its own.
bool ThreadWatchdog::insertLocked(WatchdogInfo const& info) {
    if (!mInfos.insert(info.id(), info, 0)) {
        return false;
    }
    bool const isWhole = holdsName(mInfos.find(info.id())->name(), info.name().c_str());
    if (!isWhole) {
        mInfos.eraseKey(info.id());
    }
    LoopWatch::registrationChanged();
    return isWhole;
}

bool ThreadWatchdog::unregister(int id) {
    bool const isKnown = forget(id);
    awaitReturn(id, Deadline(0));
    return isKnown;
}

// As unregister(), but a call of the thread's listener may be under way.
bool ThreadWatchdog::forget(int id) {
    TableGuard const guard(mTableLock);
    bool const isErased = mIsInitialized && mInfos.eraseKey(id) != 0;
    LoopWatch::registrationChanged();
    return isErased;
}

// For a thread that was forgotten: blocks until no call of its listener is under way. REACHED, also
// in that very call; TIMED_OUT; WAIT_FAILED, logged, when that call waits for the calling thread.
int ThreadWatchdog::awaitReturn(int id, Deadline const& deadline) {
    unsigned call;
    while (isCallUnderWay(id, &call)) {
        LoopWait const wait(&mThread->control(), mCalls, call);
        if (wait.isRefused()) {
            return WAIT_FAILED;
        }
        if (deadline.wait(mHasReturned) != REACHED) {
            return TIMED_OUT;
        }
    }
    return REACHED;
}

bool ThreadWatchdog::isCallUnderWay(int id, unsigned* call) const {
    TableGuard const guard(mTableLock);
    *call = mCalls.load();
    return mCalledId == id && mHasReturned.isOff() && !isOwnThread();
}

// The watchdog of the parent process has no thread here, and watches nobody.
void ThreadWatchdog::becomeChild() UTL_NO_THREAD_SAFETY_ANALYSIS {
    mInfos.setCount(0);
    mIsInitialized = false;
    mHasReturned.setOn();
    LoopWatch::registrationChanged();
}

bool ThreadWatchdog::keepAlive(StatementInfo const& statement) {
    int const id = ThreadManager::getCallerId();
    LoggedName recovered;
    {
        TableGuard const guard(mTableLock);
        WatchdogInfo* const info = findLocked(id);
        if (info == nullptr) {
            return false;
        }
        if (info->mWatchStatus == WatchdogInfo::NOT_WATCHING) {
            return true;
        }
        bool const wasSilent = info->mAliveStatus == WatchdogInfo::TIMEOUT;
        info->mAliveStatus = WatchdogInfo::ALIVE;
        info->mLastAliveInfo = statement;
        info->mLastAliveTick = TimeCounter::getTickTime();
        if (!wasSilent) {
            return true;
        }
        recovered.take(*info);
    }
    applog(LIBRARY_LOG, LEVEL_INFORMATION, "ThreadWatchdog Timeout->Alive ID:%d Name:%s", id,
           recovered.text());
    return true;
}

bool ThreadWatchdog::start(int id) {
    int timerId = -1;
    {
        TableGuard const guard(mTableLock);
        WatchdogInfo* const info = findLocked(id);
        if (info == nullptr) {
            return false;
        }
        info->mWatchStatus = WatchdogInfo::WATCHING;
        if (info->mLastAliveTick == WatchdogInfo::NO_TICK) {
            info->mLastAliveTick = TimeCounter::getTickTime();
        }
        if (mIsResting) {
            mIsResting = false;
            expectCheckLocked();
            timerId = mWatchTimerId;
        }
    }
    // Without the lock: the thread that is asked here may wait for it.
    if (timerId != -1 && !mThread->resumeTimer(timerId)) {
        TableGuard const guard(mTableLock);
        mIsResting = true;  // the next one tries again
    }
    return true;
}

bool ThreadWatchdog::stop(int id) {
    TableGuard const guard(mTableLock);
    WatchdogInfo* const info = findLocked(id);
    if (info == nullptr) {
        return false;
    }
    info->mWatchStatus = WatchdogInfo::NOT_WATCHING;
    info->mLastAliveTick = WatchdogInfo::NO_TICK;
    return true;
}

bool ThreadWatchdog::setAliveTime(int id, unsigned long aliveTimeMs) {
    if (aliveTimeMs == 0) {
        logNoAliveTime(id);
        return false;
    }
    TableGuard const guard(mTableLock);
    WatchdogInfo* const info = findLocked(id);
    if (info == nullptr) {
        return false;
    }
    info->mAliveTime = toAliveTime(aliveTimeMs);
    if (info->mWatchStatus == WatchdogInfo::WATCHING) {
        info->mLastAliveTick = TimeCounter::getTickTime();
    }
    return true;
}

bool ThreadWatchdog::isWatching(int id) const {
    TableGuard const guard(mTableLock);
    WatchdogInfo const* const info = findLocked(id);
    return info != nullptr && info->mWatchStatus == WatchdogInfo::WATCHING;
}

bool ThreadWatchdog::isRegistered(int id) const {
    TableGuard const guard(mTableLock);
    return findLocked(id) != nullptr;
}

bool ThreadWatchdog::isOwnThread() const {
    return mThreadId.load() == ThreadManager::getCallerId();
}

void ThreadWatchdog::printWatchdogInfo(int level) const {
    LineOutput output(level);
    printTable(output);
}

unsigned long ThreadWatchdog::storeWatchdogInfo(char* dst, unsigned long size) const {
    return printInto(dst, size, [this](LineOutput& output) { printTable(output); });
}

// Row by row, so that nobody who reports waits for the log.
void ThreadWatchdog::printTable(LineOutput& output) const {
    if (!isInitialized()) {
        return;
    }
    printHead(output);
    auto const isBefore = [](Pair<int, WatchdogInfo> const& pair, long long id) {
        return pair.key() < id;
    };
    for (long long next = std::numeric_limits<int>::min();;) {
        std::optional<Row> row;
        {
            TableGuard const guard(mTableLock);
            unsigned long const count = mInfos.count();
            unsigned long const i =
                count != 0 ? searchPosition(next, &mInfos[0], static_cast<long>(count), isBefore)
                           : 0;
            if (i == count) {
                return;
            }
            row.emplace(mInfos[i].value());
        }
        row->print(output);
        next = row->id + 1LL;
    }
}

int ThreadWatchdog::receiveMsg(int, ThreadRawMsg& msg) {
    TimerMsg timer;
    if (timer.restoreFrom(msg) && timer.getMsgId() == TimerMsg::ID) {
        bool isCheck;
        {
            TableGuard const guard(mTableLock);
            isCheck = timer.getTimerId() == mWatchTimerId;
        }
        if (isCheck) {
            executeWatchThreads();
        }
    }
    return 0;
}

bool ThreadWatchdog::isInitialized() const {
    TableGuard const guard(mTableLock);
    return mIsInitialized;
}

// Returns the timer so far.
int ThreadWatchdog::exchangeWatchTimer(int timerId) {
    TableGuard const guard(mTableLock);
    int const previous = mWatchTimerId;
    mWatchTimerId = timerId;
    return previous;
}

// nullptr also while this is not initialised.
WatchdogInfo* ThreadWatchdog::findLocked(int id) {
    return mIsInitialized ? mInfos.find(id) : nullptr;
}

WatchdogInfo const* ThreadWatchdog::findLocked(int id) const {
    return mIsInitialized ? mInfos.find(id) : nullptr;
}

bool ThreadWatchdog::hasWatchedLocked() const {
    for (unsigned long i = 0; i < mInfos.count(); ++i) {
        if (mInfos[i].value().watchStatus() == WatchdogInfo::WATCHING) {
            return true;
        }
    }
    return false;
}

// From now on.
void ThreadWatchdog::expectCheckLocked() {
    mNextCheckNs = platform::monotonicNanoseconds() + static_cast<std::uint64_t>(mWatchIntervalMs) *
                                                          platform::NANOSECONDS_PER_MILLISECOND;
}

// A check that is late says that this process did not run, or not much: that time is nobody's
// silence.
void ThreadWatchdog::addLatenessLocked(std::uint32_t now) {
    std::uint64_t const nowNs = platform::monotonicNanoseconds();
    mLatenessNs += nowNs > mNextCheckNs ? nowNs - mNextCheckNs : 0;
    auto const lateness =
        static_cast<std::uint32_t>(mLatenessNs / platform::NANOSECONDS_PER_MILLISECOND);
    mLatenessNs %= platform::NANOSECONDS_PER_MILLISECOND;
    for (unsigned long i = 0; i < mInfos.count(); ++i) {
        mInfos[i].value().addTime(lateness, now);
    }
}

// One listener may take long: each round looks afresh at who is overdue, but for the same moment.
void ThreadWatchdog::executeWatchThreads() {
    std::uint32_t const now = TimeCounter::getTickTime();
    {
        TableGuard const guard(mTableLock);
        addLatenessLocked(now);
    }
    WatchdogTimerListener* listener;
    std::optional<Infos> infos;
    while (declareTimeout(now, &listener, &infos)) {
        callListener(listener, *infos);
    }
    restUnlessNeeded();
}

// Declares the first that is overdue at `now` timed out, and begins the call of its listener, with
// a copy of all registrations as they are then; without memory it is empty. False when nobody is.
bool ThreadWatchdog::declareTimeout(std::uint32_t now, WatchdogTimerListener** listener,
                                    std::optional<Infos>* infos) {
    LoggedName name;
    {
        TableGuard const guard(mTableLock);
        unsigned long i = 0;
        while (i < mInfos.count() && !mInfos[i].value().isOverdue(now)) {
            ++i;
        }
        if (i == mInfos.count()) {
            return false;
        }
        WatchdogInfo& info = mInfos[i].value();
        info.mAliveStatus = WatchdogInfo::TIMEOUT;
        ++info.mTimeoutCount;
        name.take(info);
        *listener = info.mListener;
        infos->emplace(mInfos);
        mCalledId = info.mId;
        mCalls.fetch_add(1);
        mHasReturned.setOff();
    }
    applog(LIBRARY_LOG, LEVEL_ERROR, "!!!!!!!! ThreadWatchdog Timeout ID:%d Name:%s !!!!!!!!",
           mCalledId, name.text());
    return true;
}

void ThreadWatchdog::callListener(WatchdogTimerListener* listener, Infos const& infos) {
    DefaultTimerListener defaultListener;
    WatchdogTimerListener* const called = listener != nullptr ? listener : &defaultListener;
    callUserCode("WatchdogTimerListener::onTime", NAME, [&] { called->onTime(mCalledId, infos); });
    mCalls.fetch_add(1);
    mHasReturned.setOn();
}

// The check timer stands still while nobody is watched: a process that only waits sleeps.
void ThreadWatchdog::restUnlessNeeded() {
    int timerId;
    {
        TableGuard const guard(mTableLock);
        expectCheckLocked();
        timerId = mWatchTimerId;
        mIsResting = !hasWatchedLocked() && timerId != -1;
        if (!mIsResting) {
            return;
        }
    }
    // Whoever begins to be watched from here on queues the start that follows.
    mThread->restTimer(timerId);
}

}  // namespace utl
