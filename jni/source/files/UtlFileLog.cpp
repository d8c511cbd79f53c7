#include "UtlFile.h"
#include "UtlLog.h"

#include "foundation/UtlLogLine.h"
#include "platform/UtlCancellation.h"
#include "platform/UtlErrno.h"

namespace utl {

namespace {

constexpr unsigned long MOST_BYTES = 5119;

// The file first, and without a lock: what it logs about a failure of its own goes out before the
// line does.
void write(LogLine const& line, File* file) {
    platform::NoCancellation const noCancellation;
    if (file != nullptr) {
        file->writeText(line.text(), MOST_BYTES, 0);
    }
    line.write();
}

}  // namespace

}  // namespace utl

int applog(int type, int level, utl::File* file, char const* format, ...) {
    utl::platform::ErrnoGuard const guard;
    utl::LogLine line;
    va_list arguments;
    va_start(arguments, format);
    if (line.compose(type, level, format, arguments)) {
        utl::write(line, file);
    }
    va_end(arguments);
    return 0;
}

int rawlog(int type, int level, utl::File* file, char const* format, ...) {
    utl::platform::ErrnoGuard const guard;
    utl::LogLine line;
    va_list arguments;
    va_start(arguments, format);
    if (line.composeRaw(type, level, format, arguments)) {
        utl::write(line, file);
    }
    va_end(arguments);
    return 0;
}
