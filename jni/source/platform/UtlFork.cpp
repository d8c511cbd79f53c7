#include "platform/UtlFork.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>

#include "platform/UtlKernelThread.h"
#include "platform/UtlStaticLock.h"

namespace utl {
namespace platform {

std::atomic<unsigned> forks{1};

namespace {

std::atomic<void (*)()> beforeEachFork{nullptr};
std::atomic<void (*)(int)> inChildOfFork{nullptr};
std::atomic<bool> areForksFollowed{false};

// Guards the list of locks. The innermost of all: a thread that holds any of them may use another
// one for the first time.
pthread_mutex_t listMutex = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

std::atomic<unsigned> processNumberNow{0};

// The locks that were ever used, in their order.
class StaticLock::List {
public:
    static void add(StaticLock& lock) {
        pthread_mutex_lock(&listMutex);
        if (!lock.mIsFollowed.load(std::memory_order_relaxed)) {
            int place = count++;
            for (; place > 0 && locks[place - 1]->mOrder > lock.mOrder; --place) {
                locks[place] = locks[place - 1];
            }
            locks[place] = &lock;
            lock.mIsFollowed.store(true, std::memory_order_relaxed);
        }
        pthread_mutex_unlock(&listMutex);
    }

    // Takes them all, and then the list: one that was added meanwhile may be held by its first
    // user.
    static void beforeFork() {
        for (;;) {
            pthread_mutex_lock(&listMutex);
            List const taken;
            pthread_mutex_unlock(&listMutex);
            taken.forEach([](StaticLock& lock) { pthread_mutex_lock(&lock.mMutex); });
            pthread_mutex_lock(&listMutex);
            if (taken.mCount == count) {
                prepare();
                return;
            }
            pthread_mutex_unlock(&listMutex);
            taken.forEach([](StaticLock& lock) { pthread_mutex_unlock(&lock.mMutex); });
        }
    }

    static void inParent() {
        List().forEach([](StaticLock& lock) { pthread_mutex_unlock(&lock.mMutex); });
        pthread_mutex_unlock(&listMutex);
    }

    // A recursive mutex belongs to a thread by its id, which is another one here: that it is
    // unlocked is for a sanitizer to see, and it is made anew.
    static void inChild() {
        List().forEach([](StaticLock& lock) {
            pthread_mutex_unlock(&lock.mMutex);
            lock.mMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
        });
        pthread_mutex_unlock(&listMutex);
        listMutex = PTHREAD_MUTEX_INITIALIZER;
        processNumberNow.fetch_add(1, std::memory_order_relaxed);
        int const parentsThreadId = forgetThreadId();
        if (auto const function = inChildOfFork.load()) {
            function(parentsThreadId);
        }
    }

private:
    static constexpr int ROOM = 32;

    static void prepare() {
        if (auto const function = beforeEachFork.load()) {
            function();
        }
        forks.fetch_add(1, std::memory_order_release);
    }

    // What is in the list now. The caller holds listMutex.
    List() : mCount(count) { std::copy(locks, locks + count, mLocks); }

    template <typename Function>
    void forEach(Function function) const {
        for (int i = 0; i < mCount; ++i) {
            function(*mLocks[i]);
        }
    }

    static StaticLock* locks[ROOM];  // guarded by listMutex
    static int count;                // likewise

    StaticLock* mLocks[ROOM];
    int const mCount;
};

StaticLock* StaticLock::List::locks[ROOM];
int StaticLock::List::count = 0;

void beforeForks(void (*function)()) {
    beforeEachFork.store(function);
}

void onFork(void (*inChild)(int)) {
    inChildOfFork.store(inChild);
}

bool followForks() {
    if (areForksFollowed.load(std::memory_order_acquire)) {
        return true;
    }
    pthread_mutex_lock(&listMutex);
    bool const isFollowed = areForksFollowed.load(std::memory_order_relaxed) ||
                            pthread_atfork(StaticLock::List::beforeFork, StaticLock::List::inParent,
                                           StaticLock::List::inChild) == 0;
    areForksFollowed.store(isFollowed, std::memory_order_release);
    pthread_mutex_unlock(&listMutex);
    return isFollowed;
}

void followForks(StaticLock& lock) {
    if (followForks()) {
        StaticLock::List::add(lock);
    }
}

}  // namespace platform
}  // namespace utl
