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

// Blocks until the child process has ended. -1 unless it has exited.
int exitCodeOf(pid_t child);

// As long as it lives the process gets no new descriptors. A sanitizer that meets a class for the
// first time wants some: what is made meanwhile must have been made before.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &mLimit);
        rlimit const none = {0, mLimit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &mLimit); }
    NoDescriptors(NoDescriptors const&) = delete;
    NoDescriptors& operator=(NoDescriptors const&) = delete;

private:
    rlimit mLimit;
};

// Looks again and again, for what nobody signals. False when it never becomes true.
bool comesTrue(std::function<bool()> const& condition);

}  // namespace test

#endif  // UTL_TESTS_PROCESS_H
