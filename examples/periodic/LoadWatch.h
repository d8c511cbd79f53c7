// Looks at the load of the machine again and again, and warns when it stays high: a job that runs
// on a loop, with others if need be, and whose test needs no time.

#ifndef PERIODIC_LOAD_WATCH_H
#define PERIODIC_LOAD_WATCH_H

#include <chrono>
#include <functional>
#include <optional>
#include <utility>

#include "UtlLog.h"
#include "UtlLoop.h"

constexpr int LOAD_LOG = 1;  // the log type that the program registers

class LoadWatch {
public:
    struct Status {
        unsigned long readings = 0;
        unsigned long missed = 0;    // times at which the loop had no time
        unsigned long warnings = 0;  // one each time that the load has become high
    };

    // So many high readings in a row are a high load.
    static constexpr unsigned ENOUGH = 3;

    // Begins to `read` every `period`; readings above `limit` are high. `loop` must live longer.
    LoadWatch(utl::Loop& loop, std::chrono::milliseconds period, double limit,
              std::function<double()> read)
        : mLoop(loop), mLimit(limit), mRead(std::move(read)) {
        mTask = loop.every(period, [this](unsigned long missed) {
            mStatus.missed += missed;
            judge(mRead());
        });
    }

    // In a call, so that no reading is under way when the members go.
    ~LoadWatch() {
        mLoop.call([this] { mTask.cancel(); });
    }
    LoadWatch(LoadWatch const&) = delete;
    LoadWatch& operator=(LoadWatch const&) = delete;

    // False when the loop had no room for it.
    explicit operator bool() const { return static_cast<bool>(mTask); }

    // Empty when the loop has ended.
    std::optional<Status> status() const {
        return mLoop.call([this] { return mStatus; });
    }

private:
    void judge(double load) {
        ++mStatus.readings;
        mHighInARow = load > mLimit ? mHighInARow + 1 : 0;
        if (mHighInARow == ENOUGH) {
            ++mStatus.warnings;
            applog(LOAD_LOG, utl::LEVEL_ERROR, "the load is %.2f and was high before", load);
        } else {
            applog(LOAD_LOG, utl::LEVEL_DETAIL, "the load is %.2f", load);
        }
    }

    utl::Loop& mLoop;
    double const mLimit;
    std::function<double()> const mRead;
    Status mStatus;  // the loop's, like mHighInARow
    unsigned mHighInARow = 0;
    utl::ScopedTask mTask;
};

#endif  // PERIODIC_LOAD_WATCH_H
