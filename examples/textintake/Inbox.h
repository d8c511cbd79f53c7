// The directory that is watched for new files.

#ifndef TEXTINTAKE_INBOX_H
#define TEXTINTAKE_INBOX_H

#include <sys/stat.h>

#include <cerrno>
#include <deque>
#include <map>
#include <string>

#include "Report.h"
#include "UtlEvent.h"
#include "UtlFile.h"
#include "UtlSyncObject.h"
#include "UtlTimer.h"

// A shared timer's listener looks for files; the reader takes them one by one. A file is handed out
// when two looks have found the same, and then not again until somebody says what became of it.
class Inbox : public utl::TimerListener {
public:
    // Files with names of more than `longestName` bytes are passed over.
    Inbox(std::string const& directory, std::size_t longestName, Report& report)
        : mDirectory(directory), mLongestName(longestName), mReport(report) {}

    // Does not look while there is enough to do: that would only take time from those who do it.
    void onTime(int) override {
        utl::SyncGuard const guard(mLock);
        if (mWaiting.empty()) {
            lookLocked();
        }
    }

    // Blocks until there is a file to read. False when there will be none.
    bool take(std::string* path) {
        for (;;) {
            {
                utl::SyncGuard const guard(mLock);
                if (mIsClosed) {
                    return false;
                }
                if (!mWaiting.empty()) {
                    *path = mWaiting.front();
                    mWaiting.pop_front();
                    return true;
                }
                mHasNews.setOff();
            }
            mHasNews.waitToOn(0);
        }
    }

    // Whether a file that was taken is still there as it was found.
    bool isUnchanged(std::string const& path) const {
        utl::SyncGuard const guard(mLock);
        auto const known = mKnown.find(path);
        return known != mKnown.end() && known->second.stamp == Stamp(path);
    }

    // The file has gone, or is to be taken at later looks.
    void forget(std::string const& path) {
        utl::SyncGuard const guard(mLock);
        mKnown.erase(path);
    }

    // The file stays where it is, and is not taken again before it has changed.
    void refuse(std::string const& path, std::string const& why) {
        mReport.add({nameOf(path), Report::REFUSED, why});
        utl::SyncGuard const guard(mLock);
        mKnown[path].state = REFUSED;
    }

    // Nothing is handed out any more.
    void close() {
        utl::SyncGuard const guard(mLock);
        mIsClosed = true;
        mHasNews.setOn();
    }

    // Whether the last look has found nothing that may still be taken.
    bool isDone() const {
        utl::SyncGuard const guard(mLock);
        return mHasLooked && mUnfinished == 0;
    }

    // Looks how many files are there that may still be taken, or have been.
    std::size_t countUnfinished() {
        utl::SyncGuard const guard(mLock);
        lookLocked();
        return mUnfinished;
    }

private:
    enum State { FOUND, TAKEN, REFUSED, PASSED_OVER };

    // A file has not changed while this has not.
    struct Stamp {
        Stamp() = default;
        explicit Stamp(std::string const& path) { isThere = lstat(path.c_str(), &status) == 0; }

        bool operator==(Stamp const& other) const {
            return isThere && other.isThere && status.st_dev == other.status.st_dev &&
                   status.st_ino == other.status.st_ino && status.st_size == other.status.st_size &&
                   status.st_mtim.tv_sec == other.status.st_mtim.tv_sec &&
                   status.st_mtim.tv_nsec == other.status.st_mtim.tv_nsec;
        }

        bool isThere = false;
        struct stat status = {};
    };

    struct Entry {
        Stamp stamp;
        State state = FOUND;
    };

    std::string nameOf(std::string const& path) const { return path.substr(mDirectory.size() + 1); }

    void lookLocked() {
        errno = 0;
        if (utl::File::children(mDirectory.c_str(), &mPaths, utl::File::ALL_KINDS, nullptr, 0) <
                0 &&
            !utl::File::isDirectory(mDirectory.c_str())) {
            mReport.fail("cannot look into " + mDirectory + ": " + reasonOf(errno));
        }
        std::map<std::string, Entry> seen;  // what is not there any more is forgotten
        mUnfinished = 0;
        for (unsigned long i = 0; i < mPaths.count(); ++i) {
            std::string const path = mPaths[i].c_str();
            State const state = seen.emplace(path, judgeLocked(path)).first->second.state;
            mUnfinished += state == FOUND || state == TAKEN ? 1 : 0;
        }
        mKnown.swap(seen);
        mHasLooked = true;
    }

    Entry judgeLocked(std::string const& path) {
        Entry const known = mKnown[path];
        Entry now{Stamp(path), FOUND};
        if (known.state == TAKEN) {
            return known;
        }
        std::string const objection = objectTo(nameOf(path), now.stamp.status.st_mode);
        if (!objection.empty()) {
            if (known.state != PASSED_OVER) {
                mReport.add({nameOf(path), Report::PASSED_OVER, "passed over: " + objection});
            }
            now.state = PASSED_OVER;
        } else if (known.stamp == now.stamp && known.state == REFUSED) {
            now.state = REFUSED;
        } else if (known.stamp == now.stamp && known.state == FOUND) {
            now.state = TAKEN;
            mWaiting.push_back(path);
            mHasNews.setOn();
        }
        return now;
    }

    // Why an entry is not to be taken; empty when it is.
    std::string objectTo(std::string const& name, unsigned mode) const {
        return S_ISDIR(mode)                  ? "a directory"
               : S_ISFIFO(mode)               ? "a FIFO"
               : S_ISLNK(mode)                ? "a symbolic link"
               : mode != 0 && !S_ISREG(mode)  ? "a device or a socket"
               : name[0] == '.'               ? "its name begins with a dot"
               : name.size() > mLongestName   ? "its name is too long"
               : name.find('\\') != name.npos ? "its name has a backslash"
                                              : "";
    }

    std::string const mDirectory;
    std::size_t const mLongestName;
    Report& mReport;
    utl::SyncObject mLock;
    utl::Event mHasNews{0, 0};
    std::map<std::string, Entry> mKnown;  // guarded by mLock, with all that follows
    std::deque<std::string> mWaiting;
    utl::File::Paths mPaths{0, utl::File::Paths::GROWS};
    std::size_t mUnfinished = 0;
    bool mHasLooked = false;
    bool mIsClosed = false;
};

#endif  // TEXTINTAKE_INBOX_H
