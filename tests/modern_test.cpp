// What takes durations and views, files that are replaced at once, and dumps into buffers. With
// heap accounting switched on.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "UtlFile.h"
#include "UtlMemory.h"
#include "UtlMsgDrivenThread.h"
#include "UtlThreadManager.h"
#include "UtlTimepiece.h"
#include "UtlTimer.h"

#include "support/FencedBuffer.h"
#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/MessageStation.h"
#include "support/Scratch.h"
#include "support/Worker.h"

namespace utl {
namespace {

using namespace std::chrono_literals;
using namespace std::string_view_literals;
using namespace test;

// Durations.

constexpr unsigned long LONGEST = std::numeric_limits<unsigned long>::max();
constexpr bool IS_32_BIT = LONGEST == 0xFFFFFFFFul;
using Sixtieths = std::chrono::duration<int, std::ratio<1, 60>>;

static_assert(Duration(0ms).milliseconds() == 0 && Duration(0ms).atLeastOne() == 1);
static_assert(Duration(-5h).milliseconds() == 0 && Duration(-5h).atLeastOne() == 1);
static_assert(Duration(1ns).milliseconds() == 1 && Duration(2000us).milliseconds() == 2);
static_assert(Duration(2001us).milliseconds() == 3 && Duration(2min).milliseconds() == 120000);
static_assert(Duration(Sixtieths(1)).milliseconds() == 17);  // of 16 2/3
static_assert(Duration(0.5s).milliseconds() == 500 && Duration(0.0001ms).milliseconds() == 1);
static_assert(Duration(std::chrono::hours::max()).milliseconds() == LONGEST);
static_assert(Duration(std::chrono::duration<double>(1e300)).milliseconds() == LONGEST);
static_assert(Duration(1s * std::numeric_limits<double>::quiet_NaN()).milliseconds() == 0);
static_assert(Duration(4294967296ms).milliseconds() == (IS_32_BIT ? LONGEST : 4294967296ull));
static_assert(Duration(std::chrono::nanoseconds::max()).milliseconds() ==
              (IS_32_BIT ? LONGEST : 9223372036855ull));
static_assert(!std::is_convertible_v<int, Duration>);

class ModernThreads : public ManagerTest {};

TEST_F(ModernThreads, AWaitOfNoTimeIsNoWaitWithoutLimit) {
    Event const never(0, Event::TWO_CONDITIONS);
    EXPECT_EQ(TIMED_OUT, never.waitToOn(0ms));
    EXPECT_EQ(TIMED_OUT, never.waitToOn(-1h));
    Gate mayEnd;
    Worker stubborn("stubborn", [&] { return mayEnd.wait(); });
    stubborn.start();
    EXPECT_EQ(TIMED_OUT, stubborn.stop(0ms));
    EXPECT_EQ(TIMED_OUT, manager()->waitToStop(stubborn.getId(), 0ms));
    mayEnd.open();
    Station station;
    EXPECT_EQ(0, station->start(&station, {}));
    EXPECT_LT(0, station->setTimer(0ms, 0, 1));
    EXPECT_TRUE(station.waitFor(TimerMsg::ID));
    EXPECT_EQ(-1, station->setTimer(std::chrono::hours::max()));  // the kernel takes 31 bits
}

TEST_F(ModernThreads, NothingEndsBeforeItsTime) {
    TimeCounter counter;
    EXPECT_FALSE(counter.elapsedTime());
    counter.start();
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(TIMED_OUT, Event(0, 0).waitToOn(2100us));
    Thread::sleep(1010ms);
    EXPECT_LE(1012100us, std::chrono::steady_clock::now() - begin);
    EXPECT_LE(1012ms, counter.elapsedTime());
}

TEST_F(ModernThreads, OptionsSayWhatIsNotAsUsual) {
    StartOptions options;
    options.priority = ThreadPriority::LOW;
    options.aliveTime = 61s;
    Worker worker("worker");
    EXPECT_EQ(0, worker.Thread::start(options));
    ThreadPriority priority(ThreadPriority::HIGH);
    EXPECT_TRUE(worker.getPriority(&priority) && priority == ThreadPriority::LOW);
    char table[4096];
    manager()->storeWatchdogInfo(table, sizeof table);
    EXPECT_NE(nullptr, std::strstr(table, "     61000, NOT_WATCHING"));
}

// Dumps.

// All of it; and in less room the longest beginning that ends with a line.
template <typename Dump>
std::string stored(Dump dump) {
    std::string whole(dump(nullptr, 0), '#');
    EXPECT_EQ(whole.size(), dump(whole.data(), whole.size()));
    EXPECT_EQ('\0', whole.back());
    whole.pop_back();
    unsigned long const second = whole.find('\n', whole.find('\n') + 1) + 1;  // the head's end
    for (unsigned long size = second; size <= whole.size(); ++size) {
        FencedBuffer buffer(size);
        EXPECT_EQ(whole.size() + 1, dump(buffer.data(), size));
        unsigned long const end = size > second ? whole.rfind('\n', size - 2) + 1 : 0;
        EXPECT_EQ(0, whole.compare(0, end != 0 ? end : std::strlen(buffer.data()), buffer.data()));
        EXPECT_TRUE(buffer.fencesIntact());
    }
    return whole;
}

TEST_F(ModernThreads, ATableIsTheSameInTheLogAndInABuffer) {
    manager()->entryCaller(1, 60000, nullptr, "t\xC3\xA9st");
    LogCapture log;
    manager()->printThreadInfoReg(3);
    manager()->printWatchdogInfo(3);
    std::string logged;
    for (LogLine const& line : log.all()) {
        logged += line.text.substr(12, line.text.size() - 14) + '\n';  // "<UTIL> DTL: ", "\r\n"
    }
    std::string const registry = stored(
        [](char* dst, unsigned long size) { return manager()->storeThreadInfoReg(dst, size); });
    EXPECT_EQ(logged, registry + stored([](char* dst, unsigned long size) {
                          return manager()->storeWatchdogInfo(dst, size);
                      }));
}

TEST(ModernMemory, AHeapDumpIsTheSameInAFileAndInABuffer) {
    Scratch const scratch;
    Memory* const memory = Memory::get();
    auto const allocate = [=](std::uintptr_t address) {
        memory->updateManagement(0, reinterpret_cast<void*>(address), 7, NONE, 12);
    };
    allocate(64);
    EXPECT_EQ(NONE, memory->storeMarkedHeapDetail(nullptr, 0));
    memory->mark();
    allocate(128);
    allocate(32);
    memory->printMarkedHeapDetail(0, scratch("dump"));
    EXPECT_EQ(scratch.content("dump"), stored([=](char* dst, unsigned long size) {
                  return memory->storeMarkedHeapDetail(dst, size);
              }));
    Memory::destroy();
}

// Views.

TEST(ModernStrings, AViewIsStoredUpToItsEndOnACharacter) {
    struct {
        std::string_view text;
        unsigned long room;
        int trunc;
        std::string_view stored;  // without a data pointer where nothing is
    } const cases[] = {
        {"abc", 4, WHOLE, "abc"},
        {"abc", 3, WHOLE, {}},
        {"abc", 3, TRUNCATE, "ab"},
        {"a\xC3\xA9", 3, TRUNCATE, "a"},
        {"a\xC3"sv, 9, WHOLE, "a"},  // the end of the view cuts it
        {"a\xE3\x81"sv, 9, TRUNCATE, "a"},
        {"\xF0\x9F\x98"sv, 9, WHOLE, ""},
        {"a\xF0\x9F\x98\x80", 9, WHOLE, "a\xF0\x9F\x98\x80"},
        {"ab\0cd"sv, 9, WHOLE, "ab"},
        {{}, 1, WHOLE, ""},
        {"\x80\x80\x80"sv, 2, TRUNCATE, {}},
    };
    for (auto const& one : cases) {
        std::vector<char> const exact(one.text.begin(), one.text.end());  // nothing behind it
        std::string_view const view(exact.data(), exact.size());
        FencedBuffer dst(one.room);
        unsigned long const expected = one.stored.data() != nullptr ? one.stored.size() + 1 : NONE;
        EXPECT_EQ(expected, copyStr(dst.data(), one.room, view, one.trunc)) << one.text;
        EXPECT_TRUE(expected == NONE ? dst.isUntouched() : dst.data() == one.stored) << one.text;
        EXPECT_TRUE(dst.fencesIntact());
    }
    EXPECT_EQ(4u, copyStr(nullptr, 0, "abc"sv, WHOLE));
}

TEST(ModernStrings, AStringTakesViewsOfItselfToo) {
    BasicString<char> text("0123456", 8, BasicString<char>::FIXED);
    text += text.view().substr(2, 3);
    EXPECT_EQ("0123456234"sv, text.view());
    text = text.view().substr(5);
    EXPECT_EQ("56234"sv, text.view());
    EXPECT_EQ(1, text.copy("\xC3\xA9\xC3\xA9"sv.substr(0, 3), WHOLE));
    EXPECT_STREQ("\xC3\xA9", text.c_str());
    EXPECT_EQ(1, text.combine(std::string(20, 'x'), TRUNCATE));
    EXPECT_EQ(text.capacity() - 1, text.length());
    EXPECT_EQ(0, text.combine("y"sv, WHOLE));
    text.copyShallow("lent");
    text += "er"sv;
    EXPECT_EQ("lenter"sv, text.view());
    text = ""sv;
    EXPECT_EQ(0u, text.length());
}

// Files that are replaced.

unsigned entries(Scratch const& scratch) {
    std::filesystem::directory_iterator const all(scratch.path());
    return static_cast<unsigned>(std::distance(begin(all), end(all)));
}

std::function<void()> halfWay;  // of a replacement that has written its file, once

}  // namespace

// In place of the C library's.
extern "C" int fsync(int descriptor) {
    if (halfWay != nullptr) {
        std::exchange(halfWay, nullptr)();
    }
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

namespace {

TEST(ModernFiles, AReplacementKeepsModesTargetsAndReadersAndYieldsToWriters) {
    Scratch const scratch;
    EXPECT_TRUE(asNobody([&] {
        umask(027);
        EXPECT_EQ(1, File::replace(scratch("new/file"), "one\0two"sv));
        EXPECT_EQ(0777u, scratch.mode("new/file"));
        File::setModePolicy(File::KEEP_MODES);
        EXPECT_EQ(1, File::replace(scratch("kept"), nullptr, 0));
        EXPECT_EQ(0640u, scratch.mode("kept"));
        chmod(scratch("kept"), 04603);
        File reader(scratch("kept"), File::UTF8);
        EXPECT_EQ(1, reader.open(File::AS_IT_IS, File::READ));
        EXPECT_EQ(1, File::replace(scratch("kept"), "private"));
        EXPECT_EQ(0603u, scratch.mode("kept"));
        EXPECT_EQ(0, reader.size());
        scratch.link("kept", "link");
        EXPECT_EQ(1, File::replace(scratch("link"), "in place of the link"));
        EXPECT_EQ("in place of the link", scratch.content("link"));
        File::applyReadOnly(scratch("link"), 0);
        for (char const* path : {scratch("link"), scratch("new"), scratch("new//file")}) {
            EXPECT_EQ(0, File::replace(path, "x")) << path;
        }
        File writer(scratch("kept"), File::UTF8);
        EXPECT_EQ(1, writer.open(File::AS_IT_IS, File::WRITE));
        EXPECT_EQ(0, File::replace(scratch("kept"), "lost"));
        EXPECT_EQ("private", scratch.content("kept"));
        EXPECT_EQ(3u, entries(scratch));
    }));
}

// The limit of a file's size stands for a full disk; its signal, where it is not ignored, kills the
// process half way.
TEST(ModernFiles, AFailureHalfWayLeavesTheOldFile) {
    Scratch const scratch;
    char const* const path = scratch.file("file", "old");
    NoMore<RLIMIT_CORE> const noCore;
    auto const replace = [=](void (*onSignal)(int)) {
        rlimit const most = {4096, 4096};
        setrlimit(RLIMIT_FSIZE, &most);
        signal(SIGXFSZ, onSignal);
        LogCapture log;
        EXPECT_EQ(0, File::replace(path, std::string(10000, 'x')));
        EXPECT_TRUE(log.has("replace Failed. errno[" + std::to_string(EFBIG) + "] Path:" + path));
    };
    EXPECT_TRUE(inChild([=] { replace(SIG_IGN); }));
    EXPECT_EQ(1u, entries(scratch));
    EXPECT_FALSE(inChild([=] { replace(SIG_DFL); }));
    EXPECT_EQ("old", scratch.content("file"));
    EXPECT_EQ(2u, entries(scratch));
}

TEST(ModernFiles, WhatAKilledReplacementHasLeftIsRemoved) {
    test::Scratch const scratch;
    char const* const path = scratch.file("file", "old");
    scratch.file(".utl-0123456789ABCDEF.tmp");
    scratch.file(".utl-0123456789abcdef.tmp.");
    scratch.directory(".utl-0000000000000001.tmp");
    scratch.link("file", ".utl-0000000000000002.tmp");
    EXPECT_EQ(0, mkfifo(scratch(".utl-0000000000000003.tmp"), 0666));
    EXPECT_FALSE(test::inChild([=] {
        halfWay = [] { raise(SIGKILL); };
        File::replace(path, "lost");
    }));
    EXPECT_EQ(7u, entries(scratch));
    EXPECT_EQ(1, File::replace(path, "new"));
    EXPECT_EQ(6u, entries(scratch));
}

// While one is at work another one leaves its file alone; where that could not be, it starts over.
// A child of a fork has the directory's lock no longer than its parent.
TEST(ModernFiles, AReplacementAtWorkIsNotSwept) {
    test::Scratch const scratch;
    pid_t child = 0;
    halfWay = [&] {
        EXPECT_EQ(1, File::replace(scratch("other"), "other"));
        EXPECT_EQ(2u, entries(scratch));
        for (auto const& entry : std::filesystem::directory_iterator(scratch.path())) {
            EXPECT_TRUE(entry.path().extension() != ".tmp" || std::filesystem::remove(entry));
        }
        child = fork();
        if (child == 0) {
            pause();
        }
    };
    EXPECT_EQ(1, File::replace(scratch("file"), "new"));
    EXPECT_EQ("new", scratch.content("file"));
    scratch.file(".utl-0123456789abcdef.tmp");
    EXPECT_EQ(1, File::replace(scratch("file"), "newer"));
    EXPECT_EQ(2u, entries(scratch));
    kill(child, SIGKILL);
    EXPECT_EQ(-1, test::exitCodeOf(child));
}

TEST(ModernFiles, WhoeverLooksSeesAWholeFile) {
    Scratch const scratch;
    char const* const path = scratch("file");
    std::atomic<bool> isOver{false};
    auto const replace = [=](char letter) {
        for (int times = 0; times < 60; ++times) {
            EXPECT_EQ(1, File::replace(path, std::string(9000, letter)));
        }
    };
    auto const look = inThread([&] {
        while (!isOver.load()) {
            std::string const content = scratch.content("file");
            EXPECT_TRUE(content.empty() || content == std::string(9000, content[0]));
        }
    });
    auto const other = inThread([=] { replace('b'); });
    replace('a');
    other.wait();
    isOver.store(true);
    look.wait();
    EXPECT_EQ(1u, entries(scratch));
}

}  // namespace
}  // namespace utl
