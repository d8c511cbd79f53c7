#include "UtlString.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "UtlCharTable.h"
#include "UtlRawMemory.h"

#include "text/UtlCharacterSet.h"
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
    bool const isWalk = offset > RECOUNTED && end != nullptr && *end == offset;
    unsigned long const from = isWalk ? offset - RECOUNTED : 0;
    return utf8::boundedLength(s + from, offset - from) == offset - from;
}

bool fitsWorkingBuffer(char const* s) {
    return utf8::boundedLength(s, WorkingBuffer<char>::SIZE) < WorkingBuffer<char>::SIZE;
}

struct Character {
    char const* text;
    unsigned long bytes;  // 0 at the end of the text, which a malformed character is, too
};

Character firstCharacter(char const* s) {
    unsigned long const bytes = utf8::charBytes(s);
    return bytes != NONE ? Character{s, bytes} : Character{&EMPTY_CHAR, 0};
}

// As convertAttrib() does it; a letter has as many bytes in lower case as in upper case.
Character toLower(Character const& c) {
    unsigned long const row = hasPair(c.text, LOWER_UPPER_PAIR, 1);
    return row != NONE ? Character{LOWER_UPPER_PAIR[row].first.narrow, c.bytes} : c;
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
    if (from == nullptr || to == nullptr) {
        return NONE;
    }
    WorkingBuffer<CharT> const scratch;
    CharT* const text = scratch;
    if (copyStr<CharT>(text, WorkingBuffer<CharT>::SIZE, s, ALL, WHOLE) == NONE) {
        return NONE;
    }
    if (*from == '\0') {
        return copyStrBase<CharT>(s, size, text, t_strlen(text), trunc);
    }

    CharT const* rest = text;
    unsigned long stored = 0;  // bytes, without the terminator
    for (;;) {
        unsigned long end = NONE;
        unsigned long const match = findStr<CharT>(rest, from, 0, &end);
        if (match == NONE) {
            return copyGeneral(s, size, stored, rest, 0, ALL, trunc);
        }
        if (match > 0) {
            unsigned long const used = copyGeneral(s, size, stored, rest, 0, match, trunc);
            if (used == NONE) {
                return NONE;
            }
            stored = used - 1;
        }
        unsigned long const used = copyGeneral(s, size, stored, to, 0, ALL, trunc);
        if (used == NONE || *to == '\0') {
            // Deliberate: an empty `to` drops what follows the first match; callers cut with it.
            return used;
        }
        stored = used - 1;
        rest += end;
    }
}

template <typename CharT>
unsigned long t_strstr(CharT const* s, CharT const* pattern) {
    CharT const* const text = s != nullptr ? s : &EMPTY_CHAR;
    if (t_strlen(pattern) == 0) {
        return std::strlen(text);  // Deliberate: not 0; findStr() ends a series of matches by it.
    }
    // A match of this one would be turned down below wherever it is.
    if (utf8::boundedLength(pattern, LONGEST_CHARACTER) == LONGEST_CHARACTER &&
        utf8::charBytes(pattern) == NONE) {
        return NONE;
    }
    // No byte inside a valid character could start another. So this takes just those matches that
    // a walk from character to character would come across.
    CharT const* match = std::strstr(text, pattern);
    while (match != nullptr && utf8::charBytes(match) == NONE) {
        match = std::strstr(match + 1, pattern);
    }
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
    unsigned long from = offset;
    while (!utf8::startsCharacter(s[from])) {
        ++from;
    }
    if (from != offset && s[from] == '\0') {
        return NONE;
    }
    unsigned long const index = t_strstr(s + from, pattern);
    if (index == NONE) {
        return NONE;
    }
    if (*pattern != '\0') {
        setEnd(end, from + index + std::strlen(pattern));
    }
    return from + index;
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
    if (!fitsWorkingBuffer(a) || !fitsWorkingBuffer(b)) {
        return -1;
    }
    // Character by character: this needs no scratch memory, of which the caller may already hold
    // all, and looks up only letters that differ.
    CharT const* left = a != nullptr ? a : &EMPTY_CHAR;
    CharT const* right = b != nullptr ? b : &EMPTY_CHAR;
    for (unsigned long rest = n; rest > 0;) {
        Character const x = firstCharacter(left);
        Character const y = firstCharacter(right);
        unsigned long const compared = std::min(rest, std::max(x.bytes, y.bytes));
        if (compared == 0) {
            return 0;
        }
        // As a whole, even if `n` ends inside: what differs behind that may fold to other bytes.
        if (x.bytes != y.bytes || std::strncmp(x.text, y.text, x.bytes) != 0) {
            int const order = std::strncmp(toLower(x).text, toLower(y).text, compared);
            if (order != 0) {
                return order;
            }
        }
        // Equal first bytes make characters of equal length.
        left += x.bytes;
        right += y.bytes;
        rest -= compared;
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
