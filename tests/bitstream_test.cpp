#include "UtlBitStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <climits>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace utl {
namespace {

using Bytes = std::vector<unsigned char>;
using Stream = BitStream;
constexpr int HERE = BitStream::CURRENT;

// Position, "/", length; "!" for the error flag.
std::string stateOf(BitStream const& stream) {
    return std::to_string(stream.getBitPosition()) + "/" +
           std::to_string(stream.getBitStreamBitSize()) + (stream.hasError() ? "!" : "");
}

// As a text of 0 and 1.
std::string bitsOf(Bytes const& bytes) {
    std::string bits;
    for (unsigned char const byte : bytes) {
        bits += std::bitset<8>(byte).to_string();
    }
    return bits;
}

// Access to fields of a type.
struct Field {
    unsigned long width;
    std::function<std::uint64_t(Stream&, unsigned long bits, int offset)> read;
    std::function<void(Stream&, std::uint64_t value, unsigned long bits, int offset)> write;
};

Field const FIELDS[] = {{8, &Stream::readBitToUint8, &Stream::writeBitToUint8},
                        {16, &Stream::readBitToUint16, &Stream::writeBitToUint16},
                        {32, &Stream::readBitToUint32, &Stream::writeBitToUint32},
                        {64, &Stream::readBitToUint64, &Stream::writeBitToUint64}};

TEST(BitStreamTest, OnlyAUsableBufferIsTakenOver) {
    Bytes bytes{0xA5, 0x0F};
    BitStream stream(nullptr, 2);
    EXPECT_EQ("0/0", stateOf(stream));
    stream.clear(true);
    stream.seekBitOffset(0, 0);
    EXPECT_EQ("0/0", stateOf(stream));
    stream.seekBitOffset(1, 0);
    EXPECT_FALSE(stream.setBitStream(nullptr, 2));
    EXPECT_FALSE(stream.setBitStream(bytes.data(), 0));
    EXPECT_EQ("0/0!", stateOf(stream));
    EXPECT_TRUE(stream.setBitStream(bytes.data(), 2));
    EXPECT_EQ(0xA50Fu, stream.readBitToUint16(16, HERE));
    stream.writeBitToUint8(1, 7, 2);
    EXPECT_EQ(2u, stream.getBitStreamSize());
    EXPECT_TRUE(stream.setBitStream(&bytes[1], 1));
    EXPECT_EQ(&bytes[1], stream.getBitStreamAddress());
    EXPECT_EQ("0/0", stateOf(stream));
}

TEST(BitStreamTest, AFieldHasNoMoreBitsThanItsType) {
    for (Field const& field : FIELDS) {
        Bytes bytes(9);
        BitStream read(bytes.data(), bytes.size()), written(bytes.data(), bytes.size());
        field.read(read, field.width, 0);
        field.write(written, 0, field.width, 0);
        EXPECT_FALSE(read.hasError() || written.hasError()) << field.width;
        field.read(read, field.width + 1, 0);
        field.write(written, 0, field.width + 1, 0);
        EXPECT_TRUE(read.hasError() && written.hasError()) << field.width;
    }
}

TEST(BitStreamTest, PositionsAndSizesEndWith32Bits) {
    unsigned char bytes[5] = {0xA5};  // as far as this test goes
    BitStream stream(bytes, 0x20000000);
    EXPECT_EQ(0xA5u, stream.readBitToUint8(8, HERE));
    stream.seekBitOffset(0xFFFFFFFF, 0);
    EXPECT_EQ(0x20000000u, stream.getBitStreamSize());
    stream.writeBitToUint8(1, 1, HERE);
    EXPECT_EQ("4294967295/4294967295!", stateOf(stream));
    if (sizeof(long) > 4) {
        auto const above = static_cast<unsigned long>(0x100000001ull);
        EXPECT_FALSE(stream.setBitStream(bytes, above));
        stream.clear(false);
        stream.seekBitOffset(above, 1);
        EXPECT_EQ("0/4294967295!", stateOf(stream));
        EXPECT_TRUE(stream.setBitStream(bytes, 0xFFFFFFFF));
    }
}

unsigned char sourceBytes[] = {0xA5, 0xC3};

void copyTo(BitStream& stream, unsigned long bits, int offset) {
    BitStream source(sourceBytes, sizeof sourceBytes);
    source.seekBitOffset(bits, 0);
    stream.copy(source, offset);
}

// What is done to the bytes A5 0F 3C 96 and five of 0, of which two are written, from position 8
// on. Off a byte boundary, a copied last byte comes without its first bit, or not at all if it is
// full.
void expectStep(char const* name, void (*make)(Stream& stream), char const* state,
                unsigned long firstBytes = 0xA50F3C96) {
    SCOPED_TRACE(name);
    Bytes bytes{0xA5, 0x0F, 0x3C, 0x96, 0, 0, 0, 0, 0}, data(4, 0x11);
    BitStream stream(bytes.data(), bytes.size());
    stream.seekBitOffset(16, 0);
    stream.seekBitOffset(8, 0);
    make(stream);
    EXPECT_EQ(state, stateOf(stream));
    if (stream.hasError()) {
        EXPECT_EQ(0u, stream.readBitToUint64(24, HERE));
        stream.writeBitToUint8(0, 8, HERE);
        stream.writeBitData(data.data(), 8, HERE);
        stream.readBitData(data.data(), 8, HERE);
        copyTo(stream, 8, HERE);
        stream.seekBitOffset(16, 1);  // which the flag does not stop
        EXPECT_EQ("24/24!", stateOf(stream));
    }
    EXPECT_EQ(std::bitset<32>(firstBytes).to_string() + std::string(40, '0'), bitsOf(bytes));
    EXPECT_EQ(Bytes(4, 0x11), data);
}

TEST(BitStreamTest, AStepChangesThisAndWhatIsRefusedStopsAllAccess) {
    // clang-format off
#define STEP(call, ...) expectStep(#call, [](Stream& s) { call; }, __VA_ARGS__)
    // clang-format on
    STEP(s.writeBitData(sourceBytes, ~0ul, HERE), "8/16!");  // where a sum would wrap
    STEP(s.writeBitToUint8(0, 0, -2), "8/16");
    STEP(s.readBitToUint8(1, -2), "8/16!");
    STEP(s.readBitToUint64(64, HERE), "72/16");
    STEP(s.writeBitData(sourceBytes, 65, HERE), "8/16!");
    STEP(s.writeBitToUint8(0, 7, 66), "8/16!");
    STEP(s.readBitToUint8(1, INT_MAX), "8/16!");
    STEP(s.readBitData({}, 0, 0), "8/16!");
    STEP(s.writeBitData({}, 0, 0), "8/16!");
    STEP(s.clear(true), "0/0", 0);
    STEP(s.seekBitOffset(0 - 7ul, 1), "1/16");
    STEP(s.seekBitOffset(0xFFFFFFF9, 1), "1/16");
    STEP(s.seekBitOffset(56, 2), "72/72");
    STEP(s.seekBitOffset(57, 2), "8/16!");
    STEP(s.seekBitOffset(0, 3), "8/16!");
    STEP(s.writeBitData(sourceBytes, 11, HERE), "19/19", 0xA5A5DC96);
    STEP(copyTo(s, 13, 16), "8/29", 0xA50FA5C3);
    STEP(copyTo(s, 13, 4), "8/17", 0xAA583C96);
    STEP(copyTo(s, 16, 12), "8/20", 0xA50A5C96);
    STEP(copyTo(s, 8, 20), "8/16");
    STEP(copyTo(s, 0, -2), "8/16");
    STEP(s.copy(s, HERE), "24/24", 0xA5A50F96);
}

// Inside one memory, with the buffer in the middle, so that many transfers overlap. In a text, each
// of them is a replacement.
TEST(BitStreamPlainFormTest, TransfersTheSameBits) {
    constexpr unsigned long SIZE = 64, BEGIN = 10, ROOM = 8 * 42;
    std::mt19937 random(101);
    auto const pick = [&](unsigned long count) { return random() % count; };
    Bytes memory(SIZE);
    for (int round = 0; round < 5000 && !::testing::Test::HasFailure(); ++round) {
        std::generate(memory.begin(), memory.end(), [&] { return pick(256); });
        std::string expected = bitsOf(memory);
        unsigned long const start = pick(ROOM), place = pick(3) == 0 ? BEGIN : pick(SIZE);
        unsigned long const bits = 1 + pick(std::min(ROOM - start, 8 * (SIZE - place)));
        unsigned long const from = 8 * place, to = 8 * BEGIN + start;
        SCOPED_TRACE(::testing::Message() << bits << " bits, from " << from << ", to " << to);
        BitStream stream(&memory[BEGIN], ROOM / 8), source(&memory[place], SIZE - place);
        source.seekBitOffset(bits, 0);
        int const offset = static_cast<int>(start);

        std::uint64_t const value = std::uint64_t{random()} << 32 | random();
        Field const& field = FIELDS[pick(4)];
        unsigned long const few = std::min(bits, field.width);
        int const where = pick(2) == 0 ? HERE : offset;
        stream.seekBitOffset(start, 0);
        field.write(stream, value, few, where);
        expected.replace(to, few, std::bitset<64>(value).to_string(), 64 - few);
        EXPECT_EQ(expected, bitsOf(memory));
        stream.seekBitOffset(start, 0);
        EXPECT_EQ(std::bitset<64>(expected.substr(to, few)).to_ullong(),
                  field.read(stream, few, where));
        EXPECT_EQ(where == HERE ? start + few : start, stream.getBitPosition());
        EXPECT_EQ(start + few, stream.getBitStreamBitSize());

        stream.writeBitData(&memory[place], bits, offset);
        expected.replace(to, bits, expected.substr(from, bits));
        EXPECT_EQ(expected, bitsOf(memory));

        stream.readBitData(&memory[place], bits, offset);
        std::string data = expected.substr(to, bits) + std::string(7 - (bits - 1) % 8, '0');
        expected.replace(from, data.size(), data);
        EXPECT_EQ(expected, bitsOf(memory));

        stream.copy(source, offset);
        if (start % 8 != 0) {  // the last byte loses its first bit
            data.erase(data.size() - 8, 1).resize((bits - 1) / 8 * 8 + bits % 8);
        }
        expected.replace(to, data.size(), data);
        EXPECT_EQ(expected, bitsOf(memory));
    }
}

}  // namespace
}  // namespace utl
