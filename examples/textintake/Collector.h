// Adds up what the worker found, and logs the progress from time to time.

#ifndef TEXTINTAKE_COLLECTOR_H
#define TEXTINTAKE_COLLECTOR_H

#include "Channel.h"
#include "UtlTimepiece.h"

class Collector : public utl::ThreadMsgListener {
public:
    utl::MsgDrivenThread& thread() { return mThread; }
    Channel& channel() { return mChannel; }

    // False when the last line is not counted within `timeout` milliseconds.
    bool waitToDone(unsigned long timeout) const { return mAllDone.waitToOn(timeout) == 0; }

    // Logs the progress every 500 ms from now on, with the refusals of the worker's queue.
    bool startProgress(Channel const& toWorker) {
        mToWorker = &toWorker;
        mElapsed.start();
        return mThread.setTimer(500, 0, 0, 0) != -1;
    }

    int receiveMsg(int, utl::ThreadRawMsg& msg) override {
        long msgId;
        msg.getMsgId(&msgId);
        if (msgId == utl::TimerMsg::ID) {
            logProgress();
        } else if (msgId == TOTALS) {
            TotalsMsg request(nullptr);
            request.restoreFrom(msg);
            *request.out() = mTotals;
        } else {
            if (msgId == LINE) {
                mLine.restoreFrom(msg);
                addLine();
            } else if (msgId == FILE_END) {
                ++mTotals.files;
            } else if (msgId == ALL_END) {
                mAllDone.setOn();
            }
            mChannel.handled();
        }
        return 0;
    }

private:
    // Lines keep their order on the way, so each must be the next.
    void addLine() {
        mTotals.outOfOrder += mLine.number != mTotals.lines ? 1 : 0;
        ++mTotals.lines;
        mTotals.words += mLine.words;
        mTotals.characters += mLine.characters;
    }

    void logProgress() {
        applog(INTAKE_LOG, LEVEL_DETAIL, "%u files, %u lines, %u lines/s, %u refusals",
               mTotals.files, mTotals.lines, mTotals.lines * 1000 / (mElapsed.watch() + 1),
               mToWorker->refusals());
    }

    Totals mTotals;
    LineMsg mLine;
    Channel const* mToWorker = nullptr;
    utl::Event mAllDone{0, 0};
    utl::TimeCounter mElapsed;
    Channel mChannel{mThread};
    utl::MsgDrivenThread mThread{MAX_MSG_SIZE, QUEUE_LENGTH, "collector", 1};  // stops first
};

#endif  // TEXTINTAKE_COLLECTOR_H
