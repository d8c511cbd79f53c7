// A periodic job: for some seconds looks ten times a second at the load of the machine. The job is
// in LoadWatch.h; load_watch_test.cpp lets it work for hours in no time.
//
//     periodic 5                     for five seconds
//     UTL_LOG=LOAD=detail periodic   for one second, with each reading in the log

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "LoadWatch.h"
#include "Utl.h"

namespace {

using namespace std::chrono_literals;

double readLoad() {
    double load = 0;
    return getloadavg(&load, 1) == 1 ? load : 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::chrono::seconds const duration(argc == 2 ? std::atoi(argv[1]) : 1);
    registerLogType(LOAD_LOG, "<LOAD> ", utl::LEVEL_INFORMATION);
    configureLogFromEnvironment();

    std::unique_ptr<utl::Loop> const loop = utl::Loop::make({});
    if (loop == nullptr) {
        return 1;  // the log tells why
    }
    LoadWatch const watch(*loop, 100ms, 4.0, readLoad);
    utl::Thread::sleep(duration);
    std::optional<LoadWatch::Status> const status = watch.status();
    if (!status) {
        return 1;
    }
    std::printf("%lu readings, %lu missed, %lu warnings\n", status->readings, status->missed,
                status->warnings);
    return status->readings != 0 ? 0 : 1;
}
