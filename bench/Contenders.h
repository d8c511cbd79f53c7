// The contenders of a row: ways to do the same work, timed under `<group>/<row>/<contender>`.
//
//     bench::Row row("text/findStr, 200 bytes", text.size());
//     row.add("utl", [&] { return findStr(text.c_str(), key, 0, &end); });
//     row.add("strstr", [&] { return std::strstr(text.c_str(), key) - text.c_str(); });

#ifndef UTL_BENCH_CONTENDERS_H
#define UTL_BENCH_CONTENDERS_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace bench {

class Row {
public:
    // `bytes` is what each call works through.
    Row(std::string name, unsigned long bytes) : mName(std::move(name)), mBytes(bytes) {}

    // The calls of the row also store the bytes of the result in `output`.
    Row(std::string name, unsigned long bytes, void* output, unsigned long room)
        : mName(std::move(name)), mBytes(bytes), mOutput(static_cast<char*>(output)), mRoom(room) {}

    // `call`, which returns a number, is first checked to have the result of those before it.
    // All that it refers to stays until the program ends.
    template <typename Call>
    void add(char const* contender, Call call) {
        check(contender, [&] { return static_cast<unsigned long>(call()); });
        std::string const name = mName + "/" + contender;
        benchmark::RegisterBenchmark(name.c_str(), [call, bytes = mBytes](benchmark::State& state) {
            for (auto _ : state) {
                benchmark::DoNotOptimize(call());
                benchmark::ClobberMemory();
            }
            state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
        });
    }

private:
    template <typename Call>
    void check(char const* contender, Call call) {
        if (mRoom != 0) {
            std::memset(mOutput, '#', mRoom);
        }
        unsigned long const result = call();
        std::string output(mOutput, mRoom != 0 ? result : 0);
        if (mIsFirst) {
            mResult = result;
            mFirstOutput = output;
            mIsFirst = false;
        } else if (result != mResult || output != mFirstOutput) {
            std::fprintf(stderr, "%s/%s has another result\n", mName.c_str(), contender);
            std::exit(1);
        }
    }

    std::string const mName;
    unsigned long const mBytes;
    char* const mOutput = nullptr;
    unsigned long const mRoom = 0;
    bool mIsFirst = true;
    unsigned long mResult = 0;
    std::string mFirstOutput;
};

}  // namespace bench

#endif  // UTL_BENCH_CONTENDERS_H
