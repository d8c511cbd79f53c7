// The message-driven thread beside a plain queue thread: a mutex, a condition variable and a deque.
// Each benchmark does the same with both in turn and reports the nanoseconds that one message takes
// with the library and, as a multiple of that, with the peer.

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "UtlLog.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"

namespace {

using namespace utl;
using Clock = std::chrono::steady_clock;
using Payload = std::array<unsigned char, 64>;

constexpr unsigned long ROOM = 1000;  // messages

class PayloadMsg : public Msg {
public:
    PayloadMsg() : Msg(0x8001) {}

protected:
    void storeDataTo(MsgDataBroker* broker) const override { broker->set(mBytes.data(), 64); }
    void restoreDataFrom(MsgDataBroker& broker) override { broker.get(mBytes.data(), 64); }

private:
    Payload mBytes = {};
};

class Own : public ThreadMsgListener {
public:
    Own() { mThread.start(this, 0, 0, nullptr, 1, 0, ThreadPriority::NORMAL, 0); }
    ~Own() override { mThread.stop(1, 0); }

    bool post() { return mThread.postMsg(PayloadMsg()) == 1; }
    void send() { mThread.sendMsgSync(PayloadMsg()); }

    int receiveMsg(int, ThreadRawMsg& raw) override {
        PayloadMsg msg;
        benchmark::DoNotOptimize(msg.restoreFrom(raw));
        ++arrived;
        return 0;
    }

    std::atomic<long> arrived{0};

private:
    MsgDrivenThread mThread{sizeof(Payload), ROOM, "bench", 0};
};

class Peer {
public:
    ~Peer() {
        {
            std::lock_guard<std::mutex> const guard(mMutex);
            mIsStopped = true;
        }
        mFilled.notify_one();
        mThread.join();
    }

    bool post() {
        std::lock_guard<std::mutex> const guard(mMutex);
        if (mQueue.size() == ROOM) {
            return false;
        }
        mQueue.emplace_back();
        mFilled.notify_one();
        return true;
    }

    // Nobody else posts meanwhile.
    void send() {
        post();
        std::unique_lock<std::mutex> guard(mMutex);
        long const wanted = ++mSent;
        mServed.wait(guard, [&] { return arrived == wanted; });
    }

    std::atomic<long> arrived{0};

private:
    void run() {
        std::unique_lock<std::mutex> guard(mMutex);
        for (;;) {
            mFilled.wait(guard, [this] { return mIsStopped || !mQueue.empty(); });
            if (mIsStopped) {
                return;
            }
            Payload const payload = mQueue.front();
            mQueue.pop_front();
            guard.unlock();
            benchmark::DoNotOptimize(payload);
            guard.lock();
            ++arrived;
            mServed.notify_all();
        }
    }

    std::mutex mMutex;
    std::condition_variable mFilled;
    std::condition_variable mServed;
    std::deque<Payload> mQueue;
    long mSent = 0;
    bool mIsStopped = false;
    std::thread mThread{[this] { run(); }};
};

// Calls `work` with both sides in turn, each time for `messages` messages.
template <typename Work>
void compare(benchmark::State& state, long messages, Work work) {
    Own own;
    Peer peer;
    double seconds[2] = {};
    for (auto _ : state) {
        Clock::time_point const begin = Clock::now();
        work(own);
        Clock::time_point const middle = Clock::now();
        work(peer);
        seconds[0] += std::chrono::duration<double>(middle - begin).count();
        seconds[1] += std::chrono::duration<double>(Clock::now() - middle).count();
    }
    double const all = static_cast<double>(messages) * static_cast<double>(state.iterations());
    state.counters["utl_ns"] = 1e9 * seconds[0] / all;
    state.counters["peer/utl"] = seconds[1] / seconds[0];
}

void postAndDeliver(benchmark::State& state) {
    long const senders = state.range(0);
    long const each = 20000 / senders;
    compare(state, senders * each, [=](auto& side) {
        long const wanted = side.arrived + senders * each;
        std::vector<std::thread> threads;
        for (long i = 0; i < senders; ++i) {
            threads.emplace_back([&side, each] {
                for (long sent = 0; sent < each; ++sent) {
                    while (!side.post()) {
                        std::this_thread::yield();
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        while (side.arrived < wanted) {
            std::this_thread::yield();
        }
    });
}
BENCHMARK(postAndDeliver)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);

void roundTrip(benchmark::State& state) {
    constexpr long TRIPS = 1000;
    compare(state, TRIPS, [](auto& side) {
        for (long i = 0; i < TRIPS; ++i) {
            side.send();
        }
    });
}
BENCHMARK(roundTrip)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    setAllFilterLevel(0);  // a full queue is part of the run
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    ThreadManager::destroy();
}
