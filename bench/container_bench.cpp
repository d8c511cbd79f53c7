// The containers and the raw record beside what does only the work: a flat sorted array that is
// searched without a branch, a ring that knows memcpy, a vector, a buffer.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "UtlMap.h"
#include "UtlMsg.h"
#include "UtlQueue.h"
#include "UtlThreadRawMsg.h"

namespace {

using namespace utl;

// Maps.

struct UtlMap {
    explicit UtlMap(unsigned long capacity) : map(capacity, 0) {}
    void insert(int key, int value) { map.insert(key, value, 0); }
    int find(int key) const { return *map.find(key); }
    void clear() { map.setCount(0); }
    Map<int, int> map;
};

struct StdMap {
    explicit StdMap(unsigned long) {}
    void insert(int key, int value) { map.emplace(key, value); }
    int find(int key) const { return map.find(key)->second; }
    void clear() { map.clear(); }
    std::map<int, int> map;
};

class FlatMap {
public:
    explicit FlatMap(unsigned long capacity) { mEntries.reserve(capacity); }

    void insert(int key, int value) {
        Entry const* const place = placeOf(key);
        if (place == mEntries.data() + mEntries.size() || place->key != key) {
            mEntries.insert(mEntries.begin() + (place - mEntries.data()), Entry{key, value});
        }
    }
    int find(int key) const { return placeOf(key)->value; }
    void clear() { mEntries.clear(); }

private:
    struct Entry {
        int key;
        int value;
    };

    Entry const* placeOf(int key) const {
        Entry const* const entries = mEntries.data();
        unsigned long low = 0;
        unsigned long left = mEntries.size();
        while (left > 1) {
            unsigned long const half = left / 2;
            low += entries[low + half - 1].key < key ? half : 0;
            left -= half;
        }
        return entries + low + (left == 1 && entries[low].key < key ? 1 : 0);
    }

    std::vector<Entry> mEntries;
};

std::vector<int> shuffledKeys(unsigned long count) {
    std::vector<int> keys(count);
    std::iota(keys.begin(), keys.end(), 0);
    for (int& key : keys) {
        key *= 7;
    }
    std::shuffle(keys.begin(), keys.end(), std::mt19937(3));
    return keys;
}

template <typename AnyMap>
void find(benchmark::State& state, unsigned long count) {
    std::vector<int> const keys = shuffledKeys(count);
    AnyMap map(count);
    for (int const key : keys) {
        map.insert(key, key + 1);
    }
    for (auto _ : state) {
        for (int const key : keys) {
            int const value = map.find(key);
            if (value != key + 1) {
                state.SkipWithError("a wrong value");
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long>(count));
}

// From none to all of them.
template <typename AnyMap>
void insert(benchmark::State& state, unsigned long count) {
    std::vector<int> const keys = shuffledKeys(count);
    AnyMap map(count);
    for (auto _ : state) {
        map.clear();
        for (int const key : keys) {
            map.insert(key, key + 1);
        }
        if (map.find(keys[0]) != keys[0] + 1) {
            state.SkipWithError("a wrong value");
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long>(count));
}

template <typename AnyMap>
void addMap(char const* contender) {
    for (unsigned long const count : {64ul, 4096ul}) {
        auto const add = [&](char const* row, auto work) {
            std::string const name = std::string("containers/Map ") + row + " " +
                                     std::to_string(count) + "/" + contender;
            benchmark::RegisterBenchmark(name.c_str(), work, count);
        };
        add("find among", find<AnyMap>);
        add("insert up to", insert<AnyMap>);
    }
}

// A queue of bytes: slots go in and out, with some always in it.

constexpr unsigned long SLOT = 68;
constexpr unsigned long SLOTS = 64;

struct UtlQueue {
    bool put(unsigned char const* slot) { return queue.enqueue(slot, SLOT) == 1; }
    bool take(unsigned char* slot) { return queue.dequeue(slot, SLOT) == 1; }
    Queue<unsigned char> queue{SLOTS * SLOT};
};

struct Ring {
    bool put(unsigned char const* slot) {
        if (count == SLOTS) {
            return false;
        }
        std::memcpy(&bytes[end * SLOT], slot, SLOT);
        end = end + 1 == SLOTS ? 0 : end + 1;
        ++count;
        return true;
    }
    bool take(unsigned char* slot) {
        if (count == 0) {
            return false;
        }
        std::memcpy(slot, &bytes[front * SLOT], SLOT);
        front = front + 1 == SLOTS ? 0 : front + 1;
        --count;
        return true;
    }
    std::vector<unsigned char> bytes = std::vector<unsigned char>(SLOTS * SLOT);
    unsigned long front = 0;
    unsigned long end = 0;
    unsigned long count = 0;
};

template <typename AnyQueue>
void passSlots(benchmark::State& state) {
    constexpr unsigned long DIFFERENT = 16;  // made before: no byte is written and read again soon
    AnyQueue queue;
    unsigned char in[DIFFERENT][SLOT];
    unsigned char out[SLOT] = {};
    for (unsigned long i = 0; i < DIFFERENT; ++i) {
        std::fill(in[i], in[i] + SLOT, static_cast<unsigned char>(i));
    }
    for (unsigned long i = 0; i < SLOTS / 2; ++i) {
        queue.put(in[i % DIFFERENT]);
    }
    unsigned long last = 0;
    for (auto _ : state) {
        last = (last + 1) % DIFFERENT;
        if (!queue.put(in[last]) || !queue.take(out)) {
            state.SkipWithError("full or empty");
        }
        benchmark::DoNotOptimize(out);
    }
    if (state.iterations() > static_cast<long>(SLOTS) && out[SLOT - 1] != last) {
        state.SkipWithError("another slot");
    }
    state.SetItemsProcessed(state.iterations());
}

// A record of eight fields, written and read again.

struct Reading {
    int number = 1;
    bool isLast = true;
    unsigned short port = 0x1234;
    long long time = 0x123456789ABCDEF;
    double value = 2.5;
    unsigned int flags = 0x80000001;
    char name[16] = "a name";
    unsigned char address[8] = {1, 2, 3, 4, 5, 6, 7, 8};

    bool operator==(Reading const& other) const {
        return number == other.number && isLast == other.isLast && port == other.port &&
               time == other.time && value == other.value && flags == other.flags &&
               std::strcmp(name, other.name) == 0 &&
               std::memcmp(address, other.address, sizeof address) == 0;
    }
};

constexpr unsigned long RECORD = 64;

// As a message does it, which knows its broker only by what brokers have in common.

[[gnu::noinline]] bool store(MsgDataBroker* broker, Reading const& reading) {
    broker->setMsgId(0x8001);
    broker->beginInput();
    broker->set(reading.number);
    broker->set(reading.isLast);
    broker->set(reading.port);
    broker->set(reading.time);
    broker->set(reading.value);
    broker->set(reading.flags);
    broker->set(reading.name);
    broker->set(reading.address, sizeof reading.address);
    broker->endInput();
    return broker->getResult() == 0;
}

[[gnu::noinline]] bool restore(MsgDataBroker& broker, Reading* reading) {
    long id = 0;
    broker.getMsgId(&id);
    broker.beginOutput();
    broker.get(&reading->number);
    broker.get(&reading->isLast);
    broker.get(&reading->port);
    broker.get(&reading->time);
    broker.get(&reading->value);
    broker.get(&reading->flags);
    broker.get(reading->name, sizeof reading->name);
    broker.get(reading->address, sizeof reading->address);
    broker.endOutput();
    return broker.getResult() == 0;
}

class RawRecord {
public:
    bool pass(Reading const& from, Reading* to) {
        return store(&mRecord, from) && restore(mRecord, to);
    }

private:
    ThreadRawMsg mRecord{RECORD};
};

// The same fields through `Bytes`, which has put() and take().
template <typename Bytes>
class PackedRecord {
public:
    bool pass(Reading const& from, Reading* to) { return store(from) && restore(to); }

private:
    [[gnu::noinline]] bool store(Reading const& from) {
        mBytes.clear();
        return put(0x8001) && put(from.number) && put(from.isLast) && put(from.port) &&
               put(from.time) && put(from.value) && put(from.flags) &&
               mBytes.put(from.name, std::strlen(from.name) + 1) &&
               mBytes.put(from.address, sizeof from.address);
    }
    [[gnu::noinline]] bool restore(Reading* to) {
        int id = 0;
        return take(&id) && take(&to->number) && take(&to->isLast) && take(&to->port) &&
               take(&to->time) && take(&to->value) && take(&to->flags) &&
               mBytes.take(to->name, mBytes.textSize(sizeof to->name)) &&
               mBytes.take(to->address, sizeof to->address);
    }
    template <typename T>
    bool put(T const& value) {
        return mBytes.put(&value, sizeof value);
    }
    template <typename T>
    bool take(T* value) {
        return mBytes.take(value, sizeof *value);
    }

    Bytes mBytes;
};

struct VectorBytes {
    void clear() {
        bytes.clear();
        at = 0;
    }
    bool put(void const* value, unsigned long size) {
        unsigned long const end = bytes.size();
        bytes.resize(end + size);
        std::memcpy(&bytes[end], value, size);
        return true;
    }
    bool take(void* value, unsigned long size) {
        if (size == 0 || size > bytes.size() - at) {
            return false;
        }
        std::memcpy(value, &bytes[at], size);
        at += size;
        return true;
    }
    unsigned long textSize(unsigned long limit) const {
        return strnlen(reinterpret_cast<char const*>(&bytes[at]),
                       std::min(limit, bytes.size() - at)) +
               1;
    }
    std::vector<unsigned char> bytes;
    unsigned long at = 0;
};

struct FixedBytes {
    void clear() { end = at = 0; }
    bool put(void const* value, unsigned long size) {
        if (size > sizeof bytes - end) {
            return false;
        }
        std::memcpy(bytes + end, value, size);
        end += size;
        return true;
    }
    bool take(void* value, unsigned long size) {
        if (size > end - at) {
            return false;
        }
        std::memcpy(value, bytes + at, size);
        at += size;
        return true;
    }
    unsigned long textSize(unsigned long limit) const {
        return strnlen(reinterpret_cast<char const*>(bytes + at), std::min(limit, end - at)) + 1;
    }
    unsigned char bytes[RECORD];
    unsigned long end = 0;
    unsigned long at = 0;
};

template <typename Record>
void passReadings(benchmark::State& state) {
    Record record;
    Reading from;
    Reading to;
    for (auto _ : state) {
        benchmark::DoNotOptimize(from);
        if (!record.pass(from, &to)) {
            state.SkipWithError("not passed");
        }
        benchmark::DoNotOptimize(to);
    }
    if (!(from == to)) {
        state.SkipWithError("another reading");
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    addMap<UtlMap>("utl");
    addMap<StdMap>("std::map");
    addMap<FlatMap>("limit");
    auto const add = [](char const* name, auto work) { benchmark::RegisterBenchmark(name, work); };
    add("containers/Queue of bytes, a slot in and out/utl", passSlots<UtlQueue>);
    add("containers/Queue of bytes, a slot in and out/limit", passSlots<Ring>);
    add("containers/raw message, 8 fields/utl", passReadings<RawRecord>);
    add("containers/raw message, 8 fields/vector", passReadings<PackedRecord<VectorBytes>>);
    add("containers/raw message, 8 fields/fixed buffer", passReadings<PackedRecord<FixedBytes>>);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
