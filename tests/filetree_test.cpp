#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "UtlFile.h"

#include "foundation/UtlBlockingCall.h"
#include "support/LogCapture.h"
#include "support/Scratch.h"

namespace {

using test::LogCapture;
using test::Scratch;
using utl::File;

constexpr int UTF8 = File::UTF8;

bool opens(char const* path, int mode) {
    return File(path, UTF8).open(mode, File::WRITE) == 1;
}

TEST(ParentModeTest, ComesBackWhateverComesOfTheCall) {
    Scratch const scratch;
    EXPECT_TRUE(test::asNobody([&] {
        scratch.file("d/sub/file", "text");
        scratch.file("source", std::string(3000, 's'));
        File held(scratch.file("d/held"), UTF8);
        ASSERT_EQ(1, held.open(File::AS_IT_IS, File::READ));
        chmod(scratch.file("d/locked"), 0);
        chmod(scratch("d"), 0555);
        signal(SIGXFSZ, SIG_IGN);
        rlimit const mostBytes = {2500, 2500};
        setrlimit(RLIMIT_FSIZE, &mostBytes);

        auto const expect = [&](char const* what, bool isSo) {
            EXPECT_TRUE(isSo) << what;
            EXPECT_EQ(0555u, scratch.mode("d")) << what;
        };
        expect("open", opens(scratch("d/new"), File::AS_IT_IS));
        expect("open: in use", !opens(scratch("d/held"), File::EMPTY));
        expect("open: no permission", !opens(scratch("d/locked"), File::EMPTY));
        expect("make", File::makeDirectories(scratch("d/a/b")));
        expect("make: no directory", !File::makeDirectories(scratch("d/new/x")));
        expect("copy", File::copy(scratch("d/new"), scratch("d/copy"), 0));
        expect("copy: taken", !File::copy(scratch("source"), scratch("d/held"), 0));
        expect("copy: no room", !File::copy(scratch("source"), scratch("d/part"), 0));
        EXPECT_EQ(2500, File::size(scratch("d/part")));
        expect("erase", File::erase(scratch("d/sub"), 0));
        expect("erase: in use", !File::erase(scratch("d/held"), 1));
        File::liftReadOnly(scratch("d"), 0);
    }));
}

TEST(ParentModeTest, TwoThreadsInOneDirectoryLeaveItAsItWas) {
    Scratch const scratch;
    scratch.directory("d/sub");
    chmod(scratch("d"), 0700);
    auto const work = [](char const* path) {
        for (int i = 0; i < 200; ++i) {
            EXPECT_TRUE(opens(path, File::AS_IT_IS));
            EXPECT_EQ(1, File::erase(path, 0));
        }
    };
    std::thread first(work, scratch("d/first"));
    std::thread second(work, scratch("d/sub/../second"));
    first.join();
    second.join();
    EXPECT_EQ(0700u, scratch.mode("d"));
}

Scratch const* slowScratch;

// While a thread is kept in the middle of its call, others do what they like.
void keepOpening(utl::StatementInfo const& statement) {
    if (statement.line() != 1612 || slowScratch == nullptr) {
        return;
    }
    Scratch const& scratch = *slowScratch;
    slowScratch = nullptr;
    EXPECT_TRUE(opens(scratch("d/other"), File::AS_IT_IS));
    EXPECT_EQ(0777u, scratch.mode("d"));
    long oldMode = 0;
    EXPECT_EQ(1, File::changeParentAccessMode(scratch("d/x"), 0777, &oldMode));
    EXPECT_EQ(0750, oldMode & 07777);
    ASSERT_EQ(0, rename(scratch("d"), scratch("moved")));
    EXPECT_EQ(1, File::changeParentAccessMode(scratch("moved/x"), 0711, &oldMode));
    EXPECT_EQ(0777u, scratch.mode("moved"));  // for whoever works in it
    EXPECT_EQ(1, File::changeParentAccessMode(scratch("moved/x"), oldMode, &oldMode));
    EXPECT_EQ(0711, oldMode & 07777);
    EXPECT_EQ(1, File::applyReadOnly(scratch("moved"), 0));
    chmod(scratch.directory("d"), 0700);
}

TEST(ParentModeTest, OverlappingCallsPutBackTheModeThatIsWanted) {
    Scratch const scratch;
    chmod(scratch.directory("d"), 0750);
    slowScratch = &scratch;
    utl::BlockingCall::install(keepOpening);
    EXPECT_TRUE(opens(scratch("d/file"), File::AS_IT_IS));
    utl::BlockingCall::install(nullptr);
    EXPECT_EQ(0700u, scratch.mode("d"));  // another directory by now
    EXPECT_EQ(0555u, scratch.mode("moved"));
}

TEST(MakeDirectoriesTest, TouchesNothingThatIsThere) {
    Scratch const scratch;
    scratch.file("a/b/file");
    struct stat before;
    struct stat after;
    ASSERT_EQ(0, stat(scratch("a"), &before));
    EXPECT_EQ(1, File::makeDirectories(scratch("a/b/c/d/")));
    EXPECT_TRUE(scratch.has("a/b/c/d"));
    ASSERT_EQ(0, stat(scratch("a"), &after));
    EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);

    EXPECT_EQ(0, File::makeDirectories(scratch("a/b/file")));
    EXPECT_EQ(0, File::makeDirectories(scratch("a//x")));
    EXPECT_EQ(0, File::makeDirectories(nullptr));
    LogCapture const log;
    EXPECT_EQ(0, File::makeDirectories("/proc/none/x"));
    EXPECT_TRUE(log.has("ERR: CreateDirectory Failed. errno[2] Path:/proc/none/x/(/proc/none/)"));
}

TEST(EraseTest, RefusesWhatIsReadOnlyOrOpenBeforeItHarmsIt) {
    Scratch const scratch;
    scratch.file("d/file", "text");
    chmod(scratch("d"), 0555);
    EXPECT_EQ(0, File::erase(scratch("d"), 0));
    EXPECT_TRUE(scratch.has("d/file"));
    EXPECT_EQ(1, File::erase(scratch("d/"), 1));

    File file(scratch.file("file"), UTF8);
    EXPECT_EQ(1, file.applyReadOnly(0));
    EXPECT_EQ(0, file.erase(0));
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::READ));
    EXPECT_EQ(0, File::erase(scratch("file"), 1));
    file.close();
    EXPECT_EQ(1, file.erase(1));
    EXPECT_EQ(0, file.erase(1));
    EXPECT_FALSE(scratch.has("file"));
}

// A directory with links out of it, and one to it.
struct TreeTest : ::testing::Test {
    TreeTest() {
        scratch.file("out/file", "outside");
        scratch.file("in/file", "inside");
        scratch.file("in/sub/file", "below");
        scratch.link("../out", "in/away");
        scratch.link("../out/file", "in/alias");
        scratch.link("in", "entry");
    }
    Scratch const scratch;
};

TEST_F(TreeTest, EraseRemovesLinksAndNothingBehindThem) {
    scratch.link("nowhere", "in/dangling");
    unsigned const mode = scratch.mode("out/file");
    EXPECT_EQ(1, File::erase(scratch("entry/"), 1));
    EXPECT_FALSE(scratch.has("entry"));
    EXPECT_EQ("inside", scratch.content("in/file"));
    EXPECT_EQ(1, File::erase(scratch("in"), 1));
    EXPECT_FALSE(scratch.has("in"));
    EXPECT_EQ("outside", scratch.content("out/file"));
    EXPECT_EQ(mode, scratch.mode("out/file"));
}

TEST_F(TreeTest, SizeCountsFilesBehindLinksButNoDirectories) {
    for (char const* path : {"in", "in/", "entry", "entry/"}) {
        EXPECT_EQ(6 + 5 + 7, File::size(scratch(path))) << path;
    }
    EXPECT_EQ(-1, File::size(scratch("none")));
    EXPECT_TRUE(test::asNobody([&] {
        LogCapture const log;
        std::string const path = scratch.file("mine");
        chmod(path.c_str(), 0);
        EXPECT_EQ(-1, File::size(path.c_str()));
        EXPECT_TRUE(log.has("ERR: in size func open Failed. Path:" + path + " errno[13]"));
    }));
}

TEST_F(TreeTest, ReadOnlyAppliesToAllInsideAndIsLifted) {
    EXPECT_EQ(1, File::applyReadOnly(scratch("entry/"), 1));
    for (char const* path : {"in", "in/file", "in/sub", "in/sub/file"}) {
        EXPECT_EQ(0555u, scratch.mode(path)) << path;
    }
    EXPECT_EQ(0, File::isReadOnly(scratch("out")));
    EXPECT_EQ(0, File::isReadOnly(scratch("out/file")));
    EXPECT_EQ(1, File::liftReadOnly(scratch("in"), 0));
    EXPECT_EQ(0777u, scratch.mode("in"));
    EXPECT_EQ(1, File::isReadOnly(scratch("in/sub")));
    EXPECT_EQ(1, File::liftReadOnly(scratch("in"), 1));
    EXPECT_EQ(0777u, scratch.mode("in/sub/file"));
    EXPECT_EQ(0, File::liftReadOnly(scratch("none"), 0));
}

TEST_F(TreeTest, ABackslashInANameIsNoWayOut) {
    scratch.file("in/..\\out\\file");
    EXPECT_EQ(0, File::erase(scratch("in"), 1));
    EXPECT_EQ(-1, File::size(scratch("in")));
    EXPECT_FALSE(File::copy(scratch("in"), scratch("copy"), 1));
    EXPECT_EQ("outside", scratch.content("out/file"));
}

TEST_F(TreeTest, CopyTakesTheFilesWithTheirPermissions) {
    chmod(scratch("in/sub/file"), 0765);
    mode_t const mask = umask(077);
    EXPECT_TRUE(File::copy(scratch("entry/"), scratch("x/copy/"), 0));
    umask(mask);
    EXPECT_EQ("inside", scratch.content("x/copy/file"));
    EXPECT_EQ("outside", scratch.content("x/copy/alias"));
    EXPECT_EQ(0765u, scratch.mode("x/copy/sub/file"));
    EXPECT_FALSE(scratch.has("x/copy/away"));
}

TEST_F(TreeTest, CopyNeverNestsADirectoryInItself) {
    scratch.link("in/sub", "deep");
    for (char const* target : {"in/new", "in/sub/a/b", "entry/new", "deep", "deep/new",
                               "out/../in/new", "none/../in/new"}) {
        EXPECT_FALSE(File::copy(scratch("in"), scratch(target), 1)) << target;
    }
    for (char const* made : {"in/new", "in/sub/a", "in/sub/new", "none"}) {
        EXPECT_FALSE(scratch.has(made)) << made;
    }
    scratch.directory("in/sub/own");
    scratch.directory("other");
    scratch.link("../in/sub/own", "other/sub");
    EXPECT_FALSE(File::copy(scratch("in"), scratch("other"), 0));
    EXPECT_FALSE(scratch.has("in/sub/own/own"));
    EXPECT_TRUE(File::copy(scratch("in"), scratch("inner"), 0));
    EXPECT_TRUE(File::copy(scratch("in"), scratch("in/"), 0));
}

TEST(CopyTest, OverwritesOnlyWhenAskedAndKeepsTheTail) {
    Scratch const scratch;
    char const* const source = scratch.file("source", "new");
    char const* const target = scratch.file("target", "longer");
    EXPECT_FALSE(File::copy(source, target, 0));
    EXPECT_EQ("longer", scratch.content("target"));
    EXPECT_TRUE(File::copy(source, target, 1));
    EXPECT_EQ("newger", scratch.content("target"));
    EXPECT_FALSE(File::copy(source, scratch("source/x"), 1));
    EXPECT_FALSE(File::copy(source, scratch.link("/dev/full", "full"), 1));
    EXPECT_FALSE(File::copy("/dev/zero", scratch("zeros"), 1));

    std::string const big(100000, 'b');
    EXPECT_TRUE(File::copy(scratch.file("big", big), scratch("big2"), 0));
    EXPECT_EQ(big, scratch.content("big2"));
}

TEST(CopyTest, RefusesWhatIsWrittenAndTakesWhatIsRead) {
    Scratch const scratch;
    File file(scratch.file("file", "text"), UTF8);
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::WRITE));
    EXPECT_FALSE(file.copy(scratch("copy"), 0));
    file.close();
    ASSERT_EQ(1, file.open(File::AS_IT_IS, File::READ));
    EXPECT_TRUE(file.copy(scratch("copy"), 0));
    EXPECT_EQ("text", scratch.content("copy"));
}

TEST(MoveTest, OverwritesNothingAndMakesTheWay) {
    Scratch const scratch;
    std::string const from = scratch.file("from", "text");
    std::string const directory = scratch.directory("d");
    LogCapture const log;
    EXPECT_EQ(1, File::move(from.c_str(), from.c_str()));
    EXPECT_EQ(0, File::move(from.c_str(), scratch.file("taken", "old")));
    EXPECT_EQ(0, File::move(from.c_str(), directory.c_str()));
    EXPECT_TRUE(log.has("rename Failed. errno[21] Source:" + from + "  Dest:" + directory));
    EXPECT_EQ(1, File::move(from.c_str(), scratch("a\\b/to")));
    EXPECT_EQ("text", scratch.content("a/b/to"));
    EXPECT_EQ("old", scratch.content("taken"));
    EXPECT_EQ(0, File::move(from.c_str(), scratch("x")));
}

// What is listed of a directory with the files a.txt, b.TXT, c, e.txt.x, a directory s.txt with the
// file in.txt, and a link l.txt to it, or of one with a wildcard in its name; "!" for failure.
struct Listing {
    char const* path;
    int kind;
    char const* extension;
    std::string names;
};

class ChildrenTest : public ::testing::TestWithParam<Listing> {};

TEST_P(ChildrenTest, ListsWhatIsAskedFor) {
    Scratch const scratch;
    for (char const* name :
         {"d/a.txt", "d/b.TXT", "d/c", "d/e.txt.x", "d/s.txt/in.txt", "q?/c", "w*/c"}) {
        scratch.file(name);
    }
    scratch.link("s.txt", "d/l.txt");
    File::Paths entries(1, File::Paths::GROWS);
    entries.insertAt(0, {});
    Listing const& listing = GetParam();
    int const count =
        File::children(scratch(listing.path), &entries, listing.kind, listing.extension, 0);

    std::vector<std::string> paths;
    for (unsigned long i = 0; i < entries.count(); ++i) {
        paths.push_back(entries[i].c_str() + std::string(scratch("")).size());
    }
    std::sort(paths.begin(), paths.end());
    std::string names;
    for (std::string const& path : paths) {
        names += path + ' ';
    }
    EXPECT_EQ(listing.names, count < 0 ? "!" : names);
    EXPECT_EQ(count < 0 ? 0 : count, static_cast<int>(entries.count()));
}

INSTANTIATE_TEST_SUITE_P(
    Paths, ChildrenTest,
    ::testing::Values(Listing{"d", 2, nullptr, "d/a.txt d/b.TXT d/c d/e.txt.x d/l.txt d/s.txt "},
                      Listing{"d", 1, nullptr, "d/s.txt "},
                      Listing{"d", 0, "Txt", "d/a.txt d/b.TXT d/l.txt "},
                      Listing{"d", 0, "", "d/c "}, Listing{"d", 2, "x", "d/e.txt.x d/s.txt "},
                      Listing{"d/s.txt/", 0, nullptr, "d/s.txt//in.txt "},
                      Listing{"d/*.txt", 0, nullptr, "d/a.txt d/l.txt "},
                      Listing{"d\\[bc]*", 2, nullptr, "d/b.TXT d/c "},
                      Listing{"d/*.none", 2, nullptr, ""}, Listing{"d/c", 2, nullptr, ""},
                      Listing{"d/none", 2, nullptr, "!"}, Listing{"w*/?", 2, nullptr, "!"},
                      Listing{"q?/*", 2, nullptr, "q?/c "}, Listing{"d/c/*", 2, nullptr, "!"},
                      Listing{"d", 3, nullptr, "!"}, Listing{"d", -1, nullptr, "!"},
                      Listing{"d//", 2, nullptr, "!"}));

TEST(ChildrenTest, StopsAtTheMostEntriesAndWithoutRoom) {
    Scratch const scratch;
    for (char const* name : {"a", "b", "c"}) {
        scratch.file(name);
    }
    File::Paths entries(2, File::Paths::FIXED);
    EXPECT_EQ(2, File(scratch.path(), UTF8).children(&entries, 2, nullptr, 2));
    EXPECT_EQ(-1, File::children(scratch.path(), &entries, 2, nullptr, 0));
    EXPECT_EQ(2u, entries.count());
}

std::map<unsigned long, int> statements;

void countStatement(utl::StatementInfo const& statement) {
    statements[statement.line()] += statement.sub() == 1 ? 1 : 0;
}

TEST(ChildrenTest, TellsTheWatchdogWhyAnEntryWasPassedOver) {
    Scratch const scratch;
    for (char const* name : {"a.txt", "b.x", "xc.txt", "d1/x", "d2/x"}) {
        scratch.file(name);
    }
    File::Paths entries(8, File::Paths::FIXED);
    utl::BlockingCall::install(countStatement);
    File::children(scratch("[ad]*"), &entries, 2, "txt", 0);
    File::children(scratch.path(), &entries, 0, nullptr, 0);
    File::children(scratch.path(), &entries, 1, nullptr, 0);
    utl::BlockingCall::install(nullptr);
    std::map<unsigned long, int> const expected = {{1348, 3}, {1358, 3}, {1367, 4}, {1376, 3},
                                                   {1387, 1}, {1402, 2}, {1407, 2}, {1415, 4},
                                                   {1419, 1}, {1443, 8}, {1446, 3}};
    EXPECT_EQ(expected, statements);
}

}  // namespace
