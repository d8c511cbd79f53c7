#include "UtlCharTable.h"

#include <array>
#include <cstdint>

#include "UtlRawMemory.h"
#include "UtlString.h"

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
// four times as much as all the rest of a conversion. So the rows are chained by the low byte of
// the code point that their text begins with, which pays from about eight characters on.
class RowIndex {
public:
    RowIndex(PairAttrib const* table, int reverse);

    // What hasPair() returns for `text`.
    unsigned long find(char const* text) const;

private:
    static constexpr std::uint8_t END = 0xFF;
    using Rows = std::array<std::uint8_t, 256>;

    static unsigned long slotOf(char const* text);

    PairAttrib const* const mTable;
    int const mReverse;
    unsigned long mChained = 0;  // rows in the chains; those behind them are looked through
    Rows mFirst;                 // by slot
    Rows mNext;                  // by row
};

// Stops at the row that the chains have no number for, or whose text begins with no character: a
// piece of one may begin texts of any slot.
RowIndex::RowIndex(PairAttrib const* table, int reverse) : mTable(table), mReverse(reverse) {
    Rows last;
    mFirst.fill(END);
    mNext.fill(END);
    last.fill(END);
    while (table != nullptr && table[mChained].first.narrow != nullptr && mChained < END) {
        unsigned long const slot = slotOf(sourceText(table[mChained], reverse));
        if (slot == NONE) {
            break;
        }
        std::uint8_t const row = static_cast<std::uint8_t>(mChained);  // below END
        std::uint8_t& link = last[slot] == END ? mFirst[slot] : mNext[last[slot]];
        link = last[slot] = row;
        ++mChained;
    }
}

unsigned long RowIndex::find(char const* text) const {
    unsigned long const slot = slotOf(text);
    if (slot != NONE) {
        for (std::uint8_t row = mFirst[slot]; row != END; row = mNext[row]) {
            if (beginsWith(text, sourceText(mTable[row], mReverse))) {
                return row;
            }
        }
    }
    unsigned long const behind = hasPair(text, mTable + mChained, mReverse);
    return behind == NONE ? NONE : mChained + behind;
}

// The low byte of the first code point; NONE for a text that does not begin with a character.
unsigned long RowIndex::slotOf(char const* text) {
    unsigned long const bytes = utf8::charBytes(text);
    return bytes != 0 && bytes != NONE ? utf8::codePoint(text, bytes) & 0xFF : NONE;
}

using Character = char[5];  // of up to four bytes, with a terminator

// Stores the character that `text` begins with and returns its bytes; 0 where there is none. On
// its own, as a copy out of the text would cut it off too if what follows it is malformed.
unsigned long takeCharacter(char const* text, Character& character) {
    unsigned long const bytes = utf8::charBytes(text);
    if (bytes == NONE) {
        return 0;
    }
    copyMemory(character, text, bytes);
    character[bytes] = '\0';
    return bytes;
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
    Character character;
    unsigned long used = 0;  // without the terminator
    char const* rest = source;
    for (;;) {
        unsigned long const row = rows.find(rest);
        bool const found = row != NONE;
        unsigned long const taken =
            found ? t_strlen(sourceText(table[row], reverse)) : takeCharacter(rest, character);
        if (taken == 0) {
            break;
        }
        // Deliberate: what trunc leaves out for lack of room does not end the walk; something
        // shorter behind it may still be stored, and the results of callers with short buffers show
        // that.
        char const* const piece = found ? targetText(table[row], reverse) : character;
        unsigned long const result = copyGeneral(dst, size, used, piece, 0, ALL, trunc);
        if (result == NONE) {
            return NONE;
        }
        used = result - 1;
        rest += taken;
    }
    // Nothing is written yet where the text is empty or begins with a malformed character.
    return used == 0 ? copyStr(dst, size, "", ALL, WHOLE) : used + 1;
}

}  // namespace utl
