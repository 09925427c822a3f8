#include "platform/clock/clock.h"

#include <gtest/gtest.h>

#include <thread>

namespace quorvane {
namespace {

TEST(ClockTest, TheTwoFormsOfNowAgree)
{
    const FILETIME before = FileTimeNow();
    const SYSTEMTIME parts = UtcNow();
    const FILETIME after = FileTimeNow();
    FILETIME now{};
    ASSERT_TRUE(SystemTimeToFileTime(&parts, &now));
    constexpr std::uint64_t kMillisecond = 10000;

    EXPECT_GE(ToTicks(now) + kMillisecond, ToTicks(before));
    EXPECT_LE(ToTicks(now), ToTicks(after));
    EXPECT_GE(parts.wYear, 2020);
}

TEST(ClockTest, TicksKeepTheirHalves)
{
    const FILETIME time{0x89ABCDEF, 0x01234567};

    EXPECT_EQ(ToTicks(time), 0x0123456789ABCDEFu);
    EXPECT_EQ(FromTicks(ToTicks(time)).dwLowDateTime, time.dwLowDateTime);
    EXPECT_EQ(FromTicks(ToTicks(time)).dwHighDateTime, time.dwHighDateTime);
}

TEST(ClockTest, DatesKeepTheSecond)
{
    constexpr std::uint64_t kNoonOn30September2010 = 129303216000000000;
    DATE date = 0;
    FILETIME back{};

    ASSERT_EQ(DateFromFileTime(FromTicks(kNoonOn30September2010 + 9990000), date), S_OK);
    ASSERT_EQ(FileTimeFromDate(date, back), S_OK);

    EXPECT_EQ(date, 40451.5);
    EXPECT_EQ(ToTicks(back), kNoonOn30September2010);
}

TEST(ClockTest, WhatIsNoDateIsRefusedAndLeavesTheOldOne)
{
    DATE date = 5;
    FILETIME time{1, 2};

    EXPECT_EQ(DateFromFileTime(FromTicks(~0ULL), date), E_INVALIDARG);
    EXPECT_EQ(FileTimeFromDate(-600000.0, time), E_INVALIDARG) << "before 1601";

    EXPECT_EQ(date, 5);
    EXPECT_EQ(time.dwHighDateTime, 2u);
}

TEST(ClockTest, ASleepLastsAtLeastItsTime)
{
    const std::uint64_t start = TickCount();

    SleepFor(std::chrono::milliseconds(0));
    SleepFor(std::chrono::milliseconds(10));

    EXPECT_GE(TickCount(), start + 10);
}

TEST(ClockTest, APauseWaitsItsOwnWayUnlessATestPassesIt)
{
    static std::chrono::microseconds waited;
    static std::chrono::microseconds passed;
    waited = passed = std::chrono::microseconds(0);
    const PauseFunction wait = [](std::chrono::microseconds time) noexcept { waited += time; };

    Pause(std::chrono::microseconds(3), wait);
    const PauseFunction before =
        ReplacePauses([](std::chrono::microseconds time) noexcept { passed += time; });
    Pause(std::chrono::microseconds(5), wait);
    ReplacePauses(before);
    Pause(std::chrono::microseconds(7), wait);

    EXPECT_EQ(before, nullptr);
    EXPECT_EQ(waited.count(), 10);
    EXPECT_EQ(passed.count(), 5);
}

TEST(ClockTest, TheTimeOfDayHasNoMark)
{
    SYSTEMTIME time{};
    time.wYear = 2010;
    time.wMonth = 9;
    time.wDay = 30;
    time.wHour = 13;
    time.wSecond = 7;

    const std::string text = TimeOfDay(time);

    EXPECT_TRUE(text == "13:00:07" || text == "1:00:07" || text == "01:00:07") << text;
    EXPECT_NE(ShortDate(time).find("30"), std::string::npos);
    EXPECT_NE(ShortDate(time).find("10"), std::string::npos);
}

TEST(ClockTest, EachThreadHasANumberOfItsOwn)
{
    DWORD other = 0;
    std::thread([&] { other = ThreadNumber(); }).join();

    EXPECT_NE(ThreadNumber(), 0u);
    EXPECT_NE(ThreadNumber(), other);
}

}  // namespace
}  // namespace quorvane
