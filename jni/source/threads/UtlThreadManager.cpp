#include "UtlThreadManager.h"

#include <errno.h>
#include <pthread.h>

#include <memory>
#include <new>

#include "UtlLog.h"
#include "UtlMemory.h"
#include "UtlThreadWatchdog.h"

#include "foundation/UtlAwait.h"
#include "foundation/UtlBlockingCall.h"
#include "foundation/UtlDeadline.h"
#include "foundation/UtlLineOutput.h"
#include "foundation/UtlLogLine.h"
#include "foundation/UtlUserCode.h"
#include "platform/UtlFork.h"
#include "platform/UtlKernelThread.h"
#include "platform/UtlManualTime.h"
#include "platform/UtlStaticLock.h"
#include "threads/UtlManagerAccess.h"
#include "threads/UtlStartRequest.h"
#include "threads/UtlTableName.h"

namespace utl {

namespace {

constexpr char SOURCE[] = "UtlThreadManager";

constexpr char const* PRIORITY_WORDS[] = {"TIME_CRITICAL", "HIGH", "ABOVE_NORMAL", "NORMAL",
                                          "BELOW_NORMAL",  "LOW",  "IDLE"};

char const* wordOf(ThreadPriority const& priority) {
    int const label = priority.value();
    return label >= 0 ? PRIORITY_WORDS[label] : "INVALID";
}

// Whether the manager's watchdog is being started, and whether it is ready for everybody, or not
// wanted: in a child of a fork that has started no thread. Not members: get() asks before it knows
// whether there is an object.
bool isWatchdogStarting = false;  // guarded by ThreadManager::mInstantiationSyncObject
std::atomic<bool> isWatchdogReady{false};
std::atomic<bool> isWatchdogUnwanted{false};
std::atomic<bool> hasWatchdogFailed{false};  // to start, when it was last tried

// What a handle is in the child of a fork.
constexpr long NO_HANDLE = 0;

int callerIfZero(int id) {
    return id != 0 ? id : ThreadManager::getCallerId();
}

// For debuggers and the log. The kernel has room for the beginning of a name.
void nameCaller(char const* name) {
    char shown[platform::THREAD_NAME_SIZE] = "";
    copyStr(shown, sizeof shown, name, ALL, TRUNCATE);
    if (shown[0] != '\0') {
        platform::nameThread(shown);
    }
}

void applyPriority(int osValue) {
    bool isApplied = false;
    if (osValue != ThreadPriority::INVALID_OS_VALUE) {
        BlockingCall const blocking(SOURCE, "startThread", 1144);
        isApplied = platform::setThreadPriority(osValue);
    }
    if (!isApplied) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "ThreadManager::startThread() Error setpriority() OsValue:%d", osValue);
    }
}

}  // namespace

std::atomic<ThreadManager*> ThreadManager::mpTheObject{nullptr};
platform::StaticLock ThreadManager::mInstantiationSyncObject(platform::LockOrder::MANAGER);
platform::StaticLock ThreadManager::mRegistryLock(platform::LockOrder::REGISTRY);
VisitorCount ManagerAccess::visitors;

// What the starting thread and the new one share. The new one's, once `decided` is on.
struct ThreadManager::StartRecord {
    StartRequest const request;
    unsigned timeUse = 0;  // in which the new thread is counted
    int id = 0;
    Event arrived{0, 0};  // the new thread has stored its id
    bool mayRun = false;
    Event decided{0, 0};  // the starting thread has stored mayRun
};

void ThreadManager::DetachThread::operator()(long* handle) const {
    if (*handle != NO_HANDLE) {
        BlockingCall const blocking(SOURCE, "operator()", 140);
        pthread_detach(static_cast<pthread_t>(*handle));
    }
    delete handle;
}

ThreadManager::ThreadEntry::ThreadEntry() : mPriority(-1) {}

bool ThreadManager::ThreadEntry::setName(char const* name) {
    std::unique_ptr<BasicString<char>> copy(new (std::nothrow) BasicString<char>(name, 0, 0));
    return copy && holdsName(*copy, name) && mName.set(copy.release());
}

char const* ThreadManager::ThreadEntry::name() const {
    return mName.get() != nullptr ? mName->c_str() : &EMPTY_CHAR;
}

bool ThreadManager::ThreadEntry::isActive() const {
    return mStopEvent.get() != nullptr && mStopEvent->isOff();
}

bool ThreadManager::ThreadEntry::isControllable() const {
    return mStopEvent.get() != nullptr || mHandle.get() != nullptr;
}

void ThreadManager::ThreadEntry::toStop() {
    if (mStopEvent.get() != nullptr) {
        mStopEvent->setOn();
    }
}

int ThreadManager::ThreadEntry::waitToStop(unsigned long timeout) const {
    return mStopEvent.get() != nullptr ? awaitOn(*mStopEvent.get(), timeout) : WAIT_FAILED;
}

void ThreadManager::ThreadEntry::forgetHandle() {
    if (mHandle.get() != nullptr) {
        *mHandle.get() = NO_HANDLE;
    }
}

ThreadManager::ThreadManager(unsigned long entryMax)
    : mRegistry(entryMax, 0), mWatchdog(new (std::nothrow) ThreadWatchdog(entryMax)) {}

ThreadManager::~ThreadManager() {
    delete mWatchdog;
}

ThreadManager* ThreadManager::get() {
    ThreadManager* const ready = mpTheObject.load();
    if (ready != nullptr && isWatchdogReady.load()) {
        return ready;
    }

    // Everybody else waits here until the watchdog is ready. Its own start comes here too, on this
    // very thread, and passes. What fails is tried again by whoever comes next.
    platform::StaticGuard const guard(mInstantiationSyncObject);
    ThreadManager* const manager = createLocked(DEFAULT_ENTRY_MAX);
    if (manager != nullptr && !isWatchdogStarting && !isWatchdogReady.load()) {
        isWatchdogStarting = true;
        bool const isReady = isWatchdogUnwanted.load() ||
                             manager->mWatchdog->initialize(WatchdogInfo::DEFAULT_WATCH_INTERVAL);
        isWatchdogReady.store(isReady);
        hasWatchdogFailed.store(!isReady);
        isWatchdogStarting = false;
    }
    return manager;
}

// For those who have kept the manager that they once got.
void ThreadManager::retryWatchdog() {
    if (hasWatchdogFailed.load()) {
        get();
    }
}

ThreadManager* ThreadManager::getIfCreated() {
    return mpTheObject.load();
}

bool ThreadManager::initializeEntryMax(unsigned long max) {
    if (getIfCreated() != nullptr) {
        return false;  // before the lock: the watchdog's listener may ask while destroy() holds it
    }
    platform::StaticGuard const guard(mInstantiationSyncObject);
    return getIfCreated() == nullptr && createLocked(max) != nullptr;
}

// Nobody else knows of it yet.
bool ThreadManager::hasRoom(unsigned long entryMax) const UTL_NO_THREAD_SAFETY_ANALYSIS {
    return mRegistry.capacity() == entryMax && mWatchdog != nullptr && mWatchdog->hasRoom();
}

ThreadManager* ThreadManager::createLocked(unsigned long entryMax) {
    ThreadManager* manager = mpTheObject.load();
    if (manager == nullptr) {
        manager = new (std::nothrow) ThreadManager(entryMax);
        if (manager != nullptr && !manager->hasRoom(entryMax)) {
            delete manager;
            manager = nullptr;
        }
        mpTheObject.store(manager);
        BlockingCall::install(manager != nullptr ? report : nullptr);
        platform::onFork(becomeChild);
    }
    return manager;
}

void ThreadManager::destroy() {
    if (isWatchdogThread()) {
        return;
    }
    platform::StaticGuard const guard(mInstantiationSyncObject);
    ThreadManager* const manager = mpTheObject.load();
    if (manager == nullptr) {
        return;
    }
    // The watchdog's thread still finds the manager, without a lock, while this waits for it.
    manager->mWatchdog->shutdown();
    BlockingCall::install(nullptr);
    isWatchdogReady.store(false);
    mpTheObject.store(nullptr);
    ManagerAccess::awaitNone();
    delete manager;
}

bool ThreadManager::isWatchdogThread() {
    ManagerAccess const manager;
    return manager && manager->mWatchdog->isOwnThread();
}

int ThreadManager::getCallerId() {
    return platform::threadId();
}

void ThreadManager::enableRegistrationLog() {
    mLogsRegistrations.store(true);
}

int ThreadManager::entry(void (*function)(void*), void* argument, int watchdogMode,
                         unsigned long watchdogAliveTime, WatchdogTimerListener* listener,
                         char const* name, ThreadPriority const& priority, unsigned long) {
    if (function == nullptr || name == nullptr) {
        return 0;
    }
    wantWatchdog();
    get();
    SmartPointer<Event> stopEvent;
    stopEvent.set(new (std::nothrow) Event(0, 0));
    StartRequest const request = {function,           argument,          name,
                                  priority.OsValue(), stopEvent,         false,
                                  watchdogMode,       watchdogAliveTime, listener};
    return start(request);
}

// As start(), on the manager of the process, which destroy() leaves alone meanwhile.
int ThreadManager::startOnCurrent(StartRequest const& request) {
    wantWatchdog();
    while (get() != nullptr) {
        if (ManagerAccess const manager; manager) {
            return manager->start(request);
        }
    }
    return 0;
}

int ThreadManager::start(StartRequest const& request) {
    StartRecord* record;
    int id;
    bool isRegistered;
    {
        platform::StaticGuard const guard(mRegistryLock);  // threads are started one at a time
        ThreadEntry entry;
        record = createThread(request, &entry);
        if (record == nullptr) {
            return 0;
        }
        awaitOn(record->arrived, 0);
        id = record->id;
        isRegistered = registerStartedLocked(id, entry);
    }
    if (isRegistered) {
        announce(id, request.watchdogMode, request.watchdogAliveTime, request.listener,
                 request.name);
    }
    record->mayRun = isRegistered || !request.onlyRegistered;
    record->decided.setOn();
    return isRegistered ? id : 0;
}

// Makes the thread, which waits with its work for a decision, and all of its entry. nullptr,
// logged, when that cannot be.
ThreadManager::StartRecord* ThreadManager::createThread(StartRequest const& request,
                                                        ThreadEntry* entry) {
    std::unique_ptr<StartRecord> record(new (std::nothrow) StartRecord{request});
    std::unique_ptr<long> handle(new (std::nothrow) long(0));
    int result = ENOMEM;
    if (record && handle && request.stopEvent.get() != nullptr && entry->setName(request.name)) {
        BlockingCall const blocking(SOURCE, "entry", 432);
        pthread_t thread = 0;
        record->timeUse = platform::ManualTime::countWorker();
        result = pthread_create(&thread, nullptr, startThread, record.get());
        *handle = static_cast<long>(thread);
    }
    if (result != 0) {
        platform::ManualTime::forgetWorker(record ? record->timeUse : 0);
        applog(LIBRARY_LOG, LEVEL_ERROR, "Thread Start Failed  Ret:%d, PriOs:%d, Name:%s", result,
               request.osPriority, request.name);
        return nullptr;
    }
    entry->setPriority(request.osPriority);
    entry->setStopEvent(request.stopEvent);
    entry->setHandle(handle.release());  // detached at once where it finds no memory
    return record.release();
}

bool ThreadManager::registerStartedLocked(int id, ThreadEntry const& entry) {
    // Deliberate: the entry of a finished thread with this id is not replaced. Whoever started that
    // one may still ask about it, until it is unregistered.
    if (!mRegistry.insert(id, entry, 0)) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "entry() Error Thread Register           ID:%d, PriOs:%d, Name:%s", id,
               entry.priority().OsValue(), entry.name());
        return false;
    }
    if (mLogsRegistrations.load()) {
        applog(LIBRARY_LOG, LEVEL_INFORMATION, "Thread Start and Register ID:%d, PriOs:%d, Name:%s",
               id, entry.priority().OsValue(), entry.name());
    }
    return true;
}

// Tells the others of a thread that was registered. No lock is held.
void ThreadManager::announce(int id, int watchdogMode, unsigned long aliveTimeMs,
                             WatchdogTimerListener* listener, char const* name) {
    Memory::get()->registerThreadName(id, name);
    if (watchdogMode == 1) {
        mWatchdog->entry(id, aliveTimeMs, listener, name);
    }
}

void* ThreadManager::startThread(void* argument) {
    auto* const record = static_cast<StartRecord*>(argument);
    nameCaller(record->request.name);
    platform::ManualTime::Worker const worker(record->timeUse);
    applyPriority(record->request.osPriority);
    record->id = getCallerId();
    record->arrived.setOn();

    awaitOn(record->decided, 0);
    StartRequest const request = record->request;
    bool const mayRun = record->mayRun;
    delete record;

    if (mayRun) {
        callUserCode("ThreadManager::entry", "", [&] { request.function(request.argument); });
    }
    if (ManagerAccess const manager; manager) {
        manager->endThread(request);
    }
    request.stopEvent->setOn();
    return nullptr;
}

// The last that a thread does before it is said to have stopped. From here on its stack is given
// back when it ends.
void ThreadManager::endThread(StartRequest const& request) {
    int const id = getCallerId();
    forgetWatchdog(id);
    platform::StaticGuard const guard(mRegistryLock);
    ThreadEntry* const entry = mRegistry.find(id);
    if (entry == nullptr || entry->stopEvent() != request.stopEvent.get()) {
        return;
    }
    entry->detach();
    if (entry->isOwnerGone()) {
        mRegistry.eraseKey(id);
    }
}

// The object that started a thread goes, and nobody else knows the entry by its stop event.
void ThreadManager::releaseEntry(int id, Event const* stopEvent) {
    if (eraseEntry(id, stopEvent)) {
        return;
    }
    platform::StaticGuard const guard(mRegistryLock);
    ThreadEntry* const entry = mRegistry.find(id);
    if (entry != nullptr && entry->stopEvent() == stopEvent) {
        entry->setOwnerGone();
    }
}

int ThreadManager::entryCaller(int watchdogMode, unsigned long watchdogAliveTime,
                               WatchdogTimerListener* listener, char const* name) {
    ThreadEntry entry;
    if (name == nullptr || !entry.setName(name)) {
        return 0;
    }
    retryWatchdog();
    int const id = getCallerId();
    { BlockingCall const here(SOURCE, "entryCaller", 522); }  // a position operators look up
    {
        platform::StaticGuard const guard(mRegistryLock);
        ThreadEntry const* const present = mRegistry.find(id);
        if (present != nullptr && present->isControllable()) {
            return 0;
        }
        if (!mRegistry.insert(id, entry, 1)) {
            applog(LIBRARY_LOG, LEVEL_ERROR,
                   "entryCaller() Error Thread Register           ID:%d, Name:%s", id, name);
            return 0;
        }
        if (mLogsRegistrations.load()) {
            applog(LIBRARY_LOG, LEVEL_INFORMATION, "Thread Register           ID:%d, Name:%s", id,
                   name);
        }
    }
    announce(id, watchdogMode, watchdogAliveTime, listener, name);
    return id;
}

bool ThreadManager::unregister(int id) {
    bool const isErased = eraseEntry(id, nullptr);
    if (isErased) {
        mWatchdog->awaitReturn(id, Deadline(0));
    }
    return isErased;
}

// A call of the thread's watchdog listener may still be under way. With a `stopEvent`, only the
// entry that has it: its id may be another thread's by now.
bool ThreadManager::eraseEntry(int id, Event const* stopEvent) {
    platform::StaticGuard const guard(mRegistryLock);
    ThreadEntry* const entry = mRegistry.find(id);
    if (entry == nullptr || (stopEvent != nullptr && entry->stopEvent() != stopEvent) ||
        entry->isActive()) {
        return false;
    }
    entry->detach();
    mRegistry.eraseKey(id);
    mWatchdog->forget(id);  // while no other thread with this id can be registered
    return true;
}

bool ThreadManager::isThreadExist(int id) const {
    platform::StaticGuard const guard(mRegistryLock);
    return mRegistry.find(id) != nullptr;
}

bool ThreadManager::isThreadActive(int id) const {
    ThreadEntry entry;
    return findEntry(id, &entry) && entry.isActive();
}

bool ThreadManager::isActive(int id) const {
    return isThreadActive(id);
}

int ThreadManager::waitToStop(int id, unsigned long timeout) const {
    ThreadEntry entry;
    if (!findEntry(id, &entry) || (id == getCallerId() && entry.isActive())) {
        return WAIT_FAILED;
    }
    return entry.waitToStop(timeout);
}

bool ThreadManager::setPriority(int id, ThreadPriority const& priority) {
    if (!isActive(id) || id != getCallerId()) {
        return false;
    }
    int const osValue = priority.OsValue();
    if (osValue == ThreadPriority::INVALID_OS_VALUE) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "ThreadManager::setPriority() Error ID:%d, invalidOsValue:%d", id, osValue);
        return false;
    }
    bool isApplied;
    {
        BlockingCall const blocking(SOURCE, "setPriority", 681);
        isApplied = platform::setThreadPriority(osValue);
    }
    if (!isApplied) {
        applog(LIBRARY_LOG, LEVEL_ERROR,
               "ThreadManager::setPriority() Error setpriority() ID:%d, OsValue:%d", id, osValue);
        return false;
    }
    platform::StaticGuard const guard(mRegistryLock);
    ThreadEntry* const entry = mRegistry.find(id);
    if (entry == nullptr) {
        return false;
    }
    entry->setPriority(osValue);
    return true;
}

bool ThreadManager::getPriority(int id, ThreadPriority* out) const {
    ThreadEntry entry;
    if (!findEntry(id, &entry) || !entry.isActive() || out == nullptr) {
        return false;
    }
    out->OsValue(entry.priority().OsValue());
    return true;
}

char const* ThreadManager::findName(int id) const {
    ThreadEntry entry;
    return findEntry(id, &entry) ? entry.name() : &EMPTY_CHAR;
}

char const* ThreadManager::getName(int id) const {
    return findName(id);
}

bool ThreadManager::getNames(Map<int, BasicString<char>>* out) const {
    if (out == nullptr) {
        return false;
    }
    platform::StaticGuard const guard(mRegistryLock);
    for (unsigned long i = 0; i < mRegistry.count(); ++i) {
        BasicString<char> const name(mRegistry[i].value().name(), 0, 0);
        int const id = mRegistry[i].key();
        if (!out->insert(id, name, 1) || !holdsName(*out->find(id), name.c_str())) {
            return false;
        }
    }
    return true;
}

void ThreadManager::printThreadInfoReg(int level) const {
    LineOutput output(level);
    printRegistry(output);
}

unsigned long ThreadManager::storeThreadInfoReg(char* dst, unsigned long size) const {
    return printInto(dst, size, [this](LineOutput& output) { printRegistry(output); });
}

void ThreadManager::printRegistry(LineOutput& output) const {
    platform::StaticGuard const guard(mRegistryLock);
    output.print("ThreadManager:: Registered info of threads in this process.");
    output.print(
        "ID        , Name                            , Status      , Pri.Os    , Pri.Label       "
        ", ");
    for (unsigned long i = 0; i < mRegistry.count(); ++i) {
        ThreadEntry const& entry = mRegistry[i].value();
        // Deliberate: a thread that is not active is UNKNOWN, never INACTIVE; the registry cannot
        // tell a finished thread from one that registered itself.
        bool const isActive = entry.isActive();
        ThreadPriority const priority = isActive ? entry.priority() : ThreadPriority(-1);
        output.print("%10d, %-32s, %-12s, %10d, %-16s, ", mRegistry[i].key(),
                     TableName(entry.name()).text(), isActive ? "ACTIVE" : "UNKNOWN",
                     priority.OsValue(), wordOf(priority));
    }
}

void ThreadManager::printThreadInfo(int) const {}

bool ThreadManager::entryWatchdog(unsigned long aliveTimeMs, WatchdogTimerListener* listener,
                                  int id) {
    retryWatchdog();
    int const threadId = callerIfZero(id);
    ThreadEntry entry;
    findEntry(threadId, &entry);  // an unknown thread is watched under an empty name
    return mWatchdog->entry(threadId, aliveTimeMs, listener, entry.name());
}

bool ThreadManager::unregisterWatchdog(int id) {
    return mWatchdog->unregister(callerIfZero(id));
}

void ThreadManager::forgetWatchdog(int id) {
    mWatchdog->forget(id);
}

int ThreadManager::awaitWatchdogListener(int id, Deadline const& deadline) {
    return mWatchdog->awaitReturn(id, deadline);
}

bool ThreadManager::isRegisteredWatchdog(int id) const {
    return mWatchdog->isRegistered(callerIfZero(id));
}

bool ThreadManager::isWatchingWatchdog(int id) const {
    return mWatchdog->isWatching(callerIfZero(id));
}

bool ThreadManager::setWatchdogWatchInterval(unsigned long intervalMs) {
    return mWatchdog->setWatchInterval(intervalMs);
}

bool ThreadManager::setWatchdogAliveTime(unsigned long aliveTimeMs, int id) {
    return mWatchdog->setAliveTime(callerIfZero(id), aliveTimeMs);
}

bool ThreadManager::startWatchdog(int id) {
    return mWatchdog->start(callerIfZero(id));
}

bool ThreadManager::stopWatchdog(int id) {
    return mWatchdog->stop(callerIfZero(id));
}

bool ThreadManager::keepAliveWatchdog(StatementInfo const& statement) {
    return mWatchdog->keepAlive(statement);
}

void ThreadManager::printWatchdogInfo(int level) const {
    LineOutput output(level);
    printWatched(output);
}

unsigned long ThreadManager::storeWatchdogInfo(char* dst, unsigned long size) const {
    return printInto(dst, size, [this](LineOutput& output) { printWatched(output); });
}

void ThreadManager::printWatched(LineOutput& output) const {
    mWatchdog->printTable(output);

    platform::StaticGuard const guard(mRegistryLock);
    output.print(
        "ThreadManager:: Registered info of threads in this process.(But not registered "
        "watchdog)");
    output.print("ID        , Name                            , ");
    for (unsigned long i = 0; i < mRegistry.count(); ++i) {
        int const id = mRegistry[i].key();
        if (!mWatchdog->isRegistered(id)) {
            output.print("%10d, %-32s, ", id, TableName(mRegistry[i].value().name()).text());
        }
    }
}

// `*out` shares what the entry has.
bool ThreadManager::findEntry(int id, ThreadEntry* out) const {
    platform::StaticGuard const guard(mRegistryLock);
    ThreadEntry const* const entry = mRegistry.find(id);
    if (entry == nullptr) {
        return false;
    }
    *out = *entry;
    return true;
}

// From now on a child of a fork, too, has a watchdog.
void ThreadManager::wantWatchdog() {
    if (isWatchdogUnwanted.load()) {
        platform::StaticGuard const guard(mInstantiationSyncObject);
        isWatchdogUnwanted.store(false);
        isWatchdogReady.store(false);
    }
}

// What fork() calls in the child, on its only thread, which had `parentsId` in the parent.
void ThreadManager::becomeChild(int parentsId) {
    ManagerAccess::forgetVisitors();
    isWatchdogStarting = false;
    isWatchdogUnwanted.store(true);
    isWatchdogReady.store(false);
    if (ThreadManager* const manager = mpTheObject.load()) {
        manager->keepOnly(parentsId);
        manager->mWatchdog->becomeChild();
    }
}

// Of all threads the one that goes on in the child, under its id there. There is no other that
// could hold a lock.
void ThreadManager::keepOnly(int parentsId) UTL_NO_THREAD_SAFETY_ANALYSIS {
    ThreadEntry const* const present = mRegistry.find(parentsId);
    bool const isRegistered = present != nullptr;
    ThreadEntry const kept = isRegistered ? *present : ThreadEntry();
    for (unsigned long i = 0; i < mRegistry.count(); ++i) {
        mRegistry[i].value().forgetHandle();
    }
    mRegistry.setCount(0);
    if (isRegistered) {
        mRegistry.insert(getCallerId(), kept, 1);
    }
}

// What BlockingCall calls.
void ThreadManager::report(StatementInfo const& statement) {
    if (ManagerAccess const manager; manager) {
        manager->keepAliveWatchdog(statement);
    }
}

}  // namespace utl
