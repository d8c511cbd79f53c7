#include "messaging/UtlWakePipe.h"

#include <errno.h>
#include <unistd.h>

#include <cstddef>
#include <new>

#include "foundation/UtlVisitorCount.h"
#include "platform/UtlErrno.h"
#include "platform/UtlStaticLock.h"

namespace utl {

namespace {

// How many wake pipes a process can have at a time.
constexpr std::size_t MAX_LIVING = 1024;

platform::StaticLock livingLock;  // taken by those who join; signal handlers take no lock

}  // namespace

// The words of timers that are under way: at most two of each timer, and all in all as many as
// there are places. A fast timer with a slow listener crowds out neither messages nor other timers;
// the loop keeps no more than two expiries of one anyway.
class WakePipe::TimerWords {
public:
    explicit TimerWords(unsigned long maxTimers)
        : mPlaceCount(placesFor(maxTimers)),
          mKernelIds(new (std::nothrow) std::atomic<int>[mPlaceCount]) {
        for (std::size_t i = 0; isUsable() && i < mPlaceCount; ++i) {
            mKernelIds[i].store(FREE, std::memory_order_relaxed);
        }
    }

    bool isUsable() const { return mKernelIds != nullptr; }
    std::size_t mostWords() const { return mPlaceCount; }

    // Async-signal-safe. False: there are enough. Threads that take one timer's signals at the same
    // time may add one too many, which does no harm.
    bool add(int kernelId) {
        int underWay = 0;
        for (std::size_t i = 0; i < mPlaceCount; ++i) {
            underWay += mKernelIds[i].load(std::memory_order_relaxed) == kernelId ? 1 : 0;
        }
        return underWay < WORDS_PER_TIMER && exchangeOne(FREE, kernelId);
    }

    void remove(int kernelId) { exchangeOne(kernelId, FREE); }

private:
    static constexpr int FREE = -1;
    static constexpr int WORDS_PER_TIMER = 2;
    static constexpr std::size_t MOST_PLACES = 4096;

    // Twice what the timers need: killed ones may have words under way too.
    static std::size_t placesFor(unsigned long maxTimers) {
        return maxTimers < MOST_PLACES / 4 ? 4 * maxTimers + 16 : MOST_PLACES;
    }

    bool exchangeOne(int present, int next) {
        for (std::size_t i = 0; i < mPlaceCount; ++i) {
            int expected = present;
            if (mKernelIds[i].compare_exchange_strong(expected, next, std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }

    std::size_t const mPlaceCount;
    std::unique_ptr<std::atomic<int>[]> const mKernelIds;
};

// An entry of the table of living pipes; free while `pipe` is null.
struct WakePipe::Living {
    std::atomic<WakePipe*> pipe{nullptr};
    std::atomic<int> fd{0};
    VisitorCount visitors;
};

WakePipe::Living WakePipe::living[MAX_LIVING];

WakePipe::WakePipe(unsigned long maxEntries, unsigned long maxTimers)
    : mTimerWords(new (std::nothrow) TimerWords(maxTimers)) {
    if (mTimerWords == nullptr || !mTimerWords->isUsable()) {
        errno = ENOMEM;
        return;
    }
    std::size_t const words = maxEntries + mTimerWords->mostWords();
    if (platform::openPipe(&mEnds, words * sizeof(Word)) && !joinTheLiving()) {
        close(mEnds.read);
        close(mEnds.write);
        mEnds = platform::PipeEnds();
        errno = EMFILE;
    }
}

WakePipe::~WakePipe() {
    if (isOpen()) {
        leaveTheLiving();
        close(mEnds.read);
        close(mEnds.write);
    }
}

ssize_t WakePipe::wake(Word const& word) {
    ssize_t const written = put(word);
    if (written != static_cast<ssize_t>(sizeof word)) {
        ++mOwedWakeUps;
        return written;
    }
    while (mOwedWakeUps != 0 && put(word) == static_cast<ssize_t>(sizeof word)) {
        --mOwedWakeUps;
    }
    return written;
}

ssize_t WakePipe::put(Word const& word) {
    ssize_t const written = write(mEnds.write, &word, sizeof word);
    bool const isFull = written == -1 && errno == EAGAIN;
    return isFull ? static_cast<ssize_t>(sizeof word) : written;
}

ssize_t WakePipe::read(Word* word) {
    errno = 0;
    ssize_t const got = ::read(mEnds.read, word, sizeof *word);
    if (got == static_cast<ssize_t>(sizeof *word) && word->id == TIMER_SIGNAL) {
        mTimerWords->remove(word->parameter);
    }
    return got;
}

void WakePipe::timerExpired(int carriedValue, int kernelId) {
    platform::ErrnoGuard const guard;
    for (Living& entry : living) {
        if (entry.pipe.load() == nullptr || entry.fd.load() != carriedValue) {
            continue;
        }
        VisitorCount::Visit const visit(entry.visitors);
        WakePipe* const pipe = entry.pipe.load();
        if (pipe != nullptr && entry.fd.load() == carriedValue) {
            pipe->addTimerWord(kernelId);
        }
        return;
    }
}

// Async-signal-safe.
void WakePipe::addTimerWord(int kernelId) {
    if (!mTimerWords->add(kernelId)) {
        return;
    }
    Word const word = {TIMER_SIGNAL, kernelId};
    if (write(mEnds.write, &word, sizeof word) != static_cast<ssize_t>(sizeof word)) {
        mTimerWords->remove(kernelId);
    }
}

bool WakePipe::joinTheLiving() {
    platform::StaticGuard const guard(livingLock);
    for (Living& entry : living) {
        if (entry.pipe.load() == nullptr) {
            entry.fd.store(mEnds.write);
            entry.pipe.store(this);
            return true;
        }
    }
    return false;
}

void WakePipe::leaveTheLiving() {
    for (Living& entry : living) {
        if (entry.pipe.load() == this) {
            entry.pipe.store(nullptr);
            entry.visitors.awaitNone();
            return;
        }
    }
}

}  // namespace utl
