// The character tables, checked against the code points of their classes, and the conversions.

#include "UtlCharTable.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "UtlString.h"

namespace utl {
namespace {

using Text = std::u32string;
using Texts = std::vector<Text>;
using Rows = std::vector<std::pair<Text, Text>>;

std::string toUtf8(Text const& text) {
    std::string bytes;
    for (char32_t const c : text) {
        EXPECT_TRUE(c < 0x80 || (c >= 0x800 && c < 0x10000));  // no table has any other
        if (c >= 0x80) {
            bytes += static_cast<char>(0xE0 | c >> 12);
            bytes += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        }
        bytes += static_cast<char>(c < 0x80 ? c : 0x80 | (c & 0x3F));
    }
    return bytes;
}

// The code points of the wide form, after a check that the narrow one is the same text.
Text textOf(DualText const& element) {
    Text const text(element.wide, element.wide + std::wcslen(element.wide));
    EXPECT_EQ(toUtf8(text), element.narrow);
    return text;
}

Text range(char32_t first, char32_t last, char32_t step = 1) {
    Text text;
    for (char32_t c = first; c <= last; c += step) {
        text += c;
    }
    return text;
}

Text without(Text text, Text const& removed) {
    auto const isRemoved = [&](char32_t c) { return removed.find(c) != Text::npos; };
    text.erase(std::remove_if(text.begin(), text.end(), isRemoved), text.end());
    return text;
}

Text shift(Text text, int distance) {
    for (char32_t& c : text) {
        c += static_cast<char32_t>(distance);
    }
    return text;
}

// Every character by itself, or followed by `mark`.
Texts each(Text const& characters, Text const& mark = {}) {
    Texts texts;
    for (char32_t const c : characters) {
        texts.push_back(c + mark);
    }
    return texts;
}

Rows pairUp(Texts const& firsts, Texts const& seconds) {
    EXPECT_EQ(firsts.size(), seconds.size());
    Rows rows;
    for (unsigned long i = 0; i < firsts.size(); ++i) {
        rows.emplace_back(firsts[i], seconds[i]);
    }
    return rows;
}

Rows pairUp(Text const& firsts, Text const& seconds) {
    return pairUp(each(firsts), each(seconds));
}

template <typename T>
std::vector<T> operator+(std::vector<T> a, std::vector<T> const& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

template <typename T>
std::vector<T> sorted(std::vector<T> values) {
    std::sort(values.begin(), values.end());
    return values;
}

// DAKU: ka to to and ha to ho, unvoiced and voiced in the same order. HANDAKU: ha to ho.
Text const HAN_NODAKU = range(0xFF76, 0xFF84) + range(0xFF8A, 0xFF8E);
Text const HAN_NOHANDAKU = range(0xFF8A, 0xFF8E);
Texts const HAN_DAKU = each(HAN_NODAKU, U"\uFF9E");
Texts const HAN_HANDAKU = each(HAN_NOHANDAKU, U"\uFF9F");
Text const ZEN_DAKU =
    range(0x30AC, 0x30C2, 2) + range(0x30C5, 0x30C9, 2) + range(0x30D0, 0x30DC, 3);
Text const ZEN_HANDAKU = range(0x30D1, 0x30DD, 3);
Text const HIRA_DAKU = shift(ZEN_DAKU, -0x60);
Text const HIRA_HANDAKU = shift(ZEN_HANDAKU, -0x60);
Text const MARKS = U"\u3001\u3002\u300C\u300D\u30FB";

constexpr auto nameOf = [](auto const& test) { return std::string(test.param.name); };

struct CharClass {
    char const* name;
    DualText const* table;
    unsigned long count;
    Texts elements;
};

class CharClassTest : public ::testing::TestWithParam<CharClass> {};

TEST_P(CharClassTest, HoldsExactlyItsCharacters) {
    Texts elements;
    DualText const* element = GetParam().table;
    for (; element->narrow != nullptr; ++element) {
        elements.push_back(textOf(*element));
    }
    EXPECT_EQ(nullptr, element->wide);
    EXPECT_EQ(GetParam().count, elements.size());
    EXPECT_EQ(sorted(GetParam().elements), sorted(elements));
}

// clang-format off
#define CLASS(table, ...) CharClass{#table, table, __VA_ARGS__}

INSTANTIATE_TEST_SUITE_P(All, CharClassTest, ::testing::Values(
    CLASS(KAIGYO_TBL, 2, each(U"\r\n")),
    CLASS(TAB_FF_TBL, 3, each(U"\t\v\f")),
    CLASS(CTL_OTHER_TBL, 27, each(range(1, 8) + range(0x0E, 0x1F) + U"\x7F")),
    CLASS(HAN_SPACE_TBL, 1, each(U"\x20")),
    CLASS(ZEN_SPACE_TBL, 1, each(U"\u3000")),
    CLASS(HAN_MARK_TBL, 32, each(
        range(0x21, 0x2F) + range(0x3A, 0x40) + range(0x5B, 0x60) + range(0x7B, 0x7E))),
    CLASS(ZEN_MARK_TBL, 32, each(without(range(0xFF01, 0xFF0F) + range(0xFF1A, 0xFF20) +
        range(0xFF3B, 0xFF40) + range(0xFF5B, 0xFF5E), U"\uFF02\uFF07\uFF3C\uFF5E") +
        U"\u201D\u2019\uFFE5\uFFE3")),
    CLASS(HAN_DIGIT_TBL, 10, each(range(0x30, 0x39))),
    CLASS(ZEN_DIGIT_TBL, 10, each(range(0xFF10, 0xFF19))),
    CLASS(HAN_SIGN_TBL, 2, each(U"+-")),
    CLASS(ZEN_SIGN_TBL, 2, each(U"\uFF0B\uFF0D")),
    CLASS(HAN_HEX_PREFIX_TBL, 1, Texts{U"0x"}),
    CLASS(ZEN_HEX_PREFIX_TBL, 1, Texts{U"\uFF10\uFF58"}),
    CLASS(HAN_HEX_SUFFIX_TBL, 2, each(U"Hh")),
    CLASS(ZEN_HEX_SUFFIX_TBL, 2, each(U"\uFF28\uFF48")),
    CLASS(LOWER_HAN_HEX_ALPHA_TBL, 6, each(range(U'a', U'f'))),
    CLASS(LOWER_ZEN_HEX_ALPHA_TBL, 6, each(range(0xFF41, 0xFF46))),
    CLASS(UPPER_HAN_HEX_ALPHA_TBL, 6, each(range(U'A', U'F'))),
    CLASS(UPPER_ZEN_HEX_ALPHA_TBL, 6, each(range(0xFF21, 0xFF26))),
    CLASS(LOWER_HAN_NOHEX_ALPHA_TBL, 20, each(range(U'g', U'z'))),
    CLASS(LOWER_ZEN_NOHEX_ALPHA_TBL, 20, each(range(0xFF47, 0xFF5A))),
    CLASS(UPPER_HAN_NOHEX_ALPHA_TBL, 20, each(range(U'G', U'Z'))),
    CLASS(UPPER_ZEN_NOHEX_ALPHA_TBL, 20, each(range(0xFF27, 0xFF3A))),
    CLASS(NODAKU_HAN_KATA_TBL, 61, each(range(0xFF61, 0xFF9D))),
    CLASS(NODAKU_ZEN_KATA_TBL, 67, each(
        without(range(0x30A1, 0x30F6), ZEN_DAKU + ZEN_HANDAKU + U"ヴ") + U"\u30FC\u30FD" + MARKS)),
    CLASS(DAKU_HAN_KATA_TBL, 22, HAN_DAKU + Texts{U"\uFF73\uFF9E", U"\uFF9E"}),
    CLASS(DAKU_ZEN_KATA_TBL, 23, each(ZEN_DAKU + U"\u30F4\u30FE\u309B")),
    CLASS(HANDAKU_HAN_KATA_TBL, 6, HAN_HANDAKU + Texts{U"\uFF9F"}),
    CLASS(HANDAKU_ZEN_KATA_TBL, 6, each(ZEN_HANDAKU + U"\u309C")),
    CLASS(HAN_KATA_YOUSOKU_TBL, 9, each(range(0xFF67, 0xFF6F))),
    CLASS(ZEN_KATA_YOUSOKU_TBL, 10, each(
        range(0x30A1, 0x30A9, 2) + range(0x30E3, 0x30E7, 2) + U"\u30C3\u30EE")),
    CLASS(NODAKU_HIRA_TBL, 65, each(
        without(range(0x3041, 0x3093), HIRA_DAKU + HIRA_HANDAKU) + U"\u30FC\u309D" + MARKS)),
    CLASS(DAKU_HIRA_TBL, 27, each(HIRA_DAKU + U"\u309E\u309B" + MARKS)),
    CLASS(HANDAKU_HIRA_TBL, 11, each(HIRA_HANDAKU + U"\u309C" + MARKS)),
    CLASS(HIRA_YOUSOKU_TBL, 10, each(
        range(0x3041, 0x3049, 2) + range(0x3083, 0x3087, 2) + U"\u3063\u308E")),
    CLASS(HAN_DAKUTEN_TBL, 1, each(U"\uFF9E")),
    CLASS(ZEN_DAKUTEN_TBL, 1, each(U"\u309B")),
    CLASS(HAN_HANDAKUTEN_TBL, 1, each(U"\uFF9F")),
    CLASS(ZEN_HANDAKUTEN_TBL, 1, each(U"\u309C"))),
    nameOf);
// clang-format on

struct PairTable {
    char const* name;
    PairAttrib const* table;
    unsigned long count;
    Rows rows;
};

class PairTableTest : public ::testing::TestWithParam<PairTable> {};

// That every row is found by either of its texts means that no shorter text stands before it.
TEST_P(PairTableTest, HoldsExactlyItsPairsAndFindsEach) {
    PairAttrib const* const table = GetParam().table;
    Rows rows;
    for (PairAttrib const* row = table; row->first.narrow != nullptr; ++row) {
        EXPECT_EQ(rows.size(), hasPair(row->first.narrow, table, 0));
        EXPECT_EQ(rows.size(), hasPair(row->second.narrow, table, 1));
        rows.emplace_back(textOf(row->first), textOf(row->second));
    }
    EXPECT_EQ(GetParam().count, rows.size());
    EXPECT_EQ(sorted(GetParam().rows), sorted(rows));
}

Text fullWidthAscii() {
    Text text = U"\u3000" + range(0xFF01, 0xFF5E);
    text['"' - ' '] = 0x201D;
    text['\'' - ' '] = 0x2019;
    text['\\' - ' '] = 0xFFE5;
    text['~' - ' '] = 0xFFE3;
    return text;
}

// U+FF61 to U+FF9F in this order.
Text const ZEN_KATA =
    U"。「」、・ヲァィゥェォャュョッーアイウエオカキクケコサシスセソタチツテトナニヌネノ"
    U"ハヒフヘホマミムメモヤユヨラリルレロワン゛゜";
Text const HIRAGANA =
    U"。「」、・をぁぃぅぇぉゃゅょっーあいうえおかきくけこさしすせそたちつてとなにぬねの"
    U"はひふへほまみむめもやゆよらりるれろわん゛゜";

// clang-format off
#define PAIRS(table, ...) PairTable{#table, table, __VA_ARGS__}

INSTANTIATE_TEST_SUITE_P(All, PairTableTest, ::testing::Values(
    PAIRS(LOWER_UPPER_PAIR, 52,
          pairUp(range(U'a', U'z'), range(U'A', U'Z')) +
          pairUp(range(0xFF41, 0xFF5A), range(0xFF21, 0xFF3A))),
    PAIRS(HANKAKU_ZENKAKU_PAIR, 184,
          pairUp(range(U' ', U'~'), fullWidthAscii()) + pairUp(range(0xFF61, 0xFF9F), ZEN_KATA) +
          pairUp(HAN_DAKU + Texts{U"ｳﾞ"}, each(ZEN_DAKU + U"ヴ")) +
          pairUp(HAN_HANDAKU, each(ZEN_HANDAKU))),
    PAIRS(NODAKUON_DAKUON_PAIR, 66,
          pairUp(each(HAN_NODAKU + U"ｳ\uFF9E"), HAN_DAKU + Texts{U"ｳﾞ", U"\uFF9E"}) +
          pairUp(shift(ZEN_DAKU, -1) + U"ウヽ", ZEN_DAKU + U"ヴヾ") +
          pairUp(shift(HIRA_DAKU, -1) + U"ゝ\u309B", HIRA_DAKU + U"ゞ\u309B")),
    PAIRS(NODAKUON_HANDAKUON_PAIR, 17,
          pairUp(each(HAN_NOHANDAKU + U"\uFF9F"), HAN_HANDAKU + Texts{U"\uFF9F"}) +
          pairUp(shift(ZEN_HANDAKU, -2), ZEN_HANDAKU) +
          pairUp(shift(HIRA_HANDAKU, -2) + U"\u309C", HIRA_HANDAKU + U"\u309C")),
    PAIRS(HANKATA_HIRAGANA_PAIR, 88,
          pairUp(range(0xFF61, 0xFF9F), HIRAGANA) + pairUp(HAN_DAKU, each(HIRA_DAKU)) +
          pairUp(HAN_HANDAKU, each(HIRA_HANDAKU))),
    PAIRS(ZENKATA_HIRAGANA_PAIR, 86,
          pairUp(range(0x30A1, 0x30F3) + U"ーヽヾ", range(0x3041, 0x3093) + U"ーゝゞ"))),
    nameOf);
// clang-format on

TEST(HasPairTest, FindsTheLongestTextAndNothingInNothing) {
    PairAttrib const emptyRow[] = {{{"a", nullptr}, {nullptr, nullptr}}, {}};
    EXPECT_EQ(0u, hasPair("ｶﾞｷ", HANKATA_HIRAGANA_PAIR, 0));
    EXPECT_EQ(NONE, hasPair("がき", HANKATA_HIRAGANA_PAIR, 0));
    EXPECT_EQ(NONE, hasPair("", HANKATA_HIRAGANA_PAIR, 0));
    EXPECT_EQ(NONE, hasPair(nullptr, HANKATA_HIRAGANA_PAIR, 1));
    EXPECT_EQ(NONE, hasPair("ｶ", nullptr, 0));
    EXPECT_EQ(NONE, hasPair("a", emptyRow, 1));

    char dst[] = "#";
    EXPECT_EQ(2u, convertAttrib(dst, sizeof dst, "a", emptyRow, 1, WHOLE));
    EXPECT_STREQ("a", dst);
}

struct Conversion {
    char const* name;
    PairAttrib const* table;
    int reverse;
    char const* text;
    char const* converted;
};

class ConvertAttribTest : public ::testing::TestWithParam<Conversion> {};

TEST_P(ConvertAttribTest, ConvertsWhatTheTableNamesAndKeepsTheRest) {
    auto const [name, table, reverse, text, converted] = GetParam();
    unsigned long const used = std::strlen(converted) + 1;
    std::vector<char> dst(used, '#');

    EXPECT_EQ(used, convertAttrib(dst.data(), used, text, table, reverse, WHOLE));
    EXPECT_STREQ(converted, dst.data());
    EXPECT_EQ(used, convertAttrib(nullptr, 0, text, table, reverse, WHOLE));
    if (used > 1) {
        EXPECT_EQ(NONE, convertAttrib(dst.data(), used - 1, text, table, reverse, WHOLE));
    }

    std::vector<char> inPlace(text, text + std::strlen(text) + 1);
    inPlace.resize(std::max<unsigned long>(inPlace.size(), used));
    EXPECT_EQ(used, convertAttrib(inPlace.data(), used, inPlace.data(), table, reverse, WHOLE));
    EXPECT_STREQ(converted, inPlace.data());
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Words, ConvertAttribTest, ::testing::Values(
    Conversion{"ToUpper", LOWER_UPPER_PAIR, 0, "ABCａ", "ABCＡ"},
    Conversion{"ToLower", LOWER_UPPER_PAIR, 1, "ABCａ", "abcａ"},
    Conversion{"ToFullWidth", HANKAKU_ZENKAKU_PAIR, 0, "ﾎﾟｹｯﾄ 12% ｳﾞｧ", "ポケット　１２％　ヴァ"},
    Conversion{"ToHalfWidth", HANKAKU_ZENKAKU_PAIR, 1, "「ガイド」￥５￣’", "｢ｶﾞｲﾄﾞ｣\\5~'"},
    Conversion{"ToVoiced", NODAKUON_DAKUON_PAIR, 0, "かんウいすヽﾞ", "がんヴいずヾﾞ"},
    Conversion{"ToUnvoiced", NODAKUON_DAKUON_PAIR, 1, "ﾀﾞｲｶﾞｸがぱ", "ﾀｲｶｸかぱ"},
    Conversion{"ToSemivoiced", NODAKUON_HANDAKUON_PAIR, 0, "ﾊﾋは゜カ", "ﾊﾟﾋﾟぱ゜カ"},
    Conversion{"HalfToHiragana", HANKATA_HIRAGANA_PAIR, 0, "ｶﾞｷｳﾞﾊﾟ､ｰ", "がきう゛ぱ、ー"},
    Conversion{"HiraganaToHalf", HANKATA_HIRAGANA_PAIR, 1, "がくせい。ゐ", "ｶﾞｸｾｲ｡ゐ"},
    Conversion{"FullToHiragana", ZENKATA_HIRAGANA_PAIR, 0, "漢字ガナー・ヴヶ", "漢字がなー・ヴヶ"},
    Conversion{"HiraganaToFull", ZENKATA_HIRAGANA_PAIR, 1, "すゞめ\xF0\x9F\x90\xA6か",
               "スヾメ\xF0\x9F\x90\xA6カ"},
    Conversion{"ByteOrderMark", LOWER_UPPER_PAIR, 0, "\xEF\xBB\xBFz", "\xEF\xBB\xBFZ"},
    Conversion{"NoTable", nullptr, 0, "aｶﾞ", "aｶﾞ"},
    Conversion{"MalformedAtTheEnd", LOWER_UPPER_PAIR, 0, "あ\x81z", "あ"},
    Conversion{"MalformedFromTheStart", LOWER_UPPER_PAIR, 0, "\xE3\x81", ""},
    Conversion{"Empty", LOWER_UPPER_PAIR, 0, "", ""}),
    nameOf);
// clang-format on

TEST(ConvertAttribLimitsTest, RefusesWhatIsNullOrOverlong) {
    std::string const overlong(WorkingBuffer<char>::SIZE, 'a');
    char dst[] = "#";
    EXPECT_EQ(NONE, convertAttrib(dst, 2, nullptr, LOWER_UPPER_PAIR, 0, TRUNCATE));
    EXPECT_EQ(NONE, convertAttrib(nullptr, 2, "a", LOWER_UPPER_PAIR, 0, TRUNCATE));
    EXPECT_EQ(NONE, convertAttrib(dst, 2, overlong.c_str(), LOWER_UPPER_PAIR, 0, TRUNCATE));
    EXPECT_STREQ("#", dst);
    EXPECT_EQ(2u, convertAttrib(dst, 2, overlong.c_str() + 1, LOWER_UPPER_PAIR, 0, TRUNCATE));
    EXPECT_STREQ("A", dst);
}

TEST(ConvertAttribLimitsTest, LeavesOutWhatFindsNoRoomAndGoesOn) {
    char dst[4];
    EXPECT_EQ(3u, convertAttrib(dst, 4, "aあb", LOWER_UPPER_PAIR, 0, TRUNCATE));
    EXPECT_STREQ("AB", dst);
    EXPECT_EQ(4u, convertAttrib(dst, 4, "が", HANKATA_HIRAGANA_PAIR, 1, TRUNCATE));
    EXPECT_STREQ("ｶ", dst);
}

using ByteRows = std::vector<std::pair<std::string, std::string>>;

// As plain as can be: row by row, and character by character what still finds room.
unsigned long convertPlainly(std::string& dst, unsigned long size, std::string src,
                             ByteRows const& rows, int trunc) {
    while (!src.empty()) {
        unsigned long taken = t_charlen(src.c_str());
        std::string piece = src.substr(0, taken);
        for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
            if (!row->first.empty() && src.compare(0, row->first.size(), row->first) == 0) {
                taken = row->first.size();
                piece = row->second;
            }
        }
        if (taken == NONE) {
            break;
        }
        src.erase(0, taken);
        if (trunc != TRUNCATE && dst.size() + piece.size() >= size) {
            return NONE;
        }
        while (!piece.empty() && dst.size() + t_charlen(piece.c_str()) < size) {
            dst.append(piece, 0, t_charlen(piece.c_str()));
            piece.erase(0, t_charlen(piece.c_str()));
        }
    }
    return dst.size() + 1;
}

TEST(ConvertAttribRandomTest, EqualsThePlainWay) {
    std::mt19937 random(8);
    auto const pick = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
    auto const makeText = [&](unsigned length) {
        // Some end in the same byte, some begin with the same ones.
        char const* const alphabet[] = {"a", "\xC3\xA1", "\xE3\x81\xA1", "\xF0\x9F\x90\xA1",
                                        "ｶ", "ﾞ",        "が",           "漢"};
        std::string text;
        while (length-- > 0) {
            text += alphabet[pick(8)];
        }
        return text;
    };
    for (int round = 0; round < 4000; ++round) {
        int const reverse = round & 1;
        int const trunc = round >> 1 & 1;
        bool const isLarge = pick(50) == 0;  // more rows than a byte can number
        ByteRows rows(isLarge ? 300 : pick(8));
        std::vector<PairAttrib> table;
        for (auto& [from, to] : rows) {
            // Some are empty; "\xE3" is no character, but many begin with it.
            from = pick(isLarge ? 600 : 20) == 0 ? "\xE3" : makeText(isLarge ? 3 : pick(4));
            to = makeText(pick(4));
            DualText const source{from.c_str(), nullptr};
            DualText const target{to.c_str(), nullptr};
            table.push_back(reverse != 0 ? PairAttrib{target, source} : PairAttrib{source, target});
        }
        table.push_back({});
        std::string src = makeText(pick(12)) + (pick(4) == 0 ? "\x81" : "") + makeText(2);
        if (isLarge) {
            src = rows[255].first + src;  // the first row behind those numbers
        }

        std::string expected;
        std::vector<char> dst(1 + pick(40));
        unsigned long const used = convertPlainly(expected, dst.size(), src, rows, trunc);
        ASSERT_EQ(used,
                  convertAttrib(dst.data(), dst.size(), src.c_str(), table.data(), reverse, trunc))
            << round;
        ASSERT_TRUE(used == NONE || expected == dst.data()) << round;
    }
}

}  // namespace
}  // namespace utl
