// Heap accounting. Two programs are made of this file: one with the library as it is by default,
// and one with the accounting switched on.

#include "UtlMemory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "UtlThreadManager.h"

#include "memory/UtlHeapListing.h"
#include "memory/UtlHeapTable.h"
#include "support/LogCapture.h"
#include "support/Scratch.h"

namespace utl {
namespace {

// A fresh accounting, in a directory of its own. Descriptor 0 is a file there.
class MemoryTest : public test::ScratchTest {
protected:
    MemoryTest() {
        int const file = open(scratch("stdin"), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        dup2(file, STDIN_FILENO);
        close(file);
        id.insert(0, 10 - id.size(), ' ');
    }

    ~MemoryTest() override {
        Memory::destroy();
        dup2(mStdin, STDIN_FILENO);
        close(mStdin);
    }

    static void allocate(std::uintptr_t address, unsigned long bytes, unsigned long fileId = NONE,
                         int line = 12) {
        Memory::get()->updateManagement(0, reinterpret_cast<void*>(address), bytes, fileId, line);
    }

    static void release(std::uintptr_t address) {
        Memory::get()->updateManagement(1, reinterpret_cast<void*>(address), 0, NONE, 12);
    }

    std::string logged() const {
        std::string text;
        for (test::LogLine const& line : mLog.all()) {
            text += line.priority == 4 && line.tag == "UtlMemory" ? line.text : "";
        }
        return text;
    }

    std::string dumped(bool (Memory::*print)(int, char const*)) const {
        EXPECT_TRUE((Memory::get()->*print)(0, scratch("dump")));
        return scratch.content("dump");
    }

    // The id of the calling thread as every output shows it, in 10 columns.
    std::string id = std::to_string(gettid());

private:
    int const mStdin = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    test::LogCapture mLog;
};

// A warning goes to the log and to descriptor 0.
TEST_F(MemoryTest, WarnsOfAReleaseOfWhatWasNotAllocated) {
    release(0x3000);
    release(0);
    std::string const rule = std::string(67, '!') + "\n";
    EXPECT_EQ(rule + "!!!! DetailHeapInfo release address is not in under management\n" +
                  "Address:0x00003000, ThreadId:" + id + ", Line:      12, File:, \n" + rule,
              logged());
    EXPECT_EQ(logged(), scratch.content("stdin"));
}

TEST_F(MemoryTest, WarnsWhenTheTableIsFullUntilARelease) {
    std::uintptr_t const capacity = Memory::enabledHeapManagement() ? 65536 : 1;
    for (std::uintptr_t i = 1; i <= capacity; ++i) {
        allocate(0x1000 * i, 1);
    }
    allocate(0x8, 5, 0, -1);
    release(0x1000);
    allocate(0x8, 5);
    EXPECT_EQ("!!!! DetailHeapInfo management over on allocation\nMaxCount:" +
                  std::to_string(capacity) + ", Address:0x00000008, UseBytes:         5, " +
                  "ThreadId:" + id + ", Line:      -1, File:, \n",
              logged());
    EXPECT_EQ(logged(), scratch.content("stdin"));
}

TEST_F(MemoryTest, DropsAMessageOf1024Bytes) {
    Memory::get()->printMessage(0, STDIN_FILENO, "%s", std::string(1024, 'x').c_str());
    Memory::get()->printMessage(0, STDIN_FILENO, "%s", std::string(1023, 'y').c_str());
    EXPECT_EQ(std::string(1023, 'y'), scratch.content("stdin"));
    EXPECT_EQ("", logged());
}

// A full pipe is not waited for by an allocation, one without a reader raises a signal, and a full
// disk refuses for good.
TEST_F(MemoryTest, LeavesAloneWhatTakesNothing) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    dup2(ends[1], STDIN_FILENO);
    fcntl(STDIN_FILENO, F_SETFL, O_NONBLOCK);
    char page[4096] = {};
    while (write(STDIN_FILENO, page, sizeof page) > 0) {
    }
    fcntl(STDIN_FILENO, F_SETFL, 0);
    release(0x3000);
    EXPECT_NE("", logged());

    EXPECT_LT(0, read(ends[0], page, sizeof page));
    close(ends[0]);
    int const disk = open("/dev/full", O_WRONLY | O_CLOEXEC);
    errno = ERANGE;
    for (int const fd : {disk, ends[1]}) {
        Memory::get()->printMessage(0, fd, "text");
        close(fd);
    }
    EXPECT_EQ(ERANGE, errno);
}

TEST_F(MemoryTest, KnowsTheThreadsOfTheManager) {
    ThreadManager::get();  // registers a thread of its own
    Memory::get()->initializeManagementTable();
    EXPECT_NE(0, ThreadManager::get()->entryCaller(0, 0, nullptr, "caller"));
    EXPECT_STREQ("caller", Memory::get()->getThreadName(ThreadManager::getCallerId()));
    ThreadManager::destroy();
}

#ifndef UTL_HEAP_ACCOUNTING

TEST_F(MemoryTest, AnswersNothingWhileSwitchedOff) {
    Memory::ProcessHeapInfo info = {7, 7, 7, 7};
    allocate(0x1000, 10);
    EXPECT_EQ(NONE, Memory::get()->getFileId("a.cpp"));
    EXPECT_TRUE(Memory::get()->getUsedHeapOfProcess(&info));
    EXPECT_EQ(7u, info.UseBytes);
    for (auto const print :
         {&Memory::printUsedHeap, &Memory::printUsedHeapDetail, &Memory::printMarkedHeapDetail}) {
        EXPECT_EQ("", dumped(print));
    }
    Memory::get()->printGlobalMemoryStatus("title");
    Memory::get()->resetUsedHeap();  // does nothing: the table is still full
    EXPECT_EQ("", logged());
    allocate(0x1000, 10);
    EXPECT_NE("", logged());
}

#else

TEST_F(MemoryTest, DumpsShowFiguresAndDetailsByAddressAndThoseSinceTheMark) {
    Memory* const memory = Memory::get();
    EXPECT_FALSE(memory->printMarkedHeapDetail(1, nullptr));
    std::string const columns =
        "\n       No.,       Serial,    Address,   UseBytes,   ThreadId, "
        "ThreadName                        ,     Line, File, \n";
    std::string const marked = "---- ProcessDetailHeap (Marked) ----" + columns;
    std::string const thread = ", " + id + ", tester                            , ";
    std::string const address = sizeof(void*) == 8 ? "0x7123456789ab" : "0x456789ab";
    std::string const last =
        ",            5, 0x00003000,          4" + thread + "4294967295, src/c.cpp, \n";
    memory->registerThreadName(ThreadManager::getCallerId(), "tester");
    allocate(0x3000, 1, memory->getFileId("src/b.cpp"), 7);
    allocate(0x2000, 20);
    allocate(static_cast<std::uintptr_t>(0x7123456789AB), 3);  // cut on 32 bits
    allocate(0x1000, 5);
    release(0x2000);
    release(0x1000);
    release(0x800);  // never allocated
    memory->mark();
    allocate(0x3000, 4, memory->getFileId("src/c.cpp"), -1);
    EXPECT_EQ(
        "---- ProcessHeap ----\n     UseBytes,      UseCount,      MaxBytes,      MaxCount, "
        "\n            8,             3,            29,             4, \n",
        dumped(&Memory::printUsedHeap));
    EXPECT_EQ("---- ProcessDetailHeap ----" + columns + "         1" + last +
                  "         2,            1, 0x00003000,          1" + thread +
                  "       7, src/b.cpp, \n         3,            3, " + address + ",          3" +
                  thread + "      12, , \n",
              dumped(&Memory::printUsedHeapDetail));
    EXPECT_EQ(marked + "         1" + last, dumped(&Memory::printMarkedHeapDetail));

    memory->resetUsedHeap();
    allocate(0x1000, 1, 0);  // the mark is still there, but serials and files have begun anew
    EXPECT_EQ(marked, dumped(&Memory::printMarkedHeapDetail));
    EXPECT_EQ("---- ProcessDetailHeap ----" + columns + "         1,            1, 0x00001000, " +
                  "         1, " + id + ",                                   ,       12, , \n",
              dumped(&Memory::printUsedHeapDetail));
    Memory::destroy();
    EXPECT_FALSE(Memory::get()->printMarkedHeapDetail(1, nullptr));
}

TEST_F(MemoryTest, FileNamesAreNumberedUntilTheTableIsFull) {
    Memory* const memory = Memory::get();
    EXPECT_EQ(NONE, memory->getFileId(nullptr));
    EXPECT_EQ(0u, memory->getFileId((std::string(258, 'a') + "\xC3\xA9").c_str()));
    EXPECT_EQ(std::string(258, 'a'), memory->getFileName(0));  // no half character
    for (unsigned long i = 1; i < 1024; ++i) {
        EXPECT_EQ(i, memory->getFileId(std::to_string(i).c_str()));
    }
    EXPECT_EQ(NONE, memory->getFileId("one more"));
    EXPECT_EQ(77u, memory->getFileId("77"));
    memory->resetUsedHeap();
    EXPECT_STREQ("", memory->getFileName(0));
    EXPECT_EQ(0u, memory->getFileId("77"));
    EXPECT_FALSE(memory->getUsedHeapOfProcess(nullptr));
}

TEST_F(MemoryTest, ThreadNamesFollowTheKernelsUseOfIds) {
    Memory* const memory = Memory::get();
    memory->registerThreadName(5, "");
    memory->registerThreadName(0, "nobody");
    for (int i = 0; i < 300; ++i) {  // takes one place: it is the first
        memory->registerThreadName(1, std::string(130, 'n').c_str());
    }
    for (int i = 2; i < 256; ++i) {
        memory->registerThreadName(i, "other");
    }
    memory->registerThreadName(2, "\xFF");
    memory->registerThreadName(3, "no room");
    EXPECT_EQ(std::string(127, 'n'), memory->getThreadName(1));
    EXPECT_STREQ("\xFF", memory->getThreadName(2));
    EXPECT_STREQ("other", memory->getThreadName(3));
    EXPECT_STREQ("", memory->getThreadName(0));
    memory->resetUsedHeap();
    EXPECT_STREQ("", memory->getThreadName(3));
}

TEST_F(MemoryTest, ADumpMakesItsDirectoriesAndLeavesModesAlone) {
    unsigned const descriptors = test::openDescriptors();
    chmod(scratch.path(), 0750);
    scratch.file("old", std::string(1000, '#'));
    for (char const* name : {"a/b/new", "old", "old/in a file", "a/b"}) {
        EXPECT_TRUE(Memory::get()->printUsedHeap(1, scratch(name)));
    }
    EXPECT_EQ(0750u, scratch.mode(""));
    EXPECT_EQ(descriptors, test::openDescriptors());
    EXPECT_EQ(scratch.content("old"), scratch.content("a/b/new"));
    EXPECT_EQ(4 * scratch.content("old").size(), logged().size());
}

TEST_F(MemoryTest, NobodyWaitsForADumpIntoAFullPipe) {
    char const* const pipe = scratch("pipe");
    ASSERT_EQ(0, mkfifo(pipe, 0600));
    EXPECT_TRUE(Memory::get()->printUsedHeap(0, pipe));  // which nobody reads
    int const reader = open(pipe, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    for (std::uintptr_t i = 1; i <= 1000; ++i) {
        allocate(i, 1);
    }
    std::atomic<bool> hasEnded{false};
    std::thread dump([&] {
        Memory::get()->printUsedHeapDetail(0, pipe);
        hasEnded = true;
    });
    int filled = 0;
    EXPECT_TRUE(
        test::comesTrue([&] { return ioctl(reader, FIONREAD, &filled) == 0 && filled > 60000; }));
    release(1000);
    allocate(2000, 1);
    EXPECT_NE("", dumped(&Memory::printUsedHeapDetail));
    EXPECT_FALSE(hasEnded);
    close(reader);
    dump.join();
}

// Beside an ordered map; with memory for all rows, and with none.
TEST(HeapListingTest, ListsByAddressWhatIsLiveTheLatestFirst) {
    static HeapTable<256> table;
    table.clear();
    static platform::StaticLock lock(platform::LockOrder::HEAP_TABLE);
    std::map<std::pair<std::uintptr_t, std::int64_t>, std::uint64_t> live;
    std::mt19937 random(6);
    for (std::uint64_t serial = 1; serial <= 3000; ++serial) {
        std::uintptr_t const address = 16 * (random() % 150);
        auto const latest = live.lower_bound({address, INT64_MIN});
        bool const isKnown = latest != live.end() && latest->first.first == address;
        Memory::DetailHeapInfo removed = {};
        if (random() % 5 < 3) {
            bool const hasRoom = live.size() < 256;
            ASSERT_EQ(hasRoom, table.add({serial, address, 1, 1, 1, 1}));
            if (hasRoom) {
                live[{address, -static_cast<std::int64_t>(serial)}] = serial;
            }
        } else {
            ASSERT_EQ(isKnown, table.remove(address, &removed));
            ASSERT_EQ(isKnown ? latest->second : 0, removed.serial);
            isKnown ? live.erase(latest) : latest;
        }
        ASSERT_EQ(live.size(), table.count());
    }
    for (unsigned long const expected :
         {static_cast<unsigned long>(live.size()), NONE / sizeof(Memory::DetailHeapInfo) - 2}) {
        HeapListing<HeapTable<256> > listing(table, lock, 1000, 2900, expected);
        for (auto const& [key, serial] : live) {
            if (serial >= 1000 && serial < 2900) {
                Memory::DetailHeapInfo const* const row = listing.next();
                ASSERT_TRUE(row != nullptr && row->serial == serial);
            }
        }
        EXPECT_EQ(nullptr, listing.next());
    }
}

TEST_F(MemoryTest, ThreadsReportWhileAnotherPrints) {
    std::vector<std::thread> threads;
    for (std::uintptr_t base = 1; base <= 4; ++base) {
        threads.emplace_back([base] {
            for (unsigned long i = 1; i <= 500; ++i) {
                allocate(0x100000 * base + i, i, Memory::get()->getFileId("shared.cpp"));
                if (i % 2 == 0) {
                    release(0x100000 * base + i);
                }
            }
        });
    }
    dumped(&Memory::printUsedHeapDetail);
    for (std::thread& thread : threads) {
        thread.join();
    }
    Memory::ProcessHeapInfo info = {};
    EXPECT_TRUE(Memory::get()->getUsedHeapOfProcess(&info));
    EXPECT_EQ(250000u, info.UseBytes);
    EXPECT_EQ("", logged());
}

#endif  // UTL_HEAP_ACCOUNTING

}  // namespace
}  // namespace utl
