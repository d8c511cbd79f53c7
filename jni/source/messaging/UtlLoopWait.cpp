#include "messaging/UtlLoopWait.h"

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "messaging/UtlLoopControl.h"

namespace utl {

platform::StaticLock LoopWait::mLock(platform::LockOrder::LOOP_WAITS);

LoopWait::LoopWait(LoopControl* awaited, Turns const* turns, unsigned turn)
    : mWaiter(awaited != nullptr ? LoopControl::ofThread() : nullptr) {
    if (mWaiter == nullptr) {
        return;
    }
    {
        platform::StaticGuard const guard(mLock);
        // Who is waited for is alive: the waiting thread is inside one of its operations.
        Edge const edge = {awaited, turns, turn};
        for (LoopControl const* loop = awaitedLocked(edge); loop != nullptr && !mIsRefused;
             loop = awaitedLocked(loop->mWaitsFor)) {
            mIsRefused = loop == mWaiter;
        }
        mOuter = mWaiter->mWaitsFor;
        if (!mIsRefused) {
            mWaiter->mWaitsFor = edge;
        }
    }
    if (mIsRefused) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "%s(%s) Refused. %s(%s) waits for this thread",
               mWaiter->label(), mWaiter->name(), awaited->label(), awaited->name());
    }
}

LoopWait::~LoopWait() {
    if (mWaiter != nullptr) {
        platform::StaticGuard const guard(mLock);
        mWaiter->mWaitsFor = mOuter;
    }
}

void LoopWait::end(LoopControl* waiter) {
    if (waiter != nullptr) {
        platform::StaticGuard const guard(mLock);
        waiter->mWaitsFor = {};
    }
}

// nullptr when it is not waited for any more.
LoopControl const* LoopWait::awaitedLocked(Edge const& edge) {
    bool const isOver = edge.turns != nullptr && edge.turns->load() != edge.turn;
    return isOver ? nullptr : edge.loop;
}

}  // namespace utl
