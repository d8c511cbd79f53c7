// Internal. Threads that sleep until somebody changes a word and wakes them.
//
//     std::uint32_t const seen = word.load();
//     while (!isGood(seen)) { waitWord(word, seen, CHANNEL, NO_LIMIT); ... }

#ifndef UTL_PLATFORM_FUTEX_H
#define UTL_PLATFORM_FUTEX_H

#include <atomic>
#include <cstdint>

namespace utl {
namespace platform {

// A moment on the monotonic clock, in nanoseconds; the latest one stands for no limit.
constexpr std::uint64_t NO_LIMIT = UINT64_MAX;

// The moment that lies `timeoutMs` milliseconds ahead; 0 for no limit. False when the clock cannot
// be read.
bool limitAfter(unsigned long timeoutMs, std::uint64_t* limit);

// Blocks until one of the `channels` (bits, not 0) of `word` is woken, unless its value is not
// `expected`. REACHED, perhaps for no reason, TIMED_OUT at `limit`, or WAIT_FAILED.
int waitWord(std::atomic<std::uint32_t> const& word, std::uint32_t expected, std::uint32_t channels,
             std::uint64_t limit);

// Wakes those who wait on one of the `channels` of the word at this address. Does not touch the
// word, which may be gone: whoever saw it change may have destroyed it.
void wakeWord(std::atomic<std::uint32_t> const* word, std::uint32_t channels);

// For what somebody at work is about to give back: without a limit, and never by a clock that is
// moved by hand. Blocks until the word is woken, perhaps for no reason, unless its value is not
// `expected`; wakes one who does, and does not touch the word either.
void sleepOnWord(std::atomic<std::uint32_t> const& word, std::uint32_t expected);
void wakeSleeper(std::atomic<std::uint32_t> const* word);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_FUTEX_H
