#include "platform/UtlCondition.h"

#include <errno.h>
#include <time.h>

#include "UtlApi.h"

namespace utl {
namespace platform {

namespace {

constexpr long NANOSECONDS_PER_SECOND = 1000000000;

}  // namespace

void initializeCondition(pthread_cond_t& condition) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition, &attributes);
    pthread_condattr_destroy(&attributes);
}

int waitCondition(pthread_cond_t& condition, pthread_mutex_t& mutex, unsigned long timeoutMs) {
    timespec deadline;
    if (clock_gettime(CLOCK_MONOTONIC, &deadline) != 0) {
        return WAIT_FAILED;
    }
    deadline.tv_sec += static_cast<time_t>(timeoutMs / 1000);
    deadline.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000;
    if (deadline.tv_nsec >= NANOSECONDS_PER_SECOND) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= NANOSECONDS_PER_SECOND;
    }

    switch (pthread_cond_timedwait(&condition, &mutex, &deadline)) {
        case 0:
            return REACHED;
        case ETIMEDOUT:
            return TIMED_OUT;
        default:
            return WAIT_FAILED;
    }
}

}  // namespace platform
}  // namespace utl
