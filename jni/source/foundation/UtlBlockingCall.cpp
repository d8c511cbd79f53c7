#include "foundation/UtlBlockingCall.h"

#include <atomic>

#include "platform/UtlErrno.h"

namespace utl {

namespace {

std::atomic<BlockingCall::Report> installedReport{nullptr};

}  // namespace

BlockingCall::BlockingCall(char const* file, char const* function, unsigned long line)
    : mFile(file), mFunction(function), mLine(line) {
    report(1);
}

BlockingCall::~BlockingCall() {
    report(2);
}

void BlockingCall::install(Report report) {
    installedReport.store(report);
}

void BlockingCall::report(unsigned long sub) const {
    if (Report const installed = installedReport.load(std::memory_order_acquire)) {
        platform::ErrnoGuard const guard;
        installed(StatementInfo(mFile, mFunction, mLine, sub));
    }
}

}  // namespace utl
