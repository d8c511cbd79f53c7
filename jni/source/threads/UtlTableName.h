// Internal. A name as the tables of threads show it: at most 31 bytes, cut at a whole character.

#ifndef UTL_TABLE_NAME_H
#define UTL_TABLE_NAME_H

#include "UtlString.h"

namespace utl {

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
