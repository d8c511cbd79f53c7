// Internal. The Shift_JIS of Microsoft's code page 932, as far as it is converted: its half-width
// katakana and its pairs, the user-defined area left out.

#ifndef UTL_TEXT_CODE_PAGE_932_H
#define UTL_TEXT_CODE_PAGE_932_H

#include <array>
#include <cstdint>

namespace utl {
namespace codepage932 {

constexpr unsigned LEADS = 50;
constexpr unsigned TRAILS = 189;
constexpr unsigned FIRST_TRAIL = 0x40;

// The code points of the pairs by lead byte, the rows one after another, and by
// trail byte from FIRST_TRAIL on. 0 where there is no such pair.
extern std::uint16_t const PAIRS[LEADS][TRAILS];

// By lead byte its row; NO_ROW for other bytes. 0xF0 to 0xF9, which begin the pairs of the
// user-defined area elsewhere, are no lead bytes here.
constexpr std::uint8_t NO_ROW = 0xFF;

constexpr std::array<std::uint8_t, 256> makeRows() {
    std::array<std::uint8_t, 256> rows = {};
    std::uint8_t next = 0;
    for (unsigned c = 0; c < 256; ++c) {
        bool const isLead =
            (c >= 0x81 && c <= 0x9F) || (c >= 0xE0 && c <= 0xEF) || (c >= 0xFA && c <= 0xFC);
        rows[c] = isLead ? next++ : NO_ROW;
    }
    return rows;
}

constexpr std::array<std::uint8_t, 256> ROWS = makeRows();

inline bool isLead(unsigned char c) {
    return ROWS[c] != NO_ROW;
}

inline bool isKatakana(unsigned char c) {
    return c >= 0xA1 && c <= 0xDF;
}

inline std::uint16_t codePointOfKatakana(unsigned char katakana) {
    return static_cast<std::uint16_t>(0xFF61 + (katakana - 0xA1));
}

// 0 for a pair that the code page does not know, whatever its second byte is.
inline std::uint16_t codePointOfPair(unsigned char lead, unsigned char trail) {
    unsigned const column = trail - FIRST_TRAIL;  // wraps below FIRST_TRAIL
    return column < TRAILS ? PAIRS[ROWS[lead]][column] : std::uint16_t{0};
}

}  // namespace codepage932
}  // namespace utl

#endif  // UTL_TEXT_CODE_PAGE_932_H
