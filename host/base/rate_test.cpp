#include "host/base/rate.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

class RateMeterTest : public ::testing::Test {
protected:
    // So many seconds after the beginning.
    void Note(std::int64_t done, double seconds)
    {
        const std::chrono::duration<double> since(seconds);
        meter.Note(done, start_ + std::chrono::duration_cast<std::chrono::milliseconds>(since));
    }

    RateMeter meter;

private:
    const RateMeter::Time start_ = std::chrono::steady_clock::now();
};

TEST_F(RateMeterTest, NothingIsKnownAtTheBeginning)
{
    EXPECT_EQ(meter.PerSecond(), 0);
    EXPECT_EQ(meter.SecondsLeft(10), -1);
    Note(0, 0);
    EXPECT_EQ(meter.PerSecond(), 0);
    EXPECT_EQ(meter.SecondsLeft(10), -1);
}

TEST_F(RateMeterTest, TheRateGivesTheTimeLeft)
{
    for (int i = 0; i <= 20; ++i)
        Note(10 * i, 0.1 * i);

    EXPECT_NEAR(meter.PerSecond(), 100, 1);
    EXPECT_EQ(meter.SecondsLeft(1000), 8);
    EXPECT_EQ(meter.SecondsLeft(200), 0);
}

TEST_F(RateMeterTest, WhatIsLongPastDoesntCount)
{
    for (int i = 0; i <= 10; ++i)
        Note(1000 * i, i);
    for (int i = 1; i <= 10; ++i)
        Note(10'000 + 10 * i, 10 + i);

    EXPECT_NEAR(meter.PerSecond(), 10, 1);
}

TEST_F(RateMeterTest, AWorkThatStandsStillHasNoTimeLeft)
{
    Note(5, 0);
    Note(5, 10);

    EXPECT_EQ(meter.SecondsLeft(10), -1);
}

}  // namespace

}  // namespace quorvane::host
