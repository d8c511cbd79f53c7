// The recursive lock of the library, and the scope that holds one.
//
//     void Mailbox::put(Letter const& letter) {
//         SyncGuard guard(mLock);
//         mLetters.insertAt(mLetters.count(), letter);
//     }  // given back here, whichever way the function ends

#ifndef UTL_SYNC_OBJECT_H
#define UTL_SYNC_OBJECT_H

#include <pthread.h>

#include "UtlApi.h"
#include "UtlThreadSafety.h"

namespace utl {

// What can be locked. The operations are const: they change the lock, never what it guards.
class UTL_API UTL_CAPABILITY("mutex") SyncObjectBase {
public:
    virtual ~SyncObjectBase();

    // Blocks without limit until the calling thread holds the lock. 0, or the system's error code.
    virtual int lock() const UTL_ACQUIRE() = 0;

    // Takes the lock if that needs no waiting. True: the caller holds it and owes one unlock().
    virtual bool tryLock() const UTL_TRY_ACQUIRE(true) = 0;

    // Gives back one lock() or tryLock(). 0, or EPERM when the calling thread does not hold it.
    virtual int unlock() const UTL_RELEASE() = 0;
};

// A recursive mutex: its holder may lock it again and owes one unlock() for each time. Any thread
// may use it. Nobody may hold it when it is destroyed.
class UTL_API UTL_CAPABILITY("mutex") SyncObject : public SyncObjectBase {
public:
    SyncObject();
    ~SyncObject() override;
    SyncObject(SyncObject const&) = delete;
    SyncObject& operator=(SyncObject const&) = delete;

    int lock() const override UTL_ACQUIRE();
    bool tryLock() const override UTL_TRY_ACQUIRE(true);
    int unlock() const override UTL_RELEASE();

private:
    mutable pthread_mutex_t mMutex;
};

// Holds `object`, which must live longer, until the scope ends. A failed lock() is not reported.
class UTL_API UTL_SCOPED_CAPABILITY SyncGuard {
public:
    // Locks; blocks.
    explicit SyncGuard(SyncObjectBase const& object) UTL_ACQUIRE(object);
    virtual ~SyncGuard() UTL_RELEASE();
    SyncGuard(SyncGuard const&) = delete;
    SyncGuard& operator=(SyncGuard const&) = delete;

private:
    SyncObjectBase const* const mObject;
};

}  // namespace utl

#endif  // UTL_SYNC_OBJECT_H
