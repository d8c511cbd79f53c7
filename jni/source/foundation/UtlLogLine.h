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

namespace utl {

// The log type of the library's own messages.
constexpr int LIBRARY_LOG = -2;

constexpr int LEVEL_ERROR = 1;
constexpr int LEVEL_INFORMATION = 2;
constexpr int LEVEL_DETAIL = 3;
constexpr int LEVEL_DEBUG = 4;

// Hands a message to the system log. The caller has the turn to write.
void writeToSink(int priority, char const* tag, char const* text);

class LogLine {
public:
    // False when the type's filter drops the message or there is no format: there is no line then.
    bool admit(int type, int level, char const* format);

    // The line of an applog() or a rawlog() call that has been admitted.
    void compose(char const* format, va_list arguments) UTL_PRINTF_FORMAT(2, 0);
    void composeRaw(char const* format, va_list arguments) UTL_PRINTF_FORMAT(2, 0);

    char const* text() const { return mText; }

    // Hands the line to the system log, under the tags of its level.
    void write() const;

private:
    static constexpr unsigned long SIZE = 256;

    void cutAt(unsigned long position);

    char mText[SIZE];           // the type's name at first
    unsigned long mNameLength;  // known with admit(), as the level is
    int mLevel;
};

}  // namespace utl

#endif  // UTL_LOG_LINE_H
