// What the library logs while one of these lives. The test programs define the system log's
// function themselves; without a capture, lines go nowhere, or to standard error once echoLog() was
// called: by a process that is about to die.

#ifndef UTL_TESTS_LOG_CAPTURE_H
#define UTL_TESTS_LOG_CAPTURE_H

#include <string>
#include <vector>

namespace test {

struct LogLine {
    int priority;
    std::string tag;
    std::string text;
};

void echoLog();

// The next line calls `function`.
void replaceNextLine(void (*function)());

// One at a time.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    // Every call of the system log, the copies under the system-error tag too.
    std::vector<LogLine> all() const;

    // Without those copies: how many lines there are that contain `part`.
    unsigned count(std::string const& part) const;
    bool has(std::string const& part) const { return count(part) != 0; }

    // Blocks until that many lines contain `part`. False when they do not come.
    bool waitFor(std::string const& part, unsigned times = 1) const;

    void clear();
};

// While one of these lives, whoever logs is stuck.
class StuckLog {
public:
    StuckLog();
    ~StuckLog();
    StuckLog(StuckLog const&) = delete;
    StuckLog& operator=(StuckLog const&) = delete;
};

}  // namespace test

#endif  // UTL_TESTS_LOG_CAPTURE_H
