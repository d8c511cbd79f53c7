// Internal. The names in a directory, one behind the other with their terminators. They are read
// before anything is done to what they name: what a directory lists while it changes is not said.

#ifndef UTL_DIRECTORY_NAMES_H
#define UTL_DIRECTORY_NAMES_H

#include <cstring>

#include "files/UtlFileCall.h"
#include "files/UtlGrowingBuffer.h"
#include "platform/UtlDirectory.h"

namespace utl {

using Names = GrowingBuffer<char>;

// What the watchdog hears about a call; for reading an entry, why the one before was passed over.
enum class Listing : unsigned long {
    OPEN = 1348,
    READ_FIRST = 1358,
    READ_AFTER_DIRECTORY = 1367,
    READ_AFTER_FILE = 1376,
    READ_AFTER_OTHER_EXTENSION = 1387,
    READ_AFTER_NO_EXTENSION = 1394,
    READ_AFTER_SELF = 1402,
    READ_AFTER_PARENT = 1407,
    MATCH = 1415,
    READ_AFTER_MISMATCH = 1419,
    CLOSE_FAILED = 1430,
    READ_AFTER_KEPT = 1443,
    CLOSE = 1446,
};

template <typename Call>
auto watchedListing(Listing statement, Call call) {
    return watched("children", static_cast<unsigned long>(statement), call);
}

// READ_AFTER_KEPT for what is neither the directory itself nor its parent.
inline Listing judgeName(char const* name) {
    if (std::strcmp(name, ".") == 0) {
        return Listing::READ_AFTER_SELF;
    }
    return std::strcmp(name, "..") == 0 ? Listing::READ_AFTER_PARENT : Listing::READ_AFTER_KEPT;
}

// Appends the names that `judge` keeps, `maxCount` at the most, and counts them. False when the
// directory, which is open, cannot be read on, or without memory.
template <typename Judge>
bool readNames(platform::Directory* directory, Judge judge, unsigned long maxCount, Names* names,
               unsigned long* count) {
    Listing statement = Listing::READ_FIRST;
    while (*count < maxCount && watchedListing(statement, [=] { return directory->next(); })) {
        statement = judge(*directory);
        if (statement == Listing::READ_AFTER_KEPT) {
            if (!names->append(directory->name(), std::strlen(directory->name()) + 1)) {
                return false;
            }
            ++*count;
        }
    }
    return *count == maxCount || !directory->hasFailed();
}

}  // namespace utl

#endif  // UTL_DIRECTORY_NAMES_H
