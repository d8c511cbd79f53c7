// Internal. The modes that files and directories get.

#ifndef UTL_FILE_MODES_H
#define UTL_FILE_MODES_H

namespace utl {

constexpr unsigned OPEN_TO_ALL = 0777;
constexpr unsigned READABLE_BY_ALL = 0555;

// The bits of a mode that can be changed.
constexpr unsigned PERMISSIONS = 07777;

}  // namespace utl

#endif  // UTL_FILE_MODES_H
