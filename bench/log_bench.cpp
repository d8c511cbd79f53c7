// The log beside other loggers: a line of 60 bytes into a sink that does nothing, and one that the
// filter drops. All format the same number. "limit" does only what cannot be left out: vsnprintf()
// behind a prefix, and the look at a filter behind a call.

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "UtlLog.h"

#ifdef UTL_BENCH_SPDLOG
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#endif
#ifdef UTL_BENCH_FMT
#include <fmt/format.h>
#endif

// Takes the place of the library's own sink.
extern "C" int __android_log_print(int, char const*, char const*, ...) {
    return 0;
}

namespace {

constexpr int TYPE = 7;
constexpr int DETAIL = 3;
constexpr int DEBUG = 4;
constexpr char FORMAT[] = "connection %d is accepted from the next port";

int number = 12345;

// One contender: `log(level)` logs the line.
template <typename Log>
void run(char const* contender, Log log) {
    for (int const level : {DETAIL, DEBUG}) {
        std::string const row = level == DETAIL ? "log/written/" : "log/filtered/";
        benchmark::RegisterBenchmark((row + contender).c_str(),
                                     [log, level](benchmark::State& state) {
                                         for (auto _ : state) {
                                             benchmark::DoNotOptimize(number);
                                             log(level);
                                             benchmark::ClobberMemory();
                                         }
                                     });
    }
}

std::atomic<int> filter{DETAIL};
char line[256];

[[gnu::noinline, gnu::format(printf, 2, 3)]] void logLimit(int level, char const* format, ...) {
    if (filter.load(std::memory_order_relaxed) < level) {
        return;
    }
    char const prefix[] = "<NET> DTL: ";
    std::memcpy(line, prefix, sizeof prefix);
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line + sizeof prefix - 1, sizeof line - sizeof prefix, format, arguments);
    va_end(arguments);
}

#ifdef UTL_BENCH_SPDLOG
void runSpdlog() {
    static auto const logger = spdlog::create<spdlog::sinks::null_sink_mt>("NET");
    logger->set_level(spdlog::level::debug);
    run("spdlog", [](int level) {
        logger->log(level == DETAIL ? spdlog::level::debug : spdlog::level::trace,
                    "connection {} is accepted from the next port", number);
    });
}
#endif

#ifdef UTL_BENCH_FMT
void runFmt() {
    run("fmt", [](int level) {
        if (filter.load(std::memory_order_relaxed) >= level) {
            *fmt::format_to_n(line, sizeof line,
                              "{}{}connection {} is accepted from the next port\r\n", "<NET> ",
                              "DTL: ", number)
                 .out = '\0';
        }
    });
}
#endif

#ifdef UTL_BENCH_LIBLOG
// Android's, loaded by hand: it has a function of the same name as the sink above.
void runLiblog() {
    void* const library = dlopen(UTL_BENCH_LIBLOG, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    if (library == nullptr) {
        return;
    }
    using SetLogger = void (*)(void (*)(void const*));
    using SetPriority = int (*)(int);
    using Print = int (*)(int, char const*, char const*, ...);
    auto const setLogger = reinterpret_cast<SetLogger>(dlsym(library, "__android_log_set_logger"));
    auto const setPriority =
        reinterpret_cast<SetPriority>(dlsym(library, "__android_log_set_minimum_priority"));
    static auto const print = reinterpret_cast<Print>(dlsym(library, "__android_log_print"));
    if (setLogger == nullptr || setPriority == nullptr || print == nullptr) {
        return;
    }
    constexpr int LOWEST = 3;  // debug
    setLogger([](void const*) {});
    setPriority(LOWEST);
    run("liblog",
        [](int level) { print(level == DETAIL ? LOWEST : LOWEST - 1, "NET", FORMAT, number); });
}
#endif

}  // namespace

int main(int argc, char** argv) {
    // Locks cost less as long as a program has one thread only.
    std::thread([] { pause(); }).detach();
    registerLogType(TYPE, "<NET> ", DETAIL);
    run("utl", [](int level) { applog(TYPE, level, FORMAT, number); });
    run("limit", [](int level) { logLimit(level, FORMAT, number); });
#ifdef UTL_BENCH_SPDLOG
    runSpdlog();
#endif
#ifdef UTL_BENCH_FMT
    runFmt();
#endif
#ifdef UTL_BENCH_LIBLOG
    runLiblog();
#endif

    // The contenders take turns, so that a noisy machine hits all alike.
    char turns[] = "--benchmark_enable_random_interleaving=true";
    char rounds[] = "--benchmark_repetitions=9";
    std::vector<char*> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1, {turns, rounds});
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    benchmark::RunSpecifiedBenchmarks();
}
