#include <fnmatch.h>

#include <cstring>

#include "UtlFile.h"
#include "UtlString.h"

#include "files/UtlDirectoryNames.h"
#include "files/UtlNormalPath.h"
#include "platform/UtlDirectory.h"

namespace utl {

namespace {

constexpr char WILDCARDS[] = "*?[]";

// The first wildcard of `path`, by their order in WILDCARDS; nullptr without one.
char const* findWildcard(char const* path) {
    for (char const* wildcard = WILDCARDS; *wildcard != '\0'; ++wildcard) {
        char const pattern[] = {*wildcard, '\0'};
        unsigned long const index = t_strstr(path, pattern);
        if (index != NONE) {
            return path + index;
        }
    }
    return nullptr;
}

// What keeps an entry.
struct Filter {
    int kind;
    char const* extension;  // null for any
    char pattern[PATH_SIZE];

    // READ_AFTER_KEPT, or why the entry is passed over.
    Listing judge(char const* name, bool isDirectory) const;
    bool matches(char const* name) const;
};

Listing Filter::judge(char const* name, bool isDirectory) const {
    if (isDirectory && kind == File::FILES) {
        return Listing::READ_AFTER_DIRECTORY;
    }
    if (!isDirectory && kind == File::DIRECTORIES) {
        return Listing::READ_AFTER_FILE;
    }
    if (!isDirectory && extension != nullptr) {
        char own[PATH_SIZE];
        if (!File::extractExtension(own, sizeof own, name)) {
            return Listing::READ_AFTER_NO_EXTENSION;
        }
        if (compareStrNoCase(own, extension, ALL) != 0) {
            return Listing::READ_AFTER_OTHER_EXTENSION;
        }
    }
    Listing const verdict = judgeName(name);
    bool const isMismatch = verdict == Listing::READ_AFTER_KEPT && !matches(name);
    return isMismatch ? Listing::READ_AFTER_MISMATCH : verdict;
}

bool Filter::matches(char const* name) const {
    return pattern[0] == '\0' || watchedListing(Listing::MATCH, [=] {
                                     return fnmatch(pattern, name, FNM_PATHNAME);
                                 }) == 0;
}

// Deliberate: a slash behind the path as it was given. For "dir/" that makes two; callers cut what
// they passed in off the front.
bool append(File::Paths* entries, char const* directory, char const* name) {
    unsigned long const length = t_strlen(directory) + 1 + t_strlen(name);
    BasicString<char> path(directory, length + 1, BasicString<char>::FIXED);
    unsigned long const index = entries->count();
    if (!path.combine("/", ALL, WHOLE) || !path.combine(name, ALL, WHOLE) ||
        !entries->insertAt(index, path)) {
        return false;
    }
    bool const isWhole = (*entries)[index].length() == length;
    if (!isWhole) {
        entries->eraseAt(index, 1);  // no memory for the text
    }
    return isWhole;
}

// Splits what holds wildcards into a directory and the pattern for its entries. False when that
// cannot be.
bool takePattern(char (&pattern)[PATH_SIZE], char (&directory)[PATH_SIZE]) {
    char const* const wildcard = findWildcard(directory);
    if (wildcard == nullptr) {
        return true;
    }
    if (t_strstr(wildcard, "/") != NONE ||
        !File::extractFileName(pattern, PATH_SIZE, directory, 0)) {
        return false;
    }
    return File::extractDirectoryPath(directory, PATH_SIZE, directory) == 1;
}

// Appends `count` entries, as far as there is room. An array that turns out to grow does so once.
bool appendAll(File::Paths* entries, char const* directory, Names const& names,
               unsigned long count) {
    char const* name = names.data();
    for (unsigned long i = 0; i < count; ++i) {
        unsigned long const capacity = entries->capacity();
        if (!append(entries, directory, name) ||
            (entries->capacity() != capacity && !entries->resizeMax(count))) {
            return false;
        }
        name += std::strlen(name) + 1;
    }
    return true;
}

int list(char const* path, Filter const& filter, unsigned long maxCount, File::Paths* entries) {
    platform::Directory directory;
    if (!watchedListing(Listing::OPEN, [&] { return directory.open(path); })) {
        return -1;
    }
    auto const judge = [&](platform::Directory const& read) {
        return filter.judge(read.name(), read.isDirectory());
    };
    Names names;
    unsigned long count = 0;
    bool const isRead = readNames(&directory, judge, maxCount, &names, &count);
    bool const isAppended = appendAll(entries, path, names, count);
    watchedListing(isAppended ? Listing::CLOSE : Listing::CLOSE_FAILED,
                   [&] { return directory.close(); });
    return isRead && isAppended ? static_cast<int>(count) : -1;
}

}  // namespace

int File::children(char const* path, Paths* entries, int kind, char const* extension,
                   unsigned long maxCount) {
    if (entries == nullptr || path == nullptr) {
        return -1;
    }
    entries->setCount(0);
    NormalPath const normal(path);
    if (kind < FILES || kind > ALL_KINDS || !normal.isValid()) {
        return -1;
    }

    Filter filter = {kind, extension, ""};
    char directory[PATH_SIZE];
    storePart(directory, sizeof directory, normal.c_str(), t_strlen(normal.c_str()));
    if (!isDirectory(directory) && !takePattern(filter.pattern, directory)) {
        return -1;
    }
    if (!isDirectory(directory)) {
        bool const isFile = filter.pattern[0] == '\0' && exists(directory);
        return isFile ? 0 : -1;
    }
    return list(directory, filter, maxCount != 0 ? maxCount : NONE, entries);
}

int File::children(Paths* entries, int kind, char const* extension, unsigned long maxCount) const {
    return children(mPath.c_str(), entries, kind, extension, maxCount);
}

}  // namespace utl
