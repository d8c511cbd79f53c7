// What only a race shows: threads ask loops and shared timers for everything that may be asked, in
// any order, while others end them and put new ones in their places, listeners do the same from
// inside, and the process forks.
//
//     loop_race 120    for 120 seconds; ends with 1 at the first finding

#include <dirent.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <list>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "UtlMsgDrivenThread.h"
#include "UtlSharedTimer.h"
#include "UtlThreadManager.h"
#include "UtlTimer.h"

// What is refused is logged, and most of it is refused sooner or later.
extern "C" int __android_log_print(int, char const*, char const*, ...) {
    return 0;
}

namespace {

using Clock = std::chrono::steady_clock;

#ifdef __SANITIZE_THREAD__  // starts no thread in the child of a process with threads
constexpr bool HAS_THREADS_IN_CHILD = false;
#else
constexpr bool HAS_THREADS_IN_CHILD = true;
#endif

constexpr unsigned ACTORS = 4;
constexpr unsigned NOBODY = ACTORS;
constexpr int WAIT = 0;
constexpr unsigned LONGEST_SILENCE_S = 60;  // of a thread that does not hang

void require(bool holds, char const* what) {
    if (!holds) {
        std::fprintf(stderr, "found: %s\n", what);
        _exit(1);
    }
}

// Of each thread; the seed of an actor is its number, so that runs are alike.
thread_local std::minstd_rand dice;

unsigned below(unsigned limit) {
    return static_cast<unsigned>(dice()) / 16 % limit;
}

// The messages. The number that an actor gave his last one rises.
constexpr long ORDERED = 0x8001;
constexpr long SYNCHRONOUS = 0x8002;
constexpr long FAREWELL = 0x8003;

struct NumberedMsg : utl::Msg {
    explicit NumberedMsg(long id, unsigned ofActor = NOBODY, unsigned itsNumber = 0)
        : Msg(id), actor(ofActor), number(itsNumber) {}
    unsigned actor;
    unsigned number;

protected:
    void storeDataTo(utl::MsgDataBroker* broker) const override {
        broker->set(actor);
        broker->set(number);
    }
    void restoreDataFrom(utl::MsgDataBroker& broker) override {
        broker.get(&actor);
        broker.get(&number);
    }
};

std::array<std::atomic<unsigned>, ACTORS> handled;    // the last synchronous message of each
std::array<std::atomic<unsigned>, ACTORS> heartbeat;  // rises while an actor acts

// Objects that come and go. Whoever takes one may use it, although it has been ended or replaced.
template <typename Object, unsigned COUNT>
class Places {
public:
    std::shared_ptr<Object> any() {
        std::lock_guard<std::mutex> const guard(mMutex);
        return mPlaces[below(COUNT)];
    }

    void put(std::shared_ptr<Object> const& object, unsigned place) {
        std::lock_guard<std::mutex> const guard(mMutex);
        mReplaced.push_back(std::move(mPlaces[place]));
        mPlaces[place] = object;
    }
    void replaceAny() { put(std::make_shared<Object>(), below(COUNT)); }
    void fill() {
        for (unsigned i = 0; i < COUNT; ++i) {
            put(std::make_shared<Object>(), i);
        }
    }
    void empty() {
        for (unsigned i = 0; i < COUNT; ++i) {
            put(nullptr, i);
        }
    }

    // Destroys what was replaced and nobody uses: not in a listener, for whom its thread may wait.
    // Whether that was all.
    bool destroyUnused() {
        std::list<std::shared_ptr<Object>> unused;
        std::lock_guard<std::mutex> const guard(mMutex);
        for (auto i = mReplaced.begin(); i != mReplaced.end();) {
            auto const next = std::next(i);
            if (i->use_count() <= 1) {
                unused.splice(unused.end(), mReplaced, i);
            }
            i = next;
        }
        return mReplaced.empty();
    }  // destroyed after the guard has gone

private:
    std::mutex mMutex;
    std::array<std::shared_ptr<Object>, COUNT> mPlaces;
    std::list<std::shared_ptr<Object>> mReplaced;
};

struct Station;
struct Timers;
Places<Station, 3> stations;
Places<Timers, 2> sharedTimers;

void actInListener();

struct Station : utl::ThreadMsgListener {
    Station() { thread.start(this, 1, 60000, nullptr, 1, 0, utl::ThreadPriority::NORMAL, 0); }
    ~Station() override { thread.stop(1, 0); }

    int receiveMsg(int, utl::ThreadRawMsg& raw) override {
        NumberedMsg msg(0);
        require(msg.restoreFrom(raw) == 1, "a record was not whole");
        if (msg.getMsgId() == SYNCHRONOUS && msg.actor < ACTORS) {
            handled[msg.actor] = msg.number;
            raw.answer(msg);  // as is heard by who asks
        } else if (msg.getMsgId() == ORDERED && msg.actor < ACTORS) {
            require(mLast[msg.actor] < msg.number, "messages of one sender changed places");
            mLast[msg.actor] = msg.number;
        }
        actInListener();
        return 0;
    }

    utl::MsgDrivenThread thread{8, 20, "station", 6};

private:
    std::array<unsigned, ACTORS> mLast{};
};

struct Timers : utl::TimerListener {
    ~Timers() override { shared.destroy(); }
    void onTime(int) override { actInListener(); }

    utl::SharedTimer shared{1, 60000, nullptr, 8, "timers"};
};

// What may be asked of a loop; `isActor` in a thread of its own, which may wait for ever.
void askStation(unsigned actor, unsigned number) {
    auto const station = stations.any();
    if (station == nullptr) {
        return;  // all is over
    }
    utl::MsgDrivenThread& thread = station->thread;
    bool const isActor = actor != NOBODY;
    switch (below(16)) {
        case 0: {
            NumberedMsg const msg(SYNCHRONOUS, actor, number);
            NumberedMsg answer(SYNCHRONOUS);
            bool const asks = below(2) == 0;
            int const isSent = asks ? thread.askMsg(msg, &answer) : thread.sendMsgSync(msg);
            require(!asks || !isActor || isSent == 0 ||
                        (answer.actor == actor && answer.number == number),
                    "the answer was another one's");
            require(!isActor || (isSent == 1) == (handled[actor] == number),
                    "a synchronous message was not what its sender was told");
            break;
        }
        case 1: {
            NumberedMsg out(0);
            thread.peekMsg(ORDERED, &out);
            break;
        }
        case 2:
            thread.getFirstMsgId();
            break;
        case 3:
            thread.hasMsg(utl::TimerMsg::ID);
            break;
        case 4:
            thread.eraseMsg(below(4) == 0 ? utl::TimerMsg::ID : ORDERED);
            break;
        case 5:
        case 6:
            thread.setTimer(1 + below(3), static_cast<int>(below(2)), below(4),
                            static_cast<int>(below(2)));
            break;
        case 7:
            thread.killTimer(1 + static_cast<int>(below(30)), static_cast<int>(below(2)));
            break;
        case 8:
            if (isActor && below(8) == 0) {
                thread.stop(1, below(20));
            }
            break;
        case 9:
            if (isActor && below(8) == 0) {
                stations.replaceAny();
            }
            break;
        default:
            thread.postMsg(NumberedMsg(ORDERED, actor, number));
            break;
    }
}

void askTimers(unsigned actor) {
    auto const timers = sharedTimers.any();
    if (timers == nullptr) {
        return;
    }
    utl::SharedTimer& shared = timers->shared;
    bool const isActor = actor != NOBODY;
    int const id = 1 + static_cast<int>(below(20));
    int const noWait = static_cast<int>(below(2));
    switch (below(12)) {
        case 0:
            shared.addTimer(timers.get(), 1 + below(3), below(4), static_cast<int>(below(2)));
            break;
        case 1:
            shared.stop(id, noWait);
            break;
        case 2:
            shared.restart(id, noWait);
            break;
        case 3:
            shared.eraseTimer(id, noWait);
            break;
        case 4:
            shared.setInterval(id, 1 + below(3));
            break;
        case 5:
            shared.restartAll(noWait);
            break;
        case 6: {
            utl::Array<int> ids(0, utl::Array<int>::GROWS);
            shared.getTimerIdSet(&ids);
            break;
        }
        case 7:
            if (isActor && below(8) == 0) {
                shared.destroy();
            }
            break;
        case 8:
            if (isActor && below(8) == 0) {
                sharedTimers.replaceAny();
            }
            break;
        default:
            shared.start(id, noWait);
            break;
    }
}

// Once a timer was stopped or erased, nobody calls its listener.
void haveTimerOfOnesOwn() {
    struct Own : utl::TimerListener {
        void onTime(int) override { require(!isOver, "a timer expired that had been erased"); }
        std::atomic<bool> isOver{false};
    };
    auto const timers = sharedTimers.any();
    Own own;
    int const id = timers->shared.addTimer(&own, 1, 0, 1);
    if (id == -1) {
        return;
    }
    timers->shared.start(id, WAIT);
    utl::Thread::sleep(below(4));
    if (!timers->shared.eraseTimer(id, WAIT)) {
        timers->shared.destroy();  // it is being ended: that is over then
    }
    own.isOver = true;
}

// A thread that destroys its own object.
void saySoAndGo() {
    struct Ephemeral : utl::ThreadMsgListener {
        int receiveMsg(int, utl::ThreadRawMsg& raw) override {
            long msgId = 0;
            raw.getMsgId(&msgId);
            if (msgId == FAREWELL) {
                thread.reset();
                isGone = true;
            }
            return 0;
        }
        std::unique_ptr<utl::MsgDrivenThread> thread =
            std::make_unique<utl::MsgDrivenThread>(8, 4, "ephemeral", 1);
        std::atomic<bool> isGone{false};
    } ephemeral;
    utl::MsgDrivenThread& thread = *ephemeral.thread;
    if (thread.start(&ephemeral, 0, 0, nullptr, 1, 0, utl::ThreadPriority::NORMAL, 0) != 0) {
        return;
    }
    thread.setTimer(1, 1, 0, 1);
    thread.sendMsgAsync(NumberedMsg(FAREWELL));
    while (!ephemeral.isGone) {
        std::this_thread::yield();
    }
}

// What a child is told: nothing of the parent's runs, and its own threads do.
int actAsChild(Station& station, Timers& timers) {
    utl::MsgDrivenThread& old = station.thread;
    if (old.isRunning() || old.postMsg(ORDERED) != 0 || old.sendMsgSync(ORDERED) != 0 ||
        old.hasMsg(ORDERED) != 0 || old.stop(1, 0) != -1 || old.setTimer(1, 0, 0, 0) != -1) {
        return 1;
    }
    if (timers.shared.start(1, WAIT) || timers.shared.addTimer(nullptr, 1, 0, 0) != -1) {
        return 2;
    }
    if (!HAS_THREADS_IN_CHILD) {
        return 0;
    }
    struct Own : utl::ThreadMsgListener {
        int receiveMsg(int, utl::ThreadRawMsg&) override { return ++count, 0; }
        std::atomic<int> count{0};
    } own;
    utl::MsgDrivenThread thread(8, 8, "child", 1);
    if (thread.start(&own, 1, 60000, nullptr, 1, 0, utl::ThreadPriority::NORMAL, 0) != 0 ||
        thread.sendMsgSync(ORDERED) != 1 || thread.setTimer(1, 0, 1, 0) != 1) {
        return 3;
    }
    while (own.count < 2) {
        std::this_thread::yield();
    }
    return thread.stop(1, 0) == 0 ? 0 : 4;
}

void forkOnce() {
    auto const station = stations.any();
    auto const timers = sharedTimers.any();
    pid_t const child = fork();
    if (child == 0) {
        alarm(LONGEST_SILENCE_S / 2);
        _exit(actAsChild(*station, *timers));
    }
    int status = -1;
    while (child > 0 && waitpid(child, &status, 0) == -1) {
    }
    if (status != 0) {
        std::fprintf(stderr, "status of the child: 0x%x\n", static_cast<unsigned>(status));
    }
    require(status == 0, "a child hung or found something running");
}

void actInListener() {
    switch (below(12)) {
        case 0:
            askStation(NOBODY, 0);
            break;
        case 1:
            askTimers(NOBODY);
            break;
        default:
            break;
    }
}

void act(unsigned actor, std::atomic<bool> const& isOver) {
    dice.seed(actor + 1);
    for (unsigned number = 1; !isOver; ++number) {
        unsigned const what = below(2000);
        if (what == 0) {
            forkOnce();
        } else if (what < 10) {
            haveTimerOfOnesOwn();
        } else if (what < 20) {
            saySoAndGo();
        } else if (what < 1200) {
            askStation(actor, number);
        } else {
            askTimers(actor);
        }
        heartbeat[actor] = number;
    }
}

unsigned openDescriptors() {
    DIR* const directory = opendir("/proc/self/fd");
    unsigned count = 0;
    while (readdir(directory) != nullptr) {
        ++count;
    }
    closedir(directory);
    return count;
}

// Threads that have destroyed their own objects may still be on their way out.
template <typename Condition>
void requireSoon(Condition condition, char const* what) {
    auto const end = Clock::now() + std::chrono::seconds(LONGEST_SILENCE_S);
    while (!condition()) {
        require(Clock::now() < end, what);
        std::this_thread::yield();
    }
}

bool hasKernelTimers() {
    std::ifstream timers("/proc/self/timers");
    return timers.peek() != std::ifstream::traits_type::eof();
}

}  // namespace

int main(int argc, char** argv) {
    std::chrono::seconds const duration(argc > 1 ? atol(argv[1]) : 5);
    utl::ThreadManager::get();
    unsigned const descriptors = openDescriptors();
    stations.fill();
    sharedTimers.fill();

    std::atomic<bool> isOver{false};
    std::vector<std::thread> actors;
    for (unsigned i = 0; i < ACTORS; ++i) {
        actors.emplace_back(act, i, std::cref(isOver));
    }
    std::array<unsigned, ACTORS> seen{};
    std::array<Clock::time_point, ACTORS> lastChange;
    lastChange.fill(Clock::now());
    for (auto const end = Clock::now() + duration; Clock::now() < end;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        for (unsigned i = 0; i < ACTORS; ++i) {
            unsigned const beat = heartbeat[i];
            lastChange[i] = beat != seen[i] ? Clock::now() : lastChange[i];
            seen[i] = beat;
            if (Clock::now() - lastChange[i] > std::chrono::seconds(LONGEST_SILENCE_S)) {
                std::fprintf(stderr, "found: an actor hangs\n");
                abort();
            }
        }
        stations.destroyUnused();
        sharedTimers.destroyUnused();
    }
    isOver = true;
    alarm(3 * LONGEST_SILENCE_S);
    for (std::thread& actor : actors) {
        actor.join();
    }
    stations.empty();
    sharedTimers.empty();
    requireSoon([] { return stations.destroyUnused() && sharedTimers.destroyUnused(); },
                "an object is in use for ever");

    requireSoon(
        [] {
            utl::Map<int, utl::BasicString<char>> names(128, 0);
            return utl::ThreadManager::get()->getNames(&names) && names.count() == 1;
        },
        "threads that are gone are still registered");
    requireSoon([&] { return openDescriptors() == descriptors; }, "descriptors were left open");
    utl::ThreadManager::destroy();
    requireSoon([] { return !hasKernelTimers(); }, "kernel timers were left");
    for (unsigned i = 0; i < ACTORS; ++i) {
        std::printf("actor %u: %u rounds\n", i, seen[i]);
    }
    return 0;
}
