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
constexpr Position HERE = File::CURRENT;

Position seekKey(File& file, std::string const& key, Position from, Position range, int mode) {
    return file.seekKey(reinterpret_cast<unsigned char const*>(key.data()), key.size(), from, range,
                        mode);
}

TEST(SeekKeyTest, RefusesNoKeyNoPlaceAndNoFile) {
    test::TextFile text(
        "\x11\x11\x22"
        "3D",
        0);
    text.file.seek(1, File::FROM_START);
    EXPECT_EQ(FAILED, seekKey(text.file, "\x11", FAILED, 9, 0));
    EXPECT_EQ(FAILED, seekKey(text.file, "", 0, 9, 0));
    EXPECT_EQ(FAILED, text.file.seekKey(nullptr, 0, 9, 0));
    EXPECT_EQ(1, text.file.position());
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
