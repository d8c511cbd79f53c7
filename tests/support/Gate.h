// What tests wait for instead of time.

#ifndef UTL_TESTS_GATE_H
#define UTL_TESTS_GATE_H

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>

#include "UtlEvent.h"

namespace test {

// Longer than anything takes that comes at all, even under a sanitizer on a busy machine.
constexpr std::chrono::seconds PATIENCE(30);

// Counts what happens. Threads wait until it has happened often enough.
class Counter {
public:
    void add() {
        std::lock_guard<std::mutex> const guard(mMutex);
        ++mCount;
        mChanged.notify_all();
    }

    unsigned count() const {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mCount;
    }

    // False when it does not come to that.
    bool waitFor(unsigned count) const {
        std::unique_lock<std::mutex> guard(mMutex);
        return mChanged.wait_for(guard, PATIENCE, [&] { return mCount >= count; });
    }

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    unsigned mCount = 0;
};

// Closed at first; once open, it stays so.
class Gate {
public:
    void open() { mOpened.add(); }
    bool isOpen() const { return mOpened.count() != 0; }

    // False when nobody opens it.
    bool wait() const { return mOpened.waitFor(1); }

private:
    Counter mOpened;
};

// What `call` returns on a thread of its own, which has ended when the future goes.
template <typename Call>
auto inThread(Call call) {
    return std::async(std::launch::async, call);
}

// The same for threads of the library, which wait for it by the library's means: a ManualClock sees
// that they wait. Nobody waits for ever: whoever makes one opens it before it goes.
class Hold {
public:
    void open() { mOpened.setOn(); }
    bool isOpen() const { return mOpened.isOn(); }
    bool wait() const { return mOpened.waitToOn(0) == utl::REACHED; }

private:
    utl::Event mOpened{0, 0};
};

}  // namespace test

#endif  // UTL_TESTS_GATE_H
