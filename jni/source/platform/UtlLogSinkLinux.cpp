#include "platform/UtlLogSink.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

#include <cstddef>

#include "platform/UtlCancellation.h"
#include "platform/UtlOutput.h"

namespace {

using utl::platform::LogTurn;

constexpr char PRIORITY_LETTERS[] = "??VDIWEF";
constexpr std::size_t LINE_SIZE = 1024;

// How long a line may be held up, by those before it and by the reader together.
constexpr std::uint32_t LONGEST_HOLD_UP_MS = 100;

// What has become of earlier lines; guarded by the turn.
struct Output {
    int process = 0;  // the one that has lost lines; a child of it begins anew
    unsigned lostLines = 0;
    bool isStuck = false;    // no reader within that time: until there is one nobody waits for it
    bool isMidLine = false;  // only the beginning of the last line got through
};
Output output;

char priorityLetter(int priority) {
    bool const known = priority >= 0 && priority < static_cast<int>(sizeof PRIORITY_LETTERS) - 1;
    return known ? PRIORITY_LETTERS[priority] : '?';
}

// What snprintf() really stored of the `length` bytes it would have liked to.
std::size_t storedBytes(int length, std::size_t room) {
    if (length < 0) {
        return 0;
    }
    return static_cast<std::size_t>(length) < room ? static_cast<std::size_t>(length) : room - 1;
}

bool awaitRoom() {
    if (output.isStuck) {
        return false;
    }
    std::uint32_t const heldUp = LogTurn::heldUpFor();
    output.isStuck = heldUp >= LONGEST_HOLD_UP_MS ||
                     !utl::platform::awaitRoom(STDERR_FILENO, LONGEST_HOLD_UP_MS - heldUp);
    return !output.isStuck;
}

// Whether all of it got through in time.
bool writeWhole(char const* text, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t const written = utl::platform::writeAtOnce(STDERR_FILENO, text + done, size - done);
        if (written > 0) {
            done += static_cast<std::size_t>(written);
            output.isStuck = false;
            continue;
        }
        bool const mayGoOn = written == -1 && (errno == EINTR || (errno == EAGAIN && awaitRoom()));
        if (!mayGoOn) {
            output.isMidLine = output.isMidLine || done > 0;
            return false;
        }
    }
    output.isMidLine = false;
    return true;
}

// True when there is nothing to report.
bool reportLostLines(char const* tag) {
    if (output.lostLines == 0) {
        return true;
    }
    char report[LINE_SIZE];
    int const length =
        snprintf(report, sizeof report, "%sW/%s(%d): lines lost: %u\n",
                 output.isMidLine ? "\n" : "", tag, output.process, output.lostLines);
    if (!writeWhole(report, storedBytes(length, sizeof report))) {
        return false;
    }
    output.lostLines = 0;
    return true;
}

}  // namespace

// One write for a line where the system allows it, so that those of several processes do not mix.
__attribute__((weak)) int __android_log_print(int priority, char const* tag, char const* format,
                                              ...) {
    char const* const shownTag = tag != nullptr ? tag : "";
    int const process = getpid();
    char line[LINE_SIZE];
    std::size_t const room = sizeof line - 1;  // the line end always fits
    std::size_t length = storedBytes(
        snprintf(line, room, "%c/%s(%d): ", priorityLetter(priority), shownTag, process), room);

    va_list arguments;
    va_start(arguments, format);
    length +=
        storedBytes(vsnprintf(line + length, room - length, format, arguments), room - length);
    va_end(arguments);

    while (length > 0 && (line[length - 1] == '\n' || line[length - 1] == '\r')) {
        --length;
    }
    line[length++] = '\n';

    utl::platform::NoCancellation const noCancellation;
    LogTurn const turn;
    if (output.process != process) {
        output.process = process;
        output.lostLines = 0;
    }
    if (!reportLostLines(shownTag) || !writeWhole(line, length)) {
        ++output.lostLines;
        return -1;
    }
    return static_cast<int>(length);
}
