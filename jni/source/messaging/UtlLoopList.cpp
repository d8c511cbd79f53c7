#include "messaging/UtlLoopList.h"

#include "foundation/UtlLineOutput.h"
#include "messaging/UtlLoopControl.h"
#include "platform/UtlFork.h"
#include "platform/UtlStaticLock.h"
#include "threads/UtlTableName.h"

namespace utl {

namespace {

// All of it guarded by the lock. The child of a fork has none of its parent's loops.
platform::StaticLock lock(platform::LockOrder::LOOPS);
LoopControl* first = nullptr;
unsigned long lastNumber = 0;
unsigned process = 0;

void forgetParentLocked() {
    if (process != platform::processNumber()) {
        process = platform::processNumber();
        first = nullptr;
    }
}

}  // namespace

struct LoopList::Row {
    unsigned long number = 0;
    int threadId = 0;
    TableName name{""};
    LoopStatistics statistics;
};

void LoopList::add(LoopControl& loop) {
    platform::StaticGuard const guard(lock);
    forgetParentLocked();
    LoopControl** end = &first;
    while (*end != nullptr) {
        end = &(*end)->link().next;
    }
    loop.link() = {nullptr, ++lastNumber};
    *end = &loop;
}

void LoopList::remove(LoopControl& loop) {
    platform::StaticGuard const guard(lock);
    forgetParentLocked();
    for (LoopControl** at = &first; *at != nullptr; at = &(*at)->link().next) {
        if (*at == &loop) {
            *at = loop.link().next;
            return;
        }
    }
}

// The first loop behind that of the row. False when there is none.
bool LoopList::copyNext(Row* row) {
    platform::StaticGuard const guard(lock);
    forgetParentLocked();
    LoopControl* loop = first;
    while (loop != nullptr && loop->link().number <= row->number) {
        loop = loop->link().next;
    }
    if (loop != nullptr) {
        *row = {loop->link().number, loop->threadId(), TableName(loop->name()), loop->statistics()};
    }
    return loop != nullptr;
}

void LoopList::print(LineOutput& output) {
    output.print("MsgDrivenThread:: What the threads of this process had to do.");
    output.print(
        "ID        , Name                            , Waiting   , Most      , Posted    , "
        "Refused   , Handled   , Wait(ms)  , Call(ms)  , of MsgId  , ");
    for (Row row; copyNext(&row);) {
        LoopStatistics const& done = row.statistics;
        output.print("%10d, %-32s, %10lu, %10lu, %10lu, %10lu, %10lu, %10lu, %10lu, 0x%08x, ",
                     row.threadId, row.name.text(), done.waiting, done.maxWaiting, done.posted,
                     done.refused, done.handled, done.longestWaitMs, done.longestHandlerMs,
                     static_cast<unsigned>(done.longestHandlerId));
    }
}

}  // namespace utl
