#include "UtlFile.h"

#include <errno.h>

#include <new>

#include "UtlLog.h"

#include "files/UtlDescriptor.h"
#include "files/UtlEntry.h"
#include "files/UtlFileCall.h"
#include "files/UtlFileLock.h"
#include "files/UtlFileModes.h"
#include "files/UtlLineBuffer.h"
#include "files/UtlNormalPath.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFileSystem.h"

namespace utl {

namespace {

constexpr long FAILED = -1;

constexpr unsigned long OPEN_STATEMENT = 1612;
constexpr unsigned long EMPTY_STATEMENT = 1631;
constexpr unsigned long LOCK_STATEMENT = 1650;
constexpr unsigned long CLOSE_MODE_STATEMENT = 1713;
constexpr unsigned long TRUNCATE_STATEMENT = 1902;

long long seekDescriptor(int descriptor, long long offset, int origin) {
    long long const position = platform::seekFile(descriptor, offset, origin);
    if (position == FAILED) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "lseek64 Failed. errno[%d]", errno);
    }
    return position;
}

long long sizeOf(int descriptor) {
    platform::FileStatus status;
    if (!platform::descriptorStatus(descriptor, &status)) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "fstat Failed. errno[%d]", errno);
        return FAILED;
    }
    return status.st_size;
}

// Empties a file; there is nothing to empty in a FIFO or a device.
bool empty(int descriptor) {
    platform::FileStatus status;
    return platform::descriptorStatus(descriptor, &status) &&
           (!S_ISREG(status.st_mode) || watched("open", EMPTY_STATEMENT, [=] {
                                            return platform::truncateFile(descriptor, 0);
                                        }) == 0);
}

// What is no file, and what would wait for somebody at its other end.
bool canBeOpened(platform::FileStatus const& status) {
    return !S_ISDIR(status.st_mode) && !S_ISFIFO(status.st_mode);
}

bool takeLock(int descriptor, int lock, char const* path) {
    int const result = watched("open", LOCK_STATEMENT,
                               [=] { return platform::lockFile(descriptor, lock | LOCK_NB); });
    if (result != 0) {
        applog(LIBRARY_LOG, LEVEL_DEBUG, "Other process is opening. errno[%d] Path:%s", errno,
               path);
    }
    return result == 0;
}

// A descriptor on what `path` means, with its lock; none after a failure, which is logged where it
// is no refusal.
int openLocked(char const* path, int flags, int lock) {
    Entry const entry = Entry::of(path);
    for (int openings = 0; openings < MOST_OPENINGS; ++openings) {
        Descriptor file(watched("open", OPEN_STATEMENT, [=] {
            return openIn(entry, flags | platform::NO_WAITING, newFileMode());
        }));
        if (!file.isOpen()) {
            applog(LIBRARY_LOG, LEVEL_ERROR, "open() Failed. errno[%d] Path:%s", errno, path);
            return Descriptor::NO_DESCRIPTOR;
        }
        platform::FileStatus status;
        if (!takeLock(file.get(), lock, path)) {
            return Descriptor::NO_DESCRIPTOR;
        }
        if (stillMeans(entry, platform::Links::FOLLOWED, file.get(), &status)) {
            bool const isReady = S_ISREG(status.st_mode) ||
                                 (canBeOpened(status) && platform::letWait(file.get()) == 0);
            return isReady ? file.release() : Descriptor::NO_DESCRIPTOR;
        }
    }
    applog(LIBRARY_LOG, LEVEL_DEBUG, "Other process is opening. errno[%d] Path:%s", EAGAIN, path);
    return Descriptor::NO_DESCRIPTOR;
}

// Does what a mode of open() asks for. Only the holder of the lock may: a refused open() must leave
// the file of whoever holds it alone. A failure is logged.
bool prepare(int descriptor, int mode, char const* path) {
    if (mode == File::EMPTY && !empty(descriptor)) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "open() Failed. errno[%d] Path:%s", errno, path);
        return false;
    }
    if (mode == File::APPEND && seekDescriptor(descriptor, 0, SEEK_END) == FAILED) {
        applog(LIBRARY_LOG, LEVEL_DEBUG, "seekFile in open Failed. errno[%d] Path:%s", errno, path);
        return false;
    }
    return true;
}

}  // namespace

File::File(char const* path, int textType)
    : mPath(withSlashes(path)), mTextType(textType), mOpenedForWrite(0) {}

// What is read ahead belongs to one object, and while there are copies to none: they all see the
// position that the system knows.
File::File(File const& other)
    : mPath(other.mPath),
      mTextType(other.mTextType),
      mOpenedForWrite(other.mOpenedForWrite),
      mOwesDirectorySync(other.mOwesDirectorySync),
      mForks(other.mForks) {
    other.settleLines();
    mHandle.copy(other.mHandle);
}

File& File::operator=(File const& other) {
    settleLines();
    other.settleLines();
    mPath = other.mPath;
    mHandle = other.mHandle;
    mTextType = other.mTextType;
    mOpenedForWrite = other.mOpenedForWrite;
    mOwesDirectorySync = other.mOwesDirectorySync;
    mForks = other.mForks;
    return *this;
}

File::~File() {
    platform::ErrnoGuard const guard;
    if (mOwesDirectorySync) {
        Parent const parent(mPath.c_str());
        bool const isSynced =
            parent.isOpen() ? platform::syncFile(parent.entry().directory) == 0 : errno == ENOENT;
        if (!isSynced) {
            applog(LIBRARY_LOG, LEVEL_ERROR, "fsync Failed. errno[%d]", errno);
        }
    }
    letGo();
}

int File::open(int mode, int access) {
    char const* const path = mPath.c_str();
    platform::FileStatus status;
    bool const isThere = platform::pathStatus(path, &status);
    if ((isThere && !canBeOpened(status)) || isOpened() || mode < AS_IT_IS || mode > EMPTY ||
        access < READ || access > READ_WRITE) {
        return 0;
    }
    mOpenedForWrite = access != READ;
    mForks = LineBuffer::followForks();  // a child that is made from here on shares the position
    if (access == READ) {
        return mode != EMPTY && isThere && hold(openLocked(path, O_RDONLY, LOCK_SH), mode);
    }
    int const flags = (access == WRITE ? O_WRONLY : O_RDWR) | O_CREAT;
    return makeParent(path) && hold(openLocked(path, flags, LOCK_EX), mode);
}

// Takes over what openLocked() returned.
int File::hold(int descriptor, int mode) {
    Descriptor file(descriptor);
    if (!file.isOpen() || !prepare(descriptor, mode, mPath.c_str()) ||
        !mHandle.set(file.release())) {
        return 0;
    }
    mOwesDirectorySync = mOwesDirectorySync || mOpenedForWrite != 0;
    return 1;
}

int File::close() {
    if (!isOpened()) {
        return 0;
    }
    if (mOpenedForWrite && !keepsModes()) {
        // By the descriptor: the path may be another file's by now.
        watched("close", CLOSE_MODE_STATEMENT,
                [this] { return platform::changeMode(mHandle.get(), OPEN_TO_ALL); });
    }
    return letGo();
}

// False when what was written may not be on the disk.
bool File::letGo() {
    delete mLines;
    mLines = nullptr;
    bool const isSynced = DestructCloseFile()(mHandle.takeLast());
    if (!isSynced) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "closeFile Failed. Path:%s", mPath.c_str());
    }
    return isSynced;
}

int File::flush() {
    return 1;
}

LineBuffer* File::startLines() {
    settleLines();
    if (!isOpened() || mHandle.isShared()) {
        return nullptr;
    }
    if (mLines == nullptr) {
        mLines = new (std::nothrow) LineBuffer;
    }
    return mLines != nullptr && mLines->start(mHandle.get(), mForks) ? mLines : nullptr;
}

void File::settleLines() const {
    if (mLines != nullptr) {
        mLines->settle();
    }
}

// Deliberate: descriptor 0 is no file either; the library never owns standard input.
int File::isOpened() const {
    return mHandle.get() != 0 && mHandle.get() != Descriptor::NO_DESCRIPTOR;
}

int File::setTextType(int type) {
    if (type < SHIFT_JIS || type > UTF16_LOW_FIRST) {
        return 0;
    }
    mTextType = type;
    return 1;
}

long File::read(void* buffer, unsigned long length) {
    if (!isOpened()) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in read func file is not opened");
        return FAILED;
    }
    if (buffer == nullptr || static_cast<long>(length) <= 0) {
        return FAILED;
    }

    settleLines();
    long long const end = sizeOf(mHandle.get());
    if (end == FAILED) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in read func now size func error");
        return FAILED;
    }
    long long const now = position();
    if (now == FAILED) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "in read func now seekFile func error");
        return FAILED;
    }
    if (now >= end) {
        return END_OF_FILE;
    }
    long const got = checkRead(platform::readFile(mHandle.get(), buffer, length));
    return got != 0 ? got : END_OF_FILE;  // the size said more, as that of a file in /sys does
}

long File::readAt(long long position, void* buffer, unsigned long length) const {
    return checkRead(platform::readFileAt(mHandle.get(), position, buffer, length));
}

// Logs a failure right after the call.
long File::checkRead(long got) const {
    if (got == FAILED) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "ReadFile Failed. errno[%d]", errno);
        applog(LIBRARY_LOG, LEVEL_ERROR, "in read func readFile Failed. Path:%s", mPath.c_str());
    }
    return got;
}

long File::write(void const* buffer, unsigned long length) {
    if (!isOpened()) {
        return FAILED;
    }
    settleLines();
    long written = FAILED;
    if (buffer != nullptr && length != 0) {
        written = platform::writeFile(mHandle.get(), buffer, length);
        if (written == FAILED) {
            applog(LIBRARY_LOG, LEVEL_ERROR, "WriteFile Failed. errno[%d]", errno);
        }
    }
    if (written == FAILED) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "writeFile Failed. Path:%s", mPath.c_str());
    }
    return written;
}

long long File::seek(long long offset, int origin) {
    constexpr int ORIGINS[] = {SEEK_SET, SEEK_END, SEEK_CUR};
    if (!isOpened() || origin < FROM_START || origin > FROM_CURRENT) {
        return FAILED;
    }
    settleLines();
    return seekDescriptor(mHandle.get(), offset, ORIGINS[origin]);
}

long long File::position() const {
    if (mLines != nullptr && mLines->isReady()) {
        return mLines->position();
    }
    settleLines();
    return isOpened() ? seekDescriptor(mHandle.get(), 0, SEEK_CUR) : FAILED;
}

long long File::size() const {
    return isOpened() ? openedSize() : size(mPath.c_str());
}

long long File::openedSize() const {
    long long const size = sizeOf(mHandle.get());
    if (size == FAILED) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "fileSize Failed. Path:%s", mPath.c_str());
    }
    return size;
}

long long File::availableSize() const {
    long long const size = isOpened() ? openedSize() : FAILED;
    long long const now = size != FAILED ? position() : FAILED;
    if (now == FAILED) {
        return FAILED;
    }
    return now < size ? size - now : 0;
}

int File::resize() {
    settleLines();
    long long const end = position();
    if (end == FAILED) {
        return 0;
    }
    int const result = watched("resize", TRUNCATE_STATEMENT,
                               [=] { return platform::truncateFile(mHandle.get(), end); });
    if (result != 0) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "ftruncate Failed. Path:%s", mPath.c_str());
    }
    return result == 0;
}

int File::resize(unsigned long long newSize) {
    long long const end = static_cast<long long>(newSize);
    long long const before = position();
    if (before == FAILED || seek(end, FROM_START) == FAILED) {
        return 0;
    }
    int const result = resize();
    if (result == 1 && before >= end) {
        return 1;
    }
    return seek(before, FROM_START) != FAILED ? result : 0;
}

int File::exists(char const* path) {
    platform::FileStatus status;
    return path != nullptr && platform::pathStatus(path, &status);
}

int File::isDirectory(char const* path) {
    NormalPath const normal(path);
    platform::FileStatus status;
    return normal.isValid() && platform::pathStatus(normal.c_str(), &status) &&
           S_ISDIR(status.st_mode);
}

int File::isOpened(char const* path, bool* sharedOnly) {
    if (path == nullptr) {
        return 0;
    }
    BasicString<char> const normal = withSlashes(path);
    Descriptor const probe(openToAsk(Entry::of(normal.c_str()), platform::Links::FOLLOWED));
    Holders const holders = probe.isOpen() ? askHolders(probe.get()) : Holders::NOBODY;
    if (sharedOnly != nullptr) {
        *sharedOnly = holders == Holders::READERS;
    }
    return holders != Holders::NOBODY;
}

int File::exists() const {
    return exists(mPath.c_str());
}

int File::isDirectory() const {
    return isDirectory(mPath.c_str());
}

}  // namespace utl
