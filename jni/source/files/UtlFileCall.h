// Internal. A call of the file system that the watchdog is told about.
//
//     int const descriptor =
//         watched("open", 1612, [path] { return platform::openFile(path, O_RDONLY, 0555); });
//
// Statements are told apart by their numbers; they stay what they are when the source changes.

#ifndef UTL_FILE_CALL_H
#define UTL_FILE_CALL_H

#include "foundation/UtlBlockingCall.h"

namespace utl {

// `function` is a literal. errno is as `call` left it.
template <typename Call>
auto watched(char const* function, unsigned long statement, Call call) {
    BlockingCall const blocking("UtlFile", function, statement);
    return call();
}

}  // namespace utl

#endif  // UTL_FILE_CALL_H
