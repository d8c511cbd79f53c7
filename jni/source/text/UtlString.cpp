#include "UtlString.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "UtlRawMemory.h"

#include "text/UtlUtf8.h"

namespace utl {

char const EMPTY_CHAR = '\0';
wchar_t const EMPTY_WCHAR = L'\0';

namespace {

constexpr int TO_START = 1;  // the mode of getNearCharIndex()
constexpr char BYTE_ORDER_MARK[] = "\xEF\xBB\xBF";

void reportByteOrderMark(char const* s, bool* isBom) {
    if (isBom != nullptr) {
        *isBom = s != nullptr && std::strncmp(s, BYTE_ORDER_MARK, 3) == 0;
    }
}

// The last character boundary in the first `length` bytes of a text; NONE for a malformed character
// on the way.
unsigned long wholeCharacters(char const* text, unsigned long length) {
    unsigned long const pos = utf8::validBytes(text, length);
    return pos < length && utf8::charBytes(text + pos) == NONE ? NONE : pos;
}

// Stores at most `count` bytes of `text` at `dst` + `dstPos`: the step behind every copy. Looks no
// further than there is room.
unsigned long storeAt(char* dst, unsigned long size, unsigned long dstPos, char const* text,
                      unsigned long count, int trunc) {
    if (size == 0) {
        return dstPos + 1 + utf8::boundedLength(text, count);
    }
    if (dst == nullptr || dstPos >= size) {
        return NONE;
    }
    unsigned long const room = size - dstPos - 1;
    unsigned long n = utf8::boundedLength(text, std::min(count, room + 1));
    if (trunc != TRUNCATE && n > room) {
        return NONE;
    }
    if (room == 0) {
        dst[dstPos] = '\0';
        return size;
    }

    if (trunc == TRUNCATE) {
        n = wholeCharacters(text, std::min(n, room));
        if (n == NONE) {
            return NONE;
        }
    }
    n = utf8::cutBack(text, n);
    if (n == NONE) {
        return NONE;
    }
    moveMemory(dst + dstPos, text, n);
    dst[dstPos + n] = '\0';
    return dstPos + n + 1;
}

}  // namespace

template <typename CharT>
unsigned long t_strlen(CharT const* s) {
    return s != nullptr ? std::strlen(s) : 0;
}

template <typename CharT>
unsigned long t_charlen(CharT const* s, bool* isBom) {
    reportByteOrderMark(s, isBom);
    return s != nullptr ? utf8::charBytes(s) : 0;
}

template <typename CharT>
unsigned long strCharBytesBase(CharT const* s, bool* isBom) {
    reportByteOrderMark(s, isBom);
    if (s == nullptr || *s == '\0') {
        return 0;
    }
    unsigned long const bytes = utf8::bytesFromLead(*s);
    if (bytes == 0) {
        return NONE;
    }
    return utf8::isValid(s, bytes) ? bytes : 0;
}

template <typename CharT>
unsigned long getNearCharIndex(CharT const* s, unsigned long index, int mode) {
    if (s == nullptr) {
        return NONE;
    }
    unsigned long const length = utf8::boundedLength(s, index);
    unsigned long const pos = wholeCharacters(s, length);
    return pos >= length || mode == TO_START ? pos : pos + utf8::charBytes(s + pos);
}

template <typename CharT>
unsigned long t_strncpy(CharT* dst, unsigned long size, CharT const* src, unsigned long maxLen) {
    CharT const* const text = src != nullptr ? src : &EMPTY_CHAR;
    unsigned long const uncut = utf8::boundedLength(text, maxLen);
    if (dst == nullptr || size <= uncut) {
        return NONE;
    }
    unsigned long const n = utf8::cutBack(text, uncut);
    if (n == NONE) {
        return NONE;
    }
    moveMemory(dst, text, n);
    dst[n] = '\0';
    return n + 1;
}

template <typename CharT>
unsigned long copyGeneral(CharT* dst, unsigned long size, unsigned long dstPos, CharT const* src,
                          unsigned long srcPos, unsigned long count, int trunc) {
    if (count == 0) {
        return dstPos;  // Deliberate: not dstPos + 1, and no terminator; callers rely on both.
    }
    if (src == nullptr || utf8::boundedLength(src, srcPos) < srcPos) {
        return NONE;
    }
    return storeAt(dst, size, dstPos, src + srcPos, count, trunc);
}

template <typename CharT>
unsigned long copyStr(CharT* dst, unsigned long size, CharT const* src, unsigned long count,
                      int trunc) {
    return src != nullptr ? copyGeneral(dst, size, 0, src, 0, count, trunc) : NONE;
}

unsigned long copyStr(char* dst, unsigned long size, std::string_view src, int trunc) {
    unsigned long n = utf8::wholeLength(src);
    if (size == 0) {
        return n + 1;
    }
    if (dst == nullptr || (trunc != TRUNCATE && n >= size)) {
        return NONE;
    }
    n = n < size ? n : utf8::cutBack(src.data(), size - 1);
    if (n == NONE) {
        return NONE;
    }
    moveMemory(dst, src.data(), n);
    dst[n] = '\0';
    return n + 1;
}

template <typename CharT>
unsigned long copyStrBase(CharT* dst, unsigned long size, CharT const* src, unsigned long count,
                          int trunc) {
    return copyStr(dst, size, src, count, trunc);
}

template <typename CharT>
unsigned long combineStr(CharT* dst, unsigned long size, CharT const* base, CharT const* add,
                         unsigned long count, int trunc) {
    unsigned long const used =
        dst != base ? copyStr(dst, size, base, ALL, trunc) : t_strlen(dst) + 1;
    if (used == NONE || count == 0) {
        return used;
    }
    return copyGeneral(dst, size, used - 1, add, 0, count, trunc);
}

template <>
unsigned long formatStr<char>(char* dst, unsigned long size, char const* format, ...) {
    if (format == nullptr || dst == nullptr || size == 0) {
        return NONE;
    }
    std::va_list arguments;
    va_start(arguments, format);
    int const length = std::vsnprintf(dst, size, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= size) {
        dst[size - 1] = '\0';  // an output error leaves that open
        return NONE;
    }
    return std::strlen(dst) + 1;
}

template <typename CharT>
unsigned long truncateStr(CharT* s, unsigned long maxBytes) {
    unsigned long const n = getNearCharIndex(s, maxBytes, TO_START);
    if (n == NONE) {
        return NONE;
    }
    s[n] = '\0';
    return n + 1;
}

template <typename CharT>
unsigned long eraseStrSpan(CharT* dst, unsigned long size, CharT const* src, unsigned long pos,
                           unsigned long count, int trunc) {
    if (src == nullptr || utf8::boundedLength(src, pos) < pos) {
        return NONE;
    }
    unsigned long head = 0;
    if (pos > 0) {
        unsigned long const used = copyGeneral(dst, size, 0, src, 0, pos, trunc);
        if (used == NONE) {
            return NONE;
        }
        head = used - 1;
    }
    CharT const* const span = src + pos;
    return copyGeneral(dst, size, head, span + utf8::boundedLength(span, count), 0, ALL, trunc);
}

// Without a scratch copy: the text may itself lie in the last WorkingBuffer of its caller.
template <typename CharT>
unsigned long eraseStrSpan(CharT* s, unsigned long pos, unsigned long count) {
    unsigned long const length = t_strlen(s);
    if (s == nullptr || length < pos || length >= WorkingBuffer<CharT>::SIZE) {
        return NONE;
    }
    unsigned long const head = pos > 0 ? utf8::cutBack(s, pos) : 0;
    if (head == NONE) {
        return NONE;
    }
    unsigned long const erased = count < length - pos ? count : length - pos;
    unsigned long const tail = length - pos - erased;
    moveMemory(s + head, s + pos + erased, tail + 1);
    return head + tail + 1;
}

template <typename CharT>
unsigned long t_strrev(CharT* dst, unsigned long size, CharT const* src, int trunc) {
    CharT const* const text = src != nullptr ? src : &EMPTY_CHAR;
    unsigned long const length = std::strlen(text);
    if (dst == nullptr || size == 0 || (trunc != TRUNCATE && size <= length) ||
        !utf8::isWellFormed(text)) {
        return NONE;
    }
    unsigned long const room = size - 1;
    unsigned long used = 0;
    for (unsigned long end = length; end > 0 && used < room;) {
        unsigned long const begin = utf8::cutBack(text, end - 1);
        // Deliberate: the end of the buffer may cut the last character inside; callers that
        // truncate count on all the room being used.
        for (unsigned long i = begin; i < end && used < room; ++i) {
            dst[used++] = text[i];
        }
        end = begin;
    }
    dst[used] = '\0';
    return used + 1;
}

template <typename CharT>
unsigned long reverseStr(CharT* dst, unsigned long size, CharT const* src, int trunc) {
    if (src == nullptr) {
        return NONE;
    }
    return size != 0 ? t_strrev(dst, size, src, trunc) : std::strlen(src) + 1;
}

template unsigned long t_strlen<char>(char const*);
template unsigned long t_charlen<char>(char const*, bool*);
template unsigned long strCharBytesBase<char>(char const*, bool*);
template unsigned long getNearCharIndex<char>(char const*, unsigned long, int);
template unsigned long t_strncpy<char>(char*, unsigned long, char const*, unsigned long);
template unsigned long copyGeneral<char>(char*, unsigned long, unsigned long, char const*,
                                         unsigned long, unsigned long, int);
template unsigned long copyStr<char>(char*, unsigned long, char const*, unsigned long, int);
template unsigned long copyStrBase<char>(char*, unsigned long, char const*, unsigned long, int);
template unsigned long combineStr<char>(char*, unsigned long, char const*, char const*,
                                        unsigned long, int);
template unsigned long truncateStr<char>(char*, unsigned long);
template unsigned long eraseStrSpan<char>(char*, unsigned long, char const*, unsigned long,
                                          unsigned long, int);
template unsigned long eraseStrSpan<char>(char*, unsigned long, unsigned long);
template unsigned long t_strrev<char>(char*, unsigned long, char const*, int);
template unsigned long reverseStr<char>(char*, unsigned long, char const*, int);

}  // namespace utl
