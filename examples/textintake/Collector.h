// Writes what the worker made of the text, puts the finished sources away, and shows the progress.

#ifndef TEXTINTAKE_COLLECTOR_H
#define TEXTINTAKE_COLLECTOR_H

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>

#include "Channel.h"
#include "Encoding.h"
#include "Inbox.h"
#include "Output.h"
#include "Report.h"
#include "Shelf.h"
#include "UtlMsgHandlers.h"
#include "UtlTimepiece.h"

class Collector : public utl::MsgHandlers {
public:
    Collector(Inbox& inbox, Shelf& shelf, Report& report)
        : mInbox(inbox), mShelf(shelf), mReport(report) {}

    utl::MsgDrivenThread& thread() { return mThread; }
    Channel& channel() { return mChannel; }

    // Shows the progress from now on: in place on a terminal, otherwise as a line of the log every
    // second.
    bool startProgress(Channel const& toWorker) {
        mToWorker = &toWorker;
        return mThread.setTimer(IS_TERMINAL ? 100ms : 1000ms) != -1;
    }

    // Drops what has come of a file that was not finished. When the thread has stopped.
    void giveUp() {
        if (IS_TERMINAL) {
            std::printf("\r\033[K");
        }
        if (mOutput) {
            drop();
        }
    }

    // What to do with each message. False without memory.
    bool listen() {
        return on<FileBeginMsg>([this](FileNews const& news) {
                   beginFile(news);
                   mChannel.handled();
               }) &&
               on<PageMsg>([this](Page const& page) {
                   addPage(page);
                   mChannel.handled();
               }) &&
               on<FileEndMsg>([this](FileNews const& news) {
                   endFile(news);
                   mChannel.handled();
               }) &&
               on<utl::TimerMsg>([this](utl::TimerMsg const&) { showProgress(); });
    }

private:
    void beginFile(FileNews const& file) {
        if (!mReport.failure().empty()) {
            return;
        }
        char name[MAX_PATH_SIZE] = "";
        utl::File::extractFileName(name, sizeof name, file.path, 0);
        mRow = {name, Report::TAKEN, "", Encoding(file.encoding).name()};
        mSinceBegin.start();
        mOutput.emplace(mShelf.directory(), mRow.name);
        check(mOutput->open());
    }

    // Pages keep their order on the way, so each must be the next.
    void addPage(Page const& page) {
        if (page.number != mPages++) {
            mReport.fail("a page has been lost on its way");
        }
        if (mOutput) {
            mRow.counts.add({0, page.words, page.characters});
            check(mOutput->add(page.text, utl::t_strlen(page.text)));
        }
    }

    void endFile(FileNews const& file) {
        if (!mOutput) {
            return;
        }
        mRow.counts.lines = mOutput->lines();
        if (file.error != 0) {
            mOutput.reset();
            mInbox.refuse(file.path, "cannot be read: " + reasonOf(file.error));
        } else if (file.isWhole && check(mOutput->finish())) {
            keep(file);
        }
    }

    // Moves the outputs to their place and then the source away.
    void keep(FileNews const& file) {
        if (file.lines != mRow.counts.lines) {
            mReport.fail("a line has been lost on its way");
            return;
        }
        if (!mInbox.isUnchanged(file.path)) {
            mOutput.reset();
            applog(INTAKE_LOG, LEVEL_DETAIL, "%s has changed meanwhile; it is taken again",
                   file.path);
            mInbox.forget(file.path);
            return;
        }
        std::string const name = mShelf.freeName(mRow.name);
        std::string const differing = mShelf.findDiffering(mRow.name, mOutput->hash());
        if (!check(mOutput->moveTo(mShelf.path(name)))) {
            return;
        }
        mOutput.reset();  // which makes the move durable, before the source goes
        if (!mShelf.archive(file.path, name)) {
            std::string const reason = reasonOf(errno);
            Output::erase(mShelf.path(name));
            mInbox.refuse(file.path, "cannot be moved to the archive: " + reason);
            return;
        }
        mInbox.forget(file.path);
        note(file.notes);
        note(name != mRow.name ? "kept as " + name : "");
        note(!differing.empty() ? "differs from " + differing : "");
        endRow();
    }

    void note(std::string const& text) {
        mRow.notes += (mRow.notes.empty() || text.empty() ? "" : "; ") + text;
    }

    // What cannot be written ends the run: it would be the same with the next file.
    bool check(bool isDone) {
        if (!isDone) {
            mReport.fail(mOutput->error());
            drop();
        }
        return isDone;
    }

    void drop() {
        mRow.counts.lines = mOutput->lines();
        mRow.outcome = Report::UNFINISHED;
        mOutput.reset();
        note("not finished");
        endRow();
    }

    void endRow() {
        mRow.milliseconds = mSinceBegin.stop();
        mReport.add(mRow);
    }

    void showProgress() {
        std::string text = mReport.totals() + ", " + std::to_string(mToWorker->waits()) + " waits";
        if (mOutput && mOutput->lines() != 0) {
            text = mRow.name + ": " + grouped(mOutput->lines()) + " lines; " + text;
        }
        if (IS_TERMINAL) {
            Shown shown(text);
            shown.shorten(Table::terminalWidth() - 1);
            std::printf("\r\033[K%s\r", shown.text().c_str());
            std::fflush(stdout);
        } else {
            applog(INTAKE_LOG, LEVEL_DETAIL, "%s", text.c_str());
        }
    }

    bool const IS_TERMINAL = isatty(STDOUT_FILENO) != 0;

    Inbox& mInbox;
    Shelf& mShelf;
    Report& mReport;
    std::optional<Output> mOutput;  // of the file that is being collected
    Report::Row mRow;
    std::uint32_t mPages = 0;
    Channel const* mToWorker = nullptr;
    utl::TimeCounter mSinceBegin;
    Channel mChannel{mThread};
    utl::MsgDrivenThread mThread{MAX_MSG_SIZE, QUEUE_LENGTH, "collector", 1};  // stops first
};

#endif  // TEXTINTAKE_COLLECTOR_H
