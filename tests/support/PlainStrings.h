// String functions in their plainest form, quadratic and over strings of their own: what the
// library's are compared with. A text that is malformed where it must not be gives no result.

#ifndef UTL_TESTS_SUPPORT_PLAIN_STRINGS_H
#define UTL_TESTS_SUPPORT_PLAIN_STRINGS_H

#include <algorithm>
#include <cstring>
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

inline std::string replace(std::string const& s, std::string const& from, std::string const& to) {
    std::string result;
    unsigned long pos = 0;
    unsigned long end = NONE;
    while (!from.empty()) {
        unsigned long const match = find(s, from, pos, &end);
        if (match == NONE) {
            break;
        }
        result += s.substr(pos, match - pos) + to;
        if (to.empty()) {
            return result;
        }
        pos = end;
    }
    return result + s.substr(pos);
}

inline int compareNoCase(std::string const& a, std::string const& b, unsigned long n) {
    std::vector<char> left(a.size() + 1);
    std::vector<char> right(b.size() + 1);
    utl::convertAttrib(left.data(), left.size(), a.c_str(), utl::LOWER_UPPER_PAIR, 1, 0);
    utl::convertAttrib(right.data(), right.size(), b.c_str(), utl::LOWER_UPPER_PAIR, 1, 0);
    return std::strncmp(left.data(), right.data(), std::min<unsigned long>(n, left.size()));
}

}  // namespace plain

#endif  // UTL_TESTS_SUPPORT_PLAIN_STRINGS_H
