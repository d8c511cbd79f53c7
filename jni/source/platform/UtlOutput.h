// Internal. Output that nobody may read: whatever a descriptor is at the moment of a call (a pipe,
// a socket, a terminal, a file, nothing), a write waits for no reader and raises no signal. It
// stays as it is: its flags belong to other processes too.

#ifndef UTL_PLATFORM_OUTPUT_H
#define UTL_PLATFORM_OUTPUT_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace utl {
namespace platform {

// Writes what there is room for. The bytes written, or -1 with errno; EAGAIN when there is none.
// What a pipe takes, up to 4096 bytes, it takes as a whole.
ssize_t writeAtOnce(int descriptor, char const* text, std::size_t size);

// Blocks until there may be room, for `milliseconds` at the most. False when there is still none.
bool awaitRoom(int descriptor, std::uint32_t milliseconds);

}  // namespace platform
}  // namespace utl

#endif  // UTL_PLATFORM_OUTPUT_H
