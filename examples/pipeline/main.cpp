// A pipeline: main() reads lines and posts them to a loop that cuts them into words, which go as
// messages to a loop that counts them. Shows post(), call() and StructMsg, how a sender waits for
// those who are slower, and how nothing is lost in the end.
//
//     pipeline <README.md     prints the ten words that it has most often

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Utl.h"

namespace {

constexpr unsigned long PLACES = 64;
constexpr unsigned long QUEUE_LENGTH = PLACES + 1;  // a task is in its place until it has returned
constexpr unsigned long LINES_A_REPORT = 10000;

// A word, as its bytes travel; what is longer is cut.
struct Word {
    char text[32];
};
using WordMsg = utl::StructMsg<0x8400, Word>;

// The places in a queue, which would refuse what finds none. Who sends takes one, and waits for it;
// who has done the work gives it back.
class Places {
public:
    void take() {
        while (!tryTake()) {
            mHasFree.waitToOn(0);
        }
    }

    void giveBack() {
        utl::SyncGuard const guard(mLock);
        ++mFree;
        mHasFree.setOn();
    }

private:
    bool tryTake() {
        utl::SyncGuard const guard(mLock);
        if (mFree == 0) {
            mHasFree.setOff();
            return false;
        }
        --mFree;
        return true;
    }

    utl::SyncObject mLock;
    unsigned long mFree = PLACES;  // guarded by mLock
    utl::Event mHasFree{1, 0};
};

// Counts words, on a loop of its own.
class Counter {
public:
    Counter() {
        mHandlers.on<WordMsg>([this](Word const& word) {
            ++mCounts[word.text];
            ++mTotal;
            mPlaces.giveBack();
        });
        utl::LoopOptions options;
        options.name = "counter";
        options.listener = &mHandlers;
        options.maxMsgCount = QUEUE_LENGTH;
        options.maxMsgSize = WordMsg::SIZE;
        mLoop = utl::Loop::make(options);
    }

    bool isRunning() const { return mLoop != nullptr; }

    // Blocks while there is no place.
    bool add(Word const& word) {
        mPlaces.take();
        return mLoop->postMsg(WordMsg(word)) != 0;
    }

    // So far: a call overtakes what is queued.
    unsigned long total() {
        return mLoop->call([this] { return mTotal; }).value_or(0);
    }

    // Counts what is queued, and ends. False when something is missing.
    bool finish() { return mLoop->stop(utl::Rest::RUN).dropped == 0; }

    // When it has ended: nobody else uses them any more.
    std::map<std::string, unsigned long> const& counts() const { return mCounts; }

private:
    utl::MsgHandlers mHandlers;
    Places mPlaces;
    std::map<std::string, unsigned long> mCounts;  // the loop's, like mTotal
    unsigned long mTotal = 0;
    std::unique_ptr<utl::Loop> mLoop;  // the last: it ends before what its tasks use
};

// Cuts lines into words, on a loop of its own, and hands them on.
class Splitter {
public:
    explicit Splitter(Counter& counter) : mCounter(counter) {
        utl::LoopOptions options;
        options.name = "splitter";
        options.maxTaskCount = QUEUE_LENGTH;
        mLoop = utl::Loop::make(options);
    }

    bool isRunning() const { return mLoop != nullptr; }

    // Blocks while there is no place.
    bool add(std::string line) {
        mPlaces.take();
        return mLoop->post([this, line = std::move(line)] {
            mIsComplete = split(line) && mIsComplete;
            mPlaces.giveBack();
        });
    }

    // Hands on what is queued, and ends. False when something is missing.
    bool finish() { return mLoop->stop(utl::Rest::RUN).dropped == 0 && mIsComplete; }

private:
    static bool isLetter(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

    bool split(std::string const& line) {
        auto const end = line.end();
        auto begin = std::find_if(line.begin(), end, isLetter);
        while (begin != end) {
            auto const behind = std::find_if_not(begin, end, isLetter);
            Word word = {};
            utl::copyStr(word.text, sizeof word.text, std::string(begin, behind), utl::TRUNCATE);
            if (!mCounter.add(word)) {
                return false;
            }
            begin = std::find_if(behind, end, isLetter);
        }
        return true;
    }

    Counter& mCounter;
    Places mPlaces;
    bool mIsComplete = true;           // the loop's, while it runs
    std::unique_ptr<utl::Loop> mLoop;  // the last: it ends before what its tasks use
};

// The ten most frequent words, and those that are as frequent by the alphabet.
void print(std::map<std::string, unsigned long> const& counts) {
    std::vector<std::pair<std::string, unsigned long>> words(counts.begin(), counts.end());
    std::stable_sort(words.begin(), words.end(),
                     [](auto const& a, auto const& b) { return a.second > b.second; });
    words.resize(std::min<std::size_t>(words.size(), 10));
    for (auto const& [word, count] : words) {
        std::printf("%8lu %s\n", count, word.c_str());
    }
}

}  // namespace

int main() {
    Counter counter;
    Splitter splitter(counter);
    if (!counter.isRunning() || !splitter.isRunning()) {
        return 1;  // the log tells why
    }

    bool isComplete = true;
    unsigned long lines = 0;
    for (std::string line; isComplete && std::getline(std::cin, line);) {
        isComplete = splitter.add(std::move(line));
        if (++lines % LINES_A_REPORT == 0) {
            std::fprintf(stderr, "%lu words so far\n", counter.total());
        }
    }

    // From the first to the last, so that each hands on all that it has.
    isComplete = splitter.finish() && isComplete;
    isComplete = counter.finish() && isComplete;
    print(counter.counts());
    return isComplete ? 0 : 1;
}
