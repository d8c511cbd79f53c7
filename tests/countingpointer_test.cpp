#include "UtlCountingPointer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/LogCapture.h"

namespace utl {
namespace {

// An object that counts how often it was destroyed.
using Object = std::atomic<int>;

struct Destroy {
    void operator()(Object* object) const { ++*object; }
};

using Pointer = CountingPointer<Object, Destroy>;

TEST(CountingPointerTest, LastHolderDestroysOnce) {
    Object object{0};
    Object other{0};
    {
        Pointer first;
        EXPECT_TRUE(first.set(&object) && first.set(&object));
        Pointer second(first);
        Pointer third;
        third.set(&other);
        third = second;
        EXPECT_EQ(1, other);
        third = static_cast<Pointer const&>(third);
        first.release();
        first.release();
        second.copy(first);
        EXPECT_EQ(0, object);
    }
    EXPECT_EQ(1, object);
}

TEST(CountingPointerTest, ThreadsMayCopyAndReleaseAtOnce) {
    Object object{0};
    Pointer shared;
    shared.set(&object);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([own = shared] {
            for (int j = 0; j < 2000; ++j) {
                Pointer const copy(own);
                Pointer another;
                another = copy;
            }
        });
    }
    shared.release();
    for (std::thread& thread : threads) {
        thread.join();
    }
    threads.clear();
    EXPECT_EQ(1, object);
}

TEST(CountingPointerTest, CountBelowZeroIsLoggedAndDestroysNothing) {
    Object object{0};
    Pointer pointer;
    EXPECT_TRUE(pointer.set(&object));
    RefCounter* const counter = pointer.actGetRefCounter();
    EXPECT_TRUE(counter->lower("test"));

    test::LogCapture const log;
    pointer.release();
    EXPECT_TRUE(log.has("<UTIL> ERR: lRefCount(-1) < 0 in CountingPointer::release()\r\n"));
    EXPECT_EQ(nullptr, pointer.get());
    EXPECT_EQ(0, object);
    delete counter;
}

TEST(SmartHandleTest, LastHolderClosesAnyDescriptorButStandardInput) {
    auto const isOpen = [](int descriptor) { return fcntl(descriptor, F_GETFD) != -1; };
    int const descriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    {
        SmartHandle<DestructCloseFile> first;
        first.set(descriptor);
        SmartHandle<DestructCloseFile> const second(first);
        first.release();
        EXPECT_TRUE(isOpen(descriptor));
    }
    EXPECT_FALSE(isOpen(descriptor));
    ASSERT_TRUE(isOpen(0) || open("/dev/null", O_RDONLY) == 0);
    DestructCloseFile()(0);
    EXPECT_TRUE(isOpen(0));
}

}  // namespace
}  // namespace utl
