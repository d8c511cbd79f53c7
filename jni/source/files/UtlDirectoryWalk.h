// Internal. What the operations on whole directories have in common.

#ifndef UTL_DIRECTORY_WALK_H
#define UTL_DIRECTORY_WALK_H

#include <cstring>

#include "UtlFile.h"
#include "UtlString.h"

#include "platform/UtlFileSystem.h"

namespace utl {

inline bool isLink(char const* path) {
    platform::FileStatus status;
    return platform::linkStatus(path, &status) && S_ISLNK(status.st_mode);
}

// Whether going on there would leave the tree.
inline bool isLinkToDirectory(char const* path) {
    return isLink(path) && File::isDirectory(path) == 1;
}

// Whether the name behind `directory` is taken for a name. A backslash would be one more separator:
// "..\x" would be what is beside the tree.
inline bool hasPlainName(char const* directory, BasicString<char> const& entry) {
    return std::strchr(entry.c_str() + t_strlen(directory), '\\') == nullptr;
}

// Gives `visit` the path of each entry. False at the first one that it refuses or that has no plain
// name, and when the directory cannot be listed; its path must not end in a separator.
template <typename Visit>
bool visitEntries(char const* directory, Visit visit) {
    File::Paths entries(32, File::Paths::GROWS);
    if (File::children(directory, &entries, File::ALL_KINDS, nullptr, 0) == -1) {
        return false;
    }
    for (unsigned long i = 0; i < entries.count(); ++i) {
        if (!hasPlainName(directory, entries[i]) || !visit(entries[i].c_str())) {
            return false;
        }
    }
    return true;
}

}  // namespace utl

#endif  // UTL_DIRECTORY_WALK_H
