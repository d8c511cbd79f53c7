// Internal. The ids of a message-driven thread's control entries; every other id is a message's.

#ifndef UTL_CONTROL_IDS_H
#define UTL_CONTROL_IDS_H

#include "UtlMsg.h"

#include "messaging/UtlWakePipe.h"

namespace utl {

constexpr long CTL_TIMER_SIGNAL = WakePipe::TIMER_SIGNAL;  // of a word in the pipe
constexpr long CTL_EXTENSION = CTL_TIMER_SIGNAL;  // of a queued entry: never a timer's, so no other
                                                  // id of a message had to be taken away
constexpr long CTL_STOP = 0x83FB;
constexpr long CTL_TIMEOUT = 0x83FC;  // these three with a user timer id
constexpr long CTL_STOP_TIMER = 0x83FD;
constexpr long CTL_START_TIMER = 0x83FE;
constexpr long CTL_SERVICE = 0x83FF;

// The lowest id of an application's message.
constexpr long MIN_MSG_ID = 0x8000;

// What getFirstMsgId() looks for: any message.
constexpr long ANY_MSG = -2;

inline bool isReservedId(long id) {
    return id == CTL_TIMER_SIGNAL || (id >= CTL_STOP && id <= CTL_SERVICE);
}

static_assert(isApplicationMsgId(MIN_MSG_ID) && !isApplicationMsgId(MIN_MSG_ID - 1) &&
                  !isApplicationMsgId(CTL_TIMER_SIGNAL) && isApplicationMsgId(CTL_STOP - 1) &&
                  !isApplicationMsgId(CTL_STOP) && !isApplicationMsgId(CTL_SERVICE) &&
                  isApplicationMsgId(CTL_SERVICE + 1),
              "what the public header says of ids");

inline bool isTimerRequest(long id) {
    return id == CTL_START_TIMER || id == CTL_STOP_TIMER;
}

inline bool isTimerCtl(long id) {
    return id == CTL_TIMEOUT || isTimerRequest(id);
}

}  // namespace utl

#endif  // UTL_CONTROL_IDS_H
