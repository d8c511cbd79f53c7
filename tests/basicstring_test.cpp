#include "UtlString.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>

namespace {

bool memoryIsOut = false;

}  // namespace

// The form that the library allocates with.
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return memoryIsOut ? nullptr : ::operator new[](size);
}

namespace utl {
namespace {

using String = BasicString<char>;
constexpr int FIXED = String::FIXED;
constexpr int GROWS = String::GROWS;

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

TEST(BasicStringTest, CopyIsBoundByTheCapacityUnlessItGrows) {
    String fixed(4, FIXED);
    EXPECT_EQ(1, fixed.copy("abcd", 3, WHOLE));
    EXPECT_EQ(0, fixed.copy("wxyz", ALL, WHOLE));
    EXPECT_EQ(0, fixed.copy(nullptr, ALL, WHOLE));
    EXPECT_EQ(1, fixed.copy("w", 0, WHOLE));
    expectString(fixed, "abc", 4);
    EXPECT_EQ(1, fixed.copy("w\xE3\x81\x82", ALL, TRUNCATE));
    expectString(fixed, "w", 4);

    String growing(4, GROWS);
    EXPECT_EQ(1, growing.copy("abcdefgh", 6, WHOLE));
    expectString(growing, "abcdef", 7);
    EXPECT_EQ(1, growing.copy(fixed, ALL, WHOLE));
    expectString(growing, "w", 7);
}

TEST(BasicStringTest, CopyToItselfCuts) {
    String s("a\xE3\x81\x82z", 0, FIXED);
    EXPECT_EQ(1, s.copy(s, 99, WHOLE));
    expectString(s, "a\xE3\x81\x82z", 6);
    EXPECT_EQ(1, s.copy(s, 3, WHOLE));
    expectString(s, "a", 6);
    EXPECT_EQ(1, s.copy(s, 0, WHOLE));
    expectString(s, "", 6);
}

TEST(BasicStringTest, AssignmentTakesRoomInEitherMode) {
    String const other("another", 0, FIXED);
    String s;
    s = "abc";
    expectString(s, "abc", 4);
    s = String("longer", 50, FIXED);
    expectString(s, "longer", 7);
    s = String("x", 0, FIXED);
    expectString(s, "x", 7);
    s = nullptr;
    expectString(s, "", 7);
    s = other;
    expectString(s, "another", 8);
}

TEST(BasicStringTest, CombineTakesTheNeedAndAppendingAllThatIsAdded) {
    String s("abc", 0, FIXED);
    EXPECT_EQ(0, s.combine("d", ALL, WHOLE));
    EXPECT_EQ(1, s.combine("d", ALL, TRUNCATE));
    EXPECT_EQ(1, s.combine(nullptr, 0, WHOLE));
    EXPECT_EQ(0, s.combine(nullptr, 1, WHOLE));
    expectString(s, "abc", 4);

    String growing("abc", 0, GROWS);
    EXPECT_EQ(1, growing.combine("defgh", 2, WHOLE));
    expectString(growing, "abcde", 6);

    String appended("1234567", 8, FIXED);
    appended += "xy";
    expectString(appended, "1234567xy", 11);
    appended += "z";
    appended += nullptr;
    expectString(appended, "1234567xyz", 11);
    appended += "0";
    expectString(appended, "1234567xyz0", 13);
}

TEST(BasicStringTest, ResizingCutsOnAWholeCharacter) {
    String s("a\xE3\x81\x82z", 0, FIXED);
    EXPECT_EQ(1, s.resizeMax(10));
    expectString(s, "a\xE3\x81\x82z", 10);
    EXPECT_EQ(1, s.resizeMax(4));
    expectString(s, "a", 4);
    EXPECT_EQ(1, s.resizeMax(0));
    expectString(s, "", 1);
    EXPECT_EQ(&EMPTY_CHAR, s.c_str());
}

// A borrowed text that is longer than the capacity of the string.
struct Writing {
    char const* name;
    void (*write)(String&);
    char const* text;
    unsigned long capacity;
};

class BorrowedTextTest : public ::testing::TestWithParam<Writing> {};

TEST_P(BorrowedTextTest, IsNeverWritten) {
    char borrowed[] = "a-b-c";
    String s(2, FIXED);
    ASSERT_EQ(1, s.copyShallow(borrowed));
    ASSERT_EQ(borrowed, s.c_str());

    GetParam().write(s);
    expectString(s, GetParam().text, GetParam().capacity);
    EXPECT_STREQ("a-b-c", borrowed);

    String shared;
    GetParam().write(shared);
    EXPECT_EQ('\0', EMPTY_CHAR);
}

INSTANTIATE_TEST_SUITE_P(
    Operations, BorrowedTextTest,
    ::testing::Values(
        Writing{"Nothing", [](String&) {}, "a-b-c", 2},
        Writing{"Copy", [](String& s) { s.copy("x", ALL, WHOLE); }, "x", 2},
        Writing{"CopyWithoutRoom", [](String& s) { s.copy("xyz", ALL, WHOLE); }, "a-b-c", 2},
        Writing{"CopyOfNothing", [](String& s) { s.copy("x", 0, WHOLE); }, "a-b-c", 2},
        Writing{"CopyCut", [](String& s) { s.copy("xyz", ALL, TRUNCATE); }, "x", 2},
        Writing{"CopyToItself", [](String& s) { s.copy(s, 3, WHOLE); }, "a-b", 6},
        Writing{"Assignment", [](String& s) { s = "x"; }, "x", 2},
        Writing{"Combine", [](String& s) { s.combine("x", ALL, WHOLE); }, "a-b-c", 2},
        Writing{"Append", [](String& s) { s += "xy"; }, "a-b-cxy", 9},
        Writing{"Replace", [](String& s) { s.replace("-", "+", WHOLE); }, "a+b+c", 6},
        Writing{"Resize", [](String& s) { s.resizeMax(4); }, "a-b", 4}),
    [](auto const& tested) { return std::string(tested.param.name); });

TEST(BasicStringTest, TakesItsOwnText) {
    String s("abc", 0, FIXED);
    s += s.c_str();
    expectString(s, "abcabc", 8);
    s += s.c_str() + 5;
    expectString(s, "abcabcc", 8);
    s = s.c_str() + 3;
    expectString(s, "abcc", 8);
    EXPECT_EQ(1, s.copyShallow(s.c_str() + 1));
    expectString(s, "bcc", 8);
    EXPECT_EQ(1, s.replace("c", s.c_str(), TRUNCATE));
    expectString(s, "bbccbcc", 8);

    String growing("abc", 0, GROWS);
    EXPECT_EQ(1, growing.combine(growing.c_str() + 1, ALL, WHOLE));
    expectString(growing, "abcbc", 6);
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
    EXPECT_EQ(2UL, s.enumerate(found[3].c_str(), 0, &found, &count));
    ASSERT_EQ(2UL, found.count());
    EXPECT_STREQ("ab", found[1].c_str());

    Array<String> small(1, Array<String>::FIXED);
    EXPECT_EQ(3UL, s.enumerate("b", 0, &small, &count));
    EXPECT_EQ(1UL, count);
    EXPECT_EQ(1UL, s.enumerate("", 0, nullptr, nullptr));
    EXPECT_EQ(NONE, s.enumerate("b", 8, &small, &count));
    EXPECT_EQ(NONE, s.enumerate(nullptr, 0, &small, &count));
    EXPECT_EQ(1UL, small.count());
}

TEST(BasicStringTest, ReplaceGrowsByWhatTheMatchesNeed) {
    String s("-a-", 0, GROWS);
    EXPECT_EQ(1, s.replace("-", "===", WHOLE));
    expectString(s, "===a===", 8);
    EXPECT_EQ(1, s.replace("===", "-", WHOLE));
    EXPECT_EQ(0, s.replace("-", nullptr, WHOLE));
    EXPECT_EQ(0, s.replace(nullptr, "a long replacement", WHOLE));
    expectString(s, "-a-", 8);
    EXPECT_EQ(1, s.replace("a", "", WHOLE));
    expectString(s, "-", 8);  // the rest is dropped
}

TEST(BasicStringTest, WithoutMemoryIsEmptyOrUnchanged) {
    String s("abc", 0, GROWS);
    String borrowing;
    borrowing.copyShallow("literal");
    Array<String> moved(3, Array<String>::FIXED);
    moved.setCount(2);
    moved[1] = "moved";
    memoryIsOut = true;

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

    memoryIsOut = false;
}

}  // namespace
}  // namespace utl
