// Writes what the worker made of the lines, puts the finished sources away, adds everything up and
// shows the progress.

#ifndef TEXTINTAKE_COLLECTOR_H
#define TEXTINTAKE_COLLECTOR_H

#include <unistd.h>

#include <cstdio>
#include <map>
#include <optional>
#include <string>

#include "Channel.h"
#include "Inbox.h"
#include "Output.h"
#include "UtlFile.h"
#include "UtlTimepiece.h"

class Collector : public utl::ThreadMsgListener {
public:
    Collector(Inbox& inbox, std::string const& outDirectory)
        : mInbox(inbox), mOutDirectory(outDirectory) {}

    utl::MsgDrivenThread& thread() { return mThread; }
    Channel& channel() { return mChannel; }

    // False when the last line is not counted within `timeout` milliseconds.
    bool waitToDone(unsigned long timeout) const { return mAllDone.waitToOn(timeout) == 0; }

    // Shows the progress from now on, with the refusals of the worker's queue: in place on a
    // terminal, otherwise as a line of the log every second.
    bool startProgress(Channel const& toWorker) {
        mToWorker = &toWorker;
        mElapsed.start();
        return mThread.setTimer(IS_TERMINAL ? 100 : 1000, 0, 0, 0) != -1;
    }

    int receiveMsg(int, utl::ThreadRawMsg& msg) override {
        long msgId;
        msg.getMsgId(&msgId);
        if (msgId == utl::TimerMsg::ID) {
            showProgress();
        } else if (msgId == TOTALS) {
            TotalsMsg request(nullptr);
            request.restoreFrom(msg);
            *request.out() = mTotals;
        } else {
            collect(msgId, msg);
            mChannel.handled();
        }
        return 0;
    }

private:
    void collect(long msgId, utl::ThreadRawMsg& msg) {
        FileMsg file(msgId);
        switch (msgId) {
            case FILE_BEGIN:
                file.restoreFrom(msg);
                beginFile(file.path);
                break;
            case LINE:
                mLine.restoreFrom(msg);
                addLine();
                break;
            case FILE_END:
                file.restoreFrom(msg);
                endFile(file);
                break;
            default:
                mAllDone.setOn();
        }
    }

    void beginFile(char const* path) {
        mSource.emplace(path, utl::File::UTF8);
        mOutput.emplace(mOutDirectory, nameOf(*mSource, WITH_EXTENSION));
        mIsWritten = mOutput->open();
    }

    // Lines keep their order on the way, so each must be the next.
    void addLine() {
        mTotals.faults += mLine.number != mTotals.lines ? 1 : 0;
        ++mTotals.lines;
        mTotals.words += mLine.words;
        mTotals.characters += mLine.characters;
        mIsWritten = mIsWritten && mOutput->add(mLine);
    }

    // Moves the source away if all of it is in the output.
    void endFile(FileMsg const& file) {
        bool const isRight =
            mIsWritten && mOutput->finish() && mOutput->verify(file.lines) && agreesWithItsKin();
        if (file.isWhole != 0 && isRight && putAway()) {
            ++mTotals.files;
            mInbox.forget(file.path);
            return;
        }
        mTotals.faults += file.isWhole != 0 ? 1 : 0;
        applog(INTAKE_LOG, LEVEL_ERROR, "no whole output of %s", file.path);
        mOutput->discard();
        mInbox.refuse(file.path);
    }

    // Files of one name and different extensions are the same text in different encodings.
    bool agreesWithItsKin() {
        std::string const name = nameOf(*mSource, WITHOUT_EXTENSION);
        return mHashes.emplace(name, mOutput->hash()).first->second == mOutput->hash();
    }

    bool putAway() {
        std::string const archived = mOutDirectory + "/archive/" + nameOf(*mSource, WITH_EXTENSION);
        return mSource->copy(archived.c_str(), 1) && mSource->erase(1);
    }

    static std::string nameOf(utl::File const& file, int withoutExtension) {
        utl::BasicString<char> name;
        file.getFileName(&name, withoutExtension);
        return name.c_str();
    }

    void showProgress() {
        char line[100];
        std::snprintf(line, sizeof line, "%u files, %u lines, %lu lines/s, %u refusals",
                      mTotals.files, mTotals.lines,
                      mTotals.lines * 1000ul / (mElapsed.watch() + 1ul), mToWorker->refusals());
        if (IS_TERMINAL) {
            std::printf("\r%-70s\r", line);
            std::fflush(stdout);
        } else {
            applog(INTAKE_LOG, LEVEL_DETAIL, "%s", line);
        }
    }

    static constexpr int WITH_EXTENSION = 0;
    static constexpr int WITHOUT_EXTENSION = 1;
    bool const IS_TERMINAL = isatty(STDOUT_FILENO) != 0;

    Inbox& mInbox;
    std::string const mOutDirectory;
    std::optional<utl::File> mSource;  // the file that is being collected, and what comes of it
    std::optional<Output> mOutput;
    bool mIsWritten = false;
    std::map<std::string, std::uint32_t> mHashes;
    Totals mTotals;
    LineMsg mLine;
    Channel const* mToWorker = nullptr;
    utl::Event mAllDone{0, 0};
    utl::TimeCounter mElapsed;
    Channel mChannel{mThread};
    utl::MsgDrivenThread mThread{MAX_MSG_SIZE, QUEUE_LENGTH, "collector", 1};  // stops first
};

#endif  // TEXTINTAKE_COLLECTOR_H
