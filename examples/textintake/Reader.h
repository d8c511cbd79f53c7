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
        FileNews news;
        utl::copyStr(news.path, sizeof news.path, path.c_str(), utl::ALL, utl::WHOLE);
        {
            utl::File file(path.c_str(), utl::File::UTF8);
            if (!open(file)) {
                return;
            }
            sendText(file, &news);
        }
        // The file is closed: the collector may move it away.
        mToWorker.send(FileEndMsg(news), mThread);
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

    void sendText(utl::File& file, FileNews* news) {
        Encoding const encoding = Encoding::of(file);
        news->encoding = encoding.type();
        Source source(file, encoding);
        bool isWanted = mToWorker.send(FileBeginMsg(*news), mThread);
        errno = 0;
        while (isWanted && source.next(&mPage.value())) {
            mThread.keepAliveWatchdog(utl::StatementInfo("Reader", "sendText", __LINE__, 0));
            isWanted = mToWorker.send(mPage, mThread) && !mThread.hasRequestedStop();
            ++mPage.value().number;
        }
        news->error = !source.hasFailed() ? 0 : errno != 0 ? errno : EIO;
        news->isWhole = isWanted && !source.hasFailed();
        news->lines = source.lines();
        utl::copyStr(news->notes, sizeof news->notes, source.notes().c_str(), utl::ALL,
                     utl::TRUNCATE);
    }

    Inbox& mInbox;
    Channel& mToWorker;
    PageMsg mPage;
    utl::Thread mThread{"reader", this};
};

#endif  // TEXTINTAKE_READER_H
