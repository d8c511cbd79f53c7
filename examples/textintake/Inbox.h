// The directory that is watched for new files.

#ifndef TEXTINTAKE_INBOX_H
#define TEXTINTAKE_INBOX_H

#include <atomic>
#include <deque>
#include <map>
#include <string>

#include "UtlEvent.h"
#include "UtlFile.h"
#include "UtlSyncObject.h"
#include "UtlTimer.h"

// A shared timer's listener looks for files; the reader takes them one by one. A file is handed out
// once, until somebody forgets it.
class Inbox : public utl::TimerListener {
public:
    explicit Inbox(std::string const& directory) : mPattern(directory + "/*.*") {}

    void onTime(int) override {
        utl::File::Paths paths(0, utl::File::Paths::GROWS);
        if (utl::File::children(mPattern.c_str(), &paths, utl::File::FILES, nullptr, 0) < 0) {
            return;
        }
        utl::SyncGuard const guard(mLock);
        mIsDone = true;
        for (unsigned long i = 0; i < paths.count(); ++i) {
            std::string const path = paths[i].c_str();
            auto const known = mKnown.emplace(path, WITH_READER);
            if (known.second) {
                mWaiting.push_back(path);
                mHasNews.setOn();
            }
            mIsDone = mIsDone && known.first->second == REFUSED;
        }
    }

    // Blocks until there is a file to read. False when there will be none.
    bool take(std::string* path) {
        for (;;) {
            {
                utl::SyncGuard const guard(mLock);
                if (mIsClosed || !mWaiting.empty()) {
                    break;
                }
                mHasNews.setOff();
            }
            mHasNews.waitToOn(0);
        }
        utl::SyncGuard const guard(mLock);
        if (mIsClosed) {
            return false;
        }
        *path = mWaiting.front();
        mWaiting.pop_front();
        return true;
    }

    // The file is gone, or to be taken at a later look.
    void forget(std::string const& path) {
        utl::SyncGuard const guard(mLock);
        mKnown.erase(path);
    }

    // The file stays where it is and is not taken again.
    void refuse(std::string const& path) {
        utl::SyncGuard const guard(mLock);
        mKnown[path] = REFUSED;
    }

    bool isRefused(std::string const& path) const {
        utl::SyncGuard const guard(mLock);
        auto const known = mKnown.find(path);
        return known != mKnown.end() && known->second == REFUSED;
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
        return mIsDone;
    }

private:
    enum State { WITH_READER, REFUSED };

    std::string const mPattern;
    utl::SyncObject mLock;
    utl::Event mHasNews{0, 0};
    std::map<std::string, State> mKnown;  // guarded by mLock, with all that follows
    std::deque<std::string> mWaiting;
    bool mIsDone = false;
    bool mIsClosed = false;
};

#endif  // TEXTINTAKE_INBOX_H
