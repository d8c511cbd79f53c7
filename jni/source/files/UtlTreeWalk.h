// Internal. Goes through all that is below a directory, on the descriptors of the directories
// there: no link is followed, and names may be as long and as deep as they like, of any bytes. Few
// descriptors are open however deep that is; memory goes with the names that are on the way.

#ifndef UTL_TREE_WALK_H
#define UTL_TREE_WALK_H

#include "files/UtlDescriptor.h"
#include "files/UtlEntry.h"
#include "files/UtlGrowingBuffer.h"
#include "platform/UtlFileSystem.h"

namespace utl {

// What is done with the entries. An operation returns false to end the walk. Entries, and what they
// point to, are good during a call.
class TreeVisitor {
public:
    // Anything but a directory.
    virtual bool take(Entry const& entry, platform::FileStatus const& status) = 0;

    // A directory, before its entries are listed and behind the last of them.
    virtual bool enter(Entry const& entry, platform::FileStatus const& status) = 0;
    virtual bool leave(Entry const&) { return true; }

protected:
    ~TreeVisitor() = default;
};

// A descriptor on the directory that a walk begins with; -1 with errno for failure.
int openTree(int directory, char const* name, platform::Links links);

// Closes `root`, which may be a failure of openTree(); its `path` is for the log. False when a call
// of the visitor was, when a directory cannot be read or has been moved away before all of it was
// seen, and without memory.
bool walkTree(int root, char const* path, TreeVisitor* visitor);

// The way from a directory into those below it and back. Nobody can lead it astray by moving them.
class DirectoryWay {
public:
    // Closes `root` in the end.
    explicit DirectoryWay(int root);

    // Where it has come to; -1 when it has been lost.
    int directory() const { return mDirectory.get(); }
    platform::FileStatus const& status() const { return mStatus; }

    // Goes into `child`, a directory in the one that it has come to, and owns it.
    bool enter(int child);

    // Goes back to where it entered.
    bool leave();

private:
    bool goTo(int directory);

    Descriptor mDirectory;
    platform::FileStatus mStatus;
    GrowingBuffer<platform::FileStatus> mAbove;
};

// The path of an entry, as far as the longest line of the log shows it.
class LogPath {
public:
    explicit LogPath(char const* path) { append(path); }

    char const* text() const { return mText; }
    unsigned long length() const { return mLength; }

    // Puts a name behind the first `length` bytes, which are a directory.
    void setName(unsigned long length, char const* name);

private:
    void append(char const* text);

    unsigned long mLength = 0;
    char mText[2 * PATH_SIZE];
};

}  // namespace utl

#endif  // UTL_TREE_WALK_H
