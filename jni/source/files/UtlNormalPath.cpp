#include "files/UtlNormalPath.h"

#include <algorithm>
#include <cstring>

#include "UtlRawMemory.h"

namespace utl {

BasicString<char> withSlashes(char const* path) {
    BasicString<char> text(path, 0, BasicString<char>::FIXED);
    text.replace("\\", "/", WHOLE);
    return text;
}

NormalPath::NormalPath(char const* path) : mText(), mIsValid(false) {
    unsigned long const length = t_strlen(path);
    if (path == nullptr || !storePart(mText, PATH_SIZE, path, length)) {
        return;
    }
    std::replace(mText, mText + length, '\\', '/');
    mIsValid = std::strstr(mText, "//") == nullptr;
}

void NormalPath::stripEnd() {
    unsigned long length = t_strlen(mText);
    while (length > 1 && mText[length - 1] == '/') {
        mText[--length] = '\0';
    }
}

int storePart(char* dst, unsigned long size, char const* text, unsigned long length) {
    if (length >= size) {
        return 0;
    }
    copyMemory(dst, text, length);
    dst[length] = '\0';
    return 1;
}

}  // namespace utl
