// Internal. A sorted map in place, for what must exist before any constructor has run and may be
// used while the process exits: it is constant-initialised and never destroyed.

#ifndef UTL_FIXED_MAP_H
#define UTL_FIXED_MAP_H

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <type_traits>

namespace utl {

template <typename K, typename V, std::size_t CAPACITY>
class FixedMap {
public:
    struct Entry {
        K key;
        V value;
    };

    constexpr FixedMap() = default;

    // `entries` in ascending order of their keys.
    constexpr FixedMap(std::initializer_list<Entry> entries) {
        for (Entry const& entry : entries) {
            mEntries[mCount++] = entry;
        }
    }

    Entry* begin() { return mEntries; }
    Entry* end() { return mEntries + mCount; }

    // nullptr when there is no such key.
    V* find(K const& key) {
        Entry* const place = placeOf(key);
        return place != end() && place->key == key ? &place->value : nullptr;
    }

    // Puts `value` under `key`, in place of what is there. The stored value; nullptr when full.
    V* insert(K const& key, V const& value) {
        Entry* const place = placeOf(key);
        if (place == end() || place->key != key) {
            if (mCount == CAPACITY) {
                return nullptr;
            }
            std::copy_backward(place, end(), end() + 1);
            ++mCount;
            place->key = key;
        }
        place->value = value;
        return &place->value;
    }

    void erase(K const& key) {
        Entry* const place = placeOf(key);
        if (place != end() && place->key == key) {
            std::copy(place + 1, end(), place);
            --mCount;
        }
    }

private:
    static_assert(std::is_trivially_destructible<V>::value, "it is never destroyed");

    Entry* placeOf(K const& key) {
        return std::lower_bound(begin(), end(), key,
                                [](Entry const& entry, K const& k) { return entry.key < k; });
    }

    Entry mEntries[CAPACITY] = {};
    std::size_t mCount = 0;
};

}  // namespace utl

#endif  // UTL_FIXED_MAP_H
