#include "UtlMsgHandlers.h"

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "platform/UtlFork.h"

namespace utl {

namespace {

constexpr unsigned long USUAL_COUNT = 16;

}  // namespace

MsgHandlers::Handler::~Handler() = default;

MsgHandlers::MsgHandlers() : mHandlers(USUAL_COUNT, Array<int>::GROWS) {}

// In a child of a fork that one of them makes the others stay as they are.
MsgHandlers::~MsgHandlers() {
    unsigned const process = platform::processNumber();
    for (unsigned long i = 0; i < mHandlers.count() && process == platform::processNumber(); ++i) {
        delete mHandlers[i].value();
    }
}

// Takes the handler over, which is nullptr without memory.
bool MsgHandlers::add(long msgId, Handler* handler) {
    bool const isAdded = handler != nullptr && mHandlers.insert(msgId, handler, 0);
    if (!isAdded) {
        delete handler;
    }
    return isAdded;
}

int MsgHandlers::receiveMsg(int threadId, ThreadRawMsg& msg) {
    long msgId = OTHER;
    msg.getMsgId(&msgId);
    Handler* const* found = mHandlers.find(msgId);
    if (found == nullptr) {
        found = mHandlers.find(OTHER);
    }
    // A handler may add others: the table is not looked at any more.
    bool const isHandled = found != nullptr && (*found)->handle(msg);
    if (!isHandled) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "MsgHandlers(%d) Error. %s MsgId:0x%08x", threadId,
               found == nullptr ? "No handler" : "Too small", static_cast<unsigned>(msgId));
    }
    return isHandled;
}

}  // namespace utl
