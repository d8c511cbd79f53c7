// Internal. Condition variables whose time limits are measured on the monotonic clock.

#ifndef UTL_PLATFORM_CONDITION_H
#define UTL_PLATFORM_CONDITION_H

#include <pthread.h>

namespace utl {
namespace platform {

// Makes `condition` ready for waitCondition().
void initializeCondition(pthread_cond_t& condition);

// Waits until `condition` is signalled, or for `timeoutMs` milliseconds. The caller holds `mutex`,
// which is free during the wait. REACHED (perhaps for no reason), TIMED_OUT or WAIT_FAILED.
int waitCondition(pthread_cond_t& condition, pthread_mutex_t& mutex, unsigned long timeoutMs);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_CONDITION_H
