// Internal. The registered log types, as a message meets them.

#ifndef UTL_LOG_TYPES_H
#define UTL_LOG_TYPES_H

namespace utl {

constexpr int LOWEST_LOG_LEVEL = 4;
constexpr unsigned long LOG_NAME_SIZE = 32;

// A level that is out of range counts as the lowest.
constexpr int clampLogLevel(int level) {
    return level < 0 || level > LOWEST_LOG_LEVEL ? LOWEST_LOG_LEVEL : level;
}

// Stores the name of the type in `name`, which has LOG_NAME_SIZE bytes, without an end. Its length,
// or NONE if the type's filter drops messages of this level. Takes no lock, unless the type is
// being changed in this moment: most messages end here.
unsigned long admitToLog(int type, int level, char* name);

// Whether anybody has ever set the filter of the library's own messages.
bool hasSetLibraryFilter();

}  // namespace utl

#endif  // UTL_LOG_TYPES_H
