#include "UtlFile.h"
#include "UtlLog.h"

#include "files/UtlDirectoryWalk.h"
#include "files/UtlFileModes.h"
#include "files/UtlNormalPath.h"
#include "files/UtlOpenedParent.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlFileSystem.h"

namespace utl {

namespace {

constexpr unsigned OWNER_WRITE = 0200;

using Change = int (*)(char const* path, int recursive);

// What applyReadOnly() and liftReadOnly() have in common; `again` is the one that is at work.
int changeReadOnly(char const* path, int recursive, bool readOnly, Change again) {
    NormalPath normal(path);
    if (!normal.isValid() || !File::exists(normal.c_str()) ||
        !OpenedParent::settle(normal.c_str(), readOnly ? READABLE_BY_ALL : OPEN_TO_ALL)) {
        return 0;
    }
    if ((File::isReadOnly(normal.c_str()) == 1) != readOnly) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               readOnly ? "applyReadOnly can't change %s" : "liftReadOnly can't change %s",
               normal.c_str());
        return 0;
    }
    if (recursive != 1 || !File::isDirectory(normal.c_str())) {
        return 1;
    }
    normal.stripEnd();
    // A mode is changed behind a link: even one to a file would lead out of the tree.
    return visitEntries(normal.c_str(),
                        [=](char const* entry) { return isLink(entry) || again(entry, 1) == 1; });
}

}  // namespace

int File::changeParentAccessMode(char const* path, long mode, long* oldMode) {
    return OpenedParent::change(path, mode, oldMode);
}

int File::isReadOnly(char const* path) {
    platform::FileStatus status;
    return path != nullptr && platform::pathStatus(path, &status) &&
           (status.st_mode & OWNER_WRITE) == 0;
}

int File::applyReadOnly(char const* path, int recursive) {
    return changeReadOnly(path, recursive, true, applyReadOnly);
}

int File::liftReadOnly(char const* path, int recursive) {
    return changeReadOnly(path, recursive, false, liftReadOnly);
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
