#include "host/base/rate.h"

#include <gtest/gtest.h>

#include "host/base/progress.h"

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

TEST(ProgressTest, ALineTellsTheShareTheRateAndTheTimeLeft)
{
    using Unit = Progress::Unit;
    const RateMeter::Time start{};
    RateMeter rate;
    rate.Note(0, start);
    EXPECT_EQ(Progress::Line("importing", Unit::kItems, 0, 500, "0 items", rate),
              "importing:   0 %  0 items");
    rate.Note(100, start + std::chrono::seconds(2));
    EXPECT_EQ(Progress::Line("exporting", Unit::kItems, 100, 500, "100 items", rate),
              "exporting:  20 %  100 items, 50 a second, 8 s left");
    EXPECT_EQ(Progress::Line("exporting", Unit::kItems, 100, 10'000, "100 items", rate),
              "exporting:   1 %  100 items, 50 a second, 4 min left");
    EXPECT_EQ(Progress::Line("exporting", Unit::kItems, 100, 1'000'000, "100 items", rate),
              "exporting:   0 %  100 items, 50 a second, 6 h left");
    EXPECT_EQ(Progress::Line("exporting", Unit::kItems, 100, 0, "100 items", rate), "exporting: 100 items");
}

TEST(ProgressTest, BytesAreToldInMegabytes)
{
    const RateMeter::Time start{};
    RateMeter rate;
    rate.Note(0, start);
    rate.Note(25'000'000, start + std::chrono::seconds(10));
    EXPECT_EQ(Progress::Line("importing", Progress::Unit::kBytes, 25'000'000, 50'000'000, "7 items", rate),
              "importing:  50 %  7 items, 2.5 MB/s, 10 s left");
}

}  // namespace

}  // namespace quorvane::host
