#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "UtlFile.h"

#include "support/FencedBuffer.h"
#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/PlainLines.h"
#include "support/TextFile.h"

namespace {

using namespace std::string_literals;
using namespace utl;
using test::TextFile;

constexpr int SJIS = File::SHIFT_JIS;
constexpr int UTF8 = File::UTF8;
constexpr int HIGH_FIRST = File::UTF16_HIGH_FIRST;
constexpr int LOW_FIRST = File::UTF16_LOW_FIRST;

unsigned long bytesRead = 0;
unsigned long reads = 0;

}  // namespace

// In place of the C library's.
extern "C" ssize_t pread64(int descriptor, void* buffer, size_t size, off64_t position) {
    ssize_t const got = pread(descriptor, buffer, size, static_cast<off_t>(position));
    bytesRead += got > 0 ? static_cast<unsigned long>(got) : 0;
    ++reads;
    return got;
}

namespace {

constexpr unsigned long LINE_ROOM = 5119;  // the most that readLine() takes

// The result, the text, its size, and the position afterwards.
using Outcome = std::tuple<long, std::string, unsigned long, long long>;

// Reads `count` bytes, or with 0 a line.
Outcome read(File& file, unsigned long count = 0) {
    char text[LINE_ROOM] = "";
    unsigned long size = 0;
    long const result = count == 0 ? file.readLine(text, sizeof text, &size)
                                   : file.readText(text, sizeof text, count, 0, &size);
    return {result, result < 0 ? "" : text, size, file.position()};
}

TEST(ReadTextTest, GivesPieceByPiece) {
    auto const expectPieces = [](char const* name, int textType, std::string const& bytes,
                                 unsigned long count, std::vector<Outcome> const& pieces) {
        SCOPED_TRACE(name);
        TextFile text(bytes, textType);
        for (Outcome const& piece : pieces) {
            EXPECT_EQ(piece, read(text.file, count));
        }
        EXPECT_EQ(File::END_OF_FILE, std::get<0>(read(text.file, count)));
    };
    // clang-format off
    expectPieces("no end", UTF8, "ab\r\ncd", 0, {{2, "ab", 3, 4}, {2, "cd", 3, 6}});
    expectPieces("lone CRs", UTF8, "a\rb\nc\r", 0, {{3, "a\rb", 4, 4}, {1, "c", 2, 6}});
    expectPieces("CRs over blocks", UTF8, "x" + std::string(9999, '\r') + "\n", 0, {{1, "x", 2, 10001}});
    expectPieces("mark in front", UTF8, "\uFEFFa\n", 0, {{4, "a", 2, 5}});
    expectPieces("mark behind CR", UTF8, "\r\uFEFF\n", 0, {{4, "\r\uFEFF", 5, 5}});
    expectPieces("bytes that are no character", UTF8, "a\xE3\x81z\x80\n\xFF\n\xC0\xAF\xC3\xA9\xF0\x9F", 0,
                 {{5, "az", 3, 6}, {1, "", 1, 8}, {6, "\u00E9", 3, 14}});
    expectPieces("NUL", UTF8, "a\0b\nc"s, 0, {{3, "a", 2, 4}, {1, "c", 2, 5}});
    expectPieces("LF behind lead", SJIS, "\x82\nb\r\n", 0, {{3, "*b", 3, 5}});
    expectPieces("lead at the end", SJIS, "\n\x82", 0, {{0, "", 1, 1}, {1, "*", 2, 2}});
    expectPieces("high first", HIGH_FIRST, "\xA\xD\0\r\0\nx"s, 0, {{2, "\u0A0D", 4, 6}, {1, "", 1, 7}});
    expectPieces("low first", LOW_FIRST, "\xFF\xFE\x42\x30\n\0"s, 0, {{4, "\u3042", 4, 6}});
    expectPieces("half an LF", LOW_FIRST, "a\0\r\0\n"s, 0, {{5, "a\r", 3, 5}});
    expectPieces("spans that cut a character", UTF8, "a\u3042", 2, {{2, "a", 2, 2}, {2, "", 1, 4}});
    expectPieces("span with cut pair", SJIS, "a\x82\xA0", 2, {{2, "a*", 3, 2}, {1, "\xA0", 2, 3}});
    expectPieces("span with line ends", UTF8, "a\r\nb", 5119, {{4, "a\r\nb", 5, 4}});
    expectPieces("span with mark", UTF8, "\uFEFFab", 4, {{4, "a", 2, 4}, {1, "b", 2, 5}});
    expectPieces("span of odd count", LOW_FIRST, "a\0b\0"s, 3, {{2, "a", 2, 2}, {2, "b", 2, 4}});
    expectPieces("span of half a unit", LOW_FIRST, "a", 2, {{1, "", 1, 1}});
    // clang-format on
}

// Bytes that are line ends, leads, marks, zeroes or halves of units more often than not.
std::string randomBytes(std::mt19937& random, unsigned long size) {
    std::string const often = "\r\n\0\x82\xA0\xEF\xBB\xBF\xFE\xFF\xE3\xC3"s;
    unsigned const variety = random() % 4;
    std::string bytes(size, 'a');
    for (char& byte : bytes) {
        unsigned const pick = random() % 64;
        byte = pick < 4 * variety ? often[random() % often.size()] : byte;
        byte = pick > 60 ? static_cast<char>(random()) : byte;
    }
    return bytes;
}

class RandomTextTest : public ::testing::TestWithParam<int> {};

// In a row, over the borders of what is read ahead, at all alignments; and again as sizes and
// spans.
TEST_P(RandomTextTest, LinesAreThoseOfThePlainWalk) {
    std::mt19937 random(40u + static_cast<unsigned>(GetParam()));
    std::string bytes;
    while (bytes.size() < 300000) {
        bytes += randomBytes(random, random() % 2000);
        bytes += random() % 4 == 0 ? "\u3042\u3044ab\r\n" : "";
        bytes += random() % 4 == 0 ? "a\0b\0\n\0"s : "";
    }
    plain::Memory plainText(bytes);
    TextFile inARow(bytes, GetParam());
    TextFile text(bytes, GetParam());
    unsigned long readsInARow = 0;
    for (unsigned long begin = 0; begin < bytes.size();) {
        plain::Line const line = plain::nextLine(plainText, GetParam());
        long long const end = plainText.position();
        unsigned long size = 0;
        unsigned long endSize = 0;
        ASSERT_EQ(1, text.file.findNextLineSize(1, &size, &endSize));
        ASSERT_EQ(std::tie(line.size, line.endSize), std::tie(size, endSize)) << begin;
        ASSERT_EQ(end, text.file.position());

        unsigned long const readsBefore = reads;
        Outcome const outcome = read(inARow.file);
        readsInARow += reads - readsBefore;
        if (line.size > 1) {
            text.file.seek(static_cast<long long>(begin), File::FROM_START);
            Outcome span = read(text.file, line.size);
            long& result = std::get<0>(span);
            result = result > 0 ? static_cast<long>(line.size) : result;  // half a unit too
            std::get<3>(span) = result > 0 ? end : static_cast<long long>(begin);
            ASSERT_EQ(span, outcome) << begin;
        }
        if (3 * line.size < LINE_ROOM) {  // there is room in any case
            ASSERT_EQ(static_cast<long>(line.size), std::get<0>(outcome)) << begin;
            ASSERT_EQ(end, inARow.file.position());
            std::string const expected = plain::textOf(bytes.substr(begin, line.size));
            ASSERT_TRUE(GetParam() != UTF8 || expected == std::get<1>(outcome)) << begin;
        } else {
            inARow.file.seek(end, File::FROM_START);
        }
        text.file.seek(end, File::FROM_START);
        begin = static_cast<unsigned long>(end);
    }
    EXPECT_EQ(File::END_OF_FILE, std::get<0>(read(inARow.file)));
    EXPECT_GT(60u, readsInARow);
}

INSTANTIATE_TEST_SUITE_P(Encodings, RandomTextTest,
                         ::testing::Values(SJIS, UTF8, HIGH_FIRST, LOW_FIRST));

TEST(ReadLineBoundsTest, ALineTooLongStaysButCanBePassedOver) {
    TextFile text(std::string(5119, 'a') + "\n" + std::string(5120, 'b') + "\nc", UTF8);
    BasicString<char> line;
    EXPECT_EQ(5119, text.file.readLine(&line, nullptr));
    EXPECT_EQ(std::string(5119, 'a'), line.c_str());
    EXPECT_EQ(-1, text.file.readLine(&line, nullptr));
    EXPECT_EQ(5120, text.file.position());
    EXPECT_EQ(-1, text.file.readLine(nullptr, 0, nullptr));
    EXPECT_EQ(1, text.file.findNextLineSize(0, nullptr, nullptr));
    EXPECT_EQ(1, text.file.readLine(&line, nullptr));
}

TEST(ReadLineBoundsTest, TheLongestLineMayBecomeThreeTimesAsLong) {
    TextFile text(std::string(5119, '\xB1'), SJIS);
    BasicString<char> line;
    unsigned long size = 0;
    EXPECT_EQ(5119, text.file.readLine(&line, &size));
    EXPECT_EQ(3u * 5119 + 1, size);
    EXPECT_EQ(3u * 5119, line.length());
}

TEST(ReadLineBoundsTest, ALineTooLongIsNotReadToItsEnd) {
    TextFile text(std::string(1000000, 'a'), SJIS);
    bytesRead = 0;
    EXPECT_EQ(-1, text.file.readLine(nullptr, 0, nullptr));
    EXPECT_GT(20000u, bytesRead);
    EXPECT_LT(5119u, bytesRead);
}

// What is read ahead is seen by nobody.
class LinesAheadTest : public ::testing::Test {
protected:
    static std::string line(File& file) { return std::get<1>(read(file)); }

    TextFile text{"one\ntwo\nthree\nfour\nfive\nsix\n", UTF8, File::READ_WRITE};
    File& file = text.file;
};

TEST_F(LinesAheadTest, CopiesAndForkedChildrenShareThePosition) {
    EXPECT_EQ("one", line(file));
    {
        File copy(file);
        EXPECT_EQ(4, copy.position());
        EXPECT_EQ("two", line(copy));
        EXPECT_EQ("three", line(file));
        File assigned("", UTF8);
        assigned = copy;
        EXPECT_EQ("four", line(assigned));
    }
    EXPECT_EQ("five", line(file));
    EXPECT_TRUE(test::inChild([&] {
        EXPECT_EQ(24, file.position());
        EXPECT_EQ("six", line(file));
    }));
    EXPECT_EQ("", line(file));
    EXPECT_EQ(0, file.availableSize());
}

TEST_F(LinesAheadTest, OtherCallsWorkAtThePosition) {
    char bytes[4] = "";
    EXPECT_EQ("one", line(file));
    EXPECT_EQ(3, file.read(bytes, 3));
    EXPECT_STREQ("two", bytes);
    EXPECT_EQ("", line(file));
    EXPECT_EQ(3, file.write("THR", 3));
    EXPECT_EQ("ee", line(file));
    EXPECT_EQ("five", (file.seek(5, File::FROM_CURRENT), line(file)));
    EXPECT_EQ(1, file.resize());
    EXPECT_EQ(-3, std::get<0>(read(file)));
    EXPECT_EQ("one\ntwo\nTHRee\nfour\nfive\n", text.scratch.content("text"));
}

TEST_F(LinesAheadTest, AFileThatGrowsGoesOn) {
    while (std::get<0>(read(file)) != File::END_OF_FILE) {
    }
    std::ofstream(text.scratch("text"), std::ios::app) << "seven";
    EXPECT_EQ("seven", line(file));
    std::ofstream(text.scratch("text"), std::ios::app) << " and\n\n";
    EXPECT_EQ(" and", line(file));
    EXPECT_EQ(1u, std::get<2>(read(file)));
    EXPECT_EQ(-3, std::get<0>(read(file)));
}

TEST_F(LinesAheadTest, NoLineIsLostOrReadTwiceWhenAnotherThreadForks) {
    std::string lines;
    for (int i = 0; i < 100000; ++i) {
        lines += std::to_string(i) + "\n";
    }
    TextFile many(lines, UTF8);
    std::atomic<bool> isDone{false};
    test::Gate noMoreForks;  // a thread that ends right before one is a leak in the child
    std::thread reader([&] {
        for (int i = 0; i < 100000; ++i) {
            std::string const got = line(many.file);
            EXPECT_EQ(std::to_string(i), got);
            if (got.empty()) {
                break;
            }
        }
        isDone = true;
        noMoreForks.wait();
    });
    while (!isDone) {
        EXPECT_TRUE(test::inChild([] {}));
    }
    noMoreForks.open();
    reader.join();
}

TEST(ReadTextRoomTest, WithoutItTheTextStays) {
    TextFile text("\x82\xA0\xB1\n", SJIS);
    test::FencedBuffer dst(9, "??");
    unsigned long size = 0;
    EXPECT_EQ(3, text.file.readLine(nullptr, 0, &size));
    EXPECT_EQ(3, text.file.readText(nullptr, 0, 3, 9, &size));
    EXPECT_EQ(7u, size);
    EXPECT_EQ(-1, text.file.readLine(dst.data(), 6, &size));
    EXPECT_EQ(-1, text.file.readLine(dst.data(), 5120, &size));
    EXPECT_EQ(-1, text.file.readLine(nullptr, 7, &size));
    EXPECT_EQ(-1, text.file.readText(dst.data(), 8, 3, 2, &size));
    EXPECT_EQ(-1, text.file.readText(dst.data(), 9, 3, NONE, &size));
    EXPECT_EQ(3, text.file.readText(dst.data(), 9, 3, 2, &size));
    EXPECT_STREQ("??\u3042\uFF71", dst.data());
    EXPECT_TRUE(dst.fencesIntact());
}

TEST(ReadTextFailureTest, LeavesThePositionAndIsLogged) {
    TextFile large("a\n", UTF8);
    TextFile unknown("a\n", 4);
    Outcome const failure(-1, "", 0, 0);
    EXPECT_EQ(failure, read(large.file, 5120));
    EXPECT_EQ(failure, read(unknown.file));
    EXPECT_EQ(failure, read(unknown.file, 1));
    test::LogCapture log;
    TextFile text("a", LOW_FIRST, File::WRITE);
    EXPECT_EQ(-1, text.file.findNextLineSize(1, nullptr, nullptr));
    EXPECT_EQ(1u, log.count("in findNextLineSize func file read error 2byte"));
    text.file.close();
    EXPECT_EQ(-1, text.file.findNextLineSize(1, nullptr, nullptr));
    EXPECT_EQ(1u, log.count("in findNextLineSize func file is not opened"));
    EXPECT_EQ(-1, text.file.readLine(nullptr, 0, nullptr));
}

TEST(ReadIntoStringTest, KeepsWhatIsBeforeTheOffset) {
    TextFile text("one\ntwo", UTF8);
    BasicString<char> string("12345", 0, BasicString<char>::FIXED);
    EXPECT_EQ(-1, text.file.readText(&string, 3, 6, nullptr));
    EXPECT_EQ(3, text.file.readText(&string, 3, 4, nullptr));
    EXPECT_STREQ("1234one", string.c_str());
    EXPECT_EQ(0, text.file.readLine(&string, nullptr));
    EXPECT_STREQ("", string.c_str());
}

TEST(NextEolSizeTest, LooksAtBytesAndStays) {
    TextFile text("\r\n\rx\n\r", HIGH_FIRST);
    long const sizes[] = {2, 1, 1, -1, 1, 1, 0};
    for (long position = 0; position < 7; ++position) {
        text.file.seek(position, File::FROM_START);
        EXPECT_EQ(sizes[position], text.file.nextEOLSize()) << position;
        EXPECT_EQ(position, text.file.position());
    }
}

// The result of writing, and what the file holds then.
using Written = std::pair<long, std::string>;

Written write(int textType, char const* text, unsigned long maxBytes, unsigned long offset = 0) {
    TextFile file("", textType, File::WRITE);
    long const result = file.file.writeText(text, maxBytes, offset);
    return {result, file.scratch.content("text")};
}

TEST(WriteTextTest, StoresTheBytesOfWhatIsInTheText) {
    EXPECT_EQ(Written(2, "bc"), write(UTF8, "abc", 9, 1));
    EXPECT_EQ(Written(2, "a\xE3"), write(UTF8, "a\u3042", 2));  // cut in a character
    EXPECT_EQ(Written(4, "\0y\x30\x42"s), write(HIGH_FIRST, "xy\u3042", 9, 1));
    EXPECT_EQ(Written(3, "x\0y"s), write(LOW_FIRST, "xy", 3));
    EXPECT_EQ(Written(-1, ""), write(SJIS, "ab", 9));
    EXPECT_EQ(Written(-1, ""), write(UTF8, "abc", 9, 4));
    EXPECT_EQ(Written(-1, ""), write(UTF8, "abc", 5120));
    EXPECT_EQ(Written(-1, ""), write(LOW_FIRST, "\u3042xy", 9, 1));  // inside a character
    // No single character, in UTF-16.
    EXPECT_EQ(Written(0, ""), write(LOW_FIRST, "x", 9));
    EXPECT_EQ(Written(-1, ""), write(LOW_FIRST, "xy", 9, 1));
    EXPECT_EQ(Written(-1, ""), write(LOW_FIRST, "", 9));
}

TEST(WriteTextTest, WritesALongTextPieceByPiece) {
    std::string text;
    for (int i = 0; i < 30 * 2559; ++i) {
        text += "\u3042";
    }
    TextFile utf8("", UTF8, File::WRITE);
    TextFile utf16("", HIGH_FIRST, File::WRITE);
    for (unsigned long offset = 0; offset < text.size(); offset += 5118) {
        EXPECT_EQ(5118, utf8.file.writeText(text.c_str(), 5118, offset));
    }
    for (unsigned long offset = 0; offset < text.size(); offset += 3 * 2559) {
        EXPECT_EQ(5118, utf16.file.writeText(text.c_str(), 5118, offset));
    }
    EXPECT_EQ(text, utf8.scratch.content("text"));
    std::string const units = utf16.scratch.content("text");
    EXPECT_EQ(30u * 5118, units.size());
    EXPECT_EQ(std::string::npos, units.find_first_not_of("\x30\x42"));
    text[100000] = '\0';
    EXPECT_EQ(-1, TextFile("", UTF8, File::WRITE).file.writeText(text.c_str(), 9, 100001));
    text[3] = '\0';  // another one in its place
    EXPECT_EQ(-1, utf8.file.writeText(text.c_str(), 9, 230000));
}

TEST(WriteLineTest, EndsALineInUtf8Only) {
    TextFile text("", UTF8, File::WRITE);
    EXPECT_EQ(2, text.file.writeLine("x"));
    EXPECT_EQ(1, text.file.writeLine(""));
    EXPECT_EQ(-1, text.file.writeLine(nullptr));
    EXPECT_EQ(0, text.file.setTextType(4));
    EXPECT_EQ(0, text.file.setTextType(-1));
    EXPECT_EQ(2, text.file.writeLine("y"));
    EXPECT_EQ(1, text.file.setTextType(LOW_FIRST));
    EXPECT_EQ(4, text.file.writeLine("xy"));
    EXPECT_EQ(0, text.file.writeLine("x"));
    EXPECT_EQ("x\n\ny\nx\0y\0"s, text.scratch.content("text"));
}

using Position = unsigned long long;

constexpr Position FAILED = static_cast<Position>(-1);

Position seekKey(File& file, std::string const& key, Position from, Position range, int mode) {
    return file.seekKey(reinterpret_cast<unsigned char const*>(key.data()), key.size(), from, range,
                        mode);
}

TEST(SeekKeyTest, RefusesNoKeyNoPlaceAndNoFile) {
    TextFile text(
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
    TextFile text(bytes, 0);
    plain::Memory plainText(bytes);
    for (unsigned round = 0; round < 60; ++round) {
        std::string key(1 + random() % 6, 'a');
        key[random() % key.size()] = 'b';
        key.back() = static_cast<char>('a' + random() % 3);
        Position const from = round % 3 == 0 ? File::CURRENT : random() % 21000;
        Position const range = round % 4 == 0 ? FAILED : random() % 12000;
        int const mode = round % 2;
        EXPECT_EQ(plain::seekKey(plainText, key, from, range, mode),
                  seekKey(text.file, key, from, range, mode));
        EXPECT_EQ(plainText.position(), text.file.position()) << key << from << range;
    }
}

}  // namespace
