// Internal. Stands between two members of which different threads write one, each again and again:
// in one line of the processor's cache they would take it away from each other.

#ifndef UTL_CACHE_DISTANCE_H
#define UTL_CACHE_DISTANCE_H

#include <cstddef>

namespace utl {

constexpr std::size_t CACHE_LINE = 64;  // bytes, on the processors that it matters for

struct CacheDistance {
    char bytes[CACHE_LINE];
};

}  // namespace utl

#endif  // UTL_CACHE_DISTANCE_H
