// Times two ways to do the same beside each other, so that their ratio holds on a machine whose
// speed changes from one second to the next.

#ifndef UTL_BENCH_RATIO_H
#define UTL_BENCH_RATIO_H

#include <benchmark/benchmark.h>

#include <chrono>

namespace bench {

constexpr int BATCH = 64;  // calls for one reading of the clock

template <typename Call>
double secondsOf(Call& call) {
    using Clock = std::chrono::steady_clock;
    Clock::time_point const begin = Clock::now();
    for (int i = 0; i < BATCH; ++i) {
        benchmark::DoNotOptimize(call());
        benchmark::ClobberMemory();
    }
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// Calls both sides in turn; each returns what its work comes to. Reports the nanoseconds of one
// call to `own` and, as a multiple of that, of one to `peer`.
template <typename Own, typename Peer>
void compare(benchmark::State& state, Own own, Peer peer) {
    double ownTime = 0;
    double peerTime = 0;
    for (auto _ : state) {
        ownTime += secondsOf(own);
        peerTime += secondsOf(peer);
    }
    state.counters["utl_ns"] = 1e9 * ownTime / BATCH / static_cast<double>(state.iterations());
    state.counters["peer/utl"] = peerTime / ownTime;
}

}  // namespace bench

#endif  // UTL_BENCH_RATIO_H
