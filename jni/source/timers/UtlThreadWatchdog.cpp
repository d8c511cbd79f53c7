#include "UtlThreadWatchdog.h"

#include <cstdint>
#include <limits>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"

#include "foundation/UtlLogLine.h"
#include "threads/UtlTableName.h"

namespace utl {

namespace {

// The watchdog's own thread only ever receives the expiries of its check timer.
constexpr unsigned long MSG_SIZE = 4;
constexpr unsigned long MSG_COUNT = 64;

constexpr char const* WATCH_WORDS[] = {"WATCHING", "NOT_WATCHING"};
constexpr char const* ALIVE_WORDS[] = {"UNKNOWN", "ALIVE", "TIMEOUT"};

std::uint32_t toAliveTime(unsigned long milliseconds) {
    constexpr std::uint32_t LONGEST = std::numeric_limits<std::uint32_t>::max();
    return milliseconds < LONGEST ? static_cast<std::uint32_t>(milliseconds) : LONGEST;
}

void logNoAliveTime(int id) {
    applog(LIBRARY_LOG, LEVEL_ERROR, "ThreadWatchdog Register AliveTime is 0 ID:%d ", id);
}

void printTable(Map<int, WatchdogInfo> const& infos, int level) {
    applog(LIBRARY_LOG, level, "ThreadWatchdog:: Watchdog info of threads in this process.");
    applog(LIBRARY_LOG, level, "%s",
           "ID        , Name                            , AliveTime , WatchStatus , AliveStatus , "
           "TimeoutCount , LastAliveInfo(File, Function:Line:Sub) , ");
    for (unsigned long i = 0; i < infos.count(); ++i) {
        WatchdogInfo const& info = infos[i].value();
        StatementInfo const& statement = info.lastAliveInfo();
        applog(LIBRARY_LOG, level, "%10d, %-32s, %10u, %-12s, %-12s, %13u, (%s, %s:%u:%u)",
               info.id(), TableName(info.name().c_str()).text(), info.aliveTime(),
               WATCH_WORDS[info.watchStatus()], ALIVE_WORDS[info.aliveStatus()],
               info.timeoutCount(), statement.file(), statement.function(), statement.line(),
               statement.sub());
    }
}

}  // namespace

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

WatchdogTimerListener::~WatchdogTimerListener() = default;

class ThreadWatchdog::DefaultTimerListener : public WatchdogTimerListener {
public:
    void onTime(int, Map<int, WatchdogInfo> const& infos) override {
        printTable(infos, LEVEL_INFORMATION);
    }
};

ThreadWatchdog::ThreadWatchdog(unsigned long capacity)
    : mThread(MSG_SIZE, MSG_COUNT, "Watchdog Thread", capacity), mInfos(capacity, 0) {}

// The loop calls this object: it ends before anything here goes.
ThreadWatchdog::~ThreadWatchdog() {
    shutdown();
}

bool ThreadWatchdog::initialize(unsigned long watchIntervalMs) {
    if (mThread.start(this, 0, 0, nullptr, 1, 0, ThreadPriority::NORMAL, 0) != 0) {
        return false;  // by its rule a second start is refused, so this initialises once
    }
    int const timerId = mThread.setTimer(watchIntervalMs, 0, 0, 0);
    if (timerId == -1) {
        mThread.stop(1, 0);
        return false;
    }
    SyncGuard const guard(mLock);
    mWatchTimerId = timerId;
    mIsInitialized = true;
    return true;
}

void ThreadWatchdog::shutdown() {
    if (isOwnThread()) {
        return;
    }
    exchangeWatchTimer(-1);
    mThread.stop(1, 0);
    SyncGuard const guard(mLock);
    mIsInitialized = false;
}

bool ThreadWatchdog::setWatchInterval(unsigned long intervalMs) {
    if (!isInitialized()) {
        return false;
    }
    // Without the lock: the thread that is asked here may wait for it.
    mThread.killTimer(exchangeWatchTimer(-1), 0);
    int const timerId = mThread.setTimer(intervalMs, 0, 0, 0);
    mThread.killTimer(exchangeWatchTimer(timerId), 0);  // of one who did the same meanwhile
    return timerId != -1;
}

bool ThreadWatchdog::entry(int id, unsigned long aliveTimeMs, WatchdogTimerListener* listener,
                           char const* name) {
    if (aliveTimeMs == 0) {
        logNoAliveTime(id);
        return false;
    }
    SyncGuard const guard(mLock);
    if (name == nullptr || !mIsInitialized) {
        return false;
    }
    WatchdogInfo const info(id, aliveTimeMs, listener, name, WatchdogInfo::NOT_WATCHING);
    if (!holdsName(info.name(), name) || !insertLocked(info)) {
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
    return isWhole;
}

bool ThreadWatchdog::unregister(int id) {
    SyncGuard const guard(mLock);
    return mIsInitialized && mInfos.eraseKey(id) != 0;
}

bool ThreadWatchdog::keepAlive(StatementInfo const& statement) {
    SyncGuard const guard(mLock);
    if (!mIsInitialized) {
        return false;
    }
    if (mIsInKeepAlive) {
        return true;  // this very thread: what it logs here may report again
    }
    mIsInKeepAlive = true;
    bool const isKnown = executeKeepAlive(ThreadManager::getCallerId(), statement);
    mIsInKeepAlive = false;
    return isKnown;
}

bool ThreadWatchdog::start(int id) {
    SyncGuard const guard(mLock);
    WatchdogInfo* const info = findLocked(id);
    if (info == nullptr) {
        return false;
    }
    info->mWatchStatus = WatchdogInfo::WATCHING;
    if (info->mLastAliveTick == WatchdogInfo::NO_TICK) {
        info->mLastAliveTick = TimeCounter::getTickTime();
    }
    return true;
}

bool ThreadWatchdog::stop(int id) {
    SyncGuard const guard(mLock);
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
    SyncGuard const guard(mLock);
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
    SyncGuard const guard(mLock);
    WatchdogInfo const* const info = findLocked(id);
    return info != nullptr && info->mWatchStatus == WatchdogInfo::WATCHING;
}

bool ThreadWatchdog::isRegistered(int id) const {
    SyncGuard const guard(mLock);
    return findLocked(id) != nullptr;
}

bool ThreadWatchdog::isOwnThread() const {
    return mThread.isRunning() && mThread.getId() == ThreadManager::getCallerId();
}

void ThreadWatchdog::printWatchdogInfo(int level) const {
    SyncGuard const guard(mLock);
    if (mIsInitialized) {
        printTable(mInfos, level);
    }
}

int ThreadWatchdog::receiveMsg(int, ThreadRawMsg& msg) {
    TimerMsg timer;
    if (timer.restoreFrom(msg) && timer.getMsgId() == TimerMsg::ID && isWatchTimer(timer)) {
        executeWatchThreads();
    }
    return 0;
}

// nullptr also while this is not initialised. The caller holds mLock.
WatchdogInfo* ThreadWatchdog::findLocked(int id) {
    return mIsInitialized ? mInfos.find(id) : nullptr;
}

WatchdogInfo const* ThreadWatchdog::findLocked(int id) const {
    return mIsInitialized ? mInfos.find(id) : nullptr;
}

bool ThreadWatchdog::isInitialized() const {
    SyncGuard const guard(mLock);
    return mIsInitialized;
}

bool ThreadWatchdog::isWatchTimer(TimerMsg const& timer) const {
    SyncGuard const guard(mLock);
    return timer.getTimerId() == mWatchTimerId;
}

// Returns the timer so far.
int ThreadWatchdog::exchangeWatchTimer(int timerId) {
    SyncGuard const guard(mLock);
    int const previous = mWatchTimerId;
    mWatchTimerId = timerId;
    return previous;
}

// The caller holds mLock.
bool ThreadWatchdog::executeKeepAlive(int id, StatementInfo const& statement) {
    WatchdogInfo* const info = findLocked(id);
    if (info == nullptr) {
        return false;
    }
    if (info->mWatchStatus == WatchdogInfo::NOT_WATCHING) {
        return true;
    }
    if (info->mAliveStatus == WatchdogInfo::TIMEOUT) {
        applog(LIBRARY_LOG, LEVEL_INFORMATION, "ThreadWatchdog Timeout->Alive ID:%d Name:%s", id,
               info->mName.c_str());
    }
    info->mAliveStatus = WatchdogInfo::ALIVE;
    info->mLastAliveInfo = statement;
    info->mLastAliveTick = TimeCounter::getTickTime();
    return true;
}

// One listener may take long: each round looks afresh at who is overdue, but for the same moment.
void ThreadWatchdog::executeWatchThreads() {
    std::uint32_t const now = TimeCounter::getTickTime();
    int id;
    while (findOverdue(now, &id)) {
        executeWatchdogTimeout(id);
    }
}

bool ThreadWatchdog::findOverdue(std::uint32_t now, int* id) const {
    SyncGuard const guard(mLock);
    for (unsigned long i = 0; i < mInfos.count(); ++i) {
        if (mInfos[i].value().isOverdue(now)) {
            *id = mInfos[i].key();
            return true;
        }
    }
    return false;
}

void ThreadWatchdog::executeWatchdogTimeout(int id) {
    DefaultTimerListener defaultListener;
    WatchdogTimerListener* listener = &defaultListener;
    Map<int, WatchdogInfo> const infos = declareTimeout(id, &listener);
    if (listener != nullptr) {
        listener->onTime(id, infos);
    }
}

// A copy of all registrations after this one has been declared timed out; without memory it is
// empty. `*listener` becomes its listener if it has one, nullptr when there is nothing to declare
// any more.
Map<int, WatchdogInfo> ThreadWatchdog::declareTimeout(int id, WatchdogTimerListener** listener) {
    SyncGuard const guard(mLock);
    WatchdogInfo* const info = findLocked(id);
    if (info == nullptr || info->mWatchStatus == WatchdogInfo::NOT_WATCHING ||
        info->mAliveStatus == WatchdogInfo::TIMEOUT) {
        *listener = nullptr;
        return Map<int, WatchdogInfo>(0, 0);
    }
    info->mAliveStatus = WatchdogInfo::TIMEOUT;
    ++info->mTimeoutCount;
    applog(LIBRARY_LOG, LEVEL_ERROR, "!!!!!!!! ThreadWatchdog Timeout ID:%d Name:%s !!!!!!!!", id,
           info->mName.c_str());
    if (info->mListener != nullptr) {
        *listener = info->mListener;
    }
    return Map<int, WatchdogInfo>(mInfos);
}

}  // namespace utl
