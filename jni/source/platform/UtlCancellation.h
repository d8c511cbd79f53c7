// Internal. While one of these lives its thread is not cancelled: a request waits until the thread
// next comes to a cancellation point outside. For system calls made with a lock held.

#ifndef UTL_PLATFORM_CANCELLATION_H
#define UTL_PLATFORM_CANCELLATION_H

#include <pthread.h>

namespace utl {
namespace platform {

#ifdef __BIONIC__

// Nothing cancels threads there.
class NoCancellation {
public:
    NoCancellation() {}
};

#else

class NoCancellation {
public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mBefore); }
    ~NoCancellation() { pthread_setcancelstate(mBefore, nullptr); }
    NoCancellation(NoCancellation const&) = delete;
    NoCancellation& operator=(NoCancellation const&) = delete;

private:
    int mBefore;
};

#endif

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_CANCELLATION_H
