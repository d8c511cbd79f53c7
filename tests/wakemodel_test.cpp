// How a loop goes to sleep and is woken, as a model small enough to be explored whole: every order
// in which the steps of two senders, of the loop, and of the signal handler that interrupts it can
// follow each other.

#include <gtest/gtest.h>

#include <set>
#include <tuple>
#include <vector>

namespace {

enum class Flaw { NONE, MARKS_WITHOUT_LOCK, MARKS_WITHOUT_LOOKING, LOOKS_BEFORE_IT_PERMITS };

constexpr int SENDERS = 2;
constexpr int LOOP = SENDERS;
constexpr int NOBODY = -1;

struct State {
    enum Sending { LOCK, WAKE, UNMARK, PUT, UNLOCK };
    enum Looping { WORK, BEFORE_SLEEP, MARK, RELEASE, PERMIT, LOOK, READ, AWAKE };

    int queued = 0;
    int expired = 0;
    int words = 0;              // in the pipe
    int holder = NOBODY;        // of the mutex
    bool isAsleep = false;      // the loop, as the senders see it
    bool mayBeAsleep = false;   // as the signal handler sees it
    int sending[SENDERS] = {};  // the next step
    int toPost[SENDERS] = {2, 2};
    int toExpire = 2;
    int looping = WORK;

    auto key() const {
        return std::make_tuple(queued, expired, words, holder, isAsleep, mayBeAsleep, sending[0],
                               sending[1], toPost[0], toPost[1], toExpire, looping);
    }
    bool operator<(State const& other) const { return key() < other.key(); }
};

// The steps of the actors. False: this one has to wait, or has nothing left to do.

bool post(State& state, int sender) {
    int& next = state.sending[sender];
    switch (next) {
        case State::LOCK:
            if (state.toPost[sender] == 0 || state.holder != NOBODY) {
                return false;
            }
            state.holder = sender;
            next = state.isAsleep ? State::WAKE : State::PUT;
            return true;
        case State::WAKE:
            ++state.words;
            break;
        case State::UNMARK:
            state.isAsleep = false;
            break;
        case State::PUT:
            ++state.queued;
            break;
        default:
            --state.toPost[sender];
            state.holder = NOBODY;
            next = State::LOCK;
            return true;
    }
    ++next;
    return true;
}

bool expire(State& state) {
    if (state.toExpire == 0) {
        return false;
    }
    --state.toExpire;
    ++state.expired;
    state.words += state.mayBeAsleep;
    state.mayBeAsleep = false;
    return true;
}

bool loop(State& state, Flaw flaw) {
    bool const locks = flaw != Flaw::MARKS_WITHOUT_LOCK;
    bool const looksAgain = locks && flaw != Flaw::MARKS_WITHOUT_LOOKING;
    bool const looksLast = flaw != Flaw::LOOKS_BEFORE_IT_PERMITS;
    switch (state.looping) {
        case State::WORK:
            if (state.expired != 0) {
                state.expired = 0;
            } else if (state.queued != 0) {
                --state.queued;
            } else {
                state.looping = State::BEFORE_SLEEP;
            }
            return true;
        case State::BEFORE_SLEEP:
            if (locks && state.holder != NOBODY) {
                return false;
            }
            state.holder = locks ? LOOP : state.holder;
            break;
        case State::MARK:
            if (looksAgain && state.queued != 0) {
                state.holder = NOBODY;
                state.looping = State::WORK;
                return true;
            }
            state.isAsleep = true;
            break;
        case State::RELEASE:
            state.holder = locks ? NOBODY : state.holder;
            break;
        case State::PERMIT:
        case State::LOOK:
            if ((state.looping == State::PERMIT) == looksLast) {
                state.mayBeAsleep = true;
            } else if (state.expired != 0) {
                state.looping = State::AWAKE;
                return true;
            }
            break;
        case State::READ:
            if (state.words == 0) {
                return false;
            }
            state.words = 0;
            break;
        default:
            state.mayBeAsleep = false;
            state.isAsleep = false;
            state.looping = State::WORK;
            return true;
    }
    ++state.looping;
    return true;
}

// How many states there are, and in how many of them nothing happens any more although something
// is left for the loop.
struct Explored {
    std::size_t states = 0;
    std::size_t stuck = 0;
};

Explored explore(Flaw flaw) {
    std::set<State> seen;
    std::vector<State> open = {State()};
    Explored explored;
    while (!open.empty()) {
        State const state = open.back();
        open.pop_back();
        if (!seen.insert(state).second) {
            continue;
        }
        bool isOver = true;
        for (int actor = 0; actor < SENDERS + 2; ++actor) {
            State next = state;
            if (actor < SENDERS ? post(next, actor)
                : actor == LOOP ? loop(next, flaw)
                                : expire(next)) {
                isOver = false;
                open.push_back(next);
            }
        }
        explored.stuck += isOver && (state.queued != 0 || state.expired != 0);
    }
    explored.states = seen.size();
    return explored;
}

TEST(WakeModelTest, NoOrderLeavesTheLoopAsleepWithSomethingToDo) {
    Explored const explored = explore(Flaw::NONE);
    EXPECT_LT(10000u, explored.states);
    EXPECT_EQ(0u, explored.stuck);
    for (Flaw const flaw :
         {Flaw::MARKS_WITHOUT_LOCK, Flaw::MARKS_WITHOUT_LOOKING, Flaw::LOOKS_BEFORE_IT_PERMITS}) {
        EXPECT_LT(0u, explore(flaw).stuck) << static_cast<int>(flaw);
    }
}

}  // namespace
