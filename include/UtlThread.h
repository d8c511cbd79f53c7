// A thread with a name, a life cycle that others can wait for, a stop request and a result.
//
//     class Reader : public Thread {
//     public:
//         Reader() : Thread("reader", nullptr) {}
//         ~Reader() override { stop(1, 0); }
//     protected:
//         int execute() override {
//             while (!hasRequestedStop()) { ... }
//             return 0;
//         }
//     };
//
//     Reader reader;
//     reader.start({});
//     ...
//     reader.stop(1, 0);
//
// Instead of overriding execute() a thread can be given a Command.

#ifndef UTL_THREAD_H
#define UTL_THREAD_H

#include <atomic>
#include <optional>

#include "UtlApi.h"
#include "UtlCountingPointer.h"
#include "UtlDuration.h"
#include "UtlEvent.h"
#include "UtlString.h"
#include "UtlSyncObject.h"

namespace utl {

class Deadline;
class StatementInfo;
class WatchdogTimerListener;

// A thread priority: one of seven labels, kept as the nice value that the system gives the thread.
class UTL_API ThreadPriority {
public:
    // With their nice values: -4, -2, -1, 0, 1, 2, 3. The negative ones need the privilege for it.
    enum Priority {
        TIME_CRITICAL = 0,
        HIGH = 1,
        ABOVE_NORMAL = 2,
        NORMAL = 3,
        BELOW_NORMAL = 4,
        LOW = 5,
        IDLE = 6
    };

    // The OS value of a priority that is none.
    static constexpr int INVALID_OS_VALUE = 100;

    // Any number that is no label gives the invalid priority.
    ThreadPriority(int label);
    virtual ~ThreadPriority();
    ThreadPriority(ThreadPriority const&) = default;
    ThreadPriority& operator=(ThreadPriority const&) = default;
    ThreadPriority& operator=(Priority label);

    // Any number that is no label gives the invalid priority.
    void value(int label);

    // The label, or -1. -3, which no label has, counts as HIGH's, and anything below -4 as
    // TIME_CRITICAL's; anything above IDLE's is no label.
    int value() const;

    // The nice value, unchecked.
    void OsValue(int osValue);
    int OsValue() const { return mOsValue; }

    bool operator==(ThreadPriority const& other) const { return mOsValue == other.mOsValue; }
    bool operator!=(ThreadPriority const& other) const { return mOsValue != other.mOsValue; }

private:
    int mOsValue;
};

// Work for a thread, supplied and owned by the user.
class UTL_API Command {
public:
    virtual ~Command();

    // Runs on the thread. What it returns is the thread's result.
    virtual int execute() = 0;
};

// How a thread is started, where it is not as usual.
//
//     StartOptions options;
//     options.aliveTime = 5s;
//     reader.start(options);
struct StartOptions {
    ThreadPriority priority = ThreadPriority::NORMAL;

    // With one the thread is registered with the watchdog, which refuses one of 0 or less: the
    // thread runs unwatched then, and that is logged. `watchdogListener` may be null.
    std::optional<Duration> aliveTime;
    WatchdogTimerListener* watchdogListener = nullptr;

    // How long start() waits for preExecute() to return; as long as it takes without one.
    std::optional<Duration> limit;
};

// Any thread may call any operation. An object runs at most once. A derived class whose
// requestStop() ends its work, or whose members the work uses, stops the thread in its own
// destructor: the base destructor stops it too, but by then only the base is left. In a child of a
// fork the threads of the parent are not running.
class UTL_API Thread {
public:
    // What waitTo() waits for and hasDone() asks about.
    enum Stage { STARTED = 0, PRE_EXECUTED = 1, STOP_REQUESTED = 2, EXECUTED = 3 };

    // Copies `name` (null reads as empty). `command`, which may be null, must live as long as the
    // thread runs.
    Thread(char const* name, Command* command);

    // Stops a running thread, waits for it without limit and takes it out of the manager's
    // registry. A thread that destroys its own object is not waited for: it ends, and leaves the
    // registry, when its work returns, without postExecute().
    virtual ~Thread();
    Thread(Thread const&) = delete;
    Thread& operator=(Thread const&) = delete;

    // Creates the thread and registers it with the thread manager. With `watchdogMode` 1 it is
    // registered with the watchdog too, to report alive every `watchdogAliveTime` milliseconds once
    // startWatchdog() was called; `listener` may be null. 0 when it runs; with `waitMode` 1 the
    // result of waitTo(PRE_EXECUTED, waitTimeout). -1 when it was started before, on the thread
    // itself, and when it cannot be: then no part of it has run or ever will, and it may be started
    // anew, but not in a child of a fork. Blocks until the new thread is registered. `reserved` is
    // ignored.
    int start(int watchdogMode, unsigned long watchdogAliveTime, WatchdogTimerListener* listener,
              int waitMode, unsigned long waitTimeout, ThreadPriority const& priority,
              unsigned long reserved);

    // The same with names for what is not as usual. Waits for preExecute() to return.
    int start(StartOptions const& options);

    // Takes the thread off the watchdog and asks it to stop. 0, or with `waitMode` 1 the result of
    // waitTo(EXECUTED, timeout); then a call of its watchdog listener has returned too. -1 when it
    // was never started or has finished. `timeout` holds for the whole of it: TIMED_OUT also when a
    // start() that is under way does not come to its end, or the listener does not return.
    int stop(int waitMode, unsigned long timeout);
    int stop(Duration limit) { return stop(1, limit.atLeastOne()); }

    // Blocks until `stage` was reached: REACHED, TIMED_OUT or WAIT_FAILED. `timeout` in
    // milliseconds, 0 for no limit. Before the start, STARTED and PRE_EXECUTED wait for somebody to
    // start the thread. WAIT_FAILED at once for what cannot come: any other stage before the start,
    // a stop request to a thread that finished without one, a thread's wait for its own end.
    int waitTo(int stage, unsigned long timeout);
    int waitTo(int stage, Duration limit) { return waitTo(stage, limit.atLeastOne()); }

    // False for a bad stage. EXECUTED is done when the thread's function has left.
    bool hasDone(int stage) const;
    bool hasRequestedStop() const { return hasDone(STOP_REQUESTED); }

    // What execute() returned. False, storing nothing, before the end or for a null `out`.
    bool getResult(unsigned long* out) const;

    // From the start until the thread's function has left.
    bool isRunning() const;

    // The kernel's id of the thread; 0 before the start.
    int getId() const { return mId.load(); }

    BasicString<char> const& getName() const { return mName; }

    // As in ThreadManager, for this thread. All of them refuse with false while it does not run.
    bool setPriority(ThreadPriority const& priority);
    bool getPriority(ThreadPriority* out) const;
    bool keepAliveWatchdog(StatementInfo const& statement);
    bool setWatchdogAliveTime(unsigned long aliveTimeMs);
    bool setWatchdogAliveTime(Duration time) { return setWatchdogAliveTime(time.milliseconds()); }
    bool startWatchdog();
    bool stopWatchdog();

    // Takes the finished thread out of the manager's registry. False while it runs.
    bool leaveManagement();

    // Blocks the calling thread, whatever thread it is, and reports it to the watchdog before and
    // after. A signal may end the sleep early.
    static void sleep(unsigned long milliseconds);
    static void sleep(Duration duration) { sleep(duration.milliseconds()); }

protected:
    // On the new thread, in this order. execute() runs the command, or returns -1 without one.
    virtual void preExecute();
    virtual int execute();
    virtual void postExecute();

    // On the thread that calls stop(), after the request is visible: wakes the work. 1, or 0 when
    // it could not be woken.
    virtual int requestStop();

    // What the manager runs on the new thread; `argument` is the Thread.
    static void startImpl(void* argument);

    // Whether it is this thread, and running, that calls.
    bool isCaller() const;

    // False in the child of a fork, for a thread that the parent has started.
    bool isOfThisProcess() const;

private:
    void run();
    int awaitEnd(Deadline const& deadline);
    int awaitListener(Deadline const& deadline);

    static constexpr int STAGE_COUNT = 4;

    Command* const mCommand;
    std::atomic<int> mId{0};
    BasicString<char> const mName;
    Event mStages[STAGE_COUNT];
    Event mAskedOrDone;              // on when a stop request came or can no longer come
    SyncObject mSyncObject;          // serialises start()
    Event mIsStartOver;              // off while somebody is in start()
    std::atomic<unsigned> mProcess;  // in which start() was called
    std::atomic<unsigned long> mResult{0};

    // Switched on when the thread's function has left; the registry shares it. Written by start()
    // before there is a thread, read once STARTED is on.
    SmartPointer<Event> mStopEvent;

    // Where the running thread looks whether its own work has destroyed this object. The thread's.
    bool* mIsDestroyed = nullptr;
};

}  // namespace utl

#endif  // UTL_THREAD_H
