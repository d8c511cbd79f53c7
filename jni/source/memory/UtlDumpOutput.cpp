#include "memory/UtlDumpOutput.h"

#include <errno.h>
#include <stdio.h>

#include "files/UtlDescriptor.h"
#include "foundation/UtlLogLine.h"
#include "platform/UtlClock.h"
#include "platform/UtlErrno.h"
#include "platform/UtlOutput.h"

namespace utl {

namespace {

constexpr char LOG_TAG[] = "UtlMemory";

}  // namespace

DumpOutput::DumpOutput(BoundedText& text)
    : mIsLogged(false), mDescriptor(Descriptor::NO_DESCRIPTOR), mWaitMs(NO_WAITING), mText(&text) {}

void DumpOutput::print(char const* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    printList(format, arguments);
    va_end(arguments);
}

void DumpOutput::printList(char const* format, va_list arguments) {
    platform::ErrnoGuard const errnoGuard;
    char message[1024];
    int const length = vsnprintf(message, sizeof message, format, arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= sizeof message) {
        return;
    }
    if (mText != nullptr) {
        mText->add(message, static_cast<unsigned long>(length));
    }
    if (mIsLogged) {
        char noName[] = "";
        LogOutput output = {
            LIBRARY_LOG, LEVEL_INFORMATION, LOG_TAG, message, {noName, 0, message, true, true}};
        writeToLog(output);
    }
    if (mDescriptor != Descriptor::NO_DESCRIPTOR &&
        !write(message, static_cast<unsigned long>(length))) {
        mDescriptor = Descriptor::NO_DESCRIPTOR;
    }
}

bool DumpOutput::write(char const* text, unsigned long size) const {
    std::uint32_t const begin = platform::kernelTick();
    ssize_t written;
    do {
        written = platform::writeAtOnce(mDescriptor, text, size);
    } while (written == -1 && (errno == EINTR || (errno == EAGAIN && awaitRoom(begin))));
    return written == static_cast<ssize_t>(size);
}

bool DumpOutput::awaitRoom(std::uint32_t begin) const {
    std::uint32_t const waited = platform::kernelTick() - begin;
    return waited < mWaitMs && platform::awaitRoom(mDescriptor, mWaitMs - waited);
}

}  // namespace utl
