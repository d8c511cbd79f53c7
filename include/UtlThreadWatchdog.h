// The watchdog of the process: a registered thread that is being watched reports, at least once in
// its alive time, that it is alive and where in its code it is. One that stays silent is logged and
// handed to a listener; nothing is killed. When it reports again, that is logged too.
//
//     class Alarm : public WatchdogTimerListener {
//         void onTime(int id, Map<int, WatchdogInfo> const& infos) override { ... }
//     };
//
// Threads reach it through ThreadManager and Thread.

#ifndef UTL_THREAD_WATCHDOG_H
#define UTL_THREAD_WATCHDOG_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "UtlApi.h"
#include "UtlEvent.h"
#include "UtlMap.h"
#include "UtlMsgDrivenThread.h"
#include "UtlStatementInfo.h"
#include "UtlString.h"
#include "UtlThreadSafety.h"

namespace utl {

namespace platform {
class StaticLock;
}

class Deadline;
class LineOutput;
class WatchdogTimerListener;

// What the watchdog knows of a registered thread. A plain value.
class UTL_API WatchdogInfo {
public:
    // Whether its reports are waited for.
    enum WatchStatus { WATCHING = 0, NOT_WATCHING = 1 };

    // What came of the last wait for one.
    enum AliveStatus { UNKNOWN = 0, ALIVE = 1, TIMEOUT = 2 };

    // How often the watchdog looks unless told otherwise, in milliseconds.
    static constexpr unsigned long DEFAULT_WATCH_INTERVAL = 1000;

    // lastAliveTick() of a thread that has not reported yet.
    static constexpr std::uint32_t NO_TICK = 0xFFFFFFFFu;

    // A registration of nobody. There before any constructor runs, and never destroyed.
    static WatchdogInfo const& INVALID;

    WatchdogInfo();

    // Copies `name`. `aliveTimeMs` beyond 32 bits counts as the longest.
    WatchdogInfo(int id, unsigned long aliveTimeMs, WatchdogTimerListener* listener,
                 char const* name, int watchStatus);
    WatchdogInfo(WatchdogInfo const&) = default;
    WatchdogInfo(WatchdogInfo&&) = default;
    WatchdogInfo& operator=(WatchdogInfo const&) = default;
    WatchdogInfo& operator=(WatchdogInfo&&) = default;
    virtual ~WatchdogInfo();

    int id() const { return mId; }
    std::uint32_t aliveTime() const { return mAliveTime; }
    WatchdogTimerListener* listener() const { return mListener; }
    std::uint32_t lastAliveTick() const { return mLastAliveTick; }
    int watchStatus() const { return mWatchStatus; }
    int aliveStatus() const { return mAliveStatus; }
    std::uint32_t timeoutCount() const { return mTimeoutCount; }
    StatementInfo const& lastAliveInfo() const { return mLastAliveInfo; }
    BasicString<char> const& name() const { return mName; }

    // Field by field.
    friend UTL_API bool operator==(WatchdogInfo const& a, WatchdogInfo const& b);
    friend bool operator!=(WatchdogInfo const& a, WatchdogInfo const& b) { return !(a == b); }

private:
    friend class ThreadWatchdog;

    bool isOverdue(std::uint32_t now) const;
    void addTime(std::uint32_t milliseconds, std::uint32_t now);

    int mId = 0;
    std::uint32_t mAliveTime = 0;
    WatchdogTimerListener* mListener = nullptr;
    std::uint32_t mLastAliveTick = NO_TICK;
    int mWatchStatus = NOT_WATCHING;
    int mAliveStatus = UNKNOWN;
    std::uint32_t mTimeoutCount = 0;
    StatementInfo mLastAliveInfo = StatementInfo("", "", 0, 0);
    BasicString<char> mName;
};

// Who is told of a silent thread.
class UTL_API WatchdogTimerListener {
public:
    virtual ~WatchdogTimerListener();

    // The thread `id` has been silent for its alive time. On the watchdog's thread, with no lock
    // held; `infos` is a copy of all registrations when that was found, good during the call, and
    // without memory empty.
    virtual void onTime(int id, Map<int, WatchdogInfo> const& infos) = 0;
};

// Any thread may call any operation. All of them return false until initialize() and after
// shutdown(). A check that comes late, because the process was stopped or had no processor, takes
// that time off what the threads have been silent for.
class UTL_API ThreadWatchdog : public ThreadMsgListener {
public:
    // Room for `capacity` registrations.
    explicit ThreadWatchdog(unsigned long capacity);
    ~ThreadWatchdog() override;
    ThreadWatchdog(ThreadWatchdog const&) = delete;
    ThreadWatchdog& operator=(ThreadWatchdog const&) = delete;

    // Whether there was memory for the registrations.
    bool hasRoom() const;

    // Starts the watchdog's thread and the periodic check. False when that was done before or
    // cannot be done; no thread is left running then, and it may be tried again. Blocks until both
    // run. One thread at a time.
    bool initialize(unsigned long watchIntervalMs);

    // Ends the thread and waits for it. Does nothing on that thread itself.
    void shutdown();

    // False when the check cannot be set anew; it goes on as it was then. Blocks until a listener
    // that is being called has returned.
    bool setWatchInterval(unsigned long intervalMs);

    // Registers a thread, not watched at first. `listener`, which may be null for one that logs the
    // table, must live until the thread is unregistered. False, logged, for an alive time of 0, a
    // full table or an id that is registered; false for a null name.
    bool entry(int id, unsigned long aliveTimeMs, WatchdogTimerListener* listener,
               char const* name);

    // Afterwards no call of the thread's listener is under way or begins: blocks until one has
    // returned, but in that call itself.
    bool unregister(int id);

    // The calling thread is alive, at `statement`. Recorded only while it is watched. False when it
    // is not registered.
    bool keepAlive(StatementInfo const& statement);

    // Begin and end the watch. A watch that begins gives a full alive time.
    bool start(int id);
    bool stop(int id);

    // A new alive time begins at once. False, logged, for 0.
    bool setAliveTime(int id, unsigned long aliveTimeMs);

    // False for an unknown one.
    bool isWatching(int id) const;
    bool isRegistered(int id) const;

    // Whether the watchdog's own thread calls.
    bool isOwnThread() const;

    // Log the table of registrations at `level`; store it as ThreadManager::storeThreadInfoReg()
    // does.
    void printWatchdogInfo(int level) const;
    unsigned long storeWatchdogInfo(char* dst, unsigned long size) const;

    // The check timer has expired; any other message is ignored.
    int receiveMsg(int threadId, ThreadRawMsg& msg) override;

private:
    friend class ThreadManager;

    class DefaultTimerListener;
    using Infos = Map<int, WatchdogInfo>;

    void printTable(LineOutput& output) const;
    bool forget(int id);
    int awaitReturn(int id, Deadline const& deadline);
    bool isCallUnderWay(int id, unsigned* call) const;
    void becomeChild();

    bool isInitialized() const;
    int exchangeWatchTimer(int timerId);
    bool insertLocked(WatchdogInfo const& info) UTL_REQUIRES(mTableLock);
    WatchdogInfo* findLocked(int id) UTL_REQUIRES(mTableLock);
    WatchdogInfo const* findLocked(int id) const UTL_REQUIRES(mTableLock);
    bool hasWatchedLocked() const UTL_REQUIRES(mTableLock);
    void expectCheckLocked() UTL_REQUIRES(mTableLock);
    void addLatenessLocked(std::uint32_t now) UTL_REQUIRES(mTableLock);
    void executeWatchThreads();
    bool declareTimeout(std::uint32_t now, WatchdogTimerListener** listener,
                        std::optional<Infos>* infos);
    void callListener(WatchdogTimerListener* listener, Infos const& infos);
    void restUnlessNeeded();

    unsigned long const mCapacity;
    std::unique_ptr<MsgDrivenThread> mThread;  // changed while this is not initialised
    std::atomic<int> mThreadId{0};

    // Of all watchdogs, and a leaf.
    static platform::StaticLock mTableLock;

    int mWatchTimerId UTL_GUARDED_BY(mTableLock) = -1;
    unsigned long mWatchIntervalMs UTL_GUARDED_BY(mTableLock) = 0;
    // Nobody is watched: the check timer stands still.
    bool mIsResting UTL_GUARDED_BY(mTableLock) = false;
    std::uint64_t mNextCheckNs UTL_GUARDED_BY(mTableLock) = 0;  // when it is due
    // Of checks, not yet added to the threads' time.
    std::uint64_t mLatenessNs UTL_GUARDED_BY(mTableLock) = 0;
    bool mIsInitialized UTL_GUARDED_BY(mTableLock) = false;
    Infos mInfos UTL_GUARDED_BY(mTableLock);
    // Whose listener is being called while mHasReturned is off. Written with mTableLock held, by
    // the watchdog's thread only.
    int mCalledId = 0;
    Event mHasReturned{1, 0};
    std::atomic<unsigned> mCalls{0};  // how often one has begun and returned
};

}  // namespace utl

#endif  // UTL_THREAD_WATCHDOG_H
