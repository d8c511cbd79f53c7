// The contenders of the messaging benchmarks: each has a thread that handles messages of 64 bytes,
// of which at most ROOM are queued.

#ifndef UTL_BENCH_LOOPS_H
#define UTL_BENCH_LOOPS_H

#include <benchmark/benchmark.h>
#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "UtlMsgDrivenThread.h"

#ifdef UTL_BENCH_UV
#include <uv.h>
#endif
#ifdef UTL_BENCH_BOOST
#include <boost/asio.hpp>
#endif
#ifdef UTL_BENCH_GLIB
#include <glib.h>
#endif
#ifdef UTL_BENCH_LOOPER
#include <utils/Looper.h>
#endif

namespace bench {

constexpr unsigned long ROOM = 1024;

struct Payload {
    std::array<unsigned char, 64> bytes = {};
};

inline std::int64_t now() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

// What every contender does with a message.
class Handler {
public:
    void handle(Payload const& payload) {
        std::int64_t const arrival = measuresArrival ? now() : 0;
        benchmark::DoNotOptimize(payload.bytes);
        mSeen.arrivedAt.store(arrival, std::memory_order_relaxed);
        mSeen.handled.store(mSeen.handled.load(std::memory_order_relaxed) + 1,
                            std::memory_order_release);
    }

    void await(long count) const {
        while (mSeen.handled.load(std::memory_order_acquire) < count) {
            std::this_thread::yield();
        }
    }
    std::int64_t arrivedAt() const { return mSeen.arrivedAt.load(std::memory_order_relaxed); }

    bool measuresArrival = false;

private:
    // Written for each message, therefore in cache lines of its own. Beside what the senders read,
    // as chance puts it on the stack, it made a message cost twice as much.
    struct alignas(128) Seen {
        std::atomic<long> handled{0};
        std::atomic<std::int64_t> arrivedAt{0};
    };

    Seen mSeen;
};

// A sender that finds the queue full yields and tries again.
template <typename Loop>
void postAll(Loop& loop, long count) {
    typename Loop::Sender sender(loop);
    for (long i = 0; i < count; ++i) {
        while (!sender.post()) {
            std::this_thread::yield();
        }
    }
}

// ---- the library

class PayloadMsg : public utl::Msg {
public:
    PayloadMsg() : Msg(0x8001) {}

    Payload payload;

protected:
    void storeDataTo(utl::MsgDataBroker* broker) const override {
        broker->set(payload.bytes.data(), payload.bytes.size());
    }
    void restoreDataFrom(utl::MsgDataBroker& broker) override {
        broker.get(payload.bytes.data(), payload.bytes.size());
    }
};

class Utl : public Handler, public utl::ThreadMsgListener {
public:
    static constexpr char const* NAME = "utl";

    explicit Utl(unsigned long room = ROOM) : mThread(sizeof(Payload), room, "bench", 0) {
        mThread.start(this, 0, 0, nullptr, 1, 0, utl::ThreadPriority::NORMAL, 0);
    }
    ~Utl() override { mThread.stop(1, 0); }

    class Sender {
    public:
        explicit Sender(Utl& loop) : mLoop(loop) {}
        bool post() { return mLoop.mThread.postMsg(mMsg) == 1; }
        void send() { mLoop.mThread.sendMsgSync(mMsg); }

    private:
        Utl& mLoop;
        PayloadMsg mMsg;
    };

    int receiveMsg(int, utl::ThreadRawMsg& raw) override {
        PayloadMsg msg;
        msg.restoreFrom(raw);
        handle(msg.payload);
        return 0;
    }

private:
    utl::MsgDrivenThread mThread;
};

// ---- what the peers that carry no data are given

class Ring {
public:
    bool put(Payload const& payload) {
        std::lock_guard<std::mutex> const guard(mMutex);
        if (mPut - mTaken == ROOM) {
            return false;
        }
        mSlots[mPut++ % ROOM] = payload;
        return true;
    }

    // How many it took, as many as there are room for in `batch`.
    template <std::size_t SIZE>
    std::size_t take(std::array<Payload, SIZE>* batch) {
        std::lock_guard<std::mutex> const guard(mMutex);
        std::size_t count = 0;
        while (mTaken != mPut && count < SIZE) {
            (*batch)[count++] = mSlots[mTaken++ % ROOM];
        }
        return count;
    }

private:
    std::mutex mMutex;
    unsigned long mPut = 0;
    unsigned long mTaken = 0;
    std::array<Payload, ROOM> mSlots;
};

class RingHandler : public Handler {
protected:
    void drain() {
        std::array<Payload, 32> batch;
        while (std::size_t const count = mRing.take(&batch)) {
            for (std::size_t i = 0; i < count; ++i) {
                handle(batch[i]);
            }
        }
    }

    Ring mRing;
};

// A sender that has a payload of its own and puts it into the contender with post(payload).
template <typename Loop>
class PayloadSender {
public:
    explicit PayloadSender(Loop& loop) : mLoop(loop) {}
    bool post() { return mLoop.post(mPayload); }
    void send() { mLoop.send(mPayload); }

private:
    Loop& mLoop;
    Payload mPayload;
};

// ---- limit: a ring, a pipe that is written to only while its reader sleeps, and for the answer a
// condition variable

class Pipe : public RingHandler {
public:
    static constexpr char const* NAME = "limit";
    using Sender = PayloadSender<Pipe>;

    Pipe() {
        if (::pipe(mEnds) != 0) {
            std::abort();
        }
        mThread = std::thread([this] { run(); });
    }
    ~Pipe() {
        mIsOver = true;
        wake();
        mThread.join();
        ::close(mEnds[0]);
        ::close(mEnds[1]);
    }

    bool post(Payload const& payload) {
        if (!mRing.put(payload)) {
            return false;
        }
        if (mIsAsleep.exchange(false)) {
            wake();
        }
        return true;
    }

    void send(Payload const& payload) {
        std::unique_lock<std::mutex> guard(mAnswerMutex);
        mIsAnswered = false;
        mSent = &payload;
        wake();
        mAnswer.wait(guard, [this] { return mIsAnswered; });
    }

private:
    void wake() {
        std::uint64_t const word = 1;
        if (::write(mEnds[1], &word, sizeof word) != sizeof word) {
            std::abort();
        }
    }

    void run() {
        while (!mIsOver) {
            mIsAsleep = true;
            drain();
            std::uint64_t word;
            if (::read(mEnds[0], &word, sizeof word) != sizeof word) {
                std::abort();
            }
            mIsAsleep = false;
            drain();
            answer();
        }
    }

    void answer() {
        std::lock_guard<std::mutex> const guard(mAnswerMutex);
        if (mSent != nullptr) {
            handle(*mSent);
            mSent = nullptr;
            mIsAnswered = true;
            mAnswer.notify_one();
        }
    }

    int mEnds[2];
    std::atomic<bool> mIsAsleep{false};
    std::atomic<bool> mIsOver{false};
    std::mutex mAnswerMutex;
    std::condition_variable mAnswer;
    Payload const* mSent = nullptr;
    bool mIsAnswered = false;
    std::thread mThread;
};

#ifdef UTL_BENCH_UV
class Uv : public RingHandler {
public:
    static constexpr char const* NAME = "libuv";
    using Sender = PayloadSender<Uv>;

    Uv() {
        uv_loop_init(&mLoop);
        uv_async_init(&mLoop, &mWake, [](uv_async_t* wake) {
            auto& self = *static_cast<Uv*>(wake->data);
            self.drain();
            self.answer();
            if (self.mIsOver) {
                uv_close(reinterpret_cast<uv_handle_t*>(wake), nullptr);
            }
        });
        mWake.data = this;
        mThread = std::thread([this] { uv_run(&mLoop, UV_RUN_DEFAULT); });
    }
    ~Uv() {
        mIsOver = true;
        uv_async_send(&mWake);
        mThread.join();
        uv_loop_close(&mLoop);
    }

    bool post(Payload const& payload) { return mRing.put(payload) && uv_async_send(&mWake) == 0; }

    void send(Payload const& payload) {
        Question question{payload, {}};
        mQuestion = &question;
        uv_async_send(&mWake);
        question.answer.get_future().wait();
    }

private:
    struct Question {
        Payload const& payload;
        std::promise<void> answer;
    };

    void answer() {
        if (Question* const question = mQuestion.exchange(nullptr)) {
            handle(question->payload);
            question->answer.set_value();
        }
    }

    std::atomic<Question*> mQuestion{nullptr};
    uv_loop_t mLoop;
    uv_async_t mWake;
    std::atomic<bool> mIsOver{false};
    std::thread mThread;
};
#endif

#ifdef UTL_BENCH_BOOST
class Asio : public Handler {
public:
    static constexpr char const* NAME = "asio";
    using Sender = PayloadSender<Asio>;

    ~Asio() {
        mWork.reset();
        mThread.join();
    }

    bool post(Payload const& payload) {
        if (mQueued.fetch_add(1, std::memory_order_relaxed) >= static_cast<long>(ROOM)) {
            mQueued.fetch_sub(1, std::memory_order_relaxed);
            return false;
        }
        boost::asio::post(mContext, [this, payload] {
            mQueued.fetch_sub(1, std::memory_order_relaxed);
            handle(payload);
        });
        return true;
    }

    void send(Payload const& payload) {
        std::promise<void> answer;
        boost::asio::post(mContext, [&] {
            handle(payload);
            answer.set_value();
        });
        answer.get_future().wait();
    }

private:
    boost::asio::io_context mContext;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> mWork{
        mContext.get_executor()};
    std::atomic<long> mQueued{0};
    std::thread mThread{[this] { mContext.run(); }};
};
#endif

#ifdef UTL_BENCH_GLIB
class Glib : public Handler {
public:
    static constexpr char const* NAME = "GLib";
    using Sender = PayloadSender<Glib>;

    ~Glib() {
        invoke(
            [](gpointer loop) {
                g_main_loop_quit(static_cast<Glib*>(loop)->mLoop);
                return G_SOURCE_REMOVE;
            },
            this);
        mThread.join();
        g_main_loop_unref(mLoop);
        g_main_context_unref(mContext);
    }

    bool post(Payload const& payload) {
        if (mQueued.fetch_add(1, std::memory_order_relaxed) >= static_cast<long>(ROOM)) {
            mQueued.fetch_sub(1, std::memory_order_relaxed);
            return false;
        }
        invoke(
            [](gpointer task) {
                std::unique_ptr<Task> const owned(static_cast<Task*>(task));
                owned->loop.mQueued.fetch_sub(1, std::memory_order_relaxed);
                owned->loop.handle(owned->payload);
                return G_SOURCE_REMOVE;
            },
            new Task{*this, payload});
        return true;
    }

    void send(Payload const& payload) {
        Question question{*this, payload, {}};
        invoke(
            [](gpointer asked) {
                auto& asking = *static_cast<Question*>(asked);
                asking.loop.handle(asking.payload);
                asking.answer.set_value();
                return G_SOURCE_REMOVE;
            },
            &question);
        question.answer.get_future().wait();
    }

protected:
    GMainContext* context() const { return mContext; }

private:
    struct Task {
        Glib& loop;
        Payload payload;
    };
    struct Question {
        Glib& loop;
        Payload const& payload;
        std::promise<void> answer;
    };

    // A source of its own, so that what is posted is handled in order.
    void invoke(GSourceFunc function, gpointer data) {
        GSource* const source = g_idle_source_new();
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        g_source_set_callback(source, function, data, nullptr);
        g_source_attach(source, mContext);
        g_source_unref(source);
    }

    GMainContext* mContext = g_main_context_new();
    GMainLoop* mLoop = g_main_loop_new(mContext, FALSE);
    std::atomic<long> mQueued{0};
    std::thread mThread{[this] { g_main_loop_run(mLoop); }};
};
#endif

#ifdef UTL_BENCH_LOOPER
class AndroidLooper : public RingHandler {
public:
    static constexpr char const* NAME = "Looper";
    using Sender = PayloadSender<AndroidLooper>;

    ~AndroidLooper() {
        mIsOver = true;
        mLooper->wake();
        mThread.join();
    }

    bool post(Payload const& payload) {
        if (!mRing.put(payload)) {
            return false;
        }
        mLooper->sendMessage(mHandler, android::Message(1));
        return true;
    }

private:
    struct TakeOne : android::MessageHandler {
        explicit TakeOne(AndroidLooper& looper) : loop(looper) {}
        void handleMessage(android::Message const&) override {
            std::array<Payload, 1> payload;
            if (loop.mRing.take(&payload) == 1) {
                loop.handle(payload[0]);
            }
        }
        AndroidLooper& loop;
    };

    std::atomic<bool> mIsOver{false};
    android::sp<android::Looper> mLooper = new android::Looper(false);
    android::sp<android::MessageHandler> mHandler = new TakeOne(*this);
    std::thread mThread{[this] {
        while (!mIsOver) {
            mLooper->pollOnce(-1);
        }
    }};
};
#endif

// ---- what is measured

template <typename Loop>
void post(benchmark::State& state, long senders) {
    constexpr long MESSAGES = 100000;
    Loop loop;
    long posted = 0;
    for (auto _ : state) {
        std::vector<std::thread> threads;
        for (long i = 1; i < senders; ++i) {
            threads.emplace_back([&] { postAll(loop, MESSAGES / senders); });
        }
        postAll(loop, MESSAGES / senders);
        for (std::thread& thread : threads) {
            thread.join();
        }
        posted += MESSAGES;
        loop.await(posted);
    }
    state.SetItemsProcessed(posted);
}

// While this lives the calling thread is on the first processor, and the others of the process, as
// many as there are, are with it or on the last one. Left to the system, where a thread is woken
// changes from run to run, and with it how long that takes: two microseconds or sixty.
class Placement {
public:
    explicit Placement(bool isTogether) {
        sched_getaffinity(0, sizeof mBefore, &mBefore);
        long const last = sysconf(_SC_NPROCESSORS_ONLN) - 1;
        for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
            place(std::stoi(task.path().filename()), isTogether ? 0 : last);
        }
        place(0, 0);
    }
    ~Placement() { sched_setaffinity(0, sizeof mBefore, &mBefore); }
    Placement(Placement const&) = delete;
    Placement& operator=(Placement const&) = delete;

private:
    static void place(pid_t thread, long processor) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(static_cast<unsigned>(processor), &set);
        sched_setaffinity(thread, sizeof set, &set);
    }

    cpu_set_t mBefore;
};

// One iteration is the median of many; the 99th of a hundred stands beside it.
template <typename Measure>
void latency(benchmark::State& state, bool isTogether, Measure measure) {
    constexpr int SAMPLES = 2000;
    Placement const placement(isTogether);
    double late = 0;
    for (auto _ : state) {
        std::vector<std::int64_t> times;
        for (int i = 0; i < SAMPLES; ++i) {
            times.push_back(measure());
        }
        std::sort(times.begin(), times.end());
        state.SetIterationTime(static_cast<double>(times[SAMPLES / 2]) / 1e9);
        late += static_cast<double>(times[SAMPLES * 99 / 100]) / 1e9;
    }
    state.counters["p99"] = benchmark::Counter(late, benchmark::Counter::kAvgIterations);
}

template <typename Loop>
void roundTrip(benchmark::State& state, bool isTogether) {
    Loop loop;
    typename Loop::Sender sender(loop);
    latency(state, isTogether, [&] {
        std::int64_t const begin = now();
        sender.send();
        return now() - begin;
    });
}

// Registers `run` twice: between two processors, and on one.
inline void registerLatency(std::string const& row, char const* contender,
                            void (*run)(benchmark::State&, bool)) {
    for (bool const isTogether : {false, true}) {
        std::string const name = row + (isTogether ? ", one processor/" : "/") + contender;
        benchmark::RegisterBenchmark(name.c_str(), run, isTogether)
            ->UseManualTime()
            ->Iterations(1)
            ->Unit(benchmark::kMicrosecond);
    }
}

}  // namespace bench

#endif  // UTL_BENCH_LOOPS_H
