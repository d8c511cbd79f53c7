// What every thread does again and again: an event that is set and seen, a report to the watchdog.

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <mutex>
#include <thread>
#include <vector>

#include "Contenders.h"
#include "UtlEvent.h"
#include "UtlLog.h"
#include "UtlStatementInfo.h"
#include "UtlThreadManager.h"

namespace {

void addEvent() {
    static utl::Event event(0, 0);
    static std::recursive_mutex mutex;
    static bool isOn = false;
    bench::Row row("core/event set and seen", 0);
    row.add("utl", [] {
        event.setOn();
        return event.isOn();
    });
    // The least that sets and sees something under a lock.
    row.add("recursive mutex", [] {
        std::lock_guard<std::recursive_mutex> const guard(mutex);
        isOn = true;
        return isOn;
    });
}

void addKeepAlive() {
    utl::ThreadManager* const manager = utl::ThreadManager::get();
    for (int i = 0; i < 31; ++i) {
        std::thread([manager] {
            manager->entryCaller(1, 60000, nullptr, "registered");
            pause();
        }).detach();
    }
    manager->entryCaller(1, 60000, nullptr, "reports");
    manager->startWatchdog(0);
    static utl::StatementInfo const here("core_bench", "addKeepAlive", 1, 0);
    static std::mutex mutex;
    static timespec last;
    bench::Row row("core/keep-alive report, 32 registered", 0);
    row.add("utl", [manager] { return manager->keepAliveWatchdog(here); });
    row.add("lock and clock", [] {
        std::lock_guard<std::mutex> const guard(mutex);
        return clock_gettime(CLOCK_MONOTONIC, &last) == 0;
    });
}

}  // namespace

int main(int argc, char** argv) {
    setAllFilterLevel(0);
    addEvent();
    addKeepAlive();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
