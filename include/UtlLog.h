// The log of the process. A message belongs to a log type, which has a name and a filter, and
// carries a level; those that pass the filter become one line of at most 255 bytes.
//
//     registerLogType(7, "<NET> ", 3);
//     applog(7, 1, "connect to %s failed. errno:%d", host, errno);  // "<NET> ERR: connect to ..."
//
// | level | meaning     | prefix  |
// |-------|-------------|---------|
// | 0     | none        |         |  never written
// | 1     | error       | "ERR: " |  also under the tag XM_SYSERR
// | 2     | information | "INF: " |  also under the tag XM_SYSERR
// | 3     | detail      | "DTL: " |
// | 4     | debug       | "DBG: " |
//
// A level above 4 or below 0 counts as 4. A type's filter lets levels up to its own pass. Two types
// are built in: -1, which stands in for every unregistered type, and -2, the library's own
// messages; both start with filter 3.
//
// Any thread may call these functions at any time, from static constructors and while the process
// exits too. They leave errno as it is and are no cancellation points. On Linux lines go to
// standard error unless the program defines __android_log_print itself. That one is called with the
// log locked: it must call nothing of this library, wait for nobody who logs and return.
//
// Standard error never stops or kills the process: a line that finds no room for 100 ms is dropped,
// those after it at once until there is room again, and a reader that has gone raises no SIGPIPE.
// The next line that gets through is preceded by one that ends in "lines lost: " and their number.

#ifndef UTL_LOG_H
#define UTL_LOG_H

#include "UtlApi.h"

namespace utl {
class File;
}  // namespace utl

// Writes the type's name, the level's prefix, the text and "\r\n". A line that is too long is cut
// and ends in "...". A null format writes nothing. The result means nothing.
UTL_API int applog(int type, int level, char const* format, ...) UTL_PRINTF_FORMAT(3, 4);

// Writes the text alone: no name, no prefix, no line end.
UTL_API int rawlog(int type, int level, char const* format, ...) UTL_PRINTF_FORMAT(3, 4);

// The same, and first writes the line as text to `file`, if that is not null. What several threads
// write to one file is not kept apart.
UTL_API int applog(int type, int level, utl::File* file, char const* format, ...)
    UTL_PRINTF_FORMAT(4, 5);
UTL_API int rawlog(int type, int level, utl::File* file, char const* format, ...)
    UTL_PRINTF_FORMAT(4, 5);

// Adds a log type, or gives a registered one a new name and filter. False when `name` is null or
// has more than 31 bytes, or the table of 64 types is full.
UTL_API bool registerLogType(int type, char const* name, int level);

// Sets the tag under which all lines of the process go out; empty at first. False, leaving it as it
// was, when `tag` is null or has more than 31 bytes.
UTL_API bool setLogTag(char const* tag);

// Changes the filter of a registered type; does nothing for any other.
UTL_API void setFilterLevel(int type, int level);

// The filter of a registered type, or 5.
UTL_API int getFilterLevel(int type);

// Changes the filters of all types, those built in too.
UTL_API void setAllFilterLevel(int level);

#endif  // UTL_LOG_H
