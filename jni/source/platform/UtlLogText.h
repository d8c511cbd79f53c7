// Internal. A line of the log as people read it.
//
//     2026-03-01 12:30:05.250 error  harbour(4711) [net loop] <NET> connect to pier failed
//
//     LogText line(LOG_PRIORITY_WARN, "harbour", getpid());
//     line.append(text);
//     line.end();

#ifndef UTL_PLATFORM_LOG_TEXT_H
#define UTL_PLATFORM_LOG_TEXT_H

#include <cstddef>
#include <string_view>

#include "UtlThreadSafety.h"

#include "platform/UtlLogSink.h"

namespace utl {
namespace platform {

// What finds no room in a line is left out. Whoever uses one has the turn to write.
class LogText {
public:
    // Everything up to the message. Asks for the time and which thread logs.
    LogText(int priority, char const* tag, int process) UTL_REQUIRES(logSinkLock);
    LogText(LogText const&) = delete;
    LogText& operator=(LogText const&) = delete;

    // Text of the message. Control characters and bytes that are no UTF-8 become visible.
    void append(std::string_view text);

    void end();

    std::string_view text() const { return {mText, mSize}; }

private:
    void appendPlain(std::string_view text);
    void appendTimeLocked() UTL_REQUIRES(logSinkLock);

    char mText[2048];  // a pipe takes it as a whole; a message of the log fits in any case
    std::size_t mSize = 0;
};

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_LOG_TEXT_H
