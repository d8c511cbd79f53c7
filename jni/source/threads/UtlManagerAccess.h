// Internal. The thread manager, for as long as this lives: the library's own threads may outlive
// the manager, and what they ask of it must not meet a deleted one.
//
//     ManagerAccess const manager;
//     if (manager) { manager->stopWatchdog(id); }
//
// Only for calls that wait for nobody who may wait for ThreadManager::destroy(): it waits for them.

#ifndef UTL_MANAGER_ACCESS_H
#define UTL_MANAGER_ACCESS_H

#include <optional>

#include "UtlThreadManager.h"

#include "foundation/UtlVisitorCount.h"

namespace utl {

class ManagerAccess {
public:
    // Looks before the visit as well: once there is no manager nobody is counted any more, so that
    // destroy() waits for the last visitor and not for ever new ones.
    ManagerAccess() {
        if (ThreadManager::getIfCreated() != nullptr) {
            mVisit.emplace(visitors);
            mManager = ThreadManager::getIfCreated();
        }
    }
    ManagerAccess(ManagerAccess const&) = delete;
    ManagerAccess& operator=(ManagerAccess const&) = delete;

    explicit operator bool() const { return mManager != nullptr; }
    ThreadManager* operator->() const { return mManager; }

    // For ThreadManager::destroy(), once nobody can find the manager any more.
    static void awaitNone() { visitors.awaitNone(); }

    // For the child of a fork: the visitors stayed in the parent.
    static void forgetVisitors() { visitors.forget(); }

private:
    static VisitorCount visitors;

    std::optional<VisitorCount::Visit> mVisit;
    ThreadManager* mManager = nullptr;
};

}  // namespace utl

#endif  // UTL_MANAGER_ACCESS_H
