#include "UtlSyncObject.h"

#include "platform/UtlMutex.h"

namespace utl {

SyncObjectBase::~SyncObjectBase() = default;

SyncObject::SyncObject() {
    platform::initializeRecursiveMutex(mMutex);
}

SyncObject::~SyncObject() {
    pthread_mutex_destroy(&mMutex);
}

// Of the system's mutex nothing is said.
int SyncObject::lock() const UTL_NO_THREAD_SAFETY_ANALYSIS {
    return pthread_mutex_lock(&mMutex);
}

bool SyncObject::tryLock() const {
    return pthread_mutex_trylock(&mMutex) == 0;
}

// As lock().
int SyncObject::unlock() const UTL_NO_THREAD_SAFETY_ANALYSIS {
    return pthread_mutex_unlock(&mMutex);
}

SyncGuard::SyncGuard(SyncObjectBase const& object) : mObject(&object) {
    mObject->lock();
}

SyncGuard::~SyncGuard() {
    mObject->unlock();
}

}  // namespace utl
