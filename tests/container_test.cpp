#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <deque>
#include <memory>
#include <random>
#include <vector>

#include "UtlArray.h"
#include "UtlMap.h"
#include "UtlQueue.h"
#include "UtlRawMemory.h"
#include "UtlRingArray.h"

namespace utl {
namespace {

// Elements that count the slots which hold one.
class ContainerTest : public ::testing::Test {
protected:
    using Handle = std::shared_ptr<int const>;

    unsigned below(unsigned long n) { return static_cast<unsigned>(mRandom() % n); }
    Handle anyHandle() { return Handle(mToken, &mToken.get()[below(100)]); }
    int const* middle() const { return &mToken.get()[50]; }
    unsigned handles() const { return static_cast<unsigned>(mToken.use_count() - 1); }

private:
    std::shared_ptr<int> const mToken{new int[100](), std::default_delete<int[]>()};
    std::mt19937 mRandom{31};
};

class ArrayTest : public ContainerTest, public ::testing::WithParamInterface<int> {};

TEST_P(ArrayTest, DoesWhatAPlainOneDoes) {
    bool const grows = GetParam() == Array<Handle>::GROWS;
    Array<Handle> array(5, GetParam());
    unsigned long capacity = 5;
    std::vector<Handle> plain;
    for (int step = 0; step < 20000; ++step) {
        unsigned long const size = plain.size();
        unsigned const index = below(size + 2);
        unsigned const n = below(9);
        switch (below(6)) {
            case 0: {
                unsigned const own = below(size + 1);  // mostly an element of its own
                Handle const other = anyHandle();
                Handle const value = own < size ? plain[own] : other;
                bool const fits = index <= size && (grows || size < capacity);
                ASSERT_EQ(fits, array.insertAt(index, own < size ? array[own] : other) == 1);
                if (fits) {
                    plain.insert(plain.begin() + index, value);
                    capacity = std::max<unsigned long>(capacity, plain.size());
                }
                break;
            }
            case 1:
                ASSERT_EQ(index < size, array.eraseAt(index, n < 8 ? n : ULONG_MAX) == 1);
                for (unsigned erased = 0; erased < n && index < plain.size(); ++erased) {
                    plain.erase(plain.begin() + index);
                }
                break;
            case 2:
                ASSERT_EQ(1, array.resizeMax(n));
                capacity = n;
                plain.resize(std::min<unsigned long>(size, n));
                break;
            case 3: {
                Handle const value = anyHandle();
                ASSERT_EQ(index < size, array.setAt(index, value) == 1);
                if (index < size) {
                    plain[index] = value;
                }
                break;
            }
            case 4:
                ASSERT_EQ(1, array.copy(Array<Handle>(array), n));
                plain.resize(std::min<unsigned long>(size, n));
                break;
            default:
                ASSERT_EQ(n <= capacity, array.setCount(n) == 1);
                plain.resize(n <= capacity ? n : size);
        }
        ASSERT_EQ(capacity, array.capacity());
        ASSERT_EQ(plain.size(), array.count());
        for (unsigned long i = 0; i < capacity; ++i) {  // vacated slots hold nothing
            ASSERT_EQ(i < plain.size() ? plain[i] : nullptr, array.data()[i]);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(GrowthModes, ArrayTest, ::testing::Values(0, 1, 2));

// Counted by where the elements lie: time in proportion to what is appended.
TEST(GrowthTest, MovesAllElementsRarelyWhateverTheCapacityTells) {
    constexpr unsigned long COUNT = 100000;
    Array<unsigned long> array(1, Array<unsigned long>::GROWS);
    unsigned moves = 0;
    auto const movesWith = [&](auto change) {
        unsigned long const* const before = array.data();
        EXPECT_EQ(1, change());
        moves += array.data() != before ? 1 : 0;
    };
    for (unsigned long i = 0; i < COUNT; ++i) {
        movesWith([&] { return array.insertAt(i, i); });
        ASSERT_EQ(i + 1, array.capacity());
    }
    for (unsigned long capacity = COUNT; capacity-- > 1;) {
        movesWith([&] { return array.resizeMax(capacity); });
        ASSERT_EQ(capacity, array.count());
    }
    EXPECT_EQ(0u, array[0]);
    EXPECT_GT(100u, moves);
    EXPECT_LT(30u, moves) << "memory is not given back";
}

// A program that has exceptions must not get one from the new expression.
TEST(ContainerLimitTest, MoreThanThereCanBeIsNoMemory) {
    Array<long> array(ULONG_MAX / 4, 0);
    EXPECT_EQ(0u, array.capacity());
    EXPECT_EQ(0, array.resizeMax(ULONG_MAX / 5));
    EXPECT_EQ(0u, RingArray<long>(ULONG_MAX / 4).capacity());
}

using IntPair = Pair<int, int>;

TEST(SearchPositionTest, GivesTheFirstOfAKeyOrItsPlace) {
    CompareLessPairKey<int, int> const less;
    IntPair const pairs[] = {{-3, 0}, {2, 0}, {2, 1}, {2, 2}, {2, 3}, {9, 0}};
    unsigned long const places[] = {0, 0, 1, 1, 1, 1, 1, 5, 5, 5, 5, 5, 5, 5, 6};  // of -4 to 10
    for (int key = -4; key <= 10; ++key) {
        EXPECT_EQ(places[key + 4], searchPosition(key, pairs, 6, less)) << "key " << key;
    }
    EXPECT_EQ(0u, searchPosition(9, pairs, 0, less));
    EXPECT_EQ(NONE, searchPosition(9, pairs, -1, less));
    EXPECT_EQ(NONE, searchPosition(9, static_cast<IntPair const*>(nullptr), 0, less));
}

TEST(MapTest, KeepsItsPairsInOrder) {
    Map<int, char> map(3, 0);
    EXPECT_EQ(1, map.insert(5, 'a', 0) & map.insert(-7, 'b', 0) & map.insert(1, 'c', 0));
    EXPECT_EQ(0, map.insert(2, 'd', 1));
    EXPECT_EQ(0, map.insert(1, 'e', 0));
    EXPECT_EQ(1, map.insert(5, 'f', 1));
    EXPECT_TRUE(map[0].value() == 'b' && map[1].value() == 'c' && map[2].value() == 'f');
    EXPECT_EQ(0, map.eraseKey(2));
    EXPECT_EQ(1, map.eraseKey(1));
    EXPECT_EQ(&map[1].value(), map.find(5));
    EXPECT_TRUE(map.getIndexFrom(5) == 1 && map.getIndexFrom(1) == NONE);
    EXPECT_TRUE(map.setCount(3) == 0 && map.setCount(1) == 1 && map.find(5) == nullptr);
    EXPECT_EQ(nullptr, map.find(6));
    EXPECT_EQ(0, (Map<int, char>(0, 1).insert(1, 'g', 1)));  // has no pairs to search
}

TEST_F(ContainerTest, QueueDoesWhatAPlainOneDoes) {
    Queue<Handle> queue(8);
    std::deque<Handle> plain;
    for (int step = 0; step < 20000; ++step) {
        auto const size = static_cast<unsigned>(plain.size());
        unsigned const n = below(10);
        unsigned const index = below(9);
        unsigned const begin = std::min(index, size);
        auto const at = plain.begin() + begin;
        auto const end = at + std::min(n, size - begin);
        std::vector<Handle> group(10);
        switch (below(5)) {
            case 0:
                std::generate(group.begin(), group.end(), [this] { return anyHandle(); });
                ASSERT_EQ(size + n <= 8, queue.enqueue(group.data(), n) == 1);
                plain.insert(plain.end(), group.begin(), group.begin() + (size + n <= 8 ? n : 0));
                break;
            case 1:
                ASSERT_EQ(index < size, queue.peek(group.data(), index, n) == 1);
                ASSERT_TRUE(std::equal(at, end, group.begin()));
                ASSERT_EQ(std::min(n, size - begin), handles() - 2 * size);  // copied no more
                break;
            case 2: {
                auto const taken = plain.begin() + std::min(n, size);
                ASSERT_EQ(size != 0, queue.dequeue(index < 4 ? nullptr : group.data(), n) == 1);
                ASSERT_TRUE(index < 4 || std::equal(plain.begin(), taken, group.begin()));
                plain.erase(plain.begin(), taken);
                break;
            }
            case 3: {
                unsigned const width = size % 2 == 0 ? 2 : 1;
                auto const goes = [&](Handle const& element) { return element.get() > middle(); };
                auto const goesAt = [&](unsigned long i) { return goes(plain[i]); };
                std::deque<Handle> kept;
                for (unsigned i = 0; i < size; ++i) {
                    if (!goesAt(i - i % width)) {
                        kept.push_back(plain[i]);
                    }
                }
                ASSERT_EQ(size - kept.size(),
                          width == 1 ? queue.eraseIf(goes) : queue.eraseGroupsIf(width, goesAt));
                plain = kept;
                break;
            }
            default:
                ASSERT_EQ(index < size, queue.eraseAt(index, n < 9 ? n : ULONG_MAX) == 1);
                plain.erase(at, n < 9 ? end : plain.end());
        }
        group.clear();
        ASSERT_EQ(plain.size(), queue.count());
        for (unsigned i = 0; i < plain.size(); ++i) {
            ASSERT_EQ(plain[i], queue[i]);
        }
        ASSERT_EQ(2 * plain.size(), handles());  // none left in a slot
    }
    EXPECT_EQ(0, queue.enqueue(nullptr, 0));
    EXPECT_EQ(0, queue.peek(nullptr, 0, 1));
}

TEST(GrowthTest, ErasingNearAnEndOfAQueueLeavesTheOtherAlone) {
    Queue<int> queue(5);
    int const values[] = {0, 1, 2, 3, 4};
    ASSERT_EQ(1, queue.enqueue(values, 5));
    int const* const kept[] = {&queue[3], &queue[4]};
    EXPECT_EQ(1, queue.eraseAt(1, 1) & queue.eraseAt(0, 1));
    EXPECT_TRUE(&queue[1] == kept[0] && &queue[2] == kept[1] && queue[0] == 2);
    int const* const front = &queue[0];
    EXPECT_EQ(1, queue.eraseAt(1, 1));
    EXPECT_TRUE(&queue[0] == front && queue[1] == 4);

    RingArray<int> ring(5);
    ring.setCount(5);
    int const* const head = &ring[0];
    EXPECT_EQ(1, ring.eraseAt(0, 2));
    EXPECT_TRUE(&ring[0] == head && &ring.refRing(-1) == head + 4) << "the head stays";
}

TEST(RawMemoryTest, TouchesSoManyBytesAndNoneOfANullPointer) {
    char bytes[] = "abcdefgh";
    moveMemory(bytes + 1, bytes, 4);
    moveMemory(bytes, nullptr, 1);
    moveMemory(nullptr, bytes, 1);
    zeroMemory(nullptr, 1);
    fillMemory(bytes, 2, 'x');
    EXPECT_EQ(bytes + 4, copyMemory(bytes + 4, "XYZ", 2));
    EXPECT_EQ(bytes, copyMemory(bytes, nullptr, 4));
    EXPECT_EQ(nullptr, copyMemory(nullptr, bytes, 4));
    EXPECT_EQ(NONE, clearStrBuffer<char>(nullptr, 4));
    EXPECT_EQ(1u, clearStrBuffer(bytes + 6, 1));
    zeroMemory(bytes + 3, 1);
    EXPECT_TRUE(compareMemory("xxb\0XY\0h", bytes, sizeof bytes));
    EXPECT_FALSE(compareMemory("xxb\0X?", bytes, 6) || compareMemory(nullptr, bytes, 0));
}

}  // namespace
}  // namespace utl
