#include "platform/UtlClock.h"

#include <time.h>

#include <algorithm>

#include "platform/UtlCancellation.h"
#include "platform/UtlManualTime.h"

namespace utl {
namespace platform {

namespace {

constexpr std::uint64_t LONGEST_SLEEP_MS = INT64_MAX / NANOSECONDS_PER_MILLISECOND;

std::uint32_t toTick(timespec const& now) {
    return static_cast<std::uint32_t>(now.tv_sec) * 1000u +
           static_cast<std::uint32_t>(now.tv_nsec / 1000000);
}

bool readKernelTick(std::uint32_t* tick) {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return false;
    }
    *tick = toTick(now);
    return true;
}

}  // namespace

bool readKernelNanoseconds(std::uint64_t* now) {
    timespec time;
    if (clock_gettime(CLOCK_MONOTONIC, &time) != 0) {
        return false;
    }
    *now = static_cast<std::uint64_t>(time.tv_sec) * NANOSECONDS_PER_SECOND +
           static_cast<std::uint64_t>(time.tv_nsec);
    return true;
}

bool readMonotonicNanoseconds(std::uint64_t* now) {
    if (ManualTime const* const time = ManualTime::inUse()) {
        *now = time->now();
        return true;
    }
    return readKernelNanoseconds(now);
}

std::uint64_t monotonicNanoseconds() {
    std::uint64_t now;
    return readMonotonicNanoseconds(&now) ? now : 0;
}

bool readMonotonicTick(std::uint32_t* tick) {
    if (ManualTime const* const time = ManualTime::inUse()) {
        *tick = static_cast<std::uint32_t>(time->now() / NANOSECONDS_PER_MILLISECOND);
        return true;
    }
    return readKernelTick(tick);
}

std::uint32_t monotonicTick() {
    std::uint32_t tick;
    return readMonotonicTick(&tick) ? tick : NO_TICK;
}

std::uint32_t coarseTick() {
    timespec now;
    if (ManualTime::inUse() != nullptr || clock_gettime(CLOCK_MONOTONIC_COARSE, &now) != 0) {
        return monotonicTick();
    }
    return toTick(now);
}

std::uint32_t kernelTick() {
    std::uint32_t tick;
    return readKernelTick(&tick) ? tick : NO_TICK;
}

std::uint64_t sleepSlack() {
    constexpr std::uint64_t USUAL = 50000;
    return ManualTime::inUse() != nullptr ? 0 : USUAL;
}

void sleepFor(unsigned long milliseconds) {
    if (ManualTime* const time = ManualTime::inUse()) {
        time->sleep(std::min<std::uint64_t>(milliseconds, LONGEST_SLEEP_MS) *
                    NANOSECONDS_PER_MILLISECOND);
        return;
    }
    timespec interval;
    interval.tv_sec = static_cast<time_t>(milliseconds / 1000);
    interval.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    NoCancellation const noCancellation;
    nanosleep(&interval, nullptr);
}

}  // namespace platform
}  // namespace utl
