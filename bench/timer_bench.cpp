// Timers beside those of the system and of others: how late an expiry is heard, and whether they
// drift, what it costs to set one and to kill it, and what many of them cost while they run.

#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "UtlLog.h"
#include "UtlMsgDrivenThread.h"
#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"
#include "UtlTimer.h"

#ifdef UTL_BENCH_UV
#include <uv.h>
#endif
#ifdef UTL_BENCH_BOOST
#include <boost/asio.hpp>
#endif

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t NANOSECONDS = 1000000;

std::int64_t now() {
    return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

// How often a timer expires, and when its expiries were heard, measured from before it was set.
class Hearings {
public:
    Hearings(long intervalMs, std::size_t expiries) : mIntervalMs(intervalMs), mExpiries(expiries) {
        mLate.reserve(expiries);
    }

    long intervalMs() const { return mIntervalMs; }
    void begin() { mBegin = now(); }
    void hear() {
        if (mLate.size() < mExpiries) {
            // Behind the last full interval: of expiries that nobody heard in time one is left.
            mLate.push_back((now() - mBegin) % (mIntervalMs * NANOSECONDS));
            mIsFull.store(mLate.size() == mExpiries);
        }
    }
    bool isFull() const { return mIsFull.load(); }

    // In nanoseconds, of all, and of a tenth of them at the end and at the beginning.
    std::int64_t late(double part) const { return lateOf(mLate, part); }
    std::int64_t drift() const {
        auto const tenth = static_cast<std::ptrdiff_t>(mExpiries / 10);
        return lateOf({mLate.end() - tenth, mLate.end()}, 0.5) -
               lateOf({mLate.begin(), mLate.begin() + tenth}, 0.5);
    }

private:
    static std::int64_t lateOf(std::vector<std::int64_t> late, double part) {
        std::sort(late.begin(), late.end());
        return late[static_cast<std::size_t>(static_cast<double>(late.size() - 1) * part)];
    }

    long const mIntervalMs;
    std::size_t const mExpiries;
    std::int64_t mBegin = 0;
    std::vector<std::int64_t> mLate;
    std::atomic<bool> mIsFull{false};
};

// One iteration is the median; or what was added on the way, of which nothing is less than nothing.
template <void (*hearAll)(Hearings&)>
void lateness(benchmark::State& state) {
    for (auto _ : state) {
        Hearings hearings(5, 300);
        hearAll(hearings);
        state.SetIterationTime(static_cast<double>(hearings.late(0.5)) / 1e9);
        state.counters["p99"] = static_cast<double>(hearings.late(0.99)) / 1e9;
    }
}

template <void (*hearAll)(Hearings&)>
void drift(benchmark::State& state) {
    for (auto _ : state) {
        Hearings hearings(1, 1000);
        hearAll(hearings);
        state.SetIterationTime(static_cast<double>(std::max<std::int64_t>(1, hearings.drift())) /
                               1e9);
    }
}

void await(Hearings const& hearings) {
    while (!hearings.isFull()) {
        usleep(10000);
    }
}

// Set on their own threads, like the peers' timers: from elsewhere one is set when its thread has
// been woken for it.
struct Listener : utl::ThreadMsgListener, utl::TimerListener {
    explicit Listener(Hearings& heard) : hearings(heard) {}
    int receiveMsg(int, utl::ThreadRawMsg& raw) override {
        long msgId = -1;
        raw.getMsgId(&msgId);
        if (msgId == utl::TimerMsg::ID) {
            hearings.hear();
        } else {
            hearings.begin();
            thread->setTimer(hearings.intervalMs(), 0, 0, 1);
        }
        return 0;
    }
    void onTime(int id) override {
        if (id == periodic) {
            hearings.hear();
        } else {
            hearings.begin();
            timer->start(periodic, 0);
        }
    }
    Hearings& hearings;
    utl::MsgDrivenThread* thread = nullptr;
    utl::SharedTimer* timer = nullptr;
    int periodic = -1;
};

void hearThread(Hearings& hearings) {
    Listener listener(hearings);
    utl::MsgDrivenThread thread(8, 64, "bench", 1);
    listener.thread = &thread;
    thread.start(&listener, {});
    thread.sendMsgSync(0x8001);
    await(hearings);
    thread.stop(1, 0);
}

void hearShared(Hearings& hearings) {
    Listener listener(hearings);
    utl::SharedTimer timer(0, 0, nullptr, 2, "bench");
    listener.timer = &timer;
    listener.periodic = timer.addTimer(&listener, hearings.intervalMs(), 0, 1);
    timer.start(timer.addTimer(&listener, 1, 1, 0), 0);
    await(hearings);
    timer.destroy();
}

itimerspec every(long milliseconds) {
    timespec const interval = {milliseconds / 1000, milliseconds % 1000 * NANOSECONDS};
    return {interval, interval};
}

void hearTimerfd(Hearings& hearings) {
    int const timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    std::thread reader([&] {
        std::uint64_t times;
        while (!hearings.isFull() && read(timer, &times, sizeof times) == sizeof times) {
            hearings.hear();
        }
    });
    itimerspec const interval = every(hearings.intervalMs());
    hearings.begin();
    timerfd_settime(timer, 0, &interval, nullptr);
    reader.join();
    close(timer);
}

int barePipe[2];

// POSIX timers whose handler writes to a pipe, which a thread reads.
class BareTimers {
public:
    // Calls `hear` for each byte, until `isOver`; `begin` before the first.
    BareTimers(
        std::function<void()> hear, std::function<bool()> isOver,
        std::function<void()> begin = [] {})
        : mReader([hear, isOver, begin] {
              char byte;
              int left = 0;  // of those before
              while (ioctl(barePipe[0], FIONREAD, &left) == 0 && left > 0 &&
                     read(barePipe[0], &byte, 1) == 1) {
              }
              begin();
              while (!isOver() && read(barePipe[0], &byte, 1) == 1) {
                  hear();
              }
          }) {}
    ~BareTimers() { mReader.join(); }

    // The signal goes to any thread of the process, or to the calling one.
    static timer_t make(long milliseconds, bool isForCaller = false) {
        sigevent event = {};
        event.sigev_notify = isForCaller ? SIGEV_THREAD_ID : SIGEV_SIGNAL;
        event.sigev_signo = SIGRTMIN + 5;
        event._sigev_un._tid = gettid();
        timer_t timer;
        timer_create(CLOCK_MONOTONIC, &event, &timer);
        itimerspec const interval = every(milliseconds);
        timer_settime(timer, 0, &interval, nullptr);
        return timer;
    }

    static void write(int = 0) {
        char const byte = 0;
        if (::write(barePipe[1], &byte, 1) != 1) {
            std::abort();
        }
    }

private:
    std::thread mReader;
};

void openBarePipe() {
    struct sigaction action = {};
    action.sa_handler = BareTimers::write;
    action.sa_flags = SA_RESTART;
    if (pipe(barePipe) != 0 || sigaction(SIGRTMIN + 5, &action, nullptr) != 0) {
        std::abort();
    }
}

void hearBareTimer(Hearings& hearings) {
    BareTimers const timers([&] { hearings.hear(); }, [&] { return hearings.isFull(); });
    hearings.begin();
    timer_t const timer = BareTimers::make(hearings.intervalMs());
    await(hearings);
    timer_delete(timer);
}

void hearBareTimerOfReader(Hearings& hearings) {
    timer_t timer;
    BareTimers const timers([&] { hearings.hear(); }, [&] { return hearings.isFull(); },
                            [&] {
                                hearings.begin();
                                timer = BareTimers::make(hearings.intervalMs(), true);
                            });
    await(hearings);
    timer_delete(timer);
}

#ifdef UTL_BENCH_BOOST
void hearAsio(Hearings& hearings) {
    boost::asio::io_context context;
    boost::asio::steady_timer timer(context);
    std::function<void()> const next = [&] {
        timer.async_wait([&](boost::system::error_code const&) {
            hearings.hear();
            if (!hearings.isFull()) {
                timer.expires_at(timer.expiry() + std::chrono::milliseconds(hearings.intervalMs()));
                next();
            }
        });
    };
    std::thread runner([&] {
        hearings.begin();
        timer.expires_after(std::chrono::milliseconds(hearings.intervalMs()));
        next();
        context.run();
    });
    runner.join();
}
#endif

// On the thread itself: nobody waits for anybody.
struct Setter : utl::ThreadMsgListener {
    explicit Setter(unsigned long timers) : thread(8, 8, "bench", timers + 1) {
        thread.start(this, 0, 0, nullptr, 1, 0, utl::ThreadPriority::NORMAL, 0);
        for (unsigned long i = 0; i < timers; ++i) {
            thread.setTimer(3600000, 0, 0, 0);
        }
    }
    ~Setter() override { thread.stop(1, 0); }

    int receiveMsg(int, utl::ThreadRawMsg&) override {
        for (auto _ : *state) {
            thread.killTimer(thread.setTimer(3600000, 0, 0, 0), 0);
        }
        return 0;
    }

    benchmark::State* state = nullptr;
    utl::MsgDrivenThread thread;
};

void setAndKill(benchmark::State& state, unsigned long timers) {
    Setter setter(timers);
    setter.state = &state;
    setter.thread.sendMsgSync(0x8001);
}

void bareSetAndKill(benchmark::State& state, unsigned long timers) {
    std::vector<timer_t> others;
    for (unsigned long i = 0; i < timers; ++i) {
        others.push_back(BareTimers::make(3600000));
    }
    for (auto _ : state) {
        timer_delete(BareTimers::make(3600000));
    }
    for (timer_t const timer : others) {
        timer_delete(timer);
    }
}

#ifdef UTL_BENCH_BOOST
// In its heap, without a kernel timer of its own.
void asioSetAndKill(benchmark::State& state, unsigned long timers) {
    boost::asio::io_context context;
    std::vector<boost::asio::steady_timer> others;
    auto const set = [](boost::asio::steady_timer& timer) {
        timer.expires_after(std::chrono::hours(1));
        timer.async_wait([](boost::system::error_code const&) {});
    };
    others.reserve(timers);
    for (unsigned long i = 0; i < timers; ++i) {
        set(others.emplace_back(context));
    }
    for (auto _ : state) {
        boost::asio::steady_timer timer(context);
        set(timer);
        timer.cancel();
        context.poll();
    }
}
#endif

double processorTime() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

constexpr int MANY = 60;
constexpr long MANY_INTERVAL_MS = 10;
constexpr long RUNNING_NS = 1000000000;

// What the process does in that time, whatever signals come.
double timeOfRunning() {
    double const begin = processorTime();
    timespec rest = {0, RUNNING_NS - 1};
    while (nanosleep(&rest, &rest) != 0) {
    }
    return processorTime() - begin;
}

// All are set in one go, whoever sets them.
struct Deaf : utl::ThreadMsgListener {
    int receiveMsg(int, utl::ThreadRawMsg& raw) override {
        long msgId = -1;
        raw.getMsgId(&msgId);
        for (int i = 0; msgId != utl::TimerMsg::ID && i < MANY; ++i) {
            thread.setTimer(MANY_INTERVAL_MS, 0, 0, 1);
        }
        return 0;
    }
    utl::MsgDrivenThread thread{8, 64, "bench", MANY};
};

void running(benchmark::State& state) {
    Deaf listener;
    listener.thread.start(&listener, {});
    listener.thread.sendMsgSync(0x8001);
    for (auto _ : state) {
        state.SetIterationTime(timeOfRunning());
    }
    listener.thread.stop(1, 0);
}

void bareRunning(benchmark::State& state) {
    std::atomic<bool> isOver{false};
    BareTimers const reader([] {}, [&] { return isOver.load(); });
    std::vector<timer_t> timers;
    for (int i = 0; i < MANY; ++i) {
        timers.push_back(BareTimers::make(MANY_INTERVAL_MS));
    }
    for (auto _ : state) {
        state.SetIterationTime(timeOfRunning());
    }
    for (timer_t const timer : timers) {
        timer_delete(timer);
    }
    isOver.store(true);
    BareTimers::write();
}

#ifdef UTL_BENCH_UV
void uvRunning(benchmark::State& state) {
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<uv_timer_t> timers(MANY);
    for (uv_timer_t& timer : timers) {
        uv_timer_init(&loop, &timer);
        uv_timer_start(
            &timer, [](uv_timer_t*) {}, MANY_INTERVAL_MS, MANY_INTERVAL_MS);
    }
    uv_async_t end;
    uv_async_init(&loop, &end, [](uv_async_t* async) {
        uv_walk(
            async->loop, [](uv_handle_t* handle, void*) { uv_close(handle, nullptr); }, nullptr);
    });
    std::thread runner([&] { uv_run(&loop, UV_RUN_DEFAULT); });
    for (auto _ : state) {
        state.SetIterationTime(timeOfRunning());
    }
    uv_async_send(&end);
    runner.join();
    uv_loop_close(&loop);
}
#endif

void addMeasured(char const* name, void (*run)(benchmark::State&), benchmark::TimeUnit unit) {
    benchmark::RegisterBenchmark(name, run)->UseManualTime()->Iterations(1)->Unit(unit);
}

}  // namespace

int main(int argc, char** argv) {
    setAllFilterLevel(0);
    openBarePipe();
    addMeasured("timers/lateness, 5 ms/utl", lateness<hearThread>, benchmark::kMicrosecond);
    addMeasured("timers/lateness, 5 ms/utl shared", lateness<hearShared>, benchmark::kMicrosecond);
    addMeasured("timers/lateness, 5 ms/timerfd", lateness<hearTimerfd>, benchmark::kMicrosecond);
    addMeasured("timers/lateness, 5 ms/bare timers", lateness<hearBareTimer>,
                benchmark::kMicrosecond);
    addMeasured("timers/lateness, 5 ms/bare timers, to the reader", lateness<hearBareTimerOfReader>,
                benchmark::kMicrosecond);
#ifdef UTL_BENCH_BOOST
    addMeasured("timers/lateness, 5 ms/asio", lateness<hearAsio>, benchmark::kMicrosecond);
#endif
    addMeasured("timers/drift in 1000 of 1 ms/utl", drift<hearThread>, benchmark::kMicrosecond);
    addMeasured("timers/drift in 1000 of 1 ms/utl shared", drift<hearShared>,
                benchmark::kMicrosecond);
    addMeasured("timers/drift in 1000 of 1 ms/timerfd", drift<hearTimerfd>,
                benchmark::kMicrosecond);
#ifdef UTL_BENCH_UV
    addMeasured("timers/60 timers of 10 ms for 1 s/libuv", uvRunning, benchmark::kMillisecond);
#endif
    addMeasured("timers/60 timers of 10 ms for 1 s/utl", running, benchmark::kMillisecond);
    addMeasured("timers/60 timers of 10 ms for 1 s/bare timers", bareRunning,
                benchmark::kMillisecond);
    for (unsigned long const timers : {1, 10, 100, 1000}) {
        std::string const row = "timers/set and kill beside " + std::to_string(timers);
        benchmark::RegisterBenchmark((row + "/utl").c_str(), setAndKill, timers);
        benchmark::RegisterBenchmark((row + "/bare timers").c_str(), bareSetAndKill, timers);
#ifdef UTL_BENCH_BOOST
        benchmark::RegisterBenchmark((row + "/asio").c_str(), asioSetAndKill, timers);
#endif
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    utl::ThreadManager::destroy();
}
