// Internal. An object of static storage that is there before any constructor of a static object
// runs, and that is never destroyed, although its class has a destructor.
//
//     Immortal<Position> invalid;
//     UTL_BEFORE_ALL_CONSTRUCTORS void makeInvalid() { new (invalid.bytes) Position("", 0); }
//
//     Position const& Position::INVALID = reinterpret_cast<Position const&>(invalid.bytes);

#ifndef UTL_IMMORTAL_H
#define UTL_IMMORTAL_H

// For the function that makes one. 101 is the first of the priorities that the toolchain leaves to
// its users.
#define UTL_BEFORE_ALL_CONSTRUCTORS __attribute__((constructor(101)))

namespace utl {

// Only room: the compiler knows no destructor to call at exit.
template <typename T>
struct Immortal {
    alignas(T) unsigned char bytes[sizeof(T)];
};

}  // namespace utl

#endif  // UTL_IMMORTAL_H
