#include "loop/UtlPollSet.h"

#include <errno.h>

#include "UtlLoop.h"

#include "platform/UtlPipe.h"

namespace utl {

namespace {

// How long a loop sleeps that the system has refused something.
constexpr int MOMENT_MS = 10;

constexpr unsigned bits(int events) {
    return static_cast<unsigned short>(events);
}

short wanted(unsigned events) {
    return static_cast<short>(((events & Loop::READABLE) != 0 ? POLLIN : 0) |
                              ((events & Loop::WRITABLE) != 0 ? POLLOUT : 0));
}

// What is asked for is also what an end or a failure is reported as: the next call of read() or
// write() finds it.
unsigned seen(pollfd const& polled) {
    unsigned seen = bits(polled.revents);
    if ((seen & bits(POLLNVAL)) != 0) {
        return Loop::CLOSED;
    }
    if ((seen & bits(POLLERR | POLLHUP)) != 0) {
        seen |= bits(polled.events);
    }
    return ((seen & bits(POLLIN)) != 0 ? unsigned{Loop::READABLE} : 0) |
           ((seen & bits(POLLOUT)) != 0 ? unsigned{Loop::WRITABLE} : 0);
}

}  // namespace

PollSet::PollSet(unsigned long capacity)
    : mPolled(allocateElements<pollfd>(capacity + 1)),
      mOwners(allocateElements<Owner>(capacity + 1)) {}

void PollSet::assign(WatchList const& watches) {
    mEnd = 1;
    for (Watch const& watch : watches) {
        mPolled[mEnd] = {watch.descriptor, wanted(watch.events), 0};
        mOwners[mEnd] = {watch.owner, watch.generation};
        ++mEnd;
    }
    mNext = mEnd;
}

bool PollSet::await(int wakeEnd, int* error) {
    mPolled[0] = {wakeEnd, POLLIN, 0};
    // Whoever interrupts to wake writes a word as well.
    return note(platform::awaitDescriptors(mPolled.get(), mEnd), error);
}

bool PollSet::awaitMoment(int wakeEnd, int* error) {
    mPolled[0] = {wakeEnd, POLLIN, 0};
    int const count = platform::lookAtDescriptors(mPolled.get(), mEnd, MOMENT_MS);
    bool const isCutShort = count == -1 && errno == EINTR;
    return note(isCutShort ? 0 : count, error);
}

// What poll() has returned.
bool PollSet::note(int count, int* error) {
    *error = count == -1 ? errno : 0;
    mNext = count > 0 ? 1 : mEnd;
    if (count == -1) {
        return awaitWakeEndOnly();
    }
    return mPolled[0].revents != 0;
}

// For a moment. Where the system allows not even one descriptor, it passes all the same.
bool PollSet::awaitWakeEndOnly() const {
    pollfd wake = mPolled[0];
    int const count = platform::lookAtDescriptors(&wake, 1, MOMENT_MS);
    if (count == -1 && errno != EINTR) {
        platform::lookAtDescriptors(nullptr, 0, MOMENT_MS);
    }
    return count > 0;
}

void PollSet::look() {
    mNext = platform::lookAtDescriptors(mPolled.get() + 1, mEnd - 1, 0) > 0 ? 1 : mEnd;
}

bool PollSet::takeReady(Ready* ready) {
    while (mNext != mEnd) {
        std::uint32_t const place = mNext++;
        if (mPolled[place].revents != 0) {
            *ready = {mOwners[place].place, mOwners[place].generation, seen(mPolled[place])};
            return true;
        }
    }
    return false;
}

}  // namespace utl
