// A message-driven thread beside the loops of others: messages that are posted as fast as they are
// taken, wake-ups of a loop that sleeps, and round trips.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "Loops.h"
#include "UtlLog.h"
#include "UtlThreadManager.h"

namespace {

using namespace bench;

template <typename Loop>
void wakeUp(benchmark::State& state, bool isTogether) {
    Loop loop;
    loop.measuresArrival = true;
    typename Loop::Sender sender(loop);
    long posted = 0;
    latency(state, isTogether, [&] {
        std::this_thread::sleep_for(std::chrono::microseconds(60));  // the loop is asleep again
        std::int64_t const begin = now();
        sender.post();
        loop.await(++posted);
        return loop.arrivedAt() - begin;
    });
}

// How often the other threads of the process have left the processor to wait for something.
long waits() {
    long sum = 0;
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        std::string word;
        while (status >> word && word != "voluntary_ctxt_switches:") {
        }
        long count = 0;
        status >> count;
        sum += task.path().filename() != std::to_string(getpid()) ? count : 0;
    }
    return sum;
}

// The time says nothing; the counter how often any of them was woken.
void idle(benchmark::State& state) {
    std::vector<std::unique_ptr<Utl>> loops;
    for (int i = 0; i < 32; ++i) {
        loops.push_back(std::make_unique<Utl>());
        typename Utl::Sender(*loops.back()).send();
    }
    // By then the watchdog has found that there is nobody to watch, and rests.
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    long const before = waits();
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::seconds(10));
    }
    state.counters["wake-ups"] = static_cast<double>(waits() - before);
}

template <typename Loop>
void registerPosting() {
    for (long const senders : {1, 4}) {
        std::string const name = "messaging/post, " + std::to_string(senders) +
                                 (senders == 1 ? " sender/" : " senders/") + Loop::NAME;
        benchmark::RegisterBenchmark(name.c_str(), post<Loop>, senders)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    }
    registerLatency("messaging/wake-up", Loop::NAME, wakeUp<Loop>);
}

template <typename Loop>
void registerRoundTrip() {
    registerLatency("messaging/synchronous send", Loop::NAME, roundTrip<Loop>);
}

}  // namespace

int main(int argc, char** argv) {
    setAllFilterLevel(0);  // a full queue is part of the run
    registerPosting<Utl>();
    registerPosting<Pipe>();
    registerRoundTrip<Utl>();
    registerRoundTrip<Pipe>();
    benchmark::RegisterBenchmark("messaging/idle, 32 threads, 10 s/utl", idle)
        ->UseRealTime()
        ->Iterations(1)
        ->Unit(benchmark::kSecond);
#ifdef UTL_BENCH_UV
    registerPosting<Uv>();
#endif
#ifdef UTL_BENCH_BOOST
    registerPosting<Asio>();
    registerRoundTrip<Asio>();
#endif
#ifdef UTL_BENCH_GLIB
    registerPosting<Glib>();
#endif
#ifdef UTL_BENCH_LOOPER
    registerPosting<AndroidLooper>();
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    utl::ThreadManager::destroy();
}
