#include "UtlString.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <thread>

#include "support/FencedBuffer.h"
#include "support/Sanitizer.h"
#include "support/StringPairs.h"

namespace utl {
namespace {

constexpr unsigned long SCRATCH = WorkingBuffer<char>::SIZE;
constexpr unsigned long UNTOUCHED = 4711;

TEST(FirstCharacterTest, IsMeasuredByItsBytes) {
    struct {
        char const* text;
        unsigned long strict, lenient;
        bool isBom;
    } const cases[] = {
        // clang-format off
        {"", 0, 0, false},               {"\xC2\x80", 2, 2, false},         {"\xE0\xA0\x80", 3, 3, false},
        {"\xF0\x90\x80\x80", 4, 4, false},
        {"\xED\xA0\x80", 3, 3, false},   {"\xF7\xBF\xBF\xBF", 4, 4, false},  // surrogate, and beyond Unicode
        {"\xEF\xBB\xBFx", 3, 3, true},
        {"\xC1\xBF", NONE, 0, false},    {"\xE0\x9F\xBF", NONE, 0, false},  {"\xF0\x8F\xBF\xBF", NONE, 0, false},
        {"\xE3\x81", NONE, 0, false},    {"\xF0\x90\x80z", NONE, 0, false}, {"\xBF", NONE, NONE, false},
        {"\xF8\x80\x80\x80\x80", NONE, NONE, false},
        // clang-format on
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.text));
        bool strictBom = !c.isBom, lenientBom = !c.isBom;
        EXPECT_EQ(c.strict, t_charlen(c.text, &strictBom));
        EXPECT_EQ(c.lenient, strCharBytesBase(c.text, &lenientBom));
        EXPECT_EQ(c.isBom, strictBom);
        EXPECT_EQ(c.isBom, lenientBom);
    }
    EXPECT_EQ(0UL, t_charlen<char>(nullptr));
}

// What the comparisons with plain versions below leave out.
TEST(StoringTest, ReturnsWhatItUsedAndLeavesTheRestAlone) {
    // In 6 bytes that hold "old"; null for `text`: nothing was written.
    auto const expectStored = [](char const* name, unsigned long (*store)(char* dst),
                                 unsigned long result, char const* text) {
        SCOPED_TRACE(name);
        test::FencedBuffer dst(6, "old");
        EXPECT_EQ(result, store(dst.data()));
        EXPECT_STREQ(text == nullptr ? "old" : text, dst.data());
        EXPECT_EQ(text == nullptr, dst.isUntouched());
        EXPECT_TRUE(dst.fencesIntact());
    };
    // clang-format off
#define STORING(call, ...) expectStored(#call, [](char* d) { (void)d; return call; }, __VA_ARGS__)
    STORING(copyStrBase(d, 4, "a\xC3\xA9", ALL, WHOLE), 4, "a\xC3\xA9");
    STORING(copyStr(d, 3, "\xEF\xBB\xBFx", ALL, TRUNCATE), 1, "");
    STORING(copyStr<char>(d, 6, nullptr, 0, WHOLE), NONE, nullptr);
    STORING(copyStr<char>(nullptr, 6, "abc", ALL, WHOLE), NONE, nullptr);
    STORING(copyGeneral<char>(d, 6, 5, nullptr, 3, 0, WHOLE), 5, nullptr);
    STORING(copyGeneral<char>(d, 6, 5, nullptr, 0, ALL, WHOLE), NONE, nullptr);
    STORING(copyGeneral<char>(nullptr, 0, 5, "abcd", 2, ALL, WHOLE), 8, nullptr);
    STORING(copyGeneral(d, 6, 6, "x", 0, ALL, TRUNCATE), NONE, nullptr);
    STORING(t_strncpy<char>(d, 6, nullptr, 3), 1, "");
    STORING(t_strncpy<char>(nullptr, 6, "abc", 3), NONE, nullptr);
    STORING(combineStr<char>(d, 6, nullptr, "abc", ALL, WHOLE), NONE, nullptr);
    STORING(combineStr<char>(d, 6, d, nullptr, 0, WHOLE), 4, nullptr);
    STORING(combineStr<char>(d, 6, d, nullptr, 1, WHOLE), NONE, nullptr);
    STORING(formatStr(d, 6, "%s%d", "abc", 42), 6, "abc42");
    STORING(formatStr(d, 6, "%s%d", "abc", 123), NONE, "abc12");
    STORING(formatStr(d, 6, "ab%cde", '\0'), 3, "ab");
    STORING(formatStr(d, 6, "%s", ""), 1, "");
    STORING(formatStr(d, 6, "%lc", static_cast<wint_t>(-1)), NONE, "");
    STORING(formatStr(d, 0, "%s", "a"), NONE, nullptr);
    STORING(formatStr<char>(nullptr, 6, "%s", "a"), NONE, nullptr);
    STORING(truncateStr<char>(nullptr, 3), NONE, nullptr);
    STORING(getNearCharIndex<char>(nullptr, 0, 1), NONE, nullptr);
    STORING(eraseStrSpan<char>(d, 6, nullptr, 0, 0, WHOLE), NONE, nullptr);
    STORING(eraseStrSpan<char>(nullptr, 0, 0), NONE, nullptr);
    STORING(reverseStr<char>(d, 6, nullptr, WHOLE), NONE, nullptr);
    STORING(reverseStr(d, 0, "abc", WHOLE), 4, nullptr);
    STORING(t_strrev(d, 0, "", TRUNCATE), NONE, nullptr);
    STORING(t_strrev<char>(nullptr, 6, "abc", TRUNCATE), NONE, nullptr);
    STORING(t_strrev<char>(d, 6, nullptr, WHOLE), 1, "");
    STORING(replaceStr<char>(d, 6, nullptr, "b", WHOLE), NONE, nullptr);
    STORING(replaceStr<char>(d, 6, "l", nullptr, WHOLE), NONE, nullptr);
    // clang-format on
}

TEST(WorkingBufferLimitTest, TextsThatOneCannotHoldAreRefused) {
    std::string text(SCRATCH, 'x');
    EXPECT_EQ(NONE, eraseStrSpan(&text[0], 0, ALL));
    EXPECT_EQ(NONE, replaceStr(&text[0], SCRATCH + 1, "x", "y", WHOLE));
    EXPECT_EQ(NONE, findReverseStr<char>(text.c_str(), "x", ALL, nullptr));
    EXPECT_EQ(-1, compareStrNoCase(text.c_str(), "x", 1));
    text.pop_back();
    EXPECT_EQ(SCRATCH, replaceStr(&text[0], SCRATCH, "x", "y", WHOLE));
    EXPECT_EQ(SCRATCH - 2, findReverseStr<char>(text.c_str(), "y", ALL, nullptr));
    EXPECT_EQ(1, compareStrNoCase(text.c_str(), "x", 1));
    EXPECT_EQ(SCRATCH - 1, eraseStrSpan(&text[0], 5, 1));
}

// Likewise.
TEST(SearchTest, FindsWhereItIsSaidAndTellsWhereThatEnds) {
    auto const expectFound = [](char const* name, auto search, char const* text, char const* key,
                                unsigned long offset, unsigned long index, unsigned long end) {
        unsigned long found = UNTOUCHED;
        EXPECT_EQ(index, search(text, key, offset, &found)) << name;
        EXPECT_EQ(end, found) << name;
        EXPECT_EQ(index, search(text, key, offset, nullptr)) << name;
    };
    expectFound("empty pattern", findStr<char>, "abc", "", 1, 3, NONE);
    expectFound("null text", findStr<char>, nullptr, "a", 0, NONE, UNTOUCHED);
    expectFound("null pattern", findStr<char>, "abc", nullptr, 0, NONE, UNTOUCHED);
    expectFound("token of null", findToken<char>, nullptr, ",", 0, NONE, UNTOUCHED);
    expectFound("token by null", findToken<char>, "a", nullptr, 0, NONE, UNTOUCHED);
    expectFound("empty pattern, reverse", findReverseStr<char>, "abc", "", 0, 3, 2);
    expectFound("null text, reverse", findReverseStr<char>, nullptr, "a", 0, NONE, UNTOUCHED);
    expectFound("null pattern, reverse", findReverseStr<char>, "a", nullptr, 0, NONE, UNTOUCHED);
    expectFound("first of two", findReverseChar<char>, "a/\U0001F600/b", "\U0001F600x", 9, 5, 1);
    expectFound("byte order mark", findReverseChar<char>, "a", "\xEF\xBB\xBF", 1, NONE, UNTOUCHED);
    expectFound("incomplete is empty", findReverseChar<char>, "abc", "\xC3", 2, 3, 2);
    EXPECT_EQ(3UL, t_strstr("abc", ""));
    EXPECT_EQ(3UL, t_strstr<char>("abc", nullptr));
    EXPECT_EQ(NONE, t_strstr<char>(nullptr, "abc"));
    EXPECT_EQ(0UL, t_strlen<char>(nullptr));
    EXPECT_EQ(0UL, t_strspn<char>(nullptr, "a") + t_strspn<char>("a", nullptr));
    EXPECT_EQ(0UL, t_strcspn<char>(nullptr, "a"));
    EXPECT_EQ(1UL, t_strcspn<char>("a", nullptr));
}

// For minutes, if each step counted the text off from its start, as the sanitizers' strstr() does
// to its end.
TEST(LongTextTest, IsWalkedThroughStepByStep) {
    constexpr unsigned long STEPS = UTL_SANITIZED ? 5000 : 2000000;
    std::string text;
    for (unsigned long i = 0; i < STEPS; ++i) {
        text += "a,";
    }
    unsigned long steps = 0;
    for (unsigned long end = 0; findStr<char>(text.c_str(), ",", end, &end) != NONE; ++steps) {
    }
    EXPECT_EQ(STEPS, steps);
    for (unsigned long end = 0; findToken<char>(text.c_str(), ",", end, &end) != NONE; --steps) {
    }
    EXPECT_EQ(0UL, steps);

    // What a step itself has cut off is noticed.
    text[5000] = '\0';
    for (unsigned long const end : {5001UL, 5000UL + 1024}) {
        unsigned long found = end;
        EXPECT_EQ(NONE, findStr<char>(text.c_str(), ",", end, &found));
        EXPECT_EQ(NONE, findToken<char>(text.c_str(), ",", end, &found));
        EXPECT_EQ(end, found);
    }
}

// For minutes, if it were compared anew wherever it nearly is.
TEST(LongTextTest, IsSearchedForALongPattern) {
    constexpr unsigned long LENGTH = 1000000;
    std::string text;
    for (unsigned long i = 0; i < LENGTH; ++i) {
        text += "\u3042";
    }
    std::string const pattern = text.substr(text.size() / 2) + "\u3044";
    unsigned long const begin = text.size() / 2;
    EXPECT_EQ(NONE, t_strstr(text.c_str(), pattern.c_str()));
    EXPECT_EQ(begin, t_strstr((text + "\u3044" + text).c_str(), pattern.c_str()));
}

// For minutes, if each character were compared with each of the set.
TEST(LongTextTest, IsSearchedForManyCharacters) {
    std::string set, text;
    for (unsigned c = 0x4E00; c < 0x9E00; ++c) {
        set += {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3F)),
                static_cast<char>(0x80 | (c & 0x3F))};
    }
    for (int i = 0; i < 100; ++i) {
        text += set;
    }
    EXPECT_EQ(text.size(), t_strspn((text + "z").c_str(), set.c_str()));
    text.assign(text.size(), 'a');
    EXPECT_EQ(text.size(), t_strcspn((text + "\u4E00").c_str(), set.c_str()));
}

TEST(CompareStrNoCaseTest, FoldsLettersWithoutScratchMemory) {
    WorkingBuffer<char> const first, second, third;
    std::string text(SCRATCH - 1, 'a');
    copyStr<char>(third, SCRATCH, std::string(SCRATCH - 1, 'A').c_str(), ALL, WHOLE);
    EXPECT_EQ(0, compareStrNoCase<char>(third, text.c_str(), ALL));
    text.back() = 'b';
    EXPECT_LT(compareStrNoCase<char>(third, text.c_str(), ALL), 0);
    EXPECT_LT(compareStrNoCase("_", "A", ALL), 0);
    EXPECT_EQ(0, compareStrNoCase<char>(nullptr, "", ALL) | compareStr<char>("", nullptr, ALL));
}

TEST(WorkingBufferTest, NestsThreeDeepAndSharesTheThirdFromThereOn) {
    WorkingBuffer<char> const first, second, third, fourth;
    std::memset(first, '1', SCRATCH);
    std::memset(second, '2', SCRATCH);
    std::memset(third, '3', SCRATCH);
    EXPECT_EQ(std::string(SCRATCH, '1'), std::string(first, SCRATCH));
    EXPECT_EQ(std::string(SCRATCH, '2'), std::string(second, SCRATCH));
    EXPECT_EQ(static_cast<char*>(third), static_cast<char*>(fourth));
}

TEST(WorkingBufferTest, KeepsThreadsApartInTheSameSlots) {
    char* const slot = WorkingBuffer<char>();
    auto const countFaults = [slot](char mark, int* faults) {
        for (int i = 0; i < 2000; ++i) {
            WorkingBuffer<char> const outer, inner;
            std::memset(inner, mark, 64);
            bool const isKept = std::string(inner, 64) == std::string(64, mark);
            *faults += isKept && static_cast<char*>(outer) == slot ? 0 : 1;
        }
    };
    int faults[2] = {};
    std::thread other(countFaults, 'a', &faults[0]);
    countFaults('b', &faults[1]);
    other.join();
    EXPECT_EQ(0, faults[0] + faults[1]);
}

// The library's functions beside the plain ones, on random text, well-formed or not.
TEST(PlainFormTest, DoesTheSame) {
    // clang-format off
    static char const* const PIECES[] = {
        "a", "b", "A", "\u00E9", "\u3042", "\uFF20", "\uFF21", "\uFF41", "\uFEFF", "\U0001F600",
        "\U00020000", "\u0800", "a long word", "\u306E\u4E00\u3064",
        "\x80", "\xE3", "\xE3\x81", "\xC0\x80", "\xE0\x9F\xBF", "\xE3\xC1\x82", "\xFF"};  // malformed
    // clang-format on
    std::mt19937 random(20240607);
    auto const pick = [&](unsigned long below) { return random() % below; };
    bool isLong = false;  // and so monotonous that every byte of a key is common
    auto const makeText = [&](unsigned long maxPieces) {
        unsigned long const pieces = std::size(PIECES) - (pick(2) == 0 ? 7 : 0);
        std::string text;
        for (unsigned long i = pick(maxPieces * (isLong ? 30 : 1) + 1); i > 0; --i) {
            text += PIECES[isLong && pick(8) != 0 ? 0 : pick(pieces)];
        }
        return text;
    };
    // To look for in `s`: often a piece of it.
    auto const makeKey = [&](std::string const& s) {
        std::string const piece = s.substr(pick(s.size() + 1), pick(isLong ? 24 : 6));
        return pick(2) == 0 ? makeText(3) : piece + (isLong ? PIECES[pick(2)] : "");
    };
    for (int round = 0; round < 30000; ++round) {
        isLong = round % 20 == 0;
        test::StringInput in = {};
        in.s = makeText(12);
        in.held = "-" + makeText(12);
        in.key = makeKey(in.held);
        in.other = makeText(3);
        in.size = pick(40);
        in.pos = pick(in.s.size() + 2);
        in.dstPos = pick(in.held.size() + 1);
        in.count = pick(4) == 0 ? ALL : pick(in.s.size() + 2);
        in.trunc = static_cast<int>(pick(3));
        char const* difference = isLong ? nullptr : in.storingDifference();
        if (difference == nullptr) {
            in.key = makeKey(in.s);
            in.held = in.s.substr(0, pick(9)) + makeText(1);
            in.other = makeText(isLong || pick(2) == 0 ? 3 : 60);
            difference = in.searchingDifference();
        }
        ASSERT_EQ(nullptr, difference)
            << ::testing::PrintToString(in.s) << ::testing::PrintToString(in.held)
            << ::testing::PrintToString(in.key) << ::testing::PrintToString(in.other) << in.size
            << " " << in.pos << " " << in.dstPos << " " << in.count << " " << in.trunc;
    }
}

}  // namespace
}  // namespace utl
