// Takes text files in: a reader sends their lines to a worker, which normalises and counts them and
// sends them on to a collector. The tour of the library.
//
//     textintake [--stall] [FILE...]      without files: the samples it ships

#include <cstdio>

#include "Collector.h"
#include "Reader.h"
#include "UtlThreadManager.h"
#include "Worker.h"

namespace {

// Starts a message-driven thread, under the watchdog.
bool start(utl::MsgDrivenThread& thread, utl::ThreadMsgListener& listener) {
    return thread.start(&listener, 1, Worker::ALIVE_TIME_MS, nullptr, 1, 0,
                        utl::ThreadPriority::NORMAL, 0) == 0;
}

// Whether all that was sent was counted, each line once and in its place.
bool printTotals(Totals const& totals, std::uint32_t sentLines) {
    bool const isRight = totals.lines == sentLines && totals.outOfOrder == 0;
    std::printf("%u files, %u lines, %u words, %u characters: %s\n", totals.files, totals.lines,
                totals.words, totals.characters,
                isRight ? "each line was counted once" : "THE COUNT IS WRONG");
    return isRight;
}

bool run(std::vector<std::string> const& paths, bool stalls) {
    Collector collector;
    Worker worker(collector.channel(), stalls);
    Reader reader(paths, worker.channel());
    if (!start(collector.thread(), collector) || !start(worker.thread(), worker) ||
        !collector.startProgress(worker.channel()) ||
        reader.thread().start(1, Worker::ALIVE_TIME_MS, nullptr, 1, 0, utl::ThreadPriority::NORMAL,
                              0) != 0) {
        return false;
    }
    reader.thread().waitTo(utl::Thread::EXECUTED, 0);
    while (!collector.waitToDone(1000) && worker.thread().isRunning()) {
    }
    utl::ThreadManager::get()->printThreadInfoReg(LEVEL_DETAIL);
    utl::ThreadManager::get()->printWatchdogInfo(LEVEL_DETAIL);
    Totals totals;
    unsigned long failures = 0;
    return collector.thread().sendMsgSync(TotalsMsg(&totals)) != 0 &&
           printTotals(totals, reader.sentLines()) && reader.thread().getResult(&failures) &&
           failures == 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> paths(argv + 1, argv + argc);
    bool const stalls = !paths.empty() && paths[0] == "--stall";
    paths.erase(paths.begin(), paths.begin() + (stalls ? 1 : 0));
    if (paths.empty()) {
        for (char const* name : {"harbour", "workshop", "minato", "kobo"}) {
            paths.push_back(std::string(TEXTINTAKE_SAMPLES "/") + name + ".txt");
        }
    }

    setLogTag("textintake");
    registerLogType(INTAKE_LOG, "<INTAKE> ", LEVEL_DETAIL);
    utl::ThreadManager::get()->entryCaller(0, 0, nullptr, "main");
    utl::ThreadManager::get()->setWatchdogWatchInterval(200);
    bool const isRight = run(paths, stalls);
    utl::ThreadManager::destroy();
    return isRight ? 0 : 1;
}
