// Internal. The watch over a thread that loops: it is watched while it works, and not while it
// waits for work, if it is registered with the watchdog. Only then does any of this cost more than
// a look.
//
//     mWatch.reportAtWork(1030);
//     LoopWatch::Pause const pause(mWatch, 879, 890);
//     read(mFd, buffer, size);

#ifndef UTL_LOOP_WATCH_H
#define UTL_LOOP_WATCH_H

#include <atomic>

namespace utl {

// The thread's own.
class LoopWatch {
public:
    // What it reports is in `file` and `function`: literals.
    LoopWatch(char const* file, char const* function) : mFile(file), mFunction(function) {}

    // First of all, on the thread.
    void begin(int threadId) { mThreadId = threadId; }

    // Has the thread watched and reports it alive at `line`. Between two things it does: it may not
    // come to a pause for long.
    void reportAtWork(unsigned long line) {
        if (isRegistered()) {
            startAndReport(line);
        }
    }

    class Pause {
    public:
        // Reports alive at `before` and stops the watch.
        Pause(LoopWatch& watch, unsigned long before, unsigned long after);

        // Starts the watch, which gives a full alive time, and reports alive at `after`. Leaves
        // errno.
        ~Pause();
        Pause(Pause const&) = delete;
        Pause& operator=(Pause const&) = delete;

    private:
        LoopWatch& mWatch;
        unsigned long const mAfter;
    };

    // Some thread has come to be registered, or is no more. Any thread.
    static void registrationChanged();

private:
    bool isRegistered() {
        unsigned const present = sChanges.load(std::memory_order_acquire);
        if (present != mChangesSeen) {
            askManager(present);
        }
        return mIsRegistered;
    }
    void askManager(unsigned present);
    void startAndReport(unsigned long line);

    // Of registrations, from 1 on: a thread asks once before it believes anything.
    static std::atomic<unsigned> sChanges;

    char const* const mFile;
    char const* const mFunction;
    int mThreadId = 0;
    unsigned mChangesSeen = 0;
    bool mIsRegistered = false;  // as of those changes
};

}  // namespace utl

#endif  // UTL_LOOP_WATCH_H
