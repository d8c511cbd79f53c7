// The way to a message-driven thread for one sender that must lose nothing: when the queue is full
// it waits until the receiver has worked it down to the half.

#ifndef TEXTINTAKE_CHANNEL_H
#define TEXTINTAKE_CHANNEL_H

#include "Messages.h"
#include "UtlEvent.h"
#include "UtlMsgDrivenThread.h"
#include "UtlStatementInfo.h"
#include "UtlSyncObject.h"

class Channel {
public:
    explicit Channel(utl::MsgDrivenThread& receiver) : mReceiver(receiver) {}

    // The sender's, which reports alive while it waits. False when either thread is stopping.
    bool send(utl::Msg const& msg, utl::Thread& sender) {
        while (!reserve()) {
            if (sender.hasRequestedStop() || !mReceiver.isRunning()) {
                return false;
            }
            sender.keepAliveWatchdog(utl::StatementInfo("Channel", "send", __LINE__, 0));
            mHasRoom.waitToOn(100ms);
        }
        return mReceiver.postMsg(msg) != 0;
    }

    // The receiver's: it has handled a message.
    void handled() {
        utl::SyncGuard const guard(mLock);
        if (--mUnderWay <= QUEUE_LENGTH / 2) {
            mHasRoom.setOn();
        }
    }

    // How often the sender found the queue full.
    unsigned waits() const {
        utl::SyncGuard const guard(mLock);
        return mWaits;
    }

private:
    // A place in the queue. What is being handled still counts, so the queue never has fewer.
    bool reserve() {
        utl::SyncGuard const guard(mLock);
        if (mUnderWay == QUEUE_LENGTH) {
            mHasRoom.setOff();
            ++mWaits;
            return false;
        }
        ++mUnderWay;
        return true;
    }

    utl::MsgDrivenThread& mReceiver;
    utl::SyncObject mLock;
    unsigned mUnderWay = 0;  // guarded by mLock, like mWaits
    unsigned mWaits = 0;
    utl::Event mHasRoom{1, 0};
};

#endif  // TEXTINTAKE_CHANNEL_H
