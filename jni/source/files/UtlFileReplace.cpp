#include <errno.h>

#include <algorithm>
#include <cstdint>

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
#include "platform/UtlErrno.h"
#include "platform/UtlFileSystem.h"
#include "platform/UtlKernelThread.h"

namespace utl {

namespace {

using platform::FileStatus;
using platform::Links;

enum Statement : unsigned long {
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
        formatStr(mName, sizeof mName, ".utl-%08x%08x.tmp",
                  static_cast<unsigned>(platform::threadId()),
                  static_cast<unsigned>(platform::monotonicNanoseconds()));
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

// AGAIN when the name has come to mean something else meanwhile; FAILED with errno.
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
    return errno == EEXIST && fresh.isOpen() ? Outcome::AGAIN : Outcome::FAILED;
}

// False with errno.
bool replaceIn(Entry const& entry, char const* bytes, unsigned long size) {
    // First of all: afterwards nothing may fail that can be known before.
    Descriptor const directory(
        openIn({entry.directory, ".", entry.path, entry.canOpenUp}, O_RDONLY | O_DIRECTORY, 0));
    if (!directory.isOpen()) {
        return false;
    }
    Outcome outcome = Outcome::AGAIN;
    for (int tries = 0; outcome == Outcome::AGAIN && tries < MOST_OPENINGS; ++tries) {
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
