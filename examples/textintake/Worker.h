// Normalises pages, counts their words and characters, and passes them on to the collector.

#ifndef TEXTINTAKE_WORKER_H
#define TEXTINTAKE_WORKER_H

#include "Channel.h"
#include "Text.h"
#include "UtlMsgHandlers.h"

class Worker : public utl::MsgHandlers {
public:
    static constexpr std::chrono::milliseconds ALIVE_TIME = 1s;

    // With `stalls` it hangs once, for longer than its alive time.
    Worker(Channel& toCollector, bool stalls) : mToCollector(toCollector), mStalls(stalls) {}

    utl::MsgDrivenThread& thread() { return mThread; }
    Channel& channel() { return mChannel; }

    // What to do with each message. False without memory.
    bool listen() {
        return on<FileBeginMsg>([this](FileNews const& news) {
                   mWords.begin();
                   pass(FileBeginMsg(news));
               }) &&
               on<PageMsg>([this](Page const& page) {
                   mPage.value() = page;
                   workOn(&mPage.value());
                   pass(mPage);
               }) &&
               on<FileEndMsg>([this](FileNews const& news) { pass(FileEndMsg(news)); });
    }

private:
    void pass(utl::Msg const& msg) {
        mToCollector.send(msg, mThread);
        mChannel.handled();
    }

    void workOn(Page* page) {
        if (mStalls) {
            mStalls = false;
            mThread.waitTo(utl::Thread::STOP_REQUESTED, 3 * ALIVE_TIME);
        }
        mNormalizer.normalize(page->text, sizeof page->text);
        page->words = mWords.count(page->text);
        page->characters = countCharacters(page->text);
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
