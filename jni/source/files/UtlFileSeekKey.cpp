#include "UtlFile.h"

#include <algorithm>
#include <cstring>

#include "UtlString.h"

#include "files/UtlReadAhead.h"

namespace utl {

namespace {

constexpr unsigned long long FAILED = static_cast<unsigned long long>(-1);
constexpr int BEHIND_KEY = 1;

// Looks for a key in bytes that come block by block.
class KeySearch {
public:
    KeySearch(unsigned char const* key, unsigned long length) : mKey(key), mLength(length) {}

    // Takes the next bytes, or those up to the end of the key. The index behind it; NONE when it
    // does not end here.
    unsigned long take(unsigned char const* bytes, unsigned long size) {
        unsigned char const* const end = bytes + size;
        for (unsigned char const* at = bytes; at != end;) {
            if (mMatched == 0) {
                unsigned long const left = static_cast<unsigned long>(end - at);
                at = static_cast<unsigned char const*>(std::memchr(at, mKey[0], left));
                if (at == nullptr) {
                    return NONE;
                }
            }
            // Deliberate: the byte that breaks a match is not tried as the start of the next one.
            // Keys were chosen for that, and what they passed over must stay passed over.
            mMatched = *at++ == mKey[mMatched] ? mMatched + 1 : 0;
            if (mMatched == mLength) {
                return static_cast<unsigned long>(at - bytes);
            }
        }
        return NONE;
    }

private:
    unsigned char const* const mKey;
    unsigned long const mLength;
    unsigned long mMatched = 0;  // the bytes of the key that were found so far
};

// The position behind the key in the next `range` bytes of the file, whose own stays where it is.
unsigned long long findBehind(File const& file, KeySearch search, unsigned long long range) {
    long long const available = file.availableSize();
    if (available == -1) {
        return FAILED;
    }
    unsigned long long const limit = std::min(range, static_cast<unsigned long long>(available));
    ReadAhead ahead(file, file.position(), static_cast<long long>(limit));
    while (ahead.readBlock()) {
        unsigned long const index = search.take(ahead.block(), ahead.size());
        if (index != NONE) {
            return static_cast<unsigned long long>(ahead.position()) + index;
        }
    }
    return ahead.hasFailed() ? FAILED : File::NOT_FOUND;
}

}  // namespace

unsigned long long File::seekKey(unsigned char const* key, unsigned long keyLength,
                                 unsigned long long from, unsigned long long range, int mode) {
    long long const before = key != nullptr && keyLength != 0 ? position() : -1;
    if (before == -1) {
        return FAILED;
    }
    if (from != CURRENT && seek(static_cast<long long>(from), FROM_START) == -1) {
        return FAILED;
    }

    unsigned long long const behind = findBehind(*this, KeySearch(key, keyLength), range);
    if (behind == FAILED || behind == NOT_FOUND) {
        seek(before, FROM_START);
        return behind;
    }
    unsigned long long const found = mode == BEHIND_KEY ? behind : behind - keyLength;
    return static_cast<unsigned long long>(seek(static_cast<long long>(found), FROM_START));
}

unsigned long long File::seekKey(char const* key, unsigned long long from, unsigned long long range,
                                 int mode) {
    return seekKey(reinterpret_cast<unsigned char const*>(key), t_strlen(key), from, range, mode);
}

}  // namespace utl
