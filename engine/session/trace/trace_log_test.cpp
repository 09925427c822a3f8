#include "engine/session/trace/trace_log.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "engine/session/trace/testing/traced_lines.h"
#include "engine/session/trace/trace.h"
#include "platform/testing/console.h"
#include "platform/testing/debugger.h"
#include "platform/testing/surroundings.h"

namespace quorvane {
namespace {

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

size_t CountOf(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

class TraceLogTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = test::MakeTestDirectory();
        path = directory / "test.log";
        detail = directory / "test.log.info";
        debugger.emplace(directory / "debugger");
    }
    void TearDown() override
    {
        debugger.reset();
        // On Windows a file that a log still holds stays.
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    static void Line(TraceLog& log, const char* format, ...) __attribute__((format(printf, 2, 3)))
    {
        va_list arguments;
        va_start(arguments, format);
        log.Line("CTest::Run", 42, format, arguments);
        va_end(arguments);
    }
    static void Detail(TraceLog& log, const char* format, ...) __attribute__((format(printf, 2, 3)))
    {
        va_list arguments;
        va_start(arguments, format);
        log.Detail(format, arguments);
        va_end(arguments);
    }

    std::filesystem::path directory;
    std::filesystem::path path;
    std::filesystem::path detail;
    std::optional<test::DebuggerForTest> debugger;
    TraceLog log;
};

TEST_F(TraceLogTest, ALineTellsTimeFunctionLineAndMessage)
{
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "0x%X", 0x80004005u);
    const std::string text = ReadFile(path);
    EXPECT_TRUE(std::regex_search(
        text, std::regex("[0-9/.-]+ \\d+:\\d{2}:\\d{2} CTest::Run\\(42\\) 0x80004005\\r\\n$")))
        << text;
}

TEST_F(TraceLogTest, TheHeaderStandsBeforeTheFirstLine)
{
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "first");
    const std::string rule = std::string(54, '=') + "\r\n";
    const std::regex header(rule +
                            "Library Compiled: (Mon|Tue|Wed|Thu|Fri|Sat|Sun) [A-Z][a-z]{2} [ \\d]\\d "
                            "\\d{2}:\\d{2}:\\d{2} \\d{4}\\r\\n"
                            "Log Started: \\d+/\\d+/\\d{4} - \\d+:\\d+\\r\\n" +
                            rule + "[^=]*CTest::Run\\(42\\) first\\r\\n");
    EXPECT_TRUE(std::regex_match(ReadFile(path), header)) << ReadFile(path);
}

TEST_F(TraceLogTest, TheHeaderIsWrittenFromTheClock)
{
    const std::string header = TraceHeader(SYSTEMTIME{2010, 9, 4, 30, 10, 3, 11, 0});
    EXPECT_NE(header.find("Log Started: 9/30/2010 - 10:3\r\n"), std::string::npos) << header;
}

TEST_F(TraceLogTest, AMessageWithItsOwnLineEndKeepsIt)
{
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "text\n");
    EXPECT_TRUE(ReadFile(path).ends_with("text\n\r\n"));
}

TEST_F(TraceLogTest, NothingIsWrittenBeforeTheStart)
{
    Line(log, "lost");
    Detail(log, "lost");
    EXPECT_TRUE(std::filesystem::is_empty(directory));
}

TEST_F(TraceLogTest, NothingIsWrittenAfterTheShutdown)
{
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "kept");
    log.Shutdown();
    Line(log, "lost");
    Detail(log, "lost");
    EXPECT_EQ(ReadFile(path).find("lost"), std::string::npos);
    EXPECT_EQ(ReadFile(detail), "");
}

TEST_F(TraceLogTest, TheLogFileIsMadeByTheFirstLine)
{
    log.Start(kTraceToFile, path.string().c_str());
    EXPECT_FALSE(std::filesystem::exists(path));
    Line(log, "first");
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(TraceLogTest, ANewProcessAppendsANewHeaderBehindTheOldLines)
{
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "old");
    TraceLog next;
    next.Start(kTraceToFile, path.string().c_str());
    Line(next, "new");
    const std::string text = ReadFile(path);
    EXPECT_EQ(CountOf(text, "Log Started"), 2u);
    EXPECT_LT(text.find("old\r\n"), text.rfind("Log Started"));
    EXPECT_LT(text.rfind("Log Started"), text.find("new\r\n"));
}

TEST_F(TraceLogTest, ASecondStartDoesNothing)
{
    log.Start(kTraceToFile, path.string().c_str());
    Detail(log, "kept");
    log.Start(kTraceToFile | kTraceToConsole, (directory / "other.log").string().c_str());
    Line(log, "line");
    EXPECT_NE(ReadFile(detail).find("kept"), std::string::npos);
    EXPECT_NE(ReadFile(path).find("line"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(directory / "other.log.info"));
}

TEST_F(TraceLogTest, AStartAfterAShutdownEmptiesTheDetailFileAndGoesOnInTheOldLog)
{
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "one");
    Detail(log, "gone");
    log.Shutdown();
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "two");
    EXPECT_EQ(ReadFile(detail), "");
    const std::string text = ReadFile(path);
    EXPECT_EQ(CountOf(text, "Log Started"), 1u);
    EXPECT_NE(text.find("two"), std::string::npos);
}

TEST_F(TraceLogTest, ALineThatIsTooLongIsCutAndStillEnds)
{
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "short");
    const size_t before = ReadFile(path).size();
    Line(log, "%s", std::string(10000, 'x').c_str());
    const std::string line = ReadFile(path).substr(before);
    EXPECT_GT(line.size(), 4000u);
    EXPECT_LT(line.size(), 4096u);
    EXPECT_TRUE(line.ends_with("xxx\r\n"));
}

TEST_F(TraceLogTest, ACutTearsNoCharacter)
{
    log.Start(kTraceToFile, path.string().c_str());
    std::string text;
    for (int i = 0; i < 3000; ++i)
        text += "\xE2\x82\xAC";
    for (const char* const shift : {"", "1", "12"}) {
        Line(log, "%s%s", shift, text.c_str());
        EXPECT_TRUE(ReadFile(path).ends_with("\xE2\x82\xAC\r\n"));
    }
}

TEST_F(TraceLogTest, ADetailIsCutAtItsLimit)
{
    log.Start(kTraceToFile, path.string().c_str());
    Detail(log, "%s", std::string(10000, 'x').c_str());
    const std::string text = ReadFile(detail);
    EXPECT_EQ(text.size() - text.find('x', text.rfind(": ")), 4096u);
}

TEST_F(TraceLogTest, WithoutAChannelNothingIsWritten)
{
    log.Start(0, path.string().c_str());
    const test::ConsoleForTest output;
    Line(log, "lost");
    EXPECT_EQ(output.Text(), "");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TraceLogTest, AnUnknownChannelChangesNothing)
{
    log.Start(8, path.string().c_str());
    Line(log, "lost");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TraceLogTest, WithTheConsoleAloneNoLogFileIsMade)
{
    const test::ConsoleForTest output;
    log.Start(kTraceToConsole, path.string().c_str());
    Line(log, "loud");
    EXPECT_NE(output.Text().find("loud\r\n"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(TraceLogTest, TheConsoleEndsWithTheLog)
{
    const test::ConsoleForTest output;
    log.Start(kTraceToFile | kTraceToConsole, path.string().c_str());
    log.Shutdown();
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "quiet");
    EXPECT_EQ(output.Text(), "");
    EXPECT_NE(ReadFile(path).find("quiet"), std::string::npos);
}

TEST_F(TraceLogTest, WithTheConsoleOffOnlyTheFileIsWritten)
{
    const test::ConsoleForTest output;
    log.Start(kTraceToFile, path.string().c_str());
    Line(log, "quiet");
    Detail(log, "quiet");
    EXPECT_EQ(output.Text(), "");
}

TEST_F(TraceLogTest, TheConsoleGetsWholeLinesAndDetailsWithoutTheirPrefix)
{
    const test::ConsoleForTest output;
    log.Start(kTraceToFile | kTraceToConsole, path.string().c_str());
    Line(log, "loud");
    Detail(log, "detail\n");
    const std::string text = output.Text();
    EXPECT_NE(text.find("CTest::Run(42) loud\r\n"), std::string::npos);
    EXPECT_TRUE(text.ends_with("loud\r\ndetail\n")) << text;
}

TEST_F(TraceLogTest, ADetailGoesToItsFileAndTheDebuggerWithAPrefix)
{
    log.Start(kTraceToFile, path.string().c_str());
    Detail(log, "Deleted item (%s)\n", "A");
    const std::string text = ReadFile(detail);
    EXPECT_TRUE(
        std::regex_match(text, std::regex("0x[0-9a-f]{4,} \\d{2}:\\d{2}:\\d{2}\\.\\d{3}(AM|PM)  "
                                          "\\d{2}-\\d{2}-\\d{4} 0x00000001: Deleted item \\(A\\)\\n")))
        << text;
    EXPECT_EQ(ReadFile(directory / "debugger"), text);
}

TEST_F(TraceLogTest, TheHourIsToldOnTwelveHoursAndNoonIsMorning)
{
    const auto prefix = [](WORD hour) {
        return DetailPrefix(0x1a2b, SYSTEMTIME{2010, 9, 4, 30, hour, 5, 6, 7});
    };
    EXPECT_EQ(prefix(0), "0x1a2b 00:05:06.007AM  09-30-2010 0x00000001: ");
    EXPECT_EQ(prefix(12), "0x1a2b 12:05:06.007AM  09-30-2010 0x00000001: ");
    EXPECT_EQ(prefix(13), "0x1a2b 01:05:06.007PM  09-30-2010 0x00000001: ");
    EXPECT_EQ(prefix(23), "0x1a2b 11:05:06.007PM  09-30-2010 0x00000001: ");
}

TEST_F(TraceLogTest, AnUnopenableDetailFileIsToldToTheDebuggerAlone)
{
    log.Start(kTraceToFile, (directory / "none" / "test.log").string().c_str());
    const std::string told = ReadFile(directory / "debugger");
    EXPECT_TRUE(std::regex_match(told, std::regex("_tfopen failed, hRes = 0x80070003, dwErr = 0x00000003 = "
                                                  "\".+\"\\n")))
        << told;
    Line(log, "lost");
    EXPECT_FALSE(std::filesystem::exists(directory / "none"));
}

TEST_F(TraceLogTest, AnEmptyPathIsNoPlaceForALog)
{
    test::KeepDataIn(directory);
    log.Start(kTraceToFile, "");
    Line(log, "lost");
    Detail(log, "to the debugger alone");
    EXPECT_FALSE(std::filesystem::exists(directory / "Quorvane3"));
    EXPECT_FALSE(std::filesystem::exists(".info"));
    test::KeepDataIn({});
}

TEST_F(TraceLogTest, AFailedOpenIsTriedAgainByTheNextLine)
{
    const std::filesystem::path later = directory / "later";
    log.Start(kTraceToFile, (later / "test.log").string().c_str());
    Line(log, "lost");
    std::filesystem::create_directories(later);
    Line(log, "kept");
    const std::string text = ReadFile(later / "test.log");
    EXPECT_EQ(text.find("lost"), std::string::npos);
    EXPECT_NE(text.find("kept"), std::string::npos);
}

TEST_F(TraceLogTest, WithoutAPathTheLogStandsInTheUsersApplicationData)
{
    test::KeepDataIn(directory);
    log.Start(kTraceToFile, nullptr);
    Line(log, "default");
    EXPECT_NE(ReadFile(directory / "Quorvane3" / "quorvane3.log").find("default"), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(directory / "Quorvane3" / "quorvane3.log.info"));
    test::KeepDataIn({});
}

TEST_F(TraceLogTest, LinesOfManyThreadsStayWholeAndInOrder)
{
    constexpr unsigned kThreads = 8;
    constexpr unsigned kLines = 200;
    log.Start(kTraceToFile, path.string().c_str());
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (unsigned n = 0; n < kLines; ++n)
                Line(log, "%u-%u %s", i, n, std::string(50, static_cast<char>('a' + i)).c_str());
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    const std::string text = ReadFile(path);
    EXPECT_EQ(CountOf(text, "Log Started"), 1u);
    std::vector<unsigned> told(kThreads, 0);
    const std::regex line("CTest::Run\\(42\\) (\\d)-(\\d+) ([a-h])\\3{49}\\r\\n");
    for (auto found = std::sregex_iterator(text.begin(), text.end(), line); found != std::sregex_iterator();
         ++found) {
        const auto thread = static_cast<unsigned>(std::stoul((*found)[1]));
        EXPECT_EQ(std::stoul((*found)[2]), told.at(thread)++);
    }
    EXPECT_EQ(told, std::vector<unsigned>(kThreads, kLines));
}

TEST_F(TraceLogTest, AFailureIsTracedOnceAtEachHopUnderTheName)
{
    const Traced inner{"CInner::Open"};
    const Traced outer{"COuter::Logon"};
    const auto open = [&]() -> HRESULT {
        HR_TRY(inner, E_ACCESSDENIED);
        return S_OK;
    };
    const auto quiet = []() -> HRESULT {
        HR_TRY_QUIET(E_FAIL);
        return S_OK;
    };
    const std::string text = testing::TracedLines([&] {
        EXPECT_EQ(outer(open()), E_ACCESSDENIED);
        EXPECT_EQ(outer(S_OK), S_OK);
        EXPECT_EQ(quiet(), E_FAIL);
    });
    EXPECT_EQ(CountOf(text, "0x80070005\r\n"), 2u);
    EXPECT_LT(text.find("CInner::Open("), text.find("COuter::Logon("));
    EXPECT_EQ(CountOf(text, "0x80004005"), 0u);
}

TEST_F(TraceLogTest, ADetailOfTheProcessIsNoLineOfItsLog)
{
    const std::string text = testing::TracedLines([] { TraceDetail("detail %u", 1u); });
    EXPECT_EQ(text, "");
    EXPECT_TRUE(ReadFile(directory / "debugger").ends_with("detail 1"));
}

}  // namespace
}  // namespace quorvane
