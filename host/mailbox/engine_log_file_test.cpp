#include "host/mailbox/engine_log_file.h"

#include <gtest/gtest.h>

#include <fstream>

#include "host/base/output.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

class EngineLogFileTest : public ::testing::Test {
protected:
    void Write(const std::string& text) const
    {
        std::ofstream(path_, std::ios::app | std::ios::binary) << text;
    }
    enum class Order { kMonthFirst, kDayFirst };
    static std::string Dated(Order order, std::chrono::sys_days day)
    {
        const std::chrono::year_month_day date(day);
        const auto month = static_cast<unsigned>(date.month()), ofMonth = static_cast<unsigned>(date.day());
        const bool isDayFirst = order == Order::kDayFirst;
        char text[64];
        std::snprintf(text, sizeof text, "%02u/%02u/%d", isDayFirst ? ofMonth : month,
                      isDayFirst ? month : ofMonth, static_cast<int>(date.year()));
        return text;
    }
    // A process's part, of so many lines on each of so many days, whose dates are written in that order. One
    // line in ten tells no failure.
    void WritePart(std::chrono::sys_days day, int count, int lines, Order order = Order::kMonthFirst)
    {
        std::string text = std::string(54, '=') +
                           "\r\nLibrary Compiled: Mon Nov 23 07:53:18 2026\r\nLog Started: " +
                           Dated(Order::kMonthFirst, day) + " - 7:55\r\n" + std::string(54, '=') + "\r\n";
        for (const std::chrono::sys_days end = day + std::chrono::days(count); day < end;
             day += std::chrono::days(1))
            for (int i = 0; i < lines; ++i, ++number_)
                text += Dated(order, day) + " 08:00:00 CFolder::Resend(" + std::to_string(number_) + ") " +
                        (number_ % 10 == 0 ? "Startup" : "0x80004005") + "\r\n";
        Write(text);
    }

    LogEntries Last(std::size_t most, const LogWish& wish = {})
    {
        return EngineLogFile(path_).ReadOn(wish, most);
    }
    LogEntries All(const LogWish& wish = {}) { return Last(0, wish); }

    static void ExpectEnd(const LogEntries& end, const LogEntries& all)
    {
        ASSERT_LE(end.size(), all.size());
        for (std::size_t i = 1; i <= end.size(); ++i) {
            ASSERT_EQ(end[end.size() - i].line, all[all.size() - i].line) << i;
            ASSERT_EQ(TimeText(end[end.size() - i].time), TimeText(all[all.size() - i].time)) << i;
        }
    }

    static constexpr std::chrono::sys_days kFirst{std::chrono::year(2026) / std::chrono::January / 2};
    const test::TestDirectory directory_;
    const std::filesystem::path path_ = directory_ / "quorvane3.log";
    int number_ = 1;
};

TEST_F(EngineLogFileTest, ItsEndIsThatOfTheWholeHoweverMuchIsWanted)
{
    WritePart(kFirst, 100, 100);
    WritePart(kFirst + std::chrono::days(100), 1, 3);
    WritePart(kFirst + std::chrono::days(101), 150, 80);
    const LogEntries all = All();
    EXPECT_EQ(all.size(), 22'003U);
    for (const std::size_t most : {1, 100, 5000, 13'000, 22'000, 30'000}) {
        const LogEntries end = Last(most);
        EXPECT_EQ(end.size(), std::min(most, all.size()));
        ExpectEnd(end, all);
    }
    ExpectEnd(Last(7000, {0, true}), All({0, true}));
}

TEST_F(EngineLogFileTest, TheOrderOfADateIsThatOfTheLinesBefore)
{
    // October's first days may be days of any month, and no header stands there for megabytes.
    WritePart(kFirst + std::chrono::days(119), 161, 700, Order::kDayFirst);
    const LogEntries all = All();
    EXPECT_EQ(TimeText(all.back().time), "2026-10-08T08:00:00Z");
    ExpectEnd(Last(100), all);
    ExpectEnd(Last(10'000), all);
}

TEST_F(EngineLogFileTest, NoMoreIsReadThanIsWanted)
{
    for (int i = 0; i < 20; ++i)
        WritePart(kFirst + std::chrono::days(i), 1, 10'000);
    ASSERT_GT(std::filesystem::file_size(path_), 10'000'000U);
    EngineLogFile last(path_), today(path_);
    EXPECT_EQ(last.ReadOn({}, 100).size(), 100U);
    EXPECT_LT(last.CountRead(), 2'000'000U);
    const LogWish wish{FileTimeOf(kFirst + std::chrono::days(19)), false};
    EXPECT_EQ(today.ReadOn(wish, 0).size(), 10'000U);
    EXPECT_LT(today.CountRead(), 3'000'000U);
}

TEST_F(EngineLogFileTest, WhatIsWrittenLaterIsReadOnce)
{
    EngineLogFile file(path_);
    EXPECT_TRUE(file.ReadOn({}, 10).empty());
    WritePart(kFirst, 1, 20'000);
    EXPECT_EQ(file.ReadOn({}, 10).size(), 10U);
    EXPECT_TRUE(file.ReadOn({}, 0).empty());
    Write("01/02/2026 09:00:00 CFolder::Resend(1) 0x8000");
    EXPECT_TRUE(file.ReadOn({}, 0).empty());
    Write("4005\r\n");
    EXPECT_EQ(file.ReadOn({}, 0).size(), 1U);
    std::filesystem::resize_file(path_, 0);
    WritePart(kFirst, 1, 3);
    EXPECT_EQ(file.ReadOn({}, 0).size(), 3U);
}

TEST_F(EngineLogFileTest, AnythingMayStandThere)
{
    std::string bytes(3'000'000, 'x');
    Write(bytes);
    EXPECT_LE(Last(100).size(), 1U);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 7919 % 251);
    Write(bytes);
    const LogEntries all = All();
    ExpectEnd(Last(100), all);
}

}  // namespace

}  // namespace quorvane::host
