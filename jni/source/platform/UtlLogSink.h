// Internal. Where the lines of the log go.
//
// Android's own log, or, elsewhere, a weak function of the same name that writes lines for people
// to standard error. An application or a test replaces that one by defining __android_log_print
// itself.

#ifndef UTL_PLATFORM_LOG_SINK_H
#define UTL_PLATFORM_LOG_SINK_H

#include <cstdint>
#include <string_view>

#include "UtlApi.h"
#include "UtlThreadSafety.h"

#include "platform/UtlClock.h"
#include "platform/UtlStaticLock.h"

extern "C" UTL_API int __android_log_print(int priority, char const* tag, char const* format, ...)
    UTL_PRINTF_FORMAT(3, 4);

namespace utl {
namespace platform {

// Priorities as the system log numbers them.
constexpr int LOG_PRIORITY_VERBOSE = 2;
constexpr int LOG_PRIORITY_DEBUG = 3;
constexpr int LOG_PRIORITY_INFO = 4;
constexpr int LOG_PRIORITY_WARN = 5;

// What a line is made of, for a sink that makes lines of its own: the library passes a pointer to
// one behind the arguments of its lines, whose format is this very array.
struct LogMessage {
    char* typeName;  // not ended by 0
    unsigned long nameLength;
    char* text;             // with the line end
    bool isShown = true;    // false: for Android's log only
    bool hasLines = false;  // line feeds inside begin another one
};
inline constexpr char LINE_FORMAT[] = "%s";

inline std::string_view withoutLineEnd(std::string_view text) {
    return text.substr(0, text.find_last_not_of("\r\n") + 1);
}

// A leaf but for the time zone: who has it calls nothing but the sink.
inline StaticLock logSinkLock(LockOrder::LOG_OUTPUT);

// The turn of one thread to write; what it writes meanwhile stays together. A thread that has the
// turn may take it again. It must not be cancelled meanwhile, which is the sink's to see to.
class UTL_SCOPED_CAPABILITY LogTurn {
public:
    LogTurn() UTL_ACQUIRE(logSinkLock) {
        if (logSinkLock.try_lock()) {
            beginLocked(false, NO_TICK);
            return;
        }
        std::uint32_t const now = kernelTick();
        logSinkLock.lock();
        beginLocked(true, now);
    }
    ~LogTurn() UTL_RELEASE() {
        --sDepth;
        logSinkLock.unlock();
    }
    LogTurn(LogTurn const&) = delete;
    LogTurn& operator=(LogTurn const&) = delete;

    // For how many milliseconds the caller, who has the turn, has been held up: since it asked for
    // the turn if others had it then, or else since this was first called.
    static std::uint32_t heldUpForLocked() UTL_REQUIRES(logSinkLock) {
        std::uint32_t const now = kernelTick();
        if (!sIsHeldUp) {
            sIsHeldUp = true;
            sHeldUpSince = now;
        }
        return now - sHeldUpSince;
    }

private:
    static void beginLocked(bool isHeldUp, std::uint32_t since) UTL_REQUIRES(logSinkLock) {
        if (sDepth++ == 0) {
            sIsHeldUp = isHeldUp;
            sHeldUpSince = since;
        }
    }

    // The clock is read only where somebody has to wait.
    static inline int sDepth UTL_GUARDED_BY(logSinkLock) = 0;
    static inline bool sIsHeldUp UTL_GUARDED_BY(logSinkLock) = false;
    static inline std::uint32_t sHeldUpSince UTL_GUARDED_BY(logSinkLock) = NO_TICK;
};

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_LOG_SINK_H
