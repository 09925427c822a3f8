#include "platform/com/per_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace quorvane {
namespace {

std::atomic<int> g_alive{0};

struct Counted {
    Counted() noexcept { ++g_alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() { --g_alive; }

    std::vector<std::string> texts;
};

TEST(PerThreadTest, AThreadHasNoObjectUntilItAsksForOne)
{
    PerThread<Counted> counted;

    EXPECT_EQ(counted.Find(), nullptr);
    Counted& made = counted.Get();
    EXPECT_EQ(counted.Find(), &made);
    EXPECT_EQ(&counted.Get(), &made);
}

TEST(PerThreadTest, EachThreadSeesItsOwn)
{
    PerThread<Counted> counted;
    counted.Get().texts = {"of the first thread"};

    std::thread([&] {
        EXPECT_EQ(counted.Find(), nullptr);
        EXPECT_TRUE(counted.Get().texts.empty());
    }).join();

    EXPECT_EQ(counted.Get().texts.size(), 1u);
}

TEST(PerThreadTest, AnObjectGoesWithItsThread)
{
    constexpr int kThreads = 50;
    PerThread<Counted> counted;
    for (int i = 0; i < kThreads; ++i)
        std::thread([&] { counted.Get().texts.assign(10, std::string(100, 'x')); }).join();

    EXPECT_EQ(g_alive, 0);
}

TEST(PerThreadTest, TheLastObjectGoesWithTheSlot)
{
    {
        PerThread<Counted> counted;
        counted.Get();
        EXPECT_EQ(g_alive, 1);
    }
    EXPECT_EQ(g_alive, 0);
}

TEST(PerThreadTest, TwoSlotsAreApart)
{
    PerThread<Counted> left;
    PerThread<Counted> right;

    EXPECT_NE(&left.Get(), &right.Get());
}

}  // namespace
}  // namespace quorvane
