// Internal. Text that may hold what is no character, made text that holds nothing else.

#ifndef UTL_CHARACTERS_H
#define UTL_CHARACTERS_H

namespace utl {

// Stores the characters of the `size` bytes at `src`, or of those before a terminator, and steps
// over bytes that begin none one at a time. Returns the size with the terminator: at most
// `size` + 1, which is what `dst` must have room for.
unsigned long copyCharacters(char* dst, char const* src, unsigned long size);

}  // namespace utl

#endif  // UTL_CHARACTERS_H
