// Timers beside those of the system and of others: how late an expiry is heard, what it costs to
// set one and to kill it, and what many of them cost while they run.

#include <benchmark/benchmark.h>
#include <signal.h>
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

#ifdef UTL_BENCH_BOOST
#include <boost/asio.hpp>
#endif

namespace {

using Clock = std::chrono::steady_clock;

constexpr long INTERVAL_MS = 5;
constexpr int EXPIRIES = 100;
constexpr std::int64_t NANOSECONDS = 1000000;

std::int64_t now() {
    return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

// When the expiries of one free-running timer were heard, measured from before it was set.
class Hearings {
public:
    void hear() {
        if (mCount < EXPIRIES) {
            mHeard[mCount] = now();
            if (++mCount == EXPIRIES) {
                mIsFull.store(true);
            }
        }
    }

    bool isFull() const { return mIsFull.load(); }

    // In seconds; one iteration is the median of them.
    void report(benchmark::State& state) const {
        std::vector<std::int64_t> late;
        for (int i = 0; i < EXPIRIES; ++i) {
            late.push_back(mHeard[i] - mBegin - (i + 1) * INTERVAL_MS * NANOSECONDS);
        }
        std::sort(late.begin(), late.end());
        state.SetIterationTime(static_cast<double>(std::max<std::int64_t>(1, late[EXPIRIES / 2])) /
                               1e9);
        state.counters["p99"] = static_cast<double>(late[EXPIRIES * 99 / 100]) / 1e9;
    }

    void begin() { mBegin = now(); }

private:
    std::int64_t mBegin = 0;
    std::int64_t mHeard[EXPIRIES];
    int mCount = 0;
    std::atomic<bool> mIsFull{false};
};

void await(Hearings const& hearings) {
    while (!hearings.isFull()) {
        usleep(10000);
    }
}

struct Listener : utl::ThreadMsgListener, utl::TimerListener {
    int receiveMsg(int, utl::ThreadRawMsg&) override { return hearings.hear(), 0; }
    void onTime(int) override { hearings.hear(); }
    Hearings hearings;
};

void latenessOfThread(benchmark::State& state) {
    for (auto _ : state) {
        Listener listener;
        utl::MsgDrivenThread thread(8, 64, "bench", 1);
        thread.start(&listener, 0, 0, nullptr, 1, 0, utl::ThreadPriority::NORMAL, 0);
        listener.hearings.begin();
        thread.setTimer(INTERVAL_MS, 0, 0, 1);
        await(listener.hearings);
        listener.hearings.report(state);
        thread.stop(1, 0);
    }
}

void latenessOfShared(benchmark::State& state) {
    for (auto _ : state) {
        Listener listener;
        utl::SharedTimer timer(0, 0, nullptr, 1, "bench");
        int const id = timer.addTimer(&listener, INTERVAL_MS, 0, 1);
        listener.hearings.begin();
        timer.start(id, 0);
        await(listener.hearings);
        listener.hearings.report(state);
        timer.destroy();
    }
}

void latenessOfTimerfd(benchmark::State& state) {
    for (auto _ : state) {
        Hearings hearings;
        int const timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
        std::thread reader([&] {
            std::uint64_t times;
            while (!hearings.isFull() && read(timer, &times, sizeof times) == sizeof times) {
                hearings.hear();
            }
        });
        itimerspec const interval = {{0, INTERVAL_MS * NANOSECONDS},
                                     {0, INTERVAL_MS * NANOSECONDS}};
        hearings.begin();
        timerfd_settime(timer, 0, &interval, nullptr);
        reader.join();
        hearings.report(state);
        close(timer);
    }
}

#ifdef UTL_BENCH_BOOST
void latenessOfAsio(benchmark::State& state) {
    for (auto _ : state) {
        Hearings hearings;
        boost::asio::io_context context;
        boost::asio::steady_timer timer(context);
        std::function<void()> const next = [&] {
            timer.async_wait([&](boost::system::error_code const&) {
                hearings.hear();
                if (!hearings.isFull()) {
                    timer.expires_at(timer.expiry() + std::chrono::milliseconds(INTERVAL_MS));
                    next();
                }
            });
        };
        std::thread runner([&] {
            hearings.begin();
            timer.expires_after(std::chrono::milliseconds(INTERVAL_MS));
            next();
            context.run();
        });
        runner.join();
        hearings.report(state);
    }
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

timer_t makeTimer(long milliseconds) {
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGRTMIN + 5;
    timer_t timer;
    timer_create(CLOCK_MONOTONIC, &event, &timer);
    timespec const interval = {milliseconds / 1000, milliseconds % 1000 * NANOSECONDS};
    itimerspec const both = {interval, interval};
    timer_settime(timer, 0, &both, nullptr);
    return timer;
}

void bareSetAndKill(benchmark::State& state, unsigned long timers) {
    std::vector<timer_t> others;
    for (unsigned long i = 0; i < timers; ++i) {
        others.push_back(makeTimer(3600000));
    }
    for (auto _ : state) {
        timer_delete(makeTimer(3600000));
    }
    for (timer_t const timer : others) {
        timer_delete(timer);
    }
}

double processorTime() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

constexpr int MANY = 60;
constexpr long MANY_INTERVAL_MS = 10;
constexpr unsigned RUNNING_US = 1000000;

struct Deaf : utl::ThreadMsgListener {
    int receiveMsg(int, utl::ThreadRawMsg&) override { return 0; }
};

void running(benchmark::State& state) {
    Deaf listener;
    utl::MsgDrivenThread thread(8, 64, "bench", MANY);
    thread.start(&listener, 0, 0, nullptr, 1, 0, utl::ThreadPriority::NORMAL, 0);
    for (int i = 0; i < MANY; ++i) {
        thread.setTimer(MANY_INTERVAL_MS, 0, 0, 1);
    }
    for (auto _ : state) {
        double const begin = processorTime();
        usleep(RUNNING_US);
        state.SetIterationTime(processorTime() - begin);
    }
    thread.stop(1, 0);
}

int barePipe[2];

// The handler writes to a pipe, which a thread reads.
void bareRunning(benchmark::State& state) {
    if (pipe(barePipe) != 0) {
        std::abort();
    }
    struct sigaction action = {};
    action.sa_handler = [](int) {
        char const byte = 0;
        if (write(barePipe[1], &byte, 1) != 1) {
            std::abort();
        }
    };
    action.sa_flags = SA_RESTART;
    sigaction(SIGRTMIN + 5, &action, nullptr);
    std::thread reader([] {
        char byte;
        while (read(barePipe[0], &byte, 1) == 1 && byte == 0) {
        }
    });
    std::vector<timer_t> timers;
    for (int i = 0; i < MANY; ++i) {
        timers.push_back(makeTimer(MANY_INTERVAL_MS));
    }
    for (auto _ : state) {
        double const begin = processorTime();
        timespec rest = {0, RUNNING_US * 1000L - 1};
        while (nanosleep(&rest, &rest) != 0) {
        }
        state.SetIterationTime(processorTime() - begin);
    }
    for (timer_t const timer : timers) {
        timer_delete(timer);
    }
    char const last = 1;
    if (write(barePipe[1], &last, 1) != 1) {
        std::abort();
    }
    reader.join();
    close(barePipe[0]);
    close(barePipe[1]);
}

void addMeasured(char const* name, void (*run)(benchmark::State&), benchmark::TimeUnit unit) {
    benchmark::RegisterBenchmark(name, run)->UseManualTime()->Iterations(1)->Unit(unit);
}

}  // namespace

int main(int argc, char** argv) {
    setAllFilterLevel(0);
    addMeasured("timers/lateness, 5 ms/utl", latenessOfThread, benchmark::kMicrosecond);
    addMeasured("timers/lateness, 5 ms/utl shared", latenessOfShared, benchmark::kMicrosecond);
    addMeasured("timers/lateness, 5 ms/timerfd", latenessOfTimerfd, benchmark::kMicrosecond);
#ifdef UTL_BENCH_BOOST
    addMeasured("timers/lateness, 5 ms/asio", latenessOfAsio, benchmark::kMicrosecond);
#endif
    addMeasured("timers/60 timers of 10 ms for 1 s/utl", running, benchmark::kMillisecond);
    addMeasured("timers/60 timers of 10 ms for 1 s/bare timers", bareRunning,
                benchmark::kMillisecond);
    for (unsigned long const timers : {10, 100, 1000}) {
        std::string const row = "timers/set and kill beside " + std::to_string(timers);
        benchmark::RegisterBenchmark((row + "/utl").c_str(), setAndKill, timers);
        benchmark::RegisterBenchmark((row + "/bare timers").c_str(), bareSetAndKill, timers);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    utl::ThreadManager::destroy();
}
