// What the kernel says of this process.

#ifndef UTL_TESTS_PROCESS_H
#define UTL_TESTS_PROCESS_H

#include <functional>

namespace test {

unsigned openDescriptors();
unsigned kernelTimers();
unsigned threads();

// Looks again and again, for what nobody signals. False when it never becomes true.
bool comesTrue(std::function<bool()> const& condition);

}  // namespace test

#endif  // UTL_TESTS_PROCESS_H
