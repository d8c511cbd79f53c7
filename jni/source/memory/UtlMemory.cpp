#include "UtlMemory.h"

#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <new>

#include "UtlFile.h"
#include "UtlRawMemory.h"
#include "UtlString.h"

#include "files/UtlDescriptor.h"
#include "files/UtlEntry.h"
#include "files/UtlFileModes.h"
#include "files/UtlNormalPath.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFileSystem.h"
#include "platform/UtlKernelThread.h"
#include "platform/UtlLogSink.h"
#include "platform/UtlStaticLock.h"

namespace utl {

namespace {

#ifdef UTL_HEAP_ACCOUNTING
constexpr bool IS_ENABLED = true;
constexpr unsigned long MAX_DETAILS = 65536;
constexpr unsigned long MAX_FILE_NAMES = 1024;
constexpr unsigned long MAX_THREAD_NAMES = 256;
#else
constexpr bool IS_ENABLED = false;
constexpr unsigned long MAX_DETAILS = 1;
constexpr unsigned long MAX_FILE_NAMES = 1;
constexpr unsigned long MAX_THREAD_NAMES = 1;
#endif

constexpr int ALLOCATION = 0;
constexpr int TO_LOG = 1;
constexpr int WARNING_DESCRIPTOR = 0;
constexpr char LOG_TAG[] = "UtlMemory";
constexpr char WARNING_RULE[] =
    "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!\n";

// All that follows is static and never destroyed: the accounting must not allocate, and a thread
// may be registered or report a release while another one ends it or the process exits.
platform::StaticLock dumpLock(
    platform::LockOrder::HEAP_DUMP);  // one dump at a time opens, writes and closes its file
platform::StaticLock tableLock(platform::LockOrder::HEAP_TABLE);
alignas(Memory) unsigned char place[sizeof(Memory)];

// Guarded by tableLock. The tables are zero at load and take up memory only as they fill.
char messageBuffer[1024];
Memory::ProcessHeapInfo processHeapInfo;
Memory::DetailHeapInfo detailTable[MAX_DETAILS];  // by address, ascending
unsigned long detailCount = 0;
std::uint64_t nextSerial = 1;
std::uint64_t markSerial = 0;  // 0 for never marked
Memory::FileNameInfo fileNames[MAX_FILE_NAMES];
unsigned long fileNameCount = 0;
Memory::ThreadNameInfo threadNames[MAX_THREAD_NAMES];
unsigned long threadNameCount = 0;

// The first entry at `address`, or where one belongs.
Memory::DetailHeapInfo* findDetail(std::uintptr_t address) {
    return std::lower_bound(detailTable, detailTable + detailCount, address,
                            [](Memory::DetailHeapInfo const& info, std::uintptr_t wanted) {
                                return info.address < wanted;
                            });
}

// Moves all entries from `from` on.
void moveDetails(Memory::DetailHeapInfo* to, Memory::DetailHeapInfo const* from) {
    Memory::DetailHeapInfo const* const end = detailTable + detailCount;
    moveMemory(to, from, static_cast<unsigned long>(end - from) * sizeof *from);
}

bool addDetailHeapInfo(Memory::DetailHeapInfo const& info) {
    if (detailCount == MAX_DETAILS) {
        return false;
    }
    Memory::DetailHeapInfo* const position = findDetail(info.address);
    moveDetails(position + 1, position);
    *position = info;
    ++detailCount;
    ++nextSerial;
    return true;
}

bool eraseDetailHeapInfo(std::uintptr_t address, unsigned long* useBytes) {
    Memory::DetailHeapInfo* const position = findDetail(address);
    if (position == detailTable + detailCount || position->address != address) {
        return false;
    }
    *useBytes = position->useBytes;
    moveDetails(position, position + 1);
    --detailCount;
    detailTable[detailCount] = Memory::INITIAL_DETAIL_HEAP_INFO;
    return true;
}

void countAllocation(unsigned long bytes) {
    processHeapInfo.UseBytes += bytes;
    processHeapInfo.MaxBytes = std::max(processHeapInfo.MaxBytes, processHeapInfo.UseBytes);
    processHeapInfo.UseCount += 1;
    processHeapInfo.MaxCount = std::max(processHeapInfo.MaxCount, processHeapInfo.UseCount);
}

void countRelease(unsigned long bytes) {
    processHeapInfo.UseBytes -= processHeapInfo.UseBytes != 0 ? bytes : 0;
    processHeapInfo.UseCount -= processHeapInfo.UseCount != 0 ? 1 : 0;
}

bool isMarked() {
    platform::StaticGuard const guard(tableLock);
    return markSerial != 0;
}

// Whole if it fits, whatever its bytes are, and else cut at a whole character.
bool storeName(char* dst, unsigned long size, char const* name) {
    return copyStr(dst, size, name, ALL, WHOLE) != NONE ||
           copyStr(dst, size, name, ALL, TRUNCATE) != NONE;
}

// Writes all of it, or up to the first error: nobody could be told of one.
void writeTo(int fd, char const* text, long size) {
    while (size > 0) {
        long const written = platform::writeFile(fd, text, static_cast<unsigned long>(size));
        if (written <= 0) {
            return;
        }
        text += written;
        size -= written;
    }
}

// The file that a dump goes to besides the log; NO_DESCRIPTOR when there is none. To be called
// without tableLock: making directories reports to the watchdog, under locks of its own.
int openDump(char const* path) {
    NormalPath const file(path);
    char directory[PATH_SIZE];
    if (!File::extractDirectoryPath(directory, sizeof directory, file.c_str()) ||
        !File::makeDirectories(directory)) {
        return Descriptor::NO_DESCRIPTOR;
    }
    return openIn(Entry::of(file.c_str()), O_WRONLY | O_CREAT | O_TRUNC, newFileMode());
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
    platform::StaticGuard const guard(tableLock);
    if (operation == ALLOCATION) {
        recordAllocation({nextSerial, addressValue, bytes, platform::threadId(), fileId,
                          static_cast<std::uint32_t>(line)});
    } else if (address != nullptr) {
        recordRelease(addressValue, fileId, line);
    }
}

// The caller holds tableLock.
void Memory::recordAllocation(DetailHeapInfo const& info) {
    if (addDetailHeapInfo(info)) {
        countAllocation(info.useBytes);
        return;
    }
    // Deliberate: warnings go to descriptor 0 too; a process that is started from a terminal shows
    // them there.
    printMessage(TO_LOG, WARNING_DESCRIPTOR, "!!!! DetailHeapInfo management over on allocation\n");
    printMessage(
        TO_LOG, WARNING_DESCRIPTOR,
        "MaxCount:%u, Address:0x%08lx, UseBytes:%10lu, ThreadId:%10d, Line:%8ld, File:%s, \n",
        static_cast<unsigned>(MAX_DETAILS), static_cast<unsigned long>(info.address), info.useBytes,
        info.threadId, static_cast<long>(static_cast<std::int32_t>(info.line)),
        getFileName(info.fileId));
}

// The caller holds tableLock.
void Memory::recordRelease(std::uintptr_t address, unsigned long fileId, int line) {
    unsigned long bytes;
    if (eraseDetailHeapInfo(address, &bytes)) {
        countRelease(bytes);
        return;
    }
    printMessage(TO_LOG, WARNING_DESCRIPTOR, "%s", WARNING_RULE);
    printMessage(TO_LOG, WARNING_DESCRIPTOR,
                 "!!!! DetailHeapInfo release address is not in under management\n");
    printMessage(TO_LOG, WARNING_DESCRIPTOR,
                 "Address:0x%08lx, ThreadId:%10d, Line:%8ld, File:%s, \n",
                 static_cast<unsigned long>(address), platform::threadId(), static_cast<long>(line),
                 getFileName(fileId));
    printMessage(TO_LOG, WARNING_DESCRIPTOR, "%s", WARNING_RULE);
}

unsigned long Memory::getFileId(char const* path) {
    if (!IS_ENABLED || path == nullptr) {
        return NONE;
    }
    platform::StaticGuard const guard(tableLock);
    for (unsigned long id = 0; id < fileNameCount; ++id) {
        if (compareStr(fileNames[id].path, path, ALL) == 0) {
            return id;
        }
    }
    if (fileNameCount == MAX_FILE_NAMES ||
        !storeName(fileNames[fileNameCount].path, sizeof fileNames->path, path)) {
        return NONE;
    }
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
    // The latest first: the kernel gives the ids of finished threads to others.
    for (unsigned long i = threadNameCount; i > 0; --i) {
        if (threadNames[i - 1].threadId == threadId) {
            return threadNames[i - 1].name;
        }
    }
    return &EMPTY_CHAR;
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
    if (!IS_ENABLED) {
        return true;
    }
    platform::StaticGuard const dumpGuard(dumpLock);
    Descriptor const file(openDump(path));
    platform::StaticGuard const guard(tableLock);
    printMessage(toLog, file.get(),
                 "---- ProcessHeap ----\n"
                 "     UseBytes,      UseCount,      MaxBytes,      MaxCount, \n");
    printMessage(toLog, file.get(), "%13lu, %13lu, %13lu, %13lu, \n", processHeapInfo.UseBytes,
                 processHeapInfo.UseCount, processHeapInfo.MaxBytes, processHeapInfo.MaxCount);
    return true;
}

bool Memory::printUsedHeapDetail(int toLog, char const* path) {
    if (!IS_ENABLED) {
        return true;
    }
    platform::StaticGuard const dumpGuard(dumpLock);
    Descriptor const file(openDump(path));
    platform::StaticGuard const guard(tableLock);
    printDetails(toLog, file.get(), "---- ProcessDetailHeap ----", 0);
    return true;
}

bool Memory::printMarkedHeapDetail(int toLog, char const* path) {
    if (!IS_ENABLED) {
        return true;
    }
    if (!isMarked()) {
        return false;
    }
    platform::StaticGuard const dumpGuard(dumpLock);
    Descriptor const file(openDump(path));
    platform::StaticGuard const guard(tableLock);
    printDetails(toLog, file.get(), "---- ProcessDetailHeap (Marked) ----", markSerial);
    return true;
}

// The caller holds tableLock.
void Memory::printDetails(int toLog, int fd, char const* title, std::uint64_t firstSerial) {
    printMessage(toLog, fd,
                 "%s\n       No.,       Serial,    Address,   UseBytes,   ThreadId, "
                 "ThreadName                        ,     Line, File, \n",
                 title);
    unsigned long row = 0;
    for (unsigned long i = 0; i < detailCount; ++i) {
        DetailHeapInfo const& info = detailTable[i];
        if (info.serial >= firstSerial) {
            printMessage(toLog, fd, "%10lu, %12llu, 0x%08lx, %10lu, %10d, %-34s, %8lu, %s, \n",
                         ++row, static_cast<unsigned long long>(info.serial),
                         static_cast<unsigned long>(info.address), info.useBytes, info.threadId,
                         getThreadName(info.threadId), static_cast<unsigned long>(info.line),
                         getFileName(info.fileId));
        }
    }
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
    detailTable[0] = INITIAL_DETAIL_HEAP_INFO;
    detailCount = 0;
    nextSerial = 1;
    fileNameCount = 0;
    threadNameCount = 0;
}

void Memory::printGlobalMemoryStatus(char const*) {}

void Memory::printMessage(int toLog, int fd, char const* format, ...) {
    if (format == nullptr) {
        return;
    }
    platform::ErrnoGuard const errnoGuard;  // whoever allocates looks at it afterwards
    platform::StaticGuard const guard(tableLock);
    va_list arguments;
    va_start(arguments, format);
    int const length = vsnprintf(messageBuffer, sizeof messageBuffer, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<unsigned long>(length) >= sizeof messageBuffer) {
        return;
    }
    if (toLog == TO_LOG) {
        __android_log_print(platform::LOG_PRIORITY_INFO, LOG_TAG, "%s", messageBuffer);
    }
    if (fd != Descriptor::NO_DESCRIPTOR) {
        writeTo(fd, messageBuffer, length);
    }
}

}  // namespace utl
