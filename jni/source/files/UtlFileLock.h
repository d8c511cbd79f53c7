// Internal. Who has a file open through a File. Asking is locking, without waiting: whoever gets
// the lock keeps others out until its descriptor is closed.

#ifndef UTL_FILE_LOCK_H
#define UTL_FILE_LOCK_H

#include "files/UtlEntry.h"
#include "platform/UtlFileSystem.h"

namespace utl {

enum class Holders { NOBODY, READERS, SOMEBODY };

// Makes the lock of `descriptor` the strongest that the others leave, which also tells who they
// are.
Holders askHolders(int descriptor);

// To ask by: -1 for what is no plain file, which nobody holds, and for one that cannot be read.
int openToAsk(Entry const& entry, platform::Links links);

// Whether the name still means what was opened by it, whose status this gets: only then does a lock
// on that keep others from the file. True too where the directory does not let anybody look.
bool stillMeans(Entry const& entry, platform::Links links, int descriptor,
                platform::FileStatus* status);

// How often an opening starts over when the name means something else by the time it is locked.
// Somebody would have to be quicker each time.
constexpr int MOST_OPENINGS = 100;

}  // namespace utl

#endif  // UTL_FILE_LOCK_H
