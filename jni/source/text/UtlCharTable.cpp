#include "UtlCharTable.h"

#include <array>
#include <cstdint>

#include "UtlString.h"

#include "text/UtlAppender.h"
#include "text/UtlUtf8.h"

namespace utl {
namespace {

// The text of a row that is looked for.
char const* sourceText(PairAttrib const& row, int reverse) {
    char const* const text = reverse != 0 ? row.second.narrow : row.first.narrow;
    return text != nullptr ? text : &EMPTY_CHAR;
}

// The text of a row that takes its place.
char const* targetText(PairAttrib const& row, int reverse) {
    return reverse != 0 ? row.first.narrow : row.second.narrow;
}

// An empty `start` begins no text: a conversion would never get past such a match.
bool beginsWith(char const* text, char const* start) {
    if (*start == '\0') {
        return false;
    }
    while (*start != '\0' && *text == *start) {
        ++text;
        ++start;
    }
    return *start == '\0';
}

// hasPair() for many texts and one table. To look through 184 rows for every character can cost
// fifty times as much as all the rest of a conversion. So the rows are chained by the low byte of
// the code point that their text begins with, which pays from about eight characters on.
class RowIndex {
public:
    RowIndex(PairAttrib const* table, int reverse);

    // What hasPair() returns for `text`, which begins with a character of this code point.
    unsigned long find(char const* text, std::uint32_t codePoint) const;

    // The same among the rows that are in no chain, for any text.
    unsigned long findUnchained(char const* text) const;

private:
    static constexpr std::uint8_t END = 0xFF;

    PairAttrib const* const mTable;
    int const mReverse;
    unsigned long mChained = 0;  // rows in the chains; those behind them are not
    bool mIsAllChained = false;
    std::array<bool, 256> mPages = {};     // whether code points with this second byte begin a row
    std::array<std::uint8_t, 256> mFirst;  // by slot
    std::array<std::uint8_t, END> mNext;   // by row
    std::array<std::uint32_t, END> mStarts;  // by row, the code point that its text begins with
};

// Stops at the row that the chains have no number for, or whose text begins with no character: a
// piece of one may begin texts of any slot.
RowIndex::RowIndex(PairAttrib const* table, int reverse) : mTable(table), mReverse(reverse) {
    std::array<std::uint8_t, 256> last;
    mFirst.fill(END);
    while (table != nullptr && table[mChained].first.narrow != nullptr && mChained < END) {
        char const* const text = sourceText(table[mChained], reverse);
        unsigned long const bytes = utf8::charBytes(text);
        if (bytes == 0 || bytes == NONE) {
            break;
        }
        std::uint8_t const row = static_cast<std::uint8_t>(mChained);  // below END
        mStarts[row] = utf8::codePoint(text, bytes);
        mPages[mStarts[row] >> 8 & 0xFF] = true;
        mNext[row] = END;
        std::uint32_t const slot = mStarts[row] & 0xFF;
        std::uint8_t& link = mFirst[slot] == END ? mFirst[slot] : mNext[last[slot]];
        link = last[slot] = row;
        ++mChained;
    }
    mIsAllChained = table == nullptr || table[mChained].first.narrow == nullptr;
}

unsigned long RowIndex::find(char const* text, std::uint32_t codePoint) const {
    bool const isPossible = mPages[codePoint >> 8 & 0xFF];
    for (std::uint8_t row = isPossible ? mFirst[codePoint & 0xFF] : END; row != END;
         row = mNext[row]) {
        if (mStarts[row] == codePoint && beginsWith(text, sourceText(mTable[row], mReverse))) {
            return row;
        }
    }
    return mIsAllChained ? NONE : findUnchained(text);
}

unsigned long RowIndex::findUnchained(char const* text) const {
    unsigned long const behind = hasPair(text, mTable + mChained, mReverse);
    return behind == NONE ? NONE : mChained + behind;
}

}  // namespace

unsigned long hasPair(char const* text, PairAttrib const* table, int reverse) {
    if (text == nullptr || table == nullptr) {
        return NONE;
    }
    for (unsigned long row = 0; table[row].first.narrow != nullptr; ++row) {
        if (beginsWith(text, sourceText(table[row], reverse))) {
            return row;
        }
    }
    return NONE;
}

unsigned long convertAttrib(char* dst, unsigned long size, char const* src, PairAttrib const* table,
                            int reverse, int trunc) {
    if (src == nullptr) {
        return NONE;
    }
    WorkingBuffer<char> source;
    if (copyStr<char>(source, WorkingBuffer<char>::SIZE, src, ALL, WHOLE) == NONE) {
        return NONE;
    }

    RowIndex const rows(table, reverse);
    Appender converted(dst, size, trunc);
    char const* kept = source;  // characters as far as `rest` are still to be stored
    for (char const* rest = source;;) {
        unsigned long const bytes = utf8::charBytes(rest);
        bool const isCharacter = bytes != 0 && bytes != NONE;
        unsigned long const row =
            isCharacter ? rows.find(rest, utf8::codePoint(rest, bytes)) : rows.findUnchained(rest);
        if (row == NONE && isCharacter) {
            rest += bytes;
            continue;
        }
        if (!converted.appendEach(kept, static_cast<unsigned long>(rest - kept))) {
            return NONE;
        }
        if (row == NONE) {
            return converted.finish("");
        }
        char const* const target = targetText(table[row], reverse);
        if (target == nullptr || !converted.append(target, t_strlen(target))) {
            return NONE;
        }
        kept = rest += t_strlen(sourceText(table[row], reverse));
    }
}

}  // namespace utl
