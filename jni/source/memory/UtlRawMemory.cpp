#include "UtlRawMemory.h"

#include <cstring>

namespace utl {

void* copyMemory(void* dst, void const* src, unsigned long size) {
    if (dst != nullptr && src != nullptr) {
        std::memcpy(dst, src, size);
    }
    return dst;
}

void moveMemory(void* dst, void const* src, unsigned long size) {
    if (dst != nullptr && src != nullptr) {
        std::memmove(dst, src, size);
    }
}

void fillMemory(void* dst, unsigned long size, unsigned char value) {
    if (dst != nullptr) {
        std::memset(dst, value, size);
    }
}

void zeroMemory(void* dst, unsigned long size) {
    fillMemory(dst, size, 0);
}

bool compareMemory(void const* a, void const* b, unsigned long size) {
    return a != nullptr && b != nullptr && std::memcmp(a, b, size) == 0;
}

template <>
unsigned long clearStrBuffer<char>(char* buffer, unsigned long count) {
    if (buffer == nullptr) {
        return NONE;
    }
    zeroMemory(buffer, count);
    return count;
}

}  // namespace utl
