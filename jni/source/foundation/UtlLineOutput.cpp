#include "foundation/UtlLineOutput.h"

#include <stdarg.h>
#include <stdio.h>

#include <cstring>

#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "platform/UtlErrno.h"

namespace utl {

void LineOutput::print(char const* format, ...) {
    platform::ErrnoGuard const guard;
    char line[1024] = {};  // no line of the log is as long
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line - 1, format, arguments);
    va_end(arguments);
    if (mText == nullptr) {
        applog(LIBRARY_LOG, mLevel, "%s", line);
        return;
    }
    unsigned long const length = std::strlen(line);
    line[length] = '\n';
    mText->add(line, length + 1);
}

}  // namespace utl
