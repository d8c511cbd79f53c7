#include "UtlMemory.h"

#include <stdarg.h>

#include <algorithm>
#include <new>

#include "UtlFile.h"
#include "UtlString.h"

#include "files/UtlDescriptor.h"
#include "files/UtlEntry.h"
#include "files/UtlFileModes.h"
#include "files/UtlNormalPath.h"
#include "foundation/UtlBoundedText.h"
#include "memory/UtlDumpOutput.h"
#include "memory/UtlHeapListing.h"
#include "memory/UtlHeapTable.h"
#include "platform/UtlFileSystem.h"
#include "platform/UtlKernelThread.h"
#include "platform/UtlStaticLock.h"

namespace utl {

namespace {

#ifdef UTL_HEAP_ACCOUNTING
constexpr bool IS_ENABLED = true;
constexpr std::uint32_t MAX_DETAILS = 65536;
constexpr std::uint32_t MAX_FILE_NAMES = 1024;
constexpr unsigned long MAX_THREAD_NAMES = 256;
#else
constexpr bool IS_ENABLED = false;
constexpr std::uint32_t MAX_DETAILS = 1;
constexpr std::uint32_t MAX_FILE_NAMES = 1;
constexpr unsigned long MAX_THREAD_NAMES = 1;
#endif

constexpr int ALLOCATION = 0;
constexpr int WARNING_DESCRIPTOR = 0;
constexpr char WARNING_RULE[] =
    "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!\n";

// All that follows is static and never destroyed: the accounting must not allocate, and a thread
// may be registered or report a release while another one ends it or the process exits. Nothing is
// printed with the lock held.
platform::StaticLock tableLock(platform::LockOrder::HEAP_TABLE);
alignas(Memory) unsigned char place[sizeof(Memory)];

// The tables are zero at load and take up memory only as they fill.
using Details = HeapTable<MAX_DETAILS>;
Memory::ProcessHeapInfo processHeapInfo UTL_GUARDED_BY(tableLock);
Details details UTL_GUARDED_BY(tableLock);
std::uint64_t nextSerial UTL_GUARDED_BY(tableLock) = 1;
std::uint64_t markSerial UTL_GUARDED_BY(tableLock) = 0;  // 0 for never marked
Memory::FileNameInfo fileNames[MAX_FILE_NAMES] UTL_GUARDED_BY(tableLock);
HashChains<MAX_FILE_NAMES> fileChains UTL_GUARDED_BY(tableLock);
std::uint32_t fileNameCount UTL_GUARDED_BY(tableLock) = 0;
Memory::ThreadNameInfo threadNames[MAX_THREAD_NAMES] UTL_GUARDED_BY(tableLock);
unsigned long threadNameCount UTL_GUARDED_BY(tableLock) = 0;

std::uint32_t hashOf(char const* name) {
    std::uint32_t hash = 2166136261u;
    for (; *name != '\0'; ++name) {
        hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619u;
    }
    return hash;
}

void countAllocationLocked(unsigned long bytes) UTL_REQUIRES(tableLock) {
    processHeapInfo.UseBytes += bytes;
    processHeapInfo.MaxBytes = std::max(processHeapInfo.MaxBytes, processHeapInfo.UseBytes);
    processHeapInfo.UseCount += 1;
    processHeapInfo.MaxCount = std::max(processHeapInfo.MaxCount, processHeapInfo.UseCount);
}

void countReleaseLocked(unsigned long bytes) UTL_REQUIRES(tableLock) {
    processHeapInfo.UseBytes -= processHeapInfo.UseBytes != 0 ? bytes : 0;
    processHeapInfo.UseCount -= processHeapInfo.UseCount != 0 ? 1 : 0;
}

// Gives the record its serial. False when there is no room for it.
bool record(Memory::DetailHeapInfo info) {
    platform::StaticGuard const guard(tableLock);
    info.serial = nextSerial;
    bool const hasRoom = details.add(info);
    if (hasRoom) {
        ++nextSerial;
        countAllocationLocked(info.useBytes);
    }
    return hasRoom;
}

// Removes the latest record of `address`. False when there is none.
bool release(std::uintptr_t address) {
    platform::StaticGuard const guard(tableLock);
    Memory::DetailHeapInfo removed;
    bool const isKnown = details.remove(address, &removed);
    if (isKnown) {
        countReleaseLocked(removed.useBytes);
    }
    return isKnown;
}

// The latest first: the kernel gives the ids of finished threads to others.
Memory::ThreadNameInfo const* findThreadNameLocked(int threadId) UTL_REQUIRES(tableLock) {
    for (unsigned long i = threadNameCount; i > 0; --i) {
        if (threadNames[i - 1].threadId == threadId) {
            return &threadNames[i - 1];
        }
    }
    return nullptr;
}

// Whole if it fits, whatever its bytes are, and else cut at a whole character.
bool storeName(char* dst, unsigned long size, char const* name) {
    return copyStr(dst, size, name, ALL, WHOLE) != NONE ||
           copyStr(dst, size, name, ALL, TRUNCATE) != NONE;
}

std::uint64_t markedSerial() {
    platform::StaticGuard const guard(tableLock);
    return markSerial;
}

// Those of now, from that serial on.
HeapListing<Details> listDetails(std::uint64_t firstSerial) {
    platform::StaticGuard const guard(tableLock);
    return HeapListing<Details>(details, tableLock, firstSerial, nextSerial, details.count());
}

// Copies: a reset may give the places of names to others.
Memory::FileNameInfo copyFileName(unsigned long fileId) {
    platform::StaticGuard const guard(tableLock);
    return fileId < fileNameCount ? fileNames[fileId] : Memory::FileNameInfo{};
}

Memory::ThreadNameInfo copyThreadName(int threadId) {
    platform::StaticGuard const guard(tableLock);
    Memory::ThreadNameInfo const* const info = findThreadNameLocked(threadId);
    return info != nullptr ? *info : Memory::ThreadNameInfo{};
}

// The file that a dump goes to besides the log; NO_DESCRIPTOR when there is none, as for a pipe
// that nobody reads. Two dumps may go to one file at once: each message stays whole.
int openDump(char const* path) {
    NormalPath const file(path);
    char directory[PATH_SIZE];
    if (!File::extractDirectoryPath(directory, sizeof directory, file.c_str()) ||
        !File::makeDirectories(directory)) {
        return Descriptor::NO_DESCRIPTOR;
    }
    return openIn(Entry::of(file.c_str()),
                  O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | platform::NO_WAITING, newFileMode());
}

void printFigures(DumpOutput& output) {
    Memory::ProcessHeapInfo info;
    {
        platform::StaticGuard const guard(tableLock);
        info = processHeapInfo;
    }
    output.print(
        "---- ProcessHeap ----\n"
        "     UseBytes,      UseCount,      MaxBytes,      MaxCount, \n");
    output.print("%13lu, %13lu, %13lu, %13lu, \n", info.UseBytes, info.UseCount, info.MaxBytes,
                 info.MaxCount);
}

void printDetails(DumpOutput& output, char const* title, std::uint64_t firstSerial) {
    output.print(
        "%s\n       No.,       Serial,    Address,   UseBytes,   ThreadId, "
        "ThreadName                        ,     Line, File, \n",
        title);
    HeapListing<Details> listing = listDetails(firstSerial);
    unsigned long row = 0;
    while (Memory::DetailHeapInfo const* const info = listing.next()) {
        output.print("%10lu, %12llu, 0x%08lx, %10lu, %10d, %-34s, %8lu, %s, \n", ++row,
                     static_cast<unsigned long long>(info->serial),
                     static_cast<unsigned long>(info->address), info->useBytes, info->threadId,
                     copyThreadName(info->threadId).name, static_cast<unsigned long>(info->line),
                     copyFileName(info->fileId).path);
    }
}

void printAll(DumpOutput& output) {
    printDetails(output, "---- ProcessDetailHeap ----", 1);
}

void printMarked(DumpOutput& output) {
    std::uint64_t const marked = markedSerial();  // 0 when it was taken away just now
    printDetails(output, "---- ProcessDetailHeap (Marked) ----", marked != 0 ? marked : 1);
}

// Whether there is something to count from; with the switch off nobody asks.
bool hasMark() {
    return !IS_ENABLED || markedSerial() != 0;
}

// The two places that a dump goes to. With the switch off there is none.

template <typename Print>
void writeDump(int toLog, char const* path, Print print) {
    if (IS_ENABLED) {
        Descriptor const file(openDump(path));
        DumpOutput output(toLog, file.get(), DumpOutput::WAIT_MS);
        print(output);
    }
}

template <typename Print>
unsigned long storeDump(char* dst, unsigned long size, Print print) {
    BoundedText text(dst, size);
    if (IS_ENABLED) {
        DumpOutput output(text);
        print(output);
    }
    return text.needed();
}

}  // namespace

Memory* Memory::mpTheObject = nullptr;
platform::StaticLock Memory::mInstantiationSyncObject(platform::LockOrder::MEMORY);

Memory::Memory() {
    platform::StaticGuard const guard(tableLock);
    markSerial = 0;
    initializeManagementTable();
}

Memory::~Memory() = default;

Memory* Memory::get() {
    platform::StaticGuard const guard(mInstantiationSyncObject);
    if (mpTheObject == nullptr) {
        mpTheObject = new (place) Memory;
    }
    return mpTheObject;
}

void Memory::destroy() {
    platform::StaticGuard const guard(mInstantiationSyncObject);
    if (mpTheObject != nullptr) {
        mpTheObject->~Memory();
        mpTheObject = nullptr;
    }
}

bool Memory::enabledHeapManagement() {
    return IS_ENABLED;
}

// Deliberate: does not ask the switch. Allocation functions that still report in a build without
// accounting are noticed by the warnings.
void Memory::updateManagement(int operation, void* address, unsigned long bytes,
                              unsigned long fileId, int line) {
    auto const addressValue = reinterpret_cast<std::uintptr_t>(address);
    if (operation == ALLOCATION) {
        recordAllocation({0, addressValue, bytes, platform::threadId(), fileId,
                          static_cast<std::uint32_t>(line)});
    } else if (address != nullptr) {
        recordRelease(addressValue, fileId, line);
    }
}

// Deliberate, here and below: warnings go to descriptor 0 too; a process that is started from a
// terminal shows them there. An allocation does not wait for that.
void Memory::recordAllocation(DetailHeapInfo const& info) {
    if (record(info)) {
        return;
    }
    DumpOutput output(DumpOutput::TO_LOG, WARNING_DESCRIPTOR, DumpOutput::NO_WAITING);
    output.print("!!!! DetailHeapInfo management over on allocation\n");
    output.print(
        "MaxCount:%u, Address:0x%08lx, UseBytes:%10lu, ThreadId:%10d, Line:%8ld, File:%s, \n",
        static_cast<unsigned>(MAX_DETAILS), static_cast<unsigned long>(info.address), info.useBytes,
        info.threadId, static_cast<long>(static_cast<std::int32_t>(info.line)),
        copyFileName(info.fileId).path);
}

void Memory::recordRelease(std::uintptr_t address, unsigned long fileId, int line) {
    if (release(address)) {
        return;
    }
    DumpOutput output(DumpOutput::TO_LOG, WARNING_DESCRIPTOR, DumpOutput::NO_WAITING);
    output.print("%s", WARNING_RULE);
    output.print("!!!! DetailHeapInfo release address is not in under management\n");
    output.print("Address:0x%08lx, ThreadId:%10d, Line:%8ld, File:%s, \n",
                 static_cast<unsigned long>(address), platform::threadId(), static_cast<long>(line),
                 copyFileName(fileId).path);
    output.print("%s", WARNING_RULE);
}

unsigned long Memory::getFileId(char const* path) {
    if (!IS_ENABLED || path == nullptr) {
        return NONE;
    }
    std::uint32_t const hash = hashOf(path);
    platform::StaticGuard const guard(tableLock);
    std::uint32_t const known = *fileChains.find(
        hash, [=](std::uint32_t id) { return compareStr(fileNames[id].path, path, ALL) == 0; });
    if (known != 0) {
        return known - 1;
    }
    if (fileNameCount == MAX_FILE_NAMES ||
        !storeName(fileNames[fileNameCount].path, sizeof fileNames->path, path)) {
        return NONE;
    }
    fileChains.add(hash, fileNameCount);
    return fileNameCount++;
}

void Memory::registerThreadName(int threadId, char const* name) {
    ThreadNameInfo info = {threadId, {}};
    if (threadId == 0 || !storeName(info.name, sizeof info.name, name) || info.name[0] == '\0') {
        return;
    }
    platform::StaticGuard const guard(tableLock);
    // Deliberate: only the first entry is looked at. It is the main thread's, and a main thread
    // that registers itself again and again must not fill the table.
    if (threadNameCount > 0 && threadNames[0].threadId == threadId &&
        compareStr(threadNames[0].name, info.name, ALL) == 0) {
        return;
    }
    if (threadNameCount < MAX_THREAD_NAMES) {
        threadNames[threadNameCount++] = info;
    }
}

char const* Memory::getFileName(unsigned long fileId) const {
    platform::StaticGuard const guard(tableLock);
    return fileId < fileNameCount ? fileNames[fileId].path : &EMPTY_CHAR;
}

char const* Memory::getThreadName(int threadId) const {
    platform::StaticGuard const guard(tableLock);
    ThreadNameInfo const* const info = findThreadNameLocked(threadId);
    return info != nullptr ? info->name : &EMPTY_CHAR;
}

void Memory::mark() {
    platform::StaticGuard const guard(tableLock);
    markSerial = nextSerial;
}

bool Memory::getUsedHeapOfProcess(ProcessHeapInfo* out) const {
    if (!IS_ENABLED) {
        return true;
    }
    if (out == nullptr) {
        return false;
    }
    platform::StaticGuard const guard(tableLock);
    *out = processHeapInfo;
    return true;
}

bool Memory::printUsedHeap(int toLog, char const* path) {
    writeDump(toLog, path, printFigures);
    return true;
}

unsigned long Memory::storeUsedHeap(char* dst, unsigned long size) {
    return storeDump(dst, size, printFigures);
}

bool Memory::printUsedHeapDetail(int toLog, char const* path) {
    writeDump(toLog, path, printAll);
    return true;
}

unsigned long Memory::storeUsedHeapDetail(char* dst, unsigned long size) {
    return storeDump(dst, size, printAll);
}

bool Memory::printMarkedHeapDetail(int toLog, char const* path) {
    if (!hasMark()) {
        return false;
    }
    writeDump(toLog, path, printMarked);
    return true;
}

unsigned long Memory::storeMarkedHeapDetail(char* dst, unsigned long size) {
    return hasMark() ? storeDump(dst, size, printMarked) : NONE;
}

void Memory::resetUsedHeap() {
    if (IS_ENABLED) {
        initializeManagementTable();
    }
}

// Deliberate: the mark stays. Whoever marked before a reset still gets a dump and no refusal.
void Memory::initializeManagementTable() {
    platform::StaticGuard const guard(tableLock);
    processHeapInfo = {};
    details.clear();
    nextSerial = 1;
    fileChains.clear();
    fileNameCount = 0;
    threadNameCount = 0;
}

void Memory::printGlobalMemoryStatus(char const*) {}

void Memory::printMessage(int toLog, int fd, char const* format, ...) {
    if (format == nullptr) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    DumpOutput(toLog, fd, DumpOutput::WAIT_MS).printList(format, arguments);
    va_end(arguments);
}

}  // namespace utl
