#include "UtlCharSet.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "UtlString.h"

#include "text/UtlCodePage932.h"
#include "text/UtlUtf8.h"

namespace utl {
namespace {

constexpr unsigned short BYTE_ORDER_MARK = 0xFEFF;
constexpr unsigned short SWAPPED_MARK = 0xFFFE;
constexpr unsigned short REFERENCE_MARK = 0x203B;

bool isMark(unsigned short unit) {
    return unit == BYTE_ORDER_MARK || unit == SWAPPED_MARK;
}

constexpr int SAME_ORDER = 1;
constexpr int SWAPPED_ORDER = 2;

template <typename T>
void report(T* to, T value) {
    if (to != nullptr) {
        *to = value;
    }
}

// A size of 0 asks for what is needed, with or without a destination.
bool lacksDestination(void const* dst, unsigned long size) {
    return dst == nullptr && size != 0;
}

// What follows is done for every character: the hints are to have it inline.

// One character in UTF-8, or a byte that is none.
struct Utf8Form {
    std::uint32_t bytes;  // the first one lowest
    unsigned long length;

    void storeAt(char* dst) const {
        dst[0] = static_cast<char>(bytes & 0xFF);
        if (length > 1) {
            dst[1] = static_cast<char>(bytes >> 8 & 0xFF);
        }
        if (length > 2) {
            dst[2] = static_cast<char>(bytes >> 16);
        }
    }
};

inline Utf8Form utf8FormOf(unsigned short unit) {
    if (unit < 0x80) {
        return {unit, 1};
    }
    std::uint32_t const last = 0x80u | (unit & 0x3Fu);
    if (unit < 0x800) {
        return {0xC0u | unit >> 6 | last << 8, 2};
    }
    std::uint32_t const middle = 0x80u | (unit >> 6 & 0x3Fu);
    return {0xE0u | unit >> 12 | middle << 8 | last << 16, 3};
}

// A unit from 0x800 on. The bytes one by one: that takes half as long as by their form.
inline void storeThreeBytes(char*& dst, unsigned unit) {
    dst[0] = static_cast<char>(0xE0 | unit >> 12);
    dst[1] = static_cast<char>(0x80 | (unit >> 6 & 0x3F));
    dst[2] = static_cast<char>(0x80 | (unit & 0x3F));
    dst += 3;
}

// One character in UTF-16.
struct Utf16Form {
    unsigned short unit;
    static constexpr unsigned long length = 1;

    void storeAt(unsigned short* dst) const { *dst = unit; }
};

// Stores a text and always keeps room for its terminator. For a `size` of 0 it only counts;
// otherwise `dst` is not null.
template <typename Unit>
class TextWriter {
public:
    TextWriter(Unit* dst, unsigned long size) : mDst(dst), mSize(size) {}

    // Where the next units go, as many as there is room for.
    Unit* next() { return mSize != 0 ? mDst + mLength : mUncounted; }
    unsigned long room() const { return mSize != 0 ? mSize - mLength - 1 : COUNTED_AT_ONCE; }

    // They end at `end` now.
    void advanceTo(Unit const* end) { mLength += static_cast<unsigned long>(end - next()); }

    // Stores one character. False when there is no room.
    template <typename Form>
    bool append(Form const& form) {
        if (room() < form.length) {
            return false;
        }
        form.storeAt(next());
        mLength += form.length;
        return true;
    }

    // Returns what is used then.
    unsigned long terminate() {
        if (mSize != 0) {
            mDst[mLength] = 0;
        }
        return mLength + 1;
    }

private:
    static constexpr unsigned long COUNTED_AT_ONCE = 512;

    Unit* const mDst;
    unsigned long const mSize;
    unsigned long mLength = 0;  // below mSize, unless that is 0
    Unit mUncounted[COUNTED_AT_ONCE];
};

// The next bytes of a text, up to one of its first `room` and its terminator: it is looked at in
// pieces that stay in the cache.
char const* endOfPiece(char const* src, unsigned long room) {
    constexpr unsigned long LONGEST = 4096;
    return src + utf8::boundedLength(src, std::min(LONGEST, room));
}

// A character of `bytes` bytes, at most 3.
unsigned short unitOf(char const* s, unsigned long bytes) {
    return static_cast<unsigned short>(utf8::codePoint(s, bytes));  // 16 bits at most
}

// strCharBytesBase(), inline.
inline unsigned long bytesOfFirst(char const* s) {
    unsigned long const bytes = utf8::bytesFromLead(*s);
    if (bytes == 0) {
        return NONE;
    }
    return *s != '\0' && utf8::isValid(s, bytes) ? bytes : 0;
}

unsigned short unitFromBytes(unsigned high, unsigned low) {
    return static_cast<unsigned short>(high << 8 | low);  // both are bytes
}

unsigned short swapBytes(unsigned short unit) {
    return unitFromBytes(unit & 0xFF, unit >> 8);
}

struct SjisCharacter {
    unsigned short unit;  // 0 for an unknown pair
    unsigned long bytes;
    bool isPassedThrough;

    bool isUnknown() const { return unit == 0 && !isPassedThrough; }
};

// The character that `s` begins with.
inline SjisCharacter firstOfSjis(char const* s) {
    unsigned char const first = static_cast<unsigned char>(s[0]);
    if (codepage932::isKatakana(first)) {
        return {codepage932::codePointOfKatakana(first), 1, false};
    }
    if (!codepage932::isLead(first)) {
        return {first, 1, true};
    }
    unsigned char const second = static_cast<unsigned char>(s[1]);
    unsigned long const bytes = second != '\0' ? 2 : 1;  // nobody may step over the terminator
    return {codepage932::codePointOfPair(first, second), bytes, false};
}

// Deliberate: 0x80 and the like are no UTF-8, but stay as they are; callers find their own bytes
// outside the code page again.
inline Utf8Form utf8FormOf(SjisCharacter const& character) {
    return character.isPassedThrough ? Utf8Form{character.unit, 1} : utf8FormOf(character.unit);
}

// The forms of a character in a text, where a 0 for an unknown pair would end it.
struct SjisToUtf8 {
    using Unit = char;
    static constexpr unsigned long LONGEST = 3;

    static Utf8Form formOf(SjisCharacter const& character) {
        return character.isUnknown() ? utf8FormOf('*') : utf8FormOf(character);
    }

    // Stores what nearly all pairs become, three bytes. False for any other.
    static bool storePair(char*& dst, unsigned unit) {
        if (unit < 0x800) {
            return false;
        }
        storeThreeBytes(dst, unit);
        return true;
    }
};

struct SjisToUtf16 {
    using Unit = unsigned short;
    static constexpr unsigned long LONGEST = 1;

    static Utf16Form formOf(SjisCharacter const& character) {
        // Deliberate: not the "*" of the UTF-8 form; readers of either look for its own mark.
        return {character.isUnknown() ? REFERENCE_MARK : character.unit};
    }

    static bool storePair(unsigned short*& dst, unsigned short unit) {
        if (unit == 0) {
            return false;
        }
        *dst++ = unit;
        return true;
    }
};

template <typename Target>
unsigned long convertSjis(typename Target::Unit* dst, unsigned long size, char const* src) {
    if (src == nullptr || lacksDestination(dst, size)) {
        return NONE;
    }
    TextWriter<typename Target::Unit> text(dst, size);
    while (*src != '\0') {
        // As far as whatever stands here finds room: each byte makes one character at most.
        char const* const end = endOfPiece(src, text.room() / Target::LONGEST);
        if (src == end) {
            SjisCharacter const character = firstOfSjis(src);
            if (!text.append(Target::formOf(character))) {
                return NONE;
            }
            src += character.bytes;
        }
        auto* out = text.next();
        while (src < end) {
            unsigned char const first = static_cast<unsigned char>(*src);
            if (first < 0x80) {
                *out++ = static_cast<typename Target::Unit>(first);
                ++src;
                continue;
            }
            unsigned char const second = static_cast<unsigned char>(src[1]);
            if (codepage932::isLead(first) &&
                Target::storePair(out, codepage932::codePointOfPair(first, second))) {
                src += 2;
                continue;
            }
            SjisCharacter const character = firstOfSjis(src);
            auto const form = Target::formOf(character);
            form.storeAt(out);
            out += form.length;
            src += character.bytes;
        }
        text.advanceTo(out);
    }
    return text.terminate();
}

// Stores eight characters. Their copies tell the compiler that no store changes what is read.
inline void storeAscii(unsigned short* dst, char const* src) {
    unsigned char narrow[utf8::WORD_BYTES];
    unsigned short wide[utf8::WORD_BYTES];
    std::memcpy(narrow, src, sizeof narrow);
    for (int i = 0; i < utf8::WORD_BYTES; ++i) {
        wide[i] = narrow[i];
    }
    std::memcpy(dst, wide, sizeof wide);
}

// Stores the characters of three bytes and the ASCII that [src, end) begins with, as far as they
// are told at a glance, and moves both pointers on.
inline void storeRuns(unsigned short*& dst, char const*& src, char const* end) {
    for (; end - src >= utf8::WORD_BYTES; src += 6) {
        utf8::Word const beyond = utf8::beyondThreeBytes(utf8::loadWord(src));
        if (beyond != 0) {
            // No branch: nobody foresees whether a run has an odd number of characters.
            bool const isOneMore = utf8::firstThree(beyond) == 0;
            *dst = unitOf(src, 3);
            dst += isOneMore ? 1 : 0;
            src += isOneMore ? 3 : 0;
            break;
        }
        *dst++ = unitOf(src, 3);
        *dst++ = unitOf(src + 3, 3);
    }
    while (src < end && utf8::isAscii(*src)) {
        while (end - src >= utf8::WORD_BYTES && utf8::isAscii(utf8::loadWord(src))) {
            storeAscii(dst, src);
            dst += utf8::WORD_BYTES;
            src += utf8::WORD_BYTES;
        }
        if (src < end && utf8::isAscii(*src)) {
            *dst++ = static_cast<unsigned char>(*src++);
        }
    }
}

// Whether the terminator is not among the next eight units. Looks no further than to it.
inline bool goOn(unsigned short const* src) {
    return src[0] != 0 && src[1] != 0 && src[2] != 0 && src[3] != 0 && src[4] != 0 && src[5] != 0 &&
           src[6] != 0 && src[7] != 0;
}

inline bool areAscii(unsigned short const* src) {
    constexpr unsigned short BEYOND[] = {0xFF80, 0xFF80, 0xFF80, 0xFF80};
    utf8::Word words[2];
    utf8::Word beyond;
    std::memcpy(words, src, sizeof words);
    std::memcpy(&beyond, BEYOND, sizeof beyond);
    return ((words[0] | words[1]) & beyond) == 0;
}

inline void storeAscii(char* dst, unsigned short const* src) {
    unsigned short wide[utf8::WORD_BYTES];
    char narrow[utf8::WORD_BYTES];
    std::memcpy(wide, src, sizeof wide);
    for (int i = 0; i < utf8::WORD_BYTES; ++i) {
        narrow[i] = static_cast<char>(wide[i]);
    }
    std::memcpy(dst, narrow, sizeof narrow);
}

inline void storeAsciiRun(char*& dst, unsigned short const*& src, unsigned short const* end) {
    unsigned short const* const begin = src;
    while (src < end && *src - 1u < 0x7F) {
        *dst++ = static_cast<char>(*src++);
        if (src - begin != utf8::WORD_BYTES) {
            continue;  // often that is one short word only
        }
        while (end - src >= utf8::WORD_BYTES && goOn(src) && areAscii(src)) {
            storeAscii(dst, src);
            dst += utf8::WORD_BYTES;
            src += utf8::WORD_BYTES;
        }
    }
}

// Stores what `src` begins with but byte order marks and the terminator, at most `count` units, and
// moves both pointers on.
inline void storeRuns(char*& dst, unsigned short const*& src, unsigned long count) {
    unsigned short const* const end = src + count;
    for (;;) {
        // Nearly all of a Japanese text.
        while (src < end && *src - 0x800u < BYTE_ORDER_MARK - 0x800u) {
            storeThreeBytes(dst, *src++);
        }
        storeAsciiRun(dst, src, end);
        if (src == end || *src == 0 || isMark(*src)) {
            return;
        }
        Utf8Form const form = utf8FormOf(*src++);
        form.storeAt(dst);
        dst += form.length;
    }
}

unsigned long storeCharacter(char* dst, unsigned long size, Utf8Form const& form) {
    if (size == 0) {
        return form.length;
    }
    if (dst == nullptr || size < form.length) {
        return NONE;
    }
    form.storeAt(dst);
    return form.length;
}

}  // namespace

unsigned long convertCharFromSjisToUtf8(char* dst, unsigned long size, char const* src,
                                        unsigned long* consumed) {
    if (src == nullptr) {
        return NONE;
    }
    SjisCharacter const character = firstOfSjis(src);
    report(consumed, character.bytes);
    return storeCharacter(dst, size, utf8FormOf(character));
}

unsigned long convertStrFromSjisToUtf8(char* dst, unsigned long size, char const* src) {
    return convertSjis<SjisToUtf8>(dst, size, src);
}

unsigned long convertCharFromSjisToUtf16(unsigned short* dst, char const* src,
                                         unsigned long* consumed) {
    if (dst == nullptr || src == nullptr) {
        return NONE;
    }
    SjisCharacter const character = firstOfSjis(src);
    *dst = character.unit;
    report(consumed, character.bytes);
    // Deliberate: two results for success; callers test for NONE only.
    return character.isPassedThrough ? 2 : 1;
}

unsigned long convertStrFromSjisToUtf16(unsigned short* dst, unsigned long units, char const* src) {
    return convertSjis<SjisToUtf16>(dst, units, src);
}

unsigned long convertCharFromUtf16ToUtf8(char* dst, unsigned long size, unsigned short unit,
                                         int* byteOrder) {
    if (isMark(unit)) {
        report(byteOrder, unit == BYTE_ORDER_MARK ? SAME_ORDER : SWAPPED_ORDER);
        return 0;
    }
    return storeCharacter(dst, size, utf8FormOf(unit));
}

unsigned long convertStrFromUtf16ToUtf8(char* dst, unsigned long size, unsigned short const* src) {
    if (src == nullptr || lacksDestination(dst, size)) {
        return NONE;
    }
    TextWriter<char> text(dst, size);
    bool swapped = false;
    while (*src != 0) {
        // Marks are told before anything is swapped: in swapped text theirs is 0xFFFE still.
        if (isMark(*src)) {
            swapped = *src == SWAPPED_MARK;
            ++src;
            continue;
        }
        if (!text.append(utf8FormOf(swapped ? swapBytes(*src) : *src))) {
            return NONE;
        }
        ++src;
        if (!swapped) {
            char* out = text.next();
            storeRuns(out, src, text.room() / 3);
            text.advanceTo(out);
        }
    }
    return text.terminate();
}

unsigned long convertCharFromUtf8ToUtf16(unsigned short* dst, char const* src,
                                         unsigned long* consumed) {
    unsigned long const bytes = strCharBytesBase(src);
    if (dst == nullptr || bytes == 0 || bytes > 3) {
        return NONE;
    }
    *dst = unitOf(src, bytes);
    report(consumed, bytes);
    return 1;
}

unsigned long convertStrFromUtf8ToUtf16(unsigned short* dst, unsigned long units, char const* src) {
    if (src == nullptr || lacksDestination(dst, units)) {
        return NONE;
    }
    TextWriter<unsigned short> text(dst, units);
    // Deliberate: an overlong or incomplete character ends the text like its terminator; callers
    // that convert piece by piece keep what stands before one that was cut.
    unsigned long bytes = bytesOfFirst(src);
    while (bytes != 0 && bytes != NONE) {
        char const* const end = endOfPiece(src, text.room());
        if (src == end) {
            return NONE;
        }
        unsigned short* out = text.next();
        do {
            *out++ = bytes == 4 ? REFERENCE_MARK : unitOf(src, bytes);
            src += bytes;
            storeRuns(out, src, end);
            bytes = bytesOfFirst(src);
        } while (src < end && bytes != 0 && bytes != NONE);
        text.advanceTo(out);
    }
    return bytes == 0 ? text.terminate() : NONE;
}

unsigned long convertCharSet(char* dst, unsigned long size, char const* src) {
    return copyStr(dst, size, src, ALL, WHOLE);
}

unsigned long convertStrFromDcharToUint8(unsigned char* dst, unsigned long size,
                                         unsigned short const* src, unsigned long count,
                                         int bigEndian) {
    if (src == nullptr || lacksDestination(dst, size)) {
        return NONE;
    }
    unsigned long n = 0;
    while (n < count && src[n] != 0) {
        ++n;
    }
    if (size == 0) {
        return 2 * n;
    }
    if (size < 2 * n) {
        return NONE;
    }

    for (unsigned long i = 0; i < n; ++i) {
        unsigned short const unit = bigEndian == 1 ? swapBytes(src[i]) : src[i];
        dst[2 * i] = static_cast<unsigned char>(unit & 0xFF);
        dst[2 * i + 1] = static_cast<unsigned char>(unit >> 8);
    }
    return 2 * n;
}

unsigned long convertBinFromUint8ToDchar(unsigned short* dst, unsigned long units,
                                         unsigned char const* src, unsigned long bytes,
                                         int bigEndian) {
    if (src == nullptr || lacksDestination(dst, units) || bytes % 2 != 0) {
        return NONE;
    }
    unsigned long const n = bytes / 2;
    if (units == 0) {
        return n;
    }
    if (units < n) {
        return NONE;
    }

    for (unsigned long i = 0; i < n; ++i) {
        unsigned short const unit = unitFromBytes(src[2 * i + 1], src[2 * i]);
        dst[i] = bigEndian == 1 ? swapBytes(unit) : unit;
    }
    return n;
}

}  // namespace utl
