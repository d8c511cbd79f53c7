#include "UtlFile.h"

#include <cstring>

#include "UtlLog.h"

#include "files/UtlCharacters.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlCancellation.h"
#include "platform/UtlErrno.h"

namespace utl {

namespace {

constexpr unsigned long MOST_BYTES = 5119;

// The file first, and without a lock: what it logs about a failure of its own goes out before the
// line does.
void write(LogLine& line, File* file) {
    platform::NoCancellation const noCancellation;
    if (file != nullptr) {
        // Where it is converted, a character that was cut with the line would end it before its
        // line end.
        char text[MOST_BYTES + 1];
        copyCharacters(text, line.text(), std::strlen(line.text()));
        file->writeText(text, MOST_BYTES, 0);
    }
    line.write();
}

}  // namespace

}  // namespace utl
int applog(int type, int level, utl::File* file, char const* format, ...) {
    utl::LogLine line;
    if (!line.admit(type, level, format)) {
        return 0;
    }
    utl::platform::ErrnoGuard const guard;
    va_list arguments;
    va_start(arguments, format);
    line.compose(format, arguments);
    va_end(arguments);
    utl::write(line, file);
    return 0;
}

int rawlog(int type, int level, utl::File* file, char const* format, ...) {
    utl::LogLine line;
    if (!line.admit(type, level, format)) {
        return 0;
    }
    utl::platform::ErrnoGuard const guard;
    va_list arguments;
    va_start(arguments, format);
    line.composeRaw(format, arguments);
    va_end(arguments);
    utl::write(line, file);
    return 0;
}
