// Internal. A path as the operations on files take it: checked, and with slashes only.

#ifndef UTL_NORMAL_PATH_H
#define UTL_NORMAL_PATH_H

#include "UtlString.h"

namespace utl {

// The bytes of the longest path with its terminator.
constexpr unsigned long PATH_SIZE = 260;

// `path` with slashes for backslashes, unchecked. Allocates; empty without memory.
BasicString<char> withSlashes(char const* path);

class NormalPath {
public:
    explicit NormalPath(char const* path);

    // False for null, for a path that is too long, and for one with doubled separators.
    bool isValid() const { return mIsValid; }

    char const* c_str() const { return mText; }

    // Drops separators at the end; a single one that is all there is stays.
    void stripEnd();

private:
    char mText[PATH_SIZE];
    bool mIsValid;
};

// Stores the first `length` bytes of `text`. 0 when there is not room for all of it.
int storePart(char* dst, unsigned long size, char const* text, unsigned long length);

}  // namespace utl

#endif  // UTL_NORMAL_PATH_H
