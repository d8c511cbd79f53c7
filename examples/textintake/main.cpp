// Takes text files in: a shared timer looks for files in a directory, a reader sends their text
// page by page to a worker, which normalises and counts it and sends it on to a collector, which
// writes it out, with an index, and puts the source away. The tour of the library. Options.h says
// how it is called.
//
// Nothing is lost whenever it ends: what comes of a file is written beside its place, moved there
// when it is whole, and only then does the file leave the inbox.

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "Collector.h"
#include "Options.h"
#include "Reader.h"
#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"
#include "Worker.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_BAD_ARGUMENTS = 2;

constexpr std::chrono::seconds FILE_ALIVE_TIME = 5s;  // of those who may have to wait for a disk

int complain(std::string const& sentence, int exitCode) {
    std::fprintf(stderr, "textintake: %s\n", sentence.c_str());
    return exitCode;
}

// A new temporary directory for what the user has not named; it goes with this.
class Workspace {
public:
    ~Workspace() {
        if (!mDirectory.empty()) {
            utl::File::erase(mDirectory.c_str(), 1);
        }
    }

    // Empty, or why it cannot be made.
    std::string make(Options* options) {
        if (!options->in.empty()) {
            return "";
        }
        char const* const parent = std::getenv("TMPDIR");
        std::string name =
            Options::tidy(parent != nullptr ? parent : "/tmp") + "/textintake-XXXXXX";
        if (mkdtemp(&name[0]) == nullptr) {
            return "cannot make " + name + ": " + reasonOf(errno);
        }
        mDirectory = name;
        options->in = mDirectory + "/in";
        options->out = options->out.empty() ? mDirectory + "/out" : options->out;
        errno = 0;
        return utl::File::copy(TEXTINTAKE_SAMPLES, options->in.c_str(), 0)
                   ? ""
                   : "cannot copy the samples from " TEXTINTAKE_SAMPLES " to " + options->in +
                         ": " + reasonOf(errno);
    }

private:
    std::string mDirectory;
};

// Why files cannot be taken out of a directory; empty when they can.
std::string objectToInbox(std::string const& directory) {
    if (access(directory.c_str(), F_OK) == 0 && !utl::File::isDirectory(directory.c_str())) {
        return reasonOf(ENOTDIR);
    }
    return access(directory.c_str(), R_OK | W_OK | X_OK) == 0 ? "" : reasonOf(errno);
}

// Ctrl-C and its kin wait for main to ask for them. Before there are threads, which inherit it. A
// file that may not grow is told by its write, like a full disk.
sigset_t holdEndSignals() {
    signal(SIGXFSZ, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

bool comesWithin(sigset_t const& signals, long milliseconds) {
    timespec const time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
    return sigtimedwait(&signals, nullptr, &time) > 0;
}

// Puts into the report what the watchdog has seen.
class Alarm : public utl::WatchdogTimerListener {
public:
    explicit Alarm(Report& report) : mReport(report) {}

    void onTime(int id, utl::Map<int, utl::WatchdogInfo> const& infos) override {
        if (utl::WatchdogInfo const* const info = infos.find(id)) {
            utl::StatementInfo const& last = info->lastAliveInfo();
            mReport.remark("The thread " + std::string(info->name().c_str()) + " was silent for " +
                           std::to_string(info->aliveTime()) + " ms, last heard of in " +
                           last.file() + ", " + last.function() + ".");
        }
    }

private:
    Report& mReport;
};

utl::StartOptions watched(utl::Duration aliveTime, Alarm& alarm) {
    utl::StartOptions options;
    options.aliveTime = aliveTime;
    options.watchdogListener = &alarm;
    return options;
}

// Until the time is over, a signal comes, the report has a failure, or all is done.
void run(Options const& options, bool endsWhenDone, sigset_t const& endSignals, Shelf& shelf,
         Report& report) {
    Alarm alarm(report);
    Inbox inbox(options.in, shelf.longestName(), report);
    Collector collector(inbox, shelf, report);
    Worker worker(collector.channel(), options.stalls);
    Reader reader(inbox, worker.channel());
    utl::SharedTimer timers("look timer", 1);
    inbox.onTime(0);
    if (!collector.listen() || !worker.listen() ||
        collector.thread().start(&collector, watched(FILE_ALIVE_TIME, alarm)) != 0 ||
        worker.thread().start(&worker, watched(Worker::ALIVE_TIME, alarm)) != 0 ||
        !collector.startProgress(worker.channel()) ||
        reader.thread().start(watched(FILE_ALIVE_TIME, alarm)) != 0 ||
        !timers.start(timers.addTimer(&inbox, 100ms))) {
        report.fail("cannot start its threads; the log tells why");
    }

    utl::TimeCounter elapsed;
    elapsed.start();
    while (report.failure().empty() && !(endsWhenDone && inbox.isDone()) &&
           (options.seconds == 0 || elapsed.watch() < options.seconds * 1000) &&
           !comesWithin(endSignals, 50)) {
    }
    if (options.stalls) {
        utl::ThreadManager::get()->printThreadInfoReg(LEVEL_INFORMATION);
        utl::ThreadManager::get()->printWatchdogInfo(LEVEL_INFORMATION);
    }

    // What is under way is dropped, not awaited: its files are still in the inbox.
    timers.destroy();
    inbox.close();
    reader.thread().stop(1, 0);
    worker.thread().stop(1, 0);
    collector.thread().stop(1, 0);
    reader.thread().leaveManagement();
    collector.giveUp();
    if (std::size_t const files = inbox.countUnfinished()) {
        report.remark(grouped(files) + (files == 1 ? " file is" : " files are") +
                      " not finished, and still in " + options.in + ".");
    }
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
    std::string const mistake = options.parse(argc, argv);
    if (!mistake.empty() || options.asksForHelp) {
        return mistake.empty() ? std::fputs(Options::HELP, stdout) < 0
                               : complain(mistake, EXIT_BAD_ARGUMENTS);
    }
    std::setlocale(LC_CTYPE, "C.UTF-8");
    setLogTag("textintake");
    registerLogType(INTAKE_LOG, "<INTAKE> ", LEVEL_DETAIL);
    configureLogFromEnvironment();
    sigset_t const endSignals = holdEndSignals();

    bool const endsWhenDone = options.in.empty();
    Workspace workspace;
    std::string const trouble = workspace.make(&options);
    if (!trouble.empty()) {
        return complain(trouble, EXIT_FAILED);
    }
    std::string const inboxTrouble = objectToInbox(options.in);
    if (!inboxTrouble.empty()) {
        return complain("--in " + options.in + ": " + inboxTrouble, EXIT_BAD_ARGUMENTS);
    }
    Shelf shelf(options.out);
    std::string const shelfTrouble = shelf.open();
    if (!shelfTrouble.empty()) {
        return complain("--out " + options.out + ": " + shelfTrouble, EXIT_BAD_ARGUMENTS);
    }

    if (shelf.feeds(options.in)) {
        return complain("--in and --out lead to the same directory", EXIT_BAD_ARGUMENTS);
    }

    Report report;
    utl::ThreadManager::get()->entryCaller(0, 0, nullptr, "main");
    utl::ThreadManager::get()->setWatchdogWatchInterval(200ms);
    run(options, endsWhenDone, endSignals, shelf, report);
    if (!isRegistryEmpty()) {
        report.fail("a thread is left in the registry");
    }
    utl::ThreadManager::destroy();

    report.print(stdout, Table::terminalWidth());
    if (std::fflush(stdout) != 0) {
        report.fail("cannot write the table: " + reasonOf(errno));
    }
    return !report.failure().empty() ? complain(report.failure(), EXIT_FAILED)
           : report.hasRefused()     ? EXIT_FAILED
                                     : 0;
}
