// Internal. The characters of a text as a set to search other texts for.
//
// A large set is turned into bits by code point, so that a search takes time in proportion to the
// text and the set, and not to their product. All code points would be more than a stack can hold:
// the bits are those of one plane of 65536 at a time, and all but rare sets lie in the first.

#ifndef UTL_TEXT_CHARACTER_SET_H
#define UTL_TEXT_CHARACTER_SET_H

#include <string.h>

#include <bitset>
#include <cstdint>

#include "UtlApi.h"

#include "text/UtlUtf8.h"

namespace utl {

class CharacterSet {
public:
    // The characters of `text` up to the first malformed one.
    explicit CharacterSet(char const* text) : mText(text) {
        for (; unsigned long const bytes = bytesAt(mEnd); mEnd += bytes) {
            std::uint32_t const codePoint = utf8::codePoint(mEnd, bytes);
            mPlanes |= planeBit(codePoint);
            mIsAscii = mIsAscii && codePoint < 0x80;
        }
    }

    // The index of the first character of `s` that is in the set, or, if `isMember` is false, that
    // is not; the length of `s` without one. A malformed byte is in no set.
    unsigned long findFirst(char const* s, bool isMember) const {
        if (mIsAscii && *mEnd == '\0') {
            return isMember ? strcspn(s, mText) : strspn(s, mText);
        }
        return mEnd - mText <= FEW_BYTES ? findAmongFew(s, isMember) : findAmongMany(s, isMember);
    }

private:
    static constexpr long FEW_BYTES = 64;  // are looked through one by one
    static constexpr std::uint32_t PLANE_SIZE = 65536;

    // Four bytes go as far as the 32nd plane.
    static std::uint32_t planeBit(std::uint32_t codePoint) { return 1u << codePoint / PLANE_SIZE; }

    // 0 at the end of the set.
    static unsigned long bytesAt(char const* member) {
        unsigned long const bytes = utf8::charBytes(member);
        return bytes != NONE ? bytes : 0;
    }

    // The index of the first character below `limit` that `stops` is true of.
    template <typename Stops>
    static unsigned long walk(char const* s, unsigned long limit, Stops stops) {
        unsigned long index = 0;
        while (index < limit && s[index] != '\0') {
            unsigned long const bytes = utf8::charBytes(s + index);
            if (stops(s + index, bytes)) {
                break;
            }
            index += bytes != NONE ? bytes : 1;
        }
        return index;
    }

    unsigned long findAmongFew(char const* s, bool isMember) const {
        return walk(s, NONE, [this, isMember](char const* c, unsigned long) {
            char const* member = mText;
            while (member != mEnd && strncmp(c, member, bytesAt(member)) != 0) {
                member += bytesAt(member);
            }
            return (member != mEnd) == isMember;
        });
    }

    unsigned long findAmongMany(char const* s, bool isMember) const {
        unsigned long end = NONE;
        for (std::uint32_t planes = mPlanes; planes != 0; planes &= planes - 1) {
            end = findInPlane(s, end, planes & (~planes + 1), isMember);
        }
        return end;
    }

    // What lies in other planes of the set is left to these.
    unsigned long findInPlane(char const* s, unsigned long limit, std::uint32_t plane,
                              bool isMember) const {
        std::bitset<PLANE_SIZE> members;
        for (char const* member = mText; member != mEnd; member += bytesAt(member)) {
            std::uint32_t const codePoint = utf8::codePoint(member, bytesAt(member));
            if (planeBit(codePoint) == plane) {
                members[codePoint % PLANE_SIZE] = true;
            }
        }
        return walk(s, limit, [&](char const* c, unsigned long bytes) {
            std::uint32_t const codePoint = bytes != NONE ? utf8::codePoint(c, bytes) : 0;
            if (bytes == NONE || (mPlanes & planeBit(codePoint)) == 0) {
                return !isMember;
            }
            return planeBit(codePoint) == plane && members[codePoint % PLANE_SIZE] == isMember;
        });
    }

    char const* const mText;
    char const* mEnd = mText;
    std::uint32_t mPlanes = 0;  // a bit for each that has members
    bool mIsAscii = true;
};

}  // namespace utl

#endif  // UTL_TEXT_CHARACTER_SET_H
