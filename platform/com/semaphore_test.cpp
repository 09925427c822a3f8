#include "platform/com/semaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace quorvane {
namespace {

TEST(SemaphoreTest, NoMoreThanItsCountAreInsideAndNobodyIsForgotten)
{
    constexpr int kPlaces = 2;
    constexpr int kTurns = 2000;
    Semaphore places(kPlaces);
    std::atomic<int> inside = 0;
    std::atomic<int> most = 0;
    std::atomic<int> turns = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 6; ++i) {
            threads.emplace_back([&] {
                for (int n = 0; n < kTurns; ++n) {
                    places.Acquire();
                    const int now = ++inside;
                    for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
                    }
                    std::this_thread::yield();
                    --inside;
                    ++turns;
                    places.Release();
                }
            });
        }
    }

    EXPECT_EQ(turns, 6 * kTurns);
    EXPECT_LE(most, kPlaces);
}

TEST(SemaphoreTest, AnotherThreadMayRelease)
{
    Semaphore places(0);
    std::jthread other([&] { places.Release(); });

    places.Acquire();
}

TEST(SemaphoreTest, WhoStoodInLineFirstIsLetInFirst)
{
    Semaphore semaphore(0);
    Semaphore::Place first(semaphore);
    Semaphore::Place second(semaphore);
    auto firstIn = std::async(std::launch::async, [&] { first.Wait(); });
    auto secondIn = std::async(std::launch::async, [&] { second.Wait(); });

    semaphore.Release();
    EXPECT_EQ(firstIn.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(secondIn.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
    semaphore.Release();
    EXPECT_EQ(secondIn.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST(SemaphoreTest, NobodyPassesOneWhoWasLetInAndIsStillAsleep)
{
    Semaphore semaphore(0);
    Semaphore::Place sleeper(semaphore);
    semaphore.Release();
    auto newcomer = std::async(std::launch::async, [&] { semaphore.Acquire(); });

    EXPECT_EQ(newcomer.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    sleeper.Wait();
    semaphore.Release();
    EXPECT_EQ(newcomer.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

}  // namespace
}  // namespace quorvane
