// How a loop goes to sleep and is woken, as a model small enough to be explored whole: every order
// in which the steps of two senders, of the loop, and of the signal handler that interrupts it can
// follow each other.

#include <gtest/gtest.h>

#include <cstdint>
#include <unordered_set>
#include <vector>

namespace {

enum class Flaw {
    NONE,
    MARKS_WITHOUT_LOCK,
    MARKS_WITHOUT_LOOKING,
    LOOKS_BEFORE_IT_PERMITS,
    WAKES_WITHOUT_LOCK,
    RINGS_FOR_ANY_SLEEP,
    TAKES_BACK_FROM_ANYBODY
};

constexpr int SENDERS = 2;
constexpr int LOOP = SENDERS;
constexpr int NOBODY = -1;
constexpr int AWAKE = 0;

struct Sender {
    enum Step { LOCK, WAKE, UNMARK, PUT, UNLOCK, RING, UNMARK_RUNG, LOCK_AGAIN, TAKE_BACK };

    int next = LOCK;
    int toPost = 2;
    int rings = AWAKE;  // for the sleep that it has marked so

    // Some write their word at once, with the mutex held, whether another rings or not.
    bool hasBell(int index) const { return index == 0 || toPost > 1; }
};

struct State {
    enum Looping { WORK, BEFORE_SLEEP, MARK, RELEASE, PERMIT, LOOK, READ, AWAKEN, UNMARK, ON };

    int queued = 0;
    int accepted = 0;
    int taken = 0;
    int expired = 0;
    int words = 0;        // in the pipe
    int toFail = 1;       // how many words more do not get there
    int holder = NOBODY;  // of the mutex
    int sleeps = 0;       // how many there were
    int sleep = AWAKE;    // the one that the senders see: even, and odd while one of them rings
    bool mayBeAsleep = false;  // as the signal handler sees it
    Sender senders[SENDERS];
    int toExpire = 1;
    int looping = WORK;

    // No two states have the same.
    std::uint64_t key() const {
        std::uint64_t key = 0;
        for (int const part : {queued + 1, accepted, taken, expired, words, toFail, holder + 1,
                               static_cast<int>(mayBeAsleep), toExpire}) {
            key = key * 8 + static_cast<unsigned>(part);
        }
        for (int const part : {sleeps, sleep, looping, senders[0].next, senders[0].rings,
                               senders[1].next, senders[1].rings}) {
            key = key * 16 + static_cast<unsigned>(part);
        }
        return key * 9 + static_cast<unsigned>(senders[0].toPost * 3 + senders[1].toPost);
    }
};

// The steps of the actors. False: this one has to wait, or has nothing left to do. Where
// `isFailing` the word that it is about to write does not get into the pipe.

bool isRinging(int sleep) {
    return sleep % 2 != 0;
}

bool leave(State& state, Sender& sender, bool isAccepted) {
    state.accepted += isAccepted;
    --sender.toPost;
    state.holder = NOBODY;
    sender.rings = AWAKE;
    sender.next = Sender::LOCK;
    return true;
}

bool post(State& state, int index, bool isFailing, Flaw flaw) {
    Sender& sender = state.senders[index];
    switch (sender.next) {
        case Sender::LOCK:
            if (sender.toPost == 0 || state.holder != NOBODY) {
                return false;
            }
            state.holder = index;
            if (state.sleep == AWAKE) {
                sender.next = Sender::PUT;
            } else if (isRinging(state.sleep) || !sender.hasBell(index)) {
                sender.next = Sender::WAKE;
            } else {
                sender.rings = ++state.sleep;
                sender.next = Sender::PUT;
            }
            return true;
        case Sender::WAKE:
            if (isFailing) {
                return leave(state, sender, false);
            }
            ++state.words;
            break;
        case Sender::UNMARK:
            state.sleep = AWAKE;
            break;
        case Sender::PUT:
            ++state.queued;
            break;
        case Sender::UNLOCK:
            if (sender.rings == AWAKE) {
                return leave(state, sender, true);
            }
            state.holder = NOBODY;
            break;
        case Sender::RING:
            state.words += !isFailing;
            sender.next = isFailing ? Sender::LOCK_AGAIN : Sender::UNMARK_RUNG;
            return true;
        case Sender::UNMARK_RUNG:
            if (state.sleep == sender.rings || flaw == Flaw::RINGS_FOR_ANY_SLEEP) {
                state.sleep = AWAKE;
            }
            ++state.accepted;
            --sender.toPost;
            sender.rings = AWAKE;
            sender.next = Sender::LOCK;
            return true;
        case Sender::LOCK_AGAIN:
            if (state.holder != NOBODY) {
                return false;
            }
            state.holder = index;
            if (state.sleep != sender.rings && flaw != Flaw::TAKES_BACK_FROM_ANYBODY) {
                return leave(state, sender, true);
            }
            break;
        default:
            --state.queued;
            state.sleep = sender.rings - 1;
            return leave(state, sender, false);
    }
    ++sender.next;
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
    bool const locksAwaking = flaw != Flaw::WAKES_WITHOUT_LOCK;
    switch (state.looping) {
        case State::WORK:
            if (state.expired != 0) {
                state.expired = 0;
            } else if (state.queued > 0) {
                --state.queued;
                ++state.taken;
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
            state.sleep = 2 * ++state.sleeps;
            break;
        case State::RELEASE:
            state.holder = locks ? NOBODY : state.holder;
            break;
        case State::PERMIT:
        case State::LOOK:
            if ((state.looping == State::PERMIT) == looksLast) {
                state.mayBeAsleep = true;
            } else if (state.expired != 0) {
                state.looping = State::AWAKEN;
                return true;
            }
            break;
        case State::READ:
            if (state.words == 0) {
                return false;
            }
            state.words = 0;
            break;
        case State::AWAKEN:
            if (locksAwaking && state.holder != NOBODY) {
                return false;
            }
            state.holder = locksAwaking ? LOOP : state.holder;
            state.mayBeAsleep = false;
            break;
        case State::UNMARK:
            state.sleep = AWAKE;
            break;
        default:
            state.holder = locksAwaking ? NOBODY : state.holder;
            state.looping = State::WORK;
            return true;
    }
    ++state.looping;
    return true;
}

// How many states there are; in how many of them nothing happens any more although something is
// left for the loop; and in how many it has handled other things than were accepted.
struct Explored {
    std::size_t states = 0;
    std::size_t stuck = 0;
    std::size_t untrue = 0;
};

Explored explore(Flaw flaw) {
    std::unordered_set<std::uint64_t> seen;
    std::vector<State> open = {State()};
    Explored explored;
    while (!open.empty()) {
        State const state = open.back();
        open.pop_back();
        if (!seen.insert(state.key()).second) {
            continue;
        }
        bool isOver = true;
        auto const go = [&](State const& next, bool hasMoved) {
            isOver = isOver && !hasMoved;
            if (hasMoved) {
                open.push_back(next);
            }
        };
        for (int actor = 0; actor < SENDERS; ++actor) {
            State next = state;
            go(next, post(next, actor, false, flaw));
            int const step = state.senders[actor].next;
            if (state.toFail != 0 && (step == Sender::WAKE || step == Sender::RING)) {
                next = state;
                --next.toFail;
                go(next, post(next, actor, true, flaw));
            }
        }
        State next = state;
        go(next, loop(next, flaw));
        next = state;
        go(next, expire(next));
        explored.stuck += isOver && (state.queued != 0 || state.expired != 0);
        explored.untrue += state.queued < 0 || (isOver && state.taken != state.accepted);
    }
    explored.states = seen.size();
    return explored;
}

TEST(WakeModelTest, NoOrderLeavesTheLoopAsleepWithSomethingToDo) {
    Explored const explored = explore(Flaw::NONE);
    EXPECT_LT(10000u, explored.states);
    EXPECT_EQ(0u, explored.stuck);
    EXPECT_EQ(0u, explored.untrue);
    for (Flaw const flaw :
         {Flaw::MARKS_WITHOUT_LOCK, Flaw::MARKS_WITHOUT_LOOKING, Flaw::LOOKS_BEFORE_IT_PERMITS,
          Flaw::WAKES_WITHOUT_LOCK, Flaw::RINGS_FOR_ANY_SLEEP, Flaw::TAKES_BACK_FROM_ANYBODY}) {
        Explored const flawed = explore(flaw);
        EXPECT_LT(0u, flawed.stuck + flawed.untrue) << static_cast<int>(flaw);
    }
}

}  // namespace
