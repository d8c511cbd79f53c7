#include "UtlFile.h"

#include <algorithm>

#include "UtlString.h"

#include "files/UtlNormalPath.h"

namespace utl {

namespace {

// Bytes of a path. Separators and dots are never part of a longer character: no need to tell
// characters apart, nor to refuse names in another encoding.
struct Span {
    char const* begin;
    char const* end;

    bool isEmpty() const { return begin == end; }
    unsigned long length() const { return static_cast<unsigned long>(end - begin); }
};

Span whole(NormalPath const& path) {
    return {path.c_str(), path.c_str() + t_strlen(path.c_str())};
}

Span withoutEndSeparators(Span span) {
    while (!span.isEmpty() && span.end[-1] == '/') {
        --span.end;
    }
    return span;
}

// Empty when the path has no component.
Span firstComponent(NormalPath const& path) {
    Span const all = whole(path);
    char const* const begin = all.begin + (*all.begin == '/' ? 1 : 0);
    return {begin, std::find(begin, all.end, '/')};
}

Span lastComponent(NormalPath const& path) {
    Span const all = withoutEndSeparators(whole(path));
    Span component = {all.end, all.end};
    while (component.begin != all.begin && component.begin[-1] != '/') {
        --component.begin;
    }
    return component;
}

// The last dot; the end when there is none.
char const* findLastDot(Span name) {
    for (char const* at = name.end; at != name.begin; --at) {
        if (at[-1] == '.') {
            return at - 1;
        }
    }
    return name.end;
}

bool canExtract(char const* dst, unsigned long size, NormalPath const& path) {
    return dst != nullptr && size != 0 && path.isValid();
}

int store(char* dst, unsigned long size, Span part) {
    return storePart(dst, size, part.begin, part.length());
}

// Has `extract` take a part into a buffer and copies it to `out`.
template <typename Extract>
int extractInto(BasicString<char>* out, Extract extract) {
    char part[PATH_SIZE];
    if (out == nullptr || !extract(part, sizeof part)) {
        return 0;
    }
    *out = part;
    return compareStr(out->c_str(), part, ALL) == 0;  // not so without memory
}

}  // namespace

int File::extractVolumeName(char* dst, unsigned long size, char const* path) {
    NormalPath const normal(path);
    Span const name = firstComponent(normal);
    return canExtract(dst, size, normal) && !name.isEmpty() && store(dst, size, name);
}

int File::extractDirectoryPath(char* dst, unsigned long size, char const* path) {
    NormalPath const normal(path);
    Span const name = lastComponent(normal);
    Span const before = withoutEndSeparators({normal.c_str(), name.begin});
    return canExtract(dst, size, normal) && !name.isEmpty() && store(dst, size, before);
}

int File::extractFileName(char* dst, unsigned long size, char const* path, int withoutExtension) {
    NormalPath const normal(path);
    Span name = lastComponent(normal);
    if (!canExtract(dst, size, normal) || name.isEmpty()) {
        return 0;
    }
    if (withoutExtension == 1) {
        name.end = findLastDot(name);
    }
    return store(dst, size, name);
}

int File::extractExtension(char* dst, unsigned long size, char const* path) {
    NormalPath const normal(path);
    Span const name = lastComponent(normal);
    if (!canExtract(dst, size, normal) || name.isEmpty()) {
        return 0;
    }
    char const* const dot = findLastDot(name);
    return store(dst, size, {dot != name.end ? dot + 1 : dot, name.end});
}

int File::getPath(BasicString<char>* out) const {
    if (out == nullptr) {
        return 0;
    }
    *out = mPath;
    return compareStr(out->c_str(), mPath.c_str(), ALL) == 0;
}

int File::getPath(char* dst, unsigned long size) const {
    return dst != nullptr && storePart(dst, size, mPath.c_str(), mPath.length());
}

int File::getVolumeName(BasicString<char>* out) const {
    return extractInto(out,
                       [this](char* dst, unsigned long size) { return getVolumeName(dst, size); });
}

int File::getVolumeName(char* dst, unsigned long size) const {
    return extractVolumeName(dst, size, mPath.c_str());
}

int File::getDirectoryPath(BasicString<char>* out) const {
    return extractInto(
        out, [this](char* dst, unsigned long size) { return getDirectoryPath(dst, size); });
}

int File::getDirectoryPath(char* dst, unsigned long size) const {
    return extractDirectoryPath(dst, size, mPath.c_str());
}

int File::getFileName(BasicString<char>* out, int withoutExtension) const {
    return extractInto(out, [this, withoutExtension](char* dst, unsigned long size) {
        return getFileName(dst, size, withoutExtension);
    });
}

int File::getFileName(char* dst, unsigned long size, int withoutExtension) const {
    return extractFileName(dst, size, mPath.c_str(), withoutExtension);
}

int File::getExtension(BasicString<char>* out) const {
    return extractInto(out,
                       [this](char* dst, unsigned long size) { return getExtension(dst, size); });
}

int File::getExtension(char* dst, unsigned long size) const {
    return extractExtension(dst, size, mPath.c_str());
}

}  // namespace utl
