#include "platform/UtlLogSink.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

#include "platform/UtlCancellation.h"
#include "platform/UtlLogText.h"
#include "platform/UtlOutput.h"

namespace {

using utl::platform::LogMessage;
using utl::platform::LogText;
using utl::platform::LogTurn;

// How long a line may be held up, by those before it and by the reader together.
constexpr std::uint32_t LONGEST_HOLD_UP_MS = 100;

// What has become of earlier lines.
struct Output {
    int process = 0;  // the one that has lost lines; a child of it begins anew
    unsigned lostLines = 0;
    bool isStuck = false;    // no reader within that time: until there is one nobody waits for it
    bool isMidLine = false;  // only the beginning of the last line got through
};
Output output UTL_GUARDED_BY(utl::platform::logSinkLock);

bool awaitRoomLocked() UTL_REQUIRES(utl::platform::logSinkLock) {
    if (output.isStuck) {
        return false;
    }
    std::uint32_t const heldUp = LogTurn::heldUpForLocked();
    output.isStuck = heldUp >= LONGEST_HOLD_UP_MS ||
                     !utl::platform::awaitRoom(STDERR_FILENO, LONGEST_HOLD_UP_MS - heldUp);
    return !output.isStuck;
}

// Whether all of it got through in time.
bool writeWholeLocked(std::string_view text) UTL_REQUIRES(utl::platform::logSinkLock) {
    std::size_t done = 0;
    while (done < text.size()) {
        ssize_t const written =
            utl::platform::writeAtOnce(STDERR_FILENO, text.data() + done, text.size() - done);
        if (written > 0) {
            done += static_cast<std::size_t>(written);
            output.isStuck = false;
            continue;
        }
        bool const mayGoOn =
            written == -1 && (errno == EINTR || (errno == EAGAIN && awaitRoomLocked()));
        if (!mayGoOn) {
            output.isMidLine = output.isMidLine || done > 0;
            return false;
        }
    }
    output.isMidLine = false;
    return true;
}

// True when there is nothing to report.
bool reportLostLinesLocked(char const* tag) UTL_REQUIRES(utl::platform::logSinkLock) {
    if (output.lostLines == 0) {
        return true;
    }
    char text[40];
    snprintf(text, sizeof text, "lines lost: %u", output.lostLines);
    LogText report(utl::platform::LOG_PRIORITY_WARN, tag, output.process);
    report.append(text);
    report.end();
    if ((output.isMidLine && !writeWholeLocked("\n")) || !writeWholeLocked(report.text())) {
        return false;
    }
    output.lostLines = 0;
    return true;
}

// How many bytes got through, or -1.
int writeLineLocked(int priority, char const* tag, std::string_view name, std::string_view text)
    UTL_REQUIRES(utl::platform::logSinkLock) {
    if (!reportLostLinesLocked(tag)) {
        ++output.lostLines;
        return -1;
    }
    LogText line(priority, tag, output.process);
    line.append(name);
    line.append(name.empty() ? "" : " ");
    line.append(text);
    line.end();
    if (!writeWholeLocked(line.text())) {
        ++output.lostLines;
        return -1;
    }
    return static_cast<int>(line.text().size());
}

unsigned countLines(std::string_view text) {
    return static_cast<unsigned>(std::count(text.begin(), text.end(), '\n')) + 1;
}

// Names are registered with a blank at their end or without. What comes behind a line that is lost
// is not tried.
int writeMessageLocked(int priority, char const* tag, LogMessage const& message)
    UTL_REQUIRES(utl::platform::logSinkLock) {
    std::string_view const registered(message.typeName, message.nameLength);
    std::string_view const name = registered.substr(0, registered.find_last_not_of(' ') + 1);
    std::string_view text = utl::platform::withoutLineEnd(message.text);
    std::size_t feed;
    while (message.hasLines && (feed = text.find('\n')) != text.npos) {
        bool const isWritten = writeLineLocked(priority, tag, name, text.substr(0, feed)) != -1;
        text.remove_prefix(feed + 1);
        if (!isWritten) {
            output.lostLines += countLines(text);
            return -1;
        }
    }
    return writeLineLocked(priority, tag, name, text);
}

// Of somebody else who logs.
int writeFormattedLocked(int priority, char const* tag, char const* format, va_list arguments)
    UTL_REQUIRES(utl::platform::logSinkLock) {
    char text[1024] = "";
    vsnprintf(text, sizeof text, format, arguments);
    return writeLineLocked(priority, tag, "", utl::platform::withoutLineEnd(text));
}

int write(int priority, char const* tag, LogMessage const* message, char const* format,
          va_list arguments) {
    utl::platform::NoCancellation const noCancellation;
    LogTurn const turn;
    int const process = getpid();
    if (output.process != process) {
        output.process = process;
        output.lostLines = 0;
    }
    return message != nullptr ? writeMessageLocked(priority, tag, *message)
                              : writeFormattedLocked(priority, tag, format, arguments);
}

}  // namespace

// One write for a line where the system allows it, so that those of several processes do not mix.
__attribute__((weak)) int __android_log_print(int priority, char const* tag, char const* format,
                                              ...) {
    va_list arguments;
    va_start(arguments, format);
    LogMessage const* message = nullptr;
    if (format == utl::platform::LINE_FORMAT) {
        (void)va_arg(arguments, char const*);  // the line for others
        message = va_arg(arguments, LogMessage const*);
    }
    int const result = message != nullptr && !message->isShown
                           ? 0
                           : write(priority, tag != nullptr ? tag : "", message, format, arguments);
    va_end(arguments);
    return result;
}
