#include "UtlFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "UtlLog.h"

#include "foundation/UtlBlockingCall.h"
#include "support/LogCapture.h"
#include "support/Process.h"
#include "support/Scratch.h"

namespace {

using test::LogCapture;
using test::Scratch;
using utl::File;

constexpr int UTF8 = File::UTF8;

std::string read(File& file) {
    char bytes[64];
    long const got = file.read(bytes, sizeof bytes);
    return got >= 0 ? std::string(bytes, static_cast<unsigned long>(got)) : std::to_string(got);
}

// Opening a file that holds "old", and what it holds when "+" was written where that can be.
struct Opening {
    char const* name;
    int mode;
    int access;
    int result;
    char const* content;
};

class FileOpenTest : public ::testing::TestWithParam<Opening> {};

TEST_P(FileOpenTest, TakesTheModeForTheAccess) {
    Scratch const scratch;
    File file(scratch.file("file", "old"), UTF8);
    EXPECT_EQ(GetParam().result, file.open(GetParam().mode, GetParam().access));
    EXPECT_EQ(GetParam().result, file.isOpened());
    file.write("+", 1);
    EXPECT_EQ(GetParam().content, scratch.content("file"));
}

INSTANTIATE_TEST_SUITE_P(
    Modes, FileOpenTest,
    ::testing::Values(Opening{"Read", 0, 0, 1, "old"}, Opening{"ReadAtTheEnd", 1, 0, 1, "old"},
                      Opening{"TruncateToRead", 2, 0, 0, "old"}, Opening{"Write", 0, 1, 1, "+ld"},
                      Opening{"Append", 1, 1, 1, "old+"}, Opening{"Empty", 2, 1, 1, "+"},
                      Opening{"ReadAndWrite", 1, 2, 1, "old+"},
                      Opening{"UnknownMode", 3, 1, 0, "old"},
                      Opening{"NegativeMode", -1, 1, 0, "old"},
                      Opening{"UnknownAccess", 0, 3, 0, "old"}),
    [](auto const& one) { return std::string(one.param.name); });

TEST(FileTest, WritingMakesTheFileAndItsDirectories) {
    Scratch const scratch;
    File file(scratch("a\\b/file"), UTF8);
    EXPECT_EQ(0, file.open(File::AS_IT_IS, File::READ));
    EXPECT_FALSE(scratch.has("a"));
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    EXPECT_EQ(0, file.open(File::AS_IT_IS, File::WRITE));
    EXPECT_EQ(0, file.erase(1));
    EXPECT_EQ(0, file.move(scratch("x")));
    EXPECT_EQ(1, file.close());
    EXPECT_EQ(0, file.close());
    EXPECT_EQ(0777u, scratch.mode("a/b/file"));
    EXPECT_EQ(0, File(scratch("a"), UTF8).open(File::AS_IT_IS, File::READ));
}

TEST(FileTest, ClosingSetsTheModeOfTheFileThatWasWritten) {
    Scratch const scratch;
    File file(scratch("file"), UTF8);
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    ASSERT_EQ(0, rename(scratch("file"), scratch("moved")));
    chmod(scratch.file("file"), 0600);
    file.close();
    EXPECT_EQ(0600u, scratch.mode("file"));
    EXPECT_EQ(0777u, scratch.mode("moved"));
}

TEST(FileTest, AWriterExcludesAndReadersShare) {
    Scratch const scratch;
    std::string const path = scratch.file("file", "held");
    File first(path.c_str(), UTF8);
    File second(path.c_str(), UTF8);
    LogCapture const log;
    setFilterLevel(-2, 4);
    bool isShared = true;

    ASSERT_EQ(1, first.open(File::AS_IT_IS, File::WRITE));
    EXPECT_EQ(0, second.open(File::AS_IT_IS, File::READ));
    EXPECT_EQ(0, second.open(File::EMPTY, File::WRITE));
    EXPECT_EQ(2u, log.count("<UTIL> DBG: Other process is opening. errno[11] Path:" + path));
    EXPECT_EQ("held", scratch.content("file"));
    EXPECT_EQ(1, File::isOpened(path.c_str(), &isShared));
    EXPECT_FALSE(isShared);
    first.close();
    EXPECT_EQ(0, File::isOpened(path.c_str(), nullptr));

    EXPECT_EQ(1, first.open(File::AS_IT_IS, File::READ));
    EXPECT_EQ(1, second.open(File::AS_IT_IS, File::READ));
    EXPECT_EQ(1, File::isOpened(path.c_str(), &isShared));
    EXPECT_TRUE(isShared);
    setFilterLevel(-2, 3);
}

TEST(FileTest, ACopyHoldsTheLockUntilTheLastOneCloses) {
    Scratch const scratch;
    File file(scratch("file"), UTF8);
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    File copy(file);
    file.close();
    EXPECT_EQ(1, copy.write("x", 1));
    EXPECT_EQ(1, File::isOpened(scratch("file"), nullptr));
    copy.close();
    EXPECT_EQ(0, File::isOpened(scratch("file"), nullptr));
}

TEST(FileTest, AnotherProcessIsKeptOutAndKeepsNoLock) {
    Scratch const scratch;
    File file(scratch.file("file"), UTF8);
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    EXPECT_TRUE(test::inChild(
        [&] { EXPECT_EQ(0, File(scratch("file"), UTF8).open(File::AS_IT_IS, File::READ)); }));

    std::string const fifo = scratch("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    FILE* const program = popen(("echo; read line < " + fifo).c_str(), "r");
    ASSERT_EQ('\n', fgetc(program));
    file.close();
    EXPECT_EQ(0, File::isOpened(scratch("file"), nullptr));  // while the program still runs
    std::ofstream(fifo) << '\n';
    pclose(program);
}

TEST(FileTest, OpensWithStandardInputClosed) {
    Scratch const scratch;
    File file(scratch.file("file", "text"), UTF8);
    EXPECT_TRUE(test::inChild([&] {
        close(0);
        EXPECT_EQ(1, file.open(File::AS_IT_IS, File::READ));
        EXPECT_EQ("text", read(file));
        EXPECT_EQ(4, File::size(scratch("file")));
        EXPECT_EQ(-1, fcntl(0, F_GETFD));
    }));
}

TEST(FileTest, TellsTheEndAndAFullDiskFromOtherFailures) {
    Scratch const scratch;
    File file(scratch.file("file", "text"), UTF8);
    LogCapture const log;
    EXPECT_EQ("-1", read(file));
    EXPECT_TRUE(log.has("ERR: in read func file is not opened"));

    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::READ));
    char byte;
    EXPECT_EQ(-1, file.read(nullptr, 1));
    EXPECT_EQ(-1, file.read(&byte, 0));
    EXPECT_EQ(-1, file.read(&byte, utl::NONE));
    EXPECT_EQ("text", read(file));
    EXPECT_EQ("-3", read(file));
    file.close();

    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    EXPECT_EQ("-1", read(file));
    EXPECT_TRUE(log.has("ERR: ReadFile Failed. errno[9]"));
    EXPECT_TRUE(log.has(std::string("in read func readFile Failed. Path:") + scratch("file")));

    File full(scratch.link("/dev/full", "full"), UTF8);
    ASSERT_EQ(1, full.open(File::EMPTY, File::WRITE));
    EXPECT_EQ(-1, full.write("x", 1));
    EXPECT_EQ(-1, full.write(nullptr, 1));
    EXPECT_EQ(1u, log.count("ERR: WriteFile Failed. errno[28]"));
    EXPECT_EQ(2u, log.count(std::string("ERR: writeFile Failed. Path:") + scratch("full")));
}

TEST(FileTest, SeeksByItsOwnOrigins) {
    Scratch const scratch;
    File file(scratch.file("file", "0123456789"), UTF8);
    EXPECT_EQ(-1, file.seek(0, File::FROM_START));
    EXPECT_EQ(-1, file.availableSize());
    EXPECT_EQ(10, file.size());
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::READ_WRITE));
    EXPECT_EQ(10, file.seek(0, 1));
    EXPECT_EQ(7, file.seek(-3, 2));
    EXPECT_EQ(4, file.seek(4, 0));
    EXPECT_EQ(6, file.availableSize());
    LogCapture const log;
    EXPECT_EQ(-1, file.seek(0, 3));
    EXPECT_EQ(-1, file.seek(-5, 2));
    EXPECT_EQ(1u, log.count("ERR: lseek64 Failed. errno[22]"));
    EXPECT_EQ(4, file.position());

    long long const far = 5LL << 30;  // more than 32 bits
    EXPECT_EQ(far, file.seek(far, 0));
    EXPECT_EQ(0, file.availableSize());
    EXPECT_EQ(1, file.write("x", 1));
    EXPECT_EQ(far + 1, File::size(scratch("file")));
}

TEST(FileTest, ResizingKeepsThePositionInsideTheFile) {
    Scratch const scratch;
    File file(scratch("file"), UTF8);
    EXPECT_EQ(0, file.resize(1));
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    struct {
        long long before, size, after;
    } const resizings[] = {{2, 5, 2}, {5, 5, 5}, {7, 5, 5}, {7, 12, 7}, {3, 0, 0}};
    for (auto const& resizing : resizings) {
        file.seek(resizing.before, File::FROM_START);
        EXPECT_EQ(1, file.resize(static_cast<unsigned long long>(resizing.size)));
        EXPECT_EQ(resizing.after, file.position());
        EXPECT_EQ(resizing.size, file.size());
    }
}

TEST(FileTest, WaitsForNobodyAtTheOtherEnd) {
    Scratch const scratch;
    char const* const fifo = scratch("fifo");
    ASSERT_EQ(0, mkfifo(fifo, 0600));
    EXPECT_EQ(0, File::isOpened(fifo, nullptr));
    EXPECT_EQ(0, File::size(fifo));
    EXPECT_FALSE(File::copy(fifo, scratch("copy"), 0));
    EXPECT_FALSE(File::copy(scratch.file("file"), fifo, 1));
    EXPECT_EQ(1, File::move(fifo, scratch("moved")));
    EXPECT_EQ(1, File::erase(scratch("moved"), 0));
}

TEST(FileTest, RefusalsLeaveNoDescriptorBehind) {
    Scratch const scratch;
    File held(scratch("held"), UTF8);
    ASSERT_EQ(1, held.open(File::APPEND, File::WRITE));
    unsigned const before = test::openDescriptors();
    {
        EXPECT_EQ(0, File(scratch("held"), UTF8).open(File::APPEND, File::WRITE));
        EXPECT_EQ(0, File::erase(scratch("held"), 1));
        ASSERT_EQ(0, mkfifo(scratch("fifo"), 0600));
        File fifo(scratch("fifo"), UTF8);
        EXPECT_EQ(0, fifo.open(File::APPEND, File::READ_WRITE));  // it cannot seek
        EXPECT_EQ(before, test::openDescriptors());
    }
    EXPECT_EQ(before, test::openDescriptors());
}

TEST(FileTest, TakesLinesOfTheLog) {
    Scratch const scratch;
    File file(scratch("log"), UTF8);
    ASSERT_EQ(1, file.open(File::APPEND, File::WRITE));
    LogCapture const log;
    applog(-2, 1, &file, "number %d", 7);
    applog(-2, 4, &file, "dropped");
    rawlog(-2, 3, &file, "%s", "raw%d");
    applog(-2, 2, static_cast<File*>(nullptr), "nowhere");
    EXPECT_EQ("<UTIL> ERR: number 7\r\nraw%d", scratch.content("log"));
    EXPECT_TRUE(log.has("number 7") && log.has("raw%d") && log.has("nowhere"));
}

// Volume name, directory path, file name, that without extension, and extension; "!" for none.
struct Parts {
    std::string path;
    std::string parts;
};

class FilePathTest : public ::testing::TestWithParam<Parts> {};

TEST_P(FilePathTest, HasItsParts) {
    File const file(GetParam().path.c_str(), UTF8);
    std::string parts;
    auto const add = [&](auto take) {
        char part[260];
        parts += take(part, sizeof part) ? std::string(part) + '|' : "!|";
        unsigned long const length = std::char_traits<char>::length(part);
        EXPECT_EQ(0, take(part, length));  // never cut
    };
    add([&](char* dst, unsigned long size) { return file.getVolumeName(dst, size); });
    add([&](char* dst, unsigned long size) { return file.getDirectoryPath(dst, size); });
    add([&](char* dst, unsigned long size) { return file.getFileName(dst, size, 0); });
    add([&](char* dst, unsigned long size) { return file.getFileName(dst, size, 1); });
    add([&](char* dst, unsigned long size) { return file.getExtension(dst, size); });
    EXPECT_EQ(GetParam().parts, parts);
}

std::string const LONGEST(259, 'n');

INSTANTIATE_TEST_SUITE_P(
    Paths, FilePathTest,
    ::testing::Values(Parts{"/sdcard/data/log.txt", "sdcard|/sdcard/data|log.txt|log|txt|"},
                      Parts{"/a/b/c.txt/", "a|/a/b|c.txt|c|txt|"},
                      Parts{"C:\\dir\\name.ext", "C:|C:/dir|name.ext|name|ext|"},
                      Parts{"a.b/file", "a.b|a.b|file|file||"}, Parts{"file", "file||file|file||"},
                      Parts{"/file", "file||file|file||"},
                      Parts{"archive.tar.gz", "archive.tar.gz||archive.tar.gz|archive.tar|gz|"},
                      Parts{".profile", ".profile||.profile||profile|"},
                      Parts{"x/name.", "x|x|name.|name||"}, Parts{"/", "!|!|!|!|!|"},
                      Parts{"", "!|!|!|!|!|"}, Parts{"a//b", "!|!|!|!|!|"},
                      Parts{LONGEST, LONGEST + "||" + LONGEST + '|' + LONGEST + "||"},
                      Parts{LONGEST + "n", "!|!|!|!|!|"}));

std::vector<std::string> reported;

void report(utl::StatementInfo const& at) {
    reported.push_back(std::string(at.file()) + ' ' + at.function() + ' ' +
                       std::to_string(at.line()) + '.' + std::to_string(at.sub()));
}

TEST(FileTest, TellsTheWatchdogWhereItMayBlock) {
    Scratch const scratch;
    File file(scratch("file"), UTF8);
    utl::BlockingCall::install(report);
    file.open(File::AS_IT_IS, File::WRITE);
    File::isOpened(scratch("file"), nullptr);
    file.close();
    utl::BlockingCall::install(nullptr);
    std::vector<std::string> expected;
    for (std::string const at : {"open 1612", "open 1650", "isOpened 1480", "isOpened 1489",
                                 "isOpened 1495", "close 1713"}) {
        expected.push_back("UtlFile " + at + ".1");
        expected.push_back("UtlFile " + at + ".2");
    }
    EXPECT_EQ(expected, reported);
}

}  // namespace
