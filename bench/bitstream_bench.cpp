// Bit fields of 1 to 32 bits one after another, beside the plain form, which goes bit by bit, and
// beside words: the field in one big-endian number of 64 bits, without any bounds.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "UtlBitStream.h"

namespace {

using utl::BitStream;

constexpr unsigned long FIELDS = 10000000;
constexpr unsigned long SLACK = 8;  // a word may reach behind the last field

struct Fields {
    Fields() : widths(FIELDS), values(FIELDS) {
        std::mt19937 random(8);
        unsigned long bits = 0;
        for (unsigned long i = 0; i < FIELDS; ++i) {
            widths[i] = static_cast<unsigned char>(1 + random() % 32);
            values[i] = static_cast<std::uint32_t>(random() >> (32 - widths[i]));
            bits += widths[i];
        }
        bytes.resize((bits + 7) / 8 + SLACK);
    }

    std::vector<unsigned char> widths;
    std::vector<std::uint32_t> values;
    std::vector<unsigned char> bytes;
};

Fields& fields() {
    static Fields all;
    return all;
}

// The writers fill the buffer with the values; the readers return what these come to.

std::uint64_t writeByStream(Fields& all) {
    BitStream stream(all.bytes.data(), all.bytes.size());
    for (unsigned long i = 0; i < FIELDS; ++i) {
        stream.writeBitToUint32(all.values[i], all.widths[i], BitStream::CURRENT);
    }
    return stream.getBitStreamBitSize();
}

std::uint64_t readByStream(Fields& all) {
    BitStream stream(all.bytes.data(), all.bytes.size());
    std::uint64_t sum = 0;
    for (unsigned long i = 0; i < FIELDS; ++i) {
        sum = sum * 3 + stream.readBitToUint32(all.widths[i], BitStream::CURRENT);
    }
    return sum;
}

std::uint64_t writeBitByBit(Fields& all) {
    unsigned long at = 0;
    for (unsigned long i = 0; i < FIELDS; ++i) {
        for (unsigned bit = all.widths[i]; bit > 0; --bit, ++at) {
            int const mask = 0x80 >> at % 8;
            bool const isSet = (all.values[i] >> (bit - 1) & 1) != 0;
            all.bytes[at / 8] =
                static_cast<unsigned char>((all.bytes[at / 8] & ~mask) | (isSet ? mask : 0));
        }
    }
    return at;
}

std::uint64_t readBitByBit(Fields& all) {
    unsigned long at = 0;
    std::uint64_t sum = 0;
    for (unsigned long i = 0; i < FIELDS; ++i) {
        std::uint32_t value = 0;
        for (unsigned bit = all.widths[i]; bit > 0; --bit, ++at) {
            value = value << 1 | (all.bytes[at / 8] >> (7 - at % 8) & 1u);
        }
        sum = sum * 3 + value;
    }
    return sum;
}

std::uint64_t loadWord(unsigned char const* bytes) {
    std::uint64_t word;
    __builtin_memcpy(&word, bytes, sizeof word);
    return __builtin_bswap64(word);
}

void storeWord(unsigned char* bytes, std::uint64_t word) {
    word = __builtin_bswap64(word);
    __builtin_memcpy(bytes, &word, sizeof word);
}

std::uint64_t writeByWords(Fields& all) {
    unsigned long at = 0;
    for (unsigned long i = 0; i < FIELDS; ++i) {
        unsigned const width = all.widths[i];
        unsigned const below = 64 - static_cast<unsigned>(at % 8) - width;
        std::uint64_t const mask = ((std::uint64_t{1} << width) - 1) << below;
        unsigned char* const bytes = &all.bytes[at / 8];
        storeWord(bytes, (loadWord(bytes) & ~mask) | std::uint64_t{all.values[i]} << below);
        at += width;
    }
    return at;
}

std::uint64_t readByWords(Fields& all) {
    unsigned long at = 0;
    std::uint64_t sum = 0;
    for (unsigned long i = 0; i < FIELDS; ++i) {
        sum = sum * 3 + (loadWord(&all.bytes[at / 8]) << at % 8 >> (64 - all.widths[i]));
        at += all.widths[i];
    }
    return sum;
}

void run(benchmark::State& state, std::uint64_t (*work)(Fields&)) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(work(fields()));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(FIELDS));
}

struct Contender {
    char const* name;
    std::uint64_t (*write)(Fields&);
    std::uint64_t (*read)(Fields&);
};

constexpr Contender CONTENDERS[] = {
    {"utl", writeByStream, readByStream},
    {"bit by bit", writeBitByBit, readBitByBit},
    {"words", writeByWords, readByWords},
};

// Each reads what each has written.
bool agree() {
    std::uint64_t const bits = writeBitByBit(fields());
    std::uint64_t const sum = readBitByBit(fields());
    for (Contender const& contender : CONTENDERS) {
        fields().bytes.assign(fields().bytes.size(), 0xFF);
        if (contender.write(fields()) != bits || readBitByBit(fields()) != sum ||
            contender.read(fields()) != sum) {
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (!agree()) {
        return EXIT_FAILURE;
    }
    for (Contender const& contender : CONTENDERS) {
        auto const add = [&](char const* row, std::uint64_t (*work)(Fields&)) {
            std::string const name = std::string("bit stream/") + row + "/" + contender.name;
            benchmark::RegisterBenchmark(name.c_str(), run, work)->Unit(benchmark::kMillisecond);
        };
        add("read, 1 to 32 bits", contender.read);
        add("write, 1 to 32 bits", contender.write);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
