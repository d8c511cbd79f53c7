// Internal. What is done to one name in one directory. The directory is opened up for it where the
// process could not do it otherwise.

#ifndef UTL_ENTRY_H
#define UTL_ENTRY_H

#include "files/UtlDescriptor.h"
#include "files/UtlNormalPath.h"
#include "platform/UtlFileSystem.h"

namespace utl {

struct Entry {
    int directory;     // its descriptor, or platform::WORKING_DIRECTORY
    char const* name;  // one component; with the working directory, a whole path
    char const* path;  // for the log
    bool canOpenUp;    // not what was reached through a link, which may be anybody's

    // One that every call looks up anew.
    static Entry of(char const* path) { return {platform::WORKING_DIRECTORY, path, path, true}; }
};

// The directory that a path is in, opened: whatever becomes of the path, what is done here concerns
// one directory.
class Parent {
public:
    // `path` must live longer.
    explicit Parent(char const* path);

    // False too for a path without a component.
    bool isOpen() const { return mDirectory.isOpen(); }
    Entry entry() const { return {mDirectory.get(), mName, mPath, mCanOpenUp}; }

private:
    char const* const mPath;
    char mName[PATH_SIZE];
    bool mCanOpenUp;
    Descriptor mDirectory;
};

// Makes the directory that a path is in, and those that that one is in.
bool makeParent(char const* path);

// As platform::openFileAt().
int openIn(Entry const& entry, int flags, unsigned mode);

// False with errno for failure, which is logged, with the `whole` path that is being made, unless
// something has the name already.
bool makeDirectoryIn(Entry const& entry, char const* whole);

// -1 with errno for failure.
int removeIn(Entry const& entry, bool isDirectory);

// Gives the entry another name in its directory; over what has that only if that is asked for, and
// else EEXIST. -1 with errno for failure.
int renameIn(Entry const& entry, char const* name, bool overwrites);

}  // namespace utl

#endif  // UTL_ENTRY_H
