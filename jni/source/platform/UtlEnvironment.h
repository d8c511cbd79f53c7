// Internal. What the user of the process has set.

#ifndef UTL_PLATFORM_ENVIRONMENT_H
#define UTL_PLATFORM_ENVIRONMENT_H

#include <sys/auxv.h>

#include <cstdlib>

namespace utl {
namespace platform {

// A variable of the environment, good until the program changes it; nullptr without one. A process
// with more rights than its user has is not told what to do.
inline char const* environmentVariable(char const* name) {
    return getauxval(AT_SECURE) == 0 ? std::getenv(name) : nullptr;
}

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_ENVIRONMENT_H
