// What textintake was asked to do.

#ifndef TEXTINTAKE_OPTIONS_H
#define TEXTINTAKE_OPTIONS_H

#include <string>

struct Options {
    static constexpr char HELP[] =
        R"(usage: textintake [--in DIR --out DIR] [--for SECONDS] [--stall]

  --in DIR       takes in the text files that come into DIR, until Ctrl-C is hit. Without it, takes
                 in copies of its samples, and ends
  --out DIR      puts there NAME.txt, normalised and in UTF-8, NAME.idx, an index of its lines, and
                 into DIR/archive the file itself. A name that is taken gets a number: NAME.2
  --for SECONDS  ends after that time, 1 to 4000000
  --stall        lets a thread hang for a while, for the watchdog to see
  --help         shows this

A file is taken when it is the same at two looks, a tenth of a second apart, and nobody holds the
library's lock on it (flock). Who writes with longer pauses and without a lock writes under a name
that begins with a dot, which is left alone, and renames the file in the end. One that changes
while it is read is taken again. Directories, links, FIFOs and devices are passed over.
The encoding is what a byte order mark says, or else the extension (.sjis, .utf16be, .utf16le),
or else UTF-8.
Exit code: 0; 1 when a file could not be taken in or the run could not go on; 2 for bad arguments.
)";

    // Empty, or a sentence about what is wrong.
    std::string parse(int argc, char** argv) {
        for (int i = 1; i < argc; ++i) {
            std::string const name = argv[i];
            if (name == "--stall" || name == "--help") {
                (name == "--stall" ? stalls : asksForHelp) = true;
                continue;
            }
            if (name != "--in" && name != "--out" && name != "--for") {
                return "there is no " + name + "; --help shows what there is";
            }
            std::string const value = ++i < argc ? argv[i] : "";
            if (value.empty()) {
                return name +
                       (name == "--for" ? " needs a number of seconds" : " needs a directory");
            }
            if (name != "--for") {
                (name == "--in" ? in : out) = tidy(value);
            } else if (!parseSeconds(value)) {
                return "--for " + value + ": not a number of seconds from 1 to 4000000";
            }
        }
        return !in.empty() && out.empty() ? "--in needs --out, where the files are moved to" : "";
    }

    // The library takes no path with doubled separators, and adds its own.
    static std::string tidy(std::string const& path) {
        std::string tidied;
        for (char const c : path) {
            if (c != '/' || tidied.empty() || tidied.back() != '/') {
                tidied += c;
            }
        }
        if (tidied.size() > 1 && tidied.back() == '/') {
            tidied.pop_back();
        }
        return tidied;
    }

    std::string in, out;
    unsigned long seconds = 0;  // 0 for no limit
    bool stalls = false;
    bool asksForHelp = false;

private:
    bool parseSeconds(std::string const& value) {
        bool const isNumber = value.find_first_not_of("0123456789") == value.npos;
        seconds = isNumber && value.size() <= 7 ? std::stoul(value) : 0;
        return seconds >= 1 && seconds <= MAX_SECONDS;
    }

    static constexpr unsigned long MAX_SECONDS = 4000000;  // in milliseconds they take 32 bits
};

#endif  // TEXTINTAKE_OPTIONS_H
