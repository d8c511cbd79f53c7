// Internal. Tells the watchdog that the calling thread may be about to block, and that it is back.
//
//     BlockingCall const blocking(__FILE__, __func__, __LINE__);
//     ssize_t const got = ::read(mFd, buffer, size);
//
// The lower layers use it without knowing who listens: the thread manager installs a function when
// it is created. While there is none, a guard costs one atomic load. The names and numbers given
// are those that operators look up in the watchdog's table: they do not follow the source.

#ifndef UTL_BLOCKING_CALL_H
#define UTL_BLOCKING_CALL_H

#include "UtlStatementInfo.h"

namespace utl {

class BlockingCall {
public:
    using Report = void (*)(StatementInfo const& statement);

    // Reports sub-position 1. The strings are kept, not copied: literals only.
    BlockingCall(char const* file, char const* function, unsigned long line);

    // Reports sub-position 2 and leaves errno as the bracketed call left it.
    ~BlockingCall();

    BlockingCall(BlockingCall const&) = delete;
    BlockingCall& operator=(BlockingCall const&) = delete;

    // Any thread, at any time; nullptr for none.
    static void install(Report report);

private:
    void report(unsigned long sub) const;

    char const* const mFile;
    char const* const mFunction;
    unsigned long const mLine;
};

}  // namespace utl

#endif  // UTL_BLOCKING_CALL_H
