#include "support/Process.h"

#include <dirent.h>
#include <errno.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "support/Gate.h"

namespace test {

namespace {

unsigned entries(char const* directory) {
    DIR* const dir = opendir(directory);
    unsigned count = 0;
    while (readdir(dir) != nullptr) {
        ++count;
    }
    closedir(dir);
    return count;
}

}  // namespace

unsigned openDescriptors() {
    return entries("/proc/self/fd");
}

unsigned kernelTimers() {
    std::ifstream timers("/proc/self/timers");
    unsigned count = 0;
    for (std::string line; std::getline(timers, line);) {
        count += line.compare(0, 3, "ID:") == 0 ? 1 : 0;
    }
    return count;
}

std::vector<int> kernelTimersOf(int threadId) {
    std::vector<int> ids;
    std::ifstream timers("/proc/self/timers");
    int id = 0;
    int owner = 0;
    for (std::string line; std::getline(timers, line);) {
        std::sscanf(line.c_str(), "ID: %d", &id);
        if (std::sscanf(line.c_str(), "notify: signal/tid.%d", &owner) == 1 && owner == threadId) {
            ids.push_back(id);
        }
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

bool isArmed(int kernelTimer) {
    itimerspec left = {};
    syscall(SYS_timer_gettime, kernelTimer, &left);
    return left.it_value.tv_sec != 0 || left.it_value.tv_nsec != 0;
}

unsigned threads() {
    return entries("/proc/self/task");
}

bool isAsleep(int threadId) {
    std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/stat");
    std::string stat;
    std::getline(file, stat);
    std::size_t const nameEnd = stat.rfind(')');
    return nameEnd != std::string::npos && stat.compare(nameEnd, 3, ") S") == 0;
}

void endWhenStuck() {
    alarm(static_cast<unsigned>(PATIENCE.count()));
}

int exitCodeOf(pid_t child) {
    int status;
    pid_t ended;
    do {
        ended = waitpid(child, &status, 0);
    } while (ended == -1 && errno == EINTR);
    return ended == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool comesTrue(std::function<bool()> const& condition) {
    auto const end = std::chrono::steady_clock::now() + PATIENCE;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        timespec const pause = {0, 1000000};
        nanosleep(&pause, nullptr);
    }
    return true;
}

}  // namespace test
