// Internal. The entries of a directory, one after another.

#ifndef UTL_PLATFORM_DIRECTORY_H
#define UTL_PLATFORM_DIRECTORY_H

#include <dirent.h>

namespace utl {
namespace platform {

class Directory {
public:
    Directory() = default;
    ~Directory() { close(); }
    Directory(Directory const&) = delete;
    Directory& operator=(Directory const&) = delete;

    // No child process keeps it open. One opened by its descriptor has entries of its own; the
    // descriptor stays the caller's.
    bool open(char const* path);
    bool open(int descriptor);

    // Goes to the next entry. False when there is none, or after a failure.
    bool next();
    bool hasFailed() const { return mHasFailed; }

    // Good until the next call.
    char const* name() const { return mEntry->d_name; }

    // A symbolic link is none, wherever it leads to. Asks the file system where the entry does not
    // say.
    bool isDirectory() const;

    void close();

private:
    DIR* mStream = nullptr;
    dirent64 const* mEntry = nullptr;
    bool mHasFailed = false;
};

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_DIRECTORY_H
