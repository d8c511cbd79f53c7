#include "platform/UtlFutex.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

#include "UtlApi.h"

#include "platform/UtlClock.h"
#include "platform/UtlManualTime.h"

namespace utl {
namespace platform {

namespace {

constexpr std::uint32_t ALL_CHANNELS = UINT32_MAX;
constexpr int EVERYBODY = INT32_MAX;

// As this system call wants it on every target, whatever the C library's time_t is.
struct KernelTime {
    long seconds;
    long nanoseconds;
};

KernelTime toKernelTime(std::uint64_t moment) {
    std::uint64_t const seconds = moment / NANOSECONDS_PER_SECOND;
    bool const fits = seconds <= static_cast<std::uint64_t>(LONG_MAX);
    return {fits ? static_cast<long>(seconds) : LONG_MAX,
            static_cast<long>(moment % NANOSECONDS_PER_SECOND)};
}

int waitInKernel(std::atomic<std::uint32_t> const& word, std::uint32_t expected,
                 std::uint32_t channels, std::uint64_t limit) {
    KernelTime const end = toKernelTime(limit);
    long const result = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG, expected,
                                limit != NO_LIMIT ? &end : nullptr, nullptr, channels);
    if (result == 0 || errno == EAGAIN || errno == EINTR) {
        return REACHED;
    }
    return errno == ETIMEDOUT ? TIMED_OUT : WAIT_FAILED;
}

void wakeInKernel(std::atomic<std::uint32_t> const* word, std::uint32_t channels, int most) {
    syscall(SYS_futex, word, FUTEX_WAKE_BITSET | FUTEX_PRIVATE_FLAG, most, nullptr, nullptr,
            channels);
}

}  // namespace

bool limitAfter(unsigned long timeoutMs, std::uint64_t* limit) {
    *limit = NO_LIMIT;
    if (timeoutMs == 0) {
        return true;
    }
    std::uint64_t now;
    if (!readMonotonicNanoseconds(&now)) {
        return false;
    }
    *limit = timeoutMs < (NO_LIMIT - now) / NANOSECONDS_PER_MILLISECOND
                 ? now + timeoutMs * NANOSECONDS_PER_MILLISECOND
                 : NO_LIMIT;
    return true;
}

int waitWord(std::atomic<std::uint32_t> const& word, std::uint32_t expected, std::uint32_t channels,
             std::uint64_t limit) {
    if (ManualTime* const time = ManualTime::inUse()) {
        return time->wait(word, expected, channels, limit);
    }
    return waitInKernel(word, expected, channels, limit);
}

// Some may wait in the kernel from before time was moved by hand.
void wakeWord(std::atomic<std::uint32_t> const* word, std::uint32_t channels) {
    if (ManualTime* const time = ManualTime::inUse()) {
        time->wake(word, channels);
    }
    wakeInKernel(word, channels, EVERYBODY);
}

void sleepOnWord(std::atomic<std::uint32_t> const& word, std::uint32_t expected) {
    waitInKernel(word, expected, ALL_CHANNELS, NO_LIMIT);
}

void wakeSleeper(std::atomic<std::uint32_t> const* word) {
    wakeInKernel(word, ALL_CHANNELS, 1);
}

}  // namespace platform
}  // namespace utl
