#include "UtlLog.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "UtlMemory.h"
#include "UtlThreadManager.h"

#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/Scratch.h"

namespace {

// A registered type stays. There is room for 62: all that these tests register are of these.
constexpr int TYPE = 130;
constexpr int UNREGISTERED_TYPE = 99;

std::vector<int> sixtyTwoTypes() {
    std::mt19937 random(1);
    std::vector<int> types = {TYPE};
    while (types.size() < 62) {
        types.push_back(static_cast<int>(random()));
    }
    return types;
}

constexpr char LONGEST_NAME[] = "1234567890123456789012345678901";

using Lines = std::vector<std::string>;

// Each call of the system log, as "priority tag: text".
Lines calls(test::LogCapture const& log) {
    Lines all;
    for (test::LogLine const& line : log.all()) {
        all.push_back(std::to_string(line.priority) + " " + line.tag + ": " + line.text);
    }
    return all;
}

Lines const linesBeforeMain = [] {
    test::LogCapture const log;
    registerLogType(TYPE, "<EARLY> ", 2);
    applog(TYPE, 2, "registered");
    applog(TYPE, 3, "dropped");
    applog(-2, 3, "built in");
    return calls(log);
}();

class LogTest : public ::testing::Test {
protected:
    LogTest() { registerLogType(TYPE, "<T> ", 3); }
    ~LogTest() override {
        setAllFilterLevel(3);
        setLogTag("");
    }
    test::LogCapture log;
};

TEST_F(LogTest, StaticConstructorsMayLog) {
    EXPECT_EQ((Lines{"4 XM_SYSERR: <EARLY> INF: registered\r\n", "4 : <EARLY> INF: registered\r\n",
                     "3 : <UTIL> DTL: built in\r\n"}),
              linesBeforeMain);
}

TEST_F(LogTest, LevelDecidesPrefixPriorityAndTags) {
    setAllFilterLevel(4);
    setLogTag("TAG");
    for (int const level : {0, 1, 2, 3, 4, 5, INT_MIN}) {
        applog(TYPE, level, "%d", level);
    }
    rawlog(TYPE, 2, "raw");
    EXPECT_EQ((Lines{"5 XM_SYSERR: <T> ERR: 1\r\n", "5 TAG: <T> ERR: 1\r\n",
                     "4 XM_SYSERR: <T> INF: 2\r\n", "4 TAG: <T> INF: 2\r\n",
                     "3 TAG: <T> DTL: 3\r\n", "2 TAG: <T> DBG: 4\r\n", "2 TAG: <T> DBG: 5\r\n",
                     "2 TAG: <T> DBG: -2147483648\r\n", "4 XM_SYSERR: raw", "4 TAG: raw"}),
              calls(log));
}

TEST_F(LogTest, FilterLetsLevelsUpToItsOwnPass) {
    // Of the levels 0 to 4 and -1, which counts as 4.
    for (auto const& [filter, passing] :
         {std::pair{0, 0u}, {1, 1u}, {3, 3u}, {4, 5u}, {5, 5u}, {-1, 5u}}) {
        setFilterLevel(TYPE, filter);
        setFilterLevel(-2, filter);
        log.clear();
        for (int const level : {0, 1, 2, 3, 4, -1}) {
            applog(TYPE, level, "text");
            rawlog(-2, level, "text");
        }
        EXPECT_EQ(2 * passing, log.count("text")) << "filter " << filter;
    }
}

TEST_F(LogTest, UnregisteredTypesFollowTheFallback) {
    setFilterLevel(UNREGISTERED_TYPE, 4);
    EXPECT_EQ(5, getFilterLevel(UNREGISTERED_TYPE));
    applog(UNREGISTERED_TYPE, 3, "no name");
    applog(UNREGISTERED_TYPE, 4, "dropped");
    registerLogType(-1, "<FALLBACK> ", 4);
    applog(UNREGISTERED_TYPE, 4, "passes");
    registerLogType(-1, "", 3);
    EXPECT_EQ((Lines{"3 : DTL: no name\r\n", "2 : <FALLBACK> DBG: passes\r\n"}), calls(log));
}

TEST_F(LogTest, LineOfMoreThan255BytesIsCut) {
    auto const expectKept = [&](std::string const& typeName, unsigned long textLength,
                                unsigned long kept, char const* end) {
        log.clear();
        ASSERT_TRUE(registerLogType(TYPE, typeName.c_str(), 3));
        applog(TYPE, 3, "%s", std::string(textLength, 'x').c_str());
        EXPECT_EQ(Lines{"3 : " + typeName + "DTL: " + std::string(kept, 'x') + end}, calls(log));
    };
    expectKept("", 248, 248, "\r\n");
    expectKept("", 249, 245, "...\r\n");
    expectKept(LONGEST_NAME, 217, 217, "\r\n");
    expectKept(LONGEST_NAME, 218, 214, "...\r\n");
    expectKept(LONGEST_NAME, 1000, 214, "...\r\n");
    log.clear();
    rawlog(TYPE, 3, "%s", std::string(256, 'x').c_str());
    EXPECT_EQ(Lines{"3 : " + std::string(252, 'x') + "..."}, calls(log));
}

TEST_F(LogTest, OnlyTheFormatIsTakenForOne) {
    constexpr wchar_t NO_CHARACTER[] = {static_cast<wchar_t>(0xDC00), 0};
    int (*const unchecked)(int, int, char const*, ...) = applog;
    registerLogType(TYPE, "%s ", 3);
    errno = ENOENT;
    applog(TYPE, 1, "%s", "%d");
    applog(TYPE, 3, "before %ls after", NO_CHARACTER);
    rawlog(TYPE, 3, "before %ls after", NO_CHARACTER);
    unchecked(TYPE, 3, nullptr);
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ((Lines{"5 XM_SYSERR: %s ERR: %d\r\n", "5 : %s ERR: %d\r\n", "3 : %s DTL: before \r\n",
                     "3 : before "}),
              calls(log));
}

TEST_F(LogTest, NamesAndTagsHave31BytesAtTheMost) {
    std::string const tooLong = std::string(LONGEST_NAME) + "2";
    EXPECT_TRUE(registerLogType(TYPE, LONGEST_NAME, 3) && setLogTag(LONGEST_NAME));
    EXPECT_FALSE(registerLogType(TYPE, tooLong.c_str(), 4) || registerLogType(TYPE, nullptr, 4));
    EXPECT_FALSE(setLogTag(tooLong.c_str()) || setLogTag(nullptr));
    applog(TYPE, 4, "dropped still");
    rawlog(-1, 3, "text");
    EXPECT_EQ(Lines{std::string("3 ") + LONGEST_NAME + ": text"}, calls(log));
}

TEST_F(LogTest, NameAndFilterAreThoseOfOneMoment) {
    std::atomic<bool> isOver{false};
    std::thread changing([&isOver] {
        for (int i = 0; i < 20000; ++i) {
            registerLogType(TYPE, "<lets all pass by> ", 4);
            registerLogType(TYPE, "<DROPS> ", 3);
        }
        isOver = true;
    });
    while (!isOver) {
        applog(TYPE, 4, "line");
    }
    changing.join();
    for (std::string const& call : calls(log)) {
        ASSERT_EQ("2 : <lets all pass by> DBG: line\r\n", call);
    }
}

TEST_F(LogTest, TableHolds62FurtherTypes) {
    for (int const type : sixtyTwoTypes()) {
        EXPECT_TRUE(registerLogType(type, "<F> ", type & 3));
    }
    EXPECT_FALSE(registerLogType(UNREGISTERED_TYPE, "<F> ", 3));
    for (int const type : sixtyTwoTypes()) {
        EXPECT_EQ(type & 3, getFilterLevel(type));
    }
    EXPECT_EQ(5, getFilterLevel(UNREGISTERED_TYPE));
    EXPECT_EQ(6, getFilterLevel(-1) + getFilterLevel(-2));
    setAllFilterLevel(4);
    EXPECT_EQ(12, getFilterLevel(-1) + getFilterLevel(-2) + getFilterLevel(TYPE));
}

// Keeps "type level tag typeName|text". Loses errors.
bool keepRecord(utl::LogRecord const& record, void* records) {
    auto const age = std::chrono::system_clock::now() - record.time;
    EXPECT_TRUE(age.count() >= 0 && age < test::PATIENCE);
    EXPECT_EQ(utl::ThreadManager::getCallerId(), record.threadId);
    EXPECT_EQ(
        0, record.typeName.data()[record.typeName.size()] + record.text.data()[record.text.size()]);
    static_cast<Lines*>(records)->push_back(
        std::to_string(record.type) + ' ' + std::to_string(record.level) + ' ' + record.tag.data() +
        ' ' + record.typeName.data() + '|' + record.text.data());
    rawlog(record.type, 3, "by the sink");
    return record.level != utl::LEVEL_ERROR;
}

TEST_F(LogTest, OwnSinkIsGivenWhatLinesAreMadeOf) {
    Lines records;
    unsigned long const lost = lostLogLines();
    setLogTag("TAG");
    setLogSink(keepRecord, &records);
    applog(TYPE, utl::LEVEL_ERROR, "%s\n", "an error");
    rawlog(UNREGISTERED_TYPE, utl::LEVEL_INFORMATION, "raw\r\n");
    rawlog(TYPE, utl::LEVEL_DETAIL, "no name");
    applog(utl::LIBRARY_LOG, utl::LEVEL_DETAIL, "%0300d", 0);
    utl::Memory::get()->printMessage(1, -1, "heap\n");
    EXPECT_EQ(lost + 1, lostLogLines());
    EXPECT_TRUE(test::inChild([] {
        EXPECT_EQ(0u, lostLogLines());
        rawlog(TYPE, utl::LEVEL_ERROR, "%s", "");
        EXPECT_EQ(1u, lostLogLines());
    }));
    setLogSink(nullptr, nullptr);
    applog(TYPE, 3, "as before");
    EXPECT_EQ((Lines{"130 1 TAG <T> |an error", "99 2 TAG |raw", "130 3 TAG |no name",
                     "-2 3 TAG <UTIL> |" + std::string(238, '0') + "...", "-2 2 UtlMemory |heap"}),
              records);
    EXPECT_EQ(5u, log.count("by the sink"));
    EXPECT_EQ("<T> DTL: as before\r\n", log.all().back().text);
}

TEST_F(LogTest, ReplacedSinkIsNotCalledAnyMore) {
    auto const sink = [](utl::LogRecord const&, void* isGone) {
        return !*static_cast<bool*>(isGone);
    };
    std::atomic<bool> isOver{false};
    unsigned long const lost = lostLogLines();
    std::thread logging([&isOver] {
        while (!isOver) {
            applog(TYPE, 3, "line");
        }
    });
    for (int i = 0; i < 1000; ++i) {
        bool isGone = false;
        setLogSink(sink, &isGone);
        setLogSink(nullptr, nullptr);
        isGone = true;
    }
    isOver = true;
    logging.join();
    EXPECT_EQ(lost, lostLogLines());
}

using Filters = std::vector<int>;  // of NET, the library, and others

TEST_F(LogTest, EnvironmentSetsFiltersOfTypesThatAreThereOrCome) {
    int const later = sixtyTwoTypes()[1];
    auto const expectFilters = [&](std::string const& text, Filters const& filters,
                                   std::string const& ignored = "") {
        registerLogType(TYPE, "<NET> ", 2);
        setenv("UTL_LOG", text.c_str(), 1);
        EXPECT_TRUE(test::inChild([&] {
            EXPECT_EQ(ignored.empty(), configureLogFromEnvironment());
            EXPECT_EQ(!ignored.empty(), log.has("UTL_LOG ignored: " + ignored));
            registerLogType(later, "NET", 2);
            EXPECT_EQ(filters[0], getFilterLevel(later));
            EXPECT_EQ(filters,
                      (Filters{getFilterLevel(TYPE), getFilterLevel(-2), getFilterLevel(-1)}));
        })) << text;
    };
    expectFilters("*=2,NET=4", {4, 2, 2});
    expectFilters(" NET = debug , * = none", {4, 0, 0});
    expectFilters("UTIL=error,NET=info,<NET>=detail,", {3, 1, 3});
    expectFilters("*=5,NET,=4,,NET=1,x=high", {1, 3, 3}, "*=5,NET,=4,,x=high");
    expectFilters("*=0,x", {0, 0, 0}, "x");
    expectFilters("*=4," + std::string(252, 'x'), {2, 3, 3}, "*=4,xxx");
}

}  // namespace
