// Internal. The pipe that a message-driven thread or a shared timer sleeps on, and how the signals
// of its kernel timers find their way into it.
//
// Every word read is one wake-up. Posters write a word for each control entry they queue; their
// write never blocks, because they hold the lock that the loop needs to drain the pipe. The pipe
// holds a word for each entry that the queue can hold beside all words of timers, so that one that
// is full has all the wake-ups it needs.
//
// A signal carries the pipe's write descriptor. It is looked up in a table of living pipes: one
// that is still under way when its pipe is gone writes nothing, even if another file has the number
// now.

#ifndef UTL_WAKE_PIPE_H
#define UTL_WAKE_PIPE_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/UtlPipe.h"

namespace utl {

class WakePipe {
public:
    struct Word {
        std::int32_t id;
        std::int32_t parameter;
    };

    // The id of a timer's word; its parameter is the kernel's timer id.
    static constexpr std::int32_t TIMER_SIGNAL = 0x83F0;

    // For a control queue of `maxEntries` and up to `maxTimers` timers. When it cannot be made it
    // is not open, with errno.
    WakePipe(unsigned long maxEntries, unsigned long maxTimers);

    // Waits until no signal handler is inside, then closes both ends.
    ~WakePipe();
    WakePipe(WakePipe const&) = delete;
    WakePipe& operator=(WakePipe const&) = delete;

    bool isOpen() const { return mEnds.write != -1; }

    // What the signals of this pipe's timers carry.
    int carriedValue() const { return mEnds.write; }

    // One thread at a time. What write() returned, which is the size of a word unless it failed
    // with errno; a full pipe counts as written. A wake-up that failed is made up for with the next
    // one: the reader takes one entry for each word, and must never lag behind.
    ssize_t wake(Word const& word);

    // The one reader. Blocks until there is a word. What read() returned, with its errno; 0 without
    // one.
    ssize_t read(Word* word);

    // Async-signal-safe: the timer `kernelId`, whose signal carries `carriedValue`, has expired.
    static void timerExpired(int carriedValue, int kernelId);

private:
    struct Living;
    class TimerWords;

    ssize_t put(Word const& word);
    void addTimerWord(int kernelId);
    bool joinTheLiving();
    void leaveTheLiving();

    std::unique_ptr<TimerWords> mTimerWords;
    platform::PipeEnds mEnds;
    unsigned long mOwedWakeUps = 0;

    static Living living[];
};

}  // namespace utl

#endif  // UTL_WAKE_PIPE_H
