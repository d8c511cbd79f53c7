// Raw memory functions that refuse a null pointer instead of crashing. Any thread may call them;
// none of them blocks or allocates.

#ifndef UTL_RAW_MEMORY_H
#define UTL_RAW_MEMORY_H

#include "UtlApi.h"

namespace utl {

// Copies `size` bytes between areas that do not overlap. Copies nothing when either pointer is
// null. Returns `dst`.
UTL_API void* copyMemory(void* dst, void const* src, unsigned long size);

// Copies `size` bytes; the areas may overlap. Copies nothing when either pointer is null.
UTL_API void moveMemory(void* dst, void const* src, unsigned long size);

// Sets `size` bytes to `value`, in this order of arguments. Does nothing when `dst` is null.
UTL_API void fillMemory(void* dst, unsigned long size, unsigned char value);

// Sets `size` bytes to 0. Does nothing when `dst` is null.
UTL_API void zeroMemory(void* dst, unsigned long size);

// True when the `size` bytes are equal, which they are for a size of 0. False when they differ or
// either pointer is null. Says nothing about an order.
UTL_API bool compareMemory(void const* a, void const* b, unsigned long size);

// Sets `count` character units to 0 and returns `count`; NONE, writing nothing, for a null buffer.
// Exists for char.
template <typename CharT>
unsigned long clearStrBuffer(CharT* buffer, unsigned long count);

// The one for char.
template <>
UTL_API unsigned long clearStrBuffer<char>(char* buffer, unsigned long count);

}  // namespace utl

#endif  // UTL_RAW_MEMORY_H
