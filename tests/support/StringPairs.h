// The string functions, each beside its plain form, on texts of any kind, well-formed or not.

#ifndef UTL_TESTS_SUPPORT_STRING_PAIRS_H
#define UTL_TESTS_SUPPORT_STRING_PAIRS_H

#include <algorithm>
#include <string>

#include "UtlString.h"

#include "support/FencedBuffer.h"
#include "support/PlainStrings.h"

namespace test {

struct StringInput {
    std::string s;
    std::string held;  // what a buffer holds before
    std::string key;   // to look for in either
    std::string other;
    unsigned long size;
    unsigned long pos;
    unsigned long dstPos;
    unsigned long count;
    int trunc;
};

// Whether both do the same with `size` bytes that hold `text`.
template <typename Plain, typename Tested>
bool storesTheSame(unsigned long size, std::string const& text, Plain plainly, Tested tested) {
    FencedBuffer dst(size, text);
    plain::Buffer buffer(size, text);
    unsigned long const used = plainly(buffer);
    return tested(dst.data()) == used && dst.fencesIntact() &&
           (used == utl::NONE || size == 0 || buffer.text() == dst.data());
}

// The first call that differs from its plain form; nullptr if all are the same.
inline char const* findStoringDifference(StringInput const& in) {
    using namespace utl;
    std::string const& s = in.s;
    std::string const& held = in.held;
    unsigned long const size = in.size;
    unsigned long const next = size + 1;
    unsigned long const room = held.size() + 1 + size;
    unsigned long const pos = in.pos;
    unsigned long const count = in.count;
    unsigned long const some = std::max(count, 1UL);
    int const trunc = in.trunc;
    plain::Text const reversed = plain::reverse(s);
    plain::Text const cut = reversed ? reversed->substr(0, size) : reversed;
    char const* const src = s.c_str();
    // clang-format off
#define COMPARE(size, text, plainly, tested)                                                       \
    if (!storesTheSame(size, text, [&](plain::Buffer& b) { return b.plainly; },                    \
                       [&](char* d) { return tested; })) {                                         \
        return #tested;                                                                            \
    }
    COMPARE(room, held, copy(in.dstPos, s, pos, count, trunc), copyGeneral(d, room, in.dstPos, src, pos, count, trunc))
    COMPARE(size, "", copy(0, s, 0, count, trunc), copyStr(d, size, src, count, trunc))
    COMPARE(next, "", copy(0, s, 0, some, WHOLE), t_strncpy(d, next, src, some))
    COMPARE(room, held, combine({}, true, s, count, trunc), combineStr(d, room, d, src, count, trunc))
    COMPARE(size, "", combine(held, false, s, count, trunc), combineStr(d, size, held.c_str(), src, count, trunc))
    COMPARE(size, "", erase(s, pos, count, trunc), eraseStrSpan(d, size, src, pos, count, trunc))
    COMPARE(s.size() + 1, s, erase(s, pos, count, WHOLE), eraseStrSpan(d, pos, count))
    COMPARE(room, held, replace(held, in.key, in.other, trunc), replaceStr(d, room, in.key.c_str(), in.other.c_str(), trunc))
    COMPARE(room, held, copy(0, plain::truncate(held, pos), 0, ALL, WHOLE), truncateStr(d, pos))
    COMPARE(next, "", copy(0, reversed, 0, ALL, WHOLE), reverseStr(d, next, src, WHOLE))
    COMPARE(next, "", copy(0, cut, 0, ALL, WHOLE), t_strrev(d, next, src, TRUNCATE))
#undef COMPARE
    // clang-format on
    return nullptr;
}

// The same for the functions that search and compare.
inline char const* findSearchingDifference(StringInput const& in) {
    using namespace utl;
    auto const sign = [](int order) { return (order > 0) - (order < 0); };
    std::string const& s = in.s;
    unsigned long const n = in.pos;
    char const* const src = s.c_str();
    char const* const key = in.key.c_str();
    char const* const other = in.other.c_str();
    unsigned long end = 0;
    unsigned long plainEnd = 0;
    // clang-format off
#define COMPARE(plainly, tested)                                                                   \
    if (plain::plainly != tested || plainEnd != end) {                                             \
        return #tested;                                                                            \
    }
    COMPARE(nearIndex(s, n, 1), getNearCharIndex(src, n, 1))
    COMPARE(nearIndex(s, n, 0), getNearCharIndex(src, n, 0))
    COMPARE(span(s, in.other, false), t_strspn(src, other))
    COMPARE(span(s, in.other, true), t_strcspn(src, other))
    COMPARE(find(s, in.key, n, &plainEnd), findStr(src, key, n, &end))
    COMPARE(findToken(s, in.other, n, &plainEnd), findToken(src, other, n, &end))
    COMPARE(findReverse(s, in.key, n, &plainEnd), findReverseStr(src, key, n, &end))
    COMPARE(compare(s, in.held, n), sign(compareStr(src, in.held.c_str(), n)))
    COMPARE(compareNoCase(s, in.held, n), sign(compareStrNoCase(src, in.held.c_str(), n)))
#undef COMPARE
    // clang-format on
    return nullptr;
}

}  // namespace test

#endif  // UTL_TESTS_SUPPORT_STRING_PAIRS_H
