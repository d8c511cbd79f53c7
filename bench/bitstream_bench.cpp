// The bit stream beside its plain form, which goes bit by bit. The first argument is the number of
// bits; the second one is the distance of the first bit from a byte boundary.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "UtlBitStream.h"

#include "Ratio.h"

namespace {

using namespace utl;

constexpr unsigned long SIZE = 8192;  // of the buffer, in bytes

struct Transfer {
    explicit Transfer(benchmark::State const& state)
        : bits(static_cast<unsigned long>(state.range(0))),
          begin(static_cast<unsigned long>(state.range(1))) {}

    // The first bit of the next access: one after the other through the buffer.
    unsigned long next() {
        at += (bits + 7) / 8 * 8;
        at = at + bits <= 8 * SIZE ? at : begin;
        return at;
    }

    unsigned long const bits;
    unsigned long const begin;
    unsigned long at = begin;
    std::vector<unsigned char> buffer = std::vector<unsigned char>(SIZE, 0xA5);
    std::vector<unsigned char> data = std::vector<unsigned char>(SIZE, 0x3C);
    BitStream stream{buffer.data(), SIZE};
};

// The plain forms, with the bounds that the library checks.

bool getBit(unsigned char const* bytes, unsigned long at) {
    return (bytes[at / 8] & 0x80 >> at % 8) != 0;
}

void putBit(unsigned char* bytes, unsigned long at, bool bit) {
    int const mask = 0x80 >> at % 8;
    bytes[at / 8] = static_cast<unsigned char>((bytes[at / 8] & ~mask) | (bit ? mask : 0));
}

[[gnu::noinline]] std::uint64_t readPlain(Transfer const& run, unsigned long at) {
    std::uint64_t value = 0;
    for (unsigned long i = at; i < at + run.bits && i < 8 * SIZE; ++i) {
        value = value * 2 + (getBit(run.buffer.data(), i) ? 1 : 0);
    }
    return value;
}

[[gnu::noinline]] int writePlain(Transfer& run, unsigned long at, std::uint64_t value) {
    for (unsigned long i = run.bits; i > 0 && at < 8 * SIZE; --i) {
        putBit(run.buffer.data(), at++, (value >> (i - 1) & 1) != 0);
    }
    return 0;
}

[[gnu::noinline]] int copyPlain(unsigned char* dst, unsigned long to, unsigned char const* src,
                                unsigned long from, unsigned long bits) {
    for (unsigned long i = bits; i > 0; --i) {  // from the end, so that they may overlap
        putBit(dst, to + i - 1, getBit(src, from + i - 1));
    }
    return 0;
}

void readField(benchmark::State& state) {
    Transfer run(state);
    bench::compare(
        state, [&] { return run.stream.readBitToUint64(run.bits, static_cast<int>(run.next())); },
        [&] { return readPlain(run, run.next()); });
}

void writeField(benchmark::State& state) {
    Transfer run(state);
    bench::compare(
        state,
        [&] {
            run.stream.writeBitToUint64(run.at, run.bits, static_cast<int>(run.next()));
            return 0;
        },
        [&] { return writePlain(run, run.next(), run.at); });
}

void readBitData(benchmark::State& state) {
    Transfer run(state);
    bench::compare(
        state,
        [&] {
            run.stream.readBitData(run.data.data(), run.bits, static_cast<int>(run.next()));
            return 0;
        },
        [&] { return copyPlain(run.data.data(), 0, run.buffer.data(), run.next(), run.bits); });
}

void writeBitData(benchmark::State& state) {
    Transfer run(state);
    bench::compare(
        state,
        [&] {
            run.stream.writeBitData(run.data.data(), run.bits, static_cast<int>(run.next()));
            return 0;
        },
        [&] { return copyPlain(run.buffer.data(), run.next(), run.data.data(), 0, run.bits); });
}

// A byte on and more in its own buffer, so that it begins with the last bits.
void copyToItself(benchmark::State& state) {
    Transfer run(state);
    unsigned long const to = 8 + run.begin;
    bench::compare(
        state,
        [&] {
            run.stream.setBitStream(run.buffer.data(), SIZE);
            run.stream.seekBitOffset(run.bits, BitStream::FROM_START);
            run.stream.copy(run.stream, static_cast<int>(to));
            return 0;
        },
        [&] { return copyPlain(run.buffer.data(), to, run.buffer.data(), 0, run.bits); });
}

void fields(benchmark::internal::Benchmark* fields) {
    fields->ArgsProduct({{1, 8, 13, 32, 64}, {0, 3}});
}

void bulk(benchmark::internal::Benchmark* bulk) {
    bulk->ArgsProduct({{8 * 16, 8 * 256 + 5, 8 * 4096}, {0, 3}});
}

BENCHMARK(readField)->Apply(fields);
BENCHMARK(writeField)->Apply(fields);
BENCHMARK(readBitData)->Apply(bulk);
BENCHMARK(writeBitData)->Apply(bulk);
BENCHMARK(copyToItself)->Apply(bulk);

}  // namespace

BENCHMARK_MAIN();
