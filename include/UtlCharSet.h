// Conversion between Shift_JIS, UTF-8 and UTF-16, and between UTF-16 units and bytes.
//
//     char title[128];
//     if (convertStrFromSjisToUtf8(title, sizeof title, field) == NONE) {
//         // no room for all of it
//     }
//
// Narrow text is UTF-8; Shift_JIS only comes in, so nothing converts to it. It is Microsoft's code
// page 932: a lead byte (0x81 to 0x9F, 0xE0 to 0xEF, 0xFA to 0xFC) makes a pair with the byte after
// it, and 0xA1 to 0xDF are half-width katakana. All other bytes are passed through: ASCII, but also
// 0x80, 0xA0, 0xF0 to 0xF9 (the user-defined area is not supported) and 0xFD to 0xFF. A pair that
// the code page does not know is an unknown one; so is, with 1 byte, a lead byte right before the
// terminator.
//
// `size` counts the bytes of `dst`, `units` its UTF-16 units. Nothing is ever cut to fit: for lack
// of room the result is NONE, as for a null `src`. A size of 0 asks for what would be needed and
// writes nothing; with any other, a null `dst` is NONE too. A Str function reads up to the
// terminator of `src`, and its result includes a terminator where nothing else is said; what a
// failure leaves in `dst` is not said. `dst` and `src` do not overlap. `consumed` and `byteOrder`
// may be null.
//
// No function allocates or logs, and any thread may call them.

#ifndef UTL_CHAR_SET_H
#define UTL_CHAR_SET_H

#include "UtlApi.h"

namespace utl {

// From Shift_JIS.

// Stores the first character, 1 to 3 bytes, and returns how many; an unknown pair is one byte 0,
// and a byte that is passed through stays that byte, UTF-8 or not. `consumed` gets the bytes that
// it takes in `src`, also where there is no room to store it; the terminator takes 1.
UTL_API unsigned long convertCharFromSjisToUtf8(char* dst, unsigned long size, char const* src,
                                                unsigned long* consumed);

// An unknown pair becomes "*".
UTL_API unsigned long convertStrFromSjisToUtf8(char* dst, unsigned long size, char const* src);

// Stores the first character as one unit, 0 for an unknown pair. Returns 1, but 2 for a byte that
// is passed through; NONE for a null `dst` too.
UTL_API unsigned long convertCharFromSjisToUtf16(unsigned short* dst, char const* src,
                                                 unsigned long* consumed);

// An unknown pair becomes the reference mark, U+203B.
UTL_API unsigned long convertStrFromSjisToUtf16(unsigned short* dst, unsigned long units,
                                                char const* src);

// Between UTF-16 and UTF-8.

// Stores 1 to 3 bytes and returns how many. A byte order mark is not stored and returns 0:
// `byteOrder` becomes 1 for U+FEFF, and 2 for 0xFFFE, the mark with its bytes swapped; for other
// units it stays as it is. A surrogate is stored as 3 bytes of its own.
UTL_API unsigned long convertCharFromUtf16ToUtf8(char* dst, unsigned long size, unsigned short unit,
                                                 int* byteOrder);

// Leaves out byte order marks. Each settles whether the units that follow it are swapped.
UTL_API unsigned long convertStrFromUtf16ToUtf8(char* dst, unsigned long size,
                                                unsigned short const* src);

// Stores the first character as one unit, a byte order mark as U+FEFF, and returns 1. NONE also for
// a null `dst`, at the end of the text, for a malformed character and for one of 4 bytes;
// `consumed` is then left alone.
UTL_API unsigned long convertCharFromUtf8ToUtf16(unsigned short* dst, char const* src,
                                                 unsigned long* consumed);

// A character of 4 bytes becomes the reference mark, U+203B. An overlong or incomplete character
// ends the text. NONE also for a byte that cannot begin a character.
UTL_API unsigned long convertStrFromUtf8ToUtf16(unsigned short* dst, unsigned long units,
                                                char const* src);

// From the character set of the library to itself: copyStr() of the whole text.
UTL_API unsigned long convertCharSet(char* dst, unsigned long size, char const* src);

// Between units and bytes, without terminators: two bytes for each unit, the high one first if
// `bigEndian` is 1, the low one first for any other value.

// Stores the units before the terminator, `count` at most. Returns the bytes.
UTL_API unsigned long convertStrFromDcharToUint8(unsigned char* dst, unsigned long size,
                                                 unsigned short const* src, unsigned long count,
                                                 int bigEndian);

// Stores as many units as `bytes` make, and returns that. NONE also for an odd number.
UTL_API unsigned long convertBinFromUint8ToDchar(unsigned short* dst, unsigned long units,
                                                 unsigned char const* src, unsigned long bytes,
                                                 int bigEndian);

}  // namespace utl

#endif  // UTL_CHAR_SET_H
