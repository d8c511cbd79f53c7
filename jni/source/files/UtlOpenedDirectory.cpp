#include "files/UtlOpenedDirectory.h"

#include <errno.h>
#include <unistd.h>

#include "UtlFile.h"
#include "UtlLog.h"

#include "files/UtlDescriptor.h"
#include "files/UtlFileModes.h"
#include "files/UtlNormalPath.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFork.h"
#include "platform/UtlStaticLock.h"

namespace utl {

namespace {

// The modes that the library gives to directories change only under it. It is held while the file
// system is asked.
platform::StaticLock modeLock(platform::LockOrder::PARENT_MODES);

constexpr unsigned OWNER_WORKS = 0300;

OpenedDirectory* firstScope UTL_GUARDED_BY(modeLock) = nullptr;
unsigned scopesProcess UTL_GUARDED_BY(modeLock) = 0;

// Deliberate: with the type bits of st_mode, so that a permission value always differs. Callers
// learn from the result whether they owe the way back.
bool differs(platform::FileStatus const& status, long mode) {
    return status.st_mode != static_cast<unsigned>(mode & 0xFFFF);
}

// Whether its mode is what stops the process there, and can be changed and put back.
bool lacksPermission(platform::FileStatus const& status) {
    bool const isOwner = status.st_uid == geteuid();
    bool const canComeBack = (status.st_mode & S_ISGID) == 0 || platform::isInGroup(status.st_gid);
    return canComeBack && !(isOwner && (status.st_mode & OWNER_WORKS) == OWNER_WORKS);
}

}  // namespace

// A scope from `from` on for that directory.
OpenedDirectory* OpenedDirectory::find(OpenedDirectory* from,
                                       platform::FileStatus const& directory) {
    while (from != nullptr && !platform::isSameFile(from->mStatus, directory)) {
        from = from->mNext;
    }
    return from;
}

// A forked child has nobody in scopes: their threads go on in the parent, who puts the modes back.
void OpenedDirectory::forgetParentProcessLocked() UTL_REQUIRES(modeLock) {
    if (scopesProcess != platform::processNumber()) {
        scopesProcess = platform::processNumber();
        firstScope = nullptr;
    }
}

OpenedDirectory::OpenedDirectory(int descriptor) : mDescriptor(descriptor) {
    platform::StaticGuard const guard(modeLock);
    forgetParentProcessLocked();
    mIsOpen = platform::descriptorStatus(descriptor, &mStatus) && openUpLocked();
}

bool OpenedDirectory::openUpLocked() UTL_REQUIRES(modeLock) {
    bool const isOpenToAll = (mStatus.st_mode & PERMISSIONS) == OPEN_TO_ALL;
    OpenedDirectory const* const other = find(firstScope, mStatus);
    if (isOpenToAll && other == nullptr) {
        return true;  // by another process, say: not to be taken for the mode that comes back
    }
    unsigned const opened = OPEN_TO_ALL | (mStatus.st_mode & SPECIAL_BITS);
    if (!isOpenToAll &&
        (!lacksPermission(mStatus) || platform::changeMode(mDescriptor, opened) != 0)) {
        return false;
    }
    if (other != nullptr) {
        mStatus.st_mode = other->mStatus.st_mode;  // that of before the first scope
    }
    mNext = firstScope;
    firstScope = this;
    mIsListed = true;
    return true;
}

OpenedDirectory::~OpenedDirectory() {
    if (!mIsListed) {
        return;
    }
    platform::ErrnoGuard const errnoGuard;
    platform::StaticGuard const guard(modeLock);
    OpenedDirectory** link = &firstScope;
    while (*link != this) {
        link = &(*link)->mNext;
    }
    *link = mNext;
    if (find(firstScope, mStatus) == nullptr) {
        platform::changeMode(mDescriptor, mStatus.st_mode & CHANGEABLE_BITS);
    }
}

// For the scopes of one directory, `status`: the mode that comes back becomes `mode`, and `status`
// gets the one that would have. The directory stays open for whoever works in it. False when there
// is none.
bool OpenedDirectory::replaceModeLocked(platform::FileStatus* status, long mode)
    UTL_REQUIRES(modeLock) {
    forgetParentProcessLocked();
    OpenedDirectory* scope = find(firstScope, *status);
    if (scope == nullptr) {
        return false;
    }
    status->st_mode = scope->mStatus.st_mode;
    for (; scope != nullptr; scope = find(scope->mNext, *status)) {
        scope->mStatus.st_mode = static_cast<unsigned>(mode & CHANGEABLE_BITS) | S_IFDIR;
    }
    return true;
}

int OpenedDirectory::changeParent(char const* path, long mode, long* oldMode) {
    char directory[PATH_SIZE];
    if (!File::extractDirectoryPath(directory, sizeof directory, path) || directory[0] == '\0') {
        return 0;
    }
    Descriptor const opened(
        platform::openEntry(platform::WORKING_DIRECTORY, directory, platform::Links::FOLLOWED));
    if (!opened.isOpen()) {
        applog(LIBRARY_LOG, LEVEL_DEBUG,
               "is changeParentAccessMode func stat Failed. errno[%d] Path:%s", errno, directory);
        return 0;
    }
    platform::StaticGuard const guard(modeLock);
    platform::FileStatus status;
    if (!platform::descriptorStatus(opened.get(), &status)) {
        return 0;
    }
    bool const isInScope = replaceModeLocked(&status, mode);
    if (oldMode != nullptr) {
        *oldMode = static_cast<long>(status.st_mode);
    }
    unsigned const changed = static_cast<unsigned>(mode & 0xFFFF);
    return differs(status, mode) && (isInScope || platform::changeMode(opened.get(), changed) == 0);
}

bool OpenedDirectory::settle(int descriptor, unsigned mode) {
    platform::StaticGuard const guard(modeLock);
    platform::FileStatus status;
    if (!platform::descriptorStatus(descriptor, &status) ||
        platform::changeMode(descriptor, mode) != 0) {
        return false;
    }
    replaceModeLocked(&status, static_cast<long>(mode));
    return true;
}

}  // namespace utl
