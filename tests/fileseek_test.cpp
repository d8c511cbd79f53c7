#include <gtest/gtest.h>

#include <random>
#include <string>

#include "UtlFile.h"

#include "support/PlainLines.h"
#include "support/TextFile.h"

namespace {

using namespace utl;

using Position = unsigned long long;

constexpr Position FAILED = static_cast<Position>(-1);
constexpr Position NOT_FOUND = File::NOT_FOUND;
constexpr Position HERE = File::CURRENT;

Position seekKey(File& file, std::string const& key, Position from, Position range, int mode) {
    return file.seekKey(reinterpret_cast<unsigned char const*>(key.data()), key.size(), from, range,
                        mode);
}

// A search in the bytes 00 11 22 33 44 11 22 22 23 from position 1.
struct Search {
    char const* name;
    std::string key;
    Position from;
    Position range;
    int mode;
    Position result;
    long long position;
};

class SeekKeyTest : public ::testing::TestWithParam<Search> {};

TEST_P(SeekKeyTest, ReturnsWhereTheKeyIsAndGoesThere) {
    Search const& search = GetParam();
    test::TextFile text(std::string("\0\x11\x22\x33\x44\x11\x22\x22\x23", 9), 0);
    text.file.seek(1, File::FROM_START);
    EXPECT_EQ(search.result,
              seekKey(text.file, search.key, search.from, search.range, search.mode));
    EXPECT_EQ(search.position, text.file.position());
}

INSTANTIATE_TEST_SUITE_P(
    Files, SeekKeyTest,
    ::testing::Values(Search{"AtTheKey", "\x33\x44", 0, FAILED, 0, 3, 3},
                      Search{"BehindTheKey", "\x33\x44", 0, 8, 1, 5, 5},
                      Search{"RangeEndsInTheKey", "\x33\x44", 0, 4, 0, NOT_FOUND, 1},
                      Search{"RangeEndsWithTheKey", "\x33\x44", 0, 5, 0, 3, 3},
                      Search{"FromHere", "\x11\x22", HERE, 9, 0, 1, 1},
                      Search{"FileEndsInTheKey", "\x23\x24", 0, 99, 0, NOT_FOUND, 1},
                      Search{"BrokenMatchIsNotTakenUp", "\x22\x23", 5, 9, 0, NOT_FOUND, 1},
                      Search{"FromBehindTheEnd", "\x11", 99, 9, 0, NOT_FOUND, 1},
                      Search{"FromNowhere", "\x11", FAILED, 9, 0, FAILED, 1},
                      Search{"NoKey", "", 0, 9, 0, FAILED, 1}),
    [](auto const& search) { return std::string(search.param.name); });

TEST(SeekKeyTextTest, AKeyCanBeAText) {
    test::TextFile text("a key", 0);
    EXPECT_EQ(2u, text.file.seekKey("key", 0, 9, 0));
    EXPECT_EQ(FAILED, text.file.seekKey("", 0, 9, 0));
    EXPECT_EQ(FAILED, text.file.seekKey(nullptr, 0, 9, 0));
    EXPECT_EQ(FAILED, text.file.seekKey(nullptr, 1, 0, 9, 0));
    text.file.close();
    EXPECT_EQ(FAILED, text.file.seekKey("key", 0, 9, 0));
}

// Over several blocks of bytes that begin a key all the time.
TEST(SeekKeyRandomTest, FindsWhatThePlainSearchFinds) {
    std::mt19937 random(7);
    std::string bytes(20000, 'a');
    for (unsigned i = 0; i < 1200; ++i) {
        bytes[random() % bytes.size()] = 'b';
    }
    test::TextFile text(bytes, 0);
    test::TextFile plainText(bytes, 0);
    for (unsigned round = 0; round < 60; ++round) {
        std::string key(1 + random() % 6, 'a');
        key[random() % key.size()] = 'b';
        key.back() = static_cast<char>('a' + random() % 3);
        Position const from = round % 3 == 0 ? HERE : random() % 21000;
        Position const range = round % 4 == 0 ? FAILED : random() % 12000;
        int const mode = round % 2;
        EXPECT_EQ(plain::seekKey(plainText.file, key, from, range, mode),
                  seekKey(text.file, key, from, range, mode));
        EXPECT_EQ(plainText.file.position(), text.file.position()) << key << from << range;
    }
}

}  // namespace
