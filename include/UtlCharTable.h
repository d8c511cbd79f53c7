// The character classes of Japanese text, and the pairs that lead from one form of a text to
// another: lower and upper case, half and full width, voiced and unvoiced, katakana and hiragana.
//
//     char line[256];
//     convertAttrib(line, sizeof line, input, HANKAKU_ZENKAKU_PAIR, 0, TRUNCATE);
//     if (hasPair(line, ZENKATA_HIRAGANA_PAIR, 0) != NONE) {
//         // the line begins with a katakana
//     }
//
// The tables are constants: usable by any thread, and from any static constructor or destructor.

#ifndef UTL_CHAR_TABLE_H
#define UTL_CHAR_TABLE_H

#include "UtlApi.h"

namespace utl {

// One text in a narrow and a wide form.
template <typename Narrow, typename Wide>
struct DualType {
    Narrow narrow;
    Wide wide;
};

// UTF-8, and one wchar_t for each character.
using DualText = DualType<char const*, wchar_t const*>;

// One row of a pair table.
struct PairAttrib {
    DualText first;
    DualText second;
};

// The index of the first row of which one member (`first`, or `second` when `reverse` is not 0)
// begins `text` in its narrow form. NONE when there is no such row, as for a null text or table.
// The table is closed by a row whose `first.narrow` is null; a row whose text is empty or null
// never matches.
UTL_API unsigned long hasPair(char const* text, PairAttrib const* table, int reverse);

// Writes `src` to `dst`, with every text that hasPair() finds replaced by the other member of its
// row; from left to right, and what was put in is not looked at again. All other characters stay
// as they are; a malformed one ends the text. `dst` may be `src`, but not the third WorkingBuffer
// that the thread holds, which this would share.
//
// Returns the bytes used, terminator included; for a `size` of 0 those that would be needed. NONE
// for a null `src`, for one that a WorkingBuffer cannot hold, for a null `dst`, and for lack of
// room, which leaves `dst` undefined; unless `trunc` is TRUNCATE, which leaves out every character
// that finds no room, but not the shorter ones behind it. Blocks while another thread holds a
// WorkingBuffer.
UTL_API unsigned long convertAttrib(char* dst, unsigned long size, char const* src,
                                    PairAttrib const* table, int reverse, int trunc);

// The classes. HAN is half width, ZEN full width. Every element is one character, if nothing else
// is said; the one after the last has two null pointers.

extern UTL_API DualText const KAIGYO_TBL[];     // line breaks: CR, LF
extern UTL_API DualText const TAB_FF_TBL[];     // tab, vertical tab, form feed
extern UTL_API DualText const CTL_OTHER_TBL[];  // all other ASCII controls but the terminator

// The space, and the ideographic one.
extern UTL_API DualText const HAN_SPACE_TBL[];
extern UTL_API DualText const ZEN_SPACE_TBL[];

// The ASCII punctuation and, element for element, its full-width forms: of the backslash the yen
// sign U+FFE5, of the quotes U+201D and U+2019, of the tilde the macron U+FFE3.
extern UTL_API DualText const HAN_MARK_TBL[];
extern UTL_API DualText const ZEN_MARK_TBL[];

// The digits and what else belongs to numbers, with the full-width forms.
extern UTL_API DualText const HAN_DIGIT_TBL[];
extern UTL_API DualText const ZEN_DIGIT_TBL[];
extern UTL_API DualText const HAN_SIGN_TBL[];  // plus, minus
extern UTL_API DualText const ZEN_SIGN_TBL[];
extern UTL_API DualText const HAN_HEX_PREFIX_TBL[];  // "0x", two characters
extern UTL_API DualText const ZEN_HEX_PREFIX_TBL[];
extern UTL_API DualText const HAN_HEX_SUFFIX_TBL[];  // "H", "h"
extern UTL_API DualText const ZEN_HEX_SUFFIX_TBL[];

// The Latin letters: A to F, which are hexadecimal digits, and G to Z, which are not.
extern UTL_API DualText const LOWER_HAN_HEX_ALPHA_TBL[];
extern UTL_API DualText const LOWER_ZEN_HEX_ALPHA_TBL[];
extern UTL_API DualText const UPPER_HAN_HEX_ALPHA_TBL[];
extern UTL_API DualText const UPPER_ZEN_HEX_ALPHA_TBL[];
extern UTL_API DualText const LOWER_HAN_NOHEX_ALPHA_TBL[];
extern UTL_API DualText const LOWER_ZEN_NOHEX_ALPHA_TBL[];
extern UTL_API DualText const UPPER_HAN_NOHEX_ALPHA_TBL[];
extern UTL_API DualText const UPPER_ZEN_NOHEX_ALPHA_TBL[];

// Kana: NODAKU unvoiced (with the small forms, the long sound and the five marks 。「」、・), DAKU
// voiced, HANDAKU semi-voiced (each with its mark alone). A voiced half-width katakana is two
// characters: the kana and its mark. The full-width tables also hold the iteration marks. The two
// voiced hiragana tables hold the five marks once more: the conversions of kana carry them along.
extern UTL_API DualText const NODAKU_HAN_KATA_TBL[];
extern UTL_API DualText const NODAKU_ZEN_KATA_TBL[];
extern UTL_API DualText const DAKU_HAN_KATA_TBL[];
extern UTL_API DualText const DAKU_ZEN_KATA_TBL[];
extern UTL_API DualText const HANDAKU_HAN_KATA_TBL[];
extern UTL_API DualText const HANDAKU_ZEN_KATA_TBL[];
extern UTL_API DualText const NODAKU_HIRA_TBL[];
extern UTL_API DualText const DAKU_HIRA_TBL[];
extern UTL_API DualText const HANDAKU_HIRA_TBL[];

// The small kana.
extern UTL_API DualText const HAN_KATA_YOUSOKU_TBL[];
extern UTL_API DualText const ZEN_KATA_YOUSOKU_TBL[];
extern UTL_API DualText const HIRA_YOUSOKU_TBL[];

// The voicing and the semi-voicing mark.
extern UTL_API DualText const HAN_DAKUTEN_TBL[];
extern UTL_API DualText const ZEN_DAKUTEN_TBL[];
extern UTL_API DualText const HAN_HANDAKUTEN_TBL[];
extern UTL_API DualText const ZEN_HANDAKUTEN_TBL[];

// The pairs, named FIRST_SECOND_PAIR. Of two `first` texts that begin alike, the longer one comes
// first.
extern UTL_API PairAttrib const LOWER_UPPER_PAIR[];         // Latin letters of either width
extern UTL_API PairAttrib const HANKAKU_ZENKAKU_PAIR[];     // all that has both widths
extern UTL_API PairAttrib const NODAKUON_DAKUON_PAIR[];     // unvoiced and voiced kana
extern UTL_API PairAttrib const NODAKUON_HANDAKUON_PAIR[];  // unvoiced and semi-voiced kana
extern UTL_API PairAttrib const HANKATA_HIRAGANA_PAIR[];    // half-width katakana but ｳﾞ
extern UTL_API PairAttrib const ZENKATA_HIRAGANA_PAIR[];    // full-width katakana but ヴ ヵ ヶ

}  // namespace utl

#endif  // UTL_CHAR_TABLE_H
