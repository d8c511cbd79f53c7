#include "files/UtlEntry.h"

#include <errno.h>

#include "UtlFile.h"
#include "UtlLog.h"

#include "files/UtlFileModes.h"
#include "files/UtlOpenedDirectory.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlErrno.h"

namespace utl {

namespace {

using platform::Links;

// Others who open it up too may close it in between: that many would have to be at it at once.
constexpr int MOST_TRIES = 4;

bool isThere(Entry const& entry) {
    platform::ErrnoGuard const guard;
    platform::FileStatus status;
    return platform::statusAt(entry.directory, entry.name, Links::FOLLOWED, &status);
}

template <typename Act>
int actOpenedUp(Entry const& entry, Act act) {
    for (int tries = 0; tries < MOST_TRIES; ++tries) {
        OpenedDirectory const opened(entry.directory);
        if (!opened.isOpen()) {
            break;
        }
        int const result = act(entry);
        if (result != -1 || errno != EACCES) {
            return result;
        }
    }
    errno = EACCES;
    return -1;
}

// `act` as it is, and where the directory refuses it, with that opened up.
template <typename Act>
int actIn(Entry const& entry, Act act) {
    int const result = act(entry);
    if (result != -1 || errno != EACCES || !entry.canOpenUp || keepsModes()) {
        return result;
    }
    if (entry.directory != platform::WORKING_DIRECTORY) {
        return actOpenedUp(entry, act);
    }
    Parent const parent(entry.path);
    errno = EACCES;
    return parent.entry().canOpenUp ? actOpenedUp(parent.entry(), act) : -1;
}

}  // namespace

Parent::Parent(char const* path) : mPath(path), mName(), mCanOpenUp(false) {
    char directory[PATH_SIZE];
    if (!File::extractFileName(mName, sizeof mName, path, 0) ||
        !File::extractDirectoryPath(directory, sizeof directory, path)) {
        return;
    }
    bool const isNamed = directory[0] != '\0';
    char const* const at = isNamed ? directory : path[0] == '/' ? "/" : ".";
    mDirectory.set(platform::openDirectory(platform::WORKING_DIRECTORY, at, Links::NOT_FOLLOWED));
    mCanOpenUp = isNamed && mDirectory.isOpen();
    if (!mDirectory.isOpen()) {
        mDirectory.set(platform::openDirectory(platform::WORKING_DIRECTORY, at, Links::FOLLOWED));
    }
}

bool makeParent(char const* path) {
    char directory[PATH_SIZE];
    return File::extractDirectoryPath(directory, sizeof directory, path) &&
           File::makeDirectories(directory);
}

int openIn(Entry const& entry, int flags, unsigned mode) {
    auto const open = [=](Entry const& at) {
        return platform::openFileAt(at.directory, at.name, flags, mode);
    };
    int const descriptor = open(entry);
    // What can be looked at refuses by itself: no permission of its directory is missing.
    bool const isRefused = descriptor == -1 && errno == EACCES && !isThere(entry);
    return isRefused ? actIn(entry, open) : descriptor;
}

bool makeDirectoryIn(Entry const& entry, char const* whole) {
    int const result = actIn(entry, [](Entry const& at) {
        return platform::makeDirectoryAt(at.directory, at.name, OPEN_TO_ALL);
    });
    if (result != 0 && errno != EEXIST) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "CreateDirectory Failed. errno[%d] Path:%s/(%s/)", errno,
               whole, entry.path);
    }
    return result == 0;
}

int removeIn(Entry const& entry, bool isDirectory) {
    return actIn(entry, [=](Entry const& at) {
        return isDirectory ? platform::removeDirectoryAt(at.directory, at.name)
                           : platform::removeFileAt(at.directory, at.name);
    });
}

int renameIn(Entry const& entry, char const* name, bool overwrites) {
    return actIn(entry, [=](Entry const& at) {
        return overwrites ? platform::renameFileAt(at.directory, at.name, name)
                          : platform::renameToNewAt(at.directory, at.name, name);
    });
}

}  // namespace utl
