// Internal. UTF-8 as the string functions see it. Nothing here measures a text first: the
// terminator is no continuation byte, so no look at a character gets past it.

#ifndef UTL_TEXT_UTF8_H
#define UTL_TEXT_UTF8_H

#include <string.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "UtlApi.h"

namespace utl {
namespace utf8 {

// The bytes of the character that this byte begins; 0 for a byte that cannot begin one.
inline unsigned long bytesFromLead(char c) {
    unsigned char const lead = static_cast<unsigned char>(c);
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC0 || lead >= 0xF8) {
        return 0;
    }
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

inline bool startsCharacter(char c) {
    return bytesFromLead(c) != 0;
}

inline bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The lead bytes 0xF5 to 0xF7 and surrogates are taken as they come: only this is checked.
inline bool isOverlong(unsigned char lead, unsigned char second) {
    return lead == 0xC0 || lead == 0xC1 || (lead == 0xE0 && second < 0xA0) ||
           (lead == 0xF0 && second < 0x90);
}

// Whether the `bytes` that the first byte promises are there, in a form that is not overlong.
inline bool isValid(char const* s, unsigned long bytes) {
    if (bytes == 1) {
        return true;
    }
    return isContinuation(s[1]) && (bytes < 3 || isContinuation(s[2])) &&
           (bytes < 4 || isContinuation(s[3])) &&
           !isOverlong(static_cast<unsigned char>(s[0]), static_cast<unsigned char>(s[1]));
}

// The bytes of the first character; 0 at the end of the text, NONE where no valid one starts.
inline unsigned long charBytes(char const* s) {
    if (*s == '\0') {
        return 0;
    }
    unsigned long const bytes = bytesFromLead(*s);
    return bytes != 0 && isValid(s, bytes) ? bytes : NONE;
}

// The number of a valid character of `bytes` bytes.
inline std::uint32_t codePoint(char const* s, unsigned long bytes) {
    auto const byte = [s](int i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(s[i]));
    };
    auto const low = [byte](int i) { return byte(i) & 0x3Fu; };
    switch (bytes) {
        case 1:
            return byte(0);
        case 2:
            return (byte(0) & 0x1Fu) << 6 | low(1);
        case 3:
            return (byte(0) & 0x0Fu) << 12 | low(1) << 6 | low(2);
        default:
            return (byte(0) & 0x07u) << 18 | low(1) << 12 | low(2) << 6 | low(3);
    }
}

// Eight bytes of a text at once, in the order of the machine: so constants are made of bytes too.
using Word = std::uint64_t;
constexpr long WORD_BYTES = sizeof(Word);

inline Word loadWord(char const* s) {
    Word word;
    memcpy(&word, s, sizeof word);
    return word;
}

inline bool isAscii(char c) {
    return (c & 0x80) == 0;
}

inline bool isAscii(Word word) {
    return (word & loadWord("\x80\x80\x80\x80\x80\x80\x80\x80")) == 0;
}

// What keeps the first three bytes and the next three from being two characters, which nearly all
// are in Japanese text; 0 where nothing does. Those that 0xE0 begins, as the overlong do, are left
// to others.
inline Word beyondThreeBytes(Word word) {
    // What is left of a character is the number in each byte: 1 to 15 in the first, then below 64.
    Word const numbers = word ^ loadWord("\xE0\x80\x80\xE0\x80\x80\0");
    Word const lessOne = numbers - loadWord("\1\0\0\1\0\0\0");
    return (numbers | lessOne) & loadWord("\xF0\xC0\xC0\xF0\xC0\xC0\0");
}

inline Word firstThree(Word word) {
    return word & loadWord("\xFF\xFF\xFF\0\0\0\0");
}

// Behind the characters of three bytes that [s, end) begins with, as far as they are told.
inline char const* skipThreeBytes(char const* s, char const* end) {
    for (; end - s >= WORD_BYTES; s += 6) {
        Word const beyond = beyondThreeBytes(loadWord(s));
        if (beyond != 0) {
            return firstThree(beyond) == 0 ? s + 3 : s;
        }
    }
    return s;
}

// Behind the ASCII that [s, end) begins with. Often that is one short word only.
inline char const* skipAscii(char const* s, char const* end) {
    char const* const begin = s;
    while (s != end && isAscii(*s)) {
        ++s;
        if (s - begin == WORD_BYTES) {
            while (end - s >= WORD_BYTES && isAscii(loadWord(s))) {
                s += WORD_BYTES;
            }
        }
    }
    return s;
}

// The bytes of the whole valid characters that begin a text of at least `length` bytes, up to that.
inline unsigned long validBytes(char const* text, unsigned long length) {
    char const* const end = text + length;
    char const* s = text;
    for (;;) {
        s = skipAscii(skipThreeBytes(s, end), end);
        unsigned long const rest = static_cast<unsigned long>(end - s);
        unsigned long const bytes = rest != 0 ? charBytes(s) : NONE;
        if (bytes > rest) {
            return length - rest;
        }
        s += bytes;
    }
}

// Whether the text is valid characters only.
inline bool isWellFormed(char const* s) {
    unsigned long const length = strlen(s);
    return validBytes(s, length) == length;
}

// `index`, or the next one towards the start where a character starts; NONE without one.
inline unsigned long cutBack(char const* s, unsigned long index) {
    while (!startsCharacter(s[index])) {
        if (index == 0) {
            return NONE;
        }
        --index;
    }
    return index;
}

// The bytes of a view up to its first zero byte, less a last character that its end cuts.
inline unsigned long wholeLength(std::string_view text) {
    unsigned long const length = std::min(text.find('\0'), text.size());
    unsigned long back = 1;
    while (back < 4 && back < length && isContinuation(text[length - back])) {
        ++back;
    }
    bool const isCut = length != 0 && bytesFromLead(text[length - back]) > back;
    return isCut ? length - back : length;
}

// The length of the text, or `limit` if that is less; looks no further. 0 for null.
inline unsigned long boundedLength(char const* s, unsigned long limit) {
    return s != nullptr ? strnlen(s, limit) : 0;
}

}  // namespace utf8
}  // namespace utl

#endif  // UTL_TEXT_UTF8_H
