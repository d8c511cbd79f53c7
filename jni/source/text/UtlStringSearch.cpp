#include "UtlString.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "UtlCharTable.h"
#include "UtlRawMemory.h"

#include "text/UtlAppender.h"
#include "text/UtlCharacterSet.h"
#include "text/UtlPattern.h"
#include "text/UtlUtf8.h"

namespace utl {
namespace {

constexpr unsigned long LONGEST_CHARACTER = 4;

void setEnd(unsigned long* end, unsigned long value) {
    if (end != nullptr) {
        *end = value;
    }
}

// Whether the text has `offset` bytes. To count them off from the start in every step of a walk
// through a long text would take time with the square of its length, and nothing tells more cheaply
// that no terminator has come there since. So a caller who hands back the `end` of the step before
// is believed; the bytes right before it are looked at for what a step may itself have cut off.
bool reaches(char const* s, unsigned long offset, unsigned long const* end) {
    constexpr unsigned long RECOUNTED = 1024;
    if (offset == 0) {
        return true;
    }
    bool const isWalk = offset > RECOUNTED && end != nullptr && *end == offset;
    unsigned long const from = isWalk ? offset - RECOUNTED : 0;
    return utf8::boundedLength(s + from, offset - from) == offset - from;
}

bool fitsWorkingBuffer(char const* s) {
    return utf8::boundedLength(s, WorkingBuffer<char>::SIZE) < WorkingBuffer<char>::SIZE;
}

// ASCII in lower case; 0 for the bytes beyond it.
constexpr std::array<char, 256> makeLowerCase() {
    std::array<char, 256> lowerCase = {};
    for (unsigned c = 0; c < 0x80; ++c) {
        lowerCase[c] = static_cast<char>(c >= 'A' && c <= 'Z' ? c | 0x20 : c);
    }
    return lowerCase;
}

constexpr std::array<char, 256> LOWER_CASE = makeLowerCase();

char inLowerCase(char c) {
    return LOWER_CASE[static_cast<unsigned char>(c)];
}

// The bytes, of `length` that both have, of the whole characters that two texts begin with alike
// but for the case of ASCII.
unsigned long sameBytes(char const* a, char const* b, unsigned long length) {
    char const* const end = a + length;
    auto const skip = [&a, &b](unsigned long bytes) {
        a += bytes;
        b += bytes;
    };
    for (;;) {
        for (; end - a >= utf8::WORD_BYTES; skip(6)) {
            utf8::Word const word = utf8::loadWord(a);
            utf8::Word const unlike = utf8::beyondThreeBytes(word) | (word ^ utf8::loadWord(b));
            if (unlike != 0) {
                skip(utf8::firstThree(unlike) == 0 ? 3 : 0);
                break;
            }
        }
        while (a != end && inLowerCase(*a) != '\0' && inLowerCase(*a) == inLowerCase(*b)) {
            skip(1);
        }
        unsigned long const rest = static_cast<unsigned long>(end - a);
        unsigned long const bytes = rest != 0 ? utf8::charBytes(a) : NONE;
        if (bytes > rest || std::memcmp(a, b, bytes) != 0) {
            return length - rest;
        }
        skip(bytes);
    }
}

// A character in lower case.
struct Character {
    char text[LONGEST_CHARACTER + 1];
    unsigned long bytes;  // 0 at the end of the text, which a malformed character is, too
};

// The first one of `s`. The letters are those of LOWER_UPPER_PAIR, which would have to be looked
// through for them.
Character firstInLowerCase(char const* s) {
    unsigned long const bytes = utf8::charBytes(s);
    Character c = {{}, bytes != NONE ? bytes : 0};
    std::memcpy(c.text, s, c.bytes);
    if (c.bytes == 1) {
        c.text[0] = inLowerCase(*s);
    } else if (std::strncmp(c.text, "\xEF\xBC\xA1", 3) >= 0 &&
               std::strncmp(c.text, "\xEF\xBC\xBA", 3) <= 0) {
        c.text[1] = '\xBD';
        c.text[2] = static_cast<char>(c.text[2] - 0x20);
    }
    return c;
}

// The last match of the `bytes` bytes of `pattern` in [s, last), or `last`. By a hash that rolls
// from the end to the front, so that a text full of near matches costs no more than any other.
template <typename CharT>
CharT const* findLast(CharT const* s, CharT const* last, CharT const* pattern,
                      unsigned long bytes) {
    constexpr std::uint32_t BASE = 16777619;
    if (static_cast<unsigned long>(last - s) < bytes) {
        return last;
    }
    auto const valueOf = [](CharT byte) { return static_cast<unsigned char>(byte); };
    CharT const* window = last - bytes;
    std::uint32_t hash = 0;
    std::uint32_t wanted = 0;
    std::uint32_t weight = 1;  // of the window's last byte, once it is BASE ^ (bytes - 1)
    for (unsigned long i = bytes; i-- > 0;) {
        hash = hash * BASE + valueOf(window[i]);
        wanted = wanted * BASE + valueOf(pattern[i]);
        weight = i != 0 ? weight * BASE : weight;
    }
    while (hash != wanted || std::memcmp(window, pattern, bytes) != 0) {
        if (window == s) {
            return last;
        }
        --window;
        hash = (hash - valueOf(window[bytes]) * weight) * BASE + valueOf(*window);
    }
    return window;
}

}  // namespace

template <typename CharT>
unsigned long replaceStr(CharT* s, unsigned long size, CharT const* from, CharT const* to,
                         int trunc) {
    if (from == nullptr || to == nullptr || s == nullptr || !fitsWorkingBuffer(s)) {
        return NONE;
    }
    if (*from == '\0') {
        return copyStrBase<CharT>(s, size, s, t_strlen(s), trunc);
    }
    Pattern const pattern(from);
    CharT const* end = nullptr;
    CharT const* match = pattern.findIn(s, &end);
    if (match == nullptr) {
        return copyGeneral<CharT>(s, size, 0, s, 0, ALL, trunc);
    }

    // What is behind the first match has to make way.
    WorkingBuffer<CharT> const scratch;
    CharT const* rest = scratch;
    copyStr<CharT>(scratch, WorkingBuffer<CharT>::SIZE, end, ALL, WHOLE);
    Appender replaced(s, size, trunc);
    CharT const* before = s;
    for (unsigned long const toBytes = t_strlen(to);;) {
        if (!replaced.append(before, static_cast<unsigned long>(match - before)) ||
            !replaced.append(to, toBytes)) {
            return NONE;
        }
        if (toBytes == 0) {
            // Deliberate: an empty `to` drops what follows the first match; callers cut with it.
            return replaced.finish(to);
        }
        before = rest;
        match = pattern.findIn(rest, &end);
        if (match == nullptr) {
            return replaced.finish(rest);
        }
        rest = end;
    }
}

template <typename CharT>
unsigned long t_strstr(CharT const* s, CharT const* pattern) {
    CharT const* const text = s != nullptr ? s : &EMPTY_CHAR;
    if (pattern == nullptr || *pattern == '\0') {
        return std::strlen(text);  // Deliberate: not 0; findStr() ends a series of matches by it.
    }
    CharT const* end = nullptr;
    CharT const* const match = Pattern(pattern).findIn(text, &end);
    return match != nullptr ? static_cast<unsigned long>(match - text) : NONE;
}

template <typename CharT>
unsigned long t_strspn(CharT const* s, CharT const* set) {
    if (s == nullptr || set == nullptr) {
        return 0;
    }
    return CharacterSet(set).findFirst(s, false);
}

template <typename CharT>
unsigned long t_strcspn(CharT const* s, CharT const* set) {
    if (s == nullptr || set == nullptr) {
        return t_strlen(s);
    }
    return CharacterSet(set).findFirst(s, true);
}

template <typename CharT>
unsigned long findStr(CharT const* s, CharT const* pattern, unsigned long offset,
                      unsigned long* end) {
    if (s == nullptr || pattern == nullptr || !reaches(s, offset, end)) {
        return NONE;
    }
    setEnd(end, NONE);
    CharT const* from = s + offset;
    while (!utf8::startsCharacter(*from)) {
        ++from;
    }
    if (*pattern == '\0') {
        bool const isPastEnd = from != s + offset && *from == '\0';
        return isPastEnd ? NONE : offset + std::strlen(s + offset);
    }
    CharT const* behind = nullptr;
    CharT const* const match = Pattern(pattern).findIn(from, &behind);
    if (match == nullptr) {
        return NONE;
    }
    setEnd(end, static_cast<unsigned long>(behind - s));
    return static_cast<unsigned long>(match - s);
}

template <typename CharT>
unsigned long findToken(CharT const* s, CharT const* delimiters, unsigned long offset,
                        unsigned long* end) {
    if (s == nullptr || delimiters == nullptr || !reaches(s, offset, end)) {
        return NONE;
    }
    unsigned long const start = offset + t_strspn(s + offset, delimiters);
    if (s[start] == '\0') {
        setEnd(end, NONE);
        return NONE;
    }
    setEnd(end, start + t_strcspn(s + start, delimiters));
    return start;
}

template <typename CharT>
unsigned long findReverseStr(CharT const* s, CharT const* pattern, unsigned long offset,
                             unsigned long* end) {
    if (s == nullptr || pattern == nullptr) {
        return NONE;
    }
    unsigned long const length = std::strlen(s);
    if (*pattern == '\0') {
        setEnd(end, length - 1);  // NONE for an empty text
        return length;
    }
    // What could not be reversed in a WorkingBuffer is refused; that it need not be reversed is
    // nobody's business.
    if (!fitsWorkingBuffer(s) || !fitsWorkingBuffer(pattern) || !utf8::isWellFormed(s) ||
        !utf8::isWellFormed(pattern)) {
        return NONE;
    }

    CharT const* const last = s + (offset < length ? offset + 1 : length);
    unsigned long const bytes = std::strlen(pattern);
    CharT const* const match = findLast(s, last, pattern, bytes);
    if (match == last) {
        setEnd(end, NONE);
        return NONE;
    }
    unsigned long const index = static_cast<unsigned long>(match - s);
    setEnd(end, index - 1);  // NONE for a match at the start
    return index + bytes - 1;
}

template <typename CharT>
unsigned long findReverseChar(CharT const* s, CharT const* chars, unsigned long offset,
                              unsigned long* end) {
    bool isBom = false;
    unsigned long const bytes = strCharBytesBase(chars, &isBom);
    if (isBom || bytes == NONE) {
        return NONE;
    }
    CharT character[LONGEST_CHARACTER + 1] = {};
    copyMemory(character, chars, bytes);
    return findReverseStr<CharT>(s, character, offset, end);
}

template <typename CharT>
int compareStr(CharT const* a, CharT const* b, unsigned long n) {
    return std::strncmp(a != nullptr ? a : &EMPTY_CHAR, b != nullptr ? b : &EMPTY_CHAR, n);
}

template <typename CharT>
int compareStrNoCase(CharT const* a, CharT const* b, unsigned long n) {
    constexpr unsigned long TOO_LONG = WorkingBuffer<CharT>::SIZE;
    unsigned long const leftLength = utf8::boundedLength(a, TOO_LONG);
    unsigned long const rightLength = utf8::boundedLength(b, TOO_LONG);
    if (leftLength == TOO_LONG || rightLength == TOO_LONG) {
        return -1;
    }
    // This needs no scratch memory, of which the caller may already hold all.
    CharT const* const left = a != nullptr ? a : &EMPTY_CHAR;
    CharT const* const right = b != nullptr ? b : &EMPTY_CHAR;
    unsigned long const shorter = std::min({leftLength, rightLength, n});
    unsigned long pos = 0;
    while (pos < n) {
        // Equal first bytes make characters of equal length: so there is one position for both.
        pos += sameBytes(left + pos, right + pos, shorter - pos);
        Character const x = firstInLowerCase(left + pos);
        Character const y = firstInLowerCase(right + pos);
        unsigned long const compared = std::min(n - pos, std::max(x.bytes, y.bytes));
        int const order = std::strncmp(x.text, y.text, compared);
        if (order != 0 || compared == 0) {
            return order;
        }
        pos += compared;
    }
    return 0;
}

template unsigned long replaceStr<char>(char*, unsigned long, char const*, char const*, int);
template unsigned long t_strstr<char>(char const*, char const*);
template unsigned long t_strspn<char>(char const*, char const*);
template unsigned long t_strcspn<char>(char const*, char const*);
template unsigned long findStr<char>(char const*, char const*, unsigned long, unsigned long*);
template unsigned long findToken<char>(char const*, char const*, unsigned long, unsigned long*);
template unsigned long findReverseStr<char>(char const*, char const*, unsigned long,
                                            unsigned long*);
template unsigned long findReverseChar<char>(char const*, char const*, unsigned long,
                                             unsigned long*);
template int compareStr<char>(char const*, char const*, unsigned long);
template int compareStrNoCase<char>(char const*, char const*, unsigned long);

}  // namespace utl
