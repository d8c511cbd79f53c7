// The registry of the process's threads, and the door to its watchdog.
//
//     ThreadManager::get()->entryCaller(0, 0, nullptr, "main");
//     ThreadManager::get()->printThreadInfoReg(LEVEL_INFORMATION);
//
// Threads are known by the kernel's ids. Every thread that a Thread starts is registered here;
// others register themselves. Where an operation of the watchdog takes an id, 0 stands for the
// calling thread.

#ifndef UTL_THREAD_MANAGER_H
#define UTL_THREAD_MANAGER_H

#include <atomic>

#include "UtlApi.h"
#include "UtlCountingPointer.h"
#include "UtlDuration.h"
#include "UtlEvent.h"
#include "UtlMap.h"
#include "UtlString.h"
#include "UtlThread.h"
#include "UtlThreadSafety.h"

namespace utl {

namespace platform {
class StaticLock;
}

class Deadline;
class LineOutput;
class ManagerAccess;
class StatementInfo;
class ThreadWatchdog;
class WatchdogTimerListener;

// Any thread may call any operation. Whoever keeps a pointer to the manager sees to it that nobody
// destroys it in between; threads that the manager started may outlive it.
class UTL_API ThreadManager {
public:
    static constexpr unsigned long DEFAULT_ENTRY_MAX = 128;

    // Detaches and frees a thread handle, a heap copy of the system's.
    struct UTL_API DetachThread {
        // `handle` must not be null.
        void operator()(long* handle) const;
    };

    // What is known of a thread. Copies share the name, the stop event and the handle.
    class UTL_API ThreadEntry {
    public:
        // An entry of nobody.
        ThreadEntry();

        // False without memory; the entry is to be dropped then. `name` null reads as empty.
        bool setName(char const* name);
        char const* name() const;

        ThreadPriority const& priority() const { return mPriority; }
        void setPriority(int osValue) { mPriority.OsValue(osValue); }

        // What only threads that the manager started have. `handle` becomes the entry's.
        void setStopEvent(SmartPointer<Event> const& stopEvent) { mStopEvent = stopEvent; }
        Event const* stopEvent() const { return mStopEvent.get(); }
        void setHandle(long* handle) { mHandle.set(handle); }

        // Has a stop event, and it is off.
        bool isActive() const;

        // The manager started the thread.
        bool isControllable() const;

        // Sets the stop event, if there is one.
        void toStop();

        // REACHED, TIMED_OUT, or WAIT_FAILED without a stop event.
        int waitToStop(unsigned long timeout) const;

        void detach() { mHandle.release(); }

        // Its thread is the parent process's: there is nothing to detach.
        void forgetHandle();

        // The object that started the thread is gone: the entry goes with the thread.
        void setOwnerGone() { mIsOwnerGone = true; }
        bool isOwnerGone() const { return mIsOwnerGone; }

    private:
        SmartPointer<BasicString<char>> mName;  // keeps its place whatever happens to the registry
        ThreadPriority mPriority;
        SmartPointer<Event> mStopEvent;
        CountingPointer<long, DetachThread> mHandle;
        bool mIsOwnerGone = false;
    };

    virtual ~ThreadManager();
    ThreadManager(ThreadManager const&) = delete;
    ThreadManager& operator=(ThreadManager const&) = delete;

    // The manager of the process, made on first use, with a running watchdog; that one call blocks
    // until the watchdog runs. nullptr without memory. What could not be made is tried again by the
    // next call. In a child of a fork the watchdog is off until the child starts a thread.
    static ThreadManager* get();

    // The manager, or nullptr while there is none.
    static ThreadManager* getIfCreated();

    // Makes the manager with room for `max` threads, its own watchdog thread included; the first
    // get() starts the watchdog. False when there is one already.
    static bool initializeEntryMax(unsigned long max);

    // Ends the watchdog and deletes the manager; threads it started run on. Blocks until the
    // watchdog's listener has returned. Refused on the watchdog's own thread.
    static void destroy();

    // The kernel's id of the calling thread, registered or not.
    static int getCallerId();

    // Logs every registration from now on.
    void enableRegistrationLog();

    // Runs `function` on a new thread. Its id, or 0 for a null function or name, or when the thread
    // cannot be created or registered; one that could only not be registered runs nevertheless. The
    // other arguments are those of Thread::start(). Blocks until the new thread is there.
    int entry(void (*function)(void*), void* argument, int watchdogMode,
              unsigned long watchdogAliveTime, WatchdogTimerListener* listener, char const* name,
              ThreadPriority const& priority, unsigned long reserved);

    // Registers the calling thread, anew if it has registered itself before. Its id, or 0 for a
    // null name, a thread that the manager started or a full registry.
    int entryCaller(int watchdogMode, unsigned long watchdogAliveTime,
                    WatchdogTimerListener* listener, char const* name);

    // Takes a thread out of the registry and off the watchdog; blocks until a call of its watchdog
    // listener has returned. False when it is unknown, or was started by the manager and still
    // runs.
    bool unregister(int id);

    // Registered; and registered, started by the manager and not yet finished.
    bool isThreadExist(int id) const;
    bool isThreadActive(int id) const;

    // Registered, started by the manager and not yet finished.
    bool isActive(int id) const;

    // Blocks until a thread that the manager started has left its function: REACHED, TIMED_OUT, or
    // WAIT_FAILED for any other thread and for the caller itself. `timeout` in milliseconds, 0 for
    // no limit.
    int waitToStop(int id, unsigned long timeout) const;
    int waitToStop(int id, Duration limit) const { return waitToStop(id, limit.atLeastOne()); }

    // Changes the priority of the calling thread, which must have been started by the manager;
    // false for any other id, an invalid priority, or when the system refuses.
    bool setPriority(int id, ThreadPriority const& priority);

    // The one given at the start, or last set with success. False unless the thread is active.
    bool getPriority(int id, ThreadPriority* out) const;

    // The registered name, or an empty text. Stays good and unchanged while the thread is
    // registered under it.
    char const* findName(int id) const;
    char const* getName(int id) const;

    // Copies every id and name into `out`, replacing pairs with the same id. False for a null `out`
    // or when one does not fit; those before it are there.
    bool getNames(Map<int, BasicString<char>>* out) const;

    // Logs the registry at `level`.
    void printThreadInfoReg(int level) const;

    // Stores the same lines at `dst`, each with a line feed behind it: as many whole ones as there
    // is room for in `size` bytes with a terminator. Returns the bytes that all of them need with
    // it; a `size` of 0 only asks. One that is longer than 1022 bytes is cut.
    unsigned long storeThreadInfoReg(char* dst, unsigned long size) const;

    // Does nothing.
    void printThreadInfo(int level) const;

    // The watchdog: the operations of ThreadWatchdog, with their results. An `id` of 0 stands for
    // the calling thread, which is registered under its name here.
    bool entryWatchdog(unsigned long aliveTimeMs, WatchdogTimerListener* listener, int id);
    bool entryWatchdog(Duration aliveTime, WatchdogTimerListener* listener, int id) {
        return entryWatchdog(aliveTime.milliseconds(), listener, id);
    }
    bool unregisterWatchdog(int id);
    bool isRegisteredWatchdog(int id) const;

    // Registered, and between startWatchdog() and stopWatchdog().
    bool isWatchingWatchdog(int id) const;

    // How often the watchdog looks, in milliseconds. Blocks until a listener that is being called
    // has returned. False when that cannot be set.
    bool setWatchdogWatchInterval(unsigned long intervalMs);
    bool setWatchdogWatchInterval(Duration interval) {
        return setWatchdogWatchInterval(interval.atLeastOne());
    }
    bool setWatchdogAliveTime(unsigned long aliveTimeMs, int id);
    bool setWatchdogAliveTime(Duration aliveTime, int id) {
        return setWatchdogAliveTime(aliveTime.milliseconds(), id);
    }
    bool startWatchdog(int id);
    bool stopWatchdog(int id);

    // The calling thread is alive, at `statement`. False when it is not registered.
    bool keepAliveWatchdog(StatementInfo const& statement);

    // Log the watchdog's table, and the threads that are not in it, at `level`; store it as
    // storeThreadInfoReg() does.
    void printWatchdogInfo(int level) const;
    unsigned long storeWatchdogInfo(char* dst, unsigned long size) const;

private:
    friend class ManagerAccess;
    friend class Thread;

    struct StartRequest;
    struct StartRecord;

    explicit ThreadManager(unsigned long entryMax);

    static ThreadManager* createLocked(unsigned long entryMax)
        UTL_REQUIRES(mInstantiationSyncObject);
    static bool isWatchdogThread();
    static void* startThread(void* argument);
    static void report(StatementInfo const& statement);

    static int startOnCurrent(StartRequest const& request);
    int start(StartRequest const& request);
    StartRecord* createThread(StartRequest const& request, ThreadEntry* entry);
    bool registerStartedLocked(int id, ThreadEntry const& entry) UTL_REQUIRES(mRegistryLock);
    void announce(int id, int watchdogMode, unsigned long aliveTimeMs,
                  WatchdogTimerListener* listener, char const* name);
    static void retryWatchdog();
    bool eraseEntry(int id, Event const* stopEvent);
    void releaseEntry(int id, Event const* stopEvent);
    void endThread(StartRequest const& request);
    bool hasRoom(unsigned long entryMax) const;
    static void wantWatchdog();
    void forgetWatchdog(int id);
    int awaitWatchdogListener(int id, Deadline const& deadline);
    static void becomeChild(int parentsId);
    void keepOnly(int parentsId);
    bool findEntry(int id, ThreadEntry* out) const;
    void printRegistry(LineOutput& output) const;
    void printWatched(LineOutput& output) const;

    static std::atomic<ThreadManager*> mpTheObject;

    // Locks, outer first: mInstantiationSyncObject, mRegistryLock, the watchdog's. The
    // watchdog's thread holds none of them while it calls a listener.
    static platform::StaticLock mInstantiationSyncObject;
    static platform::StaticLock mRegistryLock;
    Map<int, ThreadEntry> mRegistry UTL_GUARDED_BY(mRegistryLock);
    ThreadWatchdog* const mWatchdog;  // owned
    std::atomic<bool> mLogsRegistrations{false};
};

}  // namespace utl

#endif  // UTL_THREAD_MANAGER_H
