// The conversions of whole texts beside iconv() of the C library, whose handle stays open, and ICU,
// whose converters do. "limit" converts by one table or loop, knows the length of the text and
// checks neither it nor the room.

#include <benchmark/benchmark.h>
#include <iconv.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#ifdef UTL_BENCH_ICU
#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#endif

#include "UtlCharSet.h"

#include "Contenders.h"
#include "JapaneseText.h"

namespace {

using Units = std::vector<unsigned short>;

constexpr unsigned long LARGE = 8UL << 20;  // of the text that each row converts

// What all contenders store their result in.
std::vector<char>& output() {
    static std::vector<char> bytes(5 * LARGE);
    return bytes;
}

unsigned short* outputUnits() {
    return reinterpret_cast<unsigned short*>(output().data());
}

class Iconv {
public:
    Iconv(char const* to, char const* from) : mHandle(iconv_open(to, from)) {
        if (mHandle == reinterpret_cast<iconv_t>(-1)) {
            std::abort();
        }
    }

    // Returns the bytes stored.
    unsigned long convert(void const* src, unsigned long bytes) const {
        char* in = const_cast<char*>(static_cast<char const*>(src));
        char* out = output().data();
        std::size_t left = output().size();
        return iconv(mHandle, &in, &bytes, &out, &left) == 0 ? output().size() - left : 0;
    }

private:
    iconv_t const mHandle;
};

std::string inCodePage932(std::string const& utf8) {
    unsigned long const bytes = Iconv("CP932", "UTF-8").convert(utf8.data(), utf8.size());
    return {output().data(), bytes};
}

// Terminated.
Units inUtf16(std::string const& utf8) {
    unsigned long const bytes = Iconv("UTF-16LE", "UTF-8").convert(utf8.data(), utf8.size());
    Units units(outputUnits(), outputUnits() + bytes / 2);
    units.push_back(0);
    return units;
}

// The forms by which the limits convert.

inline char* storeUtf8(char* dst, unsigned unit) {
    if (unit < 0x80) {
        *dst++ = static_cast<char>(unit);
    } else if (unit < 0x800) {
        *dst++ = static_cast<char>(0xC0 | unit >> 6);
        *dst++ = static_cast<char>(0x80 | (unit & 0x3F));
    } else {
        *dst++ = static_cast<char>(0xE0 | unit >> 12);
        *dst++ = static_cast<char>(0x80 | (unit >> 6 & 0x3F));
        *dst++ = static_cast<char>(0x80 | (unit & 0x3F));
    }
    return dst;
}

// One unit for every byte and every pair of bytes.
class SjisTable {
public:
    SjisTable() : mUnits(65536) {
        for (unsigned code = 0; code < 65536; ++code) {
            char const text[] = {static_cast<char>(code >> 8), static_cast<char>(code), '\0'};
            char const* const character = code < 256 ? text + 1 : text;
            utl::convertCharFromSjisToUtf16(&mUnits[code], character, nullptr);
        }
    }

    // `store` gets each unit.
    template <typename Store>
    void convert(std::string const& src, Store store) const {
        auto const* s = reinterpret_cast<unsigned char const*>(src.data());
        auto const* const end = s + src.size();
        while (s < end) {
            unsigned const first = *s++;
            bool const isLead = (first >= 0x81 && first <= 0x9F) || first >= 0xE0;
            store(mUnits[isLead ? first << 8 | *s++ : first]);
        }
    }

private:
    Units mUnits;
};

SjisTable const& sjisTable() {
    static SjisTable const table;
    return table;
}

unsigned long limitSjisToUtf8(std::string const& src) {
    char* out = output().data();
    sjisTable().convert(src, [&out](unsigned unit) { out = storeUtf8(out, unit); });
    return static_cast<unsigned long>(out - output().data());
}

unsigned long limitSjisToUtf16(std::string const& src) {
    unsigned short* out = outputUnits();
    sjisTable().convert(src, [&out](unsigned short unit) { *out++ = unit; });
    return 2 * static_cast<unsigned long>(out - outputUnits());
}

unsigned long limitUtf8ToUtf16(std::string const& src) {
    auto const* s = reinterpret_cast<unsigned char const*>(src.data());
    auto const* const end = s + src.size();
    unsigned short* out = outputUnits();
    while (s < end) {
        unsigned unit = *s++;
        if (unit >= 0xE0) {
            unit = (unit & 0xF) << 12 | (s[0] & 0x3Fu) << 6 | (s[1] & 0x3Fu);
            s += 2;
        } else if (unit >= 0xC0) {
            unit = (unit & 0x1F) << 6 | (*s++ & 0x3Fu);
        }
        *out++ = static_cast<unsigned short>(unit);
    }
    return 2 * static_cast<unsigned long>(out - outputUnits());
}

unsigned long limitUtf16ToUtf8(Units const& src) {
    char* out = output().data();
    for (unsigned long i = 0; i + 1 < src.size(); ++i) {
        out = storeUtf8(out, src[i]);
    }
    return static_cast<unsigned long>(out - output().data());
}

#ifdef UTL_BENCH_ICU
UChar const* icuUnits(unsigned short const* units) {
    return reinterpret_cast<UChar const*>(units);
}

int32_t outputRoom() {
    return static_cast<int32_t>(output().size());
}

unsigned long icuUtf8ToUtf16(std::string const& src) {
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(reinterpret_cast<UChar*>(outputUnits()), outputRoom() / 2, &length, src.data(),
                  static_cast<int32_t>(src.size()), &error);
    return 2 * static_cast<unsigned long>(length);
}

unsigned long icuUtf16ToUtf8(Units const& src) {
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    u_strToUTF8(output().data(), outputRoom(), &length, icuUnits(src.data()),
                static_cast<int32_t>(src.size() - 1), &error);
    return static_cast<unsigned long>(length);
}

UConverter* openIcu(char const* name) {
    UErrorCode error = U_ZERO_ERROR;
    UConverter* const converter = ucnv_open(name, &error);
    if (U_FAILURE(error)) {
        std::abort();
    }
    return converter;
}

unsigned long icuSjisToUtf16(std::string const& src) {
    static UConverter* const sjis = openIcu("windows-31j");
    UErrorCode error = U_ZERO_ERROR;
    int32_t const length =
        ucnv_toUChars(sjis, reinterpret_cast<UChar*>(outputUnits()), outputRoom() / 2, src.data(),
                      static_cast<int32_t>(src.size()), &error);
    return 2 * static_cast<unsigned long>(length);
}

unsigned long icuSjisToUtf8(std::string const& src) {
    static UConverter* const sjis = openIcu("windows-31j");
    static UConverter* const utf8 = openIcu("UTF-8");
    UErrorCode error = U_ZERO_ERROR;
    char* out = output().data();
    char const* in = src.data();
    ucnv_convertEx(utf8, sjis, &out, out + output().size(), &in, in + src.size(), nullptr, nullptr,
                   nullptr, nullptr, true, true, &error);
    return static_cast<unsigned long>(out - output().data());
}
#endif

void addSjisToUtf8(char const* name, std::string const& src) {
    static Iconv const handle("UTF-8", "CP932");
    bench::Row row(name, src.size(), output().data(), output().size());
    row.add("utl", [&src] {
        return utl::convertStrFromSjisToUtf8(output().data(), output().size(), src.c_str()) - 1;
    });
    row.add("iconv", [&src] { return handle.convert(src.data(), src.size()); });
#ifdef UTL_BENCH_ICU
    row.add("ICU", [&src] { return icuSjisToUtf8(src); });
#endif
    row.add("limit", [&src] { return limitSjisToUtf8(src); });
}

void addSjisToUtf16(std::string const& src) {
    static Iconv const handle("UTF-16LE", "CP932");
    bench::Row row("charset/CP932 to UTF-16", src.size(), output().data(), output().size());
    row.add("utl", [&src] {
        unsigned long const room = output().size() / 2;
        return 2 * utl::convertStrFromSjisToUtf16(outputUnits(), room, src.c_str()) - 2;
    });
    row.add("iconv", [&src] { return handle.convert(src.data(), src.size()); });
#ifdef UTL_BENCH_ICU
    row.add("ICU", [&src] { return icuSjisToUtf16(src); });
#endif
    row.add("limit", [&src] { return limitSjisToUtf16(src); });
}

void addUtf8ToUtf16(char const* name, std::string const& src) {
    static Iconv const handle("UTF-16LE", "UTF-8");
    bench::Row row(name, src.size(), output().data(), output().size());
    row.add("utl", [&src] {
        unsigned long const room = output().size() / 2;
        return 2 * utl::convertStrFromUtf8ToUtf16(outputUnits(), room, src.c_str()) - 2;
    });
    row.add("iconv", [&src] { return handle.convert(src.data(), src.size()); });
#ifdef UTL_BENCH_ICU
    row.add("ICU", [&src] { return icuUtf8ToUtf16(src); });
#endif
    row.add("limit", [&src] { return limitUtf8ToUtf16(src); });
}

void addUtf16ToUtf8(char const* name, Units const& src) {
    static Iconv const handle("UTF-8", "UTF-16LE");
    bench::Row row(name, 2 * (src.size() - 1), output().data(), output().size());
    row.add("utl", [&src] {
        return utl::convertStrFromUtf16ToUtf8(output().data(), output().size(), src.data()) - 1;
    });
    row.add("iconv", [&src] { return handle.convert(src.data(), 2 * (src.size() - 1)); });
#ifdef UTL_BENCH_ICU
    row.add("ICU", [&src] { return icuUtf16ToUtf8(src); });
#endif
    row.add("limit", [&src] { return limitUtf16ToUtf8(src); });
}

std::string makeAsciiText(unsigned long bytes) {
    std::string text;
    while (text.size() + 64 <= bytes) {
        text += "The quick brown fox jumps over the lazy dog, 1234567890 times.\n";
    }
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);

    std::string const sjis = inCodePage932(bench::makeJapaneseText(LARGE * 3 / 2));
    std::string const line = inCodePage932(bench::makeJapaneseText(108, 1));
    std::string const utf8 = bench::makeJapaneseText(LARGE);
    std::string const ascii = makeAsciiText(LARGE);
    Units const units = inUtf16(utf8);
    Units const asciiUnits = inUtf16(ascii);
    addSjisToUtf8("charset/CP932 to UTF-8", sjis);
    addSjisToUtf16(sjis);
    addSjisToUtf8("charset/CP932 to UTF-8, one line", line);
    addUtf8ToUtf16("charset/UTF-8 to UTF-16", utf8);
    addUtf8ToUtf16("charset/UTF-8 to UTF-16, ASCII", ascii);
    addUtf16ToUtf8("charset/UTF-16 to UTF-8", units);
    addUtf16ToUtf8("charset/UTF-16 to UTF-8, ASCII", asciiUnits);

    benchmark::RunSpecifiedBenchmarks();
}
