// What textintake does with text.

#ifndef TEXTINTAKE_TEXT_H
#define TEXTINTAKE_TEXT_H

#include <cstdint>
#include <vector>

#include "UtlCharTable.h"
#include "UtlString.h"

// Brings text into one form: kana in full width, ASCII in half width, letters in lower case.
class Normalizer {
public:
    // The library's table of widths holds kana and ASCII; here each goes its own way.
    Normalizer() {
        for (auto const* row = utl::HANKAKU_ZENKAKU_PAIR; row->first.narrow != nullptr; ++row) {
            (utl::t_strlen(row->first.narrow) == 1 ? mAscii : mKana).push_back(*row);
        }
        mKana.push_back({});
        mAscii.push_back({});
    }

    // In place, in a buffer of `size` bytes. What grows beyond it is cut.
    void normalize(char* text, unsigned long size) const {
        utl::convertAttrib(text, size, text, mKana.data(), 0, utl::TRUNCATE);
        utl::convertAttrib(text, size, text, mAscii.data(), 1, utl::TRUNCATE);
        utl::convertAttrib(text, size, text, utl::LOWER_UPPER_PAIR, 1, utl::TRUNCATE);
    }

private:
    std::vector<utl::PairAttrib> mKana, mAscii;
};

inline std::uint32_t countWords(char const* text) {
    std::uint32_t words = 0;
    for (unsigned long at = 0; utl::findToken(text, " \t", at, &at) != utl::NONE;) {
        ++words;
    }
    return words;
}

// Of well-formed text.
inline std::uint32_t countCharacters(char const* text) {
    std::uint32_t characters = 0;
    for (; *text != '\0'; text += utl::t_charlen(text)) {
        ++characters;
    }
    return characters;
}

#endif  // TEXTINTAKE_TEXT_H
