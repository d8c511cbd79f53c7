#include <errno.h>

#include "UtlFile.h"
#include "UtlLog.h"

#include "files/UtlDescriptor.h"
#include "files/UtlDirectoryWalk.h"
#include "files/UtlFileCall.h"
#include "files/UtlFileModes.h"
#include "files/UtlNormalPath.h"
#include "files/UtlOpenedParent.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlFileSystem.h"

namespace utl {

namespace {

constexpr long long NO_SIZE = -1;

constexpr unsigned long LIFT_STATEMENT = 1218;
constexpr unsigned long UNLINK_STATEMENT = 1236;
constexpr unsigned long RMDIR_STATEMENT = 1229;

// Opens up the parent only of a directory that is missing: what is above it belongs to others.
bool makeDirectory(char const* path, char const* whole) {
    if (File::isDirectory(path)) {
        return true;
    }
    OpenedParent const parent(path);
    if (platform::makeDirectory(path, OPEN_TO_ALL) == 0) {
        return true;
    }
    if (errno == EEXIST) {
        return File::isDirectory(path) == 1;  // somebody else's, by now
    }
    applog(LIBRARY_LOG, LEVEL_ERROR, "CreateDirectory Failed. errno[%d] Path:%s/(%s/)", errno,
           whole, path);
    return false;
}

long long sizeOfFile(char const* path) {
    platform::FileStatus status;
    if (platform::pathStatus(path, &status) && !S_ISREG(status.st_mode)) {
        return status.st_size;  // of a FIFO or a device, where a look is noticed at the other end
    }
    Descriptor const file(platform::openFile(path, O_RDONLY | platform::NO_WAITING, 0));
    if (!file.isOpen()) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in size func open Failed. Path:%s errno[%d]", path,
               errno);
        return NO_SIZE;
    }
    if (!platform::descriptorStatus(file.get(), &status)) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "fstat Failed. errno[%d]", errno);
        applog(LIBRARY_LOG, LEVEL_ERROR, "fileSize Failed. Path:%s", path);
        return NO_SIZE;
    }
    return status.st_size;
}

bool addSize(long long* sum, char const* entry) {
    long long const size = isLinkToDirectory(entry) ? 0 : File::size(entry);
    *sum += size;
    return size != NO_SIZE;
}

bool remove(char const* path, bool isDirectory) {
    OpenedParent const parent(path);
    if (isDirectory) {
        if (watched("erase", RMDIR_STATEMENT, [=] { return platform::removeDirectory(path); }) !=
            0) {
            applog(LIBRARY_LOG, LEVEL_ERROR, "rmdir Failed.Path:%s errno[%d]", path, errno);
            return false;
        }
    } else if (watched("erase", UNLINK_STATEMENT, [=] { return platform::removeFile(path); }) !=
               0) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "remove failed. errno[%d] Path:%s", errno, path);
        return false;
    }
    return true;
}

bool liftForErase(char const* path) {
    bool const isLifted =
        watched("erase", LIFT_STATEMENT, [=] { return File::liftReadOnly(path, 0); }) == 1;
    if (!isLifted) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "Can't erase force because Not Permited:%s", path);
    }
    return isLifted;
}

}  // namespace

int File::makeDirectories(char const* path) {
    NormalPath normal(path);
    if (!normal.isValid()) {
        return 0;
    }
    if (exists(normal.c_str())) {
        return isDirectory(normal.c_str());
    }
    normal.stripEnd();
    char const* const whole = normal.c_str();
    unsigned long const length = t_strlen(whole);
    for (unsigned long end = 1; end <= length; ++end) {
        char prefix[PATH_SIZE];
        storePart(prefix, sizeof prefix, whole, end);
        bool const isComponent = end == length || whole[end] == '/';
        if (isComponent && !makeDirectory(prefix, whole)) {
            return 0;
        }
    }
    return 1;
}

int File::move(char const* source, char const* destination) {
    NormalPath const from(source);
    NormalPath const to(destination);
    if (!from.isValid() || !to.isValid() || !exists(from.c_str())) {
        return 0;
    }
    if (compareStr(from.c_str(), to.c_str(), ALL) == 0) {
        return 1;
    }
    char directory[PATH_SIZE];
    bool const isTaken = exists(to.c_str()) && !isDirectory(to.c_str());
    if (isTaken || isOpened(from.c_str(), nullptr) ||
        !extractDirectoryPath(directory, sizeof directory, to.c_str()) ||
        !makeDirectories(directory)) {
        return 0;
    }
    if (platform::renameFile(from.c_str(), to.c_str()) != 0) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "rename Failed. errno[%d] Source:%s  Dest:%s", errno,
               from.c_str(), to.c_str());
        return 0;
    }
    return 1;
}

int File::erase(char const* path, int force) {
    NormalPath normal(path);
    platform::FileStatus status;
    if (!normal.isValid() || !platform::linkStatus(normal.c_str(), &status)) {
        return 0;
    }
    normal.stripEnd();  // "link/" is what it leads to, but the link is what goes
    char const* const target = normal.c_str();
    if (isLink(target)) {
        return remove(target, false);
    }

    bool const isTree = S_ISDIR(status.st_mode);
    // Before it is emptied.
    if (force != 1 && isReadOnly(target)) {
        return 0;
    }
    bool const isFree =
        isTree ? visitEntries(target, [=](char const* entry) { return erase(entry, force) == 1; })
               : !isOpened(target, nullptr);
    return isFree && (force != 1 || liftForErase(target)) && remove(target, isTree);
}

long long File::size(char const* path) {
    NormalPath normal(path);
    if (!normal.isValid() || !exists(normal.c_str())) {
        return NO_SIZE;
    }
    if (!isDirectory(normal.c_str())) {
        return sizeOfFile(normal.c_str());
    }
    normal.stripEnd();
    long long sum = 0;
    bool const isComplete =
        visitEntries(normal.c_str(), [&sum](char const* entry) { return addSize(&sum, entry); });
    return isComplete ? sum : NO_SIZE;
}

int File::makeDirectories() const {
    return makeDirectories(mPath.c_str());
}

int File::move(char const* destination) const {
    return isOpened() ? 0 : move(mPath.c_str(), destination);
}

int File::erase(int force) const {
    return isOpened() ? 0 : erase(mPath.c_str(), force);
}

}  // namespace utl
