// The bit stream on arbitrary sequences of accesses, some of them to its own buffer. Whatever it is
// asked for, it touches nothing but the buffer and the memory given, keeps its position and length
// inside, does nothing while its flag is set, and reads back what it wrote.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "UtlBitStream.h"

namespace {

using namespace utl;
using Bytes = std::vector<unsigned char>;

constexpr int MAX_SIZE = 64;  // of a buffer, in bytes

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// Mostly inside the buffer or the current position.
int takeOffset(FuzzedDataProvider& input) {
    return input.ConsumeBool() ? BitStream::CURRENT
                               : input.ConsumeIntegralInRange(-2, 8 * MAX_SIZE);
}

unsigned long takeBits(FuzzedDataProvider& input) {
    unsigned long const bits = input.ConsumeIntegralInRange<unsigned long>(0, 8 * MAX_SIZE + 1);
    return bits <= 8 * MAX_SIZE ? bits : NONE;
}

void writeAndReadBack(BitStream& stream, FuzzedDataProvider& input) {
    std::uint64_t const value = input.ConsumeIntegral<std::uint64_t>();
    unsigned long const bits = input.ConsumeIntegralInRange<unsigned long>(0, 66);
    int const offset = takeOffset(input);
    unsigned long const start =
        offset == BitStream::CURRENT ? stream.getBitPosition() : static_cast<unsigned long>(offset);
    stream.writeBitToUint64(value, bits, offset);
    if (!stream.hasError() && bits != 0) {
        unsigned char const* const buffer = stream.getBitStreamAddress();
        std::uint64_t plain = 0;
        for (unsigned long at = start; at < start + bits; ++at) {
            plain = plain * 2 + (buffer[at / 8] >> (7 - at % 8) & 1);
        }
        require(plain == value << (64 - bits) >> (64 - bits));
        require(plain == stream.readBitToUint64(bits, static_cast<int>(start)));
    }
}

void readFields(BitStream& stream, FuzzedDataProvider& input) {
    bool const isStopped = stream.hasError();
    int const offset = takeOffset(input);
    unsigned long const bits = takeBits(input);
    unsigned long const seen = stream.readBitToUint8(bits % 10, offset) |
                               stream.readBitToUint16(bits % 18, offset) |
                               stream.readBitToUint32(bits % 34, offset);
    require(!isStopped || seen == 0);
}

// Through memory outside, which has just the room for it, or to another place of the buffer.
void transfer(BitStream& stream, Bytes& buffer, FuzzedDataProvider& input) {
    unsigned long const bits = takeBits(input);
    int const offset = takeOffset(input);
    Bytes data(bits == NONE ? 0 : (bits + 7) / 8, 0x5A);
    bool const isOwn = input.ConsumeBool() && data.size() <= buffer.size();
    unsigned char* const memory = isOwn ? &buffer[input.ConsumeIntegralInRange<unsigned long>(
                                              0, buffer.size() - (data.empty() ? 1 : data.size()))]
                                        : data.data();
    if (input.ConsumeBool()) {
        stream.readBitData(memory, bits, offset);
    } else {
        stream.writeBitData(memory, bits, offset);
    }
}

void doAny(BitStream& stream, BitStream const& other, Bytes& buffer, FuzzedDataProvider& input) {
    switch (input.ConsumeIntegralInRange(0, 5)) {
        case 0:
            writeAndReadBack(stream, input);
            break;
        case 1:
            readFields(stream, input);
            break;
        case 2:
            transfer(stream, buffer, input);
            break;
        case 3: {
            BitStream const& source = input.ConsumeBool() ? stream : other;
            stream.copy(source, takeOffset(input));
            break;
        }
        case 4: {
            int const distance = input.ConsumeIntegralInRange(-8 * MAX_SIZE, 8 * MAX_SIZE);
            int const origin = input.ConsumeIntegralInRange(-1, 3);
            stream.seekBitOffset(static_cast<unsigned long>(distance), origin);
            break;
        }
        default:
            stream.clear(input.ConsumeBool());
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    Bytes buffer(input.ConsumeIntegralInRange<unsigned long>(1, MAX_SIZE), 0xA5);
    Bytes otherBuffer(input.ConsumeIntegralInRange<unsigned long>(1, MAX_SIZE), 0x3C);
    BitStream stream(buffer.data(), buffer.size());
    BitStream other(otherBuffer.data(), otherBuffer.size());
    other.seekBitOffset(input.ConsumeIntegralInRange<unsigned long>(0, 8 * otherBuffer.size()),
                        BitStream::FROM_START);
    while (input.remaining_bytes() > 0) {
        bool const isStopped = stream.hasError();
        Bytes const before = buffer;
        doAny(stream, other, buffer, input);
        require(stream.getBitPosition() <= 8 * buffer.size());
        require(stream.getBitStreamSize() <= buffer.size());
        require(!isStopped || !stream.hasError() || buffer == before);
    }
    return 0;
}
