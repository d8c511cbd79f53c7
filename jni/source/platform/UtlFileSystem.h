// Internal. The calls of the file system: sizes and positions of 64 bits on every target, no call
// that ends early because of a signal, and none in which a thread is cancelled. All return -1 with
// errno for failure, if nothing else is said. Where there is a `directory`, that is the descriptor
// of the one that `name` is looked up in.

#ifndef UTL_PLATFORM_FILE_SYSTEM_H
#define UTL_PLATFORM_FILE_SYSTEM_H

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace utl {
namespace platform {

using FileStatus = struct stat64;

// For openFile(): a FIFO or a device that gets in place of a file is not waited for.
constexpr int NO_WAITING = O_NONBLOCK | O_NOCTTY;

// In place of a directory: names are paths then.
constexpr int WORKING_DIRECTORY = AT_FDCWD;

// What is done with a symbolic link that a name turns out to be. Those on the way to the last
// component of a path are followed.
enum class Links { FOLLOWED, NOT_FOLLOWED };

// Whether one was there to ask.
bool pathStatus(char const* path, FileStatus* status);
bool statusAt(int directory, char const* name, Links links, FileStatus* status);
bool descriptorStatus(int descriptor, FileStatus* status);

bool isSameFile(FileStatus const& a, FileStatus const& b);

// A descriptor that no child process keeps. It is never 0, even if standard input is closed.
int openFile(char const* path, int flags, unsigned mode);
int openFileAt(int directory, char const* name, int flags, unsigned mode);

// A descriptor on a directory: to list it, or where that is not permitted at least to work in it.
int openDirectory(int directory, char const* name, Links links);

// A descriptor on whatever is there, for descriptorStatus() and changeMode(). Nobody notices.
int openEntry(int directory, char const* name, Links links);

// Leaves errno as it is.
void closeFile(int descriptor);

// What was opened with NO_WAITING waits from now on when it is read and written.
int letWait(int descriptor);

// Whether there can be anything to flush.
bool isWritable(int descriptor);

// Flushes what was written to the disk; not even a failure where there is none behind it.
int syncFile(int descriptor);

long readFile(int descriptor, void* buffer, unsigned long length);
long readFileAt(int descriptor, long long position, void* buffer, unsigned long length);
long writeFile(int descriptor, void const* buffer, unsigned long length);

// Writes up to `length` bytes that `source` has, without taking them through the process. Returns
// them; 0 and -1 do not mean that there are none: not every system and not every file can do that.
long transferFile(int source, int destination, unsigned long length);

// `origin` as for lseek(). Returns the new position.
long long seekFile(int descriptor, long long offset, int origin);

int truncateFile(int descriptor, long long size);

// `operation` as for flock().
int lockFile(int descriptor, int operation);

int makeDirectoryAt(int directory, char const* name, unsigned mode);
int removeDirectoryAt(int directory, char const* name);
int removeFileAt(int directory, char const* name);

// Both names are in `directory`.
int renameFileAt(int directory, char const* source, char const* destination);

// Renames, but over nothing, whenever that appeared: EEXIST then. Where the system has no such
// call, a file has two names for a moment, or its new name an empty file; a directory's new name
// belongs to an empty directory.
int renameToNewAt(int directory, char const* source, char const* destination);

// Any descriptor will do, one of openEntry() too.
int changeMode(int descriptor, unsigned mode);

// Whether the process may leave a set-group-id bit on what belongs to `group`.
bool isInGroup(gid_t group);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_FILE_SYSTEM_H
