// What the users of the library wrote and the library calls has to return. Where it does not, the
// process ends with a line that says which call it was, and nobody waits for ever.

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <tuple>

#include "UtlLog.h"
#include "UtlLoop.h"
#include "UtlMemory.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"
#include "UtlTimer.h"

#include "support/LogCapture.h"
#include "support/MessageStation.h"
#include "support/Worker.h"

namespace utl {
namespace {

constexpr long MSG_ID = 0x8002;

struct Way {
    char const* name;
    void (*leave)();
};

constexpr Way WAYS[] = {
    {"AnException", [] { throw std::runtime_error("user code"); }},
    {"PthreadExit", [] { pthread_exit(nullptr); }},
    {"ACancellation",
     [] {
         pthread_cancel(pthread_self());
         pthread_testcancel();
     }},
};

void (*leave)() = nullptr;

void logTo(void (*sink)()) {
    test::replaceNextLine(sink);
    applog(1, 1, "a line");
}

void leaveAgain() {
    test::replaceNextLine(leaveAgain);
    leave();
}

// These leave wherever they are called.

struct LeavingListener : TimerListener, WatchdogTimerListener {
    void onTime(int) override { leave(); }
    void onTime(int, Map<int, WatchdogInfo> const&) override { leave(); }
} leaving;

struct LeavingMsg : Msg {
    LeavingMsg() : Msg(MSG_ID) {}
    void storeDataTo(MsgDataBroker*) const override { leave(); }
    void restoreDataFrom(MsgDataBroker&) override { leave(); }
};

struct Call {
    char const* name;
    char const* logged;
    void (*make)();
};

constexpr Call CALLS[] = {
    {"ReceiveMsg", "ThreadMsgListener::receiveMsg\\(station\\)",
     [] {
         test::RunningStation station;
         station.on(MSG_ID, leave);
         station->sendMsgSync(MSG_ID);
     }},
    {"Task", "Loop task\\(loop\\)",
     [] {
         auto const loop = Loop::make(LoopOptions());
         loop->post([] { leave(); });
         pause();
     }},
    {"LoopCall", "Loop::call\\(loop\\)", [] { Loop::make(LoopOptions())->call([] { leave(); }); }},
    {"StoreDataTo", "Msg::storeDataTo", [] { test::RunningStation()->postMsg(LeavingMsg()); }},
    {"RestoreDataFrom", "Msg::restoreDataFrom",
     [] {
         ThreadRawMsg record(8);
         LeavingMsg().restoreFrom(record);
     }},
    {"Sink", "__android_log_print", [] { logTo(leave); }},
    {"OwnSink", "LogSink",
     [] {
         auto const sink = [](LogRecord const&, void*) {
             pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
             return leave(), true;
         };
         setLogSink(sink, nullptr);
         applog(1, 1, "a line");
     }},
    {"SinkOfTheHeapAccounting", "__android_log_print",
     [] {
         test::replaceNextLine(leave);
         Memory::get()->printMessage(1, -1, "a line");
     }},
    {"SinkThatNeverReturns", "", [] { logTo(leaveAgain); }},
    {"OnTime", "TimerListener::onTime\\(timer\\)",
     [] {
         Timer timer(&leaving, 1, 0, 0, nullptr, 1, 0, "timer");
         timer.start(0);
         pause();
     }},
    {"Execute", "Thread::execute\\(worker\\)",
     [] { test::Worker("worker", [] { return leave(), 0; }).runsToItsEnd(); }},
    {"Function", "ThreadManager::entry",
     [] {
         ThreadManager::get()->entry([](void*) { leave(); }, nullptr, 0, 0, nullptr, "function",
                                     ThreadPriority::NORMAL, 0);
         pause();
     }},
    {"WatchdogListener", "WatchdogTimerListener::onTime",
     [] {
         ThreadManager* const manager = ThreadManager::get();
         manager->setWatchdogWatchInterval(1);
         manager->entryCaller(1, 1, &leaving, "silent");
         manager->startWatchdog(0);
         pause();
     }},
};

class UserCodeDeathTest : public ::testing::TestWithParam<std::tuple<Call, Way>> {};

TEST_P(UserCodeDeathTest, EndsTheProcessWithALineThatNamesTheCall) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const& [call, way] = GetParam();
    leave = way.leave;
    test::echoLog();
    EXPECT_EXIT(call.make(), ::testing::KilledBySignal(SIGABRT), call.logged);
}

std::string nameOf(::testing::TestParamInfo<std::tuple<Call, Way>> const& info) {
    return std::string(std::get<0>(info.param).name) + "By" + std::get<1>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(ThatLeaves, UserCodeDeathTest,
                         ::testing::Combine(::testing::ValuesIn(CALLS), ::testing::ValuesIn(WAYS)),
                         nameOf);

}  // namespace
}  // namespace utl
