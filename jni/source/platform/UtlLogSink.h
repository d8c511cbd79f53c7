// Internal. Where the lines of the log go.
//
// Android's own log, or, elsewhere, a weak function of the same name that writes lines in the
// brief form of logcat to standard error. An application or a test replaces that one by defining
// __android_log_print itself.

#ifndef UTL_PLATFORM_LOG_SINK_H
#define UTL_PLATFORM_LOG_SINK_H

#include "UtlApi.h"

extern "C" UTL_API int __android_log_print(int priority, char const* tag, char const* format, ...)
    UTL_PRINTF_FORMAT(3, 4);

namespace utl {
namespace platform {

// Priorities as the system log numbers them.
constexpr int LOG_PRIORITY_VERBOSE = 2;
constexpr int LOG_PRIORITY_DEBUG = 3;
constexpr int LOG_PRIORITY_INFO = 4;
constexpr int LOG_PRIORITY_WARN = 5;

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_LOG_SINK_H
