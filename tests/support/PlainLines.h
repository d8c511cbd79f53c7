// Walks through a file in their plainest form, one character or byte and several system calls at a
// time: what the library's are compared with, by what they give and by the time they take.

#ifndef UTL_TESTS_SUPPORT_PLAIN_LINES_H
#define UTL_TESTS_SUPPORT_PLAIN_LINES_H

#include <string>

#include "UtlCharSet.h"
#include "UtlFile.h"
#include "UtlString.h"

namespace plain {

using utl::File;

// The bytes of the next character of the file; what is none counts one, or what is left of a unit.
inline std::string nextCharacter(File& file, int textType) {
    char bytes[7] = {};
    long const got = file.read(bytes, textType < File::UTF16_HIGH_FIRST ? 6 : 2);
    if (got <= 0) {
        return {};
    }
    unsigned long size = static_cast<unsigned long>(got);
    if (textType == File::SHIFT_JIS) {
        utl::convertCharFromSjisToUtf8(nullptr, 0, bytes, &size);
    } else if (textType == File::UTF8) {
        size = utl::strCharBytesBase(bytes);
        size = size == 0 || size == utl::NONE ? 1 : size;
    }
    file.seek(static_cast<long>(size) - got, File::FROM_CURRENT);
    return std::string(bytes, size);
}

struct Line {
    unsigned long size;
    unsigned long endSize;
};

inline Line nextLine(File& file, int textType) {
    std::string const before(textType == File::UTF16_HIGH_FIRST ? 1 : 0, '\0');
    std::string const behind(textType == File::UTF16_LOW_FIRST ? 1 : 0, '\0');
    std::string const cr = before + "\r" + behind;
    std::string const lf = before + "\n" + behind;

    Line line = {0, 0};
    std::string c = nextCharacter(file, textType);
    for (; !c.empty() && c != lf; c = nextCharacter(file, textType)) {
        line = c == cr ? Line{line.size, line.endSize + c.size()}
                       : Line{line.size + line.endSize + c.size(), 0};
    }
    line.endSize += c.size();
    return line;
}

inline unsigned long long seekKey(File& file, std::string const& key, unsigned long long from,
                                  unsigned long long range, int mode) {
    long long const begin = file.position();
    if (from != File::CURRENT) {
        file.seek(static_cast<long long>(from), File::FROM_START);
    }
    unsigned long matched = 0;
    char byte = 0;
    for (unsigned long long left = range; left != 0 && file.read(&byte, 1) == 1; --left) {
        matched = byte == key[matched] ? matched + 1 : 0;
        if (matched == key.size()) {
            long long const back = mode == 1 ? 0 : static_cast<long long>(key.size());
            return static_cast<unsigned long long>(file.seek(-back, File::FROM_CURRENT));
        }
    }
    file.seek(begin, File::FROM_START);
    return File::NOT_FOUND;
}

}  // namespace plain

#endif  // UTL_TESTS_SUPPORT_PLAIN_LINES_H
