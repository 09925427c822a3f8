#include "platform/com/quick_mutex.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace quorvane {
namespace {

struct QuickCounter {
    QuickMutex mutex;
    int value QV_GUARDED_BY(mutex) = 0;
};

TEST(QuickMutexTest, OneThreadAtATimeHoldsItAndAllOfThemGetIt)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 20'000;
    QuickCounter counter;
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&counter] {
            for (int round = 0; round < kRounds; ++round) {
                const QuickMutexLock lock(counter.mutex);
                ++counter.value;
            }
        });
    }
    threads.clear();

    const QuickMutexLock lock(counter.mutex);
    EXPECT_EQ(counter.value, kThreads * kRounds);
}

// Each of them sleeps until the one before it leaves: a call that woke nobody would leave the rest asleep.
TEST(QuickMutexTest, WhoeverWaitsIsWoken)
{
    constexpr int kThreads = 8;
    QuickCounter counter;
    std::vector<std::jthread> threads;
    {
        QuickMutexLock lock(counter.mutex);
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&counter] {
                const QuickMutexLock inner(counter.mutex);
                ++counter.value;
                std::this_thread::yield();
            });
        }
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
        EXPECT_EQ(0, counter.value);
    }
    threads.clear();
    const QuickMutexLock lock(counter.mutex);
    EXPECT_EQ(kThreads, counter.value);
}

}  // namespace
}  // namespace quorvane
