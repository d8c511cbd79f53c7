#include "UtlString.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

namespace {

std::size_t largestRequest = SIZE_MAX;  // that is granted

}  // namespace

// The form that the library allocates with.
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return size <= largestRequest ? ::operator new[](size) : nullptr;
}

namespace utl {
namespace {

using String = BasicString<char>;
constexpr int FIXED = String::FIXED;
constexpr int GROWS = String::GROWS;
constexpr int BORROWED = -1;  // text that is not the string's own

void expectString(String const& s, char const* text, unsigned long capacity) {
    EXPECT_STREQ(text, s.c_str());
    EXPECT_EQ(capacity, s.capacity());
}

TEST(BasicStringTest, TakesTheRoomItIsGivenAtTheLeast) {
    String const roomy("abc", 9, GROWS);
    expectString(roomy, "abc", 9);
    expectString(String(roomy), "abc", 4);
    expectString(String(), "", 1);
    expectString(String(0, FIXED), "", 1);
    expectString(String(nullptr, 0, FIXED), "", 1);
    expectString("a" + roomy, "aabc", 5);
}

#define TEXT "-b-\xC3\xA9"

// What an operation makes of that text, in a string of a capacity of 8; but the borrowed text is
// longer than the capacity of the string.
void expectEdit(char const* name, int kind, int (*edit)(String& s), int result, char const* text,
                unsigned long capacity) {
    SCOPED_TRACE(name);
    bool const borrows = kind == BORROWED;
    char borrowed[] = TEXT;
    String s(borrows ? 2 : 8, borrows ? FIXED : kind);
    ASSERT_EQ(1, borrows ? s.copyShallow(borrowed) : s.copy(TEXT, ALL, WHOLE));

    EXPECT_EQ(result, edit(s));
    expectString(s, text, capacity);
    EXPECT_STREQ(TEXT, borrowed);

    String shared;
    edit(shared);
    EXPECT_EQ('\0', EMPTY_CHAR);
}

TEST(BasicStringTest, AnEditTakesTheRoomItsModeAllowsAndWritesNothingBorrowed) {
// clang-format off
#define EDIT(kind, call, ...) \
    expectEdit(#kind ": " #call, kind, []([[maybe_unused]] String& s) -> int { return call; }, __VA_ARGS__)
    EDIT(FIXED, s.copy("abcdefg", ALL, WHOLE), 1, "abcdefg", 8);
    EDIT(FIXED, s.copy("abcdefgh", ALL, WHOLE), 0, TEXT, 8);
    EDIT(FIXED, s.copy("abcdef\xC3\xA9", ALL, TRUNCATE), 1, "abcdef", 8);
    EDIT(FIXED, s.copy(nullptr, ALL, WHOLE), 0, TEXT, 8);
    EDIT(FIXED, s.copy("x", 0, WHOLE), 1, TEXT, 8);
    EDIT(FIXED, s.copy(s, 4, WHOLE), 1, "-b-", 8);
    EDIT(FIXED, s.copy(s, 0, WHOLE), 1, "", 8);
    EDIT(GROWS, s.copy("abcdefghij", 9, WHOLE), 1, "abcdefghi", 10);
    EDIT(FIXED, (s = "abcdefgh", 1), 1, "abcdefgh", 9);
    EDIT(FIXED, (s = String("x", 50, GROWS), 1), 1, "x", 8);
    EDIT(FIXED, (s = nullptr, 1), 1, "", 8);
    EDIT(FIXED, (s = s.c_str() + 1, 1), 1, "b-\xC3\xA9", 8);
    EDIT(FIXED, s.combine("xyz", ALL, WHOLE), 0, TEXT, 8);
    EDIT(FIXED, s.combine("xyz", ALL, TRUNCATE), 1, TEXT "xy", 8);
    EDIT(FIXED, s.combine(nullptr, 1, WHOLE), 0, TEXT, 8);
    EDIT(FIXED, s.combine(nullptr, 0, WHOLE), 1, TEXT, 8);
    EDIT(GROWS, s.combine("abcdef", 4, WHOLE), 1, TEXT "abcd", 10);
    EDIT(GROWS, s.combine(s.c_str(), ALL, WHOLE), 1, TEXT TEXT, 11);
    EDIT(FIXED, (s += "xy", 1), 1, TEXT "xy", 8);
    EDIT(FIXED, (s += "xyz", 1), 1, TEXT "xyz", 12);
    EDIT(FIXED, (s += s.c_str(), 1), 1, TEXT TEXT, 14);
    EDIT(FIXED, s.copyShallow(s.c_str() + 1), 1, "b-\xC3\xA9", 8);
    EDIT(FIXED, s.resizeMax(10), 1, TEXT, 10);
    EDIT(FIXED, s.resizeMax(5), 1, "-b-", 5);
    EDIT(FIXED, s.resizeMax(0), 1, "", 1);
    EDIT(GROWS, s.replace("-", "===", WHOLE), 1, "===b===\xC3\xA9", 10);
    EDIT(GROWS, s.replace("-", nullptr, WHOLE), 0, TEXT, 8);
    EDIT(GROWS, s.replace(nullptr, "a long text", WHOLE), 0, TEXT, 8);
    EDIT(FIXED, s.replace("-", s.c_str() + 1, TRUNCATE), 1, "b-\xC3\xA9" "bb-", 8);
    EDIT(BORROWED, s.copy("x", ALL, WHOLE), 1, "x", 2);
    EDIT(BORROWED, s.copy("xyz", ALL, WHOLE), 0, TEXT, 2);
    EDIT(BORROWED, s.copy("x", 0, WHOLE), 1, TEXT, 2);
    EDIT(BORROWED, s.copy(s, 4, WHOLE), 1, "-b-", 6);
    EDIT(BORROWED, (s = "x", 1), 1, "x", 2);
    EDIT(BORROWED, s.combine("x", ALL, WHOLE), 0, TEXT, 2);
    EDIT(BORROWED, (s += "xy", 1), 1, TEXT "xy", 9);
    EDIT(BORROWED, s.replace("-", "+", WHOLE), 1, "+b+\xC3\xA9", 6);
    EDIT(BORROWED, s.resizeMax(4), 1, "-b-", 4);
    // clang-format on
}

TEST(BasicStringTest, EnumeratesPatternByPattern) {
    String const s("ab-ab-b", 0, FIXED);
    Array<String> patterns(2, Array<String>::FIXED);
    patterns.setCount(2);
    patterns[0] = "b";
    patterns[1] = "ab";
    Array<String> found(1, Array<String>::GROWS);
    unsigned long count = 99;
    EXPECT_EQ(4UL, s.enumAllOf(patterns, 1, &found, &count));
    EXPECT_EQ(4UL, count);
    ASSERT_EQ(4UL, found.count());
    EXPECT_STREQ("b", found[2].c_str());
    EXPECT_STREQ("ab", found[3].c_str());
    EXPECT_EQ(2UL, s.enumerate(found[3].c_str(), 0, &found, &count));  // into where it stands

    Array<String> small(1, Array<String>::FIXED);
    EXPECT_EQ(3UL, s.enumerate("b", 0, &small, &count));
    EXPECT_EQ(1UL, count);
    EXPECT_EQ(1UL, s.enumerate("", 0, nullptr, nullptr));
    EXPECT_EQ(NONE, s.enumerate("b", 8, &small, &count));
    EXPECT_EQ(NONE, s.enumerate(nullptr, 0, &small, &count));
}

// For minutes, if each step measured or moved the text.
TEST(BasicStringTest, LongTextsAreMadeOfSmallPieces) {
    constexpr unsigned long LENGTH = 2000000;
    String sum, combined(0, GROWS), resized(2, FIXED), roomy(LENGTH + 1, FIXED);
    for (unsigned long i = 1; i <= LENGTH; ++i) {
        sum += "x";
        resized.resizeMax(i + 1);
        ASSERT_EQ(3, combined.combine("x", ALL, WHOLE) + resized.combine("x", 1, TRUNCATE) +
                         roomy.combine("x", ALL, WHOLE));
        ASSERT_EQ(i, sum.length());
        ASSERT_EQ(i + 1, combined.capacity());
    }
    EXPECT_EQ(std::string(LENGTH, 'x'), sum.c_str());
    for (String const* const other : {&combined, &resized, &roomy}) {
        EXPECT_STREQ(sum.c_str(), other->c_str());
    }
    for (unsigned long i = LENGTH; i > 1; --i) {
        ASSERT_EQ(2, resized.resizeMax(i) + combined.copy(combined, i - 1, WHOLE));
    }
    expectString(resized, "x", 2);
    expectString(combined, "x", LENGTH + 1);
}

TEST(BasicStringTest, WithoutMemoryIsEmptyOrUnchanged) {
    String s("abc", 0, GROWS);
    String borrowing;
    borrowing.copyShallow("literal");
    Array<String> moved(3, Array<String>::FIXED);
    moved.setCount(2);
    moved[1] = "moved";
    largestRequest = 0;

    expectString(String("abc", 50, GROWS), "", 1);
    expectString("abc" + s, "", 1);
    EXPECT_EQ(0, s.resizeMax(50));
    EXPECT_EQ(0, s.copy("longer text", ALL, TRUNCATE));
    EXPECT_EQ(0, s.combine("d", ALL, TRUNCATE));
    EXPECT_EQ(0, s.replace("b", "bbb", TRUNCATE));
    EXPECT_EQ(NONE, s.enumerate("b", 0, nullptr, nullptr));
    s = "longer text";
    s += "d";
    expectString(s, "abc", 4);
    borrowing += "d";
    EXPECT_EQ(0, borrowing.replace("l", "x", WHOLE));
    expectString(borrowing, "literal", 1);
    moved.eraseAt(0, 1);
    expectString(moved[0], "moved", 6);

    // As much as is needed, if not more.
    largestRequest = 5;
    EXPECT_EQ(1, s.combine("d", ALL, WHOLE));
    Array<char> array(4, Array<char>::GROWS);
    EXPECT_TRUE(array.setCount(4) == 1 && array.insertAt(4, 'e') == 1);
    largestRequest = SIZE_MAX;
}

}  // namespace
}  // namespace utl
