// What a run has done: a table by file, and what else there is to say.

#ifndef TEXTINTAKE_REPORT_H
#define TEXTINTAKE_REPORT_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <string>
#include <system_error>
#include <vector>

#include "Messages.h"
#include "Table.h"
#include "UtlSyncObject.h"

// What the system says of an errno, which the library leaves as the failed call has set it.
inline std::string reasonOf(int error) {
    return error != 0 ? std::generic_category().message(error) : "see the log";
}

// "1,234,567"
inline std::string grouped(unsigned long long number) {
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3; at -= 3) {
        text.insert(at - 3, ",");
    }
    return text;
}

inline std::string duration(unsigned long long milliseconds) {
    return milliseconds < 10000 ? grouped(milliseconds) + " ms"
                                : grouped(milliseconds / 1000) + " s";
}

struct Counts {
    std::uint64_t lines = 0, words = 0, characters = 0;

    void add(Counts const& more) {
        lines += more.lines;
        words += more.words;
        characters += more.characters;
    }
};

// Any thread.
class Report {
public:
    enum Outcome { TAKEN, PASSED_OVER, REFUSED, UNFINISHED };
    struct Row {
        std::string name{};
        Outcome outcome = TAKEN;
        std::string notes{};  // what was wrong
        std::string encoding{};
        Counts counts{};
        unsigned long milliseconds = 0;
    };

    void add(Row const& row) {
        if (!row.notes.empty()) {
            applog(INTAKE_LOG, row.outcome == REFUSED ? LEVEL_ERROR : LEVEL_DETAIL, "%s: %s",
                   Shown(row.name).text().c_str(), row.notes.c_str());
        }
        utl::SyncGuard const guard(mLock);
        ++mFiles[row.outcome];
        if (row.outcome == TAKEN) {
            mTotals.add(row.counts);
        }
        if (mRows.size() < (row.notes.empty() ? MAX_FINE_ROWS : MAX_ROWS)) {
            mRows.push_back(row);
        }
    }

    // Something to be said below the table.
    void remark(std::string const& text) {
        utl::SyncGuard const guard(mLock);
        if (mRemarks.size() < MAX_REMARKS) {
            mRemarks.push_back(text);
        }
    }

    // The run cannot go on; one sentence why. The first one counts.
    void fail(std::string const& sentence) {
        utl::SyncGuard const guard(mLock);
        if (mFailure.empty()) {
            mFailure = sentence;
        }
    }

    // Empty while the run can go on.
    std::string failure() const {
        utl::SyncGuard const guard(mLock);
        return mFailure;
    }

    bool hasRefused() const {
        utl::SyncGuard const guard(mLock);
        return mFiles[REFUSED] != 0;
    }

    // In a line.
    std::string totals() const {
        utl::SyncGuard const guard(mLock);
        return grouped(mFiles[TAKEN]) + (mFiles[TAKEN] == 1 ? " file, " : " files, ") +
               grouped(mTotals.lines) + " lines, " + grouped(mTotals.words) + " words, " +
               grouped(mTotals.characters) + " characters";
    }

    void print(std::FILE* to, unsigned width) {
        utl::SyncGuard const guard(mLock);
        std::stable_sort(mRows.begin(), mRows.end(),
                         [](Row const& a, Row const& b) { return a.name < b.name; });
        Table table({{"file", Table::LEFT},
                     {"encoding", Table::LEFT},
                     {"lines", Table::RIGHT},
                     {"words", Table::RIGHT},
                     {"time", Table::RIGHT},
                     {"what was wrong", Table::LEFT}});
        for (Row const& row : mRows) {
            bool const isRead = !row.encoding.empty();
            table.add({row.name, row.encoding, isRead ? grouped(row.counts.lines) : "",
                       isRead ? grouped(row.counts.words) : "",
                       isRead ? duration(row.milliseconds) : "", row.notes});
        }
        table.print(to, width);
        std::size_t const more =
            std::accumulate(std::begin(mFiles), std::end(mFiles), std::size_t{0}) - mRows.size();
        if (more != 0) {
            std::fprintf(to, "and %s more\n", grouped(more).c_str());
        }
        // A stopwatch of the library takes 49 days; this may run longer.
        auto const elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - mBegin);
        std::fprintf(to, "\n%s in %s.\n", totals().c_str(),
                     duration(static_cast<unsigned long long>(elapsed.count())).c_str());
        for (std::string const& remark : mRemarks) {
            std::fprintf(to, "%s\n", remark.c_str());
        }
    }

private:
    // A run of months has more files than anybody reads; those with something wrong go first.
    static constexpr std::size_t MAX_ROWS = 1000;
    static constexpr std::size_t MAX_FINE_ROWS = 50;
    static constexpr std::size_t MAX_REMARKS = 20;

    utl::SyncObject mLock;
    std::vector<Row> mRows;  // guarded by mLock, with all that follows
    std::size_t mFiles[4] = {};
    Counts mTotals;
    std::vector<std::string> mRemarks;
    std::string mFailure;
    std::chrono::steady_clock::time_point const mBegin = std::chrono::steady_clock::now();
};

#endif  // TEXTINTAKE_REPORT_H
