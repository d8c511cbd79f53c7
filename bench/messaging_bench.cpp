// A message-driven thread beside the loops of others: messages that are posted as fast as they are
// taken, wake-ups of a loop that sleeps, and round trips.

#include <benchmark/benchmark.h>

#include <string>
#include <thread>

#include "Loops.h"
#include "UtlLog.h"
#include "UtlThreadManager.h"

namespace {

using namespace bench;

template <typename Loop>
void wakeUp(benchmark::State& state) {
    Loop loop;
    loop.measuresArrival = true;
    typename Loop::Sender sender(loop);
    long posted = 0;
    latency(state, [&] {
        std::this_thread::sleep_for(std::chrono::microseconds(60));  // the loop is asleep again
        std::int64_t const begin = now();
        sender.post();
        loop.await(++posted);
        return loop.arrivedAt.load(std::memory_order_relaxed) - begin;
    });
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
    benchmark::RegisterBenchmark((std::string("messaging/wake-up/") + Loop::NAME).c_str(),
                                 wakeUp<Loop>)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMicrosecond);
}

template <typename Loop>
void registerRoundTrip() {
    benchmark::RegisterBenchmark((std::string("messaging/synchronous send/") + Loop::NAME).c_str(),
                                 roundTrip<Loop>)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
    setAllFilterLevel(0);  // a full queue is part of the run
    registerPosting<Utl>();
    registerPosting<Pipe>();
    registerRoundTrip<Utl>();
    registerRoundTrip<Pipe>();
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
