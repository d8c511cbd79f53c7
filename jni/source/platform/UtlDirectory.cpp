#include "platform/UtlDirectory.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/UtlFileSystem.h"

namespace utl {
namespace platform {

bool Directory::open(char const* path) {
    do {
        mStream = opendir(path);
    } while (mStream == nullptr && errno == EINTR);
    return mStream != nullptr;
}

bool Directory::open(int descriptor) {
    int const own = fcntl(descriptor, F_DUPFD_CLOEXEC, 1);
    mStream = own != -1 ? fdopendir(own) : nullptr;
    if (own != -1 && mStream == nullptr) {
        closeFile(own);
    }
    return mStream != nullptr;
}

bool Directory::next() {
    errno = 0;
    mEntry = readdir64(mStream);
    mHasFailed = mEntry == nullptr && errno != 0;
    return mEntry != nullptr;
}

bool Directory::isDirectory() const {
    if (mEntry->d_type != DT_UNKNOWN) {
        return mEntry->d_type == DT_DIR;
    }
    struct stat64 status;
    return fstatat64(dirfd(mStream), mEntry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

void Directory::close() {
    if (mStream != nullptr) {
        closedir(mStream);
        mStream = nullptr;
    }
}

}  // namespace platform
}  // namespace utl
