// Internal. What the kernel knows about a thread: its id, its nice value and its name.

#ifndef UTL_PLATFORM_KERNEL_THREAD_H
#define UTL_PLATFORM_KERNEL_THREAD_H

namespace utl {
namespace platform {

// The kernel's id of the calling thread, never 0. Asked for once and kept.
int threadId();

// The thread that goes on in the child of a fork has another id there. Returns the one kept so far,
// or 0.
int forgetThreadId();

// Gives the calling thread, and it alone, the nice value `osValue`. False with errno when refused.
bool setThreadPriority(int osValue);

// The name of the calling thread, as debuggers and the log show it. A new one is cut to fit.
constexpr unsigned long THREAD_NAME_SIZE = 16;
void nameThread(char const* name);
void copyThreadName(char (&name)[THREAD_NAME_SIZE]);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_KERNEL_THREAD_H
