#include "platform/UtlKernelTimer.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "platform/UtlClock.h"
#include "platform/UtlKernelThread.h"
#include "platform/UtlManualTime.h"

namespace utl {
namespace platform {

namespace {

int unlessReserved(int wanted, int otherwise) {
    return wanted < SIGRTMIN ? otherwise : wanted;
}

#if !defined(sigev_notify_thread_id)
#define sigev_notify_thread_id _sigev_un._tid
#endif

// By system call: a C library's own sets may have no room for this signal.
void changeMask(int how, int signal) {
    std::uint64_t const one = std::uint64_t{1} << (signal - 1);
    syscall(SYS_rt_sigprocmask, how, &one, nullptr, sizeof one);
}

// 32-bit kernels have a second system call for C libraries with a 64-bit time_t.
#if defined(SYS_timer_settime64)
constexpr long SET_TIME = sizeof(time_t) == 8 ? SYS_timer_settime64 : SYS_timer_settime;
#else
constexpr long SET_TIME = SYS_timer_settime;
#endif

bool setTime(int kernelId, itimerspec const& schedule, int flags = 0) {
    return syscall(SET_TIME, kernelId, flags, &schedule, nullptr) == 0;
}

// The kernel forgets what the timer did before first: the new moment may be let expire as soon as
// it is known, and that signal must arrive.
bool armManually(ManualTime& time, int kernelId, std::uint64_t moment, std::uint64_t interval) {
    return setTime(kernelId, {}) && time.armTimer(kernelId, moment, interval);
}

// What the kernel refuses is left to it.
bool armManually(ManualTime& time, int kernelId, std::int32_t intervalMs) {
    if (intervalMs <= 0) {
        return intervalMs == 0 && armManually(time, kernelId, NO_LIMIT, 0);
    }
    std::uint64_t const interval =
        static_cast<std::uint64_t>(intervalMs) * NANOSECONDS_PER_MILLISECOND;
    return armManually(time, kernelId, time.now() + interval, interval);
}

bool deleteInKernel(int kernelId) {
    return syscall(SYS_timer_delete, kernelId) == 0;
}

}  // namespace

int sharedTimerSignal() {
    return unlessReserved(33, SIGRTMIN + 1);
}

int threadTimerSignal() {
    return unlessReserved(34, SIGRTMIN);
}

bool installSignalHandler(int signal, SignalHandler handler) {
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigemptyset(&action.sa_mask);
    return sigaction(signal, &action, nullptr) == 0;
}

void letSignalIn(int signal) {
#if defined(__SANITIZE_THREAD__)
    // It makes its record of a thread's signals in the first call that may block, and throws away
    // one that comes meanwhile.
    poll(nullptr, 0, 0);
#endif
    changeMask(SIG_UNBLOCK, signal);
}

void shutSignalOut(int signal) {
    changeMask(SIG_BLOCK, signal);
}

int createTimer(int signal, int value) {
    sigevent event;
    memset(&event, 0, sizeof event);
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = signal;
    event.sigev_value.sival_int = value;
    event.sigev_notify_thread_id = threadId();

    int kernelId = -1;
    if (syscall(SYS_timer_create, CLOCK_MONOTONIC, &event, &kernelId) != 0) {
        return -1;
    }
    ManualTime* const time = ManualTime::inUse();
    if (time != nullptr && !time->addTimer(kernelId)) {
        deleteInKernel(kernelId);
        errno = ENOMEM;
        return -1;
    }
    return kernelId;
}

bool armTimer(int kernelId, std::int32_t intervalMs) {
    ManualTime* const time = ManualTime::inUse();
    if (time != nullptr && armManually(*time, kernelId, intervalMs)) {
        return true;
    }
    itimerspec schedule;
    schedule.it_interval.tv_sec = intervalMs / 1000;
    schedule.it_interval.tv_nsec = static_cast<long>(intervalMs % 1000) * 1000000;
    schedule.it_value = schedule.it_interval;
    return setTime(kernelId, schedule);
}

bool expireTimerNow(int kernelId) {
    itimerspec schedule = {};
    schedule.it_value.tv_nsec = 1;
    return setTime(kernelId, schedule);
}

bool armTimerAt(int kernelId, std::uint64_t moment) {
    ManualTime* const time = ManualTime::inUse();
    if (time != nullptr && armManually(*time, kernelId, moment, 0)) {
        return true;
    }
    constexpr std::uint64_t LAST_SECOND = std::numeric_limits<std::int32_t>::max();
    itimerspec schedule = {};
    schedule.it_value.tv_sec =
        static_cast<time_t>(std::min(moment / NANOSECONDS_PER_SECOND, LAST_SECOND));
    schedule.it_value.tv_nsec = static_cast<long>(moment % NANOSECONDS_PER_SECOND);
    if (moment == 0) {
        schedule.it_value.tv_nsec = 1;  // 0 would keep it still
    }
    return setTime(kernelId, schedule, TIMER_ABSTIME);
}

bool deleteTimer(int kernelId) {
    if (ManualTime* const time = ManualTime::inUse()) {
        time->removeTimer(kernelId);
    }
    return deleteInKernel(kernelId);
}

bool isExpiry(siginfo_t const& info) {
    return info.si_code == SI_TIMER;
}

int expiredTimer(siginfo_t const& info) {
#if defined(__BIONIC__)
    return info.si_tid;
#else
    return info.si_timerid;
#endif
}

int carriedValue(siginfo_t const& info) {
    return info.si_value.sival_int;
}

void finishExpiry(siginfo_t const& info) {
    if (ManualTime* const time = ManualTime::inUse()) {
        time->finishExpiry(expiredTimer(info));
    }
}

}  // namespace platform
}  // namespace utl
