#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "platform/UtlLogSink.h"

namespace {

constexpr char PRIORITY_LETTERS[] = "??VDIWEF";

char priorityLetter(int priority) {
    bool const known = priority >= 0 && priority < static_cast<int>(sizeof PRIORITY_LETTERS) - 1;
    return known ? PRIORITY_LETTERS[priority] : '?';
}

// What snprintf() really stored of the `length` bytes it would have liked to.
size_t storedBytes(int length, size_t room) {
    if (length < 0) {
        return 0;
    }
    return static_cast<size_t>(length) < room ? static_cast<size_t>(length) : room - 1;
}

}  // namespace

// One write() for a line, so that lines of several threads never mix.
__attribute__((weak)) int __android_log_print(int priority, char const* tag, char const* format,
                                              ...) {
    char line[1024];
    size_t const room = sizeof line - 1;  // the line end always fits
    size_t length = storedBytes(snprintf(line, room, "%c/%s(%d): ", priorityLetter(priority),
                                         tag != nullptr ? tag : "", static_cast<int>(getpid())),
                                room);

    va_list arguments;
    va_start(arguments, format);
    length +=
        storedBytes(vsnprintf(line + length, room - length, format, arguments), room - length);
    va_end(arguments);

    while (length > 0 && (line[length - 1] == '\n' || line[length - 1] == '\r')) {
        --length;
    }
    line[length++] = '\n';
    ssize_t written;
    do {
        written = write(STDERR_FILENO, line, length);
    } while (written == -1 && errno == EINTR);
    return static_cast<int>(written);
}
