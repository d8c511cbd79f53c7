// A thread made of functions, set before the start. Without any it waits for a stop request.

#ifndef UTL_TESTS_WORKER_H
#define UTL_TESTS_WORKER_H

#include <functional>
#include <utility>

#include "UtlThread.h"

namespace test {

class Worker : public utl::Thread {
public:
    explicit Worker(char const* name = "worker", std::function<int()> work = nullptr)
        : Thread(name, nullptr), onExecute(std::move(work)) {}
    ~Worker() override { stop(1, 0); }

    std::function<void()> onPreExecute = [] {};
    std::function<int()> onExecute;
    std::function<void()> onPostExecute = [] {};
    std::function<void()> onRequestStop = [] {};

    using Thread::start;

    int start(utl::ThreadPriority const& priority = utl::ThreadPriority::NORMAL) {
        return Thread::start(0, 0, nullptr, 0, 0, priority, 0);
    }

    // `waitTimeout` as in waitTo(PRE_EXECUTED, ...).
    int startAndWait(unsigned long waitTimeout) {
        return Thread::start(0, 0, nullptr, 1, waitTimeout, utl::ThreadPriority::NORMAL, 0);
    }

    // With the watchdog too.
    int startRegistered(unsigned long aliveTimeMs, utl::WatchdogTimerListener* listener) {
        return Thread::start(1, aliveTimeMs, listener, 1, 0, utl::ThreadPriority::NORMAL, 0);
    }

    bool comesToAnEnd() { return waitTo(EXECUTED, 0) == utl::REACHED; }

    bool runsToItsEnd() { return start() == 0 && comesToAnEnd(); }

protected:
    void preExecute() override { onPreExecute(); }
    int execute() override { return onExecute ? onExecute() : waitTo(STOP_REQUESTED, 0); }
    void postExecute() override { onPostExecute(); }
    int requestStop() override { return onRequestStop(), 1; }
};

}  // namespace test

#endif  // UTL_TESTS_WORKER_H
