// Internal. The modes that files and directories get.

#ifndef UTL_FILE_MODES_H
#define UTL_FILE_MODES_H

#include "files/UtlEntry.h"
#include "platform/UtlFileSystem.h"

namespace utl {

constexpr unsigned OPEN_TO_ALL = 0777;
constexpr unsigned READABLE_BY_ALL = 0555;
constexpr unsigned WRITABLE_BY_ALL = 0666;

// The bits of a mode that can be changed: those that say who may do what, and the others.
constexpr unsigned PERMISSIONS = 0777;
constexpr unsigned SPECIAL_BITS = 07000;
constexpr unsigned SET_ID_BITS = 06000;
constexpr unsigned CHANGEABLE_BITS = PERMISSIONS | SPECIAL_BITS;

// What File::setModePolicy() has settled: modes are what the process's mask makes of them.
bool keepsModes();

// What a new file is made with.
unsigned newFileMode();

bool isReadOnly(platform::FileStatus const& status);

// Makes an entry, which is no link, read-only, or lifts that. False when its mode cannot be
// changed; when that makes no difference, it is logged too.
bool setReadOnly(Entry const& entry, bool readOnly);

}  // namespace utl

#endif  // UTL_FILE_MODES_H
