// Reads the files of the inbox and sends their lines to the worker.

#ifndef TEXTINTAKE_READER_H
#define TEXTINTAKE_READER_H

#include <string>

#include "Channel.h"
#include "Inbox.h"
#include "UtlFile.h"
#include "UtlString.h"

// The encoding of a text file: by its extension, or else by its byte order mark, or else UTF-8.
class Encoding {
public:
    static int ofExtension(utl::File const& file) {
        utl::BasicString<char> extension;
        file.getExtension(&extension);
        for (auto const& known : BY_EXTENSION) {
            if (utl::compareStrNoCase(extension.c_str(), known.extension, utl::ALL) == 0) {
                return known.type;
            }
        }
        return utl::File::UTF8;
    }

    static int ofMark(utl::File& file, int otherwise) {
        unsigned char mark[2] = {};
        file.read(mark, sizeof mark);
        file.seek(0, utl::File::FROM_START);
        unsigned const unit = mark[0] * 256u + mark[1];
        return unit == 0xFEFF   ? utl::File::UTF16_HIGH_FIRST
               : unit == 0xFFFE ? utl::File::UTF16_LOW_FIRST
                                : otherwise;
    }

private:
    struct Known {
        char const* extension;
        int type;
    };
    static constexpr Known BY_EXTENSION[] = {{"sjis", utl::File::SHIFT_JIS},
                                             {"utf16be", utl::File::UTF16_HIGH_FIRST},
                                             {"utf16le", utl::File::UTF16_LOW_FIRST}};
};

class Reader : public utl::Command {
public:
    Reader(Inbox& inbox, Channel& toWorker) : mInbox(inbox), mToWorker(toWorker) {}

    utl::Thread& thread() { return mThread; }

    // How many lines were sent. Good once the thread has finished.
    std::uint32_t sentLines() const { return mLine.number; }

    // The number of files that could not be read.
    int execute() override {
        int failures = 0;
        for (std::string path; mInbox.take(&path);) {
            mThread.startWatchdog();
            failures += takeFile(path) ? 0 : 1;
            mThread.stopWatchdog();  // the next one may be long in coming
        }
        mToWorker.send(utl::SimpleMsg(ALL_END), mThread);
        return failures;
    }

private:
    bool takeFile(std::string const& path) {
        FileMsg end(FILE_END, path.c_str());
        {
            utl::File file(path.c_str(), utl::File::UTF8);
            if (!open(file)) {
                return !mInbox.isRefused(path);
            }
            file.setTextType(Encoding::ofMark(file, Encoding::ofExtension(file)));
            mToWorker.send(FileMsg(FILE_BEGIN, path.c_str()), mThread);
            sendLines(file, &end);
        }
        mToWorker.send(end, mThread);  // the file is closed: the collector may move it away
        return end.isWhole != 0;
    }

    // Which locks out writers, and fails while one is at it: then the file comes at a later look.
    // So does one that has gone. Twice, for a writer that has just finished.
    bool open(utl::File& file) {
        char const* const path = file.getPath();
        for (int attempt = 0; attempt < 2; ++attempt) {
            if (file.open(utl::File::AS_IT_IS, utl::File::READ)) {
                return true;
            }
            if (utl::File::isOpened(path, nullptr) || !utl::File::exists(path)) {
                mInbox.forget(path);
                return false;
            }
        }
        applog(INTAKE_LOG, LEVEL_ERROR, "cannot read %s", path);
        mInbox.refuse(path);
        return false;
    }

    void sendLines(utl::File& file, FileMsg* end) {
        unsigned long size;
        long read;
        while ((read = file.readLine(mLine.text, MAX_TEXT, &size)) >= 0) {
            mThread.keepAliveWatchdog(utl::StatementInfo("Reader", "sendLines", __LINE__, 0));
            mToWorker.send(mLine, mThread);
            ++mLine.number;
            ++end->lines;
        }
        end->isWhole = read == utl::File::END_OF_FILE ? 1 : 0;
    }

    Inbox& mInbox;
    Channel& mToWorker;
    LineMsg mLine;
    utl::Thread mThread{"reader", this};
};

#endif  // TEXTINTAKE_READER_H
