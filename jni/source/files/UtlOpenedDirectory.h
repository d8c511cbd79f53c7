// Internal. Gives a directory mode 0777 for a scope, besides its set-id and sticky bits, where its
// owner lacks permissions there.
//
//     OpenedDirectory const opened(directory);
//     return opened.isOpen() && unlinkat(directory, name, 0) == 0;
//
// Any number of threads may be in such scopes for one directory: it gets its mode back when the
// last one leaves.

#ifndef UTL_OPENED_DIRECTORY_H
#define UTL_OPENED_DIRECTORY_H

#include "platform/UtlFileSystem.h"

namespace utl {

class OpenedDirectory {
public:
    // `descriptor` must stay open as long as this lives.
    explicit OpenedDirectory(int descriptor);

    // Leaves errno as it is.
    ~OpenedDirectory();

    OpenedDirectory(OpenedDirectory const&) = delete;
    OpenedDirectory& operator=(OpenedDirectory const&) = delete;

    // Whether all may work in it, by whoever's doing.
    bool isOpen() const { return mIsOpen; }

    // File::changeParentAccessMode(). Inside a scope the mode given is the one that comes back with
    // its end, and the old mode the one that would have.
    static int changeParent(char const* path, long mode, long* oldMode);

    // Changes the mode of anything for good: inside scopes it is also the one that comes back.
    static bool settle(int descriptor, unsigned mode);

private:
    static OpenedDirectory* find(OpenedDirectory* from, platform::FileStatus const& directory);
    static bool replaceModeLocked(platform::FileStatus* status, long mode);
    static void forgetParentProcessLocked();
    bool openUpLocked();

    int const mDescriptor;
    bool mIsOpen = false;
    bool mIsListed = false;

    // Guarded by a lock of the process.
    platform::FileStatus mStatus;  // with the mode that comes back
    OpenedDirectory* mNext = nullptr;
};

}  // namespace utl

#endif  // UTL_OPENED_DIRECTORY_H
