// What every public header needs: the export mark, the version, and the value that says "none".

#ifndef UTL_API_H
#define UTL_API_H

// The version's first number rises with what may break a program,
#define UTL_VERSION_MAJOR 0
// the second with what is new,
#define UTL_VERSION_MINOR 1
// and the third with what was mended.
#define UTL_VERSION_PATCH 0

// The library is built with hidden symbols; what carries this mark is its interface.
#define UTL_API __attribute__((visibility("default")))

// Lets the compiler check a printf-style argument list. Both positions count from 1; those of a
// member function count the object as the first.
#define UTL_PRINTF_FORMAT(position, firstArgument) \
    __attribute__((format(printf, position, firstArgument)))

namespace utl {

// What an operation returns that has no such id, count, size or time to give: all bits set.
constexpr unsigned long NONE = static_cast<unsigned long>(-1);

// What every wait returns. A time limit is a number of milliseconds, 0 for none.
constexpr int REACHED = 0;
constexpr int TIMED_OUT = -2;
constexpr int WAIT_FAILED = -1;

}  // namespace utl

#endif  // UTL_API_H
