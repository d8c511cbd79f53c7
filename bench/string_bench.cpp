// The string functions beside their plain quadratic forms and what the C and C++ libraries offer.
// The argument is the length of the text.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "UtlString.h"

#include "Ratio.h"
#include "support/PlainStrings.h"

namespace {

using namespace utl;
using bench::compare;

// `length` bytes, or a few less, of Latin and Japanese text with a "-" in every 32nd place or so.
std::string makeText(benchmark::State const& state) {
    std::string text;
    while (text.size() + 32 <= static_cast<unsigned long>(state.range(0))) {
        text += "title \xE3\x81\x82\xE3\x81\x84\xE3\x81\x86 caf\xC3\xA9 number 7-";
    }
    return text;
}

constexpr char LAST[] = "the last words";

void findStrBesidePlain(benchmark::State& state) {
    std::string const text = makeText(state) + LAST;
    unsigned long end = 0;
    compare(
        state, [&] { return findStr(text.c_str(), LAST, 0, &end); },
        [&] { return plain::find(text, LAST, 0, &end); });
}

void findStrBesideStdString(benchmark::State& state) {
    std::string const text = makeText(state) + LAST;
    unsigned long end = 0;
    compare(
        state, [&] { return findStr(text.c_str(), LAST, 0, &end); },
        [&] { return text.find(LAST); });
}

void findReverseStrBesidePlain(benchmark::State& state) {
    std::string const text = LAST + makeText(state);
    unsigned long end = 0;
    compare(
        state, [&] { return findReverseStr(text.c_str(), LAST, ALL, &end); },
        [&] { return plain::findReverse(text, LAST, ALL, &end); });
}

void replaceStrBesidePlain(benchmark::State& state) {
    std::string const text = makeText(state);
    std::vector<char> buffer(2 * text.size() + 1);
    compare(
        state,
        [&] {
            std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
            return replaceStr(buffer.data(), buffer.size(), "-", "+++", WHOLE);
        },
        [&] { return plain::Buffer(buffer.size(), "").replace(text, "-", "+++", WHOLE); });
}

void replaceStrBesideStdString(benchmark::State& state) {
    std::string const text = makeText(state);
    std::vector<char> buffer(2 * text.size() + 1);
    compare(
        state,
        [&] {
            std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
            return replaceStr(buffer.data(), buffer.size(), "-", "+++", WHOLE);
        },
        [&] {
            std::string replaced = text;
            for (auto at = replaced.find('-'); at != std::string::npos;
                 at = replaced.find('-', at + 3)) {
                replaced.replace(at, 1, "+++");
            }
            return replaced.size();
        });
}

void reverseStrBesidePlain(benchmark::State& state) {
    std::string const text = makeText(state);
    std::vector<char> buffer(text.size() + 1);
    compare(
        state, [&] { return reverseStr(buffer.data(), buffer.size(), text.c_str(), WHOLE); },
        [&] { return plain::reverse(text); });
}

void truncateStrBesidePlain(benchmark::State& state) {
    std::string const text = makeText(state);
    std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
    compare(
        state, [&] { return truncateStr(buffer.data(), text.size()); },
        [&] { return plain::truncate(text, text.size()); });
}

// What the switch costs: the peer neither measures nor cuts on a character.
void copyStrBesideSnprintf(benchmark::State& state) {
    std::string const text = makeText(state);
    std::vector<char> buffer(text.size() + 1);
    compare(
        state, [&] { return copyStr(buffer.data(), buffer.size(), text.c_str(), ALL, WHOLE); },
        [&] { return std::snprintf(buffer.data(), buffer.size(), "%s", text.c_str()); });
}

void copyStrCutBesideSnprintf(benchmark::State& state) {
    std::string const text = makeText(state);
    std::vector<char> buffer(text.size() / 2 + 1);
    compare(
        state, [&] { return copyStr(buffer.data(), buffer.size(), text.c_str(), ALL, TRUNCATE); },
        [&] { return std::snprintf(buffer.data(), buffer.size(), "%s", text.c_str()); });
}

void compareStrNoCaseBesidePlain(benchmark::State& state) {
    std::string const text = makeText(state);
    std::string other = text;
    other[0] = 'T';
    compare(
        state, [&] { return compareStrNoCase(text.c_str(), other.c_str(), ALL); },
        [&] { return plain::compareNoCase(text, other, ALL); });
}

BENCHMARK(findStrBesidePlain)->Range(64, 4096);
BENCHMARK(findStrBesideStdString)->Range(64, 4096);
BENCHMARK(findReverseStrBesidePlain)->Range(64, 4096);
BENCHMARK(replaceStrBesidePlain)->Range(64, 4096);
BENCHMARK(replaceStrBesideStdString)->Range(64, 4096);
BENCHMARK(reverseStrBesidePlain)->Range(64, 4096);
BENCHMARK(truncateStrBesidePlain)->Range(64, 4096);
BENCHMARK(copyStrBesideSnprintf)->Range(64, 4096);
BENCHMARK(copyStrCutBesideSnprintf)->Range(64, 4096);
BENCHMARK(compareStrNoCaseBesidePlain)->Range(64, 4096);

}  // namespace

BENCHMARK_MAIN();
