// Whether a sanitizer stands between the program and the C library.

#ifndef UTL_TESTS_SUPPORT_SANITIZER_H
#define UTL_TESTS_SUPPORT_SANITIZER_H

#if !defined(__has_feature)
#define __has_feature(name) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || \
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define UTL_SANITIZED 1
#else
#define UTL_SANITIZED 0
#endif

#endif  // UTL_TESTS_SUPPORT_SANITIZER_H
