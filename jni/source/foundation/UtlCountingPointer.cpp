#include "UtlCountingPointer.h"

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFileSystem.h"

namespace utl {

RefCounter::~RefCounter() = default;

void RefCounter::raise() {
    lRefCount.fetch_add(1, std::memory_order_relaxed);
}

bool RefCounter::lower(char const* holderClass) {
    // Orders what every holder did before the destruction by the last one.
    std::int32_t const count = lRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (count < 0) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "lRefCount(%d) < 0 in %s::release()", count, holderClass);
    }
    return count == 0;
}

// What the last one of the others did is over when it has let go.
bool RefCounter::isShared() const {
    return lRefCount.load(std::memory_order_acquire) > 1;
}

GetRefCounterInterface::~GetRefCounterInterface() = default;

bool DestructCloseFile::operator()(int descriptor) const {
    if (descriptor == 0 || descriptor == -1) {
        return true;
    }
    platform::ErrnoGuard const guard;
    bool const isLost = platform::isWritable(descriptor) && platform::syncFile(descriptor) != 0;
    int const cause = errno;
    platform::closeFile(descriptor);
    if (isLost) {
        applog(LIBRARY_LOG, LEVEL_ERROR, "fsync Failed. errno[%d]", cause);
    }
    return !isLost;
}

}  // namespace utl
