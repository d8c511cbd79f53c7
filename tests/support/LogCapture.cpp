#include "support/LogCapture.h"

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

#include "platform/UtlLogSink.h"

namespace test {

namespace {

// Never destroyed: library threads may log while the program ends.
struct Captured {
    std::mutex mutex;
    std::condition_variable added;
    bool isOn = false;
    bool isEchoed = false;
    bool isStuck = false;
    void (*instead)() = nullptr;
    std::condition_variable freed;
    std::vector<LogLine> lines;
};

Captured& captured() {
    static Captured& object = *new Captured;
    return object;
}

unsigned countLocked(std::string const& part) {
    unsigned count = 0;
    for (LogLine const& line : captured().lines) {
        bool const isCopy = line.tag == "XM_SYSERR";
        count += !isCopy && line.text.find(part) != std::string::npos ? 1 : 0;
    }
    return count;
}

}  // namespace

void echoLog() {
    captured().isEchoed = true;
}

void replaceNextLine(void (*function)()) {
    captured().instead = function;
}

LogCapture::LogCapture() {
    std::lock_guard<std::mutex> const guard(captured().mutex);
    captured().isOn = true;
    captured().lines.clear();
}

LogCapture::~LogCapture() {
    std::lock_guard<std::mutex> const guard(captured().mutex);
    captured().isOn = false;
}

std::vector<LogLine> LogCapture::all() const {
    std::lock_guard<std::mutex> const guard(captured().mutex);
    return captured().lines;
}

unsigned LogCapture::count(std::string const& part) const {
    std::lock_guard<std::mutex> const guard(captured().mutex);
    return countLocked(part);
}

bool LogCapture::waitFor(std::string const& part, unsigned times) const {
    std::unique_lock<std::mutex> guard(captured().mutex);
    return captured().added.wait_for(guard, std::chrono::seconds(30),
                                     [&] { return countLocked(part) >= times; });
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> const guard(captured().mutex);
    captured().lines.clear();
}

StuckLog::StuckLog() {
    std::lock_guard<std::mutex> const guard(captured().mutex);
    captured().isStuck = true;
}

StuckLog::~StuckLog() {
    std::lock_guard<std::mutex> const guard(captured().mutex);
    captured().isStuck = false;
    captured().freed.notify_all();
}

}  // namespace test

// Takes the place of the library's own.
int __android_log_print(int priority, char const* tag, char const* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    int const length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    test::Captured& captured = test::captured();
    std::unique_lock<std::mutex> guard(captured.mutex);
    captured.freed.wait(guard, [&] { return !captured.isStuck; });
    if (auto const function = std::exchange(captured.instead, nullptr)) {
        function();
    }
    if (captured.isOn) {
        captured.lines.push_back({priority, tag, text});
        captured.added.notify_all();
    } else if (captured.isEchoed) {
        std::fputs(text, stderr);
    }
    return length;
}
