#include "files/UtlFileLock.h"

#include <errno.h>

#include "files/UtlFileCall.h"

namespace utl {

namespace {

constexpr unsigned long OPEN_STATEMENT = 1480;
constexpr unsigned long EXCLUSIVE_STATEMENT = 1489;
constexpr unsigned long SHARED_STATEMENT = 1495;

bool takesLock(unsigned long statement, int descriptor, int operation) {
    return watched("isOpened", statement,
                   [=] { return platform::lockFile(descriptor, operation | LOCK_NB); }) == 0;
}

}  // namespace

Holders askHolders(int descriptor) {
    if (takesLock(EXCLUSIVE_STATEMENT, descriptor, LOCK_EX)) {
        return Holders::NOBODY;
    }
    return takesLock(SHARED_STATEMENT, descriptor, LOCK_SH) ? Holders::READERS : Holders::SOMEBODY;
}

int openToAsk(Entry const& entry, platform::Links links) {
    platform::FileStatus status;
    // Nobody has a FIFO or a device open through a File; a look into it is noticed at the other
    // end.
    if (!platform::statusAt(entry.directory, entry.name, links, &status) ||
        !S_ISREG(status.st_mode)) {
        return -1;
    }
    int const flags =
        O_RDONLY | platform::NO_WAITING | (links == platform::Links::NOT_FOLLOWED ? O_NOFOLLOW : 0);
    return watched("isOpened", OPEN_STATEMENT,
                   [&] { return platform::openFileAt(entry.directory, entry.name, flags, 0); });
}

bool stillMeans(Entry const& entry, platform::Links links, int descriptor,
                platform::FileStatus* status) {
    platform::FileStatus named;
    if (!platform::descriptorStatus(descriptor, status)) {
        return false;
    }
    return platform::statusAt(entry.directory, entry.name, links, &named)
               ? platform::isSameFile(*status, named)
               : errno == EACCES;
}

}  // namespace utl
