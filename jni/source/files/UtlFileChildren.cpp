#include <fnmatch.h>

#include "UtlFile.h"
#include "UtlString.h"

#include "files/UtlFileCall.h"
#include "files/UtlNormalPath.h"
#include "platform/UtlDirectory.h"

namespace utl {

namespace {

constexpr char WILDCARDS[] = "*?[]";

// What the watchdog hears about a call; for reading an entry, why the one before was passed over.
enum Statement : unsigned long {
    OPEN = 1348,
    READ_FIRST = 1358,
    READ_AFTER_DIRECTORY = 1367,
    READ_AFTER_FILE = 1376,
    READ_AFTER_OTHER_EXTENSION = 1387,
    READ_AFTER_NO_EXTENSION = 1394,
    READ_AFTER_SELF = 1402,
    READ_AFTER_PARENT = 1407,
    MATCH = 1415,
    READ_AFTER_MISMATCH = 1419,
    CLOSE_FAILED = 1430,
    READ_AFTER_KEPT = 1443,
    CLOSE = 1446,
};

template <typename Call>
auto watchedStep(Statement statement, Call call) {
    return watched("children", statement, call);
}

bool isSame(char const* a, char const* b) {
    return compareStr(a, b, ALL) == 0;
}

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
    Statement judge(char const* name, bool isDirectory) const;
};

Statement Filter::judge(char const* name, bool isDirectory) const {
    if (isDirectory && kind == File::FILES) {
        return READ_AFTER_DIRECTORY;
    }
    if (!isDirectory && kind == File::DIRECTORIES) {
        return READ_AFTER_FILE;
    }
    if (!isDirectory && extension != nullptr) {
        char own[PATH_SIZE];
        if (!File::extractExtension(own, sizeof own, name)) {
            return READ_AFTER_NO_EXTENSION;
        }
        if (compareStrNoCase(own, extension, ALL) != 0) {
            return READ_AFTER_OTHER_EXTENSION;
        }
    }
    if (isSame(name, ".")) {
        return READ_AFTER_SELF;
    }
    if (isSame(name, "..")) {
        return READ_AFTER_PARENT;
    }
    bool const matches = pattern[0] == '\0' || watchedStep(MATCH, [=] {
                                                   return fnmatch(pattern, name, FNM_PATHNAME);
                                               }) == 0;
    return matches ? READ_AFTER_KEPT : READ_AFTER_MISMATCH;
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

int list(char const* path, Filter const& filter, unsigned long maxCount, File::Paths* entries) {
    platform::Directory directory;
    if (!watchedStep(OPEN, [&] { return directory.open(path); })) {
        return -1;
    }
    int count = 0;
    Statement statement = READ_FIRST;
    bool isComplete = false;
    while (!isComplete && watchedStep(statement, [&] { return directory.next(); })) {
        statement = filter.judge(directory.name(), directory.isDirectory());
        if (statement == READ_AFTER_KEPT) {
            if (!append(entries, path, directory.name())) {
                watchedStep(CLOSE_FAILED, [&] { return directory.close(); });
                return -1;
            }
            ++count;
            isComplete = static_cast<unsigned long>(count) == maxCount;
        }
    }
    bool const hasFailed = directory.hasFailed();
    watchedStep(CLOSE, [&] { return directory.close(); });
    return hasFailed ? -1 : count;
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
    return list(directory, filter, maxCount, entries);
}

int File::children(Paths* entries, int kind, char const* extension, unsigned long maxCount) const {
    return children(mPath.c_str(), entries, kind, extension, maxCount);
}

}  // namespace utl
