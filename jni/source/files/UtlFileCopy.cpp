#include <errno.h>

#include <cstring>
#include <memory>
#include <new>

#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlString.h"

#include "files/UtlDescriptor.h"
#include "files/UtlEntry.h"
#include "files/UtlFileCall.h"
#include "files/UtlFileLock.h"
#include "files/UtlFileModes.h"
#include "files/UtlNormalPath.h"
#include "files/UtlTreeWalk.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlFileSystem.h"

namespace utl {

namespace {

using platform::FileStatus;
using platform::Links;

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

// What files are copied through, one after another.
class CopyBlock {
public:
    CopyBlock() : mLarge(new (std::nothrow) char[LARGE_SIZE]) {}

    char* data() { return mLarge != nullptr ? mLarge.get() : mSmall; }
    unsigned long size() const { return mLarge != nullptr ? LARGE_SIZE : sizeof mSmall; }

private:
    static constexpr unsigned long LARGE_SIZE = 131072;  // fits in the caches of what it runs on

    std::unique_ptr<char[]> const mLarge;
    char mSmall[1024];  // without memory
};

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

bool askSource(int descriptor, char const* path, FileStatus* status) {
    bool const isKnown =
        watchedStep(STAT_SOURCE, [=] { return platform::descriptorStatus(descriptor, status); });
    if (!isKnown) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in copy func stat Failed. errno[%d] Path:%s", errno,
               path);
    }
    return isKnown;
}

// Whoever writes it may not be done.
bool isBeingWritten(int descriptor) {
    Holders const holders = askHolders(descriptor);
    platform::lockFile(descriptor, LOCK_UN);  // a copy keeps nobody from what it reads
    return holders == Holders::SOMEBODY;
}

// What a file is copied to.
struct Target {
    Entry entry;
    Links links;
    bool overwrites;
};

int createTarget(Target const& target, unsigned mode) {
    int const flags = O_WRONLY | O_CREAT | O_EXCL | platform::NO_WAITING;
    return watchedStep(CREATE_DESTINATION, [&] { return openIn(target.entry, flags, mode); });
}

// Deliberate: not truncated. Callers write the beginning of a longer file anew in this way.
int openExisting(Target const& target, unsigned mode) {
    int const flags = O_WRONLY | O_CREAT | platform::NO_WAITING |
                      (target.links == Links::NOT_FOLLOWED ? O_NOFOLLOW : 0);
    return watchedStep(OPEN_DESTINATION, [&] { return openIn(target.entry, flags, mode); });
}

// With a writer's lock, and its status; none when anybody has it open.
int openTarget(Target const& target, unsigned mode, bool* isNew, FileStatus* status) {
    for (int openings = 0; openings < MOST_OPENINGS; ++openings) {
        Descriptor file(createTarget(target, mode));
        *isNew = file.isOpen();
        if (!*isNew && target.overwrites && errno == EEXIST) {
            file.set(openExisting(target, mode));
        }
        if (!file.isOpen() ||
            (platform::lockFile(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)) {
            return Descriptor::NO_DESCRIPTOR;
        }
        if (stillMeans(target.entry, target.links, file.get(), status)) {
            return file.release();
        }
    }
    return Descriptor::NO_DESCRIPTOR;
}

// Ends where the system cannot go on, for whatever reason: copyBytes() finds that out, and goes on
// itself where it can.
void transferBytes(int source, int destination) {
    constexpr unsigned long PIECE = 4ul << 20;  // the watchdog hears of each
    while (watchedStep(WRITE_DESTINATION,
                       [=] { return platform::transferFile(source, destination, PIECE); }) > 0) {
    }
}

bool copyBytes(int source, int destination, CopyBlock& block) {
    for (;;) {
        long const got = watchedStep(
            READ_SOURCE, [&] { return platform::readFile(source, block.data(), block.size()); });
        if (got <= 0) {
            // Deliberate: a file that cannot be read on ends there; what could be read is kept.
            return true;
        }
        unsigned long const size = static_cast<unsigned long>(got);
        if (watchedStep(WRITE_DESTINATION, [&] {
                return platform::writeFile(destination, block.data(), size);
            }) != got) {
            return false;
        }
    }
}

bool hasSameOwners(FileStatus const& source, int copy) {
    FileStatus status;
    return platform::descriptorStatus(copy, &status) && status.st_uid == source.st_uid &&
           status.st_gid == source.st_gid;
}

// A new file gets its mode whatever the process's mask is, and last: writing takes bits away. The
// set-id bits let others act for its owner and its group: not for any but those of the source.
void copyMode(FileStatus const& source, int copy, FileStatus const& made, bool isWhole) {
    if ((source.st_mode & CHANGEABLE_BITS) == (made.st_mode & CHANGEABLE_BITS)) {
        return;  // it was made with it, and without bits that writing takes away
    }
    bool const mayActFor = isWhole && hasSameOwners(source, copy);
    unsigned const bits = mayActFor ? CHANGEABLE_BITS : CHANGEABLE_BITS & ~SET_ID_BITS;
    watchedStep(MODE_DESTINATION,
                [&] { return platform::changeMode(copy, source.st_mode & bits); });
}

// `status` is what was there a moment ago.
bool copyFile(Entry const& entry, FileStatus status, Target const& target, CopyBlock& block) {
    // A FIFO or a device need never come to an end; opening one is noticed.
    if (!S_ISREG(status.st_mode)) {
        return false;
    }
    CopyEnd const from(watchedStep(OPEN_SOURCE,
                                   [&] {
                                       return platform::openFileAt(entry.directory, entry.name,
                                                                   O_RDONLY | platform::NO_WAITING,
                                                                   0);
                                   }),
                       CLOSE_SOURCE);
    if (!from.isOpen() || !askSource(from.get(), entry.path, &status) || !S_ISREG(status.st_mode) ||
        isBeingWritten(from.get())) {
        return false;
    }
    bool isNew = false;
    FileStatus made;
    CopyEnd const to(openTarget(target, status.st_mode & PERMISSIONS, &isNew, &made),
                     CLOSE_DESTINATION);
    if (!to.isOpen()) {
        return false;
    }
    if (status.st_size > static_cast<long long>(block.size())) {
        transferBytes(from.get(), to.get());
    }
    bool const isWhole = copyBytes(from.get(), to.get(), block);
    if (isNew && !keepsModes()) {
        copyMode(status, to.get(), made, isWhole);
    }
    return isWhole;
}

// Whether `path` is `directory` or somewhere below it, by whatever links. True too when that cannot
// be said.
bool isBelow(char const* path, FileStatus const& directory) {
    Descriptor at(platform::openDirectory(platform::WORKING_DIRECTORY, path, Links::FOLLOWED));
    FileStatus status;
    bool isKnown = at.isOpen() && platform::descriptorStatus(at.get(), &status);
    while (isKnown && !platform::isSameFile(status, directory)) {
        FileStatus const below = status;
        at.set(platform::openDirectory(at.get(), "..", Links::NOT_FOLLOWED));
        isKnown = at.isOpen() && platform::descriptorStatus(at.get(), &status);
        if (isKnown && platform::isSameFile(status, below)) {
            return false;  // the root
        }
    }
    return true;
}

// Whether the copy of the directory `source` would come to be inside it.
bool wouldNest(char const* source, char const* destination) {
    FileStatus directory;
    FileStatus target;
    if (!platform::pathStatus(source, &directory)) {
        return false;
    }
    if (platform::pathStatus(destination, &target)) {
        return !platform::isSameFile(target, directory) && isBelow(destination, directory);
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

class TreeCopy : public TreeVisitor {
public:
    // From `source`, without a separator at its end, to `target`, a directory.
    TreeCopy(char const* source, char const* target, bool overwrites)
        : mSource(source),
          mTarget(target),
          mOverwrites(overwrites),
          mWay(openTree(platform::WORKING_DIRECTORY, target, Links::FOLLOWED)),
          mRoot(mWay.status()) {}

    bool isReady() const { return mWay.directory() != Descriptor::NO_DESCRIPTOR; }

    bool take(Entry const& entry, FileStatus const& status) override {
        FileStatus behind = status;
        if (S_ISLNK(status.st_mode) &&
            !platform::statusAt(entry.directory, entry.name, Links::FOLLOWED, &behind)) {
            return false;
        }
        bool const leadsOut = S_ISDIR(behind.st_mode);
        return leadsOut || copyFile(entry, behind,
                                    {at(entry, nullptr), Links::NOT_FOLLOWED, mOverwrites}, mBlock);
    }

    bool enter(Entry const& entry, FileStatus const& status) override {
        char path[4 * PATH_SIZE];
        formatStr(path, sizeof path, "%s%s", mTarget, entry.path + std::strlen(mSource));
        // Somebody may have moved the copy into what is copied.
        return !platform::isSameFile(status, mRoot) &&
               (makeDirectoryIn(at(entry, path), path) || errno == EEXIST) &&
               mWay.enter(
                   platform::openDirectory(mWay.directory(), entry.name, Links::NOT_FOLLOWED));
    }

    bool leave(Entry const&) override { return mWay.leave(); }

private:
    // Where what is copied from `entry` goes.
    Entry at(Entry const& entry, char const* path) const {
        return {mWay.directory(), entry.name, path, true};
    }

    char const* const mSource;
    char const* const mTarget;
    bool const mOverwrites;
    DirectoryWay mWay;
    FileStatus const mRoot;
    CopyBlock mBlock;
};

bool copyTree(char const* from, char const* to, bool overwrites) {
    if (wouldNest(from, to) || !File::makeDirectories(to)) {
        return false;
    }
    TreeCopy copy(from, to, overwrites);
    return copy.isReady() &&
           walkTree(openTree(platform::WORKING_DIRECTORY, from, Links::FOLLOWED), from, &copy);
}

bool copyOneFile(char const* from, char const* to, bool overwrites) {
    FileStatus status;
    CopyBlock block;
    return makeParent(to) && platform::pathStatus(from, &status) &&
           copyFile(Entry::of(from), status, {Entry::of(to), Links::FOLLOWED, overwrites}, block);
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
    if (isTree) {
        return copyTree(from.c_str(), to.c_str(), overwrite == 1);
    }
    return copyOneFile(from.c_str(), to.c_str(), overwrite == 1);
}

bool File::copy(char const* destination, int overwrite) const {
    return copy(mPath.c_str(), destination, overwrite);
}

}  // namespace utl
