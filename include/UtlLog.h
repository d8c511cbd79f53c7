// The log of the process. A message belongs to a log type, which has a name and a filter, and
// carries a level; those that pass the filter become one line of at most 255 bytes.
//
//     constexpr int NET_LOG = 7;
//     registerLogType(NET_LOG, "<NET> ", utl::LEVEL_DETAIL);
//     applog(NET_LOG, utl::LEVEL_ERROR, "connect to %s failed. errno:%d", host, errno);
//
// | level             | number | prefix  | on Linux |
// |-------------------|--------|---------|----------|
// |                   | 0      |         |          |  never written
// | LEVEL_ERROR       | 1      | "ERR: " | error    |  on Android also under the tag XM_SYSERR
// | LEVEL_INFORMATION | 2      | "INF: " | info     |  on Android also under the tag XM_SYSERR
// | LEVEL_DETAIL      | 3      | "DTL: " | detail   |
// | LEVEL_DEBUG       | 4      | "DBG: " | debug    |
//
// A level above 4 or below 0 counts as 4. A type's filter lets levels up to its own pass. Two types
// are built in: -1, which stands in for every unregistered type, and LIBRARY_LOG, the library's own
// messages; both start with filter 3.
//
// Any thread may call these functions at any time, from static constructors and while the process
// exits too. They leave errno as it is and are no cancellation points.
//
// Lines go to the program's sink (setLogSink), or else through the function __android_log_print:
// Android's, or on Linux the library's, unless the program defines it itself. That one prints each
// message as one line on standard error, control characters and what is no UTF-8 made visible, and
// the dumps of the heap accounting as the lines that they have:
//
//     2026-03-01 12:30:05.250 error  harbour(4711) [net loop] <NET> connect to pier failed
//
// with the tag, the process, the thread's name, and colours on a terminal unless NO_COLOR is set.
// There the library's own messages of LEVEL_DETAIL appear only once somebody has set their filter.
// Standard error never stops or kills the process: a line that finds no room for 100 ms is dropped,
// those after it at once until there is room again, and a reader that has gone raises no SIGPIPE.
// The next line that gets through is preceded by one that ends in "lines lost: " and their number.
//
// A sink, and an __android_log_print of the program's own, is called with the log locked: it must
// wait for nobody who logs, return, and call nothing of this library. A sink may log, though, but
// into no File.

#ifndef UTL_LOG_H
#define UTL_LOG_H

#include <chrono>
#include <string_view>

#include "UtlApi.h"

namespace utl {

class File;

// The log type of the library's own messages.
constexpr int LIBRARY_LOG = -2;

// The levels, by how much a reader has to care. A filter lets through its own level and those above
// it in this list.
constexpr int LEVEL_ERROR = 1;
constexpr int LEVEL_INFORMATION = 2;
constexpr int LEVEL_DETAIL = 3;
constexpr int LEVEL_DEBUG = 4;

// A message on its way to a sink. The texts are good during the call, and a 0 follows each.
struct LogRecord {
    std::chrono::system_clock::time_point time;
    int threadId;  // the kernel's, of the calling thread
    int type;
    int level;                  // LEVEL_ERROR to LEVEL_DEBUG
    std::string_view tag;       // what setLogTag() has set; "UtlMemory" for the heap accounting
    std::string_view typeName;  // as it was registered; empty for rawlog()
    std::string_view text;      // without name, prefix and line end
};

// Writes a record; called on the thread that logs, one record at a time. False: the line is lost.
//
//     bool writeToJournal(utl::LogRecord const& record, void* context) {
//         auto* const journal = static_cast<std::FILE*>(context);
//         return std::fprintf(journal, "<%d>%s\n", record.level, record.text.data()) >= 0;
//     }
//     ...
//     setLogSink(writeToJournal, journal);
using LogSink = bool (*)(LogRecord const& record, void* context);

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

// From here on lines go to `sink`, which is called with `context`; nullptr: as before the first
// call. Returns when no call of the former sink is under way: its context may go. A sink may be
// called until the process ends, and in a child of fork too. What it throws ends the process. What
// it logs itself goes where lines go without it.
UTL_API void setLogSink(utl::LogSink sink, void* context);

// How many records this process has lost since it began: found no room, or were refused by the
// sink. One is a line, or a piece of a dump that may have several.
UTL_API unsigned long lostLogLines();

// Takes filter levels from the environment variable UTL_LOG, of at most 255 bytes, for the types
// there are and those that are registered later: "*=error,NET=4" is pairs of a type's name, without
// the blanks and angle brackets round it, and a level, as a number or as a word: none, error, info,
// detail, debug. "*" stands for all types that are not named, UTIL for the library's. What is no
// such pair is ignored, which is logged: false. Call it once, at the beginning: setFilterLevel()
// and setAllFilterLevel() go beyond it later. A process with more rights than its user finds
// nothing.
UTL_API bool configureLogFromEnvironment();

#endif  // UTL_LOG_H
