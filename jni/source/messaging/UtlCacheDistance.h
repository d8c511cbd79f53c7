// Internal. Stands between two members of which different threads write one, each again and again:
// in one line of the processor's cache they would take it away from each other.

#ifndef UTL_CACHE_DISTANCE_H
#define UTL_CACHE_DISTANCE_H

namespace utl {

struct CacheDistance {
    char bytes[64];
};

}  // namespace utl

#endif  // UTL_CACHE_DISTANCE_H
