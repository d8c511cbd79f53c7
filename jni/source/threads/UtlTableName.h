// Internal. The names of threads.

#ifndef UTL_TABLE_NAME_H
#define UTL_TABLE_NAME_H

#include "UtlString.h"

namespace utl {

// Whether `copy`, which was made of `name`, found the memory for it.
inline bool holdsName(BasicString<char> const& copy, char const* name) {
    return copy.capacity() > 1 || *name == '\0';
}

// A name as the tables show it: at most 31 bytes, cut at a whole character.
class TableName {
public:
    explicit TableName(char const* name) {
        copyGeneral(mText, sizeof mText, 0, name, 0, ALL, TRUNCATE);
    }

    char const* text() const { return mText; }

private:
    char mText[32] = {};
};

}  // namespace utl

#endif  // UTL_TABLE_NAME_H
