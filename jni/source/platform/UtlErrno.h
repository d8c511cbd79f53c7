// Internal. Leaves errno as it was, whatever the scope does: callers look at it after calls that
// log or report on the way.

#ifndef UTL_PLATFORM_ERRNO_H
#define UTL_PLATFORM_ERRNO_H

#include <errno.h>

namespace utl {
namespace platform {

class ErrnoGuard {
public:
    ErrnoGuard() : mErrno(errno) {}
    ~ErrnoGuard() { errno = mErrno; }
    ErrnoGuard(ErrnoGuard const&) = delete;
    ErrnoGuard& operator=(ErrnoGuard const&) = delete;

private:
    int const mErrno;
};

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_ERRNO_H
