// The character tables, beside the same ones written out, and the conversions.

#include "UtlCharTable.h"

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "UtlCharSet.h"
#include "UtlString.h"

namespace utl {
namespace {

// The narrow form, after a check that the wide one is the same text.
std::string textOf(DualText const& element) {
    std::vector<unsigned short> units(8);
    convertStrFromUtf8ToUtf16(units.data(), units.size(), element.narrow);
    std::wstring const wide(units.begin(), std::find(units.begin(), units.end(), 0));
    EXPECT_EQ(wide, element.wide) << element.narrow;
    return element.narrow;
}

// What the kana tables are made of, in the same order for every kind of kana.
std::string const HAN_NODAKU = "ｶｷｸｹｺｻｼｽｾｿﾀﾁﾂﾃﾄﾊﾋﾌﾍﾎ";
std::string const ZEN_NODAKU = "カキクケコサシスセソタチツテトハヒフヘホ";
std::string const HIRA_NODAKU = "かきくけこさしすせそたちつてとはひふへほ";
std::string const HAN_DAKU = "ｶﾞｷﾞｸﾞｹﾞｺﾞｻﾞｼﾞｽﾞｾﾞｿﾞﾀﾞﾁﾞﾂﾞﾃﾞﾄﾞﾊﾞﾋﾞﾌﾞﾍﾞﾎﾞ";
std::string const ZEN_DAKU = "ガギグゲゴザジズゼゾダヂヅデドバビブベボ";
std::string const HIRA_DAKU = "がぎぐげござじずぜぞだぢづでどばびぶべぼ";
std::string const HAN_HANDAKU = "ﾊﾟﾋﾟﾌﾟﾍﾟﾎﾟ";
std::string const ZEN_HANDAKU = "パピプペポ";
std::string const HIRA_HANDAKU = "ぱぴぷぺぽ";
std::string const HAN_PLAIN = "ｱｲｳｴｵｶｷｸｹｺｻｼｽｾｿﾀﾁﾂﾃﾄﾅﾆﾇﾈﾉﾊﾋﾌﾍﾎﾏﾐﾑﾒﾓﾔﾕﾖﾗﾘﾙﾚﾛﾜｦﾝ";
std::string const ZEN_PLAIN =
    "アイウエオカキクケコサシスセソタチツテトナニヌネノハヒフヘホマミムメモヤユヨラリルレロワヲン";
std::string const HIRA_PLAIN =
    "あいうえおかきくけこさしすせそたちつてとなにぬねのはひふへほまみむめもやゆよらりるれろわをん";
std::string const ZEN_SMALL = "ァィゥェォャュョッ";
std::string const HIRA_SMALL = "ぁぃぅぇぉゃゅょっ";
std::string const HAN_MARKS = "!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";
std::string const ZEN_MARKS = "！”＃＄％＆’（）＊＋，－．／：；＜＝＞？＠［￥］＾＿｀｛｜｝￣";
std::string const LOWER = "abcdefghijklmnopqrstuvwxyz";
std::string const UPPER = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
std::string const ZEN_LOWER = "ａｂｃｄｅｆｇｈｉｊｋｌｍｎｏｐｑｒｓｔｕｖｗｘｙｚ";
std::string const ZEN_UPPER = "ＡＢＣＤＥＦＧＨＩＪＫＬＭＮＯＰＱＲＳＴＵＶＷＸＹＺ";

TEST(CharClassTest, HoldsExactlyItsCharacters) {
    auto const expectClass = [](char const* name, DualText const* table, unsigned long count,
                                std::string const& expected) {
        std::string text;
        DualText const* element = table;
        for (; element->narrow != nullptr; ++element) {
            text += textOf(*element);
        }
        EXPECT_EQ(nullptr, element->wide) << name;
        EXPECT_EQ(expected, text) << name;
        EXPECT_EQ(element, table + count) << name;
    };
    // clang-format off
#define CLASS(table, ...) expectClass(#table, table, __VA_ARGS__)
#define BOTH_WIDTHS(a, z, count, han, zen) CLASS(a##HAN_##z, count, han); CLASS(a##ZEN_##z, count, zen)
    CLASS(KAIGYO_TBL, 2, "\r\n");
    CLASS(TAB_FF_TBL, 3, "\t\v\f");
    CLASS(CTL_OTHER_TBL, 27, "\1\2\3\4\5\6\7\x08\x0E\x0F\x10\x11\x12\x13\x14\x15\x16\x17\x18"
                             "\x19\x1A\x1B\x1C\x1D\x1E\x1F\x7F");
    BOTH_WIDTHS(, SPACE_TBL, 1, " ", "\u3000");
    BOTH_WIDTHS(, MARK_TBL, 32, HAN_MARKS, ZEN_MARKS);
    BOTH_WIDTHS(, DIGIT_TBL, 10, "0123456789", "０１２３４５６７８９");
    BOTH_WIDTHS(, SIGN_TBL, 2, "+-", "＋－");
    BOTH_WIDTHS(, HEX_PREFIX_TBL, 1, "0x", "０ｘ");
    BOTH_WIDTHS(, HEX_SUFFIX_TBL, 2, "Hh", "Ｈｈ");
    BOTH_WIDTHS(LOWER_, HEX_ALPHA_TBL, 6, "abcdef", "ａｂｃｄｅｆ");
    BOTH_WIDTHS(UPPER_, HEX_ALPHA_TBL, 6, "ABCDEF", "ＡＢＣＤＥＦ");
    BOTH_WIDTHS(LOWER_, NOHEX_ALPHA_TBL, 20, LOWER.substr(6), ZEN_LOWER.substr(18));
    BOTH_WIDTHS(UPPER_, NOHEX_ALPHA_TBL, 20, UPPER.substr(6), ZEN_UPPER.substr(18));
    BOTH_WIDTHS(, DAKUTEN_TBL, 1, "\uFF9E", "\u309B");
    BOTH_WIDTHS(, HANDAKUTEN_TBL, 1, "\uFF9F", "\u309C");
    CLASS(NODAKU_HAN_KATA_TBL, 61, "｡｢｣､･" + HAN_PLAIN + "ｧｨｩｪｫｬｭｮｯｰ");
    CLASS(NODAKU_ZEN_KATA_TBL, 67, "。「」、・" + ZEN_PLAIN + "ヰヱヵヶヽ" + ZEN_SMALL + "ヮー");
    CLASS(NODAKU_HIRA_TBL, 65, "。「」、・" + HIRA_PLAIN + "ゐゑゝ" + HIRA_SMALL + "ゎー");
    CLASS(DAKU_HAN_KATA_TBL, 22, HAN_DAKU + "ｳﾞ\uFF9E");
    CLASS(DAKU_ZEN_KATA_TBL, 23, ZEN_DAKU + "ヴヾ\u309B");
    CLASS(DAKU_HIRA_TBL, 27, "。「」、・" + HIRA_DAKU + "ゞ\u309B");
    BOTH_WIDTHS(HANDAKU_, KATA_TBL, 6, HAN_HANDAKU + "\uFF9F", ZEN_HANDAKU + "\u309C");
    CLASS(HANDAKU_HIRA_TBL, 11, "。「」、・" + HIRA_HANDAKU + "\u309C");
    CLASS(HAN_KATA_YOUSOKU_TBL, 9, "ｧｨｩｪｫｬｭｮｯ");
    CLASS(ZEN_KATA_YOUSOKU_TBL, 10, ZEN_SMALL + "ヮ");
    CLASS(HIRA_YOUSOKU_TBL, 10, HIRA_SMALL + "ゎ");
    // clang-format on
}

// That every row is found by either of its texts means that no shorter text stands before it.
TEST(PairTableTest, HoldsExactlyItsPairsAndFindsEach) {
    auto const expectPairs = [](char const* name, PairAttrib const* table, unsigned long count,
                                std::string const& expectedFirsts,
                                std::string const& expectedSeconds) {
        SCOPED_TRACE(name);
        std::string firsts, seconds;
        unsigned long rows = 0;
        for (PairAttrib const* row = table; row->first.narrow != nullptr; ++row, ++rows) {
            EXPECT_EQ(rows, hasPair(row->first.narrow, table, 0));
            EXPECT_EQ(rows, hasPair(row->second.narrow, table, 1));
            firsts += textOf(row->first);
            seconds += textOf(row->second);
        }
        EXPECT_EQ(count, rows);
        EXPECT_EQ(expectedFirsts, firsts);
        EXPECT_EQ(expectedSeconds, seconds);
    };
    // clang-format off
#define PAIRS(table, ...) expectPairs(#table, table, __VA_ARGS__)
    PAIRS(LOWER_UPPER_PAIR, 52, LOWER + ZEN_LOWER, UPPER + ZEN_UPPER);
    PAIRS(HANKAKU_ZENKAKU_PAIR, 184,
          " 0123456789" + UPPER + LOWER + HAN_MARKS + HAN_DAKU + "ｳﾞ\uFF9E" + HAN_HANDAKU +
              "\uFF9F｡｢｣､･" + HAN_PLAIN + "ｧｨｩｪｫｬｭｮｯｰ",
          "\u3000０１２３４５６７８９" + ZEN_UPPER + ZEN_LOWER + ZEN_MARKS + ZEN_DAKU + "ヴ\u309B" +
              ZEN_HANDAKU + "\u309C。「」、・" + ZEN_PLAIN + ZEN_SMALL + "ー");
    PAIRS(NODAKUON_DAKUON_PAIR, 66,
          HAN_NODAKU + "ｳ\uFF9E" + ZEN_NODAKU + "ウヽ" + HIRA_NODAKU + "ゝ\u309B",
          HAN_DAKU + "ｳﾞ\uFF9E" + ZEN_DAKU + "ヴヾ" + HIRA_DAKU + "ゞ\u309B");
    PAIRS(NODAKUON_HANDAKUON_PAIR, 17, "ﾊﾋﾌﾍﾎ\uFF9Fハヒフヘホはひふへほ\u309C",
          HAN_HANDAKU + "\uFF9F" + ZEN_HANDAKU + HIRA_HANDAKU + "\u309C");
    PAIRS(HANKATA_HIRAGANA_PAIR, 88,
          HAN_DAKU + "\uFF9E" + HAN_HANDAKU + "\uFF9F｡｢｣､･" + HAN_PLAIN + "ｧｨｩｪｫｬｭｮｯｰ",
          HIRA_DAKU + "\u309B" + HIRA_HANDAKU + "\u309C。「」、・" + HIRA_PLAIN + HIRA_SMALL + "ー");
    PAIRS(ZENKATA_HIRAGANA_PAIR, 86,
          ZEN_PLAIN + "ヰヱ" + ZEN_DAKU + ZEN_HANDAKU + ZEN_SMALL + "ヮーヽヾ",
          HIRA_PLAIN + "ゐゑ" + HIRA_DAKU + HIRA_HANDAKU + HIRA_SMALL + "ゎーゝゞ");
    // clang-format on
}

TEST(HasPairTest, FindsNothingInNothing) {
    PairAttrib const emptyRow[] = {{{"a", nullptr}, {nullptr, nullptr}}, {}};
    EXPECT_EQ(NONE, hasPair("", HANKATA_HIRAGANA_PAIR, 0));
    EXPECT_EQ(NONE, hasPair(nullptr, HANKATA_HIRAGANA_PAIR, 1));
    EXPECT_EQ(NONE, hasPair("ｶ", nullptr, 0));
    EXPECT_EQ(NONE, hasPair("a", emptyRow, 1));
}

TEST(ConvertAttribTest, RefusesWhatIsNullOrOverlong) {
    std::string const overlong(WorkingBuffer<char>::SIZE, 'a');
    char dst[] = "#";
    EXPECT_EQ(NONE, convertAttrib(dst, 2, nullptr, LOWER_UPPER_PAIR, 0, TRUNCATE));
    EXPECT_EQ(NONE, convertAttrib(nullptr, 2, "a", LOWER_UPPER_PAIR, 0, TRUNCATE));
    EXPECT_EQ(NONE, convertAttrib(dst, 2, overlong.c_str(), LOWER_UPPER_PAIR, 0, TRUNCATE));
    EXPECT_STREQ("#", dst);
    EXPECT_EQ(2u, convertAttrib(dst, 2, overlong.c_str() + 1, LOWER_UPPER_PAIR, 0, TRUNCATE));
}

TEST(ConvertAttribTest, KeepsWhatNoTableNamesAndEndsAtAMalformedCharacter) {
    char text[] = "\xEF\xBB\xBF漢z\x81z";
    EXPECT_EQ(8u, convertAttrib(nullptr, 0, text, LOWER_UPPER_PAIR, 0, WHOLE));
    EXPECT_EQ(8u, convertAttrib(text, 8, text, LOWER_UPPER_PAIR, 0, WHOLE));
    EXPECT_STREQ("\xEF\xBB\xBF漢Z", text);
    EXPECT_EQ(8u, convertAttrib(text, 8, text, nullptr, 0, WHOLE));
    EXPECT_EQ(1u, convertAttrib(text, 8, "\xE3\x81", LOWER_UPPER_PAIR, 0, WHOLE));
    EXPECT_STREQ("", text);
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
            table.push_back({{from.c_str(), nullptr}, {to.c_str(), nullptr}});
            if (reverse != 0) {
                std::swap(table.back().first, table.back().second);
            }
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
