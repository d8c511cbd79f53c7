#include "UtlBitStream.h"

#include <algorithm>
#include <limits>

#include "UtlRawMemory.h"

namespace utl {

namespace {

constexpr std::uint32_t BYTE_BITS = 8;
constexpr std::uint32_t WORD_BYTES = 8;
constexpr std::uint32_t WORD_BITS = WORD_BYTES * BYTE_BITS;

// Eight bytes as a big-endian number, in the form that compilers turn into one access.
std::uint64_t loadWord(unsigned char const* bytes) {
    return std::uint64_t{bytes[0]} << 56 | std::uint64_t{bytes[1]} << 48 |
           std::uint64_t{bytes[2]} << 40 | std::uint64_t{bytes[3]} << 32 |
           std::uint64_t{bytes[4]} << 24 | std::uint64_t{bytes[5]} << 16 |
           std::uint64_t{bytes[6]} << 8 | std::uint64_t{bytes[7]};
}

void storeWord(unsigned char* bytes, std::uint64_t value) {
    bytes[0] = static_cast<unsigned char>(value >> 56);
    bytes[1] = static_cast<unsigned char>(value >> 48);
    bytes[2] = static_cast<unsigned char>(value >> 40);
    bytes[3] = static_cast<unsigned char>(value >> 32);
    bytes[4] = static_cast<unsigned char>(value >> 24);
    bytes[5] = static_cast<unsigned char>(value >> 16);
    bytes[6] = static_cast<unsigned char>(value >> 8);
    bytes[7] = static_cast<unsigned char>(value);
}

// The first `count` bytes, at most 8, as a big-endian number.
std::uint64_t loadBytes(unsigned char const* bytes, std::uint32_t count) {
    if (count == WORD_BYTES) {
        return loadWord(bytes);
    }
    std::uint64_t value = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        value = value << BYTE_BITS | bytes[i];
    }
    return value;
}

void storeBytes(unsigned char* bytes, std::uint32_t count, std::uint64_t value) {
    if (count == WORD_BYTES) {
        storeWord(bytes, value);
        return;
    }
    for (std::uint32_t i = count; i > 0; --i) {
        bytes[i - 1] = static_cast<unsigned char>(value);
        value >>= BYTE_BITS;
    }
}

std::uint64_t lowMask(std::uint32_t bits) {
    return bits == 0 ? 0 : ~std::uint64_t{0} >> (WORD_BITS - bits);
}

// The field of `bits` bits, at most 64, at `position`. Reads no byte but those it lies in.
std::uint64_t getBits(unsigned char const* bytes, std::uint32_t position, std::uint32_t bits) {
    bytes += position / BYTE_BITS;
    std::uint32_t const begin = position % BYTE_BITS;
    std::uint32_t const end = begin + bits;
    if (end > WORD_BITS) {  // in a ninth byte
        std::uint32_t const rest = end - WORD_BITS;
        return (loadWord(bytes) << rest | bytes[WORD_BYTES] >> (BYTE_BITS - rest)) & lowMask(bits);
    }
    std::uint32_t const count = (end + BYTE_BITS - 1) / BYTE_BITS;
    std::uint32_t const below = count * BYTE_BITS - end;
    return loadBytes(bytes, count) >> below & lowMask(bits);
}

// Writes the low `bits` bits of `value`; the other bits of the bytes they lie in stay.
void putBits(unsigned char* bytes, std::uint32_t position, std::uint32_t bits,
             std::uint64_t value) {
    bytes += position / BYTE_BITS;
    std::uint32_t const begin = position % BYTE_BITS;
    std::uint32_t const end = begin + bits;
    if (end > WORD_BITS) {
        std::uint32_t const rest = end - WORD_BITS;
        putBits(bytes, begin, bits - rest, value >> rest);
        putBits(bytes + WORD_BYTES, 0, rest, value);
        return;
    }
    std::uint32_t const count = (end + BYTE_BITS - 1) / BYTE_BITS;
    std::uint32_t const below = count * BYTE_BITS - end;
    std::uint64_t const mask = lowMask(bits) << below;
    storeBytes(bytes, count, (loadBytes(bytes, count) & ~mask) | (value << below & mask));
}

// Nearly every field is in five bytes of the buffer, whichever bit it begins at. These do with
// numbers of 32 bits, which is what 32-bit processors are quick with. Inline: compilers judge them
// before they have seen four bytes as one.

constexpr std::uint32_t NEAR_BYTES = 5;
constexpr std::uint32_t NEAR_BITS = 32;

[[gnu::always_inline]] inline std::uint32_t loadHalf(unsigned char const* bytes) {
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
           std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]};
}

// As getBits(), for 1 to 32 bits.
[[gnu::always_inline]] inline std::uint32_t getNearBits(unsigned char const* bytes,
                                                        std::uint32_t position,
                                                        std::uint32_t bits) {
    bytes += position / BYTE_BITS;
    std::uint32_t const begin = position % BYTE_BITS;
    std::uint32_t const last = std::uint32_t{bytes[4]} >> (BYTE_BITS - begin);
    return (loadHalf(bytes) << begin | last) >> (NEAR_BITS - bits);
}

void mixByte(unsigned char* byte, std::uint32_t mask, std::uint32_t value) {
    *byte = static_cast<unsigned char>((*byte & ~mask) | (value & mask));
}

// As putBits(), likewise. Byte by byte: those that the field does not lie in may be another
// thread's.
[[gnu::always_inline]] inline void putNearBits(unsigned char* bytes, std::uint32_t position,
                                               std::uint32_t bits, std::uint32_t value) {
    bytes += position / BYTE_BITS;
    std::uint32_t const begin = position % BYTE_BITS;
    std::uint32_t const after = NEAR_BITS - bits;
    if (begin > after) {
        std::uint32_t const below = BYTE_BITS - (begin - after);
        mixByte(bytes + 4, 0xFFu << below & 0xFF, value << below);
    }
    value = value << after >> begin;
    for (std::uint32_t mask = ~std::uint32_t{0} << after >> begin; mask != 0; mask <<= BYTE_BITS) {
        mixByte(bytes, mask >> 24, value >> 24);
        value <<= BYTE_BITS;
        ++bytes;
    }
}

// Between byte boundaries. The areas may overlap: the last bits are taken before they go under.
void moveAligned(unsigned char* dst, unsigned char const* src, std::uint32_t bits) {
    std::uint32_t const rest = bits % BYTE_BITS;
    std::uint64_t const last = getBits(src, bits - rest, rest);
    moveMemory(dst, src, bits / BYTE_BITS);
    putBits(dst, bits - rest, rest, last);
}

// In 64 bits, so that it cannot wrap.
std::uint64_t bitAddress(unsigned char const* bytes, std::uint32_t position) {
    return std::uint64_t{reinterpret_cast<std::uintptr_t>(bytes)} * BYTE_BITS + position;
}

// Moves bits between areas that may overlap: from the end at which each is read before it is
// written over.
void moveBits(unsigned char* dst, std::uint32_t to, unsigned char const* src, std::uint32_t from,
              std::uint32_t bits) {
    if (to % BYTE_BITS == 0 && from % BYTE_BITS == 0) {
        moveAligned(dst + to / BYTE_BITS, src + from / BYTE_BITS, bits);
        return;
    }
    auto const moveField = [=](std::uint32_t at, std::uint32_t count) {
        putBits(dst, to + at, count, getBits(src, from + at, count));
    };
    std::uint32_t const rest = bits % WORD_BITS;
    if (bitAddress(dst, to) <= bitAddress(src, from)) {
        for (std::uint32_t at = 0; at < bits - rest; at += WORD_BITS) {
            moveField(at, WORD_BITS);
        }
        moveField(bits - rest, rest);
    } else {
        moveField(bits - rest, rest);
        for (std::uint32_t left = bits - rest; left > 0; left -= WORD_BITS) {
            moveField(left - WORD_BITS, WORD_BITS);
        }
    }
}

// Whether 32 bits hold the number, be it taken as unsigned or, in two's complement, as signed.
bool fitsIn32Bits(unsigned long number) {
    auto const low = static_cast<std::uint32_t>(number);
    return number == low || number == static_cast<unsigned long>(static_cast<std::int32_t>(low));
}

}  // namespace

BitStream::BitStream(unsigned char* buffer, unsigned long byteSize) {
    setBitStream(buffer, byteSize);
}

bool BitStream::setBitStream(unsigned char* buffer, unsigned long byteSize) {
    if (buffer == nullptr || byteSize == 0 ||
        byteSize > std::numeric_limits<std::uint32_t>::max()) {
        return false;
    }
    mBuffer = buffer;
    mByteSize = static_cast<std::uint32_t>(byteSize);
    mBitSize = 0;
    clear(false);
    return true;
}

void BitStream::clear(bool zeroFill) {
    mBitPosition = 0;
    mError = false;
    if (zeroFill && mBuffer != nullptr) {
        mBitSize = 0;
        fillMemory(mBuffer, mByteSize, 0);
    }
}

unsigned long BitStream::getBitStreamSize() const {
    return mBitSize / BYTE_BITS + (mBitSize % BYTE_BITS != 0 ? 1 : 0);
}

// Deliberate: the flag is not asked, and a seek forward lengthens the data. Writers skip what they
// fill in later and still have it counted.
void BitStream::seekBitOffset(unsigned long offset, int origin) {
    bool const isKnown = origin == FROM_START || origin == FROM_CURRENT || origin == FROM_END;
    std::uint32_t target = static_cast<std::uint32_t>(offset);
    if (origin == FROM_CURRENT) {
        target += mBitPosition;  // wraps: that is how an offset moves back
    } else if (origin == FROM_END) {
        target += mBitSize;
    }
    if (!isKnown || !fitsIn32Bits(offset) || target > bitLimit()) {
        mError = true;
        return;
    }
    mBitPosition = target;
    mBitSize = std::max(mBitSize, target);
}

// Whether admit() would let an access to the next bits pass, for some bits that lie in NEAR_BYTES
// of the buffer.
inline bool BitStream::isNear(unsigned long bits, unsigned long maxBits, int offset) const {
    std::uint32_t const end = mBitPosition + static_cast<std::uint32_t>(bits);
    return offset == CURRENT && !mError && bits <= maxBits && end > mBitPosition &&
           mBitPosition / BYTE_BITS + NEAR_BYTES <= mByteSize;
}

[[gnu::always_inline]] inline std::uint32_t BitStream::readNearField(unsigned long bits,
                                                                     unsigned long maxBits,
                                                                     int offset) {
    if (!isNear(bits, maxBits, offset)) {
        return static_cast<std::uint32_t>(readField(bits, maxBits, offset));
    }
    std::uint32_t const count = static_cast<std::uint32_t>(bits);
    std::uint32_t const value = getNearBits(mBuffer, mBitPosition, count);
    mBitPosition += count;
    return value;
}

void BitStream::writeNearField(std::uint32_t value, unsigned long bits, unsigned long maxBits,
                               int offset) {
    if (!isNear(bits, maxBits, offset)) {
        writeField(value, bits, maxBits, offset);
        return;
    }
    std::uint32_t const count = static_cast<std::uint32_t>(bits);
    putNearBits(mBuffer, mBitPosition, count, value);
    endWrite(mBitPosition + count, CURRENT);
}

unsigned char BitStream::readBitToUint8(unsigned long bits, int offset) {
    return static_cast<unsigned char>(readNearField(bits, 8, offset));
}

unsigned short BitStream::readBitToUint16(unsigned long bits, int offset) {
    return static_cast<unsigned short>(readNearField(bits, 16, offset));
}

unsigned long BitStream::readBitToUint32(unsigned long bits, int offset) {
    return readNearField(bits, 32, offset);
}

unsigned long long BitStream::readBitToUint64(unsigned long bits, int offset) {
    return readField(bits, 64, offset);
}

void BitStream::writeBitToUint8(unsigned char value, unsigned long bits, int offset) {
    writeNearField(value, bits, 8, offset);
}

void BitStream::writeBitToUint16(unsigned short value, unsigned long bits, int offset) {
    writeNearField(value, bits, 16, offset);
}

void BitStream::writeBitToUint32(unsigned long value, unsigned long bits, int offset) {
    writeNearField(static_cast<std::uint32_t>(value), bits, 32, offset);
}

void BitStream::writeBitToUint64(unsigned long long value, unsigned long bits, int offset) {
    writeField(value, bits, 64, offset);
}

void BitStream::readBitData(unsigned char* dst, unsigned long bits, int offset) {
    Range const range = admit(dst != nullptr, bits, offset);
    if (range.bits == 0) {
        return;
    }
    std::uint32_t const rest = range.bits % BYTE_BITS;
    moveBits(dst, 0, mBuffer, range.begin, range.bits);
    putBits(dst, range.bits, rest == 0 ? 0 : BYTE_BITS - rest, 0);
    endRead(range.begin + range.bits, offset);
}

void BitStream::writeBitData(unsigned char const* src, unsigned long bits, int offset) {
    Range const range = admit(src != nullptr, bits, offset);
    if (range.bits == 0) {
        return;
    }
    moveBits(mBuffer, range.begin, src, 0, range.bits);
    endWrite(range.begin + range.bits, offset);
}

void BitStream::copy(BitStream const& src, int offset) {
    Range const range = admit(true, src.mBitSize, offset);
    if (range.bits == 0) {
        return;
    }
    if (range.begin % BYTE_BITS == 0) {
        moveMemory(mBuffer + range.begin / BYTE_BITS, src.mBuffer, src.getBitStreamSize());
        endWrite(range.begin + range.bits, offset);
        return;
    }
    // Deliberate: of the last byte, a full one is left out, and a partial one is taken one bit too
    // far on, unlike in writeBitData(). Readers of composed streams count on the places that
    // result.
    std::uint32_t const rest = range.bits % BYTE_BITS;
    std::uint32_t const whole = range.bits - (rest == 0 ? BYTE_BITS : rest);
    if (whole + rest == 0) {
        return;
    }
    std::uint64_t const last = getBits(src.mBuffer, whole + 1, rest);
    moveBits(mBuffer, range.begin, src.mBuffer, 0, whole);
    putBits(mBuffer, range.begin + whole, rest, last);
    endWrite(range.begin + whole + rest, offset);
}

// Where accesses and seeks end: computed in 64 bits, and held in the 32 that a position has.
std::uint32_t BitStream::bitLimit() const {
    std::uint64_t const capacity = std::uint64_t{mByteSize} * BYTE_BITS;
    std::uint64_t const positions = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(capacity, positions));
}

// The bits to access; none of them if there is nothing to do, which is an error in all cases but
// two: the flag was set before, or a sound access is for no bits. Deliberate: the latter is not
// refused at any offset; packing loops write empty fields at places they never worked out.
BitStream::Range BitStream::admit(bool isSound, unsigned long bits, int offset) {
    Range const none{0, 0};
    if (mError || (isSound && bits == 0)) {
        return none;
    }
    std::uint32_t const begin = offset < 0 ? mBitPosition : static_cast<std::uint32_t>(offset);
    std::uint32_t const limit = bitLimit();
    mError = !isSound || offset < CURRENT || begin > limit || bits > limit - begin;
    return mError ? none : Range{begin, static_cast<std::uint32_t>(bits)};
}

void BitStream::endRead(std::uint32_t end, int offset) {
    if (offset == CURRENT) {
        mBitPosition = end;
    }
}

void BitStream::endWrite(std::uint32_t end, int offset) {
    mBitSize = std::max(mBitSize, end);
    if (offset == CURRENT) {
        mBitPosition = end;
    }
}

std::uint64_t BitStream::readField(unsigned long bits, unsigned long maxBits, int offset) {
    Range const range = admit(bits <= maxBits, bits, offset);
    if (range.bits == 0) {
        return 0;
    }
    endRead(range.begin + range.bits, offset);
    return getBits(mBuffer, range.begin, range.bits);
}

void BitStream::writeField(std::uint64_t value, unsigned long bits, unsigned long maxBits,
                           int offset) {
    Range const range = admit(bits <= maxBits, bits, offset);
    if (range.bits == 0) {
        return;
    }
    putBits(mBuffer, range.begin, range.bits, value);
    endWrite(range.begin + range.bits, offset);
}

}  // namespace utl
