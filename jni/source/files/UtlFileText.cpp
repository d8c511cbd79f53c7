#include "UtlFile.h"

#include <string.h>

#include <algorithm>
#include <memory>
#include <new>

#include "UtlCharSet.h"
#include "UtlLog.h"
#include "UtlRawMemory.h"
#include "UtlString.h"

#include "files/UtlCharacters.h"
#include "files/UtlReadAhead.h"
#include "foundation/UtlLogLine.h"
#include "text/UtlCodePage932.h"

namespace utl {

namespace {

constexpr long FAILED = -1;

// The bytes that one call reads or writes are fewer than this.
constexpr unsigned long BYTE_LIMIT = 5120;
// What they become at the most: one byte of Shift_JIS takes three in UTF-8.
constexpr unsigned long LARGEST_TEXT = 3 * BYTE_LIMIT;
static_assert(ReadAhead::BLOCK_SIZE + 1 >= BYTE_LIMIT, "a line that can be read fits in a block");

constexpr unsigned long long ANY_SIZE = static_cast<unsigned long long>(-1);

bool isUtf16(int textType) {
    return textType == File::UTF16_HIGH_FIRST || textType == File::UTF16_LOW_FIRST;
}

bool isTextType(int textType) {
    return textType == File::SHIFT_JIS || textType == File::UTF8 || isUtf16(textType);
}

template <typename T>
void report(T* to, T value) {
    if (to != nullptr) {
        *to = value;
    }
}

// Walks through a line, block by block, to the line feed that ends it.
class LineWalk {
public:
    explicit LineWalk(int textType) : mTextType(textType) {}

    // Takes the next bytes of the file, or those up to the end of the line. True when that is among
    // them. In UTF-16 only the last ones of the file can be odd in number.
    bool take(unsigned char const* bytes, unsigned long size) {
        return isUtf16(mTextType) ? takeUnits(bytes, size) : takeBytes(bytes, size);
    }

    unsigned long long walked() const { return mWalked; }
    unsigned long long size() const { return mWalked - mPending; }
    unsigned long long endSize() const { return mPending; }

private:
    static constexpr unsigned NO_CHARACTER = 0xFFFF;

    bool takeUnits(unsigned char const* bytes, unsigned long size) {
        bool const highFirst = mTextType == File::UTF16_HIGH_FIRST;
        for (unsigned long i = 0; i + 1 < size; i += 2) {
            unsigned const high = bytes[highFirst ? i : i + 1];
            unsigned const low = bytes[highFirst ? i + 1 : i];
            if (takeCharacter(high << 8 | low, 2)) {
                return true;
            }
        }
        if (size % 2 != 0) {
            takeCharacter(NO_CHARACTER, 1);  // half a unit ends the file
        }
        return false;
    }

    // Byte by byte in UTF-8 as well: what is not ASCII holds no CR or LF there. In Shift_JIS
    // either can be the second byte of a pair.
    bool takeBytes(unsigned char const* bytes, unsigned long size) {
        for (unsigned long i = 0; i < size; ++i) {
            bool const isTrail = mFollowsLead;
            mFollowsLead =
                mTextType == File::SHIFT_JIS && !isTrail && codepage932::isLead(bytes[i]);
            if (takeCharacter(isTrail ? NO_CHARACTER : bytes[i], 1)) {
                return true;
            }
        }
        return false;
    }

    bool takeCharacter(unsigned character, unsigned long bytes) {
        mWalked += bytes;
        // Deliberate: carriage returns end a line only together with the line feed behind them;
        // text with a lone one inside a line depends on it.
        mPending = character == '\r' || character == '\n' ? mPending + bytes : 0;
        return character == '\n';
    }

    int const mTextType;
    bool mFollowsLead = false;
    unsigned long long mWalked = 0;
    unsigned long long mPending = 0;  // the line end at the end of what was walked
};

// Goes to the end of the line, or until it is known to have `limit` bytes. False when the file
// cannot be read, which is logged.
bool walkLine(ReadAhead* ahead, LineWalk* line, int textType, unsigned long long limit) {
    while (ahead->readBlock()) {
        if (line->take(ahead->block(), ahead->size()) || line->size() >= limit) {
            return true;
        }
    }
    if (ahead->hasFailed()) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in findNextLineSize func file read error%s",
               isUtf16(textType) ? " 2byte" : "");
    }
    return !ahead->hasFailed();
}

// The text, in UTF-8, of bytes of a file.
class Text {
public:
    // `size` is below BYTE_LIMIT. Half a unit at the end is left out.
    Text(unsigned char const* bytes, unsigned long size, int textType)
        : mSize(isUtf16(textType) ? takeUnits(bytes, size / 2, textType)
                                  : takeBytes(bytes, size, textType)) {}

    // Stores it behind the first `offset` bytes of `dst` and returns its size with the terminator;
    // a `size` of 0 only asks for that. NONE, with `dst` as it was, without room for all of it.
    unsigned long store(char* dst, unsigned long size, unsigned long offset) const {
        bool const fits = size == 0 || (offset < size && mSize <= size - offset);
        if (fits && size != 0) {
            copyMemory(dst + offset, mText, mSize);
        }
        return fits ? mSize : NONE;
    }

    // The same with what room it takes. NONE too for a string shorter than `offset`, and without
    // memory.
    unsigned long store(BasicString<char>* dst, unsigned long offset) const {
        if (mSize == NONE || dst->length() < offset) {
            return NONE;
        }
        unsigned long const size = offset + mSize;
        std::unique_ptr<char[]> const text(new (std::nothrow) char[size]);
        if (text == nullptr) {
            return NONE;
        }
        copyMemory(text.get(), dst->c_str(), offset);
        copyMemory(text.get() + offset, mText, mSize);
        bool const hasRoom = dst->capacity() >= size || dst->resizeMax(size) == 1;
        return hasRoom && dst->copy(text.get(), ALL, WHOLE) == 1 ? mSize : NONE;
    }

private:
    unsigned long takeUnits(unsigned char const* bytes, unsigned long count, int textType) {
        unsigned short units[BYTE_LIMIT / 2];
        convertBinFromUint8ToDchar(units, count, bytes, 2 * count,
                                   textType == File::UTF16_HIGH_FIRST ? 1 : 0);
        units[count] = 0;
        return convertStrFromUtf16ToUtf8(mText, sizeof mText, units);
    }

    unsigned long takeBytes(unsigned char const* bytes, unsigned long size, int textType) {
        char text[BYTE_LIMIT];
        copyMemory(text, bytes, size);
        text[size] = '\0';
        if (textType == File::SHIFT_JIS) {
            return convertStrFromSjisToUtf8(mText, sizeof mText, text);
        }
        bool isMark = false;
        unsigned long const markSize = strCharBytesBase(text, &isMark);
        return copyCharacters(mText, sizeof mText, isMark ? text + markSize : text);
    }

    unsigned long const mSize;  // with the terminator
    char mText[LARGEST_TEXT];
};

bool lacksDestination(char const* dst, unsigned long size) {
    return dst == nullptr && size != 0;
}

// Moves on behind what was read and returns `result`, unless the text could not be stored.
long finish(File& file, long result, unsigned long long forward, unsigned long used,
            unsigned long* textSize) {
    if (used == NONE || file.seek(static_cast<long long>(forward), File::FROM_CURRENT) == -1) {
        return FAILED;
    }
    report(textSize, used);
    return result;
}

// readText() with `store` for its destination. One that only `asks` leaves the position as it is.
template <typename Store>
long takeText(File& file, int textType, unsigned long count, bool asks, unsigned long* textSize,
              Store store) {
    unsigned long const wanted = isUtf16(textType) ? count - count % 2 : count;
    if (!isTextType(textType) || !file.isOpened() || wanted == 0 || wanted >= BYTE_LIMIT) {
        return FAILED;
    }
    long long const limit = std::min(file.availableSize(), static_cast<long long>(wanted));
    ReadAhead ahead(file, file.position(), limit);
    if (!ahead.readBlock()) {
        return ahead.hasFailed() ? FAILED : File::END_OF_FILE;
    }
    unsigned long const used = store(Text(ahead.block(), ahead.size(), textType));
    return finish(file, static_cast<long>(ahead.size()), asks ? 0 : ahead.size(), used, textSize);
}

// readLine() in the same way.
template <typename Store>
long takeLine(File& file, int textType, bool asks, unsigned long* textSize, Store store) {
    long long const available = file.isOpened() ? file.availableSize() : -1;
    if (available <= 0) {
        return available == 0 ? File::END_OF_FILE : FAILED;
    }
    ReadAhead ahead(file, file.position(), available);
    LineWalk line(textType);
    if (!isTextType(textType) || !walkLine(&ahead, &line, textType, BYTE_LIMIT) ||
        line.size() >= BYTE_LIMIT) {
        return FAILED;
    }
    if (line.walked() == 0) {
        return File::END_OF_FILE;  // whatever its size is
    }
    if (!ahead.returnToBegin() || ahead.size() < line.size()) {
        return FAILED;
    }
    unsigned long const size = static_cast<unsigned long>(line.size());
    unsigned long const used = store(Text(ahead.block(), size, textType));
    return finish(file, static_cast<long>(size), asks ? 0 : line.walked(), used, textSize);
}

// What writeText() returns without writing, for `count` bytes or units with their terminator behind
// `offset`; 1 when there is something to write.
long checkCount(unsigned long count, unsigned long terminatorBytes, unsigned long offset) {
    // Deliberate: units less the bytes of their terminator. A text of one character, a line end
    // too, is so never written in UTF-16; those who read such files count on lines that run on.
    long long const guard = static_cast<long long>(count) + static_cast<long long>(offset) -
                            static_cast<long long>(terminatorBytes);
    if (guard == 0) {
        return 0;
    }
    return guard > static_cast<long long>(offset) ? 1 : FAILED;
}

long writeUtf8(File& file, char const* text, unsigned long maxBytes, unsigned long offset) {
    unsigned long const length = strnlen(text, BYTE_LIMIT);
    long const verdict = checkCount(length + 1, 1, offset);
    // `maxBytes` may cut a character; the rest of it then goes with the next piece.
    return verdict == 1 ? file.write(text, std::min(length, maxBytes)) : verdict;
}

long writeUtf16(File& file, char const* text, unsigned long maxBytes, unsigned long offset,
                bool highFirst) {
    // No more than what one call can write: the time goes with that, not with the text. What is
    // cut behind the last unit is as good as its terminator.
    constexpr unsigned long MOST_UNITS = BYTE_LIMIT / 2;
    constexpr unsigned long MOST_CHARACTER_BYTES = 4;
    char piece[MOST_CHARACTER_BYTES * (MOST_UNITS + 1) + 1];
    unsigned long const length = strnlen(text, sizeof piece - 1);
    copyMemory(piece, text, length);
    piece[length] = '\0';

    unsigned short units[sizeof piece];
    unsigned long const count = convertStrFromUtf8ToUtf16(units, sizeof piece, piece);
    long const verdict = count != NONE ? checkCount(count, 2, offset) : FAILED;
    if (verdict != 1) {
        return verdict;
    }
    unsigned char bytes[BYTE_LIMIT];
    unsigned long const size =
        convertStrFromDcharToUint8(bytes, sizeof bytes, units, MOST_UNITS, highFirst ? 1 : 0);
    return file.write(bytes, std::min(size, maxBytes));
}

}  // namespace

long File::readText(char* dst, unsigned long dstSize, unsigned long count, unsigned long dstOffset,
                    unsigned long* textSize) {
    if (lacksDestination(dst, dstSize)) {
        return FAILED;
    }
    return takeText(*this, mTextType, count, dstSize == 0, textSize,
                    [=](Text const& text) { return text.store(dst, dstSize, dstOffset); });
}

long File::readText(BasicString<char>* dst, unsigned long count, unsigned long dstOffset,
                    unsigned long* textSize) {
    if (dst == nullptr) {
        return FAILED;
    }
    return takeText(*this, mTextType, count, false, textSize,
                    [=](Text const& text) { return text.store(dst, dstOffset); });
}

long File::readLine(char* dst, unsigned long dstSize, unsigned long* textSize) {
    if (lacksDestination(dst, dstSize) || dstSize >= BYTE_LIMIT) {
        return FAILED;
    }
    return takeLine(*this, mTextType, dstSize == 0, textSize,
                    [=](Text const& text) { return text.store(dst, dstSize, 0); });
}

long File::readLine(BasicString<char>* dst, unsigned long* textSize) {
    if (dst == nullptr) {
        return FAILED;
    }
    return takeLine(*this, mTextType, false, textSize,
                    [=](Text const& text) { return text.store(dst, 0); });
}

long File::findNextLineSize(unsigned long /*dstSize*/, unsigned long* lineSize,
                            unsigned long* eolSize) {
    if (!isOpened()) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in findNextLineSize func file is not opened");
        return FAILED;
    }
    ReadAhead ahead(*this, position(), availableSize());
    LineWalk line(mTextType);
    if (!isTextType(mTextType) || !walkLine(&ahead, &line, mTextType, ANY_SIZE) ||
        line.walked() > NONE) {
        return FAILED;
    }
    if (seek(static_cast<long long>(line.walked()), FROM_CURRENT) == -1) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in findNextLineSize func seekFile error");
        return FAILED;
    }
    report(lineSize, static_cast<unsigned long>(line.size()));
    report(eolSize, static_cast<unsigned long>(line.endSize()));
    return 1;
}

long File::nextEOLSize() {
    long long const begin = position();
    char bytes[2] = {};
    long const got = read(bytes, sizeof bytes);
    if (got == END_OF_FILE) {
        return 0;
    }
    if (got < 0) {
        return got;
    }
    if (seek(begin, FROM_START) == -1) {
        return FAILED;
    }
    // Deliberate: a lone carriage return is a line end here, though not to findNextLineSize(), and
    // bytes count in UTF-16 too; callers that step over line ends themselves depend on both.
    if (bytes[0] == '\r') {
        return bytes[1] == '\n' ? 2 : 1;
    }
    return bytes[0] == '\n' ? 1 : FAILED;
}

long File::writeText(char const* text, unsigned long maxBytes, unsigned long offset) {
    bool const isWritable = mTextType == UTF8 || isUtf16(mTextType);
    if (!isOpened() || text == nullptr || maxBytes >= BYTE_LIMIT || !isWritable ||
        !reaches(text, offset)) {
        return FAILED;
    }
    char const* const rest = text + offset;
    return mTextType == UTF8
               ? writeUtf8(*this, rest, maxBytes, offset)
               : writeUtf16(*this, rest, maxBytes, offset, mTextType == UTF16_HIGH_FIRST);
}

// Whether `text` has `offset` bytes. Where a long one is written piece by piece, it is not measured
// from its beginning each time; what takes no time is, as another text may have come to its place.
bool File::reaches(char const* text, unsigned long offset) {
    constexpr unsigned long ALWAYS_MEASURED = 65536;
    unsigned long const beginning = std::min(offset, ALWAYS_MEASURED);
    if (strnlen(text, beginning) < beginning) {
        return false;
    }
    bool const isKnown = text == mWrittenText && mWrittenBegin <= offset;
    unsigned long const known = std::max(beginning, isKnown ? mWrittenBegin : 0);
    if (strnlen(text + known, offset - known) < offset - known) {
        return false;
    }
    mWrittenText = text;
    mWrittenBegin = offset;
    return true;
}

long File::writeLine(char const* text) {
    long const written = writeText(text, BYTE_LIMIT - 1, 0);
    long const endWritten = written != FAILED ? writeText("\n", BYTE_LIMIT - 1, 0) : FAILED;
    return endWritten != FAILED ? written + endWritten : FAILED;
}

}  // namespace utl
