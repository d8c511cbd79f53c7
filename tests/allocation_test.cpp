// Memory: a message-driven thread that runs takes none, and one that got too little is harmless.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <new>
#include <thread>

#include "UtlLoop.h"
#include "UtlMsgDrivenThread.h"
#include "UtlStructMsg.h"
#include "UtlThreadManager.h"

#include "support/LogCapture.h"
#include "support/Process.h"
#include "support/Sanitizer.h"

namespace {

std::atomic<unsigned long> allocations{0};
std::atomic<int> grantsBeforeFailure{-1};  // one request fails after these; negative for none

bool isGranted() {
    ++allocations;
    int left = grantsBeforeFailure;
    while (left >= 0 && !grantsBeforeFailure.compare_exchange_weak(left, left - 1)) {
    }
    return left != 0;
}

}  // namespace

// The forms that the library allocates with.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    return isGranted() ? ::operator new(size) : nullptr;
}

void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return isGranted() ? ::operator new[](size) : nullptr;
}

void* operator new[](std::size_t size, std::align_val_t alignment, std::nothrow_t const&) noexcept {
    return isGranted() ? ::operator new[](size, alignment) : nullptr;
}

// A sanitizer's malloc must stay the only one: there, the forms above are all that is counted.
#if !UTL_SANITIZED
void* malloc(std::size_t size) noexcept {
    static auto const next = reinterpret_cast<void* (*)(std::size_t)>(dlsym(RTLD_NEXT, "malloc"));
    ++allocations;
    return next(size);
}
#endif

namespace utl {
namespace {

constexpr long ID = 0x8001;
constexpr long OTHER = 0x8002;
constexpr unsigned long HOUR = 3600000;

using AskMsg = StructMsg<OTHER, int, int>;

class Counting : public ThreadMsgListener {
public:
    int receiveMsg(int, ThreadRawMsg& raw) override {
        SimpleMsg msg(0);
        msg.restoreFrom(raw);
        count += msg.getMsgId() == ID ? 1 : 0;
        raw.answer(AskMsg::AnswerMsg(count));
        return 0;
    }

    std::atomic<int> count{0};
};

int start(MsgDrivenThread& thread, ThreadMsgListener* listener) {
    return thread.start(listener, 1, HOUR, nullptr, 1, 0, ThreadPriority::NORMAL, 0);
}

class AllocationTest : public ::testing::Test {
protected:
    void SetUp() override { ThreadManager::get(); }
    void TearDown() override { ThreadManager::destroy(); }
};

TEST_F(AllocationTest, MessagesTakeNoMemory) {
    constexpr int MESSAGES = 100000;
    Counting listener;
    MsgDrivenThread thread(16, 1000, "frugal", 1);
    ASSERT_EQ(0, start(thread, &listener));
    EXPECT_EQ(1, thread.sendMsgSync(OTHER));

    unsigned long const before = allocations.load();
    for (int sent = 0; sent < MESSAGES; ++sent) {
        while (sent - listener.count >= 1000 || !thread.postMsg(ID)) {
            std::this_thread::yield();
        }
        if (sent % 1000 == 0) {
            SimpleMsg out(0);
            EXPECT_TRUE(thread.ask<AskMsg>(0));
            thread.peekMsg(ID, &out);
            thread.eraseMsg(OTHER);
            thread.postMsg(0x83FF);  // refused, and logged
        }
    }
    while (listener.count < MESSAGES) {
        std::this_thread::yield();
    }
    EXPECT_EQ(before, allocations.load());
    void* const volatile taken = ::operator new(1, std::nothrow);
    ::operator delete(taken);
    EXPECT_LT(before, allocations.load()) << "allocations are not counted";
    thread.stop(1, 0);
}

TEST_F(AllocationTest, TasksTakeNoMemory) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    auto const loop = Loop::make(LoopOptions());
    std::atomic<int> done{0};
    auto const useAll = [&] {
        int const before = done;
        ScopedTask const often = loop->every(std::chrono::microseconds(100), [&] { ++done; });
        ScopedTask const ready = loop->watch(ends[1], Loop::WRITABLE, [&] { ++done; });
        EXPECT_TRUE(loop->postAfter(std::chrono::hours(1), [] {}).cancel());
        EXPECT_TRUE(loop->postAfter(std::chrono::seconds(0), [&] { ++done; }));
        EXPECT_TRUE(loop->post([&] { ++done; }) && loop->call([&] { ++done; }));
        while (done < before + 5) {
            std::this_thread::yield();
        }
    };
    useAll();
    unsigned long const before = allocations.load();
    for (int i = 0; i < 1000; ++i) {
        useAll();
    }
    EXPECT_EQ(before, allocations.load());
    EXPECT_EQ(REACHED, loop->stop(Rest::RUN).result);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(AllocationTest, ALoopThatGotTooLittleIsNotMade) {
    test::LogCapture const log;
    bool hasFailed = true;
    for (int request = 0; hasFailed; ++request) {
        grantsBeforeFailure = request;
        auto const loop = Loop::make(LoopOptions());
        hasFailed = grantsBeforeFailure.exchange(-1) < 0;
        bool const isWhole = loop != nullptr && loop->call([] {}) && loop->post([] {}) &&
                             loop->postAfter(std::chrono::hours(1), [] {}).cancel() &&
                             loop->watch(0, Loop::READABLE, [] {}).cancel();
        EXPECT_TRUE(isWhole || (hasFailed && loop == nullptr)) << request;
    }
}

TEST_F(AllocationTest, ErasingFromAMapTakesNoMemory) {
    Map<int, BasicString<char>> names(3, 0);
    names.insert(1, BasicString<char>("a", 0, 0), 0);
    names.insert(2, BasicString<char>("a much longer name", 0, 0), 0);
    unsigned long const before = allocations.load();
    EXPECT_EQ(1, names.eraseKey(1));
    EXPECT_EQ(before, allocations.load());
    EXPECT_STREQ("a much longer name", names.find(2)->c_str());
}

TEST_F(AllocationTest, ARecordThatGotNoneHoldsNothingOrWhatItHeld) {
    ThreadRawMsg const record(8);
    ThreadRawMsg assigned(4);
    grantsBeforeFailure = 0;
    EXPECT_EQ(0u, ThreadRawMsg(8).maxSize());
    grantsBeforeFailure = 0;
    EXPECT_EQ(0u, ThreadRawMsg(record).maxSize());
    grantsBeforeFailure = 0;
    EXPECT_EQ(4u, (assigned = record).maxSize());
}

// False when the thread got all the memory it asked for before that request came.
bool livesWithout(int request) {
    Counting listener;
    grantsBeforeFailure = request;
    MsgDrivenThread thread(16, 10, "poor", 2);
    int const started = start(thread, &listener);
    bool const hasFailed = grantsBeforeFailure.exchange(-1) < 0;

    int const delivered = thread.postMsg(ID) + thread.sendMsgSync(ID);
    EXPECT_TRUE(test::comesTrue([&] { return listener.count == delivered; })) << request;
    thread.eraseMsg(OTHER);
    thread.killTimer(thread.setTimer(HOUR, 0, 0, 0), 0);
    thread.stop(1, 0);
    EXPECT_TRUE(delivered == 0 || (delivered == 2 && started == 0)) << request;
    EXPECT_TRUE(hasFailed || delivered == 2) << request;
    return hasFailed;
}

TEST_F(AllocationTest, AThreadThatGotTooLittleRefusesAndEnds) {
    test::LogCapture const log;
    for (int request = 0; livesWithout(request); ++request) {
    }
}

TEST_F(AllocationTest, ATimerThatGotTooLittleLeavesNoEntry) {
    Counting listener;
    MsgDrivenThread thread(16, 10, "poor", 1);
    ASSERT_EQ(0, start(thread, &listener));
    int timer = -1;
    for (int request = 0; timer == -1; ++request) {
        grantsBeforeFailure = request;
        timer = thread.setTimer(HOUR, 0, 0, 0);
        EXPECT_EQ(timer == -1, grantsBeforeFailure.exchange(-1) < 0);
    }
    EXPECT_EQ(1, thread.killTimer(timer, 0));
    thread.stop(1, 0);
}

}  // namespace
}  // namespace utl
