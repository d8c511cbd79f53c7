// What takes durations and views, files that are replaced at once, and dumps into buffers. With
// heap accounting switched on.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
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

class ModernThreads : public test::ManagerTest {};

TEST_F(ModernThreads, AWaitOfNoTimeIsNoWaitWithoutLimit) {
    Event const never(0, Event::TWO_CONDITIONS);
    EXPECT_EQ(TIMED_OUT, never.waitToOn(0ms));
    EXPECT_EQ(TIMED_OUT, never.waitToOn(-1h));
    test::Gate mayEnd;
    test::Worker stubborn("stubborn", [&] { return mayEnd.wait(); });
    stubborn.start();
    EXPECT_EQ(TIMED_OUT, stubborn.stop(0ms));
    EXPECT_EQ(TIMED_OUT, manager()->waitToStop(stubborn.getId(), 0ms));
    mayEnd.open();
    test::Station station;
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
    Thread::sleep(2100us);
    EXPECT_LE(4200us, std::chrono::steady_clock::now() - begin);
    EXPECT_LE(4ms, counter.elapsedTime());
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
        test::FencedBuffer dst(one.room);
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

}  // namespace
}  // namespace utl
