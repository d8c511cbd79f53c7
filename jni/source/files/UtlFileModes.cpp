#include "files/UtlFileModes.h"

#include <atomic>

#include "UtlFile.h"
#include "UtlLog.h"

#include "files/UtlDescriptor.h"
#include "files/UtlNormalPath.h"
#include "files/UtlOpenedDirectory.h"
#include "files/UtlTreeWalk.h"
#include "foundation/UtlLogLine.h"

namespace utl {

namespace {

using platform::Links;

constexpr unsigned OWNER_WRITE = 0200;

std::atomic<File::ModePolicy> modePolicy{File::DEFAULT_MODES};

class ReadOnlyChange : public TreeVisitor {
public:
    explicit ReadOnlyChange(bool readOnly) : mReadOnly(readOnly) {}

    // A mode is changed behind a link: even one to a file would lead out of the tree.
    bool take(Entry const& entry, platform::FileStatus const& status) override {
        return S_ISLNK(status.st_mode) || enter(entry, status);
    }
    bool enter(Entry const& entry, platform::FileStatus const&) override {
        return setReadOnly(entry, mReadOnly);
    }

private:
    bool const mReadOnly;
};

// `path` is for the log.
bool changeMode(int descriptor, char const* path, bool readOnly) {
    platform::FileStatus status;
    if (!OpenedDirectory::settle(descriptor, readOnly ? READABLE_BY_ALL : OPEN_TO_ALL) ||
        !platform::descriptorStatus(descriptor, &status)) {
        return false;
    }
    if (isReadOnly(status) != readOnly) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               readOnly ? "applyReadOnly can't change %s" : "liftReadOnly can't change %s", path);
        return false;
    }
    return true;
}

bool isDirectory(int descriptor) {
    platform::FileStatus status;
    return platform::descriptorStatus(descriptor, &status) && S_ISDIR(status.st_mode);
}

int changeReadOnly(char const* path, int recursive, bool readOnly) {
    NormalPath const normal(path);
    if (!normal.isValid()) {
        return 0;
    }
    Descriptor const opened(
        platform::openEntry(platform::WORKING_DIRECTORY, normal.c_str(), Links::FOLLOWED));
    if (!opened.isOpen() || !changeMode(opened.get(), normal.c_str(), readOnly)) {
        return 0;
    }
    if (recursive != 1 || !isDirectory(opened.get())) {
        return 1;
    }
    ReadOnlyChange change(readOnly);
    int const root = openTree(opened.get(), ".", Links::NOT_FOLLOWED);
    return walkTree(root, normal.c_str(), &change);
}

}  // namespace

bool keepsModes() {
    return modePolicy.load(std::memory_order_relaxed) == File::KEEP_MODES;
}

unsigned newFileMode() {
    return keepsModes() ? WRITABLE_BY_ALL : OPEN_TO_ALL;
}

bool isReadOnly(platform::FileStatus const& status) {
    return (status.st_mode & OWNER_WRITE) == 0;
}

bool setReadOnly(Entry const& entry, bool readOnly) {
    Descriptor const opened(platform::openEntry(entry.directory, entry.name, Links::NOT_FOLLOWED));
    return opened.isOpen() && changeMode(opened.get(), entry.path, readOnly);
}

void File::setModePolicy(ModePolicy policy) {
    modePolicy.store(policy, std::memory_order_relaxed);
}

int File::changeParentAccessMode(char const* path, long mode, long* oldMode) {
    return OpenedDirectory::changeParent(path, mode, oldMode);
}

int File::isReadOnly(char const* path) {
    platform::FileStatus status;
    return path != nullptr && platform::pathStatus(path, &status) && utl::isReadOnly(status);
}

int File::applyReadOnly(char const* path, int recursive) {
    return changeReadOnly(path, recursive, true);
}

int File::liftReadOnly(char const* path, int recursive) {
    return changeReadOnly(path, recursive, false);
}

int File::isReadOnly() const {
    return isReadOnly(mPath.c_str());
}

int File::applyReadOnly(int recursive) const {
    return applyReadOnly(mPath.c_str(), recursive);
}

int File::liftReadOnly(int recursive) const {
    return liftReadOnly(mPath.c_str(), recursive);
}

}  // namespace utl
