#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>

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

// In the bytes 00 11 22 33 44 11 22 22 23, from position 1: the result, and the position behind it.
struct SeekKeyTest : ::testing::Test {
    using Found = std::pair<Position, long long>;

    Found search(std::string const& key, Position from, Position range, int mode = 0) {
        text.file.seek(1, File::FROM_START);
        Position const result = seekKey(text.file, key, from, range, mode);
        return {result, text.file.position()};
    }

    test::TextFile text{std::string("\0\x11\x22\x33\x44\x11\x22\x22\x23", 9), 0};
};

TEST_F(SeekKeyTest, GoesToTheKeyOrBehindItWhenAllOfItIsInTheRange) {
    EXPECT_EQ(Found(3, 3), search("\x33\x44", 0, 5));
    EXPECT_EQ(Found(5, 5), search("\x33\x44", 0, FAILED, 1));
    EXPECT_EQ(Found(1, 1), search("\x11\x22", HERE, 9));
    EXPECT_EQ(Found(NOT_FOUND, 1), search("\x33\x44", 0, 4));
    EXPECT_EQ(Found(NOT_FOUND, 1), search("\x23\x24", 0, 99));
    EXPECT_EQ(Found(NOT_FOUND, 1), search("\x22\x23", 5, 9));  // a broken match is not taken up
}

TEST_F(SeekKeyTest, RefusesNoKeyNoPlaceAndNoFile) {
    EXPECT_EQ(Found(FAILED, 1), search("\x11", FAILED, 9));
    EXPECT_EQ(Found(FAILED, 1), search("", 0, 9));
    EXPECT_EQ(FAILED, text.file.seekKey(nullptr, 0, 9, 0));
    EXPECT_EQ(3u, text.file.seekKey("3D", 0, 9, 0));
    text.file.close();
    EXPECT_EQ(FAILED, text.file.seekKey("3D", 0, 9, 0));
}

// Over several blocks of bytes that begin a key all the time.
TEST(SeekKeyRandomTest, FindsWhatThePlainSearchFinds) {
    std::mt19937 random(7);
    std::string bytes(20000, 'a');
    for (unsigned i = 0; i < 1200; ++i) {
        bytes[random() % bytes.size()] = 'b';
    }
    test::TextFile text(bytes, 0);
    plain::Memory plainText(bytes);
    for (unsigned round = 0; round < 60; ++round) {
        std::string key(1 + random() % 6, 'a');
        key[random() % key.size()] = 'b';
        key.back() = static_cast<char>('a' + random() % 3);
        Position const from = round % 3 == 0 ? HERE : random() % 21000;
        Position const range = round % 4 == 0 ? FAILED : random() % 12000;
        int const mode = round % 2;
        EXPECT_EQ(plain::seekKey(plainText, key, from, range, mode),
                  seekKey(text.file, key, from, range, mode));
        EXPECT_EQ(plainText.position(), text.file.position()) << key << from << range;
    }
}

}  // namespace
