// Takes text files in: a shared timer looks for files in a directory, a reader sends their lines to
// a worker, which normalises and counts them and sends them on to a collector, which writes them
// out, with an index, and puts the source away. The tour of the library.
//
//     textintake [--in DIR] [--out DIR] [--for SECONDS] [--stall]
//
// Without --in it takes copies of the samples it ships, and ends when they are done. Otherwise it
// runs until the time is over or Ctrl-C is hit. --stall lets the worker hang once, for the watchdog
// to see.

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "Collector.h"
#include "Reader.h"
#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"
#include "Worker.h"

namespace {

struct Options {
    std::string in, out;
    unsigned long seconds = 0;  // 0 for no limit
    bool stalls = false;

    bool parse(int argc, char** argv) {
        for (int i = 1; i < argc; ++i) {
            char const* const name = argv[i];
            if (std::strcmp(name, "--stall") == 0) {
                stalls = true;
                continue;
            }
            char const* const value = ++i < argc ? argv[i] : "";
            if (std::strcmp(name, "--in") == 0) {
                in = value;
            } else if (std::strcmp(name, "--out") == 0) {
                out = value;
            } else if (std::strcmp(name, "--for") == 0) {
                seconds = std::strtoul(value, nullptr, 10);
            } else {
                return false;
            }
            if (*value == '\0') {
                return false;
            }
        }
        return true;
    }
};

// A new temporary directory for what the user has not named; it goes with this.
class Workspace {
public:
    explicit Workspace(Options* options) {
        if (!options->in.empty() && !options->out.empty()) {
            return;
        }
        char name[] = "/tmp/textintake-XXXXXX";
        mDirectory = mkdtemp(name) != nullptr ? name : "";
        if (options->out.empty()) {
            options->out = mDirectory + "/out";
        }
        if (options->in.empty()) {
            options->in = mDirectory + "/in";
            utl::File::copy(TEXTINTAKE_SAMPLES, options->in.c_str(), 0);
        }
    }
    ~Workspace() {
        if (!mDirectory.empty()) {
            utl::File::erase(mDirectory.c_str(), 1);
        }
    }
    Workspace(Workspace const&) = delete;
    Workspace& operator=(Workspace const&) = delete;

private:
    std::string mDirectory;
};

// Ctrl-C and its kin wait for main to ask for them. Before there are threads, which inherit it.
sigset_t holdEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

bool comesWithin(sigset_t const& signals, long milliseconds) {
    timespec const time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
    return sigtimedwait(&signals, nullptr, &time) > 0;
}

// Starts a message-driven thread, under the watchdog.
bool start(utl::MsgDrivenThread& thread, utl::ThreadMsgListener& listener) {
    return thread.start(&listener, 1, Worker::ALIVE_TIME_MS, nullptr, 1, 0,
                        utl::ThreadPriority::NORMAL, 0) == 0;
}

// Whether all that was sent was counted and written out, each line once and in its place.
bool printTotals(Totals const& totals, std::uint32_t sentLines) {
    bool const isRight = totals.lines == sentLines && totals.faults == 0;
    std::printf(
        "%u files, %u lines, %u words, %u characters: %s\n", totals.files, totals.lines,
        totals.words, totals.characters,
        isRight ? "each line was counted once, and the outputs agree" : "THE OUTPUT IS WRONG");
    return isRight;
}

bool run(Options const& options, bool endsWhenDone, sigset_t const& endSignals) {
    Inbox inbox(options.in);
    Collector collector(inbox, options.out);
    Worker worker(collector.channel(), options.stalls);
    Reader reader(inbox, worker.channel());
    utl::SharedTimer timers(0, 0, nullptr, 1, "poll timer");
    if (!start(collector.thread(), collector) || !start(worker.thread(), worker) ||
        !collector.startProgress(worker.channel()) ||
        reader.thread().start(1, Worker::ALIVE_TIME_MS, nullptr, 1, 0, utl::ThreadPriority::NORMAL,
                              0) != 0 ||
        !timers.start(timers.addTimer(&inbox, 100, 0, 0), 0)) {
        return false;
    }

    utl::TimeCounter elapsed;
    elapsed.start();
    while (!comesWithin(endSignals, 50) && !(endsWhenDone && inbox.isDone()) &&
           (options.seconds == 0 || elapsed.watch() < options.seconds * 1000)) {
    }

    // In order: no new files, no new lines, then what is under way.
    timers.destroy();
    inbox.close();
    reader.thread().waitTo(utl::Thread::EXECUTED, 0);
    while (!collector.waitToDone(1000) && worker.thread().isRunning()) {
    }
    utl::ThreadManager::get()->printThreadInfoReg(LEVEL_DETAIL);
    utl::ThreadManager::get()->printWatchdogInfo(LEVEL_DETAIL);
    reader.thread().leaveManagement();
    Totals totals;
    unsigned long failures = 0;
    return collector.thread().sendMsgSync(TotalsMsg(&totals)) != 0 &&
           printTotals(totals, reader.sentLines()) && reader.thread().getResult(&failures) &&
           failures == 0;
}

// Nobody but the calling thread and the watchdog is left.
bool isRegistryEmpty() {
    utl::ThreadManager::get()->unregister(utl::ThreadManager::getCallerId());
    utl::Map<int, utl::BasicString<char>> names(8, 0);
    utl::ThreadManager::get()->getNames(&names);
    return names.count() == 1;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!options.parse(argc, argv)) {
        std::fprintf(stderr,
                     "usage: textintake [--in DIR] [--out DIR] [--for SECONDS] [--stall]\n");
        return 2;
    }
    setLogTag("textintake");
    registerLogType(INTAKE_LOG, "<INTAKE> ", LEVEL_DETAIL);
    sigset_t const endSignals = holdEndSignals();
    bool const endsWhenDone = options.in.empty();
    Workspace const workspace(&options);
    utl::ThreadManager::get()->entryCaller(0, 0, nullptr, "main");
    utl::ThreadManager::get()->setWatchdogWatchInterval(200);
    bool const isRight = run(options, endsWhenDone, endSignals) && isRegistryEmpty();
    utl::ThreadManager::destroy();
    return isRight ? 0 : 1;
}
