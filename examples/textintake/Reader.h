// Reads the files of the inbox and sends their text to the worker.

#ifndef TEXTINTAKE_READER_H
#define TEXTINTAKE_READER_H

#include <cerrno>
#include <string>

#include "Channel.h"
#include "Encoding.h"
#include "Inbox.h"
#include "Source.h"
#include "UtlFile.h"

class Reader : public utl::Command {
public:
    Reader(Inbox& inbox, Channel& toWorker) : mInbox(inbox), mToWorker(toWorker) {}

    utl::Thread& thread() { return mThread; }

    int execute() override {
        for (std::string path; mInbox.take(&path);) {
            mThread.startWatchdog();
            takeFile(path);
            mThread.stopWatchdog();  // the next one may be long in coming
        }
        return 0;
    }

private:
    void takeFile(std::string const& path) {
        FileMsg end(FILE_END, path.c_str());
        {
            utl::File file(path.c_str(), utl::File::UTF8);
            if (!open(file)) {
                return;
            }
            sendText(file, &end);
        }
        mToWorker.send(end, mThread);  // the file is closed: the collector may move it away
    }

    // Which locks out writers, and fails while one is at it: then the file comes at a later look.
    // So does one that has gone, if it comes back.
    bool open(utl::File& file) {
        errno = 0;
        if (file.open(utl::File::AS_IT_IS, utl::File::READ)) {
            return true;
        }
        int const error = errno;
        if (error == EWOULDBLOCK || error == ENOENT) {
            mInbox.forget(file.getPath());
        } else {
            mInbox.refuse(file.getPath(), "cannot be opened: " + reasonOf(error));
        }
        return false;
    }

    void sendText(utl::File& file, FileMsg* end) {
        Encoding const encoding = Encoding::of(file);
        Source source(file, encoding);
        bool isWanted = mToWorker.send(FileMsg(FILE_BEGIN, end->path, encoding.type()), mThread);
        errno = 0;
        while (isWanted && source.next(&mPage)) {
            mThread.keepAliveWatchdog(utl::StatementInfo("Reader", "sendText", __LINE__, 0));
            isWanted = mToWorker.send(mPage, mThread) && !mThread.hasRequestedStop();
            ++mPage.number;
        }
        end->error = !source.hasFailed() ? 0 : errno != 0 ? errno : EIO;
        end->isWhole = isWanted && !source.hasFailed();
        end->lines = source.lines();
        utl::copyStr(end->notes, sizeof end->notes, source.notes().c_str(), utl::ALL,
                     utl::TRUNCATE);
    }

    Inbox& mInbox;
    Channel& mToWorker;
    PageMsg mPage;
    utl::Thread mThread{"reader", this};
};

#endif  // TEXTINTAKE_READER_H
