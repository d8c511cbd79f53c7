#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "UtlFile.h"

#include "foundation/UtlBlockingCall.h"
#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/TextFile.h"

namespace {

using test::LogCapture;
using test::OpenFile;
using utl::File;

constexpr int UTF8 = File::UTF8;

// What others do at a bad moment: right before a call of the system, or at a statement that the
// watchdog hears of.
std::function<void()> beforeUnlink;
std::function<void()> beforeRename;
unsigned openedUp;  // how often a directory was
bool ignoresModes;  // as some file systems do

void happen(std::function<void()>& what) {
    if (what != nullptr) {
        std::exchange(what, nullptr)();
    }
}

// Each statement is heard before and behind its call.
void actAt(unsigned long statement, unsigned timesToPass, std::function<void()> what) {
    static std::function<void(unsigned long)> hear;
    hear = [=](unsigned long heard) mutable {
        if (heard == statement && timesToPass-- == 0) {
            happen(what);
        }
    };
    utl::BlockingCall::install([](utl::StatementInfo const& heard) { hear(heard.line()); });
}

bool hasExclusiveRename = true;
bool hasLinks = true;
unsigned transfersLeft = 0;  // until the system can no more

int failWith(int error) {
    errno = error;
    return -1;
}

}  // namespace

// In place of the C library's.
extern "C" int unlinkat(int directory, char const* name, int flags) noexcept {
    struct stat status;
    bool const isOpenToAll = fstat(directory, &status) == 0 && (status.st_mode & 0777) == 0777;
    if (isOpenToAll) {
        happen(beforeUnlink);
    }
    return static_cast<int>(syscall(SYS_unlinkat, directory, name, flags));
}

extern "C" int fchmod(int descriptor, mode_t mode) noexcept {
    struct stat status;
    bool const isDirectory = fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
    openedUp += isDirectory && (mode & 0777) == 0777 ? 1 : 0;
    return ignoresModes ? 0 : static_cast<int>(syscall(SYS_fchmod, descriptor, mode));
}

extern "C" int renameat2(int from, char const* source, int to, char const* destination,
                         unsigned flags) noexcept {
    happen(beforeRename);
    return hasExclusiveRename
               ? static_cast<int>(syscall(SYS_renameat2, from, source, to, destination, flags))
               : failWith(ENOSYS);
}

extern "C" ssize_t copy_file_range(int from, off64_t*, int to, off64_t*, size_t length, unsigned) {
    return transfersLeft == 0 || transfersLeft-- == 0
               ? failWith(EXDEV)
               : syscall(SYS_copy_file_range, from, nullptr, to, nullptr, length, 0);
}

extern "C" int link(char const* source, char const* destination) noexcept {
    happen(beforeRename);
    return hasLinks ? linkat(AT_FDCWD, source, AT_FDCWD, destination, 0) : failWith(EPERM);
}

namespace {

using ParentModeTest = test::ScratchTest;
using MakeDirectoriesTest = test::ScratchTest;
using EraseTest = test::ScratchTest;
using CopyTest = test::ScratchTest;
using MoveTest = test::ScratchTest;

bool opens(char const* path, int mode = File::AS_IT_IS) {
    return File(path, UTF8).open(mode, File::WRITE) == 1;
}

TEST_F(ParentModeTest, ComesBackWhateverComesOfTheCall) {
    EXPECT_TRUE(test::asNobody([&] {
        scratch.file("d/sub/file", "text");
        scratch.file("source", std::string(3000, 's'));
        OpenFile held(scratch.file("d/held"), File::READ);
        chmod(scratch.file("d/locked"), 0);
        chmod(scratch("d"), 0555);
        chmod(scratch("source"), 06755);
        signal(SIGXFSZ, SIG_IGN);
        rlimit const mostBytes = {2500, 2500};
        setrlimit(RLIMIT_FSIZE, &mostBytes);

        auto const expect = [&](char const* what, bool isSo) {
            EXPECT_TRUE(isSo) << what;
            EXPECT_EQ(0555u, scratch.mode("d")) << what;
        };
        expect("open", opens(scratch("d/new")));
        expect("open: in use", !opens(scratch("d/held"), File::EMPTY));
        expect("open: no permission", !opens(scratch("d/locked"), File::EMPTY));
        expect("make", File::makeDirectories(scratch("d/a/b")));
        expect("make: no directory", !File::makeDirectories(scratch("d/new/x")));
        expect("copy", File::copy(scratch("d/new"), scratch("d/copy"), 0));
        expect("copy: taken", !File::copy(scratch("source"), scratch("d/held"), 0));
        expect("copy: no room", !File::copy(scratch("source"), scratch("d/part"), 0));
        EXPECT_EQ(2500, File::size(scratch("d/part")));
        EXPECT_EQ(0755u, scratch.mode("d/part"));
        expect("erase", File::erase(scratch("d/sub"), 0));
        expect("erase: in use", !File::erase(scratch("d/held"), 1));
        File::liftReadOnly(scratch("d"), 0);
    }));
}

TEST_F(ParentModeTest, OverlappingCallsPutBackTheModeThatIsWanted) {
    EXPECT_TRUE(test::asNobody([&] {
        scratch.file("d/file");
        scratch.file("d/other");
        chmod(scratch("d"), 03555);
        // While a thread is kept in the middle of its call, others do what they like.
        beforeUnlink = [&] {
            EXPECT_EQ(1, File::erase(scratch("d/other"), 0));
            EXPECT_EQ(03777u, scratch.mode("d"));
            long oldMode = 0;
            EXPECT_EQ(1, File::changeParentAccessMode(scratch("d/x"), 0777, &oldMode));
            EXPECT_EQ(03555, oldMode & 07777);
            ASSERT_EQ(0, rename(scratch("d"), scratch("moved")));
            EXPECT_EQ(1, File::changeParentAccessMode(scratch("moved/x"), 0711, &oldMode));
            EXPECT_EQ(03777u, scratch.mode("moved"));  // for whoever works in it
            EXPECT_EQ(1, File::changeParentAccessMode(scratch("moved/x"), oldMode, &oldMode));
            EXPECT_EQ(0711, oldMode & 07777);
            EXPECT_EQ(1, File::applyReadOnly(scratch("moved"), 0));
            chmod(scratch.directory("d"), 0700);
        };
        EXPECT_EQ(1, File::erase(scratch("d/file"), 0));
        EXPECT_EQ(0700u, scratch.mode("d"));  // another directory by now
        EXPECT_EQ(0555u, scratch.mode("moved"));
        File::liftReadOnly(scratch("moved"), 0);
    }));
}

TEST_F(ParentModeTest, ComesBackWithTheLastOfTwoThreads) {
    EXPECT_TRUE(test::asNobody([&] {
        scratch.file("d/first");
        scratch.file("d/last");
        chmod(scratch("d"), 0550);
        test::Gate lastIsInside;
        test::Gate firstHasLeft;
        std::thread last;
        beforeUnlink = [&] {
            beforeUnlink = [&] {
                lastIsInside.open();
                EXPECT_TRUE(firstHasLeft.wait());
            };
            chmod(scratch("d"), 0500);  // by another process that had opened it up too
            last = std::thread([&] { EXPECT_EQ(1, File::erase(scratch("d/last"), 0)); });
            EXPECT_TRUE(lastIsInside.wait());
        };
        EXPECT_EQ(1, File::erase(scratch("d/first"), 0));
        EXPECT_EQ(0777u, scratch.mode("d"));
        firstHasLeft.open();
        last.join();
        EXPECT_EQ(0550u, scratch.mode("d"));
    }));
}

TEST_F(ParentModeTest, StaysWhereTheOwnerMayWorkOrTheNameIsALink) {
    bool const isOthers = chown(scratch.directory("others"), test::NOBODY, 0) == 0;
    chmod(scratch("others"), 02555);
    EXPECT_TRUE(test::asNobody([&] {
        chmod(scratch.directory("d"), 0750);
        openedUp = 0;
        auto const look = [&] { EXPECT_EQ(0750u, scratch.mode("d")); };
        actAt(1612, 0, look);
        OpenFile file(scratch("d/file"), File::WRITE);
        EXPECT_EQ(1, file.write("x", 1));
        EXPECT_EQ(1, file.close());
        actAt(2034, 0, look);
        EXPECT_TRUE(file.copy(scratch("d/copy"), 0));
        actAt(1236, 0, look);
        EXPECT_EQ(1, File::erase(scratch("d/copy"), 1));

        chmod(scratch("d/file"), 0444);
        chmod(scratch("d"), 0555);
        EXPECT_FALSE(opens(scratch("d/file")));  // the file refuses
        scratch.link("d", "link");
        EXPECT_FALSE(opens(scratch("link/new")));
        EXPECT_EQ(0, File::erase(scratch("link/file"), 1));
        ASSERT_EQ(0, chdir(scratch("d")));
        EXPECT_FALSE(opens("new"));
        // The set-group-id bit could not come back.
        EXPECT_NE(isOthers, opens(scratch("others/new")));
        EXPECT_EQ(isOthers ? 0u : 1u, openedUp);
        EXPECT_EQ(02555u, scratch.mode("others"));
        chmod(scratch("others"), 0700);
        openedUp = 0;
        EXPECT_EQ(1, File::erase(scratch("d"), 1));
        EXPECT_LT(0u, openedUp);

        chmod(scratch.file("unreadable/file"), 0);
        chmod(scratch("unreadable"), 0300);
        EXPECT_EQ(1, File::applyReadOnly(scratch("unreadable/file"), 0));
        EXPECT_EQ(0555u, scratch.mode("unreadable/file"));
        EXPECT_EQ(1, File::erase(scratch("unreadable/file"), 1));
        chmod(scratch("unreadable"), 0700);
    }));
}

TEST_F(ParentModeTest, ChangesForTheLongestPathAndNoLonger) {
    std::string const parent(259 - std::string(scratch("/x")).size(), 'n');
    char const* const longest = scratch(parent + "/x");
    char const* const tooLong = scratch(parent + "/xy");
    chmod(scratch.directory(parent), 0700);
    long oldMode = 0;
    EXPECT_EQ(1, File::changeParentAccessMode(longest, 0710, &oldMode));
    EXPECT_EQ(0710u, scratch.mode(parent));
    EXPECT_EQ(S_IFDIR | 0700, oldMode);
    for (int const changes : {1, 0}) {
        EXPECT_EQ(changes, File::changeParentAccessMode(longest, oldMode, nullptr));
        EXPECT_EQ(0700u, scratch.mode(parent));
    }
    for (char const* path : {tooLong, scratch("none/x"), "name", "/name"}) {
        EXPECT_EQ(0, File::changeParentAccessMode(path, 0777, nullptr)) << path;
    }
    EXPECT_TRUE(opens(longest) && !opens(tooLong));
    EXPECT_EQ(1, File::erase(longest, 0));
}

TEST_F(MakeDirectoriesTest, TouchesNothingThatIsThere) {
    scratch.file("a/b/file");
    struct stat before, after;
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

TEST_F(EraseTest, RefusesWhatIsReadOnlyOrOpenBeforeItHarmsIt) {
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

TEST_F(EraseTest, ThatFailsHalfWayLeavesWhatIsLeftAsItWas) {
    chmod(scratch.file("d/gone/file"), 0444);
    chmod(scratch.file("d/stays/held"), 0440);
    OpenFile held(scratch("d/stays/held"), File::READ);
    chmod(scratch("d/stays"), 0540);
    ASSERT_EQ(0, ::link(scratch("d/gone/file"), scratch("kept")));
    EXPECT_EQ(0, File::erase(scratch("d/gone"), 0));
    EXPECT_EQ(0444u, scratch.mode("kept"));
    EXPECT_EQ(1, File::erase(scratch("d/gone"), 1));
    EXPECT_EQ(0777u, scratch.mode("kept"));
    EXPECT_EQ(0, File::erase(scratch("d"), 1));
    EXPECT_EQ(0440u, scratch.mode("d/stays/held"));
    EXPECT_EQ(0540u, scratch.mode("d/stays"));
    held.close();
    EXPECT_EQ(1, File::erase(scratch("d"), 1));

    scratch.file("e/sub/file");
    for (char const* path : {"e/.", "e/..", "e/sub/..", "e/sub/./"}) {
        EXPECT_EQ(0, File::erase(scratch(path), 1)) << path;
    }
    EXPECT_TRUE(scratch.has("e/sub/file"));
}

// A directory with links out of it, and one to it.
struct TreeTest : test::ScratchTest {
    TreeTest() {
        scratch.file("out/file", "outside");
        scratch.file("in/file", "inside");
        scratch.file("in/sub/file", "below");
        scratch.link("../out", "in/away");
        scratch.link("../out/file", "in/alias");
        scratch.link("in", "entry");
    }
};

TEST_F(TreeTest, EraseRemovesLinksAndNothingBehindThem) {
    scratch.link("nowhere", "in/dangling");
    unsigned const mode = scratch.mode("out/file");
    EXPECT_EQ(1, File::erase(scratch("entry/sub"), 0));
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
        chmod(scratch.directory("d/shut"), 0444);
        EXPECT_EQ(0, File::size(scratch("d")));
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
    LogCapture const log;
    ignoresModes = true;
    EXPECT_EQ(0, File::applyReadOnly(scratch("in"), 0));
    ignoresModes = false;
    EXPECT_TRUE(log.has(std::string("applyReadOnly can't change ") + scratch("in")));
    EXPECT_EQ(1, File::liftReadOnly(scratch("in"), 1));
    EXPECT_EQ(0777u, scratch.mode("in/sub/file"));
}

TEST_F(TreeTest, NothingLeadsOutThatOthersPutThereMeanwhile) {
    auto const fails = [&](char const* name, unsigned directoriesBefore, auto work) {
        actAt(1348, 2 * directoriesBefore, [&] {  // right before it is opened
            rename(scratch(name), scratch("aside"));
            scratch.link(scratch("out"), name);
        });
        EXPECT_FALSE(work());
        EXPECT_EQ("outside", scratch.content("out/file"));
        EXPECT_NE(0777u, scratch.mode("out/file"));
        unlink(scratch(name));
        EXPECT_EQ(0, rename(scratch("aside"), scratch(name)));
    };
    chmod(scratch("out/file"), 0640);
    fails("in/sub", 1, [&] { return File::size(scratch("in")) != -1; });
    fails("in/sub", 1, [&] { return File::liftReadOnly(scratch("in"), 1); });
    fails("in/sub", 2, [&] { return File::copy(scratch("in"), scratch("copy"), 0); });
    fails("in", 0, [&] { return File::erase(scratch("in"), 1); });
    fails("in/sub", 1, [&] { return File::erase(scratch("in"), 1); });
    // What is above a directory that has been moved is not where the walk came from.
    actAt(1446, 2, [&] { rename(scratch("in/sub"), scratch("out/sub")); });
    EXPECT_EQ(0, File::erase(scratch("in"), 1));
    EXPECT_EQ("outside", scratch.content("out/file"));
    EXPECT_TRUE(scratch.has("out/sub"));
}

TEST_F(TreeTest, TakesNamesOfAnyBytesAndAnyDepth) {
    scratch.file("in/..\\out\\file", "12");
    scratch.file("in/\x95\\/\xFF\\", "345");
    // Deeper than a path can say, and than descriptors are to be had.
    EXPECT_TRUE(test::inChild([&] {
        ASSERT_EQ(0, chdir(scratch("in")));
        for (int depth = 0; depth < 300; ++depth) {
            ASSERT_EQ(0, mkdir(std::string(200, 'n').c_str(), 0777));
            ASSERT_EQ(0, chdir(std::string(200, 'n').c_str()));
        }
        symlink("/", "root");
        rlimit const few = {16, 16};
        setrlimit(RLIMIT_NOFILE, &few);
        EXPECT_EQ(6 + 5 + 7 + 2 + 3, File::size(scratch("in")));
        EXPECT_TRUE(File::copy(scratch("in"), scratch("copy"), 0));
        EXPECT_EQ(1, File::applyReadOnly(scratch("in"), 1));
        EXPECT_EQ(1, File::erase(scratch("in"), 1));
        EXPECT_EQ(6 + 5 + 7 + 2 + 3, File::size(scratch("copy")));
        EXPECT_EQ(1, File::erase(scratch("copy"), 0));
    }));
    EXPECT_FALSE(scratch.has("in") || scratch.has("copy"));
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
    actAt(1348, 2, [&] { rename(scratch("to"), scratch("in/to")); });
    EXPECT_FALSE(File::copy(scratch("in"), scratch("to"), 0));
    EXPECT_TRUE(File::copy(scratch("in"), scratch("inner"), 0));
    EXPECT_TRUE(File::copy(scratch("in"), scratch("in/"), 0));
}

TEST_F(TreeTest, CopyWritesIntoNothingThatIsALinkOrHeld) {
    scratch.directory("to");
    for (char const* target : {"../out/file", "../out/new"}) {
        scratch.link(target, "to/file");
        EXPECT_FALSE(File::copy(scratch("in"), scratch("to"), 1)) << target;
        unlink(scratch("to/file"));
    }
    EXPECT_EQ("outside", scratch.content("out/file"));
    EXPECT_FALSE(scratch.has("out/new"));
    OpenFile held(scratch.file("to/file", "longer than that"), File::READ);
    EXPECT_FALSE(File::copy(scratch("in"), scratch("to"), 1));
    EXPECT_FALSE(File::copy(scratch("in/file"), scratch("to/file"), 1));
    EXPECT_EQ("longer than that", scratch.content("to/file"));
    held.close();
    EXPECT_TRUE(File::copy(scratch("in"), scratch("to"), 1));
    EXPECT_EQ("insidethan that", scratch.content("to/file").erase(6, 1));
}

TEST_F(CopyTest, CarriesSetIdBitsOnlyToTheSameOwners) {
    chmod(scratch.file("others", "text"), 06755);
    EXPECT_TRUE(test::asNobody([&] {
        chmod(scratch.file("own", "text"), 06755);
        EXPECT_TRUE(File::copy(scratch("own"), scratch("own copy"), 0));
        EXPECT_EQ(06755u, scratch.mode("own copy"));
        EXPECT_TRUE(File::copy(scratch("others"), scratch("copy"), 0));
    }));
    EXPECT_EQ(getuid() == 0 ? 0755u : 06755u, scratch.mode("copy"));
}

TEST_F(CopyTest, OverwritesOnlyWhenAskedAndKeepsTheTail) {
    char const* const source = scratch.file("source", "new");
    char const* const target = scratch.file("target", "longer");
    EXPECT_FALSE(File::copy(source, target, 0));
    EXPECT_EQ("longer", scratch.content("target"));
    chmod(target, 0640);
    actAt(2058, 0, [&] { EXPECT_TRUE(opens(source)); });
    EXPECT_TRUE(File::copy(source, target, 1));
    EXPECT_EQ("newger", scratch.content("target"));
    EXPECT_EQ(0640u, scratch.mode("target"));
    actAt(2044, 1, [&] { EXPECT_EQ(1, File::erase(target, 0)); });
    EXPECT_TRUE(File::copy(source, target, 1));
    EXPECT_EQ("new", scratch.content("target"));
    EXPECT_FALSE(File::copy(source, scratch("source/x"), 1));
    EXPECT_FALSE(File::copy("/dev/zero", scratch("zeros"), 1));
}

TEST_F(CopyTest, TakesAllOfALargeFileHoweverFarTheSystemDoesIt) {
    std::string big(9000001, '\0');
    std::generate(big.begin(), big.end(), std::minstd_rand(5));
    char const* const source = scratch.file("big", big);
    for (unsigned const transfers : {100u, 2u, 1u, 0u}) {
        transfersLeft = transfers;
        EXPECT_TRUE(File::copy(source, scratch.file("longer", big + "tail"), 1));
        EXPECT_TRUE(big + "tail" == scratch.content("longer")) << transfers;
        transfersLeft = transfers;
        EXPECT_TRUE(File::copy(source, scratch("copy"), 0));
        EXPECT_TRUE(big == scratch.content("copy")) << transfers;
        unlink(scratch("copy"));
    }
}

TEST_F(MoveTest, OverwritesNothingAndMakesTheWay) {
    std::string const from = scratch.file("from", "text");
    scratch.file("taken", "old");
    scratch.link(scratch.directory("d"), "link");
    LogCapture const log;
    EXPECT_EQ(1, File::move(from.c_str(), from.c_str()));
    for (char const* target : {"taken", "d", "link", "a//to"}) {
        EXPECT_EQ(0, File::move(from.c_str(), scratch(target))) << target;
    }
    EXPECT_TRUE(log.has("rename Failed. errno[21] Source:" + from + "  Dest:" + scratch("d")));
    EXPECT_TRUE(File::isDirectory(scratch("link")));
    EXPECT_EQ(0, File::move(scratch("\\from"), scratch("to")));
    EXPECT_EQ(-1, File::size(scratch("\\from")));
    {
        OpenFile held(from.c_str(), File::READ);
        EXPECT_EQ(0, File::move(from.c_str(), scratch("to")));
    }
    EXPECT_EQ(1, File::move(from.c_str(), scratch("a\\b/to")));
    EXPECT_EQ("text", scratch.content("a/b/to"));
    EXPECT_EQ("old", scratch.content("taken"));
    EXPECT_EQ(0, File::move(from.c_str(), scratch("x")));
}

TEST_F(MoveTest, OverwritesNothingThatAppearsMeanwhileOnAnySystem) {
    using System = std::pair<bool, bool>;
    for (System const& system : {System(false, false), System(false, true), System(true, true)}) {
        std::tie(hasExclusiveRename, hasLinks) = system;
        scratch.file("from", "text");
        scratch.file("d/file", "text");
        for (char const* source : {"from", "d"}) {
            beforeRename = [&] { scratch.file("to", "appeared"); };
            EXPECT_EQ(0, File::move(scratch(source), scratch("to")));
            EXPECT_EQ("appeared", scratch.content("to"));
            unlink(scratch("to"));
        }
        EXPECT_EQ(0, File::move(scratch("d"), scratch("d/in/itself")));
        EXPECT_FALSE(scratch.has("d/in/itself"));
        EXPECT_EQ(1, File::move(scratch("d"), scratch("to")));
        EXPECT_EQ(1, File::move(scratch("from"), scratch("to2")));
        EXPECT_EQ("text, text", scratch.content("to/file") + ", " + scratch.content("to2"));
        EXPECT_FALSE(scratch.has("d") || scratch.has("from"));
        EXPECT_EQ(1, File::move(scratch("to"), scratch.directory("empty")));
        std::filesystem::remove_all(scratch.path());
    }
}

struct ChildrenTest : test::ScratchTest {
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
        EXPECT_EQ(std::max(count, 0), static_cast<int>(entries.count()));
        std::multiset<std::string> names;
        for (unsigned long i = 0; i < entries.count(); ++i) {
            names.insert(entries[i].c_str() + std::string(scratch("")).size() + std::string(" "));
        }
        return std::accumulate(names.begin(), names.end(), std::string(count < 0 ? "!" : ""));
    }

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
    EXPECT_EQ(6, File::children(scratch("d"), &entries, File::ALL_KINDS, nullptr, 0));
    EXPECT_EQ(6u, entries.capacity());
}

}  // namespace
