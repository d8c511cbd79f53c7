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
//     thread.start(&printer, {});
//     thread.postMsg(LineMsg(...));
//     thread.stop(1, 0);
//
// All room is allocated when the object is made; posting and delivering allocate nothing. The
// listener is called on the thread, with no lock held but for synchronous sends, and may post,
// find, erase, set and kill timers there. An expiry arrives as a TimerMsg.

#ifndef UTL_MSG_DRIVEN_THREAD_H
#define UTL_MSG_DRIVEN_THREAD_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <type_traits>

#include "UtlApi.h"
#include "UtlDuration.h"
#include "UtlMsg.h"
#include "UtlThread.h"
#include "UtlThreadRawMsg.h"

namespace utl {

class LoopControl;
class LoopExtension;

// What becomes of that which a thread has accepted and not handled when it is to stop.
enum class Rest { DROP, RUN };

// What came of such a stop.
struct StopResult {
    int result;             // REACHED when the thread has ended, TIMED_OUT or WAIT_FAILED
    unsigned long ran;      // handled since the thread was first asked
    unsigned long dropped;  // never handled; as of now if the thread has not ended
};

// What a thread has had to do since it was made, and how it managed. Times in milliseconds, as the
// kernel's tick lets them be seen: 1 to 10 at a time. Counts go back to 0 behind their largest.
struct LoopStatistics {
    static constexpr long NOTHING = -1;
    static constexpr long TASK = 0;  // of a Loop; a timer's message has its own id, 1

    unsigned long waiting = 0;     // what is queued now: messages, tasks, expiries and requests
    unsigned long maxWaiting = 0;  // as many as ever were at once
    unsigned long posted = 0;      // messages and tasks that were accepted
    unsigned long refused = 0;     // that were not: no room, too large, no word to the thread
    unsigned long handled = 0;     // that were begun, delayed tasks as well
    unsigned long longestWaitMs = 0;
    unsigned long longestHandlerMs = 0;
    long longestHandlerId = NOTHING;  // the id of the message that took it
};

// What a thread does with its messages.
class UTL_API ThreadMsgListener {
public:
    virtual ~ThreadMsgListener();

    // On the message-driven thread `threadId`. `msg` is good during the call. The result is
    // ignored.
    virtual int receiveMsg(int threadId, ThreadRawMsg& msg) = 0;
};

// Any thread may call any operation. Operations return 1 for done and 0 for refused unless they say
// otherwise. What they lock and whom they may wait for:
//
// | operation                        | locks           | waits for                              |
// |----------------------------------|-----------------|----------------------------------------|
// | postMsg, sendMsgAsync            | queue           | a synchronous message to be handled    |
// | setTimer, killTimer with noWait  | queue           | the same                               |
// | sendMsgSync, askMsg, ask,        | request, queue  | the thread's answer, and those of who  |
// | peekMsg, hasMsg, getFirstMsgId,  |                 | asked before                           |
// | eraseMsg, setTimer, killTimer    |                 |                                        |
// | stop                             | queue           | the thread's end, for its limit        |
// | all of them on the thread itself | queue           | nobody                                 |
//
// The queue lock is held for a few lines, but for what a message does to write itself; only who
// waits for an answer holds the request lock. Those waits end when the thread stops. A wait that
// would close a circle, of threads of this kind or of shared timers that wait for each other, is
// refused and logged with the names of the two that meet. A destructor cannot be refused: where its
// thread waits for the caller already, that is logged, and both wait for ever. Not found is what
// waitTo() and postExecute() wait for.
//
// The thread may destroy its own object, in a call of the listener: it ends when that has returned.
class UTL_API MsgDrivenThread : public Thread {
public:
    // Two words of the machine: what the pipe carries and the control queue holds.
    struct ThreadCtlMsg {
        std::int32_t id = -1;
        std::int32_t parameter = -1;
    };

    // Room for `maxMsgCount` messages whose fields take up to `maxMsgSize` bytes, and for
    // `maxTimerCount` timers. When the pipe cannot be made, which is logged, the thread ends as
    // soon as it is started.
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
    int start(ThreadMsgListener* listener, StartOptions const& options);

    // As Thread::stop(). What is queued is not delivered, but for at most one message. A thread
    // that has ended leaves the manager's registry. -1 on the thread itself.
    int stop(int waitMode, unsigned long timeout);
    int stop(Duration limit) { return stop(1, limit.atLeastOne()); }

    // Accepts no more messages, and with Rest::RUN delivers those that were accepted before the
    // thread stops; but when `limit` is over, if there is one, no delivery begins, and this no
    // longer waits. Messages that are dropped are logged, as a number, when the thread ends. May be
    // called again, to wait longer or to drop the rest. On the thread itself it asks, but does not
    // wait. WAIT_FAILED also when the thread was not started, in the child of a fork, and, logged,
    // when the wait would close a circle.
    StopResult stop(Rest rest);
    StopResult stop(Rest rest, Duration limit);

    // Queue a message: messages of one sender arrive in their order. Refused, and logged, when it
    // is too large, has a reserved id, or the queue is full; refused when the thread does not run
    // or was asked to stop.
    int postMsg(Msg const& msg);
    int postMsg(long msgId);

    // As postMsg(), whatever the thread's state, but for a stop with a Rest.
    int sendMsgAsync(Msg const& msg);

    // Deliver a message before all that are queued and block until the listener has returned.
    // Nobody else can post to the thread meanwhile, and who tries waits. 0 when it was not
    // delivered, and on the thread itself, which would wait for itself.
    int sendMsgSync(Msg const& msg);
    int sendMsgSync(long msgId);

    // As sendMsgSync(), and restores what the listener has answered (ThreadRawMsg::answer()) into
    // `*answer`, which must have the answer's id and read all of its fields. 0 also when the
    // listener gave no answer or another one, which is logged.
    int askMsg(Msg const& question, Msg* answer);

    // The same for a StructMsg that names the type of its answer: std::optional<Question::Answer>,
    // empty where askMsg() returns 0.
    //
    //     std::optional<double> const area = thread.ask<AreaMsg>({3, 4});
    template <typename Question>
    auto ask(typename Question::Value const& question);

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
    int setTimer(Duration interval, int noWait = 0, unsigned int repeatCount = 0,
                 int freeRunning = 0) {
        return setTimer(interval.atLeastOne(), noWait, repeatCount, freeRunning);
    }

    // Stops and forgets a timer; an expiry that is queued still arrives. With `noWait` 0 it blocks
    // until that is done. 0 when it is unknown, which on the thread itself counts as done.
    int killTimer(int userId, int noWait = 0);

    // Always counted. Of a thread that has ended too; all of it 0 without memory.
    LoopStatistics statistics() const;

    // Log the statistics of all threads of this kind that run, and of the shared timers' threads,
    // as a table at `level`; store it as ThreadManager::storeThreadInfoReg() does. Longest times
    // are in milliseconds.
    static void printStatistics(int level);
    static unsigned long storeStatistics(char* dst, unsigned long size);

    // From now on a line in the log tells of every call of the listener, and every task of a Loop,
    // that took longer than `limit`, if there is one. Told when it has returned: what hangs is for
    // the watchdog.
    void setHandlerLimit(std::optional<Duration> limit);

    // How many control entries wait: one for each message, request and expiry.
    unsigned long queuedEntriesForTesting() const;

    // The next timer gets this id.
    void setNextUserTimerIdForTesting(int userId);

protected:
    // The message loop.
    int execute() override;

    // Wakes the loop.
    int requestStop() override;

private:
    friend class ThreadWatchdog;
    friend class LoopThread;

    class Loop;

    bool takeListener(ThreadMsgListener* listener);
    StopResult stopWithin(Rest rest, unsigned long timeout);
    MsgDrivenThread(unsigned long maxMsgSize, unsigned long maxMsgCount, char const* name,
                    unsigned long maxTimerCount, LoopExtension* extension);

    void followForkUnlessStarted();
    bool isServing() const;
    bool mayBeSentTo() const;
    LoopControl& control();

    // Lets a timer of this thread stand still, on the thread itself; and go on, on any.
    void restTimer(int userId);
    bool resumeTimer(int userId);

    std::atomic<ThreadMsgListener*> mListener{nullptr};  // set once, by start()
    std::unique_ptr<Loop> mLoop;
};

template <typename Question>
auto MsgDrivenThread::ask(typename Question::Value const& question) {
    using Answer = typename Question::Answer;
    static_assert(!std::is_void_v<Answer>,
                  "This message is no question: name its answer, StructMsg<ID, Value, Answer>.");
    if constexpr (!std::is_void_v<Answer>) {
        typename Question::AnswerMsg answer;
        return askMsg(Question(question), &answer) ? std::optional<Answer>(answer.value())
                                                   : std::nullopt;
    }
}

}  // namespace utl

#endif  // UTL_MSG_DRIVEN_THREAD_H
