// A message-driven thread with what a test needs round it: a listener that keeps what it hears and
// does what the test says, and a view into the thread's pipe.

#ifndef UTL_TESTS_MESSAGE_STATION_H
#define UTL_TESTS_MESSAGE_STATION_H

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "UtlMsgDrivenThread.h"

#include "support/Gate.h"
#include "support/Process.h"

namespace test {

// Messages that tests send.
constexpr long A = 0x8002;
constexpr long B = 0x8003;
constexpr long SYNC = 0x8004;
constexpr long LAST = 0x9000;
constexpr long EXPIRY = utl::TimerMsg::ID;

// A message that carries a number.
class NumberMsg : public utl::Msg {
public:
    explicit NumberMsg(long id, int value = 0) : Msg(id), number(value) {}

    int number;

protected:
    void storeDataTo(utl::MsgDataBroker* broker) const override { broker->set(number); }
    void restoreDataFrom(utl::MsgDataBroker& broker) override { broker.get(&number); }
};

// The descriptor that one writes to the next pipe with.
inline int nextWriteEnd() {
    int ends[2] = {-1, -1};
    if (pipe(ends) == 0) {
        close(ends[0]);
        close(ends[1]);
    }
    return ends[1];
}

// From now on nothing can be written to it.
inline void replaceByFull(int end) {
    int const full = open("/dev/full", O_RDWR | O_CLOEXEC);
    dup2(full, end);
    close(full);
}

class Station : public utl::ThreadMsgListener {
public:
    using Ids = std::vector<long>;

    // A message whose handler opens `entered` and stays until `released` is opened.
    static constexpr long HOLD = 0x8001;

    // What it hears beyond that is not kept.
    static constexpr std::size_t MOST_HEARD = 100000;

    explicit Station(unsigned long maxMsgCount = 16, unsigned long maxTimerCount = 4,
                     unsigned long maxMsgSize = 8)
        : thread(maxMsgSize, maxMsgCount, "station", maxTimerCount) {
        mHeard.reserve(MOST_HEARD);
        on(HOLD, [this] { hold(); });
    }

    ~Station() override { end(); }

    utl::MsgDrivenThread* operator->() { return &thread; }

    int start(int watchdogMode = 0) {
        return thread.start(this, watchdogMode, 3600000, nullptr, 1, 0, utl::ThreadPriority::NORMAL,
                            0);
    }

    void hold() {
        entered.open();
        released.wait();
    }

    // How many of these are accepted.
    long post(Ids const& msgIds) {
        return std::count_if(msgIds.begin(), msgIds.end(),
                             [this](long id) { return thread.postMsg(id) == 1; });
    }

    // What to do when a message with this id has been heard.
    void on(long id, std::function<void()> action) {
        std::lock_guard<std::mutex> const guard(mMutex);
        mActions[id] = std::move(action);
    }

    // What was heard so far.
    std::vector<std::pair<long, int>> heard() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mHeard;
    }
    Ids ids() const {
        Ids ids;
        for (auto const& one : heard()) {
            ids.push_back(one.first);
        }
        return ids;
    }
    long count(long id) const {
        Ids const all = ids();
        return std::count(all.begin(), all.end(), id);
    }
    bool waitFor(long id, long times = 1) const {
        return comesTrue([&] { return count(id) >= times; });
    }

    // Blocks until that many messages have been heard; all of them.
    Ids hears(unsigned long messages) const {
        comesTrue([&] { return heard().size() >= messages; });
        return ids();
    }

    // Blocks until that many control entries wait, which the held thread does not take.
    bool awaitEntries(unsigned long entries) const {
        return comesTrue([&] { return thread.queuedEntriesForTesting() >= entries; });
    }

    Gate entered;
    Hold released;

protected:
    // For every destructor: a half-destroyed listener is called no more. A test that has failed
    // half way must not wait for its own hold.
    void end() {
        released.open();
        thread.stop(1, 0);
    }

private:
    int receiveMsg(int, utl::ThreadRawMsg& raw) override {
        NumberMsg msg(0);
        msg.restoreFrom(raw);
        std::function<void()> action;
        {
            std::lock_guard<std::mutex> const guard(mMutex);
            // In the child of a fork it may be destroyed whatever this thread was about: it never
            // moves.
            if (mHeard.size() < mHeard.capacity()) {
                mHeard.emplace_back(msg.getMsgId(), msg.number);
            }
            // A listener may do anything with the record that it is given. Small ones: a fork does
            // not wait for a sanitizer that looks for memory.
            raw = utl::ThreadRawMsg(mHeard.size() % 2 == 0 ? 4 : 40);
            action = mActions[msg.getMsgId()];
        }
        if (action) {
            action();
        }
        return 0;
    }

    std::map<long, std::function<void()>> mActions;
    mutable std::mutex mMutex;
    std::vector<std::pair<long, int>> mHeard;

public:
    int const writeEnd = nextWriteEnd();
    utl::MsgDrivenThread thread;  // the last to be made and the first to go
};

struct RunningStation : Station {
    using Station::Station;
    ~RunningStation() override { end(); }

    int const started = start();
};

// Its thread is in the handler of the message HOLD until `released` is opened.
struct HeldStation : RunningStation {
    using RunningStation::RunningStation;
    ~HeldStation() override { end(); }

    bool const isHeld = thread.postMsg(HOLD) && entered.wait();

    // What `call` returns, which asks the thread for something while it is held.
    template <typename Call>
    auto answerTo(Call call) {
        unsigned long const entries = thread.queuedEntriesForTesting() + 1;
        auto answer = inThread(call);
        awaitEntries(entries);
        released.open();
        return answer.get();
    }
};

}  // namespace test

#endif  // UTL_TESTS_MESSAGE_STATION_H
