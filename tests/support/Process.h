// What the kernel says of this process.

#ifndef UTL_TESTS_PROCESS_H
#define UTL_TESTS_PROCESS_H

#include <sys/resource.h>
#include <sys/types.h>

#include <functional>
#include <vector>

namespace test {

unsigned openDescriptors();
unsigned kernelTimers();
unsigned threads();

// The ids of the kernel timers that a thread takes the signals of, in the order in which they were
// made.
std::vector<int> kernelTimersOf(int threadId);
bool isArmed(int kernelTimer);

// Of this process: whether it waits for something.
bool isAsleep(int threadId);

// The calling process is ended when it is still there after a time that nothing takes.
void endWhenStuck();

// Blocks until the child process has ended. -1 unless it has exited.
int exitCodeOf(pid_t child);

// As long as it lives the process gets no more of a resource.
template <__rlimit_resource RESOURCE>
class NoMore {
public:
    NoMore() {
        getrlimit(RESOURCE, &mLimit);
        rlimit const none = {0, mLimit.rlim_max};
        setrlimit(RESOURCE, &none);
    }
    ~NoMore() { setrlimit(RESOURCE, &mLimit); }
    NoMore(NoMore const&) = delete;
    NoMore& operator=(NoMore const&) = delete;

private:
    rlimit mLimit;
};

// A sanitizer that meets a class for the first time wants descriptors: what is made meanwhile must
// have been made before.
using NoDescriptors = NoMore<RLIMIT_NOFILE>;
using NoPendingSignals = NoMore<RLIMIT_SIGPENDING>;

// Looks again and again, for what nobody signals. False when it never becomes true.
bool comesTrue(std::function<bool()> const& condition);

}  // namespace test

#endif  // UTL_TESTS_PROCESS_H
