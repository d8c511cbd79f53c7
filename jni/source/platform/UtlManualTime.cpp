#include "platform/UtlManualTime.h"

#include <errno.h>
#include <time.h>

#include <algorithm>
#include <new>

#include "UtlApi.h"

#include "platform/UtlCancellation.h"
#include "platform/UtlClock.h"
#include "platform/UtlErrno.h"
#include "platform/UtlFork.h"
#include "platform/UtlKernelThread.h"
#include "platform/UtlKernelTimer.h"
#include "platform/UtlPipe.h"
#include "platform/UtlThreadLocal.h"

namespace utl {
namespace platform {

namespace {

// Numbers each use, here and in the processes that this one is a child of: who was counted in one
// is not counted in another.
unsigned uses = 0;
UTL_THREAD_LOCAL unsigned useOfThisThread = 0;

template <typename Node>
void push(Node** list, Node* node) {
    node->next = *list;
    *list = node;
}

// The first of those in the list that are due at all.
template <typename Node>
Node* earliest(Node* list) {
    Node* first = nullptr;
    for (Node* node = list; node != nullptr; node = node->next) {
        first = first == nullptr || node->due.isBefore(first->due) ? node : first;
    }
    return first != nullptr && first->due.moment != NO_LIMIT ? first : nullptr;
}

template <typename Node>
void drop(Node** list, Node const* node) {
    while (*list != node) {
        list = &(*list)->next;
    }
    *list = node->next;
}

}  // namespace

struct ManualTime::Timer {
    Timer* next = nullptr;
    int kernelId;
    int threadId;
    Due due;
    std::uint64_t interval = 0;
};

struct ManualTime::Wait {
    Wait* next = nullptr;
    void const* word;  // nullptr for a sleep
    std::uint32_t channels;
    Due due;
    int threadId;
    unsigned use;
    bool isReleased = false;
    int result = REACHED;
    pthread_cond_t released = PTHREAD_COND_INITIALIZER;
};

struct ManualTime::DescriptorWait {
    DescriptorWait* next = nullptr;
    pollfd const* descriptors;
    nfds_t count;
    unsigned use;

    bool isOver() const {
        for (nfds_t i = 0; i < count; ++i) {
            pollfd asked = {descriptors[i].fd, descriptors[i].events, 0};
            // Of one that was closed the wait itself hears nothing: it holds the file.
            if (pollDescriptors(&asked, 1, 0) > 0 && (asked.revents & POLLNVAL) == 0) {
                return true;
            }
        }
        return false;
    }
};

class UTL_SCOPED_CAPABILITY ManualTime::Lock {
public:
    explicit Lock(ManualTime const& time) UTL_ACQUIRE(time) : mMutex(time.mMutex) {
        pthread_mutex_lock(&mMutex);
    }
    ~Lock() UTL_RELEASE() { pthread_mutex_unlock(&mMutex); }
    Lock(Lock const&) = delete;
    Lock& operator=(Lock const&) = delete;

    void await(pthread_cond_t* condition) { pthread_cond_wait(condition, &mMutex); }

    // False at the moment `end` of the time of day.
    bool awaitUntil(pthread_cond_t* condition, timespec const& end) {
        return pthread_cond_timedwait(condition, &mMutex, &end) != ETIMEDOUT;
    }

private:
    NoCancellation const mNoCancellation;
    pthread_mutex_t& mMutex;
};

std::atomic<ManualTime*> ManualTime::used{nullptr};
ManualTime ManualTime::theOne;

ManualTime* ManualTime::begin() {
    std::uint64_t now;
    if (!followForks() || inUse() != nullptr || !readKernelNanoseconds(&now)) {
        return nullptr;
    }
    ManualTime* const time = &theOne;
    if (used.load() != nullptr) {
        new (time) ManualTime;  // the parent's, which other threads there were in the middle of
    }
    Lock const lock(*time);
    time->mProcess.store(processNumber());
    time->mUse = ++uses;
    time->mAtWork = 0;
    time->mNow.store((now / NANOSECONDS_PER_SECOND + 1) * NANOSECONDS_PER_SECOND);
    used.store(time);
    return time;
}

int ManualTime::end() {
    Lock const lock(*this);
    used.store(nullptr);
    mUse = 0;
    for (Wait* wait = mWaits; wait != nullptr; wait = wait->next) {
        releaseLocked(wait, wait->due.moment == NO_LIMIT ? REACHED : TIMED_OUT);
    }
    int still = 0;
    while (Timer* const timer = mTimers) {
        still += timer->due.moment != NO_LIMIT ? 1 : 0;
        mTimers = timer->next;
        delete timer;
    }
    return still;
}

int ManualTime::awaitRest(int patienceS) {
    timespec end;
    clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += patienceS;
    Lock lock(*this);
    int atWork;
    bool isInTime = true;
    while ((atWork = atWorkLocked()) != 0 && isInTime) {
        isInTime = lock.awaitUntil(&mWorkChanged, end);
    }
    return atWork;
}

bool ManualTime::step(std::uint64_t target) {
    int threadId;
    std::uint64_t last;  // of what had begun to wait before the expiry
    {
        Lock const lock(*this);
        last = mOrder;
        Timer* const timer = earliest(mTimers);
        Wait* const wait = earliest(mWaits);
        bool const isWait = wait != nullptr && (timer == nullptr || wait->due.isBefore(timer->due));
        Due const next = isWait ? wait->due : timer != nullptr ? timer->due : Due();
        if (next.moment == NO_LIMIT || next.moment > target) {
            mNow.store(target);
            return false;
        }
        mNow.store(std::max(next.moment, now()));
        if (isWait) {
            releaseLocked(wait, TIMED_OUT);
            return true;
        }
        threadId = timer->threadId;
        expireLocked(timer);
    }
    awaitHandler();
    endSleepOf(threadId, last);
    return true;
}

std::uint64_t ManualTime::nextDue() const {
    Lock const lock(*this);
    Timer const* const timer = earliest(mTimers);
    Wait const* const wait = earliest(mWaits);
    std::uint64_t const expiry = timer != nullptr ? timer->due.moment : NO_LIMIT;
    return wait != nullptr && wait->due.moment < expiry ? wait->due.moment : expiry;
}

bool ManualTime::isWorker() const {
    Lock const lock(*this);
    return isWorkerLocked();
}

int ManualTime::wait(std::atomic<std::uint32_t> const& word, std::uint32_t expected,
                     std::uint32_t channels, std::uint64_t limit) {
    Lock lock(*this);
    if (word.load(std::memory_order_acquire) != expected) {
        return REACHED;
    }
    return waitLocked(&lock, &word, channels, limit);
}

void ManualTime::wake(std::atomic<std::uint32_t> const* word, std::uint32_t channels) {
    Lock const lock(*this);
    for (Wait* wait = mWaits; wait != nullptr; wait = wait->next) {
        if (wait->word == word && (wait->channels & channels) != 0) {
            releaseLocked(wait, REACHED);
        }
    }
}

void ManualTime::sleep(std::uint64_t nanoseconds) {
    Lock lock(*this);
    waitLocked(&lock, nullptr, 0, now() + nanoseconds);
}

// Who finds something at once stays at work; also one that is closed, which nobody else can tell.
int ManualTime::awaitDescriptors(pollfd* descriptors, nfds_t count) {
    int ready = pollDescriptors(descriptors, count, 0);
    if (ready != 0) {
        return ready;
    }
    DescriptorWait wait;
    wait.descriptors = descriptors;
    wait.count = count;
    wait.use = useOfThisThread;
    {
        Lock const lock(*this);
        push(&mDescriptorWaits, &wait);
        changeWorkLocked(wait.use, -1);
    }
    ready = pollDescriptors(descriptors, count, -1);
    ErrnoGuard const guard;
    Lock const lock(*this);
    drop(&mDescriptorWaits, &wait);
    changeWorkLocked(wait.use, 1);
    return ready;
}

bool ManualTime::addTimer(int kernelId) {
    auto* const timer = new (std::nothrow) Timer;
    if (timer == nullptr) {
        return false;
    }
    timer->kernelId = kernelId;
    timer->threadId = threadId();
    Lock const lock(*this);
    push(&mTimers, timer);
    return true;
}

void ManualTime::removeTimer(int kernelId) {
    Lock const lock(*this);
    if (Timer* const timer = findTimerLocked(kernelId)) {
        drop(&mTimers, timer);
        delete timer;
        finishExpiry(kernelId);  // a signal that is under way may never arrive
    }
}

bool ManualTime::armTimer(int kernelId, std::uint64_t moment, std::uint64_t interval) {
    Lock const lock(*this);
    Timer* const timer = findTimerLocked(kernelId);
    if (timer == nullptr) {
        return false;
    }
    timer->due = dueLocked(moment);
    timer->interval = interval;
    finishExpiry(kernelId);  // a signal that is under way may never arrive
    return true;
}

void ManualTime::finishExpiry(int kernelId) {
    std::uint32_t id = static_cast<std::uint32_t>(kernelId);
    if (mExpiring.compare_exchange_strong(id, NO_TIMER)) {
        wakeSleeper(&mExpiring);
    }
}

unsigned ManualTime::countWorker() {
    ManualTime* const time = inUse();
    if (time == nullptr) {
        return 0;
    }
    Lock const lock(*time);
    time->changeWorkLocked(time->mUse, 1);
    return time->mUse;
}

void ManualTime::forgetWorker(unsigned use) {
    ManualTime* const time = use != 0 ? inUse() : nullptr;
    if (time != nullptr) {
        Lock const lock(*time);
        time->changeWorkLocked(use, -1);
    }
}

ManualTime::Worker::Worker(unsigned use) {
    useOfThisThread = use;
}

ManualTime::Worker::~Worker() {
    forgetWorker(useOfThisThread);
    useOfThisThread = 0;
}

ManualTime* ManualTime::usedHere() {
    ManualTime* const time = used.load(std::memory_order_acquire);  // with what begin() has made
    bool const isHere =
        time != nullptr && time->mProcess.load(std::memory_order_relaxed) == processNumber();
    return isHere ? time : nullptr;
}

bool ManualTime::isWorkerLocked() const {
    return mUse != 0 && useOfThisThread == mUse;
}

int ManualTime::atWorkLocked() const {
    int atWork = mAtWork;
    for (DescriptorWait* wait = mDescriptorWaits; wait != nullptr; wait = wait->next) {
        atWork += wait->use == mUse && wait->isOver() ? 1 : 0;
    }
    return atWork;
}

// Of a thread that is counted in `use`, if that is this one.
void ManualTime::changeWorkLocked(unsigned use, int by) {
    if (use != 0 && use == mUse) {
        mAtWork += by;
        pthread_cond_signal(&mWorkChanged);
    }
}

ManualTime::Due ManualTime::dueLocked(std::uint64_t moment) {
    return {moment, ++mOrder};
}

// `word` is nullptr for a sleep. A thread that nobody counts is counted from its release to its
// return.
int ManualTime::waitLocked(Lock* lock, void const* word, std::uint32_t channels,
                           std::uint64_t limit) {
    if (limit <= now() || mUse == 0) {
        return limit == NO_LIMIT ? REACHED : TIMED_OUT;
    }
    Wait wait;
    wait.word = word;
    wait.channels = channels;
    wait.due = dueLocked(limit);
    wait.threadId = threadId();
    wait.use = mUse;
    push(&mWaits, &wait);
    int const ownWork = isWorkerLocked() ? 1 : 0;
    changeWorkLocked(wait.use, -ownWork);
    while (!wait.isReleased) {
        lock->await(&wait.released);
    }
    drop(&mWaits, &wait);
    changeWorkLocked(wait.use, ownWork - 1);
    return wait.result;
}

void ManualTime::releaseLocked(Wait* wait, int result) {
    if (wait->isReleased) {
        return;
    }
    wait->isReleased = true;
    wait->result = result;
    wait->due = Due();
    changeWorkLocked(wait->use, 1);
    pthread_cond_signal(&wait->released);
}

ManualTime::Timer* ManualTime::findTimerLocked(int kernelId) const {
    Timer* timer = mTimers;
    while (timer != nullptr && timer->kernelId != kernelId) {
        timer = timer->next;
    }
    return timer;
}

// The kernel itself is told to raise the signal: as real as any. Expiries that were jumped over are
// one, and the beat is kept.
void ManualTime::expireLocked(Timer* timer) {
    std::uint64_t next = NO_LIMIT;
    if (timer->interval != 0) {
        next = now() + timer->interval - (now() - timer->due.moment) % timer->interval;
    }
    timer->due = dueLocked(next);
    mExpiring.store(static_cast<std::uint32_t>(timer->kernelId));
    if (!expireTimerNow(timer->kernelId)) {
        mExpiring.store(NO_TIMER);
    }
}

// Of the timer that expires. No mutex is held, which the thread that it interrupts may want.
void ManualTime::awaitHandler() const {
    std::uint32_t expiring = mExpiring.load();
    while (expiring != NO_TIMER) {
        sleepOnWord(mExpiring, expiring);
        expiring = mExpiring.load();
    }
}

// What its handler has begun since goes on.
void ManualTime::endSleepOf(int threadId, std::uint64_t last) {
    Lock const lock(*this);
    for (Wait* wait = mWaits; wait != nullptr; wait = wait->next) {
        if (wait->word == nullptr && wait->threadId == threadId && wait->due.order <= last) {
            releaseLocked(wait, REACHED);
        }
    }
}

}  // namespace platform
}  // namespace utl
