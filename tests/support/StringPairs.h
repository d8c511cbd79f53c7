// The string functions, each beside its plain form, on texts of any kind, well-formed or not.

#ifndef UTL_TESTS_SUPPORT_STRING_PAIRS_H
#define UTL_TESTS_SUPPORT_STRING_PAIRS_H

#include <algorithm>
#include <string>

#include "UtlString.h"

#include "support/FencedBuffer.h"
#include "support/PlainStrings.h"

namespace test {

// Whether both do the same with `size` bytes that hold `text`.
template <typename Plain, typename Tested>
bool storesTheSame(unsigned long size, std::string const& text, Plain plainly, Tested tested) {
    FencedBuffer dst(size, text);
    plain::Buffer buffer(size, text);
    unsigned long const used = plainly(buffer);
    return tested(dst.data()) == used && dst.fencesIntact() &&
           (used == utl::NONE || size == 0 || buffer.text() == dst.data());
}

// What the functions are given.
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

    // The first call that differs from its plain form; nullptr if all are the same.
    char const* storingDifference() const;

    // The same for the functions that search and compare.
    char const* searchingDifference() const;
};

inline char const* StringInput::storingDifference() const {
    using namespace utl;
    unsigned long const next = size + 1;
    unsigned long const room = held.size() + 1 + size;
    unsigned long const some = std::max(count, 1UL);
    plain::Text const reversed = plain::reverse(s);
    plain::Text const cut = reversed ? reversed->substr(0, size) : reversed;
    char const* const src = s.c_str();
    // clang-format off
#define COMPARE(size, text, plainly, tested)                                                       \
    if (!storesTheSame(size, text, [&](plain::Buffer& b) { return b.plainly; },                    \
                       [&](char* d) { return tested; })) {                                         \
        return #tested;                                                                            \
    }
    COMPARE(room, held, copy(dstPos, s, pos, count, trunc), copyGeneral(d, room, dstPos, src, pos, count, trunc))
    COMPARE(size, "", copy(0, s, 0, count, trunc), copyStr(d, size, src, count, trunc))
    COMPARE(next, "", copy(0, s, 0, some, WHOLE), t_strncpy(d, next, src, some))
    COMPARE(room, held, combine({}, true, s, count, trunc), combineStr(d, room, d, src, count, trunc))
    COMPARE(size, "", combine(held, false, s, count, trunc), combineStr(d, size, held.c_str(), src, count, trunc))
    COMPARE(size, "", erase(s, pos, count, trunc), eraseStrSpan(d, size, src, pos, count, trunc))
    COMPARE(s.size() + 1, s, erase(s, pos, count, WHOLE), eraseStrSpan(d, pos, count))
    COMPARE(room, held, replace(held, key, other, trunc), replaceStr(d, room, key.c_str(), other.c_str(), trunc))
    COMPARE(room, held, copy(0, plain::truncate(held, pos), 0, ALL, WHOLE), truncateStr(d, pos))
    COMPARE(next, "", copy(0, reversed, 0, ALL, WHOLE), reverseStr(d, next, src, WHOLE))
    COMPARE(next, "", copy(0, cut, 0, ALL, WHOLE), t_strrev(d, next, src, TRUNCATE))
#undef COMPARE
    // clang-format on
    return nullptr;
}

inline char const* StringInput::searchingDifference() const {
    using namespace utl;
    auto const sign = [](int order) { return (order > 0) - (order < 0); };
    char const* const src = s.c_str();
    unsigned long end = 0;
    unsigned long plainEnd = 0;
    // clang-format off
#define COMPARE(plainly, tested)                                                                   \
    if (plain::plainly != tested || plainEnd != end) {                                             \
        return #tested;                                                                            \
    }
    COMPARE(nearIndex(s, pos, 1), getNearCharIndex(src, pos, 1))
    COMPARE(nearIndex(s, pos, 0), getNearCharIndex(src, pos, 0))
    COMPARE(span(s, other, false), t_strspn(src, other.c_str()))
    COMPARE(span(s, other, true), t_strcspn(src, other.c_str()))
    COMPARE(find(s, key, pos, &plainEnd), findStr(src, key.c_str(), pos, &end))
    COMPARE(findToken(s, other, pos, &plainEnd), findToken(src, other.c_str(), pos, &end))
    COMPARE(findReverse(s, key, pos, &plainEnd), findReverseStr(src, key.c_str(), pos, &end))
    COMPARE(compare(s, held, pos), sign(compareStr(src, held.c_str(), pos)))
    COMPARE(compareNoCase(s, held, pos), sign(compareStrNoCase(src, held.c_str(), pos)))
#undef COMPARE
    // clang-format on
    return nullptr;
}

}  // namespace test

#endif  // UTL_TESTS_SUPPORT_STRING_PAIRS_H
