// A map kept as a sorted array of pairs.
//
//     Map<int, Session> sessions(64, 0);
//     sessions.insert(Pair<int, Session>(id, session), 0);
//     if (Session* session = sessions.find(id)) { ... }
//
// Lookups are binary searches. Inserting and erasing move all pairs behind the place, as Array
// does: cheap for the keys at the end, and for maps of thousands of pairs that change elsewhere
// there are better containers. A pointer to a value is good until the map changes. A map is used by
// one thread at a time.

#ifndef UTL_MAP_H
#define UTL_MAP_H

#include <type_traits>

#include "UtlApi.h"
#include "UtlArray.h"

namespace utl {

// A key and its value.
template <typename K, typename V>
class Pair {
public:
    Pair() : mKey(), mValue() {}
    Pair(K const& key, V const& value) : mKey(key), mValue(value) {}
    Pair(Pair const&) = default;
    Pair(Pair&&) = default;
    Pair& operator=(Pair const&) = default;
    Pair& operator=(Pair&&) = default;  // what an Array shifts allocates nothing
    virtual ~Pair() = default;

    K const& key() const { return mKey; }
    V const& value() const { return mValue; }
    V& value() { return mValue; }

private:
    K mKey;
    V mValue;
};

// But for key and value a pair holds what all pairs of its class have in common.
template <typename K, typename V>
struct IsMovedAsBytes<Pair<K, V>>
    : std::integral_constant<bool, std::is_trivially_copyable<K>::value &&
                                       std::is_trivially_copyable<V>::value> {};

// Orders pairs by the key type's own less-than.
template <typename K, typename V>
struct CompareLessPairKey {
    // Whether `a` comes before `b`.
    bool operator()(Pair<K, V> const& a, Pair<K, V> const& b) const { return a.key() < b.key(); }
    bool operator()(Pair<K, V> const& a, K const& b) const { return a.key() < b; }
    bool operator()(K const& a, Pair<K, V> const& b) const { return a < b.key(); }
};

// The index of the first of `count` sorted pairs that holds `key`, or the index at which it would
// be inserted. NONE for null pairs or a negative count.
template <typename K, typename PairT, typename Compare>
[[gnu::always_inline]] inline unsigned long searchPosition(K const& key, PairT const* pairs,
                                                           long count, Compare compare) {
    if (pairs == nullptr || count < 0) {
        return NONE;
    }
    // No branch depends on what a comparison says: no processor can guess wrong. Inline, as the
    // call would be a fifth of the search.
    PairT const* first = pairs;
    unsigned long left = static_cast<unsigned long>(count);
    while (left > 1) {
        unsigned long const half = left / 2;
        PairT const* const middle = first + half;
        first = compare(middle[-1], key) ? middle : first;
        left -= half;
    }
    first += left == 1 && compare(*first, key) ? 1 : 0;
    return static_cast<unsigned long>(first - pairs);
}

// A sorted array of pairs with distinct keys.
template <typename K, typename V, typename KArg = K const&, typename VArg = V const&,
          typename Compare = CompareLessPairKey<K, V>>
class Map {
public:
    // As Array: room for `capacity` pairs, growing when it must in growth mode 1. A map made with
    // capacity 0 takes no pair in either mode.
    Map(unsigned long capacity, int growthMode) : mPairs(capacity, growthMode) {}
    Map(Map const&) = default;
    Map& operator=(Map const&) = delete;
    virtual ~Map() = default;

    unsigned long count() const { return mPairs.count(); }
    unsigned long capacity() const { return mPairs.capacity(); }

    // Pairs in ascending order of their keys. `index` must be below count().
    Pair<K, V>& operator[](unsigned long index) { return mPairs[index]; }
    Pair<K, V> const& operator[](unsigned long index) const { return mPairs[index]; }
    Pair<K, V>& at(unsigned long index) { return mPairs[index]; }
    Pair<K, V> const& at(unsigned long index) const { return mPairs[index]; }

    // Drops the pairs from `count` on. 0 when there are fewer.
    int setCount(unsigned long count) {
        return count <= mPairs.count() ? mPairs.setCount(count) : 0;
    }

    // Puts `pair` in its place. A pair with the same key is replaced, or, with an `overwrite` of 0,
    // stays. 0 when it stayed or the map is full.
    int insert(Pair<K, V> const& pair, int overwrite) {
        unsigned long const position = positionOf(pair.key());
        if (position == NONE) {
            return 0;
        }
        if (holds(position, pair.key())) {
            return overwrite != 0 ? mPairs.setAt(position, pair) : 0;
        }
        return mPairs.insertAt(position, pair);
    }

    // The same with a pair made of the two.
    int insert(KArg key, VArg value, int overwrite) {
        return insert(Pair<K, V>(key, value), overwrite);
    }

    // The value kept under `key`; nullptr when there is none.
    V* find(KArg key) {
        unsigned long const index = getIndexFrom(key);
        return index != NONE ? &mPairs[index].value() : nullptr;
    }
    V const* find(KArg key) const {
        unsigned long const index = getIndexFrom(key);
        return index != NONE ? &mPairs[index].value() : nullptr;
    }

    // The index of the pair with `key`, or NONE.
    unsigned long getIndexFrom(KArg key) const {
        unsigned long const position = positionOf(key);
        return position != NONE && holds(position, key) ? position : NONE;
    }

    // 0 when there is no such pair.
    int eraseKey(KArg key) {
        unsigned long const index = getIndexFrom(key);
        return index != NONE ? mPairs.eraseAt(index, 1) : 0;
    }

private:
    unsigned long positionOf(K const& key) const {
        return searchPosition(key, mPairs.data(), static_cast<long>(mPairs.count()), mCompare);
    }

    // Whether `position`, which is at or past the place of `key`, is the place of a pair with it.
    bool holds(unsigned long position, K const& key) const {
        return position < mPairs.count() && !mCompare(key, mPairs[position]);
    }

    Array<Pair<K, V>, Pair<K, V> const&> mPairs;
    Compare mCompare;
};

}  // namespace utl

#endif  // UTL_MAP_H
