#include <errno.h>

#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlString.h"

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

constexpr unsigned long BLOCK_SIZE = 1024;

enum Statement : unsigned long {
    OPEN_SOURCE = 2012,
    STAT_SOURCE = 2021,
    CREATE_DESTINATION = 2034,
    MODE_DESTINATION = 2039,
    OPEN_DESTINATION = 2044,
    READ_SOURCE = 2058,
    WRITE_DESTINATION = 2063,
    CLOSE_DESTINATION = 2081,
    CLOSE_SOURCE = 2086,
};

template <typename Call>
auto watchedStep(Statement statement, Call call) {
    return watched("copy", statement, call);
}

// Tells the watchdog when it is closed.
class CopyEnd {
public:
    CopyEnd(int descriptor, Statement closing) : mDescriptor(descriptor), mClosing(closing) {}
    ~CopyEnd() {
        if (mDescriptor.isOpen()) {
            watchedStep(mClosing, [this] { return mDescriptor.close(); });
        }
    }

    int get() const { return mDescriptor.get(); }
    bool isOpen() const { return mDescriptor.isOpen(); }

private:
    Descriptor mDescriptor;
    Statement const mClosing;
};

bool askSource(int descriptor, char const* path, platform::FileStatus* status) {
    bool const isKnown =
        watchedStep(STAT_SOURCE, [=] { return platform::descriptorStatus(descriptor, status); });
    if (!isKnown) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in copy func stat Failed. errno[%d] Path:%s", errno,
               path);
    }
    return isKnown;
}

// A new file gets the permission bits whatever the process's mask is.
int createDestination(char const* path, unsigned mode, int overwrite) {
    int const created = watchedStep(CREATE_DESTINATION, [=] {
        return platform::openFile(path, O_WRONLY | O_CREAT | O_EXCL | platform::NO_WAITING, mode);
    });
    if (created != Descriptor::NO_DESCRIPTOR) {
        watchedStep(MODE_DESTINATION, [=] { return platform::changeMode(created, mode); });
        return created;
    }
    if (overwrite != 1 || errno != EEXIST) {
        return Descriptor::NO_DESCRIPTOR;
    }
    // Deliberate: not truncated. Callers write the beginning of a longer file anew in this way.
    return watchedStep(OPEN_DESTINATION, [=] {
        return platform::openFile(path, O_WRONLY | O_CREAT | platform::NO_WAITING, mode);
    });
}

bool copyBytes(int source, int destination) {
    char block[BLOCK_SIZE];
    for (;;) {
        long const got =
            watchedStep(READ_SOURCE, [&] { return platform::readFile(source, block, BLOCK_SIZE); });
        if (got <= 0) {
            // Deliberate: a file that cannot be read on ends there; what could be read is kept.
            return true;
        }
        unsigned long const size = static_cast<unsigned long>(got);
        if (watchedStep(WRITE_DESTINATION,
                        [&] { return platform::writeFile(destination, block, size); }) != got) {
            return false;
        }
    }
}

bool copyFile(char const* source, char const* destination, int overwrite) {
    char directory[PATH_SIZE];
    if (!File::extractDirectoryPath(directory, sizeof directory, destination) ||
        !File::makeDirectories(directory)) {
        return false;
    }
    bool isShared = false;
    platform::FileStatus status;
    // A FIFO or a device need never come to an end.
    if ((File::isOpened(source, &isShared) && !isShared) ||
        !platform::pathStatus(source, &status) || !S_ISREG(status.st_mode)) {
        return false;
    }
    OpenedParent const sourceParent(source);
    CopyEnd const from(
        watchedStep(OPEN_SOURCE,
                    [=] { return platform::openFile(source, O_RDONLY | platform::NO_WAITING, 0); }),
        CLOSE_SOURCE);
    if (!from.isOpen() || !askSource(from.get(), source, &status)) {
        return false;
    }
    OpenedParent const destinationParent(destination);
    CopyEnd const to(createDestination(destination, status.st_mode & PERMISSIONS, overwrite),
                     CLOSE_DESTINATION);
    return to.isOpen() && copyBytes(from.get(), to.get());
}

bool isSame(platform::FileStatus const& a, platform::FileStatus const& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether `path` is `directory` or somewhere below it, by whatever links. True too when that cannot
// be said.
bool isBelow(char const* path, platform::FileStatus const& directory) {
    char at[4 * PATH_SIZE];
    formatStr(at, sizeof at, "%s", path);
    platform::FileStatus status;
    bool isKnown = platform::pathStatus(at, &status);
    while (isKnown && !isSame(status, directory)) {
        platform::FileStatus const below = status;
        isKnown = combineStr(at, sizeof at, at, "/..", ALL, WHOLE) != NONE &&
                  platform::pathStatus(at, &status);
        if (isKnown && isSame(status, below)) {
            return false;  // the root
        }
    }
    return true;
}

// Whether the copy of the directory `source` would come to be inside it.
bool wouldNest(char const* source, char const* destination) {
    platform::FileStatus directory;
    platform::FileStatus target;
    if (!platform::pathStatus(source, &directory)) {
        return false;
    }
    if (platform::pathStatus(destination, &target)) {
        return !isSame(target, directory) && isBelow(destination, directory);
    }
    char existing[PATH_SIZE];
    storePart(existing, sizeof existing, destination, t_strlen(destination));
    while (!File::exists(existing)) {
        char name[PATH_SIZE];
        if (!File::extractFileName(name, sizeof name, existing, 0) ||
            compareStr(name, "..", ALL) == 0) {
            return true;  // nobody can say where that will be
        }
        File::extractDirectoryPath(existing, sizeof existing, existing);
        if (existing[0] == '\0') {
            storePart(existing, sizeof existing, destination[0] == '/' ? "/" : ".", 1);
        }
    }
    return isBelow(existing, directory);
}

bool copyEntry(NormalPath const& source, NormalPath const& destination, int overwrite);

bool copyInto(char const* entry, char const* directory, int overwrite) {
    if (isLinkToDirectory(entry)) {
        return true;
    }
    char name[PATH_SIZE];
    char target[2 * PATH_SIZE];
    if (!File::extractFileName(name, sizeof name, entry, 0)) {
        return false;
    }
    formatStr(target, sizeof target, "%s/%s", directory, name);
    return copyEntry(NormalPath(entry), NormalPath(target), overwrite);
}

bool copyEntry(NormalPath const& source, NormalPath const& destination, int overwrite) {
    char const* const from = source.c_str();
    char const* const to = destination.c_str();
    if (!source.isValid() || !destination.isValid() || !File::exists(from)) {
        return false;
    }
    if (!File::isDirectory(from)) {
        return copyFile(from, to, overwrite);
    }
    return !wouldNest(from, to) && File::makeDirectories(to) &&
           visitEntries(from, [=](char const* entry) { return copyInto(entry, to, overwrite); });
}

}  // namespace

bool File::copy(char const* source, char const* destination, int overwrite) {
    NormalPath from(source);
    NormalPath to(destination);
    if (!from.isValid() || !to.isValid() || !exists(from.c_str())) {
        return false;
    }
    bool const isTree = isDirectory(from.c_str());
    if (isTree) {
        from.stripEnd();
        to.stripEnd();
    }
    if (compareStr(from.c_str(), to.c_str(), ALL) == 0) {
        return true;
    }
    return copyEntry(from, to, overwrite);
}

bool File::copy(char const* destination, int overwrite) const {
    return copy(mPath.c_str(), destination, overwrite);
}

}  // namespace utl
