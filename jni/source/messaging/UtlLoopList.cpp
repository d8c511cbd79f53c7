#include "messaging/UtlLoopList.h"

#include "foundation/UtlLineOutput.h"
#include "messaging/UtlLoopControl.h"
#include "platform/UtlFork.h"
#include "platform/UtlStaticLock.h"
#include "threads/UtlTableName.h"

namespace utl {

namespace {

platform::StaticLock lock(platform::LockOrder::LOOPS);

}  // namespace

struct LoopList::Row {
    int threadId = 0;
    TableName name{""};
    LoopStatistics statistics;
};

// Somebody who goes from loop to loop, while loops come and go.
class LoopList::Walk {
public:
    Walk();
    ~Walk();
    Walk(Walk const&) = delete;
    Walk& operator=(Walk const&) = delete;

    // False behind the last.
    bool copyNext(Row* row);

    static void stepOverLocked(LoopControl const& loop);

private:
    LoopControl* mNext;
    Walk* mOther;
};

namespace {

// All of it guarded by the lock. The child of a fork has none of its parent's loops.
struct Chain {
    LoopControl* first = nullptr;
    LoopControl* last = nullptr;
    LoopList::Walk* walks = nullptr;
    unsigned process = 0;
} chain;

void forgetParentLocked() {
    if (chain.process != platform::processNumber()) {
        chain = Chain();
        chain.process = platform::processNumber();
    }
}

}  // namespace

LoopList::Walk::Walk() {
    platform::StaticGuard const guard(lock);
    forgetParentLocked();
    mNext = chain.first;
    mOther = chain.walks;
    chain.walks = this;
}

LoopList::Walk::~Walk() {
    platform::StaticGuard const guard(lock);
    forgetParentLocked();
    Walk** at = &chain.walks;
    while (*at != nullptr && *at != this) {
        at = &(*at)->mOther;
    }
    if (*at != nullptr) {
        *at = mOther;
    }
}

bool LoopList::Walk::copyNext(Row* row) {
    platform::StaticGuard const guard(lock);
    forgetParentLocked();
    LoopControl* const loop = chain.walks != nullptr ? mNext : nullptr;
    if (loop != nullptr) {
        *row = {loop->threadId(), TableName(loop->name()), loop->statistics()};
        mNext = loop->link().next;
    }
    return loop != nullptr;
}

void LoopList::Walk::stepOverLocked(LoopControl const& loop) {
    for (Walk* walk = chain.walks; walk != nullptr; walk = walk->mOther) {
        walk->mNext = walk->mNext == &loop ? walk->mNext->link().next : walk->mNext;
    }
}

void LoopList::add(LoopControl& loop) {
    platform::StaticGuard const guard(lock);
    forgetParentLocked();
    loop.link() = {chain.last, nullptr, chain.process};
    (chain.last != nullptr ? chain.last->link().next : chain.first) = &loop;
    chain.last = &loop;
}

void LoopList::remove(LoopControl& loop) {
    platform::StaticGuard const guard(lock);
    forgetParentLocked();
    Link const link = loop.link();
    if (link.process != chain.process) {
        return;
    }
    Walk::stepOverLocked(loop);
    (link.previous != nullptr ? link.previous->link().next : chain.first) = link.next;
    (link.next != nullptr ? link.next->link().previous : chain.last) = link.previous;
    loop.link() = {};
}

void LoopList::print(LineOutput& output) {
    output.print("MsgDrivenThread:: What the threads of this process had to do.");
    output.print(
        "ID        , Name                            , Waiting   , Most      , Posted    , "
        "Refused   , Handled   , Wait(ms)  , Call(ms)  , of MsgId  , ");
    Walk walk;
    for (Row row; walk.copyNext(&row);) {
        LoopStatistics const& done = row.statistics;
        output.print("%10d, %-32s, %10lu, %10lu, %10lu, %10lu, %10lu, %10lu, %10lu, 0x%08x, ",
                     row.threadId, row.name.text(), done.waiting, done.maxWaiting, done.posted,
                     done.refused, done.handled, done.longestWaitMs, done.longestHandlerMs,
                     static_cast<unsigned>(done.longestHandlerId));
    }
}

}  // namespace utl
