// A table as a terminal shows it.

#ifndef TEXTINTAKE_TABLE_H
#define TEXTINTAKE_TABLE_H

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <vector>

// A text, character by character, with the columns that each takes: Japanese ones two, accents
// that are characters of their own none. What cannot be shown becomes a question mark. In the
// encoding of the process's locale.
class Shown {
public:
    Shown(std::string const& text) {
        std::mbstate_t state{};
        for (std::size_t at = 0, bytes; at < text.size(); at += bytes) {
            wchar_t character = L'\0';
            bytes = std::mbrtowc(&character, &text[at], text.size() - at, &state);
            bool const isCharacter = bytes != 0 && bytes <= text.size() - at;
            int const columns = isCharacter ? wcwidth(character) : -1;
            bytes = isCharacter ? bytes : 1;
            state = {};
            append(columns < 0 ? "?" : text.substr(at, bytes),
                   static_cast<unsigned>(std::abs(columns)));
        }
    }

    unsigned width() const { return mWidth; }

    std::string text() const {
        std::string text;
        for (Glyph const& glyph : mGlyphs) {
            text += glyph.text;
        }
        return text;
    }

    // Takes characters out of the middle until it is at most `columns` wide.
    void shorten(unsigned columns) {
        if (mWidth <= columns) {
            return;
        }
        while (mWidth >= columns) {
            auto const middle = mGlyphs.begin() + static_cast<long>(mGlyphs.size() / 2);
            mWidth -= middle->columns;
            mGlyphs.erase(middle);
        }
        mGlyphs.insert(mGlyphs.begin() + static_cast<long>((mGlyphs.size() + 1) / 2), {"…", 1});
        ++mWidth;
    }

private:
    struct Glyph {
        std::string text;
        unsigned columns;
    };

    void append(std::string const& text, unsigned columns) {
        mGlyphs.push_back({text, columns});
        mWidth += columns;
    }

    std::vector<Glyph> mGlyphs;
    unsigned mWidth = 0;
};

class Table {
public:
    enum Alignment { LEFT, RIGHT };
    struct Column {
        std::string title;
        Alignment alignment;
    };

    // The first column is shortened and the last one broken into lines where that is needed.
    explicit Table(std::vector<Column> const& columns) : mColumns(columns) {
        std::vector<std::string> titles;
        for (Column const& column : columns) {
            titles.push_back(column.title);
        }
        add(titles);
    }

    // A cell for each column.
    void add(std::vector<std::string> const& row) { mRows.emplace_back(row.begin(), row.end()); }

    // The columns of a terminal, or what the environment says, or 80.
    static unsigned terminalWidth() {
        winsize size{};
        char const* const variable = std::getenv("COLUMNS");
        int const columns = variable != nullptr ? std::atoi(variable) : 0;
        bool const isTerminal = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
        return isTerminal ? size.ws_col : columns > 0 ? static_cast<unsigned>(columns) : 80;
    }

    void print(std::FILE* to, unsigned width) const {
        std::vector<unsigned> const widths = fit(width);
        for (auto const& row : mRows) {
            printRow(to, row, widths);
            if (&row == &mRows.front()) {
                std::vector<Shown> rules;
                for (unsigned columns : widths) {
                    rules.emplace_back(std::string(columns, '-'));
                }
                printRow(to, rules, widths);
            }
        }
    }

private:
    static constexpr unsigned GAP = 2;
    static constexpr unsigned MIN_FIRST = 12;
    static constexpr unsigned MIN_LAST = 24;

    // The widths of the columns in a table of `width`.
    std::vector<unsigned> fit(unsigned width) const {
        std::vector<unsigned> widths(mColumns.size());
        unsigned sum = GAP * static_cast<unsigned>(mColumns.size() - 1);
        for (std::size_t i = 0; i < widths.size(); ++i) {
            for (auto const& row : mRows) {
                widths[i] = std::max(widths[i], row[i].width());
            }
            sum += widths[i];
        }
        unsigned const others = sum - widths.front() - widths.back();
        unsigned const rest = width > others ? width - others : 0;
        if (sum > width) {
            unsigned const last = std::min(widths.back(), std::max(width / 3, MIN_LAST));
            widths.front() = std::min(widths.front(), std::max(rest, MIN_FIRST + last) - last);
            widths.back() = std::max(rest, widths.front() + last) - widths.front();
        }
        return widths;
    }

    void printRow(std::FILE* to, std::vector<Shown> const& row,
                  std::vector<unsigned> const& widths) const {
        std::string line;
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            Shown cell = row[i];
            cell.shorten(widths[i]);
            std::string const blanks(widths[i] - cell.width(), ' ');
            line += mColumns[i].alignment == LEFT ? cell.text() + blanks : blanks + cell.text();
            line += std::string(GAP, ' ');
        }
        std::string const indent(Shown(line).width(), ' ');
        for (std::string const& piece : wrap(row.back().text(), widths.back())) {
            line += piece;
            std::fprintf(to, "%s\n", line.substr(0, line.find_last_not_of(' ') + 1).c_str());
            line = indent;
        }
    }

    // Breaks a text between its words.
    static std::vector<std::string> wrap(std::string const& text, unsigned columns) {
        std::vector<std::string> lines(1);
        unsigned used = 0;
        for (std::size_t at = 0; at < text.size();) {
            std::size_t const end = std::min(text.find(' ', at), text.size());
            std::string const word = text.substr(at, end - at);
            unsigned const width = Shown(word).width();
            if (used != 0 && used + 1 + width > columns) {
                lines.emplace_back();
                used = 0;
            }
            lines.back() += (used != 0 ? " " : "") + word;
            used += (used != 0 ? 1 : 0) + width;
            at = end + 1;
        }
        return lines;
    }

    std::vector<Column> const mColumns;
    std::vector<std::vector<Shown>> mRows;  // the titles first
};

#endif  // TEXTINTAKE_TABLE_H
