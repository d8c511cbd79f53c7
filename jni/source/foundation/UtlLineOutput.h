// Internal. Where a table goes, line by line: to the log as messages of the library, or into a
// caller's buffer, where a line feed ends each.
//
//     LineOutput output(level);
//     output.print("%10d, %-32s, ", id, name);

#ifndef UTL_LINE_OUTPUT_H
#define UTL_LINE_OUTPUT_H

#include "UtlApi.h"

#include "foundation/UtlBoundedText.h"

namespace utl {

// Used by one thread at a time. Allocates nothing and leaves errno as it is.
class LineOutput {
public:
    // To the log at `level`.
    explicit LineOutput(int level) : mLevel(level) {}

    // Into `text`, which must live longer.
    explicit LineOutput(BoundedText& text) : mText(&text) {}

    // A line of up to 1022 bytes; a longer one is cut.
    void print(char const* format, ...) UTL_PRINTF_FORMAT(2, 3);

private:
    int const mLevel = 0;
    BoundedText* const mText = nullptr;
};

// What `print`, called with an output, puts into the buffer. Returns what all of it needs.
template <typename Print>
unsigned long printInto(char* dst, unsigned long size, Print print) {
    BoundedText text(dst, size);
    LineOutput output(text);
    print(output);
    return text.needed();
}

}  // namespace utl

#endif  // UTL_LINE_OUTPUT_H
