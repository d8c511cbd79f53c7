// Internal. Gives the parent directory of a path mode 0777 for a scope, where that can be done.
//
//     OpenedParent const parent(path);
//     return unlink(path) == 0;
//
// Any number of threads may be in such scopes for one directory, by whatever names for it: it gets
// its mode back when the last one leaves.

#ifndef UTL_OPENED_PARENT_H
#define UTL_OPENED_PARENT_H

#include "files/UtlNormalPath.h"
#include "platform/UtlFileSystem.h"

namespace utl {

class OpenedParent {
public:
    explicit OpenedParent(char const* path);

    // Leaves errno as it is.
    ~OpenedParent();

    OpenedParent(OpenedParent const&) = delete;
    OpenedParent& operator=(OpenedParent const&) = delete;

    // File::changeParentAccessMode(). Inside a scope the mode given is the one that comes back with
    // its end, and the old mode the one that would have.
    static int change(char const* path, long mode, long* oldMode);

    // Changes the mode of `path` itself for good: inside scopes it is also the one that comes back.
    // False when that cannot be.
    static bool settle(char const* path, unsigned mode);

private:
    struct Scopes;

    static Scopes* findScopes(char const* directory);
    static OpenedParent* find(OpenedParent* first, platform::FileStatus const& directory);

    char mDirectory[PATH_SIZE];
    Scopes* mScopes = nullptr;  // null when the directory was not opened up
    int mOpened = -1;           // a descriptor on the directory

    // Guarded by the lock of mScopes.
    platform::FileStatus mStatus;
    OpenedParent* mNext = nullptr;
};

}  // namespace utl

#endif  // UTL_OPENED_PARENT_H
