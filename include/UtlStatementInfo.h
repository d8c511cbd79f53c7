// A position in the code, carried by every report to the thread watchdog.

#ifndef UTL_STATEMENT_INFO_H
#define UTL_STATEMENT_INFO_H

#include <cstdint>

#include "UtlApi.h"

namespace utl {

// A value that keeps the pointers it is given: literals only.
class UTL_API StatementInfo {
public:
    // No position at all: ("", "", 0, 0). There before any constructor runs, and never destroyed.
    static StatementInfo const& INVALID;

    // A null `file` or `function` reads as empty. `sub` is a position within the line: 1 before and
    // 2 after a call that may block, 0 for a plain report.
    constexpr StatementInfo(char const* file, char const* function, unsigned long line,
                            unsigned long sub)
        : mFile(file != nullptr ? file : ""),
          mFunction(function != nullptr ? function : ""),
          mLine(static_cast<std::uint32_t>(line)),
          mSub(static_cast<std::uint32_t>(sub)) {}
    StatementInfo(StatementInfo const&) = default;
    StatementInfo& operator=(StatementInfo const&) = default;
    virtual ~StatementInfo() = default;

    constexpr char const* file() const { return mFile; }
    constexpr char const* function() const { return mFunction; }
    constexpr std::uint32_t line() const { return mLine; }
    constexpr std::uint32_t sub() const { return mSub; }

    // Compare the names as strings.
    bool operator==(StatementInfo const& other) const;
    bool operator!=(StatementInfo const& other) const { return !(*this == other); }

private:
    char const* mFile;
    char const* mFunction;
    std::uint32_t mLine;
    std::uint32_t mSub;
};

}  // namespace utl

#endif  // UTL_STATEMENT_INFO_H
