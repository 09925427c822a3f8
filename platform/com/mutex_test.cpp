#include "platform/com/mutex.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace quorvane {
namespace {

struct Counter {
    Mutex mutex;
    ConditionVariable changed;
    int value QV_GUARDED_BY(mutex) = 0;
};

TEST(MutexTest, OneThreadAtATimeHoldsIt)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    Counter counter;
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&counter] {
            for (int round = 0; round < kRounds; ++round) {
                const MutexLock lock(counter.mutex);
                ++counter.value;
            }
        });
    }
    threads.clear();

    const MutexLock lock(counter.mutex);
    EXPECT_EQ(counter.value, kThreads * kRounds);
}

// Whether another thread could take the lock now.
template <class Lockable>
bool IsFree(Lockable& lock)
{
    bool taken = false;
    std::thread([&] {
        if (lock.TryLock()) {
            taken = true;
            lock.Unlock();
        }
    }).join();
    return taken;
}

TEST(MutexTest, ALockCanBeLeftAndTakenAgainWithinItsScope)
{
    Mutex mutex;
    MutexLock lock(mutex);
    EXPECT_FALSE(IsFree(mutex));
    lock.Unlock();
    EXPECT_TRUE(IsFree(mutex));
    lock.Lock();

    EXPECT_FALSE(IsFree(mutex));
}

// The analysis takes every lock for one that can't be taken twice.
void TakeTwiceAndLeaveOnce(RecursiveMutex& mutex) QV_NO_THREAD_SAFETY_ANALYSIS
{
    mutex.Lock();
    mutex.Lock();
    mutex.Unlock();
}

void Leave(RecursiveMutex& mutex) QV_NO_THREAD_SAFETY_ANALYSIS
{
    mutex.Unlock();
}

TEST(MutexTest, ARecursiveOneIsFreeAfterAsManyUnlocks)
{
    RecursiveMutex mutex;

    TakeTwiceAndLeaveOnce(mutex);
    EXPECT_FALSE(IsFree(mutex));
    Leave(mutex);

    EXPECT_TRUE(IsFree(mutex));
}

TEST(MutexTest, AWaitEndsWithTheNotificationOrAtTheDeadline)
{
    Counter counter;
    {
        const MutexLock lock(counter.mutex);
        const auto past = ConditionVariable::Clock::now();
        EXPECT_FALSE(counter.changed.WaitUntil(counter.mutex, past));
    }
    std::jthread setter([&counter] {
        const MutexLock lock(counter.mutex);
        counter.value = 1;
        counter.changed.NotifyAll();
    });

    const MutexLock lock(counter.mutex);
    while (counter.value == 0)
        counter.changed.Wait(counter.mutex);
    EXPECT_EQ(counter.value, 1);
}

}  // namespace
}  // namespace quorvane
