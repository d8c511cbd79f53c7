// The conversions of whole texts beside iconv() of the C library, which knows the same code page.
// The argument is the number of characters.

#include <benchmark/benchmark.h>
#include <iconv.h>

#include <string>
#include <vector>

#include "UtlCharSet.h"

#include "Ratio.h"

namespace {

using namespace utl;

// `own(dst, size, src)` beside iconv() with the handle open and the same room.
template <typename Unit, typename Source>
void compareWithIconv(benchmark::State& state, std::vector<Source> src,
                      unsigned long (*own)(Unit*, unsigned long, Source const*), char const* to,
                      char const* from) {
    iconv_t const handle = iconv_open(to, from);
    if (handle == reinterpret_cast<iconv_t>(-1)) {
        state.SkipWithError("the C library does not know the character set");
        return;
    }
    std::vector<Unit> dst(3 * src.size());
    auto const peer = [&] {
        char* in = reinterpret_cast<char*>(src.data());
        char* out = reinterpret_cast<char*>(dst.data());
        std::size_t inLeft = src.size() * sizeof(Source);
        std::size_t outLeft = dst.size() * sizeof(Unit);
        return iconv(handle, &in, &inLeft, &out, &outLeft);
    };
    if (own(dst.data(), dst.size(), src.data()) == NONE || peer() != 0) {
        state.SkipWithError("a side refuses the text");
    }

    bench::compare(
        state, [&] { return own(dst.data(), dst.size(), src.data()); }, peer);
    iconv_close(handle);
}

// Half ASCII, half Japanese, with its terminator.
template <typename Source, typename Text>
std::vector<Source> repeat(benchmark::State const& state, Text const& piece) {
    std::vector<Source> text;
    for (long characters = 0; characters < state.range(0); characters += 16) {
        text.insert(text.end(), piece.begin(), piece.end());
    }
    text.push_back(0);
    return text;
}

std::string const SJIS = "title 7 \x82\xA0\x8A\xBF\x8E\x9A\xB1\xB2\x83\x41\x93\xFA\x96\x7B";
std::string const UTF8 = "title 7 \u3042\u6F22\u5B57\uFF71\uFF72\u30A2\u65E5\u672C";
std::u16string const UTF16 = u"title 7 \u3042\u6F22\u5B57\uFF71\uFF72\u30A2\u65E5\u672C";

void sjisToUtf8(benchmark::State& state) {
    compareWithIconv(state, repeat<char>(state, SJIS), convertStrFromSjisToUtf8, "UTF-8", "CP932");
}

void sjisToUtf16(benchmark::State& state) {
    compareWithIconv(state, repeat<char>(state, SJIS), convertStrFromSjisToUtf16, "UTF-16LE",
                     "CP932");
}

void utf16ToUtf8(benchmark::State& state) {
    compareWithIconv(state, repeat<unsigned short>(state, UTF16), convertStrFromUtf16ToUtf8,
                     "UTF-8", "UTF-16LE");
}

void utf8ToUtf16(benchmark::State& state) {
    compareWithIconv(state, repeat<char>(state, UTF8), convertStrFromUtf8ToUtf16, "UTF-16LE",
                     "UTF-8");
}

BENCHMARK(sjisToUtf8)->Range(16, 4096);
BENCHMARK(sjisToUtf16)->Range(16, 4096);
BENCHMARK(utf16ToUtf8)->Range(16, 4096);
BENCHMARK(utf8ToUtf16)->Range(16, 4096);

}  // namespace

BENCHMARK_MAIN();
