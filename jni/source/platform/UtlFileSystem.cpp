#include "platform/UtlFileSystem.h"

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

namespace utl {
namespace platform {

namespace {

template <typename Call>
auto repeatInterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

// Gives the file behind descriptor 0 another number: 0 stands for "none".
int liftFromZero() {
    int const descriptor = fcntl(0, F_DUPFD_CLOEXEC, 1);
    int const cause = errno;
    close(0);
    errno = cause;
    return descriptor;
}

}  // namespace

bool pathStatus(char const* path, FileStatus* status) {
    return repeatInterrupted([=] { return stat64(path, status); }) == 0;
}

bool linkStatus(char const* path, FileStatus* status) {
    return repeatInterrupted([=] { return lstat64(path, status); }) == 0;
}

bool descriptorStatus(int descriptor, FileStatus* status) {
    return repeatInterrupted([=] { return fstat64(descriptor, status); }) == 0;
}

int openFile(char const* path, int flags, unsigned mode) {
    int const descriptor =
        repeatInterrupted([=] { return open(path, flags | O_CLOEXEC | O_LARGEFILE, mode); });
    return descriptor == 0 ? liftFromZero() : descriptor;
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

long long seekFile(int descriptor, long long offset, int origin) {
    return lseek64(descriptor, offset, origin);
}

int truncateFile(int descriptor, long long size) {
    return repeatInterrupted([=] { return ftruncate64(descriptor, size); });
}

int lockFile(int descriptor, int operation) {
    return repeatInterrupted([=] { return flock(descriptor, operation); });
}

int makeDirectory(char const* path, unsigned mode) {
    return repeatInterrupted([=] { return mkdir(path, static_cast<mode_t>(mode)); });
}

int removeDirectory(char const* path) {
    return repeatInterrupted([=] { return rmdir(path); });
}

int removeFile(char const* path) {
    return repeatInterrupted([=] { return unlink(path); });
}

int renameFile(char const* source, char const* destination) {
    return repeatInterrupted([=] { return rename(source, destination); });
}

int changeMode(char const* path, unsigned mode) {
    return repeatInterrupted([=] { return chmod(path, static_cast<mode_t>(mode)); });
}

int changeMode(int descriptor, unsigned mode) {
    return repeatInterrupted([=] { return fchmod(descriptor, static_cast<mode_t>(mode)); });
}

}  // namespace platform
}  // namespace utl
