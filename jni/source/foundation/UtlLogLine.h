// Internal. One line of the log, composed on the stack of the thread that logs.
//
//     LogLine line;
//     if (!line.admit(type, level, format)) {
//         return 0;
//     }
//     platform::ErrnoGuard const guard;
//     line.compose(format, arguments);
//     line.write();

#ifndef UTL_LOG_LINE_H
#define UTL_LOG_LINE_H

#include <stdarg.h>

#include "UtlApi.h"
#include "UtlLog.h"

#include "foundation/UtlLogTypes.h"
#include "platform/UtlLogSink.h"

namespace utl {

// What is written: the line for the system log, and what other sinks make theirs of.
struct LogOutput {
    int type;
    int level;
    char const* tag;  // nullptr for the tag of the process, and the copies that go with the level
    char const* line;
    platform::LogMessage message;
};

// Hands it to the program's sink or to the system log.
void writeToLog(LogOutput& output);

class LogLine {
public:
    // False when the type's filter drops the message or there is no format: there is no line then.
    bool admit(int type, int level, char const* format);

    // The line of an applog() or a rawlog() call that has been admitted.
    void compose(char const* format, va_list arguments) UTL_PRINTF_FORMAT(2, 0);
    void composeRaw(char const* format, va_list arguments) UTL_PRINTF_FORMAT(2, 0);

    char const* text() const { return mOutput.line; }

    void write() { writeToLog(mOutput); }

private:
    static constexpr unsigned long SIZE = 256;

    LogOutput mOutput;
    // The type's name and what comes behind it. The text of a raw line leaves one byte before it,
    // for the end of no name.
    char mText[LOG_NAME_SIZE + SIZE];
};

}  // namespace utl

#endif  // UTL_LOG_LINE_H
