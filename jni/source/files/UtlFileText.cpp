#include "UtlFile.h"

#include <string.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "UtlCharSet.h"
#include "UtlLog.h"
#include "UtlRawMemory.h"
#include "UtlString.h"

#include "files/UtlCharacters.h"
#include "files/UtlLineBuffer.h"
#include "files/UtlReadAhead.h"
#include "foundation/UtlLogLine.h"
#include "text/UtlCodePage932.h"

namespace utl {

namespace {

constexpr long FAILED = -1;
constexpr long CANNOT = -2;  // no result of a File

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
    // them. In UTF-16 only the last ones of the file can be odd in number. Inline, so that a line
    // that is found at once is not walked through memory.
    [[gnu::always_inline]] bool take(unsigned char const* bytes, unsigned long size) {
        unsigned long const end = isUtf16(mTextType)             ? endOfUnits(bytes, size)
                                  : mTextType == File::SHIFT_JIS ? endOfPairs(bytes, size)
                                                                 : endOfBytes(bytes, size, 0);
        unsigned long const taken = end != NONE ? end : size;
        // Deliberate: carriage returns end a line only together with the line feed behind them;
        // text with a lone one inside a line depends on it.
        unsigned long const pending = pendingBytes(bytes, taken);
        mPending = pending == taken ? mPending + pending : pending;
        mWalked += taken;
        mFollowsLead = mTextType == File::SHIFT_JIS && isTrail(bytes, taken);
        return end != NONE;
    }

    unsigned long long walked() const { return mWalked; }
    unsigned long long size() const { return mWalked - mPending; }
    unsigned long long endSize() const { return mPending; }

private:
    // The index behind the first line feed from `begin` on; NONE without one. In UTF-8 as well:
    // what is not ASCII holds no CR or LF there.
    static unsigned long endOfBytes(unsigned char const* bytes, unsigned long size,
                                    unsigned long begin) {
        void const* const feed = std::memchr(bytes + begin, '\n', size - begin);
        return feed == nullptr
                   ? NONE
                   : static_cast<unsigned long>(static_cast<unsigned char const*>(feed) - bytes) +
                         1;
    }

    // In Shift_JIS either can be the second byte of a pair.
    unsigned long endOfPairs(unsigned char const* bytes, unsigned long size) const {
        unsigned long end = endOfBytes(bytes, size, 0);
        while (end != NONE && isTrail(bytes, end - 1)) {
            end = endOfBytes(bytes, size, end);
        }
        return end;
    }

    // And in UTF-16 half of another unit.
    unsigned long endOfUnits(unsigned char const* bytes, unsigned long size) const {
        unsigned long const behind = mTextType == File::UTF16_LOW_FIRST ? 1 : 0;
        for (unsigned long end = endOfBytes(bytes, size, 0); end != NONE;
             end = endOfBytes(bytes, size, end)) {
            unsigned long const unitEnd = end + behind;
            if (unitEnd % 2 == 0 && unitEnd <= size && unitAt(bytes + unitEnd - 2) == '\n') {
                return unitEnd;
            }
        }
        return NONE;
    }

    unsigned unitAt(unsigned char const* bytes) const {
        bool const highFirst = mTextType == File::UTF16_HIGH_FIRST;
        return static_cast<unsigned>(bytes[highFirst ? 0 : 1]) << 8 | bytes[highFirst ? 1 : 0];
    }

    // Whether the byte at `index` is the second one of a pair. A byte that is no lead ends a
    // character, so that those right before `index` which could be leads tell it.
    bool isTrail(unsigned char const* bytes, unsigned long index) const {
        unsigned long leads = 0;
        while (leads < index && codepage932::isLead(bytes[index - 1 - leads])) {
            ++leads;
        }
        bool const isFirstTrail = leads == index && mFollowsLead;
        return (leads + (isFirstTrail ? 1 : 0)) % 2 != 0;
    }

    // Those of the line end, or of the carriage returns, that the bytes end with.
    unsigned long pendingBytes(unsigned char const* bytes, unsigned long size) const {
        return isUtf16(mTextType) ? pendingInUnits(bytes, size) : pendingInBytes(bytes, size);
    }

    unsigned long pendingInUnits(unsigned char const* bytes, unsigned long size) const {
        if (size % 2 != 0) {
            return 0;  // half a unit ends the file
        }
        unsigned long begin = size;
        while (begin != 0 && isEnd(unitAt(bytes + begin - 2))) {
            begin -= 2;
        }
        return size - begin;
    }

    unsigned long pendingInBytes(unsigned char const* bytes, unsigned long size) const {
        unsigned long begin = size;
        while (begin != 0 && isEnd(bytes[begin - 1])) {
            --begin;
        }
        bool const isInPair =
            mTextType == File::SHIFT_JIS && begin != size && isTrail(bytes, begin);
        return size - begin - (isInPair ? 1 : 0);
    }

    static bool isEnd(unsigned character) { return character == '\r' || character == '\n'; }

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

// Some bytes of a file, fewer than BYTE_LIMIT. One behind them may be written to as well.
struct Span {
    unsigned char* bytes;
    unsigned long size;
    int textType;

    // What their text can take at the most, with its terminator.
    unsigned long mostText() const {
        return textType == File::UTF8 ? size + 1
               : isUtf16(textType)    ? size / 2 * 3 + 1
                                      : 3 * size + 1;
    }
};

unsigned long makeTextOfUnits(char* dst, Span const& span) {
    unsigned short units[BYTE_LIMIT / 2];
    unsigned long const count = span.size / 2;  // half a unit at the end is left out
    convertBinFromUint8ToDchar(units, count, span.bytes, 2 * count,
                               span.textType == File::UTF16_HIGH_FIRST ? 1 : 0);
    units[count] = 0;
    return convertStrFromUtf16ToUtf8(dst, span.mostText(), units);
}

unsigned long makeTextOfPairs(char* dst, Span const& span) {
    unsigned char const behind = span.bytes[span.size];
    span.bytes[span.size] = 0;
    unsigned long const used =
        convertStrFromSjisToUtf8(dst, span.mostText(), reinterpret_cast<char const*>(span.bytes));
    span.bytes[span.size] = behind;
    return used;
}

constexpr unsigned char MARK[] = {0xEF, 0xBB, 0xBF};

unsigned long makeTextOfBytes(char* dst, Span const& span) {
    bool const isMarked =
        span.size >= sizeof MARK && std::memcmp(span.bytes, MARK, sizeof MARK) == 0;
    unsigned long const markSize = isMarked ? sizeof MARK : 0;
    return copyCharacters(dst, reinterpret_cast<char const*>(span.bytes) + markSize,
                          span.size - markSize);
}

// Stores their text, in UTF-8, and returns its size with the terminator. `dst` has room for the
// most that it can take.
unsigned long makeText(char* dst, Span const& span) {
    return span.textType == File::UTF8        ? makeTextOfBytes(dst, span)
           : span.textType == File::SHIFT_JIS ? makeTextOfPairs(dst, span)
                                              : makeTextOfUnits(dst, span);
}

[[gnu::noinline]] unsigned long storeIfItFits(Span const& span, char* dst, unsigned long size) {
    char text[LARGEST_TEXT];
    unsigned long const used = makeText(text, span);
    if (used <= size) {
        copyMemory(dst, text, used);
    }
    return used <= size || size == 0 ? used : NONE;
}

// Stores the text behind the first `offset` bytes of `dst` and returns its size with the
// terminator; a `size` of 0 only asks for that. NONE, with `dst` as it was, without room for all
// of it.
unsigned long storeText(Span const& span, char* dst, unsigned long size, unsigned long offset) {
    if (size != 0 && offset >= size) {
        return NONE;
    }
    if (size != 0 && span.mostText() <= size - offset) {
        return makeText(dst + offset, span);
    }
    return storeIfItFits(span, size != 0 ? dst + offset : nullptr, size != 0 ? size - offset : 0);
}

// The same with what room it takes. NONE too for a string shorter than `offset`, and without
// memory.
unsigned long storeText(Span const& span, BasicString<char>* dst, unsigned long offset) {
    if (dst->length() < offset) {
        return NONE;
    }
    std::unique_ptr<char[]> const text(new (std::nothrow) char[offset + span.mostText()]);
    if (text == nullptr) {
        return NONE;
    }
    copyMemory(text.get(), dst->c_str(), offset);
    unsigned long const used = makeText(text.get() + offset, span);
    bool const hasRoom = dst->capacity() >= offset + used || dst->resizeMax(offset + used) == 1;
    return hasRoom && dst->copy(text.get(), ALL, WHOLE) == 1 ? used : NONE;
}

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
    unsigned long const used = store(Span{ahead.block(), ahead.size(), textType});
    return finish(file, static_cast<long>(ahead.size()), asks ? 0 : ahead.size(), used, textSize);
}

// The next line of what is read ahead: its size, or what readLine() returns in its place, and the
// bytes with its end.
struct NextLine {
    long size;
    unsigned long walked;
};

NextLine sizesOf(LineWalk const& line) {
    if (line.walked() == 0) {
        return {File::END_OF_FILE, 0};
    }
    bool const isTooLong = line.size() >= BYTE_LIMIT;
    return {isTooLong ? FAILED : static_cast<long>(line.size()),
            static_cast<unsigned long>(line.walked())};
}

// CANNOT for one that may be too long to find its end there, and where reading fails.
NextLine nextLine(LineBuffer& lines, int textType) {
    for (bool isLast = false;;) {
        LineWalk line(textType);
        if (line.take(lines.bytes(), lines.size()) || isLast) {
            return sizesOf(line);
        }
        LineBuffer::Filling const filling =
            lines.size() < BYTE_LIMIT ? lines.fill() : LineBuffer::FAILED;
        if (filling == LineBuffer::FAILED) {
            return {CANNOT, 0};
        }
        isLast = filling == LineBuffer::END;
    }
}

// readLine() in the same way, out of what is read ahead, if that is possible.
template <typename Store>
long takeLineAhead(LineBuffer& lines, int textType, bool asks, unsigned long* textSize,
                   Store store) {
    NextLine const line = nextLine(lines, textType);
    if (line.size < 0) {
        return line.size;
    }
    unsigned long const used =
        store(Span{lines.bytes(), static_cast<unsigned long>(line.size), textType});
    if (used == NONE) {
        return FAILED;
    }
    if (!asks) {
        lines.advance(line.walked);
    }
    report(textSize, used);
    return line.size;
}

// Whether the next line of UTF-8 fits in `room` bytes, ends with a line feed alone, and begins
// neither with that nor like a byte order mark. Nearly all do: what the others need is not asked.
bool hasUsualLine(LineBuffer& lines, unsigned long room, unsigned long* size) {
    unsigned char const* const begin = lines.bytes();
    auto const* const feed =
        static_cast<unsigned char const*>(std::memchr(begin, '\n', lines.size()));
    if (feed == nullptr || feed == begin) {
        return false;
    }
    *size = static_cast<unsigned long>(feed - begin);
    return *size < room && feed[-1] != '\r' && begin[0] != MARK[0];
}

// And from the position that the system knows.
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
    unsigned long const used = store(Span{ahead.block(), size, textType});
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
                    [=](Span const& span) { return storeText(span, dst, dstSize, dstOffset); });
}

long File::readText(BasicString<char>* dst, unsigned long count, unsigned long dstOffset,
                    unsigned long* textSize) {
    if (dst == nullptr) {
        return FAILED;
    }
    return takeText(*this, mTextType, count, false, textSize,
                    [=](Span const& span) { return storeText(span, dst, dstOffset); });
}

template <typename Store>
long File::takeNextLine(bool asks, unsigned long* textSize, Store store) {
    LineBuffer* lines = nullptr;
    if (isTextType(mTextType)) {
        lines = mLines != nullptr && mLines->isReady() ? mLines : startLines();
    }
    long const result =
        lines != nullptr ? takeLineAhead(*lines, mTextType, asks, textSize, store) : CANNOT;
    return result != CANNOT ? result : takeLine(*this, mTextType, asks, textSize, store);
}

long File::readLine(char* dst, unsigned long dstSize, unsigned long* textSize) {
    if (lacksDestination(dst, dstSize) || dstSize >= BYTE_LIMIT) {
        return FAILED;
    }
    unsigned long size = 0;
    if (mTextType == UTF8 && mLines != nullptr && mLines->isReady() &&
        hasUsualLine(*mLines, dstSize, &size)) {
        report(textSize, copyCharacters(dst, reinterpret_cast<char*>(mLines->bytes()), size));
        mLines->advance(size + 1);
        return static_cast<long>(size);
    }
    return takeNextLine(dstSize == 0, textSize,
                        [=](Span const& span) { return storeText(span, dst, dstSize, 0); });
}

long File::readLine(BasicString<char>* dst, unsigned long* textSize) {
    if (dst == nullptr) {
        return FAILED;
    }
    return takeNextLine(false, textSize, [=](Span const& span) { return storeText(span, dst, 0); });
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
