#include "UtlCharSet.h"

#include <cstdint>

#include "UtlString.h"

#include "text/UtlCodePage932.h"
#include "text/UtlUtf8.h"

namespace utl {
namespace {

constexpr unsigned short BYTE_ORDER_MARK = 0xFEFF;
constexpr unsigned short SWAPPED_MARK = 0xFFFE;
constexpr unsigned short REFERENCE_MARK = 0x203B;

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

// What follows is done for every character. The hints to have it inline and the bytes in a register
// make the conversion of a text up to six times as fast, which brings it beside iconv().

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

// The same in UTF-16.
struct Utf16Form {
    unsigned short unit;
    static constexpr unsigned long length = 1;

    void storeAt(unsigned short* dst) const { *dst = unit; }
};

// Stores a text character by character and always keeps room for its terminator. For a `size` of 0
// it only counts; otherwise `dst` is not null.
template <typename Unit>
class TextWriter {
public:
    TextWriter(Unit* dst, unsigned long size) : mDst(dst), mSize(size) {}

    // False when there is no room.
    template <typename Form>
    bool append(Form const& form) {
        if (mSize != 0) {
            if (mSize - mLength <= form.length) {
                return false;
            }
            form.storeAt(mDst + mLength);
        }
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
    Unit* const mDst;
    unsigned long const mSize;
    unsigned long mLength = 0;  // below mSize, unless that is 0
};

// A character of `bytes` bytes, at most 3.
unsigned short unitOf(char const* s, unsigned long bytes) {
    return static_cast<unsigned short>(utf8::codePoint(s, bytes));  // 16 bits at most
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
    if (src == nullptr || lacksDestination(dst, size)) {
        return NONE;
    }
    TextWriter<char> text(dst, size);
    while (*src != '\0') {
        SjisCharacter const character = firstOfSjis(src);
        // A 0 for an unknown pair would end the text here.
        Utf8Form const form = character.isUnknown() ? utf8FormOf('*') : utf8FormOf(character);
        if (!text.append(form)) {
            return NONE;
        }
        src += character.bytes;
    }
    return text.terminate();
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
    if (src == nullptr || lacksDestination(dst, units)) {
        return NONE;
    }
    TextWriter<unsigned short> text(dst, units);
    while (*src != '\0') {
        SjisCharacter const character = firstOfSjis(src);
        // Deliberate: not the "*" of the UTF-8 form; readers of either look for its own mark.
        unsigned short const unit = character.isUnknown() ? REFERENCE_MARK : character.unit;
        if (!text.append(Utf16Form{unit})) {
            return NONE;
        }
        src += character.bytes;
    }
    return text.terminate();
}

unsigned long convertCharFromUtf16ToUtf8(char* dst, unsigned long size, unsigned short unit,
                                         int* byteOrder) {
    if (unit == BYTE_ORDER_MARK || unit == SWAPPED_MARK) {
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
    for (; *src != 0; ++src) {
        // Marks are told before anything is swapped: in swapped text theirs is 0xFFFE still.
        if (*src == BYTE_ORDER_MARK || *src == SWAPPED_MARK) {
            swapped = *src == SWAPPED_MARK;
            continue;
        }
        Utf8Form const form = utf8FormOf(swapped ? swapBytes(*src) : *src);
        if (!text.append(form)) {
            return NONE;
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
    while (*src != '\0') {
        unsigned long const bytes = utf8::bytesFromLead(*src);
        if (bytes == 0) {
            return NONE;
        }
        // Deliberate: an overlong or incomplete character ends the text like its terminator;
        // callers that convert piece by piece keep what stands before one that was cut.
        if (!utf8::isValid(src, bytes)) {
            break;
        }
        unsigned short const unit = bytes == 4 ? REFERENCE_MARK : unitOf(src, bytes);
        if (!text.append(Utf16Form{unit})) {
            return NONE;
        }
        src += bytes;
    }
    return text.terminate();
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
