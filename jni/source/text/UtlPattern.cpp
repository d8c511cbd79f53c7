#include "text/UtlPattern.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "text/UtlUtf8.h"

namespace utl {
namespace {

// The bytes that Japanese and English texts have most, the most common first. Not what a text has
// exactly counts, but not to look for kana by the bytes that nearly all of them begin with.
constexpr char COMMON_BYTES[] =
    "\xE3\x81\x82\x83 \xE6\xE5\xE4\xE7\xE8\xE9\xEF\xAE\x84\xBC\x80\xAB\x9F\x8B\x92\x8C\xA6\xA7\xA8"
    "etaoinsrhl\x97\xAF\xAA\x99\xBE\x8A\x93\xA3\x8F\xBD\xBF\x86\x88\x8D\xA4\xB3\x89\x95\x87\x85"
    "dcumfpgwybv01\n.,-\x8E\x90\x91\x94\x96\x98\x9A\x9B\x9C\x9D\x9E\xA0\xA1\xA2\xA5\xA9\xAC\xAD"
    "23456789kSTACIM\xC3";

// By byte: more for a more common one, 0 for those that are not named.
constexpr std::array<std::uint8_t, 256> makeFrequencies() {
    std::array<std::uint8_t, 256> frequencies = {};
    std::uint8_t frequency = sizeof COMMON_BYTES - 1;
    for (char const* c = COMMON_BYTES; *c != '\0'; ++c) {
        frequencies[static_cast<unsigned char>(*c)] = frequency--;
    }
    return frequencies;
}

constexpr std::array<std::uint8_t, 256> FREQUENCIES = makeFrequencies();

// Of the first few bytes: to look at more costs more than it gains.
unsigned long rarestOf(char const* text) {
    constexpr unsigned LOOKED_AT = 8;
    unsigned rarest = ~0u;  // its frequency and, below that, its index
    for (unsigned i = 0; i < LOOKED_AT && text[i] != '\0'; ++i) {
        unsigned const frequency = FREQUENCIES[static_cast<unsigned char>(text[i])];
        rarest = std::min(rarest, frequency * LOOKED_AT + i);
    }
    return rarest % LOOKED_AT;
}

// As strstr(), which in some C libraries takes as long as text and pattern multiplied. Piece by
// piece, each twice as long: who goes from match to match does not have all the text measured for
// each.
char const* findLong(char const* s, char const* pattern, unsigned long size) {
    for (unsigned long piece = 2 * size;; piece *= 2) {
        unsigned long const length = utf8::boundedLength(s, piece);
        void const* const match = memmem(s, length, pattern, size);
        if (match != nullptr || length < piece) {
            return static_cast<char const*>(match);
        }
        s += length - (size - 1);
    }
}

}  // namespace

Pattern::Pattern(char const* text) : mText(text), mRare(rarestOf(text)) {}

char const* Pattern::findIn(char const* s, char const** end) const {
    constexpr unsigned long LONGEST_CHARACTER = 4;
    // A match of this one would be turned down below wherever it is.
    if (utf8::charBytes(mText) == NONE &&
        utf8::boundedLength(mText, LONGEST_CHARACTER) == LONGEST_CHARACTER) {
        return nullptr;
    }
    // No byte inside a valid character could start another. So this takes just those matches that
    // a walk from character to character would come across.
    char const* match = findBytes(s, end);
    while (match != nullptr && utf8::charBytes(match) == NONE) {
        match = findBytes(match + 1, end);
    }
    return match;
}

// The first match anywhere.
char const* Pattern::findBytes(char const* s, char const** end) const {
    if (mRare != 0 && utf8::boundedLength(s, mRare) < mRare) {
        return nullptr;
    }
    // For how many bytes strstr() takes as long as this for a miss. It looks for the first two: in
    // Japanese text those of kana stand everywhere, those of words in ASCII do not.
    unsigned long const missCost = utf8::isAscii(mText[0]) ? 128 : 32;
    char const* const begin = s + mRare;
    unsigned long cost = 0;
    for (char const* at = begin; (at = std::strchr(at, mText[mRare])) != nullptr; ++at) {
        char const* const match = at - mRare;
        unsigned long const equal = equalBytes(match);
        if (mText[equal] == '\0') {
            *end = match + equal;
            return match;
        }
        // Where the byte is not rare, the C library is left the rest.
        cost += missCost + equal;
        if (cost > static_cast<unsigned long>(at - begin) + 16 * missCost) {
            return findTheRest(match + 1, end);
        }
    }
    return nullptr;
}

char const* Pattern::findTheRest(char const* s, char const** end) const {
    constexpr unsigned long LONGEST_FOR_STRSTR = 64;
    unsigned long const size = std::strlen(mText);
    char const* const match =
        size <= LONGEST_FOR_STRSTR ? std::strstr(s, mText) : findLong(s, mText, size);
    if (match != nullptr) {
        *end = match + size;
    }
    return match;
}

// How many bytes of the pattern `s` begins with.
unsigned long Pattern::equalBytes(char const* s) const {
    unsigned long n = 0;
    while (mText[n] != '\0' && s[n] == mText[n]) {
        ++n;
    }
    return n;
}

}  // namespace utl
