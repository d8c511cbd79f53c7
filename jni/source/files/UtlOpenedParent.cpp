#include "files/UtlOpenedParent.h"

#include <errno.h>

#include "UtlFile.h"
#include "UtlLog.h"

#include "files/UtlDescriptor.h"
#include "files/UtlFileModes.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlErrno.h"
#include "platform/UtlStaticLock.h"

namespace utl {

// The scopes that hold directories open. The modes of directories change only under the lock.
struct OpenedParent::Scopes {
    // For the scopes of one directory, `status`: the mode that comes back becomes `mode`, and
    // `status` gets the one that would have. The directory stays open for whoever works in it.
    // False when there is none. The caller holds the lock.
    bool replaceMode(platform::FileStatus* status, long mode);

    platform::StaticLock lock{platform::LockOrder::PARENT_MODES};
    OpenedParent* first = nullptr;  // guarded by lock
};

namespace {

bool takeParent(char (&directory)[PATH_SIZE], char const* path) {
    return File::extractDirectoryPath(directory, PATH_SIZE, path) && directory[0] != '\0';
}

bool askStatus(char const* directory, platform::FileStatus* status) {
    bool const isThere = platform::pathStatus(directory, status);
    if (!isThere) {
        applog(LIBRARY_LOG, LEVEL_DEBUG,
               "is changeParentAccessMode func stat Failed. errno[%d] Path:%s", errno, directory);
    }
    return isThere;
}

// Deliberate: with the type bits of st_mode, so that a permission value always differs. Callers
// learn from the result whether they owe the way back.
bool differs(platform::FileStatus const& status, long mode) {
    return status.st_mode != static_cast<unsigned>(mode & 0xFFFF);
}

bool changeDirectory(char const* directory, platform::FileStatus const& status, long mode) {
    return differs(status, mode) &&
           platform::changeMode(directory, static_cast<unsigned>(mode & 0xFFFF)) == 0;
}

}  // namespace

// Those of the device that `directory` is on, and some others: a file system that hangs does not
// hold up what is done elsewhere. Null when there is no such directory.
OpenedParent::Scopes* OpenedParent::findScopes(char const* directory) {
    static Scopes scopes[16];
    platform::FileStatus status;
    return askStatus(directory, &status) ? &scopes[status.st_dev % 16] : nullptr;
}

// A scope from `first` on for that directory.
OpenedParent* OpenedParent::find(OpenedParent* first, platform::FileStatus const& directory) {
    while (first != nullptr && (first->mStatus.st_dev != directory.st_dev ||
                                first->mStatus.st_ino != directory.st_ino)) {
        first = first->mNext;
    }
    return first;
}

bool OpenedParent::Scopes::replaceMode(platform::FileStatus* status, long mode) {
    OpenedParent* scope = find(first, *status);
    if (scope == nullptr) {
        return false;
    }
    status->st_mode = scope->mStatus.st_mode;
    for (; scope != nullptr; scope = find(scope->mNext, *status)) {
        scope->mStatus.st_mode = static_cast<unsigned>(mode & PERMISSIONS) | S_IFDIR;
    }
    return true;
}

OpenedParent::OpenedParent(char const* path) {
    Scopes* const scopes = takeParent(mDirectory, path) ? findScopes(mDirectory) : nullptr;
    if (scopes == nullptr) {
        return;
    }
    platform::StaticGuard const guard(scopes->lock);
    if (!askStatus(mDirectory, &mStatus) || !changeDirectory(mDirectory, mStatus, OPEN_TO_ALL)) {
        return;
    }
    if (OpenedParent const* const other = find(scopes->first, mStatus)) {
        mStatus.st_mode = other->mStatus.st_mode;  // that of before the first scope
    }
    mOpened = platform::openFile(mDirectory, O_RDONLY | O_DIRECTORY, 0);
    mNext = scopes->first;
    scopes->first = this;
    mScopes = scopes;
}

OpenedParent::~OpenedParent() {
    if (mScopes == nullptr) {
        return;
    }
    platform::ErrnoGuard const errnoGuard;
    platform::StaticGuard const guard(mScopes->lock);
    OpenedParent** link = &mScopes->first;
    while (*link != this) {
        link = &(*link)->mNext;
    }
    *link = mNext;
    Descriptor const opened(mOpened);
    if (find(mScopes->first, mStatus) != nullptr) {
        return;
    }
    // By the descriptor: the path may be another directory's by now. There is none only where all
    // that the process may have are in use.
    if (opened.isOpen()) {
        platform::changeMode(opened.get(), mStatus.st_mode & PERMISSIONS);
    } else {
        platform::changeMode(mDirectory, mStatus.st_mode & PERMISSIONS);
    }
}

int OpenedParent::change(char const* path, long mode, long* oldMode) {
    char directory[PATH_SIZE];
    Scopes* const scopes = takeParent(directory, path) ? findScopes(directory) : nullptr;
    platform::FileStatus status;
    if (scopes == nullptr) {
        return 0;
    }
    platform::StaticGuard const guard(scopes->lock);
    if (!askStatus(directory, &status)) {
        return 0;
    }
    bool const isInScope = scopes->replaceMode(&status, mode);
    if (oldMode != nullptr) {
        *oldMode = static_cast<long>(status.st_mode);
    }
    return isInScope ? differs(status, mode) : changeDirectory(directory, status, mode);
}

bool OpenedParent::settle(char const* path, unsigned mode) {
    Scopes* const scopes = findScopes(path);
    platform::FileStatus status;
    if (scopes == nullptr) {
        return false;
    }
    platform::StaticGuard const guard(scopes->lock);
    if (!askStatus(path, &status) || platform::changeMode(path, mode) != 0) {
        return false;
    }
    scopes->replaceMode(&status, static_cast<long>(mode));
    return true;
}

}  // namespace utl
