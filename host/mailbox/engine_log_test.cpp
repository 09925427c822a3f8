#include "host/mailbox/engine_log.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "host/base/output.h"

namespace quorvane::host {

namespace {

constexpr char kRuleOfHeader[] = "======================================================\r\n";

// What stands at the head of a process's part.
std::string HeadOfPart(const std::string& date)
{
    return std::string(kRuleOfHeader) + "Library Compiled: Mon Nov 23 07:53:18 2026\r\nLog Started: " + date +
           "\r\n" + kRuleOfHeader;
}

std::vector<LogEntry> EntriesIn(const std::string& text, std::size_t pieces = 1000)
{
    std::vector<LogEntry> entries;
    EngineLogReader reader;
    for (std::size_t at = 0; at < text.size(); at += pieces)
        reader.Take(std::string_view(text).substr(at, pieces),
                    [&](const LogEntry& entry) { entries.push_back(entry); });
    return entries;
}

TEST(EngineLogTest, ALineTellsTimeOperationAndFailure)
{
    const std::string log =
        HeadOfPart("11/23/2026 - 7:55") + "11/23/26 07:55:14 CSession2::Logon(123) 0x80040111\r\n";
    for (const std::size_t pieces : {1, 7, 1000}) {
        const std::vector<LogEntry> entries = EntriesIn(log, pieces);
        ASSERT_EQ(entries.size(), 1U);
        EXPECT_EQ(TimeText(entries[0].time), "2026-11-23T07:55:14Z");
        EXPECT_EQ(entries[0].operation, "CSession2::Logon");
        EXPECT_EQ(entries[0].line, 123U);
        EXPECT_EQ(entries[0].code, static_cast<HRESULT>(0x80040111));
        EXPECT_EQ(entries[0].Result(), "the logon failed (0x80040111)");
    }
}

TEST(EngineLogTest, AMessageIsTheResultAsItStandsThere)
{
    const auto entries = EntriesIn("11/23/26 07:55:16 CLibrary::~CLibrary(33) Session \x1b[31mshutdown\r\n");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_FALSE(entries[0].code);
    EXPECT_EQ(entries[0].Result(), "Session  [31mshutdown");
}

TEST(EngineLogTest, ADateIsReadInTheOrderThatTheHeaderAgreesWith)
{
    for (const char* const date : {"11/10/26", "10.11.2026", "2026-11-10", "10. 11. 2026"}) {
        const auto entries = EntriesIn(HeadOfPart("11/10/2026 - 23:59") + date +
                                       " 23:59:58 CFolder::Resend(1) 0x80004005\r\n");
        ASSERT_EQ(entries.size(), 1U) << date;
        EXPECT_EQ(TimeText(entries[0].time), "2026-11-10T23:59:58Z") << date;
    }
}

TEST(EngineLogTest, WhereADateCantBeReadTheTimeBeforeCounts)
{
    const auto entries = EntriesIn(HeadOfPart("11/10/2026 - 7:55") +
                                   "Dienstag 07:56:00 CFolder::Resend(1) no\r\n" + "anything else\n\r\n");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(TimeText(entries[0].time), "2026-11-10T07:55:00Z");
    EXPECT_EQ(entries[1].operation, "");
    EXPECT_EQ(entries[1].message, "anything else");
    EXPECT_EQ(entries[1].time, entries[0].time);
}

TEST(EngineLogTest, ADetailTellsItsTimeOnATwelveHourClock)
{
    const auto entries = EntriesIn(
        "0x1b2c 01:05:14.120PM  11-23-2026 0x00000001: Deleted item ({5F}, 1) in folder 2\n"
        "0x1b2c 12:05:14.120AM  11-23-2026 0x00000001: noon\n");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(TimeText(entries[0].time), "2026-11-23T13:05:14Z");
    EXPECT_EQ(entries[0].message, "Deleted item ({5F}, 1) in folder 2");
    EXPECT_EQ(TimeText(entries[1].time), "2026-11-23T12:05:14Z");
}

TEST(EngineLogTest, ALineThatIsNotWholeYetWaits)
{
    EXPECT_TRUE(EntriesIn("11/23/26 07:55:16 CLibrary::~CLibrary(33) Session").empty());
}

TEST(EngineLogTest, OfALongLineTheBeginningIsKept)
{
    const auto entries =
        EntriesIn("11/23/26 07:55:16 CFolder::Resend(3) " + std::string(1 << 20, 'x') + "\n");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].operation, "CFolder::Resend");
    EXPECT_LT(entries[0].message.size(), EngineLogReader::kMostOfALine);
}

TEST(EngineLogTest, AnyBytesGiveEntriesOfOneLineEach)
{
    const std::string parts[] = {"11/23/26 ",
                                 "07:55:14 ",
                                 "CFolder::Resend(",
                                 "12",
                                 ") ",
                                 "0x",
                                 "80004005",
                                 "\r\n",
                                 "\n",
                                 "\n11/23/26 07:55:14 \xff\x01Op(12) ",
                                 "0x12 07:55:14.120PM  11-23-2026 0x00000001: ",
                                 "Log Started: ",
                                 "99999999999",
                                 "====",
                                 std::string(1, '\0'),
                                 "\xff\xfe",
                                 " ",
                                 ":",
                                 "31/31/31",
                                 "9/9"};
    std::mt19937 random(7);
    std::string log;
    for (int i = 0; i < 20000; ++i)
        log += parts[random() % std::size(parts)];
    std::size_t count = 0;
    for (const LogEntry& entry : EntriesIn(log, 13)) {
        ++count;
        EXPECT_EQ(entry.message, Printable(entry.message));
        EXPECT_EQ(entry.operation, Printable(entry.operation));
    }
    EXPECT_GT(count, 100U);
}

}  // namespace

}  // namespace quorvane::host
