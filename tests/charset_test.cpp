#include "UtlCharSet.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>
#include <utility>
#include <vector>

#include "UtlString.h"

namespace utl {
namespace {

using Units = std::vector<unsigned short>;

constexpr unsigned long UNTOUCHED = 4711;
constexpr char FENCE = '#';

// That a Str function needs just the room for `expected` and a terminator, and stores both.
template <typename Text, typename Unit, typename Source>
void expectStored(Text const& expected, unsigned long (*convert)(Unit*, unsigned long, Source*),
                  Source* src) {
    std::vector<Unit> stored(expected.begin(), expected.end());
    stored.push_back(0);
    unsigned long const needed = stored.size();
    for (unsigned long size = 0; size <= needed; ++size) {
        std::vector<Unit> dst(size + 1, FENCE);
        EXPECT_EQ(size == 0 || size == needed ? needed : NONE, convert(dst.data(), size, src));
        EXPECT_EQ(FENCE, dst.back()) << size;
        dst.pop_back();
        EXPECT_TRUE(size < needed || dst == stored);
    }
    EXPECT_EQ(needed, convert(nullptr, 0, src));
    EXPECT_EQ(NONE, convert(nullptr, needed, src));
    EXPECT_EQ(NONE, convert(stored.data(), needed, nullptr));
}

// What the C library makes of Shift_JIS; empty where it refuses.
template <typename Text>
Text convertByIconv(std::string sjis) {
    constexpr unsigned long UNIT = sizeof(typename Text::value_type);
    iconv_t const handle = iconv_open(UNIT == 1 ? "UTF-8" : "UTF-16LE", "CP932");
    if (handle == reinterpret_cast<iconv_t>(-1)) {
        return {};
    }
    Text converted(3 * sjis.size(), 0);
    char* in = sjis.data();
    char* out = reinterpret_cast<char*>(converted.data());
    std::size_t inLeft = sjis.size();
    std::size_t outLeft = converted.size() * UNIT;
    bool const isDone = iconv(handle, &in, &inLeft, &out, &outLeft) != static_cast<std::size_t>(-1);
    converted.resize(isDone ? converted.size() - outLeft / UNIT : 0);
    iconv_close(handle);
    return converted;
}

// All katakana, and all pairs of a lead byte with anything but the terminator.
std::vector<std::string> allCodes() {
    std::vector<std::string> codes;
    for (int first = 0xA1; first <= 0xDF; ++first) {
        codes.emplace_back(1, static_cast<char>(first));
    }
    for (auto const& [begin, end] : {std::pair(0x81, 0xA0), {0xE0, 0xF0}, {0xFA, 0xFD}}) {
        for (int code = begin << 8; code < end << 8; ++code) {
            if ((code & 0xFF) != 0) {
                codes.push_back({static_cast<char>(code >> 8), static_cast<char>(code)});
            }
        }
    }
    return codes;
}

TEST(SjisTest, EveryCodeBecomesWhatIconvMakesOfIt) {
    if (convertByIconv<std::string>("\x82\xA0").empty()) {
        GTEST_SKIP() << "the C library does not convert CP932 here";
    }
    unsigned long known = 0;
    for (std::string const& code : allCodes()) {
        SCOPED_TRACE(::testing::PrintToString(code));
        std::string const utf8 = convertByIconv<std::string>(code);
        std::u16string const utf16 = convertByIconv<std::u16string>(code);
        known += utf8.empty() ? 0 : 1;

        char bytes[3] = {};
        unsigned long const length = convertCharFromSjisToUtf8(bytes, 3, code.c_str(), nullptr);
        ASSERT_EQ(utf8.empty() ? std::string(1, '\0') : utf8, std::string(bytes, length));
        unsigned short unit = FENCE;
        ASSERT_EQ(1UL, convertCharFromSjisToUtf16(&unit, code.c_str(), nullptr));
        ASSERT_EQ(utf16.empty() ? 0 : utf16[0], unit);
    }
    EXPECT_EQ(7787UL, known);
}

TEST(SjisTest, TextIsConvertedWholeOrNotAtAll) {
    struct {
        char const* sjis;
        std::string utf8;
        std::u16string utf16;
    } const cases[] = {
        {"", "", u""},
        {"a\x5C\x7E", "a\x5C\x7E", u"a\x5C\x7E"},
        {"\x82\xA0\x81\x4C", "\u3042\u00B4", u"\u3042\u00B4"},
        {"\xA1\xB1\xDF", "\uFF61\uFF71\uFF9F", u"\uFF61\uFF71\uFF9F"},
        // Where this code page differs from other Shift_JIS.
        {"\x81\x5F\x81\x60\x81\x61\x81\x7C", "\uFF3C\uFF5E\u2225\uFF0D",
         u"\uFF3C\uFF5E\u2225\uFF0D"},
        {"\x81\x91\x81\x92\x81\xCA", "\uFFE0\uFFE1\uFFE2", u"\uFFE0\uFFE1\uFFE2"},
        {"\x87\x40\x87\x54\x87\x90", "\u2460\u2160\u2252", u"\u2460\u2160\u2252"},
        {"\xED\x40\xFA\x40\xFA\x54\xFC\x4B", "\u7E8A\u2170\uFFE2\u9ED1",
         u"\u7E8A\u2170\uFFE2\u9ED1"},
        // Bytes that are passed through.
        {"\xF0\x40\xF9\x40", "\xF0\x40\xF9\x40", u"\u00F0\u0040\u00F9\u0040"},
        {"\x80\xA0\xFD\xFF", "\x80\xA0\xFD\xFF", u"\u0080\u00A0\u00FD\u00FF"},
        // Unknown pairs: with a byte of any value, but never with the terminator.
        {"\x85\x40x\xFC\x4C", "*x*", u"\u203Bx\u203B"},
        {"\x81\n\x82\x7F\x81\xFDz", "***z", u"\u203B\u203B\u203Bz"},
        {"a\x81", "a*", u"a\u203B"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.sjis));
        expectStored(c.utf8, convertStrFromSjisToUtf8, c.sjis);
        expectStored(c.utf16, convertStrFromSjisToUtf16, c.sjis);
    }
}

TEST(SjisTest, OneCharacterTellsWhatItTook) {
    struct {
        char const* sjis;
        unsigned long consumed;
        std::string utf8;
        unsigned short unit;
        unsigned long utf16Result;
    } const cases[] = {
        {"\x82\xA0z", 2, "\u3042", 0x3042, 1},
        {"\x85\x40z", 2, {'\0'}, 0, 1},
        {"\x82", 1, {'\0'}, 0, 1},
        {"\xB1z", 1, "\uFF71", 0xFF71, 1},
        {"\xA0z", 1, "\xA0", 0x00A0, 2},
        {"", 1, {'\0'}, 0, 2},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.sjis));
        for (unsigned long size = 0; size <= 3; ++size) {
            bool const fits = size >= c.utf8.size();
            std::string dst(3, FENCE);
            unsigned long consumed = UNTOUCHED;
            EXPECT_EQ(fits || size == 0 ? c.utf8.size() : NONE,
                      convertCharFromSjisToUtf8(dst.data(), size, c.sjis, &consumed));
            EXPECT_EQ(c.consumed, consumed);
            EXPECT_EQ(fits ? c.utf8 + std::string(3 - c.utf8.size(), FENCE) : "###", dst);
        }
        unsigned short unit = FENCE;
        unsigned long consumed = UNTOUCHED;
        EXPECT_EQ(c.utf16Result, convertCharFromSjisToUtf16(&unit, c.sjis, &consumed));
        EXPECT_EQ(c.consumed, consumed);
        EXPECT_EQ(c.unit, unit);
    }
}

TEST(Utf16Test, TextBecomesUtf8) {
    struct {
        Units units;
        std::string utf8;
    } const cases[] = {
        {{0}, ""},
        {{0x01, 0x7F, 0x80, 0x7FF, 0}, "\x01\x7F\xC2\x80\xDF\xBF"},
        {{0x800, 0xFFFD, 0xFFFF, 0}, "\xE0\xA0\x80\xEF\xBF\xBD\xEF\xBF\xBF"},
        {{0xD83D, 0xDE00, 0}, "\xED\xA0\xBD\xED\xB8\x80"},
        // Byte order marks, wherever they stand.
        {{0xFEFF, 'a', 0xFEFF, 'b', 0}, "ab"},
        {{'a', 0xFFFE, 0x6200, 0x4230, 'a', 0}, "ab\u3042\u6100"},
        {{0xFFFE, 0x6100, 0xFFFE, 0x6200, 0xFEFF, 'c', 0}, "abc"},
        {{0xFFFE, 0}, ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.units));
        expectStored(c.utf8, convertStrFromUtf16ToUtf8, c.units.data());
    }
}

TEST(Utf16Test, AMarkTellsTheByteOrderAndIsNotStored) {
    char dst[] = "####";
    int order = 4711;
    EXPECT_EQ(2UL, convertCharFromUtf16ToUtf8(nullptr, 0, 0x00E9, &order));
    EXPECT_EQ(NONE, convertCharFromUtf16ToUtf8(dst, 1, 0x00E9, &order));
    EXPECT_EQ(4711, order);
    EXPECT_EQ(0UL, convertCharFromUtf16ToUtf8(dst, 4, 0xFEFF, &order));
    EXPECT_EQ(1, order);
    EXPECT_EQ(0UL, convertCharFromUtf16ToUtf8(nullptr, 4, 0xFFFE, &order));
    EXPECT_EQ(2, order);
    EXPECT_EQ(0UL, convertCharFromUtf16ToUtf8(dst, 0, 0xFFFE, nullptr));
    EXPECT_STREQ("####", dst);
    EXPECT_EQ(3UL, convertCharFromUtf16ToUtf8(dst, 3, 0x3042, nullptr));
    EXPECT_STREQ("\u3042#", dst);
}

TEST(Utf8Test, TextBecomesUtf16) {
    struct {
        char const* utf8;
        std::u16string units;
    } const cases[] = {
        {"", u""},
        {"a\u00E9\u07FF\u0800\uFFFF", u"a\u00E9\u07FF\u0800\uFFFF"},
        {"\xEF\xBB\xBFz", u"\uFEFFz"},
        {"a\U0001F600z", u"a\u203Bz"},
        // Overlong, incomplete, and cut by the terminator.
        {"a\xC0\x80z", u"a"},
        {"\u3042\xE3\x81z", u"\u3042"},
        {"a\xF0\x9F\x98", u"a"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.utf8));
        expectStored(c.units, convertStrFromUtf8ToUtf16, c.utf8);
    }
    Units dst(8);
    EXPECT_EQ(NONE, convertStrFromUtf8ToUtf16(dst.data(), 8, "a\x80"));
    EXPECT_EQ(NONE, convertStrFromUtf8ToUtf16(nullptr, 0, "a\xF8z"));
}

TEST(Utf8Test, OneCharacterIsOneUnitOrFails) {
    unsigned short unit = FENCE;
    unsigned long consumed = UNTOUCHED;
    for (char const* text : {"", "\x80", "\xC1\xBF", "\xE3\x81", "\U0001F600"}) {
        EXPECT_EQ(NONE, convertCharFromUtf8ToUtf16(&unit, text, &consumed));
        EXPECT_EQ(FENCE, unit);
        EXPECT_EQ(UNTOUCHED, consumed);
    }
    EXPECT_EQ(1UL, convertCharFromUtf8ToUtf16(&unit, "\uFEFFz", &consumed));
    EXPECT_EQ(0xFEFF, unit);
    EXPECT_EQ(3UL, consumed);
    EXPECT_EQ(1UL, convertCharFromUtf8ToUtf16(&unit, "\u00E9z", nullptr));
    EXPECT_EQ(0x00E9, unit);
}

TEST(DcharTest, UnitsBecomeBytesInTheOrderAskedFor) {
    unsigned short const src[] = {0x1234, 0x00FF, 0, 0x5678};
    std::vector<unsigned char> dst(5, FENCE);
    EXPECT_EQ(4UL, convertStrFromDcharToUint8(dst.data(), 4, src, ALL, 1));
    EXPECT_EQ((std::vector<unsigned char>{0x12, 0x34, 0x00, 0xFF, FENCE}), dst);
    EXPECT_EQ(4UL, convertStrFromDcharToUint8(dst.data(), 5, src, ALL, 2));
    EXPECT_EQ((std::vector<unsigned char>{0x34, 0x12, 0xFF, 0x00, FENCE}), dst);
    EXPECT_EQ(2UL, convertStrFromDcharToUint8(dst.data(), 3, src + 1, 3, 1));
    std::vector<unsigned char> const before = {0x00, 0xFF, 0xFF, 0x00, FENCE};
    EXPECT_EQ(before, dst);

    EXPECT_EQ(4UL, convertStrFromDcharToUint8(dst.data(), 0, src, ALL, 1));
    EXPECT_EQ(2UL, convertStrFromDcharToUint8(nullptr, 0, src, 1, 1));
    EXPECT_EQ(0UL, convertStrFromDcharToUint8(dst.data(), 5, src, 0, 1));
    EXPECT_EQ(NONE, convertStrFromDcharToUint8(dst.data(), 3, src, ALL, 1));
    EXPECT_EQ(NONE, convertStrFromDcharToUint8(nullptr, 4, src, ALL, 1));
    EXPECT_EQ(NONE, convertStrFromDcharToUint8(dst.data(), 4, nullptr, ALL, 1));
    EXPECT_EQ(before, dst);
}

TEST(DcharTest, BytesBecomeUnitsZerosIncluded) {
    unsigned char const src[] = {0x12, 0x34, 0x00, 0x00, 0xAB, 0xCD};
    Units dst(4, FENCE);
    EXPECT_EQ(3UL, convertBinFromUint8ToDchar(dst.data(), 3, src, 6, 1));
    EXPECT_EQ((Units{0x1234, 0x0000, 0xABCD, FENCE}), dst);
    EXPECT_EQ(3UL, convertBinFromUint8ToDchar(dst.data(), 4, src, 6, 2));
    Units const littleEndian = {0x3412, 0x0000, 0xCDAB, FENCE};
    EXPECT_EQ(littleEndian, dst);

    EXPECT_EQ(3UL, convertBinFromUint8ToDchar(dst.data(), 0, src, 6, 1));
    EXPECT_EQ(0UL, convertBinFromUint8ToDchar(dst.data(), 4, src, 0, 1));
    EXPECT_EQ(NONE, convertBinFromUint8ToDchar(dst.data(), 2, src, 6, 1));
    EXPECT_EQ(NONE, convertBinFromUint8ToDchar(dst.data(), 4, src, 3, 1));
    EXPECT_EQ(NONE, convertBinFromUint8ToDchar(nullptr, 0, src, 3, 1));
    EXPECT_EQ(NONE, convertBinFromUint8ToDchar(nullptr, 3, src, 6, 1));
    EXPECT_EQ(NONE, convertBinFromUint8ToDchar(dst.data(), 4, nullptr, 6, 1));
    EXPECT_EQ(littleEndian, dst);
}

TEST(CharSetTest, NarrowTextIsCopied) {
    expectStored(std::string("a\u3042"), convertCharSet, "a\u3042");
}

TEST(CharSetTest, ACharacterWithoutSourceOrDestinationFails) {
    char byte = FENCE;
    unsigned short unit = FENCE;
    EXPECT_EQ(NONE, convertCharFromSjisToUtf8(&byte, 1, nullptr, nullptr));
    EXPECT_EQ(NONE, convertCharFromSjisToUtf8(nullptr, 3, "a", nullptr));
    EXPECT_EQ(NONE, convertCharFromSjisToUtf16(&unit, nullptr, nullptr));
    EXPECT_EQ(NONE, convertCharFromSjisToUtf16(nullptr, "a", nullptr));
    EXPECT_EQ(NONE, convertCharFromUtf16ToUtf8(nullptr, 3, 'a', nullptr));
    EXPECT_EQ(NONE, convertCharFromUtf8ToUtf16(&unit, nullptr, nullptr));
    EXPECT_EQ(NONE, convertCharFromUtf8ToUtf16(nullptr, "a", nullptr));
}

}  // namespace
}  // namespace utl
