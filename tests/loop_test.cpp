#include "UtlLoop.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/MessageStation.h"
#include "support/Process.h"
#include "support/Scratch.h"
#include "support/TimeTest.h"

namespace utl {
namespace {

using namespace std::chrono_literals;
using namespace test;
using Numbers = std::vector<long>;

LoopOptions options(unsigned long maxTaskCount = 64, unsigned long maxTimerCount = 64) {
    LoopOptions options;
    options.maxTaskCount = maxTaskCount;
    options.maxTimerCount = maxTimerCount;
    options.maxMsgCount = 4;
    options.maxMsgSize = 8;
    return options;
}

// No task is left behind.
class LoopTest : public ManagerTest {
protected:
    void SetUp() override {
        loop = Loop::make(options());
        ASSERT_NE(nullptr, loop);
    }
    void TearDown() override {
        released.open();
        loop.reset();
        EXPECT_EQ(1, token.use_count());
        ManagerTest::TearDown();
    }

    // The loop does nothing else until `released` is opened.
    void hold() {
        loop->post([this] {
            held.open();
            released.wait();
        });
        held.wait();
    }

    // Everything that was posted before has been done.
    void settle() {
        EXPECT_TRUE(loop->call([] { return true; }).has_value());
    }

    LogCapture log;
    std::shared_ptr<int> const token = std::make_shared<int>(0);  // what tasks share
    Gate held;
    Gate released;
    Numbers order;  // of what was done, while nobody else looks
    std::unique_ptr<Loop> loop;
};

class LoopStopTest : public LoopTest, public ::testing::WithParamInterface<Rest> {};

struct Pair {
    Pair() { EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends)); }
    ~Pair() {
        close(0);
        close(1);
    }
    void close(int end) {
        if (ends[end] != -1) {
            ::close(std::exchange(ends[end], -1));
        }
    }
    void write(int end) { EXPECT_EQ(1, ::write(ends[end], "x", 1)); }
    // False at the end.
    bool read(int end) {
        char byte;
        return ::read(ends[end], &byte, 1) == 1;
    }
    int ends[2];
};

TEST_F(LoopTest, TasksAreDoneInTheOrderOfEachSenderAndDestroyedOnce) {
    constexpr long TASKS = 5000;
    std::atomic<long> last[2] = {{-1}, {-1}};
    std::atomic<int> wrong{0};
    auto const send = [&](int sender) {
        for (long i = 0; i < TASKS; ++i) {
            auto task = [&, sender, i, one = token] { wrong += last[sender].exchange(i) != i - 1; };
            while (!loop->post(std::move(task))) {
                std::this_thread::yield();
            }
        }
    };
    std::thread other([&] { send(1); });
    send(0);
    other.join();
    EXPECT_TRUE(comesTrue([&] { return last[0] + last[1] == 2 * TASKS - 2; }));
    EXPECT_EQ(0, wrong);
    EXPECT_TRUE(comesTrue([&] { return token.use_count() == 1; }));
}

TEST_F(LoopTest, WhatIsFullLeavesTheTaskWithItsSender) {
    hold();
    for (int i = 1; i < 64; ++i) {  // and the one that holds the loop
        EXPECT_TRUE(loop->post([one = token] {}));
        EXPECT_TRUE(loop->postAfter(1h, [one = token] {}));
    }
    EXPECT_TRUE(loop->every(1h, [one = token] {}));
    Pair pair;
    for (int i = 0; i < 5000; ++i) {  // each wakes the loop twice, and the pipe is full before
        EXPECT_TRUE(loop->watch(pair.ends[0], Loop::READABLE, [] {}).cancel());
    }
    auto task = [this, number = std::make_unique<long>(7)] { order.push_back(*number); };
    EXPECT_FALSE(loop->post(std::move(task)));
    EXPECT_FALSE(loop->postAfter(0s, std::move(task)));
    task();
    EXPECT_EQ(Numbers{7}, order);

    int const writeEnd = nextWriteEnd();
    auto const deaf = Loop::make(options());
    EXPECT_TRUE(comesTrue([&] { return isAsleep(deaf->thread().getId()); }));
    int const kept = dup(writeEnd);
    replaceByFull(writeEnd);
    EXPECT_FALSE(deaf->post(std::move(task)));
    dup2(kept, writeEnd);
    close(kept);
    task();
    EXPECT_EQ((Numbers{7, 7}), order);
    EXPECT_EQ(TIMED_OUT, loop->stop(Rest::DROP, -1s).result);  // the shortest limit, not none
}

TEST_F(LoopTest, ACallOvertakesAndBringsItsAnswer) {
    hold();
    loop->post([this] { order.push_back(2); });
    auto answer = inThread([this] {
        return loop->call([this] {
            order.push_back(1);
            return std::make_unique<long>(5);
        });
    });
    EXPECT_TRUE(comesTrue([this] { return loop->thread().queuedEntriesForTesting() == 2; }));
    released.open();
    EXPECT_EQ(5, **answer.get());
    EXPECT_TRUE(*loop->call([this] { return loop->call([this] { order.push_back(3); }); }));
    EXPECT_EQ((Numbers{1, 2, 3}), order);
    EXPECT_EQ(REACHED, loop->stop(Rest::DROP).result);
    EXPECT_FALSE(loop->call([] { return 1; }).has_value());
    EXPECT_FALSE(loop->call([] {}));
}

// Its entry is in the loop's hand by then.
TEST_F(LoopTest, ACallMayEraseTheMessageWhoseTurnItIs) {
    loop->on<StructMsg<A, int>>([this](int number) { order.push_back(number); });
    loop->on<StructMsg<B, int>>([this](int number) { order.push_back(number); });
    hold();
    loop->postMsg(StructMsg<A, int>(1));
    loop->postMsg(StructMsg<B, int>(2));
    auto const erased = inThread([this] {
        return loop->call([this] {
            loop->thread().eraseMsg(A);
            loop->postMsg(StructMsg<A, int>(3));
        });
    });
    EXPECT_TRUE(comesTrue([this] { return loop->thread().queuedEntriesForTesting() == 3; }));
    released.open();
    erased.wait();
    EXPECT_EQ(0u, loop->stop(Rest::RUN).dropped);
    EXPECT_EQ((Numbers{2, 3}), order);
}

TEST_F(LoopTest, WhatWasTakenBackIsGoneAndItsHandleMeansNothingElse) {
    std::optional<TaskHandle> handle = loop->postAfter(1h, [one = token] {});
    TaskHandle const copy = *handle;
    EXPECT_EQ(2, token.use_count());
    EXPECT_TRUE(handle->cancel());
    EXPECT_EQ(1, token.use_count());
    EXPECT_FALSE(copy.cancel());

    Gate done;
    {
        ScopedTask const inSamePlace = loop->postAfter(1h, [one = token] {});
        EXPECT_FALSE(copy.cancel());
        EXPECT_EQ(2, token.use_count());
        ScopedTask moved = loop->postAfter(1ms, [&] { done.open(); });
        ScopedTask const kept = std::move(moved);
        EXPECT_TRUE(done.wait());
        settle();
        EXPECT_FALSE(kept.cancel());
    }
    EXPECT_EQ(1, token.use_count());
    handle = loop->postAfter(1h, [one = token] {});
    loop.reset();
    EXPECT_EQ(1, token.use_count());
    EXPECT_FALSE(handle->cancel());
    EXPECT_FALSE(TaskHandle().cancel());
}

// Nothing begins after a cancel, and each task is run or taken back, not both and not neither.
TEST_F(LoopTest, ACancelThatRacesWithTheExpiryDecides) {
    constexpr int ROUNDS = 300;
    std::atomic<int> ran{0};
    int takenBack = 0;
    std::atomic<bool> isOver{false};
    std::thread disturbing([&] {
        while (!isOver) {
            ScopedTask const one = loop->postAfter(20us, [] {});
            ScopedTask const other = loop->every(10us, [] {});
        }
    });
    for (int i = 0; i < ROUNDS; ++i) {
        std::atomic<bool> isAlive{true};  // as long as the task may begin
        auto const use = [&] { ran += isAlive ? 1 : 1000000; };
        TaskHandle const one = loop->postAfter(std::chrono::microseconds(i % 60), use);
        if (i % 2 == 0) {
            std::this_thread::yield();
        }
        bool const isTaken = one.cancel();
        isAlive = !isTaken;
        takenBack += isTaken ? 1 : 0;
        settle();
        EXPECT_EQ(i + 1, takenBack + ran);
    }
    isOver = true;
    disturbing.join();
}

TEST_F(LoopTest, AWatchIsCalledAsLongAsThereIsSomething) {
    Pair pair;
    Counter readable;
    Counter writable;
    TaskHandle reading;
    auto const look = [&](unsigned events) {
        EXPECT_EQ(Loop::READABLE, events);
        readable.add();
        if (readable.count() > 2 && !pair.read(0)) {  // until then it leaves the byte there
            EXPECT_TRUE(reading.cancel());
        }
    };
    TaskHandle writing;
    auto const cancelAtOnce = [&](unsigned events) {
        EXPECT_EQ(Loop::WRITABLE, events);
        writable.add();
        EXPECT_EQ(std::optional<bool>(true), loop->call([&] { return writing.cancel(); }));
    };
    loop->call([&] {
        reading = loop->watch(pair.ends[0], Loop::READABLE, look);
        writing = loop->watch(pair.ends[1], Loop::READABLE | Loop::WRITABLE, cancelAtOnce);
    });
    pair.write(1);
    EXPECT_TRUE(readable.waitFor(3) && writable.waitFor(1));
    settle();
    EXPECT_EQ(3u, readable.count());
    EXPECT_EQ(1u, writable.count());
    EXPECT_FALSE(writing.cancel());
    pair.close(1);
    EXPECT_TRUE(readable.waitFor(4));
    settle();
    EXPECT_EQ(4u, readable.count());
}

TEST_F(LoopTest, ADescriptorIsWatchedOnceAndByItsRegistration) {
    Pair pair;
    int const fd = pair.ends[0];
    EXPECT_FALSE(loop->watch(-1, Loop::READABLE, [] {}));
    EXPECT_FALSE(loop->watch(fd, 0, [] {}));
    EXPECT_FALSE(loop->watch(fd, Loop::READABLE | Loop::CLOSED, [] {}));
    TaskHandle const first = loop->watch(fd, Loop::READABLE, [] {});
    EXPECT_TRUE(first);
    EXPECT_FALSE(loop->watch(fd, Loop::WRITABLE, [] {}));
    EXPECT_TRUE(first.cancel());
    Counter calls;
    TaskHandle const second = loop->watch(fd, Loop::READABLE, [&] {
        pair.read(0);
        calls.add();
    });
    EXPECT_FALSE(first.cancel());
    pair.write(1);
    EXPECT_TRUE(calls.waitFor(1));
    EXPECT_TRUE(second.cancel());
    settle();
}

// However they come and go. The numbers are so far apart that they meet in the loop's tables.
TEST_F(LoopTest, EachOfManyDescriptorsIsKnown) {
    constexpr unsigned MANY = 16;
    Pair pair;
    int fds[MANY];
    TaskHandle handles[MANY];
    std::atomic<int> calls[MANY] = {};
    auto const watch = [&](unsigned i) {
        return loop->watch(fds[i], Loop::READABLE, [&, i] { ++calls[i]; });
    };
    for (unsigned i = 0; i < MANY; ++i) {
        fds[i] = fcntl(pair.ends[0], F_DUPFD_CLOEXEC, 200 + i % 3 * 64);
    }
    std::minstd_rand random(7);
    for (int turn = 0; turn < 500; ++turn) {
        unsigned const i = static_cast<unsigned>(random() % MANY);
        if (!handles[i].cancel()) {
            handles[i] = watch(i);
            EXPECT_TRUE(handles[i]);
            EXPECT_FALSE(watch(i));
        }
    }
    pair.write(1);
    for (unsigned i = 0; i < MANY; ++i) {
        watch(i);
        EXPECT_TRUE(test::comesTrue([&] { return calls[i] > 0; }));
    }
    loop.reset();
    std::for_each(fds, fds + MANY, ::close);
}

TEST_F(LoopTest, AClosedDescriptorIsReportedOnceAndDropped) {
    Pair pair;
    Pair other;
    Counter closed;
    Counter bytes;
    TaskHandle const watched =
        loop->watch(pair.ends[0], Loop::READABLE, [&, one = token](unsigned events) {
            EXPECT_EQ(Loop::CLOSED, events);
            closed.add();
        });
    hold();
    pair.close(0);
    released.open();
    ScopedTask const whole = loop->watch(other.ends[0], Loop::READABLE, [&] {
        other.read(0);
        bytes.add();
    });
    EXPECT_TRUE(closed.waitFor(1));
    for (unsigned i = 1; i <= 3; ++i) {
        other.write(1);
        EXPECT_TRUE(bytes.waitFor(i));
    }
    settle();
    EXPECT_EQ(1u, closed.count());
    EXPECT_EQ(1u, log.count("is closed"));
    EXPECT_TRUE(comesTrue([this] { return token.use_count() == 1; }));
    EXPECT_FALSE(watched.cancel());
}

// A task that posts itself again, one that is always due and a descriptor that always has something
// are all served, and so is a call.
TEST_F(LoopTest, NothingStarvesAnythingElse) {
    Pair pair;
    pair.write(1);
    std::atomic<bool> isOver{false};
    std::atomic<long> posted{0};
    std::atomic<long> due{0};
    std::atomic<long> ready{0};
    std::function<void()> again = [&] {
        ++posted;
        if (!isOver) {
            loop->post([&] { again(); });
        }
    };
    loop->post([&] { again(); });
    ScopedTask const always = loop->every(1ns, [&] { ++due; });
    ScopedTask const full = loop->watch(pair.ends[0], Loop::READABLE, [&] { ++ready; });
    EXPECT_TRUE(comesTrue([&] { return posted > 1000 && due > 1000 && ready > 1000; }));
    settle();
    isOver = true;
    loop->stop(Rest::RUN);
    EXPECT_LT(ready / 100, posted);
    EXPECT_LT(posted / 100, ready);
    EXPECT_LT(posted / 100, due);
}

TEST_P(LoopStopTest, RunsTheRestOrDropsIt) {
    hold();
    std::atomic<unsigned long> ran{0};
    for (int i = 0; i < 10; ++i) {
        loop->post([&, one = token] { ++ran; });
    }
    loop->postAfter(1h, [one = token] {});
    loop->every(1h, [one = token] {});
    auto stopped = inThread([this] { return loop->stop(GetParam(), 1h); });
    EXPECT_TRUE(comesTrue([this] { return loop->thread().hasRequestedStop(); }));
    EXPECT_FALSE(loop->post([] {}) || loop->postAfter(0s, [] {}));
    for (int i = 0; i < 1000; ++i) {
        loop->thread().stop(0, 0);  // however often: there is room for what others ask
    }
    auto called = inThread([this] { return loop->call([] {}); });
    EXPECT_TRUE(comesTrue([this] { return loop->thread().queuedEntriesForTesting() == 12; }));
    released.open();
    StopResult const result = stopped.get();
    unsigned long const run = GetParam() == Rest::RUN ? 10 : 0;
    EXPECT_EQ(GetParam() == Rest::RUN, called.get());
    EXPECT_EQ(REACHED, result.result);
    EXPECT_EQ(run, ran);
    EXPECT_EQ(run, result.ran);
    EXPECT_EQ(11 - run, result.dropped);
    EXPECT_EQ(1, token.use_count());
    EXPECT_EQ(1u, log.count("Dropped:" + std::to_string(11 - run)));
    EXPECT_EQ(11 - run, loop->stop(GetParam()).dropped);
}

TEST_P(LoopStopTest, MayBeAskedForByATask) {
    loop->post([this] {
        loop->post([this] { order.push_back(1); });
        loop->postAfter(1h, [] {});
        EXPECT_EQ(WAIT_FAILED, loop->stop(GetParam()).result);
        EXPECT_FALSE(loop->post([] {}));
    });
    EXPECT_EQ(REACHED, loop->thread().waitTo(Thread::EXECUTED, 0));
    EXPECT_EQ(2 - order.size(), loop->stop(GetParam()).dropped);
    EXPECT_EQ(GetParam() == Rest::RUN ? 1u : 0u, order.size());
}

INSTANTIATE_TEST_SUITE_P(OfTheRest, LoopStopTest, ::testing::Values(Rest::RUN, Rest::DROP));

// A task that is never run, and calls `function` when it is destroyed.
auto whenDropped(std::function<void()> const& function) {
    return [last = std::shared_ptr<int>(nullptr, [function](int*) { function(); })] {};
}

// Whatever way the loop came to call or to drop it.
TEST_F(LoopTest, ATaskMayDestroyItsOwnLoop) {
    using Own = std::unique_ptr<Loop>;
    std::vector<std::function<void(Own&, std::function<void()>, int)>> const ways = {
        [](Own& own, auto destroy, int) { own->post(destroy); },
        [](Own& own, auto destroy, int) { own->call(destroy); },
        [](Own& own, auto destroy, int) { own->postAfter(0s, destroy); },
        [](Own& own, auto destroy, int) { own->every(1ms, destroy); },
        [](Own& own, auto destroy, int fd) { own->watch(fd, Loop::WRITABLE, destroy); },
        [](Own& own, auto destroy, int) {
            own->on<StructMsg<A, int>>([destroy](int) { destroy(); });
            own->postMsg(StructMsg<A, int>(0));
        },
        [](Own& own, auto destroy, int) {
            own->call([&own, &destroy] { own->post(whenDropped(destroy)), own->stop(Rest::DROP); });
        },
        [](Own& own, auto destroy, int) {
            own->call([&own, &destroy] {
                own->postAfter(1h, whenDropped(destroy)), own->stop(Rest::DROP);
            });
        },
    };
    for (auto const& way : ways) {
        Pair pair;
        Gate destroyed;
        std::mutex isMade;
        Own own = Loop::make(options());
        std::optional<TaskHandle> handle = own->postAfter(1h, [one = token] {});
        own->post([one = token] {});
        auto destroy = [&, one = token] {
            std::lock_guard<std::mutex> const guard(isMade);
            own->post([another = token] { ADD_FAILURE() << "is destroyed"; });
            own.reset();
            destroyed.open();
        };
        way(own, std::move(destroy), pair.ends[0]);
        EXPECT_TRUE(destroyed.wait());
        EXPECT_TRUE(comesTrue([this] { return token.use_count() == 1; }));
        EXPECT_FALSE(handle->cancel());
    }
}

TEST_F(LoopTest, WhatIsTakenBackOrRefusedMayHoldTheLastReferenceToItsLoop) {
    struct Session {
        std::unique_ptr<Loop> const own = Loop::make(options());
        TaskHandle handle;
    };
    auto session = std::make_shared<Session>();
    Session& cancelling = *session;
    cancelling.handle = cancelling.own->postAfter(1h, [last = std::move(session)] {});
    EXPECT_TRUE(cancelling.handle.cancel());

    Pair pair;
    session = std::make_shared<Session>();
    Session& watching = *session;
    watching.handle = watching.own->watch(pair.ends[0], Loop::READABLE, [] {});
    watching.own->watch(pair.ends[0], Loop::READABLE, [last = std::move(session)] {});
    EXPECT_TRUE(comesToThreads(2)) << "the test's own loop and the watchdog";
}

TEST_F(LoopTest, ItsDestructorDropsTheRestWhateverItsTasksAskFor) {
    Loop* const raw = loop.get();
    raw->post([this, raw] {
        held.open();
        EXPECT_TRUE(comesTrue([raw] { return raw->thread().hasRequestedStop(); }));
        EXPECT_FALSE(raw->post([] {}));
        EXPECT_TRUE(raw->call([] {}));
        raw->stop(Rest::RUN);
    });
    raw->post([one = token] { ADD_FAILURE() << "is run"; });
    held.wait();
    loop.reset();
}

// Whoever destroys it, the destructor of a task may call the loop.
TEST_F(LoopTest, ADestructorMayCallTheLoop) {
    std::atomic<int> refused{0};
    auto const task = [&] {
        auto const ask = [&](int*) {
            refused += !loop->post([] {}) + !loop->postAfter(1h, [] {}) + !loop->call([] {});
        };
        return [one = std::shared_ptr<int>(nullptr, ask)] {};
    };
    hold();
    loop->post(task());
    TaskHandle const takenBack = loop->postAfter(1h, task());
    loop->postAfter(1h, task());
    auto const stopped = inThread([this] { return loop->stop(Rest::DROP).result; });
    EXPECT_TRUE(comesTrue([this] { return loop->thread().hasRequestedStop(); }));
    released.open();
    takenBack.cancel();
    stopped.wait();
    EXPECT_EQ(9, refused);
    EXPECT_FALSE(log.has("Refused")) << "as a circle";
}

// The move constructor runs with a lock of the loop held.
TEST_F(LoopTest, AMoveConstructorMayNotAskTheLoop) {
    struct Asking {
        explicit Asking(Loop& ofLoop) : loop(&ofLoop) {}
        Asking(Asking&& other) noexcept : loop(other.loop) {
            EXPECT_FALSE(loop->post([] {}));
            EXPECT_FALSE(loop->call([] {}));
        }
        void operator()() {}
        Loop* loop;
    };
    EXPECT_TRUE(loop->post(Asking(*loop)));
    EXPECT_TRUE(log.has("Refused"));
    settle();
}

TEST_F(LoopTest, ItIsAMessageDrivenThread) {
    Station station;
    LoopOptions with = options();
    with.name = "harbour";
    with.listener = &station;
    with.aliveTime = 1h;
    auto const both = Loop::make(with);
    EXPECT_TRUE(*both->call([] {
        int const id = ThreadManager::getCallerId();
        return manager()->isRegisteredWatchdog(id) &&
               std::string("harbour") == manager()->getName(id);
    }));
    EXPECT_EQ(1, both->sendMsgSync(NumberMsg(0x8003, 2)));
    auto const note = [&] { order.push_back(static_cast<long>(station.heard().size())); };
    both->post(note);
    both->postMsg(NumberMsg(0x8002, 1));
    both->post(note);
    both->stop(Rest::RUN);
    EXPECT_EQ((Numbers{1, 2}), order);
}

TEST_F(LoopTest, HandlersByTypeAnswerAndATaskThatEndsItsLoopIsNotDropped) {
    using SquareMsg = StructMsg<0x8400, int, int>;
    EXPECT_TRUE(loop->on<SquareMsg>([](int side) { return side * side; }));
    EXPECT_FALSE(loop->on<SquareMsg>([](int side) { return side; }));
    EXPECT_EQ(9, loop->ask<SquareMsg>(3));
    unsigned long dropped = 1;
    loop->post([&] { dropped = loop->stop(Rest::RUN).dropped; });
    loop->stop(Rest::RUN);
    EXPECT_EQ(0u, dropped);
}

TEST_F(LoopTest, AForkedChildHasNoLoop) {
    Pair pair;
    TaskHandle const waiting = loop->postAfter(1h, [one = token] {});
    loop->on<StructMsg<A, int>>([one = token](int) {});
    auto const deny = [&] {
        EXPECT_FALSE(loop->post([] {}) || loop->postAfter(0s, [] {}) || waiting.cancel());
        EXPECT_FALSE(loop->watch(pair.ends[0], Loop::READABLE, [] {}));
        EXPECT_EQ(WAIT_FAILED, loop->stop(Rest::RUN).result);
    };
    EXPECT_EQ(std::optional<bool>(true), loop->call([&] { return inChild(deny); }));
    EXPECT_TRUE(inChild([&] {
        deny();
        EXPECT_FALSE(loop->call([] {}));
        loop.reset();
        EXPECT_EQ(3, token.use_count());
    }));
}

TEST_F(LoopTest, WithoutDescriptorsOrKernelTimersThereIsNone) {
    // A sanitizer that meets a class for the first time needs a descriptor itself.
    EXPECT_NE(nullptr, Loop::make(options()));
    {
        NoDescriptors const none;
        EXPECT_EQ(nullptr, Loop::make(options()));
    }
    EXPECT_TRUE(log.has("Loop(loop) cannot begin"));
    {
        NoPendingSignals const none;
        EXPECT_EQ(nullptr, Loop::make(options()));
        EXPECT_NE(nullptr, Loop::make(options(64, 0)));
    }
}

TEST_F(LoopTest, ItLooksAtTheClockItselfWhereItsKernelTimerIsRefused) {
    Gate late;
    EXPECT_TRUE(loop->postAfter(5ms, [&] { late.open(); }));
    for (int const timer : kernelTimersOf(loop->thread().getId())) {
        syscall(SYS_timer_delete, timer);
    }
    EXPECT_TRUE(comesTrue([&] {
        loop->postAfter(1h, [] {});
        return late.isOpen();
    })) << "what should have come is looked for";
    EXPECT_FALSE(loop->postAfter(1h, [] {}));
    Gate thrice;
    int times = 0;
    auto const count = [&] { ++times == 3 ? thrice.open() : void(); };
    loop->call([&] { loop->every(1ms, count); });
    EXPECT_TRUE(thrice.wait());
    EXPECT_EQ(1u, log.count("<UTIL> ERR: MsgDrivenThread(loop) timer_settime SysTimerId:0x"));
    loop->stop(Rest::DROP);  // it uses what goes now
}

// By a clock that the test moves.
class LoopTimeTest : public ManualTimeTest {
protected:
    void TearDown() override {
        loop.reset();
        ManualTimeTest::TearDown();
    }

    std::unique_ptr<Loop> loop = Loop::make(options());
};

// Whatever the loop sleeps in: read(), or poll() while it watches something.
TEST_F(LoopTimeTest, DelayedTasksComeInTheOrderInWhichTheyAreDue) {
    Pair pair;
    for (bool const isWatching : {false, true}) {
        ScopedTask const watch =
            isWatching ? loop->watch(pair.ends[0], Loop::READABLE, [] {}) : TaskHandle();
        std::string order;
        auto const note = [&](char letter) { return [&, letter] { order += letter; }; };
        ScopedTask const every = loop->every(20ms, note('e'));
        ScopedTask const never = loop->postAfter(std::chrono::hours::max(), note('x'));
        EXPECT_TRUE(loop->postAfter(50ms, note('d')) && loop->postAfter(30ms, note('c')));
        EXPECT_TRUE(loop->postAfter(0ms, note('a')) && loop->postAfter(-5ms, note('b')));
        clock.settle();
        EXPECT_EQ("ab", order);
        // On the loop's thread, in front of all the others.
        EXPECT_TRUE(*loop->call([&] { return bool{loop->postAfter(1ms, note('0'))}; }));
        pass(1);
        EXPECT_EQ("ab0", order);
        pass(48);
        EXPECT_EQ("ab0ece", order);
        pass(51);
        EXPECT_EQ("ab0ecedeee", order);
    }
}

TEST_F(LoopTimeTest, EveryKeepsToItsGridAndTellsWhatWasMissed) {
    using Call = std::pair<long, unsigned long>;
    std::vector<Call> calls;
    Hold released;
    ScopedTask const task = loop->every(20ms, [&](unsigned long missed) {
        calls.emplace_back(clock.now() / 1ms, missed);
        released.wait();
    });
    pass(75);
    released.open();
    pass(45);
    EXPECT_EQ((std::vector<Call>{{20, 0}, {75, 1}, {80, 0}, {100, 0}, {120, 0}}), calls);
    EXPECT_FALSE(loop->every(0ms, [] {}));
    EXPECT_FALSE(loop->every(-1ms, [] {}));
}

TEST_F(LoopTimeTest, NoTaskBeginsOnceTheTimeForTheRestIsOver) {
    for (int i = 0; i < 60; ++i) {
        loop->post([] { Thread::sleep(10); });
    }
    auto stopped = inThread([this] { return loop->stop(Rest::RUN, 35ms).result; });
    EXPECT_TRUE(comesTrue([this] { return loop->thread().hasRequestedStop(); }));
    pass(1000);
    EXPECT_NE(WAIT_FAILED, stopped.get());
    EXPECT_EQ(56u, loop->stop(Rest::DROP).dropped);
}

}  // namespace
}  // namespace utl
