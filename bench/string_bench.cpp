// The string functions beside what the C and C++ libraries, GLib, ICU and boost have for the same
// work. "limit" knows the lengths and does nothing but the work: it neither looks for malformed
// text nor cuts on a character. The texts are Japanese where nothing else is said.

#include <benchmark/benchmark.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#ifdef UTL_BENCH_BOOST
#include <boost/algorithm/string/replace.hpp>
#endif
#ifdef UTL_BENCH_GLIB
#include <glib.h>
#endif
#ifdef UTL_BENCH_ICU
#include <unicode/ucasemap.h>
#include <unicode/ustring.h>
#endif

#include "UtlCharTable.h"
#include "UtlString.h"

#include "Contenders.h"
#include "JapaneseText.h"

namespace {

using namespace utl;

// As long as the rows, whose calls refer to it.
template <typename T>
T& keep(T value) {
    return *new T(std::move(value));
}

// At most `bytes` of text, and 2 less at the least.
std::string makeLine(unsigned long bytes) {
    std::string text = bench::makeJapaneseText(bytes + 64);
    text.resize(getNearCharIndex(text.c_str(), bytes, 1));
    return text;
}

// Where the byte of the pattern is that the text has least.
unsigned long rarestByte(std::string const& text, std::string const& pattern) {
    auto const frequency = [&text](char c) { return std::count(text.begin(), text.end(), c); };
    auto const rarest = std::min_element(pattern.begin(), pattern.end(), [&](char a, char b) {
        return frequency(a) < frequency(b);
    });
    return static_cast<unsigned long>(rarest - pattern.begin());
}

// Looks for the byte at `rare` of the pattern.
unsigned long limitFind(std::string const& text, std::string const& pattern, unsigned long rare) {
    char const* const end = text.data() + text.size() - pattern.size() + rare + 1;
    char const* s = text.data() + rare;
    while ((s = static_cast<char const*>(
                std::memchr(s, pattern[rare], static_cast<std::size_t>(end - s)))) != nullptr) {
        if (std::memcmp(s - rare, pattern.data(), pattern.size()) == 0) {
            return static_cast<unsigned long>(s - rare - text.data());
        }
        ++s;
    }
    return NONE;
}

// The pattern stands at the end of the text.
void addFindStr(std::string const& name, std::string const& text, std::string const& pattern) {
    auto const indexOf = [&text](void const* match) {
        return static_cast<unsigned long>(static_cast<char const*>(match) - text.c_str());
    };
    bench::Row row("text/findStr, " + name, text.size());
    row.add("utl", [&] {
        unsigned long end = 0;
        return findStr(text.c_str(), pattern.c_str(), 0, &end);
    });
    row.add("strstr",
            [=, &text, &pattern] { return indexOf(std::strstr(text.c_str(), pattern.c_str())); });
    row.add("std::string", [&] { return text.find(pattern); });
    row.add("memmem", [=, &text, &pattern] {
        return indexOf(memmem(text.data(), text.size(), pattern.data(), pattern.size()));
    });
    unsigned long const rare = rarestByte(text, pattern);
    row.add("limit", [=, &text, &pattern] { return limitFind(text, pattern, rare); });
}

void addFindStr() {
    auto const& japanese = keep(std::string("\u306C\u3044\u3050\u308B\u307F"));
    auto const& ascii = keep(std::string("last words"));
    for (unsigned long const bytes : {65536UL, 200UL}) {
        std::string const name = bytes == 200 ? "200 bytes" : "64 KB";
        addFindStr(name + ", Japanese", keep(makeLine(bytes - 15) + japanese), japanese);
        addFindStr(name + ", ASCII", keep(makeLine(bytes - 10) + ascii), ascii);
    }
}

// `fitting` are the bytes that are stored.
void addCopyStr(char const* name, std::string const& text, unsigned long fitting) {
    static char dst[200];
    bench::Row row(name, fitting, dst, sizeof dst);
    row.add("utl", [&text] { return copyStr(dst, sizeof dst, text.c_str(), ALL, TRUNCATE) - 1; });
#ifdef UTL_BENCH_GLIB
    long const characters = g_utf8_strlen(text.c_str(), static_cast<gssize>(fitting));
    row.add("GLib", [=, &text] {
        g_utf8_strncpy(dst, text.c_str(), static_cast<gsize>(characters));
        return fitting;
    });
#endif
    row.add("limit", [=, &text] {
        unsigned long const length = strnlen(text.c_str(), fitting);
        std::memcpy(dst, text.c_str(), length);
        dst[length] = '\0';
        return length;
    });
}

void addCopyStr() {
    std::string const& cut = keep(makeLine(300));
    std::string const& fits = keep(makeLine(190));
    addCopyStr("text/copyStr, 300 bytes cut to 200", cut, getNearCharIndex(cut.c_str(), 199, 1));
    addCopyStr("text/copyStr, 190 bytes into 200", fits, fits.size());
}

#ifdef UTL_BENCH_ICU
// As units, by which it was faster here than by folded copies in UTF-8.
int icuCompareNoCase(std::string const& a, std::string const& b) {
    UErrorCode error = U_ZERO_ERROR;
    UChar left[256], right[256];
    int32_t leftLength = 0, rightLength = 0;
    u_strFromUTF8(left, 256, &leftLength, a.data(), static_cast<int32_t>(a.size()), &error);
    u_strFromUTF8(right, 256, &rightLength, b.data(), static_cast<int32_t>(b.size()), &error);
    return u_strCaseCompare(left, leftLength, right, rightLength, U_FOLD_CASE_DEFAULT, &error);
}

int icuCompareFolded(std::string const& a, std::string const& b) {
    static UErrorCode openError = U_ZERO_ERROR;
    static UCaseMap* const map = ucasemap_open("", U_FOLD_CASE_DEFAULT, &openError);
    UErrorCode error = U_ZERO_ERROR;
    char left[512], right[512];
    ucasemap_utf8FoldCase(map, left, sizeof left, a.data(), static_cast<int32_t>(a.size()), &error);
    ucasemap_utf8FoldCase(map, right, sizeof right, b.data(), static_cast<int32_t>(b.size()),
                          &error);
    return std::strcmp(left, right);
}
#endif

void addCompareStrNoCase(char const* name, std::string const& a, std::string const& b) {
    static std::array<unsigned char, 256> const lower = [] {
        std::array<unsigned char, 256> table;
        for (unsigned c = 0; c < 256; ++c) {
            table[c] = static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + 'a' - 'A' : c);
        }
        return table;
    }();
    bench::Row row(name, a.size());
    row.add("utl", [&] { return compareStrNoCase(a.c_str(), b.c_str(), ALL); });
#ifdef UTL_BENCH_GLIB
    row.add("GLib", [&] {
        gchar* const left = g_utf8_casefold(a.data(), static_cast<gssize>(a.size()));
        gchar* const right = g_utf8_casefold(b.data(), static_cast<gssize>(b.size()));
        int const order = std::strcmp(left, right);
        g_free(left);
        g_free(right);
        return order;
    });
#endif
#ifdef UTL_BENCH_ICU
    row.add("ICU", [&] { return icuCompareNoCase(a, b); });
    row.add("ICU, folded", [&] { return icuCompareFolded(a, b); });
#endif
    row.add("limit", [&] {
        for (unsigned long i = 0; i < a.size(); ++i) {
            int const x = lower[static_cast<unsigned char>(a[i])];
            int const y = lower[static_cast<unsigned char>(b[i])];
            if (x != y) {
                return x - y;
            }
        }
        return 0;
    });
}

std::string upperOf(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
    return text;
}

void addCompareStrNoCase() {
    std::string ascii;
    while (ascii.size() < 200) {
        ascii += "Title of the Album 7 ";
    }
    ascii.resize(200);
    std::string const& kept = keep(ascii);
    addCompareStrNoCase("text/compareStrNoCase, 200 bytes, ASCII", kept, keep(upperOf(kept)));
    std::string const& japanese = keep(makeLine(200));
    addCompareStrNoCase("text/compareStrNoCase, 200 bytes, Japanese", japanese,
                        keep(upperOf(japanese)));
}

// Each call first puts the text there that it replaces in.
void addReplaceStr(std::string const& name, std::string const& text, std::string const& from,
                   std::string const& to) {
    static std::vector<char> dst(16384);
    bench::Row row("text/replaceStr, 4 KB, " + name, text.size(), dst.data(), dst.size());
    row.add("utl", [&] {
        std::memcpy(dst.data(), text.c_str(), text.size() + 1);
        return replaceStr(dst.data(), dst.size(), from.c_str(), to.c_str(), WHOLE) - 1;
    });
    row.add("std::string", [&] {
        std::memcpy(dst.data(), text.c_str(), text.size() + 1);
        std::string const old(dst.data(), text.size());
        std::string built;
        std::size_t begin = 0;
        for (std::size_t end; (end = old.find(from, begin)) != std::string::npos;
             begin = end + from.size()) {
            built.append(old, begin, end - begin).append(to);
        }
        built.append(old, begin);
        std::memcpy(dst.data(), built.c_str(), built.size() + 1);
        return built.size();
    });
#ifdef UTL_BENCH_BOOST
    row.add("boost", [&] {
        std::string built = text;
        boost::replace_all(built, from, to);
        std::memcpy(dst.data(), built.c_str(), built.size() + 1);
        return built.size();
    });
#endif
    row.add("limit", [&] {
        char const* rest = text.data();
        char const* const end = rest + text.size();
        char* out = dst.data();
        auto const append = [&out](char const* s, std::size_t bytes) {
            std::memcpy(out, s, bytes);
            out += bytes;
        };
        while (void const* match =
                   memmem(rest, static_cast<std::size_t>(end - rest), from.data(), from.size())) {
            append(rest, static_cast<std::size_t>(static_cast<char const*>(match) - rest));
            append(to.data(), to.size());
            rest = static_cast<char const*>(match) + from.size();
        }
        append(rest, static_cast<std::size_t>(end - rest));
        return static_cast<unsigned long>(out - dst.data());
    });
}

void addReplaceStr() {
    std::string const& text = keep(makeLine(4096));
    static std::string const WORD = "title", LONGER = "the title of it";
    static std::string const LINE_END = "\n", TWO_BYTES = "\r\n";
    static std::string const LETTER = "\u306E", OTHER = "\u30CE";
    addReplaceStr("a word by a longer one", text, WORD, LONGER);
    addReplaceStr("line ends", text, LINE_END, TWO_BYTES);
    addReplaceStr("a letter by another", text, LETTER, OTHER);
}

void addConvertAttrib() {
    std::string text = bench::makeJapaneseText(4096);
    static std::vector<char> dst(16384);
    // The text of the row for every code point that one begins with; the kana and its mark, which
    // would take a second look, are not in the text.
    static std::vector<std::string> byCodePoint(65536);
    for (PairAttrib const* row = HANKAKU_ZENKAKU_PAIR; row->first.narrow != nullptr; ++row) {
        std::wstring const first = row->first.wide;
        if (first.size() == 1) {
            byCodePoint[static_cast<unsigned>(first[0])] = row->second.narrow;
        }
    }
    auto const& src = keep(text);
    bench::Row row("text/convertAttrib, 4 KB", src.size(), dst.data(), dst.size());
    row.add("utl", [&src] {
        return convertAttrib(dst.data(), dst.size(), src.c_str(), HANKAKU_ZENKAKU_PAIR, 0, WHOLE) -
               1;
    });
    row.add("limit", [&src] {
        char* out = dst.data();
        auto const* s = reinterpret_cast<unsigned char const*>(src.data());
        auto const* const end = s + src.size();
        while (s < end) {
            unsigned long const bytes = *s < 0x80 ? 1 : *s < 0xE0 ? 2 : 3;
            unsigned const codePoint =
                bytes == 1   ? *s
                : bytes == 2 ? (s[0] & 0x1Fu) << 6 | (s[1] & 0x3Fu)
                             : (s[0] & 0xFu) << 12 | (s[1] & 0x3Fu) << 6 | (s[2] & 0x3Fu);
            std::string const& to = byCodePoint[codePoint];
            if (to.empty()) {
                for (unsigned long i = 0; i < bytes; ++i) {
                    *out++ = static_cast<char>(s[i]);
                }
            } else {
                std::memcpy(out, to.data(), 4);
                out += to.size();
            }
            s += bytes;
        }
        return static_cast<unsigned long>(out - dst.data());
    });
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    addFindStr();
    addCopyStr();
    addCompareStrNoCase();
    addReplaceStr();
    addConvertAttrib();
    benchmark::RunSpecifiedBenchmarks();
}
