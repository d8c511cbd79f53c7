// Normalises lines, counts their words and characters, and passes them on to the collector.

#ifndef TEXTINTAKE_WORKER_H
#define TEXTINTAKE_WORKER_H

#include <vector>

#include "Channel.h"
#include "UtlCharTable.h"
#include "UtlString.h"

// Brings text into one form: kana in full width, ASCII in half width, letters in lower case.
class Normalizer {
public:
    // The library's table of widths holds kana and ASCII; here each goes its own way.
    Normalizer() {
        for (auto const* row = utl::HANKAKU_ZENKAKU_PAIR; row->first.narrow != nullptr; ++row) {
            (utl::t_strlen(row->first.narrow) == 1 ? mAscii : mKana).push_back(*row);
        }
        mKana.push_back({});
        mAscii.push_back({});
    }

    // In place, in a buffer of `size` bytes. What grows beyond it is cut.
    void normalize(char* text, unsigned long size) const {
        utl::convertAttrib(text, size, text, mKana.data(), 0, utl::TRUNCATE);
        utl::convertAttrib(text, size, text, mAscii.data(), 1, utl::TRUNCATE);
        utl::convertAttrib(text, size, text, utl::LOWER_UPPER_PAIR, 1, utl::TRUNCATE);
    }

private:
    std::vector<utl::PairAttrib> mKana, mAscii;
};

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
        mLine.words = 0;
        for (unsigned long at = 0; utl::findToken(mLine.text, " \t", at, &at) != utl::NONE;) {
            ++mLine.words;
        }
        mLine.characters = 0;
        for (unsigned long at = 0; mLine.text[at] != '\0'; at += utl::t_charlen(mLine.text + at)) {
            ++mLine.characters;  // normalising leaves nothing malformed behind
        }
    }

    Channel& mToCollector;
    bool mStalls;
    Normalizer const mNormalizer;
    LineMsg mLine;
    Channel mChannel{mThread};
    utl::MsgDrivenThread mThread{MAX_MSG_SIZE, QUEUE_LENGTH, "worker", 0};  // stops first
};

#endif  // TEXTINTAKE_WORKER_H
