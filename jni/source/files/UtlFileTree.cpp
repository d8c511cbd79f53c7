#include <errno.h>

#include <cstring>
#include <limits>

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

constexpr long long NO_SIZE = -1;
constexpr long long MOST_BYTES = std::numeric_limits<long long>::max();

constexpr unsigned long LIFT_STATEMENT = 1218;
constexpr unsigned long UNLINK_STATEMENT = 1236;
constexpr unsigned long RMDIR_STATEMENT = 1229;

// Of what is no directory.
long long sizeOf(Entry const& entry, FileStatus const& status) {
    if (!S_ISREG(status.st_mode)) {
        return status.st_size;  // of a FIFO or a device, where a look is noticed at the other end
    }
    Descriptor const file(
        platform::openFileAt(entry.directory, entry.name, O_RDONLY | platform::NO_WAITING, 0));
    if (!file.isOpen()) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in size func open Failed. Path:%s errno[%d]", entry.path,
               errno);
        return NO_SIZE;
    }
    FileStatus opened;
    if (!platform::descriptorStatus(file.get(), &opened)) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "fstat Failed. errno[%d]", errno);
        applog(LIBRARY_LOG, LEVEL_ERROR, "fileSize Failed. Path:%s", entry.path);
        return NO_SIZE;
    }
    return opened.st_size;
}

class SizeSum : public TreeVisitor {
public:
    long long sum() const { return mSum; }

    // Counts files behind links, but no directories: that would lead out of the tree.
    bool take(Entry const& entry, FileStatus const&) override {
        FileStatus status;
        if (!platform::statusAt(entry.directory, entry.name, Links::FOLLOWED, &status)) {
            return false;
        }
        return S_ISDIR(status.st_mode) || add(sizeOf(entry, status));
    }
    bool enter(Entry const&, FileStatus const&) override { return true; }

private:
    bool add(long long size) {
        bool const isKnown = size != NO_SIZE && size <= MOST_BYTES - mSum;
        mSum += isKnown ? size : 0;
        return isKnown;
    }

    long long mSum = 0;
};

bool removeEntry(Entry const& entry, bool isDirectory) {
    unsigned long const statement = isDirectory ? RMDIR_STATEMENT : UNLINK_STATEMENT;
    if (watched("erase", statement, [&] { return removeIn(entry, isDirectory); }) == 0) {
        return true;
    }
    if (isDirectory) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "rmdir Failed.Path:%s errno[%d]", entry.path, errno);
    } else {
        applog(LIBRARY_LOG, LEVEL_ERROR, "remove failed. errno[%d] Path:%s", errno, entry.path);
    }
    return false;
}

class Eraser : public TreeVisitor {
public:
    explicit Eraser(bool force) : mForce(force) {}

    bool take(Entry const& entry, FileStatus const& status) override {
        return S_ISLNK(status.st_mode) ? removeEntry(entry, false)
                                       : mayGo(status) && eraseFile(entry);
    }

    // Refused before it is emptied.
    bool enter(Entry const&, FileStatus const& status) override { return mayGo(status); }

    bool leave(Entry const& entry) override { return lift(entry) && removeEntry(entry, true); }

private:
    bool mayGo(FileStatus const& status) const { return mForce || !isReadOnly(status); }

    bool lift(Entry const& entry) const {
        bool const isLifted =
            !mForce || watched("erase", LIFT_STATEMENT, [&] { return setReadOnly(entry, false); });
        if (!isLifted) {
            applog(LIBRARY_LOG, LEVEL_ERROR, "Can't erase force because Not Permited:%s",
                   entry.path);
        }
        return isLifted;
    }

    // The lock stays until the file is gone: who opens it meanwhile learns that it is.
    bool eraseFile(Entry const& entry) const {
        for (int openings = 0; openings < MOST_OPENINGS; ++openings) {
            Descriptor const file(openToAsk(entry, Links::NOT_FOLLOWED));
            if (file.isOpen() && askHolders(file.get()) != Holders::NOBODY) {
                return false;
            }
            FileStatus status;
            if (!file.isOpen() || stillMeans(entry, Links::NOT_FOLLOWED, file.get(), &status)) {
                return lift(entry) && removeEntry(entry, false);
            }
        }
        return false;
    }

    bool const mForce;
};

bool isDots(char const* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// What rename() and its like return.
int renameEntry(char const* source, char const* destination) {
    if (!File::isDirectory(destination)) {
        return platform::renameToNewAt(platform::WORKING_DIRECTORY, source, destination);
    }
    FileStatus status;
    if (platform::statusAt(platform::WORKING_DIRECTORY, source, Links::NOT_FOLLOWED, &status) &&
        !S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return -1;
    }
    // Over a directory, if that is empty.
    return platform::renameFileAt(platform::WORKING_DIRECTORY, source, destination);
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
        // Made by somebody else meanwhile, perhaps.
        if (isComponent && !isDirectory(prefix) && !makeDirectoryIn(Entry::of(prefix), whole) &&
            !(errno == EEXIST && isDirectory(prefix))) {
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
    if (exists(to.c_str()) && !isDirectory(to.c_str())) {
        return 0;
    }
    // Locked until it has its new name: who opens it by the old one learns that it has gone.
    Descriptor const file(openToAsk(Entry::of(from.c_str()), Links::FOLLOWED));
    if ((file.isOpen() && askHolders(file.get()) != Holders::NOBODY) || !makeParent(to.c_str())) {
        return 0;
    }
    if (renameEntry(from.c_str(), to.c_str()) != 0) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "rename Failed. errno[%d] Source:%s  Dest:%s", errno,
               from.c_str(), to.c_str());
        return 0;
    }
    return 1;
}

int File::erase(char const* path, int force) {
    NormalPath normal(path);
    normal.stripEnd();  // "link/" is what it leads to, but the link is what goes
    Parent const parent(normal.c_str());
    Entry const entry = parent.entry();
    FileStatus status;
    // "." and ".." cannot go themselves: nothing in them does then.
    if (!normal.isValid() || !parent.isOpen() || isDots(entry.name) ||
        !platform::statusAt(entry.directory, entry.name, Links::NOT_FOLLOWED, &status)) {
        return 0;
    }
    Eraser eraser(force == 1);
    if (!S_ISDIR(status.st_mode)) {
        return eraser.take(entry, status);
    }
    if (!eraser.enter(entry, status)) {
        return 0;
    }
    int const root = openTree(entry.directory, entry.name, Links::NOT_FOLLOWED);
    return walkTree(root, entry.path, &eraser) && eraser.leave(entry);
}

long long File::size(char const* path) {
    NormalPath normal(path);
    FileStatus status;
    if (!normal.isValid() || !platform::pathStatus(normal.c_str(), &status)) {
        return NO_SIZE;
    }
    if (!S_ISDIR(status.st_mode)) {
        return sizeOf(Entry::of(normal.c_str()), status);
    }
    normal.stripEnd();
    SizeSum sum;
    int const root = openTree(platform::WORKING_DIRECTORY, normal.c_str(), Links::FOLLOWED);
    return walkTree(root, normal.c_str(), &sum) ? sum.sum() : NO_SIZE;
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
