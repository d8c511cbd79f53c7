// Internal. A text to look for in others, as long as nobody changes it.

#ifndef UTL_TEXT_PATTERN_H
#define UTL_TEXT_PATTERN_H

#include "UtlApi.h"

namespace utl {

// The C library finds one byte many times as fast as a text: so that byte of the pattern is looked
// for which is the least common in texts, and the rest where it stands.
class Pattern {
public:
    // `text` is not empty.
    explicit Pattern(char const* text);

    // The first match in `s` that starts on a character, and where it ends; nullptr without one.
    char const* findIn(char const* s, char const** end) const;

private:
    char const* findBytes(char const* s, char const** end) const;
    char const* findTheRest(char const* s, char const** end) const;
    unsigned long equalBytes(char const* s) const;

    char const* const mText;
    unsigned long const mRare;  // the index of that byte
};

}  // namespace utl

#endif  // UTL_TEXT_PATTERN_H
