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
        {"a\x80", 1, 1, false},
        {"\xC1\xBF", NONE, 0, false},
        {"\xC2\x80", 2, 2, false},
        {"\xE0\x9F\xBF", NONE, 0, false},
        {"\xE0\xA0\x80", 3, 3, false},
        {"\xED\xA0\x80", 3, 3, false},  // surrogate
        {"\xEF\xBB\xBE", 3, 3, false},
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
    EXPECT_EQ(0UL, getNearCharIndex("\x80", 0, 1));
    EXPECT_EQ(NONE, getNearCharIndex("\x80", 1, 1));
    EXPECT_EQ(NONE, getNearCharIndex<char>(nullptr, 0, 1));
}

// Cutting text to fit: what is stored always ends on a whole character.
struct Cut {
    char const* name;
    char const* text;
    unsigned long room;
    char const* stored;
};

class CopyStrCutTest : public ::testing::TestWithParam<Cut> {};

TEST_P(CopyStrCutTest, StoresTheLongestWholeCharacterPrefix) {
    Cut const& cut = GetParam();
    test::FencedBuffer dst(cut.room);

    EXPECT_EQ(std::strlen(cut.stored) + 1, copyStr(dst.data(), cut.room, cut.text, ALL, TRUNCATE));
    EXPECT_STREQ(cut.stored, dst.data());
    EXPECT_TRUE(dst.fencesIntact());
}

TEST_P(CopyStrCutTest, FailsAndWritesNothingUnlessAllFits) {
    Cut const& cut = GetParam();
    test::FencedBuffer dst(cut.room);

    bool const fits = std::strcmp(cut.text, cut.stored) == 0;
    EXPECT_EQ(!fits, copyStr(dst.data(), cut.room, cut.text, ALL, WHOLE) == NONE);
    EXPECT_EQ(!fits, dst.isUntouched());
    EXPECT_TRUE(dst.fencesIntact());
}

INSTANTIATE_TEST_SUITE_P(Utf8, CopyStrCutTest,
                         ::testing::Values(Cut{"FitsExactly", "a\xC3\xA9", 4, "a\xC3\xA9"},
                                           Cut{"InsideTwoBytes", "a\xC3\xA9", 3, "a"},
                                           Cut{"InsideByteOrderMark", "\xEF\xBB\xBFx", 3, ""},
                                           Cut{"RoomForTheTerminatorOnly", "ab", 1, ""},
                                           Cut{"Empty", "", 1, ""}),
                         [](auto const& tested) { return std::string(tested.param.name); });

TEST(CopyTest, OfNothingReturnsThePositionAndWritesNothing) {
    test::FencedBuffer dst(10);
    EXPECT_EQ(0UL, copyStr(dst.data(), 10, "abc", 0, WHOLE));
    EXPECT_EQ(7UL, copyGeneral<char>(dst.data(), 10, 7, nullptr, 3, 0, WHOLE));
    EXPECT_TRUE(dst.isUntouched());
}

TEST(CopyTest, AnswersASizeOfNoneWithTheSizeNeeded) {
    EXPECT_EQ(4UL, copyStr<char>(nullptr, 0, "abc", ALL, WHOLE));
    EXPECT_EQ(8UL, copyGeneral<char>(nullptr, 0, 5, "abcd", 2, ALL, WHOLE));
    EXPECT_EQ(6UL, combineStr<char>(nullptr, 0, "abc", "defg", 2, WHOLE));
    EXPECT_EQ(3UL, eraseStrSpan<char>(nullptr, 0, "abc", 1, 1, WHOLE));
    EXPECT_EQ(3UL, reverseStr<char>(nullptr, 0, "\xC3\xA9", WHOLE));
}

TEST(CopyTest, NeverWritesAtAPositionOutsideTheBuffer) {
    test::FencedBuffer dst(4);
    EXPECT_EQ(NONE, copyGeneral(dst.data(), 4, 4, "", 0, ALL, WHOLE));
    EXPECT_EQ(NONE, copyGeneral(dst.data(), 4, NONE, "x", 0, ALL, TRUNCATE));
    EXPECT_EQ(NONE, copyGeneral(dst.data(), 4, 3, "x", 0, ALL, WHOLE));
    EXPECT_TRUE(dst.isUntouched());
    EXPECT_EQ(4UL, copyGeneral(dst.data(), 4, 3, "x", 0, ALL, TRUNCATE));
    EXPECT_EQ('\0', dst.data()[3]);
    EXPECT_TRUE(dst.fencesIntact());
}

TEST(CopyTest, RefusesNullAndWhatHasNoBoundary) {
    test::FencedBuffer dst(8);
    EXPECT_EQ(NONE, copyStr<char>(dst.data(), 8, nullptr, ALL, WHOLE));
    EXPECT_EQ(NONE, copyStr<char>(nullptr, 8, "abc", ALL, WHOLE));
    EXPECT_EQ(NONE, combineStr<char>(dst.data(), 8, nullptr, "abc", ALL, WHOLE));
    EXPECT_EQ(NONE, copyGeneral(dst.data(), 8, 0, "abc", 4, ALL, WHOLE));
    EXPECT_EQ(NONE, copyGeneral(dst.data(), 8, 2, "\x81\x82\x83", 0, 2, WHOLE));
    EXPECT_EQ(NONE, t_strncpy(dst.data(), 8, "\x81", 0));
    EXPECT_TRUE(dst.isUntouched());
}

TEST(CopyTest, LimitIsCutBackToAWholeCharacter) {
    char dst[8];
    EXPECT_EQ(2UL, t_strncpy(dst, sizeof dst, "a\xE3\x81\x82", 3));
    EXPECT_STREQ("a", dst);
    EXPECT_EQ(NONE, t_strncpy(dst, 3, "a\xE3\x81\x82", 3));  // no room for the uncut bytes
    EXPECT_EQ(1UL, t_strncpy<char>(dst, sizeof dst, nullptr, 5));
    EXPECT_STREQ("", dst);
}

TEST(CombineStrTest, AppendsToACopyAndInPlace) {
    test::FencedBuffer dst(8);
    char* const text = dst.data();
    EXPECT_EQ(6UL, combineStr(text, 8, "abc", "defg", 2, WHOLE));
    EXPECT_EQ(7UL, combineStr<char>(text, 8, text, "x\xC3\xA9", ALL, TRUNCATE));
    EXPECT_EQ(7UL, combineStr<char>(text, 8, text, "more", 0, WHOLE));
    EXPECT_EQ(NONE, combineStr<char>(text, 8, text, "yz", ALL, WHOLE));
    EXPECT_STREQ("abcdex", text);
    EXPECT_TRUE(dst.fencesIntact());
}

TEST(FormatStrTest, SucceedsUpToTheLastByteOnly) {
    test::FencedBuffer dst(6);
    EXPECT_EQ(6UL, formatStr(dst.data(), 6, "%s%d", "abc", 42));
    EXPECT_STREQ("abc42", dst.data());
    EXPECT_EQ(NONE, formatStr(dst.data(), 6, "%s%d", "abc", 123));
    EXPECT_STREQ("abc12", dst.data());
    EXPECT_EQ(3UL, formatStr(dst.data(), 6, "ab%cde", '\0'));
    EXPECT_EQ(NONE, formatStr(dst.data(), 0, "%s", "a"));
    EXPECT_TRUE(dst.fencesIntact());
}

TEST(EraseStrSpanTest, LeavesOutASpan) {
    test::FencedBuffer dst(6);
    EXPECT_EQ(4UL, eraseStrSpan(dst.data(), 6, "abcdef", 1, 3, WHOLE));
    EXPECT_STREQ("aef", dst.data());
    EXPECT_EQ(NONE, eraseStrSpan(dst.data(), 6, "abcdef", 0, 0, WHOLE));
    EXPECT_EQ(NONE, eraseStrSpan(dst.data(), 6, "abc", 4, 0, WHOLE));
    EXPECT_EQ(3UL, eraseStrSpan(dst.data(), 6, "abc", 2, ALL, WHOLE));
    EXPECT_STREQ("ab", dst.data());
    EXPECT_EQ(6UL, eraseStrSpan(dst.data(), 6, "abcdefg", 0, 1, TRUNCATE));
    EXPECT_STREQ("bcdef", dst.data());
    EXPECT_TRUE(dst.fencesIntact());
}

TEST(EraseStrSpanTest, InPlaceHasTheLimitOfAWorkingBuffer) {
    char small[] = "a\xC3\xA9z";
    EXPECT_EQ(3UL, eraseStrSpan(small, 2, 1));  // from inside a character: all of it goes
    EXPECT_STREQ("az", small);
    std::string text(SCRATCH, 'x');
    EXPECT_EQ(NONE, eraseStrSpan(&text[0], 0, ALL));
    text.pop_back();
    EXPECT_EQ(SCRATCH - 1, eraseStrSpan(&text[0], 5, 1));
}

TEST(ReverseStrTest, KeepsCharactersWholeButTheOneAtTheEndOfAShortBuffer) {
    test::FencedBuffer dst(5);
    EXPECT_EQ(NONE, reverseStr(dst.data(), 5, "ab\xE3\x81\x82", WHOLE));
    EXPECT_EQ(NONE, t_strrev(dst.data(), 0, "", TRUNCATE));
    EXPECT_EQ(5UL, reverseStr(dst.data(), 5, "a\xE3\x81\x82", WHOLE));
    EXPECT_STREQ("\xE3\x81\x82\x61", dst.data());
    EXPECT_EQ(3UL, reverseStr(dst.data(), 3, "a\xE3\x81\x82", TRUNCATE));
    EXPECT_STREQ("\xE3\x81", dst.data());
    EXPECT_TRUE(dst.fencesIntact());
}

struct Search {
    char const* name;
    char const* text;
    char const* key;
    unsigned long offset;
    unsigned long index;
    unsigned long end;
};

template <unsigned long SIZE>
void expectSearches(Search const (&cases)[SIZE],
                    unsigned long (*search)(char const*, char const*, unsigned long,
                                            unsigned long*)) {
    for (Search const& c : cases) {
        unsigned long end = UNTOUCHED;
        EXPECT_EQ(c.index, search(c.text, c.key, c.offset, &end)) << c.name;
        EXPECT_EQ(c.end, end) << c.name;
        EXPECT_EQ(c.index, search(c.text, c.key, c.offset, nullptr)) << c.name;
    }
}

TEST(FindStrTest, FindsTheFirstMatchThatStartsOnACharacter) {
    expectSearches(
        {
            {"at the offset", "abcabc", "bc", 1, 1, 3},
            {"behind the offset", "abcabc", "bc", 2, 4, 6},
            {"before the offset", "abcabc", "bc", 5, NONE, NONE},
            {"from inside a character", "\xE3\x81\x82x\xE3\x81\x82", "\xE3\x81\x82", 1, 4, 7},
            {"moved to the end", "a\xC3\xA9", "", 2, NONE, NONE},
            {"empty pattern", "abc", "", 1, 3, NONE},
            {"empty pattern and text", "", "", 0, 0, NONE},
            {"not on a malformed character", "\xE3\x81(\xE3\x81\x82", "\xE3\x81", 0, 3, 5},
            {"offset behind the end", "abc", "a", 4, NONE, UNTOUCHED},
            {"null text", nullptr, "a", 0, NONE, UNTOUCHED},
            {"null pattern", "a", nullptr, 0, NONE, UNTOUCHED},
        },
        findStr<char>);
    EXPECT_EQ(3UL, t_strstr("abc", ""));
}

TEST(FindTokenTest, SkipsRunsOfDelimiters) {
    expectSearches(
        {
            {"between", ",,a\xC3\xA9;b", ",;", 0, 2, 5},
            {"the last", ",,a\xC3\xA9;b", ",;", 5, 6, 7},
            {"wide delimiter", "\xE3\x80\x80x\xE3\x80\x80y", "\xE3\x80\x80", 0, 3, 4},
            {"delimiters only", "a,,,", ",", 1, NONE, NONE},
            {"offset behind the end", "a", ",", 2, NONE, UNTOUCHED},
            {"null delimiters", "a", nullptr, 0, NONE, UNTOUCHED},
        },
        findToken<char>);
}

TEST(SpanTest, MalformedCharacterEndsTheSet) {
    EXPECT_EQ(2UL, t_strspn("abc", "ba"));
    EXPECT_EQ(1UL, t_strspn("abc", "a\xC3z"));
    EXPECT_EQ(1UL, t_strspn("a\x80", "a\x80"));
    EXPECT_EQ(2UL, t_strcspn("a\x80z", "z"));
    EXPECT_EQ(3UL, t_strcspn("abz", "\x80z"));
}

TEST(FindReverseTest, ReportsTheLastByteOfTheMatchThatEndsBeforeTheOffset) {
    expectSearches(
        {
            {"ends at the offset", "abcabc", "bc", 5, 5, 3},
            {"ends before the offset", "abcabc", "bc", 4, 2, 0},
            {"at the start", "abcabc", "abc", 4, 2, NONE},
            {"offset behind the end", "abcabc", "c", ALL, 5, 4},
            {"none", "abcabc", "bc", 1, NONE, NONE},
            {"empty text", "", "a", 0, NONE, NONE},
            {"empty pattern", "abc", "", 0, 3, 2},
            {"empty pattern and text", "", "", 0, 0, NONE},
            {"malformed text", "abc\x80", "b", 5, NONE, UNTOUCHED},
            {"malformed pattern", "abc", "b\xC3", 5, NONE, UNTOUCHED},
            {"null text", nullptr, "a", 0, NONE, UNTOUCHED},
        },
        findReverseStr<char>);
    std::string text(SCRATCH - 1, 'x');
    EXPECT_EQ(SCRATCH - 2, findReverseStr<char>(text.c_str(), "x", ALL, nullptr));
    text += 'x';
    EXPECT_EQ(NONE, findReverseStr<char>(text.c_str(), "x", ALL, nullptr));
}

TEST(FindReverseTest, OfACharacterTakesTheFirstOfItsArgument) {
    expectSearches(
        {
            {"first of two", "a/b/c", "/x", 4, 3, 2},
            {"wide", "\xC3\xA9z", "\xC3\xA9", 2, 1, NONE},
            {"byte order mark", "\xEF\xBB\xBF", "\xEF\xBB\xBF", 2, NONE, UNTOUCHED},
            {"no character starts", "abc", "\x80", 2, NONE, UNTOUCHED},
            {"incomplete is empty", "abc", "\xC3", 2, 3, 2},
        },
        findReverseChar<char>);
}

TEST(ReplaceStrTest, RewritesInPlace) {
    struct {
        char const* text;
        char const* from;
        char const* to;
        unsigned long size;
        int trunc;
        unsigned long result;
        char const* stored;  // null: not said
    } const cases[] = {
        {"a-b-c", "-", "+", 6, WHOLE, 6, "a+b+c"},    {"-a-", "-", "==", 6, WHOLE, 6, "==a=="},
        {"-a-", "-", "==", 5, WHOLE, NONE, nullptr},  {"-a-", "-", "==", 5, TRUNCATE, 5, "==a="},
        {"a-b-c", "-", "", 6, WHOLE, 2, "a"},  // drops the rest
        {"-b-c", "-", "", 6, WHOLE, 1, ""},           {"abc", "", "x", 6, WHOLE, 4, "abc"},
        {"abc", "x", "y", 6, WHOLE, 4, "abc"},        {"abc", "b", nullptr, 6, WHOLE, NONE, "abc"},
        {"abc", nullptr, "b", 6, WHOLE, NONE, "abc"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        test::FencedBuffer text(c.size, c.text);
        EXPECT_EQ(c.result, replaceStr(text.data(), c.size, c.from, c.to, c.trunc));
        if (c.stored != nullptr) {
            EXPECT_STREQ(c.stored, text.data());
        }
        EXPECT_TRUE(text.fencesIntact());
    }

    std::string text(SCRATCH, 'x');
    EXPECT_EQ(NONE, replaceStr(&text[0], SCRATCH + 1, "x", "y", WHOLE));
    text.pop_back();
    EXPECT_EQ(SCRATCH, replaceStr(&text[0], SCRATCH, "x", "y", WHOLE));
    EXPECT_EQ(std::string(SCRATCH - 1, 'y'), text);
}

TEST(CompareStrNoCaseTest, FoldsLettersOfBothWidths) {
    EXPECT_EQ(0, compareStrNoCase("aBc\xEF\xBC\xA1", "AbC\xEF\xBD\x81", ALL));
    EXPECT_LT(compareStrNoCase("_", "A", ALL), 0);
    EXPECT_EQ(0, compareStrNoCase("ABx", "aby", 2));
    // Two bytes in common, but that of the letter changes when it is folded.
    EXPECT_LT(compareStrNoCase("\xEF\xBC\xA0", "\xEF\xBC\xA1", 2), 0);
    EXPECT_EQ(0, compareStrNoCase("a\x80z", "A", ALL));
    EXPECT_EQ(0, compareStrNoCase<char>(nullptr, "", ALL));
    EXPECT_EQ(0, compareStr<char>(nullptr, "", ALL));
    EXPECT_GT(compareStr("\xC3\xA9", "z", ALL), 0);
}

TEST(CompareStrNoCaseTest, NeedsNoScratchMemory) {
    WorkingBuffer<char> const first, second, third;
    std::string text(SCRATCH - 1, 'a');
    copyStr<char>(third, SCRATCH, std::string(SCRATCH - 1, 'A').c_str(), ALL, WHOLE);

    EXPECT_EQ(0, compareStrNoCase<char>(third, text.c_str(), ALL));
    text.back() = 'b';
    EXPECT_LT(compareStrNoCase<char>(third, text.c_str(), ALL), 0);
    text += 'b';
    EXPECT_EQ(-1, compareStrNoCase(text.c_str(), "a", 1));  // a WorkingBuffer could not hold it
}

// Made before main(), perhaps before anything in the library.
unsigned long const USED_AT_START_UP = [] {
    WorkingBuffer<char> buffer;
    return copyStr<char>(buffer, SCRATCH, &EMPTY_CHAR, ALL, WHOLE);
}();

TEST(WorkingBufferTest, NestsThreeDeepAndSharesTheThirdFromThereOn) {
    EXPECT_EQ(1UL, USED_AT_START_UP);
    WorkingBuffer<char> const first, second, third;
    std::memset(first, '1', SCRATCH);
    std::memset(second, '2', SCRATCH);
    std::memset(third, '3', SCRATCH);
    {
        WorkingBuffer<char> const fourth, fifth;
        EXPECT_EQ(static_cast<char*>(third), static_cast<char*>(fourth));
        EXPECT_EQ(static_cast<char*>(third), static_cast<char*>(fifth));
    }
    EXPECT_EQ(std::string(SCRATCH, '1'), std::string(first, SCRATCH));
    EXPECT_EQ(std::string(SCRATCH, '2'), std::string(second, SCRATCH));
}

TEST(WorkingBufferTest, KeepsThreadsApartInTheSameSlots) {
    char* const slot = WorkingBuffer<char>();
    auto const countFaults = [slot](char mark, int* faults) {
        for (int i = 0; i < 2000; ++i) {
            WorkingBuffer<char> const first, second;
            std::memset(first, mark, 64);
            std::memset(second, mark, 64);
            *faults += static_cast<char*>(first) != slot;
            *faults += std::string(first, 64) != std::string(64, mark);
            *faults += std::string(second, 64) != std::string(64, mark);
        }
    };
    int faults[2] = {};
    std::thread other(countFaults, 'a', &faults[0]);
    countFaults('b', &faults[1]);
    other.join();
    EXPECT_EQ(0, faults[0] + faults[1]);
}

// The library's functions beside the plain ones, on random text, well-formed or not.
class PlainFormTest : public ::testing::TestWithParam<bool> {
protected:
    static constexpr int ROUNDS = 20000;

    unsigned long pick(unsigned long below) { return mRandom() % below; }

    std::string text(unsigned long maxPieces) {
        static char const* const PIECES[] = {"a", "b", "A", "\xC3\xA9", "\xE3\x81\x82",
                                             "\xEF\xBC\xA0", "\xEF\xBC\xA1", "\xEF\xBD\x81",
                                             "\xEF\xBB\xBF", "\xF0\x9F\x98\x80",
                                             // The malformed ones.
                                             "\x80", "\xE3\x81", "\xC0\x80", "\xFF"};
        unsigned long const pieces = std::size(PIECES) - (GetParam() ? 4 : 0);
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

TEST_P(PlainFormTest, StoresTheSameText) {
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

TEST_P(PlainFormTest, FindsTheSamePlaces) {
    for (int round = 0; round < ROUNDS && !HasFailure(); ++round) {
        std::string const s = text(12), k = key(s);
        unsigned long const offset = pick(s.size() + 2);
        SCOPED_TRACE(::testing::PrintToString(s) + ::testing::PrintToString(k));

        unsigned long end = UNTOUCHED, plainEnd = UNTOUCHED;
        EXPECT_EQ(plain::find(s, k, offset, &plainEnd),
                  findStr(s.c_str(), k.c_str(), offset, &end));
        EXPECT_EQ(plainEnd, end);
        EXPECT_EQ(plain::findReverse(s, k, offset, &plainEnd),
                  findReverseStr(s.c_str(), k.c_str(), offset, &end));
        EXPECT_EQ(plainEnd, end);
    }
}

TEST_P(PlainFormTest, ComparesTheSame) {
    auto const sign = [](int order) { return (order > 0) - (order < 0); };
    for (int round = 0; round < ROUNDS && !HasFailure(); ++round) {
        std::string const a = text(6), b = pick(2) == 0 ? text(6) : a + text(1);
        unsigned long const n = pick(3) == 0 ? ALL : pick(12);
        EXPECT_EQ(sign(plain::compareNoCase(a, b, n)),
                  sign(compareStrNoCase(a.c_str(), b.c_str(), n)))
            << ::testing::PrintToString(a) << ::testing::PrintToString(b);
    }
}

INSTANTIATE_TEST_SUITE_P(Random, PlainFormTest, ::testing::Bool(), [](auto const& tested) {
    return std::string(tested.param ? "WellFormed" : "Malformed");
});

}  // namespace
}  // namespace utl
