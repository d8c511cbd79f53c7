#include "platform/UtlFileSystem.h"

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>

#include "platform/UtlCancellation.h"
#include "platform/UtlErrno.h"

namespace utl {
namespace platform {

namespace {

template <typename Call>
auto repeatInterrupted(Call call) {
    NoCancellation const noCancellation;
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

// Gives the file behind descriptor 0 another number: 0 stands for "none".
int liftFromZero() {
    int const descriptor = fcntl(0, F_DUPFD_CLOEXEC, 1);
    closeFile(0);
    return descriptor;
}

int renameUnlessTaken(int directory, char const* source, char const* destination) {
#if defined(__ANDROID__) && __ANDROID_API__ < 30
    // The call would end the process on systems whose filter does not know it.
    (void)directory;
    (void)source;
    (void)destination;
    errno = ENOSYS;
    return -1;
#else
    return renameat2(directory, source, directory, destination, RENAME_NOREPLACE);
#endif
}

// A directory takes the place of an empty one only, so that what appears in it stays.
int renameDirectoryStepwise(int directory, char const* source, char const* destination) {
    if (mkdirat(directory, destination, 0700) != 0) {
        return -1;
    }
    int const result = renameat(directory, source, directory, destination);
    if (result != 0) {
        ErrnoGuard const guard;
        unlinkat(directory, destination, AT_REMOVEDIR);
    }
    return result;
}

// For file systems without links: the name is taken first, and locked, so that no File uses it.
int renameOverPlaceholder(int directory, char const* source, char const* destination) {
    int const placeholder = openFileAt(directory, destination, O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (placeholder == -1) {
        return -1;
    }
    flock(placeholder, LOCK_EX | LOCK_NB);
    int const result = renameat(directory, source, directory, destination);
    ErrnoGuard const guard;
    if (result != 0) {
        unlinkat(directory, destination, 0);
    }
    closeFile(placeholder);
    return result;
}

int renameFileStepwise(int directory, char const* source, char const* destination) {
    if (linkat(directory, source, directory, destination, 0) != 0) {
        bool const hasLinks = errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK;
        return hasLinks ? -1 : renameOverPlaceholder(directory, source, destination);
    }
    int const result = unlinkat(directory, source, 0);
    if (result != 0) {
        ErrnoGuard const guard;
        unlinkat(directory, destination, 0);
    }
    return result;
}

int noFollow(Links links) {
    return links == Links::NOT_FOLLOWED ? O_NOFOLLOW : 0;
}

}  // namespace

bool pathStatus(char const* path, FileStatus* status) {
    return statusAt(WORKING_DIRECTORY, path, Links::FOLLOWED, status);
}

bool statusAt(int directory, char const* name, Links links, FileStatus* status) {
    int const flags = links == Links::NOT_FOLLOWED ? AT_SYMLINK_NOFOLLOW : 0;
    return repeatInterrupted([=] { return fstatat64(directory, name, status, flags); }) == 0;
}

bool descriptorStatus(int descriptor, FileStatus* status) {
    int const result = repeatInterrupted([=] { return fstat64(descriptor, status); });
    // Before Linux 3.6 only the other call knows descriptors that were opened with O_PATH.
    return result == 0 || (errno == EBADF && fstatat64(descriptor, "", status, AT_EMPTY_PATH) == 0);
}

bool isSameFile(FileStatus const& a, FileStatus const& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

int openFile(char const* path, int flags, unsigned mode) {
    return openFileAt(WORKING_DIRECTORY, path, flags, mode);
}

int openFileAt(int directory, char const* name, int flags, unsigned mode) {
    int const descriptor = repeatInterrupted(
        [=] { return openat(directory, name, flags | O_CLOEXEC | O_LARGEFILE, mode); });
    return descriptor == 0 ? liftFromZero() : descriptor;
}

int openDirectory(int directory, char const* name, Links links) {
    int const flags = O_DIRECTORY | noFollow(links);
    int const descriptor = openFileAt(directory, name, O_RDONLY | flags, 0);
    bool const isUnreadable = descriptor == -1 && errno == EACCES;
    return isUnreadable ? openFileAt(directory, name, O_PATH | flags, 0) : descriptor;
}

int openEntry(int directory, char const* name, Links links) {
    FileStatus status;
    int descriptor = -1;
    // Needs no /proc when its mode is changed, but others may notice and it may be refused.
    if (statusAt(directory, name, links, &status) &&
        (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))) {
        descriptor = openFileAt(directory, name, O_RDONLY | NO_WAITING | noFollow(links), 0);
    }
    return descriptor != -1 ? descriptor : openFileAt(directory, name, O_PATH | noFollow(links), 0);
}

void closeFile(int descriptor) {
    NoCancellation const noCancellation;
    ErrnoGuard const guard;
    close(descriptor);
}

int letWait(int descriptor) {
    int const flags = fcntl(descriptor, F_GETFL);
    return flags == -1 ? -1 : fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
}

bool isWritable(int descriptor) {
    int const flags = fcntl(descriptor, F_GETFL);
    return flags != -1 && (flags & O_ACCMODE) != O_RDONLY;
}

int syncFile(int descriptor) {
    int const result = repeatInterrupted([=] { return fsync(descriptor); });
    return result != 0 && (errno == EINVAL || errno == EROFS) ? 0 : result;
}

long readFile(int descriptor, void* buffer, unsigned long length) {
    return repeatInterrupted([=] { return read(descriptor, buffer, length); });
}

long readFileAt(int descriptor, long long position, void* buffer, unsigned long length) {
    return repeatInterrupted([=] { return pread64(descriptor, buffer, length, position); });
}

long writeFile(int descriptor, void const* buffer, unsigned long length) {
    return repeatInterrupted([=] { return write(descriptor, buffer, length); });
}

long transferFile(int source, int destination, unsigned long length) {
#if defined(__ANDROID__) && __ANDROID_API__ < 34
    // The call would end the process on systems whose filter does not know it.
    (void)source;
    (void)destination;
    (void)length;
    errno = ENOSYS;
    return -1;
#else
    return repeatInterrupted(
        [=] { return copy_file_range(source, nullptr, destination, nullptr, length, 0); });
#endif
}

long long seekFile(int descriptor, long long offset, int origin) {
    return lseek64(descriptor, offset, origin);
}

int truncateFile(int descriptor, long long size) {
    return repeatInterrupted([=] { return ftruncate64(descriptor, size); });
}

int lockFile(int descriptor, int operation) {
    return repeatInterrupted([=] { return flock(descriptor, operation); });
}

int makeDirectoryAt(int directory, char const* name, unsigned mode) {
    return repeatInterrupted([=] { return mkdirat(directory, name, static_cast<mode_t>(mode)); });
}

int removeDirectoryAt(int directory, char const* name) {
    return repeatInterrupted([=] { return unlinkat(directory, name, AT_REMOVEDIR); });
}

int removeFileAt(int directory, char const* name) {
    return repeatInterrupted([=] { return unlinkat(directory, name, 0); });
}

int renameFileAt(int directory, char const* source, char const* destination) {
    return repeatInterrupted([=] { return renameat(directory, source, directory, destination); });
}

int renameToNewAt(int directory, char const* source, char const* destination) {
    int const result =
        repeatInterrupted([=] { return renameUnlessTaken(directory, source, destination); });
    // Neither every kernel nor every file system has it.
    if (result == 0 || (errno != ENOSYS && errno != EINVAL)) {
        return result;
    }
    FileStatus status;
    if (!statusAt(directory, source, Links::NOT_FOLLOWED, &status)) {
        return -1;
    }
    return S_ISDIR(status.st_mode) ? renameDirectoryStepwise(directory, source, destination)
                                   : renameFileStepwise(directory, source, destination);
}

int changeMode(int descriptor, unsigned mode) {
    int const result =
        repeatInterrupted([=] { return fchmod(descriptor, static_cast<mode_t>(mode)); });
    if (result == 0 || errno != EBADF) {
        return result;
    }
    // One that was opened without permission to read. Its name there is the file, not a path to it.
    char name[32];
    snprintf(name, sizeof name, "/proc/self/fd/%d", descriptor);
    return repeatInterrupted([=] { return chmod(name, static_cast<mode_t>(mode)); });
}

bool isInGroup(gid_t group) {
    gid_t groups[64];
    int const count = getgroups(64, groups);
    return group == getegid() ||
           (count > 0 && std::find(groups, groups + count, group) != groups + count);
}

}  // namespace platform
}  // namespace utl
