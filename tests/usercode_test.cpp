// What the users of the library wrote and the library calls has to return. Where it does not, the
// process ends with a line that says which call it was, and nobody waits for ever.

#include <gtest/gtest.h>
#include <pthread.h>

#include <stdexcept>
#include <string>
#include <tuple>

#include "UtlLog.h"
#include "UtlLoop.h"
#include "UtlMemory.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"
#include "UtlTimer.h"

#include "support/LogCapture.h"
#include "support/Worker.h"

namespace utl {
namespace {

constexpr long MSG_ID = 0x8001;

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

// Leaves wherever it is called.
struct Leaving : ThreadMsgListener, TimerListener, WatchdogTimerListener {
    int receiveMsg(int, ThreadRawMsg&) override { return leave(), 0; }
    void onTime(int) override { leave(); }
    void onTime(int, Map<int, WatchdogInfo> const&) override { leave(); }
};

void leaveAgain() {
    test::replaceNextLine(leaveAgain);
    leave();
}

struct LeavingMsg : Msg {
    LeavingMsg() : Msg(MSG_ID) {}
    void storeDataTo(MsgDataBroker*) const override { leave(); }
    void restoreDataFrom(MsgDataBroker&) override { leave(); }
};

struct Call {
    char const* name;
    char const* logged;
    void (*make)(Leaving& leaving);
};

void startThread(MsgDrivenThread& thread, ThreadMsgListener& listener) {
    thread.start(&listener, 0, 0, nullptr, 1, 0, ThreadPriority::NORMAL, 0);
}

constexpr Call CALLS[] = {
    {"ReceiveMsg", "ThreadMsgListener::receiveMsg\\(leaving\\)",
     [](Leaving& leaving) {
         MsgDrivenThread thread(8, 8, "leaving", 0);
         startThread(thread, leaving);
         thread.sendMsgSync(MSG_ID);
     }},
    {"Task", "Loop task\\(loop\\)",
     [](Leaving&) {
         auto const loop = Loop::make(LoopOptions());
         loop->post([] { leave(); });
         pause();
     }},
    {"LoopCall", "Loop::call\\(loop\\)",
     [](Leaving&) { Loop::make(LoopOptions())->call([] { leave(); }); }},
    {"StoreDataTo", "Msg::storeDataTo",
     [](Leaving& leaving) {
         MsgDrivenThread thread(8, 8, "leaving", 0);
         startThread(thread, leaving);
         thread.postMsg(LeavingMsg());
     }},
    {"RestoreDataFrom", "Msg::restoreDataFrom",
     [](Leaving&) {
         ThreadRawMsg record(8);
         LeavingMsg().restoreFrom(record);
     }},
    {"Sink", "__android_log_print",
     [](Leaving&) {
         test::replaceNextLine(leave);
         applog(1, 1, "a line");
     }},
    {"SinkOfTheHeapAccounting", "__android_log_print",
     [](Leaving&) {
         test::replaceNextLine(leave);
         Memory::get()->printMessage(1, -1, "a line");
     }},
    {"SinkThatNeverReturns", "",
     [](Leaving&) {
         test::replaceNextLine(leaveAgain);
         applog(1, 1, "a line");
     }},
    {"OnTime", "TimerListener::onTime\\(leaving\\)",
     [](Leaving& leaving) {
         Timer timer(&leaving, 1, 0, 0, nullptr, 1, 0, "leaving");
         timer.start(0);
         pause();
     }},
    {"Execute", "Thread::execute\\(leaving\\)",
     [](Leaving&) {
         test::Worker worker("leaving", [] { return leave(), 0; });
         worker.runsToItsEnd();
     }},
    {"Function", "ThreadManager::entry",
     [](Leaving&) {
         ThreadManager* const manager = ThreadManager::get();
         manager->waitToStop(manager->entry([](void*) { leave(); }, nullptr, 0, 0, nullptr,
                                            "leaving", ThreadPriority::NORMAL, 0),
                             0);
     }},
    {"WatchdogListener", "WatchdogTimerListener::onTime",
     [](Leaving& leaving) {
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
    Leaving leaving;
    EXPECT_EXIT(call.make(leaving), ::testing::KilledBySignal(SIGABRT), call.logged);
}

std::string nameOf(::testing::TestParamInfo<std::tuple<Call, Way>> const& info) {
    return std::string(std::get<0>(info.param).name) + "By" + std::get<1>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(ThatLeaves, UserCodeDeathTest,
                         ::testing::Combine(::testing::ValuesIn(CALLS), ::testing::ValuesIn(WAYS)),
                         nameOf);

}  // namespace
}  // namespace utl
