// Heap accounting: which allocations of the application are live, and who made them.
//
//     void* allocate(unsigned long size, char const* file, int line) {
//         void* const address = std::malloc(size);
//         if (address != nullptr) {
//             Memory* const memory = Memory::get();
//             memory->updateManagement(0, address, size, memory->getFileId(file), line);
//         }
//         return address;
//     }
//
//     Memory::get()->mark();
//     ...
//     Memory::get()->printMarkedHeapDetail(1, nullptr);  // what was allocated since, and is live
//
// The application's own allocation functions report to it; nothing is counted by itself. It is a
// switch of the build, UTL_HEAP_ACCOUNTING. On, there is room for 65536 live allocations, 1024 file
// names and 256 thread names. Off, there is room for one of each, and what asks for the figures, or
// prints or resets them, returns at once.
//
// Recording does not allocate, so that any allocation function may report, and costs the same
// however many allocations are live.

#ifndef UTL_MEMORY_H
#define UTL_MEMORY_H

#include <cstdint>

#include "UtlApi.h"
#include "UtlThreadSafety.h"

namespace utl {

namespace platform {
class StaticLock;
}

// Any thread may call any operation.
//
// The print operations write to the system log if `toLog` is 1 and, if `path` is not null, to that
// file: it is made anew, with its directories. A file that cannot be made is left out, and so is a
// pipe that nobody reads; one whose reader takes nothing for five seconds gets no more. They return
// true, unless something else is said.
//
// They show what was recorded when they were called, less what is released before they come to it.
// Nobody waits for them: recording goes on, and of two that go to one file at once the messages are
// mixed there.
//
// The store operations store the same text at `dst`: as many of its messages as there is room for
// in `size` bytes with a terminator. They return the bytes that all of it needs with it; a `size`
// of 0 only asks. With the switch off the text is empty.
class UTL_API Memory {
public:
    // Live allocations, and the highest that either figure has been.
    struct ProcessHeapInfo {
        unsigned long UseBytes;
        unsigned long UseCount;
        unsigned long MaxBytes;
        unsigned long MaxCount;
    };

    // A live allocation. `serial` counts them from 1 since the last reset.
    struct DetailHeapInfo {
        std::uint64_t serial;
        std::uintptr_t address;
        unsigned long useBytes;
        int threadId;
        unsigned long fileId;
        std::uint32_t line;
    };

    // What an empty place of the table holds.
    static constexpr DetailHeapInfo INITIAL_DETAIL_HEAP_INFO = {
        0, static_cast<std::uintptr_t>(-1), 0, 0, NONE, 0};

    // Names, as the tables hold them.
    struct FileNameInfo {
        char path[260];
    };

    // The same for a thread.
    struct ThreadNameInfo {
        int threadId;
        char name[128];
    };

    Memory(Memory const&) = delete;
    Memory& operator=(Memory const&) = delete;

    // The accounting of the process, made on first use, with empty tables and no mark. Never null.
    static Memory* get();

    // Ends it: what was recorded is gone. The next get() makes it again.
    static void destroy();

    // Whether the library was built with the switch on.
    static bool enabledHeapManagement();

    // For an `operation` of 0, records that the calling thread has allocated `bytes` at `address`,
    // in line `line` of the file `fileId`, which may be NONE; for any other, that it has released
    // `address` there. Releasing null is nothing. An allocation that finds no room and a release of
    // what was not recorded change nothing and are printed: to the log, and to descriptor 0 if that
    // has room at once. The latest record of an address is the one that is released.
    void updateManagement(int operation, void* address, unsigned long bytes, unsigned long fileId,
                          int line);

    // The number of `path`, which is recorded when it is new. One of 260 bytes or more is recorded
    // cut, and anew each time. NONE for null, when the table is full and when the switch is off.
    unsigned long getFileId(char const* path);

    // From now on the dumps show `name`, cut to 127 bytes, for the thread. Ignored for an id of 0,
    // a null or empty name, and when the table is full. The thread manager does this for every
    // thread it registers.
    void registerThreadName(int threadId, char const* name);

    // What was recorded, the latest name of a thread; an empty text for what was not. Stays good,
    // and unchanged until the next reset or destroy().
    char const* getFileName(unsigned long fileId) const;
    char const* getThreadName(int threadId) const;

    // Allocations from now on are what printMarkedHeapDetail() prints.
    void mark();

    // False for a null `out`. With the switch off, true and `out` as it was.
    bool getUsedHeapOfProcess(ProcessHeapInfo* out) const;

    // Prints the four figures.
    bool printUsedHeap(int toLog, char const* path);
    unsigned long storeUsedHeap(char* dst, unsigned long size);

    // Prints every live allocation, in the order of their addresses.
    bool printUsedHeapDetail(int toLog, char const* path);
    unsigned long storeUsedHeapDetail(char* dst, unsigned long size);

    // Prints those made since mark(). False, or NONE, when that was never called.
    bool printMarkedHeapDetail(int toLog, char const* path);
    unsigned long storeMarkedHeapDetail(char* dst, unsigned long size);

    // Forgets all allocations, figures and names, but not the mark. resetUsedHeap() does so only
    // with the switch on.
    void resetUsedHeap();
    void initializeManagementTable();

    // Does nothing.
    void printGlobalMemoryStatus(char const* title);

    // Prints one message: to the system log if `toLog` is 1, and to `fd` unless it is -1, for which
    // it waits five seconds at the most. A message of 1024 bytes or more is dropped.
    void printMessage(int toLog, int fd, char const* format, ...) UTL_PRINTF_FORMAT(4, 5);

private:
    Memory();
    virtual ~Memory();  // only destroy() ends it

    void recordAllocation(DetailHeapInfo const& info);
    void recordRelease(std::uintptr_t address, unsigned long fileId, int line);

    static Memory* mpTheObject UTL_GUARDED_BY(mInstantiationSyncObject);

    // Locks, outer first: mInstantiationSyncObject, that of the tables.
    static platform::StaticLock mInstantiationSyncObject;
};

}  // namespace utl

#endif  // UTL_MEMORY_H
