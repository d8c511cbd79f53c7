// Internal. The calls of the file system: sizes and positions of 64 bits on every target, and no
// call that ends early because of a signal. All return -1 with errno for failure, if nothing else
// is said.

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

// Whether one was there to ask. linkStatus() does not follow a symbolic link at the end of the
// path.
bool pathStatus(char const* path, FileStatus* status);
bool linkStatus(char const* path, FileStatus* status);
bool descriptorStatus(int descriptor, FileStatus* status);

// A descriptor that no child process keeps. It is never 0, even if standard input is closed.
int openFile(char const* path, int flags, unsigned mode);

// Whether there can be anything to flush.
bool isWritable(int descriptor);

// Flushes what was written to the disk; not even a failure where there is none behind it.
int syncFile(int descriptor);

long readFile(int descriptor, void* buffer, unsigned long length);
long readFileAt(int descriptor, long long position, void* buffer, unsigned long length);
long writeFile(int descriptor, void const* buffer, unsigned long length);

// `origin` as for lseek(). Returns the new position.
long long seekFile(int descriptor, long long offset, int origin);

int truncateFile(int descriptor, long long size);

// `operation` as for flock().
int lockFile(int descriptor, int operation);

int makeDirectory(char const* path, unsigned mode);
int removeDirectory(char const* path);
int removeFile(char const* path);
int renameFile(char const* source, char const* destination);

int changeMode(char const* path, unsigned mode);
int changeMode(int descriptor, unsigned mode);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_FILE_SYSTEM_H
