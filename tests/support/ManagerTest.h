// A test that ends with the thread manager destroyed and leaves no thread or descriptor behind.

#ifndef UTL_TESTS_MANAGER_TEST_H
#define UTL_TESTS_MANAGER_TEST_H

#include <gtest/gtest.h>

#include <thread>

#include "UtlThreadManager.h"

#include "support/Process.h"

namespace test {

class ManagerTest : public ::testing::Test {
protected:
    // Counted on a thread: with the first one a sanitizer starts its own, which stays.
    ManagerTest() {
        std::thread([this] { mThreads = threads() - 1; }).join();
        mDescriptors = openDescriptors();
    }

    // When what a test of a derived class has is gone too.
    ~ManagerTest() override { EXPECT_EQ(mDescriptors, openDescriptors()); }

    void TearDown() override {
        utl::ThreadManager::destroy();
        EXPECT_TRUE(comesToThreads(0));
    }

    static utl::ThreadManager* manager() { return utl::ThreadManager::get(); }

    // Waits until there are so many threads more than before the test. False when that never is.
    bool comesToThreads(unsigned more) const {
        return comesTrue([this, more] { return threads() == mThreads + more; });
    }

private:
    unsigned mThreads = 0;
    unsigned mDescriptors = 0;
};

}  // namespace test

#endif  // UTL_TESTS_MANAGER_TEST_H
