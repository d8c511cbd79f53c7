#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>

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
    File::liftReadOnly(scratch("moved"), 0);
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
        chmod(scratch.file("mine"), 0);
        EXPECT_EQ(-1, File::size(scratch("mine")));
    }));
}

TEST_F(TreeTest, ReadOnlyAppliesToAllInsideAndIsLifted) {
    EXPECT_EQ(1, File::applyReadOnly(scratch("entry/"), 1));
    for (char const* path : {"in", "in/file", "in/sub", "in/sub/file"}) {
        EXPECT_EQ(0555u, scratch.mode(path)) << path;
    }
    EXPECT_EQ(0, File::isReadOnly(scratch("out/file")));
    EXPECT_EQ(1, File::liftReadOnly(scratch("in"), 0));
    EXPECT_EQ(0777u, scratch.mode("in"));
    EXPECT_EQ(1, File::isReadOnly(scratch("in/sub")));
    EXPECT_EQ(1, File::liftReadOnly(scratch("in"), 1));
    EXPECT_EQ(0777u, scratch.mode("in/sub/file"));
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
    EXPECT_FALSE(scratch.has("in/new") || scratch.has("in/sub/a") || scratch.has("none"));
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
    EXPECT_FALSE(File::copy("/dev/zero", scratch("zeros"), 1));
    std::string const big(100000, 'b');
    EXPECT_TRUE(File::copy(scratch.file("big", big), scratch("big2"), 0));
    EXPECT_EQ(big, scratch.content("big2"));
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

struct ChildrenTest : ::testing::Test {
    ChildrenTest() {
        for (char const* name :
             {"d/a.txt", "d/b.TXT", "d/c", "d/e.txt.x", "d/s.txt/in.txt", "q?/c", "w*/c"}) {
            scratch.file(name);
        }
        scratch.link("s.txt", "d/l.txt");
        entries.insertAt(0, {});
    }

    // What is listed, in order; "!" for failure.
    std::string list(char const* path, int kind, char const* extension = nullptr) {
        int const count = File::children(scratch(path), &entries, kind, extension, 0);
        EXPECT_EQ(count < 0 ? 0 : count, static_cast<int>(entries.count()));
        std::multiset<std::string> paths;
        for (unsigned long i = 0; i < entries.count(); ++i) {
            paths.insert(entries[i].c_str() + std::string(scratch("")).size());
        }
        std::string names(count < 0 ? "!" : "");
        for (std::string const& name : paths) {
            names += name + ' ';
        }
        return names;
    }

    Scratch const scratch;
    File::Paths entries{2, File::Paths::GROWS};
};

TEST_F(ChildrenTest, AreThoseOfTheKindAndTheExtension) {
    EXPECT_EQ("d/a.txt d/b.TXT d/c d/e.txt.x d/l.txt d/s.txt ", list("d", File::ALL_KINDS));
    EXPECT_EQ("d/s.txt ", list("d", File::DIRECTORIES));
    EXPECT_EQ("d/a.txt d/b.TXT d/l.txt ", list("d", File::FILES, "Txt"));
    EXPECT_EQ("d/c ", list("d", File::FILES, ""));
    EXPECT_EQ("d/e.txt.x d/s.txt ", list("d", File::ALL_KINDS, "x"));
    EXPECT_EQ("d/s.txt//in.txt ", list("d/s.txt/", File::FILES));
    EXPECT_EQ("", list("d/c", File::ALL_KINDS));
    EXPECT_EQ("!", list("d/none", File::ALL_KINDS));
    EXPECT_EQ("!", list("d", 3));
}

TEST_F(ChildrenTest, MatchAPatternWhereNoDirectoryHasItsName) {
    EXPECT_EQ("d/a.txt d/l.txt ", list("d/*.txt", File::FILES));
    EXPECT_EQ("d/b.TXT d/c ", list("d\\[bc]*", File::ALL_KINDS));
    EXPECT_EQ("q?/c ", list("q?/*", File::ALL_KINDS));
    EXPECT_EQ("!", list("w*/?", File::ALL_KINDS));
    EXPECT_EQ("!", list("d/c/*", File::ALL_KINDS));
}

TEST_F(ChildrenTest, StopAtTheMostEntriesAndWithoutRoom) {
    File::Paths two(2, File::Paths::FIXED);
    EXPECT_EQ(2, File(scratch("d"), UTF8).children(&two, File::ALL_KINDS, nullptr, 2));
    EXPECT_EQ(-1, File::children(scratch("d"), &two, File::ALL_KINDS, nullptr, 0));
    EXPECT_EQ(2u, two.count());
}

}  // namespace
