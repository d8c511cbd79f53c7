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
            bool const isAscii = utl::t_strlen(row->first.narrow) == 1;
            mTable.push_back(isAscii ? utl::PairAttrib{row->second, lower(row->first)} : *row);
        }
        for (auto const* row = utl::LOWER_UPPER_PAIR; row->first.narrow != nullptr; ++row) {
            if (utl::t_strlen(row->first.narrow) == 1) {
                mTable.push_back({row->second, row->first});
            }
        }
        mTable.push_back({});
    }

    // In place. No text grows by it.
    void normalize(char* text, unsigned long size) const {
        utl::convertAttrib(text, size, text, mTable.data(), 0, utl::TRUNCATE);
    }

private:
    static utl::DualText lower(utl::DualText const& letter) {
        unsigned long const row = utl::hasPair(letter.narrow, utl::LOWER_UPPER_PAIR, 1);
        return row != utl::NONE ? utl::LOWER_UPPER_PAIR[row].first : letter;
    }

    std::vector<utl::PairAttrib> mTable;
};

// Counts the words of a text that comes in pieces, which may cut one.
class WordCounter {
public:
    void begin() { mIsInWord = false; }

    // The words that begin in `text`.
    std::uint32_t count(char const* text) {
        std::uint32_t words = 0;
        while (*text != '\0') {
            unsigned long const blank = utl::t_strspn(text, BLANKS);
            text += blank;
            if (*text == '\0') {
                mIsInWord = false;
                return words;
            }
            words += blank != 0 || !mIsInWord ? 1 : 0;
            mIsInWord = true;
            text += utl::t_strcspn(text, BLANKS);
        }
        return words;
    }

private:
    static constexpr char BLANKS[] = " \t\n";

    bool mIsInWord = false;
};

// Of well-formed text, without line ends.
inline std::uint32_t countCharacters(char const* text) {
    std::uint32_t characters = 0;
    for (; *text != '\0'; ++text) {
        bool const isContinuation = (static_cast<unsigned char>(*text) & 0xC0) == 0x80;
        characters += isContinuation || *text == '\n' ? 0 : 1;
    }
    return characters;
}

#endif  // TEXTINTAKE_TEXT_H
