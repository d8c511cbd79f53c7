#include "UtlFile.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "UtlLog.h"

#include "foundation/UtlBlockingCall.h"
#include "support/LogCapture.h"
#include "support/Process.h"
#include "support/TextFile.h"

namespace {

using namespace std::string_literals;
using test::LogCapture;
using test::OpenFile;
using test::Scratch;
using utl::File;

constexpr int UTF8 = File::UTF8;

int syncFailure = 0;
std::vector<unsigned> syncs;  // the types of what was synced

}  // namespace

// In place of the C library's.
extern "C" int fsync(int descriptor) {
    struct stat status;
    fstat(descriptor, &status);
    syncs.push_back(status.st_mode & S_IFMT);
    errno = syncFailure;
    return syncFailure == 0 ? static_cast<int>(syscall(SYS_fsync, descriptor)) : -1;
}

namespace {

using FileTest = test::ScratchTest;

std::string read(File& file) {
    char bytes[64];
    long const got = file.read(bytes, sizeof bytes);
    return got >= 0 ? std::string(bytes, static_cast<unsigned long>(got)) : std::to_string(got);
}

// What a file that held "old" holds when it was opened and "+" written, where that can be.
std::string written(int mode, int access) {
    Scratch const scratch;
    File file(scratch.file("file", "old"), UTF8);
    bool const isOpen = file.open(mode, access) == 1;
    EXPECT_EQ(isOpen, file.isOpened());
    file.write("+", 1);
    return (isOpen ? "" : "refused, ") + scratch.content("file");
}

TEST_F(FileTest, OpensInTheModesOfTheAccess) {
    EXPECT_EQ("old", written(File::AS_IT_IS, File::READ));
    EXPECT_EQ("old", written(File::APPEND, File::READ));
    EXPECT_EQ("refused, old", written(File::EMPTY, File::READ));
    EXPECT_EQ("+ld", written(File::AS_IT_IS, File::WRITE));
    EXPECT_EQ("old+", written(File::APPEND, File::READ_WRITE));
    EXPECT_EQ("+", written(File::EMPTY, File::WRITE));
    EXPECT_EQ("refused, old", written(3, File::WRITE));
    EXPECT_EQ("refused, old", written(File::AS_IT_IS, 3));
}

TEST_F(FileTest, WritingMakesTheFileAndItsDirectories) {
    File file(scratch("a\\b/file"), UTF8);
    utl::BasicString<char> path;
    char room[260];
    EXPECT_EQ(1, file.getPath(&path));
    EXPECT_STREQ(scratch("a/b/file"), path.c_str());
    EXPECT_EQ(0, file.getPath(room, path.length()));
    EXPECT_EQ(1, file.getPath(room, path.length() + 1));
    EXPECT_STREQ(path.c_str(), room);
    EXPECT_EQ(0, file.open(File::AS_IT_IS, File::READ));
    EXPECT_FALSE(scratch.has("a"));
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    EXPECT_EQ(0, file.open(File::AS_IT_IS, File::WRITE));
    EXPECT_EQ(0, file.move(scratch("x")));
    EXPECT_EQ(1, file.close());
    EXPECT_EQ(0, file.close());
    EXPECT_EQ(0777u, scratch.mode("a/b/file"));
    EXPECT_FALSE(file.isDirectory());
    EXPECT_TRUE(File(scratch("a\\b"), UTF8).isDirectory());
}

TEST_F(FileTest, ClosingSetsTheModeOfTheFileThatWasWritten) {
    OpenFile file(scratch("file"), File::WRITE);
    ASSERT_EQ(0, rename(scratch("file"), scratch("moved")));
    chmod(scratch.file("file"), 0600);
    file.close();
    EXPECT_EQ(0600u, scratch.mode("file"));
    EXPECT_EQ(0777u, scratch.mode("moved"));
}

TEST_F(FileTest, AWriterExcludesAndReadersShare) {
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
    EXPECT_FALSE(first.copy(scratch("copy"), 0));
    EXPECT_EQ("held", scratch.content("file"));
    EXPECT_EQ(1, File::isOpened(path.c_str(), &isShared));
    EXPECT_FALSE(isShared);
    first.close();
    isShared = true;
    EXPECT_EQ(0, File::isOpened(path.c_str(), &isShared));
    EXPECT_FALSE(isShared);

    EXPECT_EQ(1, first.open(File::AS_IT_IS, File::READ));
    EXPECT_EQ(0, first.open(File::AS_IT_IS, File::READ));
    EXPECT_EQ(1, second.open(File::AS_IT_IS, File::READ));
    EXPECT_TRUE(first.copy(scratch("copy"), 0));
    EXPECT_EQ(1, File::isOpened(path.c_str(), &isShared));
    EXPECT_TRUE(isShared);
    EXPECT_FALSE(File::copy(scratch.file("other"), path.c_str(), 1));
    setFilterLevel(-2, 3);
    chmod(path.c_str(), 0);
    EXPECT_TRUE(test::asNobody([&] { EXPECT_EQ(0, File::isOpened(path.c_str(), nullptr)); }));
}

// Does that once, when a file is opened, right before it is locked.
void actBeforeLock(std::function<void()> what) {
    static std::function<void()> act;
    act = std::move(what);
    utl::BlockingCall::install([](utl::StatementInfo const& statement) {
        if (statement.line() == 1650 && act != nullptr) {
            std::exchange(act, nullptr)();
        }
    });
}

TEST_F(FileTest, WhatIsOpenIsWhatThePathMeans) {
    auto const contentAfter = [&](std::function<void()> const& whatHappens) {
        actBeforeLock(whatHappens);
        OpenFile file(scratch.file("file", "old"), File::WRITE, File::APPEND);
        file.write("+", 1);
        return scratch.content("file");
    };
    EXPECT_EQ("+", contentAfter([&] { EXPECT_EQ(1, File::erase(scratch("file"), 0)); }));
    EXPECT_EQ("+", contentAfter([&] { EXPECT_EQ(1, File::move(scratch("file"), scratch("x"))); }));
    EXPECT_EQ("old", scratch.content("x"));
    scratch.file("new", "new");
    EXPECT_EQ("new+", contentAfter([&] { rename(scratch("new"), scratch("file")); }));
}

TEST_F(FileTest, SyncsOnlyWhatWasWrittenAndTellsWhenTheDiskDidNotTakeIt) {
    scratch.file("file", "text");
    LogCapture const log;
    unsigned const before = test::openDescriptors();
    std::map<int, int> const results = {{EIO, 0}, {ENOSPC, 0}, {EINVAL, 1}, {EROFS, 1}, {0, 1}};
    for (auto const& [failure, result] : results) {
        syncFailure = failure;
        syncs.clear();
        OpenFile reader(scratch("file"), File::READ);
        File::isOpened(scratch("file"), nullptr);
        EXPECT_TRUE(reader.copy(scratch("copy"), 1));
        EXPECT_EQ(1, reader.close());
        EXPECT_EQ(std::vector<unsigned>(), syncs);

        {
            OpenFile writer(scratch("file"), File::WRITE);
            {
                File last(writer);
                EXPECT_EQ(1, writer.close());
                EXPECT_EQ(1, last.write("x", 1));
                EXPECT_EQ(1, File::isOpened(scratch("file"), nullptr)) << "held by the last";
                EXPECT_EQ(result, last.close()) << failure;
                syncFailure = 0;
            }
            EXPECT_EQ(1, writer.open(File::AS_IT_IS, File::READ));
        }
        EXPECT_EQ((std::vector<unsigned>{S_IFREG, S_IFDIR, S_IFDIR}), syncs);
    }
    std::filesystem::path const workingDirectory = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    syncs.clear();
    OpenFile("bare name", File::WRITE).close();
    std::filesystem::current_path(workingDirectory);
    EXPECT_EQ((std::vector<unsigned>{S_IFREG, S_IFDIR}), syncs);
    EXPECT_EQ(before, test::openDescriptors());
    EXPECT_EQ(1u, log.count("ERR: fsync Failed. errno[5]"));
    EXPECT_EQ(2u, log.count(std::string("closeFile Failed. Path:") + scratch("file")));
}

TEST_F(FileTest, KeepsModesWhereThatIsThePolicy) {
    chmod(scratch.file("source"), 04751);
    File::setModePolicy(File::KEEP_MODES);
    EXPECT_TRUE(test::asNobody([&] {
        umask(027);
        EXPECT_EQ(1, OpenFile(scratch("d/file"), File::WRITE).close());
        EXPECT_EQ(0640u, scratch.mode("d/file"));
        EXPECT_EQ(0750u, scratch.mode("d"));
        EXPECT_TRUE(File::copy(scratch("d/file"), scratch("copy"), 0));
        EXPECT_EQ(0640u, scratch.mode("copy"));
        chmod(scratch("d"), 0555);
        EXPECT_EQ(0, File(scratch("d/new"), UTF8).open(File::AS_IT_IS, File::WRITE));
        EXPECT_EQ(0, File::erase(scratch("d/file"), 1));
        chmod(scratch("d"), 0700);
    }));
    EXPECT_TRUE(File::copy(scratch("source"), scratch("copy2"), 0));
    EXPECT_EQ(0751u & ~umask(0), scratch.mode("copy2"));
    File::setModePolicy(File::DEFAULT_MODES);
}

// And so no lock.
TEST_F(FileTest, AProgramThatIsStartedGetsNoDescriptor) {
    auto const inherited = [] {
        std::set<int> descriptors;
        for (int fd = 0; fd < 100; ++fd) {
            if (fcntl(fd, F_GETFD) == 0) {
                descriptors.insert(fd);
            }
        }
        return descriptors;
    };
    std::set<int> const before = inherited();
    OpenFile const file(scratch("file"), File::WRITE);
    EXPECT_EQ(before, inherited());
}

TEST_F(FileTest, OpensWithStandardInputClosed) {
    File file(scratch.file("file", "text"), UTF8);
    EXPECT_TRUE(test::inChild([&] {
        close(0);
        EXPECT_EQ(1, file.open(File::AS_IT_IS, File::READ));
        EXPECT_EQ("text", read(file));
        EXPECT_EQ(4, File::size(scratch("file")));
        EXPECT_EQ(-1, fcntl(0, F_GETFD));
    }));
}

TEST_F(FileTest, TellsTheEndAndAFullDiskFromOtherFailures) {
    File file(scratch.file("file", "text"), UTF8);
    LogCapture const log;
    EXPECT_EQ("-1", read(file));
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::READ));
    char byte;
    EXPECT_EQ(-1, file.read(&byte, 0));
    EXPECT_EQ(-1, file.read(&byte, utl::NONE));
    EXPECT_EQ("text", read(file));
    EXPECT_EQ("-3", read(file));
    file.close();

    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    EXPECT_EQ("-1", read(file));
    EXPECT_TRUE(log.has("ERR: ReadFile Failed. errno[9]"));
    EXPECT_TRUE(log.has(std::string("in read func readFile Failed. Path:") + scratch("file")));

    OpenFile full(scratch.link("/dev/full", "full"), File::WRITE, File::EMPTY);
    EXPECT_EQ(-1, full.write("x", 1));
    EXPECT_TRUE(log.has("ERR: WriteFile Failed. errno[28]"));
    EXPECT_TRUE(log.has(std::string("ERR: writeFile Failed. Path:") + scratch("full")));
}

TEST_F(FileTest, EndsWhereNothingMoreIsReadWhateverItsSizeIs) {
    File file("/sys/devices/system/cpu/online", UTF8);
    if (file.open(File::AS_IT_IS, File::READ) != 1 || file.size() < 4096) {
        GTEST_SKIP() << "no file here says more than it holds";
    }
    EXPECT_LT(0u, read(file).find('\n'));
    EXPECT_EQ("-3", read(file));
    EXPECT_EQ(0, file.nextEOLSize());
    EXPECT_EQ(File::END_OF_FILE, file.readLine(nullptr, 0, nullptr));
}

TEST_F(FileTest, SeeksByItsOwnOrigins) {
    File file(scratch.file("file", "0123456789"), UTF8);
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

TEST_F(FileTest, ResizingKeepsThePositionInsideTheFile) {
    File file(scratch("file"), UTF8);
    EXPECT_EQ(0, file.resize(1));
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    for (auto const& [before, size, after] :
         {std::array{2, 5, 2}, {5, 5, 5}, {7, 5, 5}, {7, 12, 7}, {3, 0, 0}}) {
        file.seek(before, File::FROM_START);
        EXPECT_EQ(1, file.resize(static_cast<unsigned long long>(size)));
        EXPECT_EQ(after, file.position());
        EXPECT_EQ(size, file.size());
    }
}

TEST_F(FileTest, WaitsForNobodyAtTheOtherEnd) {
    char const* const fifo = scratch("fifo");
    ASSERT_EQ(0, mkfifo(fifo, 0600));
    EXPECT_EQ(0, File::isOpened(fifo, nullptr));
    EXPECT_EQ(0, File::size(fifo));
    EXPECT_FALSE(File::copy(fifo, scratch("copy"), 0));
    EXPECT_FALSE(File::copy(scratch.file("file"), fifo, 1));
    EXPECT_EQ(1, File::move(fifo, scratch("moved")));
    EXPECT_EQ(1, File::erase(scratch("moved"), 0));
}

TEST_F(FileTest, RefusalsLeaveNoDescriptorBehind) {
    scratch.directory("d/sub");
    ASSERT_EQ(0, mkfifo(scratch("fifo"), 0600));
    OpenFile held(scratch("held"), File::WRITE, File::APPEND);
    unsigned const before = test::openDescriptors();
    EXPECT_EQ(0, File(scratch("held"), UTF8).open(File::APPEND, File::WRITE));
    EXPECT_EQ(0, File::erase(scratch("held"), 1));
    std::string const far = "d/sub/" + std::string(300, '/');
    for (std::string const& name : {"d"s, "d/"s, "d//sub"s, "d/."s, "d\\sub"s, far, "fifo"s}) {
        for (int access : {File::READ, File::WRITE, File::READ_WRITE}) {
            EXPECT_EQ(0, File(scratch(name), UTF8).open(File::AS_IT_IS, access)) << name;
        }
    }
    // One that takes the file's place when that has been looked at.
    File file(scratch.file("file"), UTF8);
    actBeforeLock([&] { rename(scratch("fifo"), scratch("file")); });
    EXPECT_EQ(0, file.open(File::AS_IT_IS, File::READ));
    EXPECT_EQ(before, test::openDescriptors());
}

TEST_F(FileTest, TakesLinesOfTheLogWholeInEveryEncoding) {
    // Cut inside the 79th character; bytes that are none go.
    std::string text = "\x82\xA0";
    for (int i = 0; i < 100; ++i) {
        text += "\u3042";
    }
    std::string const whole = "<UTIL> ERR: " + text.substr(2, 78 * 3) + "...\r\n";
    for (int textType : {UTF8, File::UTF16_HIGH_FIRST, File::UTF16_LOW_FIRST}) {
        OpenFile file(scratch(std::to_string(textType)), File::READ_WRITE, File::APPEND, textType);
        LogCapture const log;
        applog(-2, 1, &file, "%s", text.c_str());
        applog(-2, 1, &file, "%s", "next");
        applog(-2, 4, &file, "dropped");
        rawlog(-2, 3, &file, "%s", "raw%d");
        file.seek(0, File::FROM_START);
        char line[512];
        EXPECT_LT(0, file.readText(line, sizeof line, 5118, 0, nullptr));
        EXPECT_EQ(whole + "<UTIL> ERR: next\r\nraw%d", line);
        EXPECT_TRUE(log.has("ERR: next") && log.has("raw%d"));
    }
    applog(-2, 2, static_cast<File*>(nullptr), "nowhere");
}

// Volume name, directory path, file name, that without extension, and extension; "!" for none.
std::string partsOf(std::string const& path) {
    File const file(path.c_str(), UTF8);
    std::string parts;
    auto const add = [&](auto take) {
        char part[260] = "";
        parts += take(part, sizeof part) ? std::string(part) + '|' : "!|";
        unsigned long const length = std::char_traits<char>::length(part);
        EXPECT_EQ(0, take(part, length));  // never cut
    };
    add([&](char* dst, unsigned long size) { return file.getVolumeName(dst, size); });
    add([&](char* dst, unsigned long size) { return file.getDirectoryPath(dst, size); });
    add([&](char* dst, unsigned long size) { return file.getFileName(dst, size, 0); });
    add([&](char* dst, unsigned long size) { return file.getFileName(dst, size, 1); });
    add([&](char* dst, unsigned long size) { return file.getExtension(dst, size); });
    return parts;
}

TEST(FilePathTest, HasItsParts) {
    EXPECT_EQ("sdcard|/sdcard/data|log.txt|log|txt|", partsOf("/sdcard/data/log.txt"));
    EXPECT_EQ("C:|C:/dir|name.tar.gz|name.tar|gz|", partsOf("C:\\dir\\name.tar.gz/"));
    EXPECT_EQ("a.b|a.b|file|file||", partsOf("a.b/file"));
    EXPECT_EQ("file||file|file||", partsOf("/file"));
    EXPECT_EQ(".profile||.profile||profile|", partsOf(".profile"));
    EXPECT_EQ("x|x|name.|name||", partsOf("x/name."));
    std::string const longest(259, 'n');
    EXPECT_EQ(longest + "||" + longest + '|' + longest + "||", partsOf(longest));
    for (std::string const& path : {"/"s, ""s, "a//b"s, longest + "n"}) {
        EXPECT_EQ("!|!|!|!|!|", partsOf(path)) << path;
    }
}

TEST_F(FileTest, TellsTheWatchdogWhereItMayBlockAndWhyAnEntryWasPassedOver) {
    scratch.file("a.x");
    scratch.file("d/b");
    File file(scratch("b.txt"), UTF8);
    File::Paths entries(8, File::Paths::FIXED);
    static std::set<unsigned long> statements;
    utl::BlockingCall::install(
        [](utl::StatementInfo const& statement) { statements.insert(statement.line()); });
    file.open(File::EMPTY, File::WRITE);
    File::isOpened(scratch("b.txt"), nullptr);
    file.close();
    File::children(scratch("b*"), &entries, 2, "txt", 0);
    File::children(scratch.path(), &entries, 0, nullptr, 0);
    File::children(scratch.path(), &entries, 1, nullptr, 0);
    utl::BlockingCall::install(nullptr);
    std::set<unsigned long> const expected = {1348, 1358, 1367, 1376, 1387, 1402, 1407, 1415, 1419,
                                              1443, 1446, 1480, 1489, 1495, 1612, 1631, 1650, 1713};
    EXPECT_EQ(expected, statements);
}

}  // namespace
