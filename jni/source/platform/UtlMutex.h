// Internal. The system's mutex, recursive.

#ifndef UTL_PLATFORM_MUTEX_H
#define UTL_PLATFORM_MUTEX_H

#include <pthread.h>

namespace utl {
namespace platform {

// Makes `mutex` one that its holder may lock again.
void initializeRecursiveMutex(pthread_mutex_t& mutex);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_MUTEX_H
