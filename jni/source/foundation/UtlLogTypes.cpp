#include "foundation/UtlLogTypes.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "UtlLog.h"
#include "UtlString.h"

#include "foundation/UtlLogLine.h"
#include "foundation/UtlLogSettings.h"
#include "platform/UtlEnvironment.h"
#include "platform/UtlStaticLock.h"

namespace utl {

namespace {

constexpr std::size_t MAX_LOG_TYPES = 64;
constexpr int FALLBACK_TYPE = -1;
constexpr int NO_FILTER_LEVEL = 5;

// A leaf, as the sink's lock is; the two are never held together. Whoever changes a type has it.
platform::StaticLock tableLock(platform::LockOrder::LOG_TABLE);

// Zeros from its end on.
struct Name {
    char text[LOG_NAME_SIZE];
};

class LogType {
public:
    // The filter level, the length of the name, and the number of the change they come from.
    using State = std::uint32_t;

    constexpr LogType() = default;
    // `name` of at most 7 bytes.
    constexpr LogType(int filter, Name const& name)
        : mState(stateOf(filter, name)), mName{wordOf(name, 0), wordOf(name, 1)} {}

    State state() const { return mState.load(std::memory_order_acquire); }
    static int filterOf(State state) { return static_cast<int>(state & FILTER_BITS); }
    static bool hasBeenSet(State state) { return (state & IS_SET) != 0; }
    static unsigned long lengthOf(State state) { return state >> LENGTH_SHIFT & LENGTH_BITS; }

    // Stores the name. False if that may not be the one that belongs to `state`.
    bool copyName(State state, char* text) const {
        for (unsigned long i = 0; 4 * i < lengthOf(state); ++i) {
            // Whoever reads a part of the next name sees below that it is being changed.
            std::uint32_t const word = mName[i].load(std::memory_order_acquire);
            for (unsigned byte = 0; byte < 4; ++byte) {
                text[4 * i + byte] = static_cast<char>(word >> 8 * byte & 0xFF);
            }
        }
        return (state & IS_CHANGING) == 0 && mState.load(std::memory_order_relaxed) == state;
    }

    void change(int filter, Name const& name) {
        State const before = mState.load(std::memory_order_relaxed);
        mState.store(before | IS_CHANGING, std::memory_order_relaxed);
        for (unsigned long i = 0; i < WORDS; ++i) {
            mName[i].store(wordOf(name, i), std::memory_order_release);
        }
        mState.store((before & CHANGES) + ONE_CHANGE + (IS_SET | stateOf(filter, name)),
                     std::memory_order_release);
    }

    void changeFilter(int filter) {
        State const before = mState.load(std::memory_order_relaxed);
        State const kept = (before & ~FILTER_BITS) | IS_SET;
        mState.store(kept + ONE_CHANGE + static_cast<State>(filter), std::memory_order_release);
    }

private:
    static constexpr State FILTER_BITS = 7;
    static constexpr unsigned LENGTH_SHIFT = 3;
    static constexpr State LENGTH_BITS = LOG_NAME_SIZE - 1;
    static constexpr State IS_CHANGING = 0x100;
    static constexpr State IS_SET = 0x200;  // no longer as it was built in
    static constexpr State ONE_CHANGE = 0x400;
    static constexpr State CHANGES = ~(ONE_CHANGE - 1);
    static constexpr unsigned long WORDS = LOG_NAME_SIZE / 4;

    static constexpr State stateOf(int filter, Name const& name) {
        State length = 0;
        while (name.text[length] != '\0') {
            ++length;
        }
        return static_cast<State>(filter) | length << LENGTH_SHIFT;
    }
    static constexpr std::uint32_t wordOf(Name const& name, unsigned long index) {
        std::uint32_t word = 0;
        for (unsigned byte = 0; byte < 4; ++byte) {
            word |= std::uint32_t{static_cast<unsigned char>(name.text[4 * index + byte])}
                    << 8 * byte;
        }
        return word;
    }

    std::atomic<State> mState{0};
    std::atomic<std::uint32_t> mName[WORDS] = {};
};

// Types are added and never removed. They are found through places that their numbers lead to, or
// the next that follow; half of those stay free.
class Table {
public:
    constexpr Table() = default;

    // nullptr when it is not registered.
    LogType* find(int number) {
        if (number == FALLBACK_TYPE || number == LIBRARY_LOG) {
            return &mTypes[FALLBACK_TYPE - number];
        }
        for (std::size_t place = firstPlaceOf(number);; place = (place + 1) % PLACES) {
            std::size_t const index = mPlaces[place].load(std::memory_order_acquire);
            if (index == 0) {
                return nullptr;
            }
            if (mNumbers[index] == number) {
                return &mTypes[index];
            }
        }
    }

    LogType& fallback() { return mTypes[0]; }
    LogType& library() { return mTypes[1]; }

    // False when there is no room.
    bool setLocked(int number, int filter, Name const& name) UTL_REQUIRES(tableLock) {
        if (LogType* const known = find(number)) {
            known->change(filter, name);
            return true;
        }
        if (mCount == MAX_LOG_TYPES) {
            return false;
        }
        mNumbers[mCount] = number;
        mTypes[mCount].change(filter, name);
        std::size_t place = firstPlaceOf(number);
        while (mPlaces[place].load(std::memory_order_relaxed) != 0) {
            place = (place + 1) % PLACES;
        }
        mPlaces[place].store(static_cast<unsigned char>(mCount), std::memory_order_release);
        ++mCount;
        return true;
    }

    void changeAllFiltersLocked(int filter) UTL_REQUIRES(tableLock) {
        for (std::size_t i = 0; i < mCount; ++i) {
            mTypes[i].changeFilter(filter);
        }
    }

    void applyLocked(LogSettings const& settings) UTL_REQUIRES(tableLock) {
        for (std::size_t i = 0; i < mCount; ++i) {
            char name[LOG_NAME_SIZE];
            LogType::State const state = mTypes[i].state();
            mTypes[i].copyName(state, name);
            int const level = settings.levelFor({name, LogType::lengthOf(state)});
            if (level != LogSettings::NO_LEVEL) {
                mTypes[i].changeFilter(level);
            }
        }
    }

private:
    static constexpr std::size_t PLACES = 2 * MAX_LOG_TYPES;

    // Spreads numbers that follow each other, and those that have their low bits in common.
    static std::size_t firstPlaceOf(int number) {
        return (static_cast<std::uint32_t>(number) * 2654435769u) >> 25;
    }

    std::atomic<unsigned char> mPlaces[PLACES] = {};  // an index, or 0
    int mNumbers[MAX_LOG_TYPES] = {};                 // set before an index is published
    LogType mTypes[MAX_LOG_TYPES] = {
        LogType(LEVEL_DETAIL, {""}),         // the fallback
        LogType(LEVEL_DETAIL, {"<UTIL> "}),  // the library's own
    };
    std::size_t mCount UTL_GUARDED_BY(tableLock) = 2;
};

Table table;

LogSettings settings UTL_GUARDED_BY(tableLock);

}  // namespace

unsigned long admitToLog(int type, int level, char* name) {
    LogType const* found = table.find(type);
    if (found == nullptr) {
        found = &table.fallback();
    }
    LogType::State state = found->state();
    if (level == 0 || LogType::filterOf(state) < level) {
        return NONE;
    }
    if (!found->copyName(state, name)) {
        platform::StaticGuard const guard(tableLock);
        state = found->state();
        found->copyName(state, name);
    }
    return LogType::filterOf(state) < level ? NONE : LogType::lengthOf(state);
}

bool hasSetLibraryFilter() {
    return LogType::hasBeenSet(table.library().state());
}

}  // namespace utl

bool registerLogType(int type, char const* name, int level) {
    utl::Name copy = {};
    if (utl::copyStr(copy.text, utl::LOG_NAME_SIZE, name, utl::ALL, utl::WHOLE) == utl::NONE) {
        return false;
    }
    utl::platform::StaticGuard const guard(utl::tableLock);
    int const wanted = utl::settings.levelFor(copy.text);
    int const filter = wanted != utl::LogSettings::NO_LEVEL ? wanted : utl::clampLogLevel(level);
    return utl::table.setLocked(type, filter, copy);
}

bool configureLogFromEnvironment() {
    char const* const text = utl::platform::environmentVariable("UTL_LOG");
    char ignored[utl::LogSettings::MAX_LENGTH + 1] = "";
    if (text != nullptr) {
        utl::platform::StaticGuard const guard(utl::tableLock);
        utl::settings.set(text, ignored);
    }
    bool const isUnderstood = ignored[0] == '\0';
    if (!isUnderstood) {  // before a level that was asked for may drop it
        applog(utl::LIBRARY_LOG, utl::LEVEL_ERROR, "UTL_LOG ignored: %s", ignored);
    }
    utl::platform::StaticGuard const guard(utl::tableLock);
    utl::table.applyLocked(utl::settings);
    return isUnderstood;
}

void setFilterLevel(int type, int level) {
    utl::platform::StaticGuard const guard(utl::tableLock);
    if (utl::LogType* const found = utl::table.find(type)) {
        found->changeFilter(utl::clampLogLevel(level));
    }
}

int getFilterLevel(int type) {
    utl::LogType const* const found = utl::table.find(type);
    return found != nullptr ? utl::LogType::filterOf(found->state()) : utl::NO_FILTER_LEVEL;
}

void setAllFilterLevel(int level) {
    utl::platform::StaticGuard const guard(utl::tableLock);
    utl::table.changeAllFiltersLocked(utl::clampLogLevel(level));
}
