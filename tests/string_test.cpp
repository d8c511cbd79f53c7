#include "UtlString.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <thread>

#include "support/FencedBuffer.h"
#include "support/PlainStrings.h"

namespace utl {
namespace {

constexpr unsigned long SCRATCH = WorkingBuffer<char>::SIZE;
constexpr unsigned long UNTOUCHED = 4711;

TEST(FirstCharacterTest, IsMeasuredByItsBytes) {
    struct {
        char const* text;
        unsigned long strict;
        unsigned long lenient;
        bool isBom;
    } const cases[] = {
        {"", 0, 0, false},
        {"\xC1\xBF", NONE, 0, false},
        {"\xC2\x80", 2, 2, false},
        {"\xE0\x9F\xBF", NONE, 0, false},
        {"\xE0\xA0\x80", 3, 3, false},
        {"\xED\xA0\x80", 3, 3, false},  // surrogate
        {"\xEF\xBB\xBFx", 3, 3, true},
        {"\xF0\x8F\xBF\xBF", NONE, 0, false},
        {"\xF0\x90\x80\x80", 4, 4, false},
        {"\xF7\xBF\xBF\xBF", 4, 4, false},  // beyond Unicode
        {"\xBF", NONE, NONE, false},
        {"\xF8\x80\x80\x80\x80", NONE, NONE, false},
        {"\xE3\x81", NONE, 0, false},
        {"\xF0\x90\x80z", NONE, 0, false},
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

TEST(NearCharIndexTest, MovesToTheBoundaryOnTheSideAskedFor) {
    char const* const text = "a\xE3\x81\x82z";
    EXPECT_EQ(1UL, getNearCharIndex(text, 3, 1));
    EXPECT_EQ(4UL, getNearCharIndex(text, 2, 0));
    EXPECT_EQ(4UL, getNearCharIndex(text, 4, 1));
    EXPECT_EQ(5UL, getNearCharIndex(text, 99, 1));
    EXPECT_EQ(NONE, getNearCharIndex("\x80", 1, 1));
}

// What a function that stores text does with a buffer of 6 bytes that holds the text "old".
struct Storing {
    char const* name;
    unsigned long (*store)(char* dst);
    unsigned long result;
    char const* stored;  // null: nothing was written
};

class StoringTest : public ::testing::TestWithParam<Storing> {};

TEST_P(StoringTest, StoresWholeCharactersAndNothingOutside) {
    test::FencedBuffer dst(6, "old");
    EXPECT_EQ(GetParam().result, GetParam().store(dst.data()));
    EXPECT_STREQ(GetParam().stored == nullptr ? "old" : GetParam().stored, dst.data());
    EXPECT_EQ(GetParam().stored == nullptr, dst.isUntouched());
    EXPECT_TRUE(dst.fencesIntact());
}

constexpr auto nameOf = [](auto const& tested) { return std::string(tested.param.name); };

// clang-format off
#define STORING(name, call, ...) \
    Storing{#name, []([[maybe_unused]] char* d) { return call; }, __VA_ARGS__}

INSTANTIATE_TEST_SUITE_P(Copy, StoringTest, ::testing::Values(
    STORING(FitsExactly, copyStr(d, 4, "a\xC3\xA9", ALL, WHOLE), 4, "a\xC3\xA9"),
    STORING(OneTooMany, copyStr(d, 3, "a\xC3\xA9", ALL, WHOLE), NONE, nullptr),
    STORING(CutInsideTwoBytes, copyStr(d, 3, "a\xC3\xA9", ALL, TRUNCATE), 2, "a"),
    STORING(CutInsideByteOrderMark, copyStr(d, 3, "\xEF\xBB\xBFx", ALL, TRUNCATE), 1, ""),
    STORING(RoomForTheTerminatorOnly, copyStr(d, 1, "ab", ALL, TRUNCATE), 1, ""),
    STORING(NoBytes, copyStr(d, 6, "abc", 0, WHOLE), 0, nullptr),
    STORING(NoBytesInTheMiddle, copyGeneral<char>(d, 6, 5, nullptr, 3, 0, WHOLE), 5, nullptr),
    STORING(SizeNeeded, copyGeneral<char>(nullptr, 0, 5, "abcd", 2, ALL, WHOLE), 8, nullptr),
    STORING(PositionOfTheLastByte, copyGeneral(d, 6, 5, "x", 0, ALL, WHOLE), NONE, nullptr),
    STORING(EmptyBehindTheBuffer, copyGeneral(d, 6, 6, "", 0, ALL, WHOLE), NONE, nullptr),
    STORING(PositionNone, copyGeneral(d, 6, NONE, "x", 0, ALL, TRUNCATE), NONE, nullptr),
    STORING(FromBehindTheEnd, copyGeneral(d, 6, 0, "abc", 4, ALL, WHOLE), NONE, nullptr),
    STORING(NoBoundary, copyGeneral(d, 6, 2, "\x81\x82\x83", 0, 2, WHOLE), NONE, nullptr),
    STORING(NullSource, copyStr<char>(d, 6, nullptr, ALL, WHOLE), NONE, nullptr),
    STORING(NullDestination, copyStr<char>(nullptr, 6, "abc", ALL, WHOLE), NONE, nullptr),
    STORING(LimitInsideACharacter, t_strncpy(d, 6, "a\xE3\x81\x82", 3), 2, "a"),
    STORING(NoRoomForTheUncutBytes, t_strncpy(d, 3, "a\xE3\x81\x82", 3), NONE, nullptr)), nameOf);

INSTANTIATE_TEST_SUITE_P(Combine, StoringTest, ::testing::Values(
    STORING(ToACopy, combineStr(d, 6, "abc", "defg", 2, WHOLE), 6, "abcde"),
    STORING(InPlaceAndCut, combineStr<char>(d, 6, d, "x\xC3\xA9", ALL, TRUNCATE), 5, "oldx"),
    STORING(NoRoom, combineStr<char>(d, 6, d, "xyz", ALL, WHOLE), NONE, nullptr),
    STORING(NullBase, combineStr<char>(d, 6, nullptr, "abc", ALL, WHOLE), NONE, nullptr)), nameOf);

INSTANTIATE_TEST_SUITE_P(Format, StoringTest, ::testing::Values(
    STORING(FitsExactly, formatStr(d, 6, "%s%d", "abc", 42), 6, "abc42"),
    STORING(OneTooMany, formatStr(d, 6, "%s%d", "abc", 123), NONE, "abc12"),
    STORING(TerminatorInside, formatStr(d, 6, "ab%cde", '\0'), 3, "ab"),
    STORING(NoSize, formatStr(d, 0, "%s", "a"), NONE, nullptr)), nameOf);

INSTANTIATE_TEST_SUITE_P(Erase, StoringTest, ::testing::Values(
    STORING(InTheMiddle, eraseStrSpan(d, 6, "abcdef", 1, 3, WHOLE), 4, "aef"),
    STORING(ToTheEnd, eraseStrSpan(d, 6, "abc", 2, ALL, WHOLE), 3, "ab"),
    STORING(PositionBehindTheEnd, eraseStrSpan(d, 6, "abc", 4, 0, WHOLE), NONE, nullptr),
    STORING(Cut, eraseStrSpan(d, 6, "abcdefg", 0, 1, TRUNCATE), 6, "bcdef"),
    STORING(InPlace, eraseStrSpan(d, 1, 1), 3, "od")), nameOf);

INSTANTIATE_TEST_SUITE_P(Reverse, StoringTest, ::testing::Values(
    STORING(FitsExactly, reverseStr(d, 5, "a\xE3\x81\x82", WHOLE), 5, "\xE3\x81\x82\x61"),
    STORING(CutInsideTheLast, reverseStr(d, 3, "a\xE3\x81\x82", TRUNCATE), 3, "\xE3\x81"),
    STORING(NoSize, t_strrev(d, 0, "", TRUNCATE), NONE, nullptr)), nameOf);

INSTANTIATE_TEST_SUITE_P(Replace, StoringTest, ::testing::Values(
    STORING(Cut, replaceStr(d, 6, "l", "-+-+", TRUNCATE), 6, "o-+-+"),
    STORING(NothingForSomethingDropsTheRest, replaceStr(d, 6, "l", "", WHOLE), 2, "o"),
    STORING(NullPattern, replaceStr<char>(d, 6, nullptr, "b", WHOLE), NONE, nullptr),
    STORING(NullReplacement, replaceStr<char>(d, 6, "l", nullptr, WHOLE), NONE, nullptr)), nameOf);
// clang-format on

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

// What the comparisons with plain versions below leave out.
TEST(SearchTest, FindsWhereItIsSaidAndTellsWhereThatEnds) {
    struct {
        char const* name;
        unsigned long (*search)(char const*, char const*, unsigned long, unsigned long*);
        char const* text;
        char const* key;
        unsigned long offset;
        unsigned long index;
        unsigned long end;
    } const cases[] = {
        {"empty pattern", findStr<char>, "abc", "", 1, 3, NONE},
        {"null text", findStr<char>, nullptr, "a", 0, NONE, UNTOUCHED},
        {"token between", findToken<char>, ",,a\xC3\xA9;b", ",;", 0, 2, 5},
        {"last token", findToken<char>, ",,a\xC3\xA9;b", ",;", 5, 6, 7},
        {"wide delimiter", findToken<char>, "\xE3\x80\x80xy\xE3\x80\x80", "\xE3\x80\x80", 0, 3, 5},
        {"delimiters only", findToken<char>, "a,,,", ",", 1, NONE, NONE},
        {"ends before the offset", findReverseStr<char>, "abcabc", "bc", 4, 2, 0},
        {"empty pattern, reverse", findReverseStr<char>, "abc", "", 0, 3, 2},
        {"null text, reverse", findReverseStr<char>, nullptr, "a", 0, NONE, UNTOUCHED},
        {"first of two", findReverseChar<char>, "a/b/c", "/x", 4, 3, 2},
        {"byte order mark", findReverseChar<char>, "a", "\xEF\xBB\xBF", 1, NONE, UNTOUCHED},
        {"incomplete is empty", findReverseChar<char>, "abc", "\xC3", 2, 3, 2},
    };
    for (auto const& c : cases) {
        unsigned long end = UNTOUCHED;
        EXPECT_EQ(c.index, c.search(c.text, c.key, c.offset, &end)) << c.name;
        EXPECT_EQ(c.end, end) << c.name;
        EXPECT_EQ(c.index, c.search(c.text, c.key, c.offset, nullptr)) << c.name;
    }
    EXPECT_EQ(3UL, t_strstr("abc", ""));
}

TEST(SpanTest, MalformedCharacterEndsTheSet) {
    EXPECT_EQ(1UL, t_strspn("abc", "a\xC3z"));
    EXPECT_EQ(1UL, t_strspn("a\x80", "a\x80"));
    EXPECT_EQ(2UL, t_strcspn("a\x80z", "z"));
    EXPECT_EQ(3UL, t_strcspn("abz", "\x80z"));
}

TEST(CompareStrNoCaseTest, FoldsLettersOfBothWidths) {
    EXPECT_EQ(0, compareStrNoCase("aBc\xEF\xBC\xA1", "AbC\xEF\xBD\x81", ALL));
    EXPECT_LT(compareStrNoCase("_", "A", ALL), 0);
    EXPECT_EQ(0, compareStrNoCase<char>(nullptr, "", ALL));
}

TEST(CompareStrNoCaseTest, NeedsNoScratchMemory) {
    WorkingBuffer<char> const first, second, third;
    std::string text(SCRATCH - 1, 'a');
    copyStr<char>(third, SCRATCH, std::string(SCRATCH - 1, 'A').c_str(), ALL, WHOLE);

    EXPECT_EQ(0, compareStrNoCase<char>(third, text.c_str(), ALL));
    text.back() = 'b';
    EXPECT_LT(compareStrNoCase<char>(third, text.c_str(), ALL), 0);
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
class PlainFormTest : public ::testing::Test {
protected:
    static constexpr int ROUNDS = 30000;

    unsigned long pick(unsigned long below) { return mRandom() % below; }

    std::string text(unsigned long maxPieces) {
        static char const* const PIECES[] = {"a", "b", "A", "\xC3\xA9", "\xE3\x81\x82",
                                             "\xEF\xBC\xA0", "\xEF\xBC\xA1", "\xEF\xBD\x81",
                                             "\xEF\xBB\xBF", "\xF0\x9F\x98\x80",
                                             // The malformed ones.
                                             "\x80", "\xE3\x81", "\xC0\x80", "\xFF"};
        unsigned long const pieces = std::size(PIECES) - (pick(2) == 0 ? 4 : 0);
        std::string result;
        for (unsigned long i = pick(maxPieces + 1); i > 0; --i) {
            result += PIECES[pick(pieces)];
        }
        return result;
    }

    // Text to look for in `s`: often a piece of it.
    std::string key(std::string const& s) {
        return pick(2) == 0 ? text(3) : s.substr(pick(s.size() + 1), pick(6));
    }

    // Has `tested` work on `size` bytes that hold `text`.
    template <typename Tested>
    void expectText(plain::Text const& expected, unsigned long size, std::string const& text,
                    Tested tested) {
        test::FencedBuffer dst(size, text);
        bool const fits = expected && expected->size() < size;
        ASSERT_EQ(fits ? expected->size() + 1 : NONE, tested(dst.data()));
        EXPECT_TRUE(dst.fencesIntact());
        if (fits) {
            EXPECT_EQ(*expected, dst.data());
        }
    }

private:
    std::mt19937 mRandom{20240607};
};

TEST_F(PlainFormTest, StoresTheSameText) {
    for (int round = 0; round < ROUNDS && !HasFailure(); ++round) {
        std::string const s = "-" + text(12), k = key(s), to = text(3);
        unsigned long const size = 1 + pick(40), room = s.size() + 1 + pick(10);
        SCOPED_TRACE(::testing::PrintToString(s) + ::testing::PrintToString(k));
        plain::Text const reversed = plain::reverse(s);

        expectText(reversed, size, "",
                   [&](char* dst) { return reverseStr(dst, size, s.c_str(), WHOLE); });
        expectText(reversed ? reversed->substr(0, size - 1) : reversed, size, "",
                   [&](char* dst) { return reverseStr(dst, size, s.c_str(), TRUNCATE); });
        expectText(plain::replace(s, k, to), room, s,
                   [&](char* dst) { return replaceStr(dst, room, k.c_str(), to.c_str(), WHOLE); });
        expectText(plain::truncate(s, size), room, s,
                   [&](char* dst) { return truncateStr(dst, size); });
    }
}

TEST_F(PlainFormTest, FindsTheSamePlacesAndComparesTheSame) {
    auto const sign = [](int order) { return (order > 0) - (order < 0); };
    for (int round = 0; round < ROUNDS && !HasFailure(); ++round) {
        std::string const s = text(12), k = key(s), other = s.substr(0, pick(9)) + text(1);
        unsigned long const n = pick(s.size() + 2);
        SCOPED_TRACE(::testing::PrintToString(s) + ::testing::PrintToString(k));
        unsigned long end = UNTOUCHED, plainEnd = UNTOUCHED;
        EXPECT_EQ(plain::find(s, k, n, &plainEnd), findStr(s.c_str(), k.c_str(), n, &end));
        EXPECT_EQ(plainEnd, end);
        EXPECT_EQ(plain::findReverse(s, k, n, &plainEnd),
                  findReverseStr(s.c_str(), k.c_str(), n, &end));
        EXPECT_EQ(plainEnd, end);
        EXPECT_EQ(sign(plain::compareNoCase(s, other, n)),
                  sign(compareStrNoCase(s.c_str(), other.c_str(), n)));
    }
}

}  // namespace
}  // namespace utl
