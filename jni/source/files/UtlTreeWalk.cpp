#include "files/UtlTreeWalk.h"

#include <algorithm>
#include <cstring>

#include "files/UtlDirectoryNames.h"
#include "platform/UtlDirectory.h"

namespace utl {

namespace {

using platform::Links;

class TreeWalk {
public:
    TreeWalk(int root, char const* path, TreeVisitor* visitor)
        : mVisitor(*visitor), mWay(root), mPath(path) {}

    bool run();

private:
    // One directory on the way down: its names are those from `begin` up to the next one's.
    struct Level {
        unsigned long begin;
        unsigned long at;
        unsigned long pathLength;
        bool isEntered;
    };

    bool list(int directory);
    bool visit();
    bool visitDirectory(Entry const& entry, platform::FileStatus const& status);
    bool goUp();
    bool advance(bool isTaken);
    Entry entry();

    TreeVisitor& mVisitor;
    DirectoryWay mWay;
    Names mNames;
    GrowingBuffer<Level> mLevels;
    LogPath mPath;
};

bool TreeWalk::run() {
    if (mWay.directory() == Descriptor::NO_DESCRIPTOR || !list(mWay.directory())) {
        return false;
    }
    while (!mLevels.isEmpty()) {
        bool const isDone = mLevels.last().at == mNames.size();
        if (isDone ? !goUp() : !visit()) {
            return false;
        }
    }
    return true;
}

// Adds the level of `directory`, whose path is the one that is told now.
bool TreeWalk::list(int directory) {
    platform::Directory stream;
    Level const level = {mNames.size(), mNames.size(), mPath.length(), false};
    unsigned long count = 0;
    auto const judge = [](platform::Directory const& read) { return judgeName(read.name()); };
    bool const isRead = mLevels.append(&level, 1) && stream.open(directory) &&
                        readNames(&stream, judge, NONE, &mNames, &count);
    watchedListing(Listing::CLOSE, [&] { return stream.close(); });
    return isRead;
}

// The one that the walk is at.
Entry TreeWalk::entry() {
    Level const& level = mLevels.last();
    char const* const name = mNames.data() + level.at;
    mPath.setName(level.pathLength, name);
    return {mWay.directory(), name, mPath.text(), true};
}

// Goes on behind the entry that the walk is at.
bool TreeWalk::advance(bool isTaken) {
    Level& level = mLevels.last();
    level.at += std::strlen(mNames.data() + level.at) + 1;
    return isTaken;
}

bool TreeWalk::visit() {
    Entry const found = entry();
    platform::FileStatus status;
    if (!platform::statusAt(found.directory, found.name, Links::NOT_FOLLOWED, &status)) {
        return false;
    }
    return S_ISDIR(status.st_mode) ? visitDirectory(found, status)
                                   : advance(mVisitor.take(found, status));
}

bool TreeWalk::visitDirectory(Entry const& found, platform::FileStatus const& status) {
    if (!mVisitor.enter(found, status)) {
        return false;
    }
    Descriptor child(openTree(found.directory, found.name, Links::NOT_FOLLOWED));
    if (!child.isOpen() || !list(child.get())) {
        return false;
    }
    Level& level = mLevels.last();
    // The way back takes permission to search; an empty directory need not have that.
    level.isEntered = level.at != mNames.size();
    return !level.isEntered || mWay.enter(child.release());
}

bool TreeWalk::goUp() {
    Level const left = mLevels.last();
    mNames.cut(left.begin);
    mLevels.cut(mLevels.size() - 1);
    if (left.isEntered && !mWay.leave()) {
        return false;
    }
    return mLevels.isEmpty() || advance(mVisitor.leave(entry()));
}

}  // namespace

int openTree(int directory, char const* name, Links links) {
    return watchedListing(Listing::OPEN,
                          [=] { return platform::openDirectory(directory, name, links); });
}

bool walkTree(int root, char const* path, TreeVisitor* visitor) {
    return TreeWalk(root, path, visitor).run();
}

DirectoryWay::DirectoryWay(int root) {
    goTo(root);
}

bool DirectoryWay::enter(int child) {
    platform::FileStatus const above = mStatus;
    return goTo(child) && mAbove.append(&above, 1);
}

bool DirectoryWay::leave() {
    platform::FileStatus const above = mAbove.last();
    mAbove.cut(mAbove.size() - 1);
    // What is above a directory that somebody has moved is not where the walk came from.
    return goTo(platform::openDirectory(mDirectory.get(), "..", Links::NOT_FOLLOWED)) &&
           platform::isSameFile(mStatus, above);
}

bool DirectoryWay::goTo(int directory) {
    mDirectory.set(directory);
    return mDirectory.isOpen() && platform::descriptorStatus(directory, &mStatus);
}

void LogPath::setName(unsigned long length, char const* name) {
    mLength = length;
    if (length == 0 || mText[length - 1] != '/') {
        append("/");
    }
    append(name);
}

void LogPath::append(char const* text) {
    unsigned long const length =
        std::min<unsigned long>(std::strlen(text), sizeof mText - 1 - mLength);
    copyMemory(mText + mLength, text, length);
    mLength += length;
    mText[mLength] = '\0';
}

}  // namespace utl
