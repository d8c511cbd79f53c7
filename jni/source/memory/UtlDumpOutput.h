// Internal. Where the heap accounting prints to: the system log, a descriptor, or both, or a buffer
// of the caller. Takes no memory, and leaves errno as it is: allocation functions print here.

#ifndef UTL_DUMP_OUTPUT_H
#define UTL_DUMP_OUTPUT_H

#include <stdarg.h>

#include <cstdint>

#include "UtlApi.h"

#include "foundation/UtlBoundedText.h"

namespace utl {

// Used by one thread at a time.
class DumpOutput {
public:
    static constexpr int TO_LOG = 1;
    static constexpr std::uint32_t NO_WAITING = 0;

    // How long a pipe may be full. A reader who takes nothing for so long gets no more.
    static constexpr std::uint32_t WAIT_MS = 5000;

    // To the log for a `toLog` of 1, and to `descriptor` unless that is -1.
    DumpOutput(int toLog, int descriptor, std::uint32_t waitMs)
        : mIsLogged(toLog == TO_LOG), mDescriptor(descriptor), mWaitMs(waitMs) {}

    // Into `text`, which must live longer.
    explicit DumpOutput(BoundedText& text);

    // Drops a message of 1024 bytes or more. After a failed write the descriptor is left alone.
    void print(char const* format, ...) UTL_PRINTF_FORMAT(2, 3);
    void printList(char const* format, va_list arguments);

private:
    bool write(char const* text, unsigned long size) const;
    bool awaitRoom(std::uint32_t begin) const;

    bool const mIsLogged;
    int mDescriptor;
    std::uint32_t const mWaitMs;
    BoundedText* const mText = nullptr;
};

}  // namespace utl

#endif  // UTL_DUMP_OUTPUT_H
