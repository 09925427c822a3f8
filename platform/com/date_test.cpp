#include <gtest/gtest.h>

#include <cmath>

#include "platform/com/date_for_test.h"

namespace quorvane {
namespace {

TEST(DateTest, DaysAreCountedFromTheEndOf1899)
{
    EXPECT_EQ(VariantTime(Time(1899, 12, 30)), 0.0);
    EXPECT_EQ(VariantTime(Time(1900, 1, 1)), 2.0);
    EXPECT_EQ(VariantTime(Time(2010, 9, 30, 12)), 40451.5);
}

TEST(DateTest, BeforeTheFirstDayTheFractionStillRunsForward)
{
    EXPECT_EQ(VariantTime(Time(1899, 12, 29, 6)), -1.25);
    SYSTEMTIME back{};
    ASSERT_TRUE(VariantTimeToSystemTime(-1.25, &back));
    EXPECT_EQ(back.wDay, 29);
    EXPECT_EQ(back.wHour, 6);
}

TEST(DateTest, ASecondSurvivesTheWayThereAndBackOnEveryDay)
{
    for (WORD year : {100, 1600, 1899, 1970, 2000, 9999}) {
        const SYSTEMTIME time = Time(year, 2, 28, 23, 59, 59);
        SYSTEMTIME back{};
        ASSERT_TRUE(VariantTimeToSystemTime(VariantTime(time), &back)) << year;
        EXPECT_EQ(back.wYear, year);
        EXPECT_EQ(back.wDay, 28);
        EXPECT_EQ(back.wSecond, 59) << year;
    }
}

TEST(DateTest, FileTimesCountHundredNanosecondsFrom1601)
{
    SYSTEMTIME time = Time(1970, 1, 1);
    time.wMilliseconds = 7;
    FILETIME ticks{};

    ASSERT_TRUE(SystemTimeToFileTime(&time, &ticks));

    const auto value = (static_cast<std::uint64_t>(ticks.dwHighDateTime) << 32) | ticks.dwLowDateTime;
    EXPECT_EQ(value, 116444736000070000ULL);
    SYSTEMTIME back{};
    ASSERT_TRUE(FileTimeToSystemTime(&ticks, &back));
    EXPECT_EQ(back.wYear, 1970);
    EXPECT_EQ(back.wMilliseconds, 7);
    EXPECT_EQ(back.wDayOfWeek, 4) << "a Thursday";
}

TEST(DateTest, AFileTimeBeyondItsRangeIsRefused)
{
    const FILETIME beyond{0, 0x80000000u};
    SYSTEMTIME time{};
    FILETIME ticks{};

    EXPECT_FALSE(FileTimeToSystemTime(&beyond, &time));
    time = Time(1600, 12, 31);
    EXPECT_FALSE(SystemTimeToFileTime(&time, &ticks));
}

}  // namespace
}  // namespace quorvane
