// Internal. Text that may hold what is no character, made text that holds nothing else.

#ifndef UTL_CHARACTERS_H
#define UTL_CHARACTERS_H

#include "UtlRawMemory.h"
#include "UtlString.h"

namespace utl {

// Stores the characters of `src`, as many as there is room for, and steps over bytes that begin
// none one at a time. The size with the terminator. `size` must not be 0.
inline unsigned long copyCharacters(char* dst, unsigned long size, char const* src) {
    unsigned long used = 0;
    while (*src != '\0') {
        unsigned long const bytes = strCharBytesBase(src);
        bool const isCharacter = bytes != 0 && bytes != NONE;
        unsigned long const kept = isCharacter ? bytes : 0;
        if (kept >= size - used) {
            break;
        }
        copyMemory(dst + used, src, kept);
        used += kept;
        src += isCharacter ? bytes : 1;
    }
    dst[used] = '\0';
    return used + 1;
}

}  // namespace utl

#endif  // UTL_CHARACTERS_H
