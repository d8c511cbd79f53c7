// Normalises lines, counts their words and characters, and passes them on to the collector.

#ifndef TEXTINTAKE_WORKER_H
#define TEXTINTAKE_WORKER_H

#include "Channel.h"
#include "Text.h"

class Worker : public utl::ThreadMsgListener {
public:
    static constexpr unsigned long ALIVE_TIME_MS = 1000;

    // With `stalls` it hangs once, for longer than its alive time.
    Worker(Channel& toCollector, bool stalls) : mToCollector(toCollector), mStalls(stalls) {}

    utl::MsgDrivenThread& thread() { return mThread; }
    Channel& channel() { return mChannel; }

    int receiveMsg(int, utl::ThreadRawMsg& msg) override {
        long msgId;
        msg.getMsgId(&msgId);
        if (msgId == LINE) {
            mLine.restoreFrom(msg);
            workOnLine();
            mToCollector.send(mLine, mThread);
        } else if (msgId == FILE_BEGIN || msgId == FILE_END) {
            FileMsg file(msgId);
            file.restoreFrom(msg);
            mToCollector.send(file, mThread);
        } else {
            mToCollector.send(utl::SimpleMsg(msgId), mThread);
        }
        mChannel.handled();
        return 0;
    }

private:
    void workOnLine() {
        if (mStalls) {
            mStalls = false;
            utl::Thread::sleep(2 * ALIVE_TIME_MS);
        }
        mNormalizer.normalize(mLine.text, sizeof mLine.text);
        mLine.words = countWords(mLine.text);
        mLine.characters = countCharacters(mLine.text);
    }

    Channel& mToCollector;
    bool mStalls;
    Normalizer const mNormalizer;
    LineMsg mLine;
    Channel mChannel{mThread};
    utl::MsgDrivenThread mThread{MAX_MSG_SIZE, QUEUE_LENGTH, "worker", 0};  // stops first
};

#endif  // TEXTINTAKE_WORKER_H
