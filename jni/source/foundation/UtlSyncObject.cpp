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

int SyncObject::lock() const {
    return pthread_mutex_lock(&mMutex);
}

bool SyncObject::tryLock() const {
    return pthread_mutex_trylock(&mMutex) == 0;
}

int SyncObject::unlock() const {
    return pthread_mutex_unlock(&mMutex);
}

SyncGuard::SyncGuard(SyncObjectBase const& object) : mObject(&object) {
    mObject->lock();
}

SyncGuard::~SyncGuard() {
    mObject->unlock();
}

}  // namespace utl
