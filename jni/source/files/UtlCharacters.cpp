#include "files/UtlCharacters.h"

#include <cstdint>
#include <cstring>

#include "text/UtlUtf8.h"

namespace utl {

namespace {

constexpr unsigned WORD_BYTES = 8;
constexpr std::uint64_t EACH_BYTE = 0x0101010101010101;

// Eight bytes, the first one lowest.
std::uint64_t loadWord(char const* s) {
    constexpr bool IS_LOWEST_FIRST = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
    std::uint64_t word;
    std::memcpy(&word, s, sizeof word);
    return IS_LOWEST_FIRST ? word : __builtin_bswap64(word);
}

// The high bits of bytes that are no characters of ASCII, or terminators: bit 7 is set in them, or
// becomes so where 1 is taken away. What is behind the first one may be set wrongly.
std::uint64_t marksOfOthers(std::uint64_t word) {
    return (word | (word - EACH_BYTE)) & (0x80 * EACH_BYTE);
}

// Whether it begins with a character of three bytes. An overlong one has none of the bits 0 to 3 of
// its first byte, and not bit 5 of its second one.
bool isOfThreeBytes(std::uint64_t word) {
    return (word & 0xC0C0F0) == 0x8080E0 && (word & 0x200F) != 0;
}

// With two of them, as most of Japanese text.
bool isTwoOfThreeBytes(std::uint64_t word) {
    constexpr std::uint64_t BOTH = 1 + (std::uint64_t{1} << 24);
    return (word & 0xC0C0F0 * BOTH) == 0x8080E0 * BOTH && (word & 0x200F) != 0 &&
           (word & std::uint64_t{0x200F} << 24) != 0;
}

// The bytes of the characters that it begins with, as far as they are told at a glance. 0 for those
// that take a closer look.
unsigned charactersIn(std::uint64_t word) {
    if (isOfThreeBytes(word)) {
        return 3;
    }
    std::uint64_t const others = marksOfOthers(word);
    return others == 0 ? WORD_BYTES : static_cast<unsigned>(__builtin_ctzll(others)) / 8;
}

// Copies text to where it never gets ahead of its source, so that there is room for as many bytes
// as the source has left.
class CharacterCopy {
public:
    CharacterCopy(char* dst, char const* src, unsigned long size)
        : mDstBegin(dst), mSrcBegin(src), mEnd(src + size), mDst(dst), mSrc(src) {}

    // The end of what was stored.
    char* run() {
        do {
            copyWords();
        } while (!copyLastWord() && copyCharacter());
        return mDst;
    }

private:
    // The first two cases are in the third: they go on without waiting for what a word amounts to.
    void copyWords() {
        while (mEnd - mSrc >= long{WORD_BYTES}) {
            std::uint64_t const word = loadWord(mSrc);
            std::memcpy(mDst, mSrc, WORD_BYTES);  // however much of it counts
            if (isTwoOfThreeBytes(word)) {
                goOn(6);
            } else if (marksOfOthers(word) == 0) {
                goOn(WORD_BYTES);
            } else if (unsigned const bytes = charactersIn(word)) {
                goOn(bytes);
            } else {
                return;
            }
        }
    }

    // The last few bytes of a text that lacks nothing so far, together with those before.
    bool copyLastWord() {
        unsigned const left = static_cast<unsigned>(mEnd - mSrc);
        bool const isBehindWord =
            mEnd - mSrc < long{WORD_BYTES} && mSrc != mEnd && mSrc - mSrcBegin >= long{WORD_BYTES};
        if (!isBehindWord || mSrc - mSrcBegin != mDst - mDstBegin) {
            return false;
        }
        std::uint64_t word = loadWord(mEnd - WORD_BYTES) >> 8 * (WORD_BYTES - left);
        for (unsigned at = 0, bytes; at < left; at += bytes, word >>= 8 * bytes) {
            bytes = charactersIn(word);  // below WORD_BYTES: there is a 0 in it by now
            if (bytes == 0) {
                return false;
            }
        }
        std::memcpy(mDst + left - WORD_BYTES, mEnd - WORD_BYTES, WORD_BYTES);
        mDst += left;
        return true;
    }

    // Steps over a byte that begins none. False at the end.
    bool copyCharacter() {
        if (mSrc == mEnd || *mSrc == '\0') {
            return false;
        }
        unsigned long const left = static_cast<unsigned long>(mEnd - mSrc);
        unsigned long const bytes = utf8::bytesFromLead(*mSrc);
        if (bytes == 0 || bytes > left || !utf8::isValid(mSrc, bytes)) {
            ++mSrc;
            return true;
        }
        for (unsigned long i = 0; i < bytes; ++i) {
            mDst[i] = mSrc[i];
        }
        goOn(bytes);
        return true;
    }

    void goOn(unsigned long bytes) {
        mSrc += bytes;
        mDst += bytes;
    }

    char* const mDstBegin;
    char const* const mSrcBegin;
    char const* const mEnd;
    char* mDst;
    char const* mSrc;
};

}  // namespace

unsigned long copyCharacters(char* dst, char const* src, unsigned long size) {
    char* const end = CharacterCopy(dst, src, size).run();
    *end = '\0';
    return static_cast<unsigned long>(end - dst) + 1;
}

}  // namespace utl
