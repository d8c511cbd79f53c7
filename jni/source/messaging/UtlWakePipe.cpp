#include "messaging/UtlWakePipe.h"

#include <errno.h>

#include <cstddef>

#include "platform/UtlFileSystem.h"

namespace utl {

namespace {

constexpr ssize_t WORD_SIZE = sizeof(WakePipe::Word);

// More than are ever there at the same time, but after a storm of wake-ups.
constexpr std::size_t WORDS_AT_ONCE = 16;

}  // namespace

WakePipe::WakePipe() {
    platform::openPipe(&mEnds);
}

void WakePipe::close() {
    if (isOpen()) {
        platform::closeFile(mEnds.read);
        platform::closeFile(mEnds.write);
        mEnds = {};
    }
}

void WakePipe::reopen() {
    close();
    platform::openPipe(&mEnds);
}

ssize_t WakePipe::wake(Word const& word) {
    ssize_t const written = platform::writePipe(mEnds.write, &word, sizeof word);
    return written == -1 && errno == EAGAIN ? WORD_SIZE : written;
}

ssize_t WakePipe::read() {
    Word words[WORDS_AT_ONCE];
    errno = 0;
    ssize_t const got = platform::readPipe(mEnds.read, words, sizeof words);
    return got > 0 && got % WORD_SIZE == 0 ? WORD_SIZE : got;
}

}  // namespace utl
