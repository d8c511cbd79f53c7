// Internal. A variable that each thread has for itself, found without a call where the system
// allows it.
//
//     UTL_THREAD_LOCAL int keptId = 0;

#ifndef UTL_PLATFORM_THREAD_LOCAL_H
#define UTL_PLATFORM_THREAD_LOCAL_H

#ifdef __BIONIC__
// Its linker has no place set aside for libraries that are loaded later.
#define UTL_THREAD_LOCAL thread_local
#else
#define UTL_THREAD_LOCAL thread_local __attribute__((tls_model("initial-exec")))
#endif

#endif  // UTL_PLATFORM_THREAD_LOCAL_H
