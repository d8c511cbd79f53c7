// A buffer between two fences that tell when something was written outside it.

#ifndef UTL_TESTS_SUPPORT_FENCED_BUFFER_H
#define UTL_TESTS_SUPPORT_FENCED_BUFFER_H

#include <string>

namespace test {

class FencedBuffer {
public:
    // `size` bytes: a filling without a terminator, or `text` with its own in front of that.
    explicit FencedBuffer(unsigned long size) : FencedBuffer(size, {}, 0) {}
    FencedBuffer(unsigned long size, std::string const& text)
        : FencedBuffer(size, text, text.size() + 1) {}

    char* data() { return &mBytes[FENCE]; }

    bool fencesIntact() const {
        return mBytes.compare(0, FENCE, fence()) == 0 &&
               mBytes.compare(FENCE + mSize, FENCE, fence()) == 0;
    }

    // Whether the buffer itself is as it was made.
    bool isUntouched() const { return mBytes.compare(FENCE, mSize, mText) == 0; }

private:
    FencedBuffer(unsigned long size, std::string text, unsigned long used) : mSize(size) {
        text.resize(used);
        text.resize(size, FILLING);
        mText = text;
        mBytes = fence() + text + fence();
    }

    static constexpr unsigned long FENCE = 16;
    static constexpr char FILLING = '#';

    static std::string fence() { return std::string(FENCE, '\x5A'); }

    std::string mText;
    std::string mBytes;
    unsigned long mSize;
};

}  // namespace test

#endif  // UTL_TESTS_SUPPORT_FENCED_BUFFER_H
