// What an operation costs when there is more of everything. The contenders are the library itself
// at other sizes; the row's own figure is that of the size in its name.

#include <benchmark/benchmark.h>

#include <string>
#include <thread>
#include <vector>

#include "Loops.h"
#include "UtlEvent.h"
#include "UtlLog.h"
#include "UtlStatementInfo.h"
#include "UtlThreadManager.h"

namespace {

using namespace bench;

constexpr long MESSAGES = 128000;
constexpr unsigned long MOST_REGISTERED = 4096;

void post(benchmark::State& state, long senders, unsigned long room) {
    Utl loop(room);
    long posted = 0;
    for (auto _ : state) {
        utl::Event isOpen(0, 0);
        std::vector<std::thread> threads;
        for (long i = 0; i < senders; ++i) {
            threads.emplace_back([&] {
                isOpen.waitToOn(0);
                postAll(loop, MESSAGES / senders);
            });
        }
        std::int64_t const begin = now();
        isOpen.setOn();
        posted += MESSAGES;
        for (std::thread& thread : threads) {
            thread.join();  // who waits takes no processor from them
        }
        loop.await(posted);
        state.SetIterationTime(static_cast<double>(now() - begin) / 1e9);
    }
    state.SetItemsProcessed(posted);
}

void addPosting(std::string const& contender, long senders, unsigned long room) {
    benchmark::RegisterBenchmark(("growth/" + contender).c_str(), post, senders, room)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

// A thread that is watched and does nothing.
class Watched : public utl::Thread {
public:
    Watched() : Thread("watched", nullptr) {
        start(1, 600000, nullptr, 1, 0, utl::ThreadPriority::NORMAL, 0);
        startWatchdog();
    }
    ~Watched() override { stop(1, 0); }

protected:
    int execute() override {
        waitTo(STOP_REQUESTED, 0);
        return 0;
    }
};

// The reporting thread is the first that was registered.
void report(benchmark::State& state, unsigned long registered) {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    std::vector<std::unique_ptr<Watched>> others;
    while (others.size() + 1 < registered) {
        others.push_back(std::make_unique<Watched>());
    }
    utl::StatementInfo const here("growth_bench", "report", 1, 0);
    if (!manager->keepAliveWatchdog(here)) {
        state.SkipWithError("not registered");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(manager->keepAliveWatchdog(here));
    }
}

void addReporting(std::string const& contender, unsigned long registered) {
    benchmark::RegisterBenchmark(("growth/keep-alive report, 1 registered/" + contender).c_str(),
                                 report, registered);
}

}  // namespace

int main(int argc, char** argv) {
    setAllFilterLevel(0);  // a full queue is part of the run
    utl::ThreadManager::initializeEntryMax(MOST_REGISTERED + 16);
    utl::ThreadManager::get()->entryCaller(1, 600000, nullptr, "reports");
    utl::ThreadManager::get()->startWatchdog(0);
    for (long const senders : {1, 8, 64}) {
        addPosting("post, 1 thread/" +
                       (senders == 1 ? std::string("utl") : std::to_string(senders) + " threads"),
                   senders, ROOM);
    }
    for (unsigned long const room : {16, 1024, 65536}) {
        addPosting(
            "post, room for 1024/" + (room == ROOM ? std::string("utl") : std::to_string(room)), 1,
            room);
    }
    for (unsigned long const registered : {1ul, 64ul, 1024ul, MOST_REGISTERED}) {
        addReporting(registered == 1 ? "utl" : std::to_string(registered), registered);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    utl::ThreadManager::destroy();
}
