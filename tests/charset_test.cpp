#include "UtlCharSet.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "UtlString.h"

#include "support/PlainCharSets.h"

namespace utl {
namespace {

using namespace std::string_literals;
using Bytes = std::vector<unsigned char>;
using plain::Units;

constexpr char FENCE = '#';

// That a Str function needs just the room for `expected` and a terminator, and stores both.
template <typename Text, typename Unit, typename Source>
void expectStored(Text const& expected,
                  unsigned long (*convert)(Unit*, unsigned long, Source const*),
                  Source const* src) {
    SCOPED_TRACE(::testing::PrintToString(expected));
    Unit unit = FENCE;
    std::vector<Unit> const units(expected.begin(), expected.end());
    EXPECT_TRUE((plain::converts<Unit, Source>(convert, src, units)));
    EXPECT_EQ(NONE, convert(nullptr, expected.size() + 1, src));
    EXPECT_EQ(NONE, convert(&unit, 1, nullptr));
}

TEST(SjisTest, TextIsConvertedWholeOrNotAtAll) {
    auto const expectBoth = [](std::string const& utf8, std::u16string const& utf16,
                               char const* sjis) {
        expectStored(utf8, convertStrFromSjisToUtf8, sjis);
        expectStored(utf16, convertStrFromSjisToUtf16, sjis);
    };
    expectBoth("", u"", "");
    expectBoth("a\\~\u3042\u00B4\uFF61\uFF9F", u"a\\~\u3042\u00B4\uFF61\uFF9F",
               "a\x5C\x7E\x82\xA0\x81\x4C\xA1\xDF");
    // The borders of the code page; what lies between them is checked where it is made.
    expectBoth("\u3000\u6ECC\u6F3E\u7199\u2170\u9ED1", u"\u3000\u6ECC\u6F3E\u7199\u2170\u9ED1",
               "\x81\x40\x9F\xFC\xE0\x40\xEA\xA4\xFA\x40\xFC\x4B");
    // Bytes that are passed through.
    expectBoth("\xF0\x40\xF9\x80\xA0\xFD\xFF", u"\u00F0\u0040\u00F9\u0080\u00A0\u00FD\u00FF",
               "\xF0\x40\xF9\x80\xA0\xFD\xFF");
    // Unknown pairs: with a byte of any value, but never with the terminator.
    expectBoth("*x****z", u"\u203Bx\u203B\u203B\u203B\u203Bz",
               "\x85\x40x\xFC\x4C\xEF\x40\x81\n\x81\xFDz");
    expectBoth("a*", u"a\u203B", "a\x81");
}

TEST(SjisTest, OneCharacterTellsWhatItTook) {
    auto const expect = [](char const* sjis, unsigned long consumed, std::string const& utf8,
                           unsigned short unit, unsigned long utf16Result) {
        SCOPED_TRACE(::testing::PrintToString(sjis));
        unsigned long taken = 0;
        for (unsigned long size = 0; size <= 3; ++size) {
            bool const fits = size >= utf8.size();
            std::string dst(3, FENCE);
            EXPECT_EQ(fits || size == 0 ? utf8.size() : NONE,
                      convertCharFromSjisToUtf8(dst.data(), size, sjis, &taken));
            EXPECT_EQ(fits ? utf8 + std::string(3 - utf8.size(), FENCE) : "###", dst);
            EXPECT_EQ(consumed, std::exchange(taken, 0));
        }
        unsigned short stored = FENCE;
        EXPECT_EQ(utf16Result, convertCharFromSjisToUtf16(&stored, sjis, &taken));
        EXPECT_TRUE(stored == unit && taken == consumed);
    };
    expect("\x82\xA0z", 2, "\u3042", 0x3042, 1);
    expect("\x85\x40z", 2, "\0"s, 0, 1);
    expect("\x82", 1, "\0"s, 0, 1);
    expect("\xB1z", 1, "\uFF71", 0xFF71, 1);
    expect("\x81\x4Cz", 2, "\u00B4", 0x00B4, 1);
    expect("\xA0z", 1, "\xA0", 0x00A0, 2);
    expect("", 1, "\0"s, 0, 2);
}

TEST(Utf16Test, TextBecomesUtf8) {
    auto const expect = [](std::string const& utf8, Units const& units) {
        expectStored(utf8, convertStrFromUtf16ToUtf8, units.data());
    };
    expect("\x01\x7F\xC2\x80\xDF\xBF", {0x01, 0x7F, 0x80, 0x7FF, 0});
    expect("\xE0\xA0\x80\xEF\xBF\xBD\xEF\xBF\xBF", {0x800, 0xFFFD, 0xFFFF, 0});
    expect("\xED\xA0\xBD\xED\xB8\x80", {0xD83D, 0xDE00, 0});
    // Byte order marks, wherever they stand.
    expect("ab", {0xFEFF, 'a', 0xFEFF, 'b', 0});
    expect("ab\u3042\u6100", {'a', 0xFFFE, 0x6200, 0x4230, 'a', 0});
    expect("abc", {0xFFFE, 0x6100, 0xFFFE, 0x6200, 0xFEFF, 'c', 0});
    expect("", {0xFFFE, 0});
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
    EXPECT_EQ(3UL, convertCharFromUtf16ToUtf8(dst, 3, 0x3042, nullptr));
    EXPECT_STREQ("\u3042#", dst);
}

TEST(Utf8Test, TextBecomesUtf16) {
    expectStored(u""s, convertStrFromUtf8ToUtf16, "");
    expectStored(u"a\u00E9\u07FF\u0800\uFFFF"s, convertStrFromUtf8ToUtf16,
                 "a\u00E9\u07FF\u0800\uFFFF");
    expectStored(u"\uFEFFz"s, convertStrFromUtf8ToUtf16, "\xEF\xBB\xBFz");
    expectStored(u"a\u203Bz"s, convertStrFromUtf8ToUtf16, "a\U0001F600z");
    // Overlong, incomplete, and cut by the terminator.
    expectStored(u"a"s, convertStrFromUtf8ToUtf16, "a\xC0\x80z");
    expectStored(u"\u3042"s, convertStrFromUtf8ToUtf16, "\u3042\xE3\x81z");
    expectStored(u"a"s, convertStrFromUtf8ToUtf16, "a\xF0\x9F\x98");
    Units dst(8);
    EXPECT_EQ(NONE, convertStrFromUtf8ToUtf16(dst.data(), 8, "a\x80"));
    EXPECT_EQ(NONE, convertStrFromUtf8ToUtf16(nullptr, 0, "a\xF8z"));
}

TEST(Utf8Test, OneCharacterIsOneUnitOrFails) {
    unsigned short unit = FENCE;
    unsigned long consumed = 0;
    for (char const* text : {"", "\x80", "\xC1\xBF", "\xE3\x81", "\U0001F600"}) {
        EXPECT_EQ(NONE, convertCharFromUtf8ToUtf16(&unit, text, &consumed));
        EXPECT_TRUE(unit == FENCE && consumed == 0);
    }
    EXPECT_EQ(1UL, convertCharFromUtf8ToUtf16(&unit, "\uFEFFz", &consumed));
    EXPECT_TRUE(unit == 0xFEFF && consumed == 3);
}

TEST(DcharTest, UnitsUpToAZeroBecomeBytes) {
    unsigned short const src[] = {0x1234, 0x00FF, 0, 0x5678};
    Bytes dst(5, FENCE);
    EXPECT_EQ(4UL, convertStrFromDcharToUint8(dst.data(), 4, src, ALL, 1));
    EXPECT_EQ((Bytes{0x12, 0x34, 0x00, 0xFF, FENCE}), dst);
    EXPECT_EQ(NONE, convertStrFromDcharToUint8(dst.data(), 3, src, ALL, 2));
    EXPECT_EQ(4UL, convertStrFromDcharToUint8(dst.data(), 0, src, ALL, 2));
    EXPECT_EQ(2UL, convertStrFromDcharToUint8(dst.data(), 5, src, 1, 2));
    EXPECT_EQ(0UL, convertStrFromDcharToUint8(dst.data(), 5, src, 0, 2));
    EXPECT_EQ((Bytes{0x34, 0x12, 0x00, 0xFF, FENCE}), dst);
}

TEST(DcharTest, BytesBecomeUnitsZerosIncluded) {
    unsigned char const src[] = {0x12, 0x34, 0x00, 0x00, 0xAB, 0xCD, 0x56, 0x78};
    Units dst(4, FENCE);
    EXPECT_EQ(3UL, convertBinFromUint8ToDchar(dst.data(), 3, src, 6, 1));
    EXPECT_EQ((Units{0x1234, 0x0000, 0xABCD, FENCE}), dst);
    EXPECT_EQ(NONE, convertBinFromUint8ToDchar(dst.data(), 2, src, 6, 2));
    EXPECT_EQ(NONE, convertBinFromUint8ToDchar(dst.data(), 0, src, 3, 2));
    EXPECT_EQ(3UL, convertBinFromUint8ToDchar(dst.data(), 0, src, 6, 2));
    EXPECT_EQ(1UL, convertBinFromUint8ToDchar(dst.data(), 4, src, 2, 2));
    EXPECT_EQ((Units{0x3412, 0x0000, 0xABCD, FENCE}), dst);
}

TEST(CharSetTest, NarrowTextIsCopied) {
    expectStored(std::string("a\u3042"), convertCharSet, "a\u3042");
}

TEST(CharSetTest, NothingBecomesNothing) {
    unsigned char byte = 'a';
    unsigned short unit = 'a';
    EXPECT_EQ(NONE, convertCharFromSjisToUtf8(nullptr, 3, "a", nullptr));
    EXPECT_EQ(NONE, convertCharFromSjisToUtf8(nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(NONE, convertCharFromSjisToUtf16(nullptr, "a", nullptr));
    EXPECT_EQ(NONE, convertCharFromSjisToUtf16(&unit, nullptr, nullptr));
    EXPECT_EQ(NONE, convertCharFromUtf16ToUtf8(nullptr, 3, 'a', nullptr));
    EXPECT_EQ(NONE, convertCharFromUtf8ToUtf16(nullptr, "a", nullptr));
    EXPECT_EQ(NONE, convertCharFromUtf8ToUtf16(&unit, nullptr, nullptr));
    EXPECT_EQ(NONE, convertStrFromDcharToUint8(nullptr, 2, &unit, 1, 1));
    EXPECT_EQ(NONE, convertStrFromDcharToUint8(&byte, 1, nullptr, 1, 1));
    EXPECT_EQ(NONE, convertBinFromUint8ToDchar(nullptr, 1, &byte, 0, 1));
    EXPECT_EQ(NONE, convertBinFromUint8ToDchar(&unit, 1, nullptr, 2, 1));
}

// Long enough for every stretch that is converted at once, with pieces that end in any place of it.
TEST(RandomTextTest, IsConvertedCharacterByCharacter) {
    using Texts = std::vector<std::string>;
    Texts const sjis = {"a",        "7 words ", "\x82\xA0", "\x8A\xBF\x8E\x9A", "\x81\x4C", "\xB1",
                        "\x85\x40", "\x81",     "\xF0",     "\xFC\x4C"};
    Texts const utf8 = {"a",      "7 words ", "\u3042",       "\u3042\u6F22\u5B57",
                        "\u00E9", "\u0800",   "\uFEFF\uFF21", "\U0001F600"};
    Texts const malformed = {"\xE3\x81", "\xC0\x80", "\xE0\x9F\xBF", "\xF8", "\x80"};
    std::vector<Units> const utf16 = {
        {'a'},  Units(11, 'b'), {0x3042},         {0x6F22, 0x5B57, 0xFF21},
        {0xE9}, {0x7FF, 0x800}, {0xD83D, 0xDE00}, {0xFEFF, 0xFFFE}};
    std::mt19937 random(932);
    auto const append = [&random](auto& text, auto const& pieces, unsigned long kinds) {
        auto const& piece = pieces[random() % kinds];
        for (unsigned long count = 1 + random() % 4; count > 0; --count) {
            text.insert(text.end(), piece.begin(), piece.end());
        }
    };
    for (unsigned round = 0; round < 3000; ++round) {
        unsigned long const length = round % 30 != 0 ? random() % 100 : 4000 + random() % 200;
        // Now and then only of the first kinds, which make long runs.
        auto const kindsOf = [round](auto const& pieces) {
            return round % 3 == 0 ? std::size_t{4} : pieces.size();
        };
        std::string fromSjis, fromUtf8;
        Units fromUtf16;
        while (fromSjis.size() < length) {
            append(fromSjis, sjis, kindsOf(sjis));
            append(fromUtf8, utf8, kindsOf(utf8));
            append(fromUtf16, utf16, kindsOf(utf16));
        }
        if (round % 5 == 0) {
            append(fromUtf8, malformed, malformed.size());
            append(fromUtf8, utf8, utf8.size());
        }
        unsigned long const shift = random() % 8;
        ASSERT_TRUE(plain::convertsSjis(fromSjis, shift)) << ::testing::PrintToString(fromSjis);
        ASSERT_TRUE(plain::convertsUtf8(fromUtf8, shift)) << ::testing::PrintToString(fromUtf8);
        ASSERT_TRUE(plain::convertsUtf16(fromUtf16, shift)) << ::testing::PrintToString(fromUtf16);
    }
}

}  // namespace
}  // namespace utl
