// Reads text files and sends their lines to the worker.

#ifndef TEXTINTAKE_READER_H
#define TEXTINTAKE_READER_H

#include <fstream>
#include <string>
#include <vector>

#include "Channel.h"
#include "UtlString.h"

class Reader : public utl::Command {
public:
    Reader(std::vector<std::string> const& paths, Channel& toWorker)
        : mPaths(paths), mToWorker(toWorker) {}

    utl::Thread& thread() { return mThread; }

    // How many lines were sent. Good once the thread has finished.
    std::uint32_t sentLines() const { return mLine.number; }

    // The number of files that could not be read or sent.
    int execute() override {
        mThread.startWatchdog();
        int failures = 0;
        for (std::string const& path : mPaths) {
            failures += sendFile(path) ? 0 : 1;
        }
        mToWorker.send(utl::SimpleMsg(ALL_END), mThread);
        mThread.stopWatchdog();
        return failures;
    }

private:
    bool sendFile(std::string const& path) {
        std::ifstream file(path);
        if (!file) {
            applog(INTAKE_LOG, LEVEL_ERROR, "cannot read %s", path.c_str());
            return false;
        }
        for (std::string text; std::getline(file, text);) {
            mThread.keepAliveWatchdog(utl::StatementInfo("Reader", "sendFile", __LINE__, 0));
            mLine.text[0] = '\0';  // what is not UTF-8 is counted, but empty
            utl::copyStr(mLine.text, MAX_TEXT, text.c_str(), utl::ALL, utl::TRUNCATE);
            if (!mToWorker.send(mLine, mThread)) {
                return false;
            }
            ++mLine.number;
        }
        applog(INTAKE_LOG, LEVEL_DETAIL, "read %s", path.c_str());
        return mToWorker.send(utl::SimpleMsg(FILE_END), mThread);
    }

    std::vector<std::string> const mPaths;
    Channel& mToWorker;
    LineMsg mLine;
    utl::Thread mThread{"reader", this};
};

#endif  // TEXTINTAKE_READER_H
