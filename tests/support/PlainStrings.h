// String functions in their plainest form, quadratic and over strings of their own: what the
// library's are compared with. A text that is malformed where it must not be gives no result.

#ifndef UTL_TESTS_SUPPORT_PLAIN_STRINGS_H
#define UTL_TESTS_SUPPORT_PLAIN_STRINGS_H

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "UtlCharTable.h"
#include "UtlString.h"

namespace plain {

using utl::NONE;
using Text = std::optional<std::string>;

inline bool startsCharacter(char c) {
    return (c & 0x80) == 0 || (c & 0xE0) == 0xC0 || (c & 0xF0) == 0xE0 || (c & 0xF8) == 0xF0;
}

inline Text truncate(std::string const& s, unsigned long maxBytes) {
    unsigned long pos = 0;
    while (pos < std::min<unsigned long>(s.size(), maxBytes)) {
        unsigned long const bytes = utl::t_charlen(s.c_str() + pos);
        if (bytes == NONE) {
            return {};
        }
        if (pos + bytes > maxBytes) {
            break;
        }
        pos += bytes;
    }
    return s.substr(0, pos);
}

inline unsigned long nearIndex(std::string const& s, unsigned long index, int mode) {
    Text const start = truncate(s, index);
    if (!start || mode == 1 || start->size() >= std::min<unsigned long>(index, s.size())) {
        return start ? start->size() : NONE;
    }
    return start->size() + utl::t_charlen(s.c_str() + start->size());
}

inline unsigned long find(std::string const& s, std::string const& pattern, unsigned long offset,
                          unsigned long* end) {
    if (s.size() < offset) {
        return NONE;
    }
    *end = NONE;
    while (!startsCharacter(s.c_str()[offset])) {
        if (++offset == s.size()) {
            return NONE;
        }
    }
    if (pattern.empty()) {
        return s.size();
    }
    while (offset < s.size()) {
        unsigned long const bytes = utl::t_charlen(s.c_str() + offset);
        if (bytes != NONE && s.compare(offset, pattern.size(), pattern) == 0) {
            *end = offset + pattern.size();
            return offset;
        }
        offset += bytes == NONE ? 1 : bytes;
    }
    return NONE;
}

// A buffer that text is stored in, one piece behind the other.
class Buffer {
public:
    Buffer(unsigned long size, std::string const& text) : mSize(size), mText(text) {}

    // Of what failed or only asked, not said.
    Text const& text() const { return mText; }

    unsigned long copy(unsigned long dstPos, Text const& src, unsigned long srcPos,
                       unsigned long count, int trunc) {
        if (count == 0) {
            return dstPos;
        }
        if (!src || src->size() < srcPos) {
            return fail();
        }
        std::string const rest = src->substr(srcPos);
        unsigned long n = std::min<unsigned long>(rest.size(), count);
        if (mSize == 0) {
            return dstPos + 1 + n;
        }
        if (!mText || dstPos >= mSize || dstPos > mText->size()) {
            return fail();
        }
        unsigned long const room = mSize - dstPos - 1;
        if (trunc == utl::TRUNCATE) {
            Text const cut = room > 0 ? truncate(rest, std::min(n, room)) : "";
            n = cut ? cut->size() : NONE;
        }
        if (n > room) {
            return fail();
        }
        while (room > 0 && !startsCharacter(rest.c_str()[n])) {
            if (n-- == 0) {
                return fail();
            }
        }
        *mText = mText->substr(0, dstPos) + rest.substr(0, n);
        return mText->size() + 1;
    }

    // `base` unless it is what the buffer holds.
    unsigned long combine(Text const& base, bool isHeld, std::string const& add,
                          unsigned long count, int trunc) {
        unsigned long const used = isHeld ? mText->size() + 1 : copy(0, base, 0, NONE, trunc);
        return used == NONE || count == 0 ? used : copy(used - 1, add, 0, count, trunc);
    }

    unsigned long erase(std::string const& src, unsigned long pos, unsigned long count, int trunc) {
        if (src.size() < pos) {
            return fail();
        }
        unsigned long const used = pos > 0 ? copy(0, src, 0, pos, trunc) : 1;
        unsigned long const tail = pos + std::min<unsigned long>(count, src.size() - pos);
        return used == NONE ? NONE : copy(used - 1, src, tail, NONE, trunc);
    }

    unsigned long replace(std::string const& src, std::string const& from, std::string const& to,
                          int trunc) {
        unsigned long pos = 0;
        unsigned long used = 1;
        unsigned long end = NONE;
        while (!from.empty() && used != NONE) {
            unsigned long const match = find(src, from, pos, &end);
            if (match == NONE) {
                break;
            }
            used = match > pos ? copy(used - 1, src, pos, match - pos, trunc) : used;
            used = used != NONE ? copy(used - 1, to, 0, NONE, trunc) : NONE;
            if (to.empty()) {
                return used;
            }
            pos = end;
        }
        return used != NONE ? copy(used - 1, src, pos, NONE, trunc) : NONE;
    }

private:
    unsigned long fail() {
        mText = {};
        return NONE;
    }

    unsigned long mSize;
    Text mText;
};

inline Text reverse(std::string const& s) {
    std::string reversed;
    while (reversed.size() < s.size()) {
        unsigned long const pos = reversed.size();
        unsigned long const bytes = utl::t_charlen(s.c_str() + pos);
        if (bytes == NONE) {
            return {};
        }
        reversed.insert(0, s, pos, bytes);
    }
    return reversed;
}

// The index of the first character of `s` that is in `set`, or that is not.
inline unsigned long span(std::string const& s, std::string const& set, bool isMember) {
    unsigned long pos = 0;
    while (pos < s.size()) {
        unsigned long const bytes = utl::t_charlen(s.c_str() + pos);
        bool isFound = false;
        for (unsigned long at = 0; bytes != NONE && at < set.size() && !isFound;) {
            unsigned long const length = utl::t_charlen(set.c_str() + at);
            if (length == NONE) {
                break;
            }
            isFound = s.compare(pos, bytes, set, at, length) == 0;
            at += length;
        }
        if (isFound == isMember) {
            break;
        }
        pos += bytes != NONE ? bytes : 1;
    }
    return pos;
}

inline unsigned long findReverse(std::string const& s, std::string const& pattern,
                                 unsigned long offset, unsigned long* end) {
    if (pattern.empty()) {
        *end = s.size() - 1;
        return s.size();
    }
    Text const text = reverse(s);
    Text const key = reverse(pattern);
    if (!text || !key) {
        return NONE;
    }
    unsigned long const last = s.empty() ? 0 : s.size() - 1;
    unsigned long behind = NONE;
    unsigned long const at = find(*text, *key, last - std::min(offset, last), &behind);
    *end = at == NONE ? NONE : last - behind;
    return at == NONE ? NONE : last - at;
}

inline unsigned long findToken(std::string const& s, std::string const& delimiters,
                               unsigned long offset, unsigned long* end) {
    if (s.size() < offset) {
        return NONE;
    }
    unsigned long const start = offset + span(s.substr(offset), delimiters, false);
    bool const isFound = start < s.size();
    *end = isFound ? start + span(s.substr(start), delimiters, true) : NONE;
    return isFound ? start : NONE;
}

inline int compare(std::string const& a, std::string const& b, unsigned long n) {
    int const order = a.substr(0, n).compare(b.substr(0, n));
    return (order > 0) - (order < 0);
}

inline int compareNoCase(std::string const& a, std::string const& b, unsigned long n) {
    std::vector<char> left(a.size() + 1);
    std::vector<char> right(b.size() + 1);
    utl::convertAttrib(left.data(), left.size(), a.c_str(), utl::LOWER_UPPER_PAIR, 1, 0);
    utl::convertAttrib(right.data(), right.size(), b.c_str(), utl::LOWER_UPPER_PAIR, 1, 0);
    return compare(left.data(), right.data(), n);
}

}  // namespace plain

#endif  // UTL_TESTS_SUPPORT_PLAIN_STRINGS_H
