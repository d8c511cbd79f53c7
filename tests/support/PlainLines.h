// Walks through a file in their plainest form, one character or byte at a time: what the library's
// are compared with, by what they give and by the time they take. The file may be one in memory.

#ifndef UTL_TESTS_SUPPORT_PLAIN_LINES_H
#define UTL_TESTS_SUPPORT_PLAIN_LINES_H

#include <string>
#include <utility>

#include "UtlCharSet.h"
#include "UtlFile.h"
#include "UtlString.h"

namespace plain {

using utl::File;

// What a File does with these bytes, as far as the walks need it.
class Memory {
public:
    explicit Memory(std::string bytes) : mBytes(std::move(bytes)) {}

    long read(char* dst, unsigned long count) {
        std::string const got = mAt < mBytes.size() ? mBytes.substr(mAt, count) : "";
        mAt += got.copy(dst, got.size());
        return got.empty() ? File::END_OF_FILE : static_cast<long>(got.size());
    }
    long long seek(long long offset, int origin) {
        mAt = (origin == File::FROM_CURRENT ? mAt : 0) + static_cast<unsigned long>(offset);
        return position();
    }
    long long position() const { return static_cast<long long>(mAt); }

private:
    std::string mBytes;
    unsigned long mAt = 0;
};

// The bytes of the next character of the file; what is none counts one, or what is left of a unit.
template <typename Source>
std::string nextCharacter(Source& file, int textType) {
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

// The text of a line of UTF-8: its characters, up to a terminator, without a mark in front.
inline std::string textOf(std::string const& line) {
    std::string text;
    unsigned long at = line.compare(0, 3, "\uFEFF") == 0 ? 3 : 0;
    while (at < line.size() && line[at] != '\0') {
        unsigned long const bytes = utl::strCharBytesBase(line.c_str() + at);
        bool const isCharacter = bytes != 0 && bytes != utl::NONE;
        text += isCharacter ? line.substr(at, bytes) : "";
        at += isCharacter ? bytes : 1;
    }
    return text;
}

struct Line {
    unsigned long size;
    unsigned long endSize;
};

template <typename Source>
Line nextLine(Source& file, int textType) {
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

template <typename Source>
unsigned long long seekKey(Source& file, std::string const& key, unsigned long long from,
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
