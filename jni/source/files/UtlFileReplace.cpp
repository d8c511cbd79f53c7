#include <errno.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>

#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlString.h"

#include "files/UtlDescriptor.h"
#include "files/UtlEntry.h"
#include "files/UtlFileCall.h"
#include "files/UtlFileLock.h"
#include "files/UtlFileModes.h"
#include "files/UtlNormalPath.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlClock.h"
#include "platform/UtlDirectory.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFileSystem.h"
#include "platform/UtlKernelThread.h"

namespace utl {

namespace {

using platform::FileStatus;
using platform::Links;

enum Statement : unsigned long {
    OPEN_LISTING = 2201,
    READ_LISTING = 2204,
    SWEEP = 2207,
    CREATE = 2212,
    WRITE_BYTES = 2218,
    SYNC_FILE = 2224,
    RENAME = 2231,
    SYNC_DIRECTORY = 2236,
};

template <typename Call>
auto watchedStep(Statement statement, Call call) {
    return watched("replace", statement, call);
}

enum class Outcome { DONE, FAILED, AGAIN };

constexpr unsigned PRIVATE = 0600;

// Who precreates names, to be in the way, has to guess one each time.
constexpr int MOST_NAMES = 100;

// Between them are DIGITS hexadecimal ones. No name is used twice: whoever loses his file does not
// take another's for it.
constexpr char PREFIX[] = ".utl-";
constexpr char SUFFIX[] = ".tmp";
constexpr unsigned long DIGITS = 16;

// A replacement looks at so many names of its directory, on average, for what was left there.
constexpr long NAMES_EACH = 32;

// What has the name. While this lives nobody opens that file to write, moves or erases it.
struct OldFile {
    bool exists = false;
    bool isFile = false;  // and no link
    FileStatus status = {};
    Descriptor reader;
};

// FAILED with errno where it may not be replaced; AGAIN when it has just changed.
Outcome find(Entry const& entry, OldFile* old) {
    if (!platform::statusAt(entry.directory, entry.name, Links::NOT_FOLLOWED, &old->status)) {
        return errno == ENOENT ? Outcome::DONE : Outcome::FAILED;
    }
    old->exists = true;
    if (S_ISLNK(old->status.st_mode)) {
        return Outcome::DONE;
    }
    if (!S_ISREG(old->status.st_mode) || isReadOnly(old->status)) {
        errno = S_ISDIR(old->status.st_mode) ? EISDIR : EPERM;
        return Outcome::FAILED;
    }
    old->isFile = true;
    errno = 0;
    old->reader.set(openToAsk(entry, Links::NOT_FOLLOWED));
    if (!old->reader.isOpen()) {
        bool const isUnreadable = errno == EACCES;  // nobody can be asked then
        bool const hasChanged = errno == ENOENT || errno == 0;
        return isUnreadable ? Outcome::DONE : hasChanged ? Outcome::AGAIN : Outcome::FAILED;
    }
    if (platform::lockFile(old->reader.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return Outcome::FAILED;
    }
    return stillMeans(entry, Links::NOT_FOLLOWED, old->reader.get(), &old->status) ? Outcome::DONE
                                                                                   : Outcome::AGAIN;
}

// A new file beside another one. It goes with this, unless it has got that one's name.
class Beside {
public:
    // Of that mode at first. Not open, with errno, when it cannot be made.
    Beside(Entry const& entry, unsigned mode);
    ~Beside() {
        if (mFile.isOpen() && !mIsPlaced) {
            platform::ErrnoGuard const guard;
            removeIn(mEntry, false);
        }
    }
    Beside(Beside const&) = delete;
    Beside& operator=(Beside const&) = delete;

    bool isOpen() const { return mFile.isOpen(); }

    // Afterwards they are on the disk. False with errno.
    bool write(char const* bytes, unsigned long size) const;

    // As that of `old`, or of any new file. False with errno.
    bool settleMode(OldFile const& old) const;

    // False with errno, EEXIST when something has it that is not to be replaced.
    bool takeName(char const* name, bool overwrites) {
        mIsPlaced = watchedStep(RENAME, [=] { return renameIn(mEntry, name, overwrites); }) == 0;
        return mIsPlaced;
    }

private:
    char mName[32];
    Entry const mEntry;
    Descriptor mFile;
    bool mIsPlaced = false;
};

Beside::Beside(Entry const& entry, unsigned mode)
    : mEntry{entry.directory, mName, entry.path, entry.canOpenUp} {
    errno = EEXIST;
    for (int names = 0; !mFile.isOpen() && errno == EEXIST && names < MOST_NAMES; ++names) {
        formatStr(mName, sizeof mName, "%s%08x%08x%s", PREFIX,
                  static_cast<unsigned>(platform::threadId()),
                  static_cast<unsigned>(platform::monotonicNanoseconds()), SUFFIX);
        mFile.set(watchedStep(CREATE, [&] {
            return openIn(mEntry, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
        }));
    }
}

bool Beside::write(char const* bytes, unsigned long size) const {
    constexpr unsigned long PIECE = 4ul << 20;  // the watchdog hears of each
    for (unsigned long done = 0; done < size;) {
        unsigned long const length = std::min(size - done, PIECE);
        long const written = watchedStep(
            WRITE_BYTES, [=] { return platform::writeFile(mFile.get(), bytes + done, length); });
        if (written <= 0) {
            errno = written == 0 ? ENOSPC : errno;
            return false;
        }
        done += static_cast<unsigned long>(written);
    }
    return watchedStep(SYNC_FILE, [this] { return platform::syncFile(mFile.get()); }) == 0;
}

// Not every file system can: that only counts where it would give away more than the old file did.
bool Beside::settleMode(OldFile const& old) const {
    if (!old.isFile) {
        if (!keepsModes()) {
            platform::changeMode(mFile.get(), OPEN_TO_ALL);
        }
        return true;
    }
    FileStatus status;
    unsigned const mode = old.status.st_mode & PERMISSIONS;
    return platform::descriptorStatus(mFile.get(), &status) &&
           ((status.st_mode & PERMISSIONS) == mode || platform::changeMode(mFile.get(), mode) == 0);
}

bool isBeside(char const* name) {
    char const* const digits = name + sizeof PREFIX - 1;
    return std::strncmp(name, PREFIX, sizeof PREFIX - 1) == 0 &&
           std::strspn(digits, "0123456789abcdef") == DIGITS &&
           std::strcmp(digits + DIGITS, SUFFIX) == 0;
}

// The lock of a directory, which replacements share as long as they work there: who has it alone,
// because there is something to sweep, knows that processes that were killed have left that. Nobody
// waits for it: who could not share it, and whose file was swept, starts over.
class DirectoryLock {
public:
    explicit DirectoryLock(int directory) : mDirectory(directory) {}
    // Closing the directory would not do where a fork has copied the descriptor.
    ~DirectoryLock() {
        platform::ErrnoGuard const guard;
        platform::lockFile(mDirectory, LOCK_UN);
    }
    DirectoryLock(DirectoryLock const&) = delete;
    DirectoryLock& operator=(DirectoryLock const&) = delete;

    bool takeAlone() const { return platform::lockFile(mDirectory, LOCK_EX | LOCK_NB) == 0; }
    void share() const { platform::lockFile(mDirectory, LOCK_SH | LOCK_NB); }

private:
    int const mDirectory;
};

// Removes a plain file of such a name, if nobody is at work. What cannot be removed stays.
void sweepOne(Entry const& entry, DirectoryLock const& lock) {
    FileStatus status;
    if (isBeside(entry.name) &&
        platform::statusAt(entry.directory, entry.name, Links::NOT_FOLLOWED, &status) &&
        S_ISREG(status.st_mode) && lock.takeAlone()) {
        watchedStep(SWEEP, [&] { return removeIn(entry, false); });
    }
}

// How many names were read. What is listed while files go is enough: the next time finds the rest.
long sweepListed(Entry const& entry, platform::Directory* listing, DirectoryLock const& lock) {
    long names = 0;
    for (; watchedStep(READ_LISTING, [=] { return listing->next(); }); ++names) {
        sweepOne({entry.directory, listing->name(), entry.path, entry.canOpenUp}, lock);
    }
    return names;
}

// A large directory is not read each time: the next times are spared it. Directories that meet in
// one place share what they are spared.
void sweep(Entry const& entry, int directory, DirectoryLock const& lock) {
    static std::atomic<long> timesSpared[64];
    FileStatus status;
    if (!platform::descriptorStatus(directory, &status)) {
        return;
    }
    std::atomic<long>& spared =
        timesSpared[(status.st_ino ^ status.st_dev) % std::size(timesSpared)];
    if (spared.load(std::memory_order_relaxed) > 0) {
        spared.fetch_sub(1, std::memory_order_relaxed);
        return;
    }
    platform::Directory listing;
    if (watchedStep(OPEN_LISTING, [&] { return listing.open(directory); })) {
        long const names = sweepListed(entry, &listing, lock);
        spared.fetch_add(names / NAMES_EACH, std::memory_order_relaxed);
    }
}

// AGAIN when the name has come to mean something else meanwhile, or what was written is gone;
// FAILED with errno.
Outcome replaceOnce(Entry const& entry, char const* bytes, unsigned long size) {
    OldFile old;
    Outcome const found = find(entry, &old);
    if (found != Outcome::DONE) {
        return found;
    }
    Beside fresh(entry, old.isFile ? PRIVATE : newFileMode());
    if (fresh.isOpen() && fresh.settleMode(old) && fresh.write(bytes, size) &&
        fresh.takeName(entry.name, old.exists)) {
        return Outcome::DONE;
    }
    bool const hasChanged = errno == EEXIST || errno == ENOENT;
    return hasChanged && fresh.isOpen() ? Outcome::AGAIN : Outcome::FAILED;
}

// False with errno.
bool replaceIn(Entry const& entry, char const* bytes, unsigned long size) {
    // First of all: afterwards nothing may fail that can be known before.
    Descriptor const directory(
        openIn({entry.directory, ".", entry.path, entry.canOpenUp}, O_RDONLY | O_DIRECTORY, 0));
    if (!directory.isOpen()) {
        return false;
    }
    DirectoryLock const lock(directory.get());
    sweep(entry, directory.get(), lock);
    Outcome outcome = Outcome::AGAIN;
    for (int tries = 0; outcome == Outcome::AGAIN && tries < MOST_OPENINGS; ++tries) {
        lock.share();
        outcome = replaceOnce(entry, bytes, size);
    }
    if (outcome == Outcome::AGAIN) {
        errno = EWOULDBLOCK;
    }
    return outcome == Outcome::DONE &&
           watchedStep(SYNC_DIRECTORY, [&] { return platform::syncFile(directory.get()); }) == 0;
}

}  // namespace

int File::replace(char const* path, void const* bytes, unsigned long size) {
    NormalPath const normal(path);
    if (!normal.isValid() || (bytes == nullptr && size != 0) || !makeParent(normal.c_str())) {
        return 0;
    }
    errno = ENOENT;  // for a path without a name
    Parent const parent(normal.c_str());
    if (parent.isOpen() && replaceIn(parent.entry(), static_cast<char const*>(bytes), size)) {
        return 1;
    }
    bool const isHeld = errno == EWOULDBLOCK;
    applog(LIBRARY_LOG, isHeld ? LEVEL_DEBUG : LEVEL_ERROR,
           isHeld ? "Other process is opening. errno[%d] Path:%s"
                  : "replace Failed. errno[%d] Path:%s",
           errno, normal.c_str());
    return 0;
}

int File::replace(char const* path, std::string_view contents) {
    return replace(path, contents.data(), contents.size());
}

}  // namespace utl
