#include "host/mailbox/traffic.h"

#include "host/mailbox/records_for_test.h"
#include "platform/testing/test_directory.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quorvane::host {

namespace {

class TrafficTest : public ::testing::Test {
protected:
    static constexpr std::uint64_t kSecond = 10'000'000;
    static constexpr std::int64_t kToday = 155'600;
    static constexpr std::uint64_t kNoon = kToday * kTrafficDay + kTrafficDay / 2;

    std::int64_t Within(std::int64_t seconds, std::int64_t first = 0)
    {
        const std::vector<AppliedWithin> all = ReadAppliedWithin(database_, first);
        const auto found = std::find_if(
            all.begin(), all.end(), [seconds](const AppliedWithin& one) { return one.seconds == seconds; });
        return found == all.end() ? -1 : found->items;
    }

    test::TestDirectory directory_;
    Database database_{MakeTables((directory_ / "host.db").string()), Database::Mode::kOpen};
};

TEST_F(TrafficTest, BothWaysAddUpOnTheDayOnWhichTheyPassed)
{
    NoteSentTraffic(database_, {1, 3, 500}, kNoon);
    NoteSentTraffic(database_, {1, 0, 100}, kNoon + 60 * kSecond);
    NoteReceivedTraffic(database_, {2, 7, 900}, {}, kNoon);
    NoteSentTraffic(database_, {1, 1, 1}, kNoon + kTrafficDay);

    const std::vector<TrafficOfADay> days = ReadTraffic(database_, 0);

    ASSERT_EQ(days.size(), 2U);
    EXPECT_EQ(days[0].day, kToday);
    EXPECT_EQ(days[0].sent, (Traffic{2, 3, 600}));
    EXPECT_EQ(days[0].received, (Traffic{2, 7, 900}));
    EXPECT_EQ(days[1].day, kToday + 1);
    EXPECT_EQ(ReadTraffic(database_, kToday + 1).size(), 1U);
}

TEST_F(TrafficTest, AChangeCountsUnderTheLeastBoundThatItKept)
{
    NoteReceivedTraffic(
        database_, {},
        {kNoon, kNoon - kSecond, kNoon - kSecond - 1, kNoon - 90 * kSecond, kNoon - 2 * kTrafficDay}, kNoon);

    EXPECT_EQ(Within(1), 2);
    EXPECT_EQ(Within(2), 1);
    EXPECT_EQ(Within(300), 1);
    EXPECT_EQ(Within(kLonger), 1);
    EXPECT_EQ(Within(60), 0);
    EXPECT_EQ(Within(1, kToday + 1), 0);
}

TEST_F(TrafficTest, AChangeOutOfTheFutureTookNoTime)
{
    NoteReceivedTraffic(database_, {}, {kNoon + 500 * kSecond}, kNoon);

    EXPECT_EQ(Within(1), 1);
}

TEST_F(TrafficTest, DaysAreForgottenAfterAWhile)
{
    NoteReceivedTraffic(database_, {1, 1, 1}, {kNoon}, kNoon);

    NoteSentTraffic(database_, {1, 1, 1}, kNoon + (kTrafficDays - 1) * kTrafficDay);
    EXPECT_EQ(ReadTraffic(database_, 0).size(), 2U);
    NoteSentTraffic(database_, {1, 1, 1}, kNoon + kTrafficDays * kTrafficDay);

    EXPECT_EQ(ReadTraffic(database_, 0).size(), 2U);
    EXPECT_EQ(Within(1), 0);
}

}  // namespace

}  // namespace quorvane::host
