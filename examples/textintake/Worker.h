// Normalises pages, counts their words and characters, and passes them on to the collector.

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
        if (msgId == PAGE) {
            mPage.restoreFrom(msg);
            workOnPage();
            mToCollector.send(mPage, mThread);
        } else {
            FileMsg file(msgId);
            file.restoreFrom(msg);
            mWords.begin();
            mToCollector.send(file, mThread);
        }
        mChannel.handled();
        return 0;
    }

private:
    void workOnPage() {
        if (mStalls) {
            mStalls = false;
            mThread.waitTo(utl::Thread::STOP_REQUESTED, 3 * ALIVE_TIME_MS);
        }
        mNormalizer.normalize(mPage.text, sizeof mPage.text);
        mPage.words = mWords.count(mPage.text);
        mPage.characters = countCharacters(mPage.text);
    }

    Channel& mToCollector;
    bool mStalls;
    Normalizer const mNormalizer;
    WordCounter mWords;
    PageMsg mPage;
    Channel mChannel{mThread};
    utl::MsgDrivenThread mThread{MAX_MSG_SIZE, QUEUE_LENGTH, "worker", 0};  // stops first
};

#endif  // TEXTINTAKE_WORKER_H
