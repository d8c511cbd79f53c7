// The way to a message-driven thread for one sender that must lose nothing: when the queue is full
// it waits until the receiver has worked it down to the half.

#ifndef TEXTINTAKE_CHANNEL_H
#define TEXTINTAKE_CHANNEL_H

#include <atomic>

#include "Messages.h"
#include "UtlEvent.h"
#include "UtlMsgDrivenThread.h"
#include "UtlStatementInfo.h"
#include "UtlSyncObject.h"

class Channel {
public:
    explicit Channel(utl::MsgDrivenThread& receiver) : mReceiver(receiver) {}

    // The sender's, which reports alive while it waits. False when the receiver has stopped.
    bool send(utl::Msg const& msg, utl::Thread& sender) {
        while (!mReceiver.postMsg(msg)) {
            ++mRefusals;
            do {
                if (!mReceiver.isRunning()) {
                    return false;
                }
                sender.keepAliveWatchdog(utl::StatementInfo("Channel", "send", __LINE__, 0));
            } while (mIsLow.waitToOn(100) == utl::TIMED_OUT);
        }
        changeUnderWay(+1);
        return true;
    }

    // The receiver's: it has handled a message.
    void handled() { changeUnderWay(-1); }

    unsigned refusals() const { return mRefusals.load(); }

private:
    void changeUnderWay(int difference) {
        utl::SyncGuard const guard(mLock);
        mUnderWay += difference;  // may be below 0 for a moment: receivers are fast
        mUnderWay <= static_cast<int>(QUEUE_LENGTH / 2) ? mIsLow.setOn() : mIsLow.setOff();
    }

    utl::MsgDrivenThread& mReceiver;
    utl::SyncObject mLock;
    int mUnderWay = 0;  // guarded by mLock
    utl::Event mIsLow{1, 0};
    std::atomic<unsigned> mRefusals{0};
};

#endif  // TEXTINTAKE_CHANNEL_H
