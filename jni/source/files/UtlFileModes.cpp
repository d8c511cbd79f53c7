#include <errno.h>

#include "UtlFile.h"
#include "UtlLog.h"

#include "files/UtlDescriptor.h"
#include "files/UtlDirectoryWalk.h"
#include "files/UtlNormalPath.h"
#include "files/UtlOpenedParent.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFileSystem.h"
#include "platform/UtlStaticLock.h"

namespace utl {

// The scopes that hold directories open. The modes of directories change only under the lock.
struct OpenedParent::Scopes {
    platform::StaticLock lock;
    OpenedParent* first = nullptr;  // guarded by lock
};

namespace {

constexpr unsigned OPEN_TO_ALL = 0777;
constexpr unsigned READABLE_BY_ALL = 0555;
constexpr unsigned OWNER_WRITE = 0200;
constexpr unsigned PERMISSIONS = 07777;

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

bool changeDirectory(char const* directory, platform::FileStatus const& status, long mode) {
    unsigned const wanted = static_cast<unsigned>(mode & 0xFFFF);
    // Deliberate: with the type bits of st_mode, so that for a permission value it always differs.
    // Callers learn from the result whether they owe the way back.
    return status.st_mode != wanted && platform::changeMode(directory, wanted) == 0;
}

using Change = int (*)(char const* path, int recursive);

// What applyReadOnly() and liftReadOnly() have in common; `again` is the one that is at work.
int changeReadOnly(char const* path, int recursive, bool readOnly, Change again) {
    NormalPath normal(path);
    if (!normal.isValid() || !File::exists(normal.c_str()) ||
        platform::changeMode(normal.c_str(), readOnly ? READABLE_BY_ALL : OPEN_TO_ALL) != 0) {
        return 0;
    }
    if ((File::isReadOnly(normal.c_str()) == 1) != readOnly) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               readOnly ? "applyReadOnly can't change %s" : "liftReadOnly can't change %s",
               normal.c_str());
        return 0;
    }
    if (recursive != 1 || !File::isDirectory(normal.c_str())) {
        return 1;
    }
    normal.stripEnd();
    // A mode is changed behind a link: even one to a file would lead out of the tree.
    return visitEntries(normal.c_str(),
                        [=](char const* entry) { return isLink(entry) || again(entry, 1) == 1; });
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
    OpenedParent* scope = find(scopes->first, status);
    if (oldMode != nullptr) {
        *oldMode = static_cast<long>(scope != nullptr ? scope->mStatus.st_mode : status.st_mode);
    }
    if (!changeDirectory(directory, status, mode)) {
        return 0;
    }
    for (; scope != nullptr; scope = find(scope->mNext, status)) {
        scope->mStatus.st_mode = static_cast<unsigned>(mode & PERMISSIONS) | S_IFDIR;
    }
    return 1;
}

int File::changeParentAccessMode(char const* path, long mode, long* oldMode) {
    return OpenedParent::change(path, mode, oldMode);
}

int File::isReadOnly(char const* path) {
    platform::FileStatus status;
    return path != nullptr && platform::pathStatus(path, &status) &&
           (status.st_mode & OWNER_WRITE) == 0;
}

int File::applyReadOnly(char const* path, int recursive) {
    return changeReadOnly(path, recursive, true, applyReadOnly);
}

int File::liftReadOnly(char const* path, int recursive) {
    return changeReadOnly(path, recursive, false, liftReadOnly);
}

int File::isReadOnly() const {
    return isReadOnly(mPath.c_str());
}

int File::applyReadOnly(int recursive) const {
    return applyReadOnly(mPath.c_str(), recursive);
}

int File::liftReadOnly(int recursive) const {
    return liftReadOnly(mPath.c_str(), recursive);
}

}  // namespace utl
