// Internal. The Shift_JIS of Microsoft's code page 932, as far as it is converted: its half-width
// katakana and its pairs, the user-defined area left out.

#ifndef UTL_TEXT_CODE_PAGE_932_H
#define UTL_TEXT_CODE_PAGE_932_H

#include <cstdint>

namespace utl {
namespace codepage932 {

constexpr unsigned LEADS = 50;
constexpr unsigned TRAILS = 189;
constexpr unsigned FIRST_TRAIL = 0x40;

// The code points of the pairs by lead byte, the three ranges of isLead() one after another, and by
// trail byte from FIRST_TRAIL on. 0 where there is no such pair.
extern std::uint16_t const PAIRS[LEADS][TRAILS];

// 0xF0 to 0xF9, which begin the pairs of the user-defined area elsewhere, are no lead bytes here.
inline bool isLead(unsigned char c) {
    return (c >= 0x81 && c <= 0x9F) || (c >= 0xE0 && c <= 0xEF) || (c >= 0xFA && c <= 0xFC);
}

inline bool isKatakana(unsigned char c) {
    return c >= 0xA1 && c <= 0xDF;
}

inline std::uint16_t codePointOfKatakana(unsigned char katakana) {
    return static_cast<std::uint16_t>(0xFF61 + (katakana - 0xA1));
}

// 0 for a pair that the code page does not know, whatever its second byte is.
inline std::uint16_t codePointOfPair(unsigned char lead, unsigned char trail) {
    unsigned const row = lead < 0xE0   ? lead - 0x81u
                         : lead < 0xFA ? lead - 0xE0u + 31  // behind those of 0x81 to 0x9F
                                       : lead - 0xFAu + 47;
    unsigned const column = trail - FIRST_TRAIL;  // wraps below FIRST_TRAIL
    return column < TRAILS ? PAIRS[row][column] : std::uint16_t{0};
}

}  // namespace codepage932
}  // namespace utl

#endif  // UTL_TEXT_CODE_PAGE_932_H
