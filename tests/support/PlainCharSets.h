// The conversions of texts beside what their characters are one by one. A size that was asked for
// is enough and one less is not, and nothing is written outside the destination or read behind a
// terminator. Each returns whether it is so.

#ifndef UTL_TESTS_SUPPORT_PLAIN_CHAR_SETS_H
#define UTL_TESTS_SUPPORT_PLAIN_CHAR_SETS_H

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "UtlCharSet.h"
#include "UtlString.h"

namespace plain {

using Units = std::vector<unsigned short>;

// A copy with a terminator, `shift` units behind the start of the memory, whose end is where that
// of the text is: a look behind the terminator is noticed.
template <typename Unit, typename Text>
std::vector<Unit> terminated(Text const& text, unsigned long shift) {
    std::vector<Unit> units(shift + text.size() + 1);
    std::copy(text.begin(), text.end(), units.begin() + static_cast<long>(shift));
    return units;
}

// Whether a Str function makes `expected` of `src`, or fails if there is nothing to expect.
template <typename Unit, typename Source>
bool converts(unsigned long (*function)(Unit*, unsigned long, Source const*), Source const* src,
              std::optional<std::vector<Unit>> const& expected) {
    unsigned long const needed = function(nullptr, 0, src);
    if (!expected) {
        std::vector<Unit> dst(16384);
        return needed == utl::NONE && function(dst.data(), dst.size(), src) == utl::NONE;
    }
    if (needed != expected->size() + 1) {
        return false;
    }
    std::vector<Unit> dst(needed, '#');  // the last of which is a fence, at first
    bool const isRefused = needed == 1 || function(dst.data(), needed - 1, src) == utl::NONE;
    bool const isFenced = dst.back() == '#';
    bool const isStored = function(dst.data(), needed, src) == needed && dst.back() == 0;
    dst.pop_back();
    return isRefused && isFenced && isStored && dst == *expected;
}

inline bool convertsSjis(std::string const& bytes, unsigned long shift = 0) {
    std::vector<char> const memory = terminated<char>(bytes, shift);
    char const* const src = &memory[shift];
    std::vector<char> utf8;
    Units utf16;
    for (char const* s = src; *s != '\0';) {
        char form[3];
        unsigned long taken = 0;
        unsigned long const length = utl::convertCharFromSjisToUtf8(form, 3, s, &taken);
        utf8.insert(utf8.end(), form, form + length);
        utf8.back() = utf8.back() != '\0' ? utf8.back() : '*';

        unsigned short unit = 0;
        unsigned long alsoTaken = 0;
        if (utl::convertCharFromSjisToUtf16(&unit, s, &alsoTaken) == utl::NONE ||
            alsoTaken != taken) {
            return false;
        }
        utf16.push_back(unit != 0 ? unit : static_cast<unsigned short>(0x203B));
        s += taken;
    }
    return converts<char, char>(utl::convertStrFromSjisToUtf8, src, utf8) &&
           converts<unsigned short, char>(utl::convertStrFromSjisToUtf16, src, utf16);
}

inline bool convertsUtf8(std::string const& bytes, unsigned long shift = 0) {
    std::vector<char> const memory = terminated<char>(bytes, shift);
    char const* const src = &memory[shift];
    Units utf16;
    char const* s = src;
    unsigned long length = utl::strCharBytesBase(s);
    while (length != 0 && length != utl::NONE) {
        unsigned short unit = 0x203B;
        unsigned long taken = 4;
        if ((utl::convertCharFromUtf8ToUtf16(&unit, s, &taken) == 1) != (length < 4) ||
            taken != length) {
            return false;
        }
        utf16.push_back(unit);
        s += length;
        length = utl::strCharBytesBase(s);
    }
    return converts<unsigned short, char>(utl::convertStrFromUtf8ToUtf16, src,
                                          length == 0 ? std::optional(utf16) : std::nullopt);
}

inline bool convertsUtf16(Units const& text, unsigned long shift = 0) {
    std::vector<unsigned short> const memory = terminated<unsigned short>(text, shift);
    unsigned short const* const src = &memory[shift];
    std::vector<char> utf8;
    int order = 1;
    for (unsigned short const* s = src; *s != 0; ++s) {
        char form[3];
        if (utl::convertCharFromUtf16ToUtf8(form, 3, *s, &order) != 0) {
            unsigned const unit = order == 2 ? (*s & 0xFFu) << 8 | *s >> 8 : *s;
            unsigned long const length = utl::convertCharFromUtf16ToUtf8(
                form, 3, static_cast<unsigned short>(unit), nullptr);
            utf8.insert(utf8.end(), form, form + length);
        }
    }
    return converts<char, unsigned short>(utl::convertStrFromUtf16ToUtf8, src, utf8);
}

}  // namespace plain

#endif  // UTL_TESTS_SUPPORT_PLAIN_CHAR_SETS_H
