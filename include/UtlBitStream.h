// Bit fields in a buffer of the caller's, most significant bit first.
//
//     BitStream stream(buffer, sizeof buffer);
//     stream.writeBitToUint8(version, 3, BitStream::CURRENT);
//     stream.writeBitToUint16(length, 13, BitStream::CURRENT);
//     stream.writeBitData(payload, 8 * length, BitStream::CURRENT);
//     if (stream.hasError()) {  // one look after the whole sequence
//         ...
//
// Bit 0 is the most significant bit of byte 0. A field is stored from its own most significant bit
// on: where it starts on a byte boundary, it is the big-endian number of its bits.
//
// Every access is given the bit to start at. CURRENT is the current position, which then moves on
// behind what was accessed; a bit of 0 or more leaves the position where it is; less than CURRENT
// is refused. What is refused sets the error flag and does nothing else. While the flag is set,
// reads give 0, and reads, writes and copies do nothing at all.
//
// The capacity bounds every access, for reads too: bits that were never written are read as the
// buffer holds them. Positions take 32 bits; what a buffer of 2^29 bytes or more holds behind bit
// 2^32 - 2 is out of reach.

#ifndef UTL_BIT_STREAM_H
#define UTL_BIT_STREAM_H

#include <cstdint>

#include "UtlApi.h"

namespace utl {

// Never allocates, and leaves the buffer, which must live longer, to its owner. Used by one thread
// at a time. Memory that a transfer reads and memory that it writes may overlap; the result is as
// if all had been read before any was written.
class UTL_API BitStream {
public:
    // What an access takes for the current position.
    static constexpr int CURRENT = -1;

    // What seekBitOffset() counts from: the buffer's first bit, the current position, and the end
    // of the data written.
    static constexpr int FROM_START = 0;
    static constexpr int FROM_CURRENT = 1;
    static constexpr int FROM_END = 2;

    // Bound to no buffer; every access is refused.
    BitStream() = default;

    // As setBitStream(), which tells whether it was done.
    BitStream(unsigned char* buffer, unsigned long byteSize);
    BitStream(BitStream const&) = delete;
    BitStream& operator=(BitStream const&) = delete;

    // Starts anew on `buffer`, without data written and without touching it. False, leaving all as
    // it is, for null and for a size of 0 or one that needs more than 32 bits.
    bool setBitStream(unsigned char* buffer, unsigned long byteSize);

    // Goes back to bit 0 and resets the error flag. With `zeroFill` the data written is also
    // forgotten and the whole buffer set to 0.
    void clear(bool zeroFill);

    // Null while not bound.
    unsigned char* getBitStreamAddress() const { return mBuffer; }

    // The length of the data written: up to the last bit that a write or a seek has reached, in
    // bytes, counting one that is begun, and in bits.
    unsigned long getBitStreamSize() const;
    unsigned long getBitStreamBitSize() const { return mBitSize; }

    unsigned long getBitPosition() const { return mBitPosition; }

    // True from the first access or seek that was refused until the next clear() or
    // setBitStream().
    bool hasError() const { return mError; }

    // Moves the position, even while the error flag is set. What lies before it then counts as
    // written. The sum is that of 32-bit numbers: a negative offset, cast to unsigned long, moves
    // back. Refused behind the end of the buffer, for any other origin, and for an offset that
    // needs more than 32 bits.
    void seekBitOffset(unsigned long offset, int origin);

    // A field of `bits` bits, 0 for none of them. Refused for more bits than the result has.
    unsigned char readBitToUint8(unsigned long bits, int offset);
    unsigned short readBitToUint16(unsigned long bits, int offset);
    unsigned long readBitToUint32(unsigned long bits, int offset);
    unsigned long long readBitToUint64(unsigned long bits, int offset);

    // Writes the low `bits` bits of `value`. Refused as above.
    void writeBitToUint8(unsigned char value, unsigned long bits, int offset);
    void writeBitToUint16(unsigned short value, unsigned long bits, int offset);
    void writeBitToUint32(unsigned long value, unsigned long bits, int offset);
    void writeBitToUint64(unsigned long long value, unsigned long bits, int offset);

    // Transfers `bits` bits to or from the first ones of `dst` or `src`. Of a last byte that is not
    // full, a read sets the other bits to 0 and a write ignores them. Refused for null, even for
    // 0 bits.
    void readBitData(unsigned char* dst, unsigned long bits, int offset);
    void writeBitData(unsigned char const* src, unsigned long bits, int offset);

    // Writes the data written to `src`, which may be this stream or share its buffer. At a byte
    // boundary a partial last byte is copied whole, with what else it holds. Elsewhere the last
    // byte comes out wrong: a full one is left out, and of one with n bits, n < 8, the n bits that
    // begin with its second are written.
    void copy(BitStream const& src, int offset);

private:
    // What an access is for. Without bits, there is nothing to do.
    struct Range {
        std::uint32_t begin;
        std::uint32_t bits;
    };

    std::uint32_t bitLimit() const;
    Range admit(bool isSound, unsigned long bits, int offset);
    void endRead(std::uint32_t end, int offset);
    void endWrite(std::uint32_t end, int offset);
    bool isNear(unsigned long bits, unsigned long maxBits, int offset) const;
    std::uint32_t readNearField(unsigned long bits, unsigned long maxBits, int offset);
    void writeNearField(std::uint32_t value, unsigned long bits, unsigned long maxBits, int offset);
    std::uint64_t readField(unsigned long bits, unsigned long maxBits, int offset);
    void writeField(std::uint64_t value, unsigned long bits, unsigned long maxBits, int offset);

    unsigned char* mBuffer = nullptr;  // not owned
    std::uint32_t mByteSize = 0;
    std::uint32_t mBitPosition = 0;
    std::uint32_t mBitSize = 0;
    bool mError = false;
};

}  // namespace utl

#endif  // UTL_BIT_STREAM_H
