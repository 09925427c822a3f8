#include "host/base/output.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

TEST(OutputTest, ATableAlignsItsColumns)
{
    Table table({"NAME", "N"});
    table.Add({"ä", "1"});
    table.Add({"longer", "22"});

    EXPECT_EQ(table.Text(), "NAME     N\nä        1\nlonger  22\n");
}

TEST(OutputTest, AWideCharacterTakesTwoColumnsAndACombiningOneNone)
{
    EXPECT_EQ(DisplayWidth("abc"), 3U);
    EXPECT_EQ(DisplayWidth("\u65E5\u672C\u8A9E"), 6U);
    EXPECT_EQ(DisplayWidth("e\u0301"), 1U);
    EXPECT_EQ(DisplayWidth("\U0001F600"), 2U);
    Table table({"NAME", "N"});
    table.Add({"\u65E5\u672C\u8A9E", "1"});
    table.Add({"e\u0301", "22"});
    EXPECT_EQ(table.Text({}), "NAME     N\n\u65E5\u672C\u8A9E   1\ne\u0301       22\n");
}

class FittedTableTest : public ::testing::Test {
protected:
    FittedTableTest() { table_.Add({"1", std::string(30, 's'), std::string(40, 't'), std::string(10, 'i')}); }

    std::string Row(std::size_t width) const
    {
        const std::string text = table_.Text({width, false});
        return text.substr(text.find('\n') + 1);
    }

    Table table_{{"#", {"SENDER", Fit::kShortened}, {"SUBJECT", Fit::kShortened}, {"ID", Fit::kDropped}}};
};

TEST_F(FittedTableTest, ATableThatFitsIsWhole)
{
    const std::string whole =
        "1  " + std::string(30, 's') + "  " + std::string(40, 't') + "  " + std::string(10, 'i') + "\n";
    EXPECT_EQ(Row(87), whole);
    EXPECT_EQ(Row(0), whole);
}

TEST_F(FittedTableTest, TheWidestTextsAreCutFirst)
{
    EXPECT_EQ(Row(80), "1  " + std::string(30, 's') + "  " + std::string(32, 't') + "\u2026  " +
                           std::string(10, 'i') + "\n");
    EXPECT_EQ(Row(67), "1  " + std::string(24, 's') + "\u2026  " + std::string(24, 't') + "\u2026  " +
                           std::string(10, 'i') + "\n");
}

TEST_F(FittedTableTest, AColumnIsLeftOutWhereCuttingOthersDoesNotDo)
{
    EXPECT_EQ(Row(50), "1  " + std::string(21, 's') + "\u2026  " + std::string(22, 't') + "\u2026\n");
    // No more can be done.
    EXPECT_EQ(Row(20), "1  " + std::string(19, 's') + "\u2026  " + std::string(19, 't') + "\u2026\n");
}

TEST_F(FittedTableTest, AWideCharacterIsNotCutInTheMiddle)
{
    Table table({{"T", Fit::kShortened}});
    std::string text;
    for (int i = 0; i < 15; ++i)
        text += "\u65E5";
    table.Add({text});
    EXPECT_EQ(table.Text({20, false}), "T\n" + text.substr(0, 27) + "\u2026\n");
}

TEST(OutputTest, AColumnOfNumbersStandsAtItsRightAndOthersDoNot)
{
    Table table({"ID", "COUNT", "WORD"});
    table.Add({"12", "7", "x"});
    table.Add({"1a", "", "12"});
    EXPECT_EQ(table.Text({}), "ID  COUNT  WORD\n12      7  x\n1a         12\n");
}

TEST(OutputTest, ATextGoesOnInItsColumn)
{
    Table table({"#", {"WHAT", Fit::kFolded}, "END"});
    table.Add({"1", "lihis-vofuf-pogag-polog-fulah", "e"});
    table.Add({"2", "two words that are long", "e"});
    table.Add({"3", std::string(25, 'x'), "e"}, Table::Row::kStrong);
    EXPECT_EQ(table.Text({29, true}),
              "\033[1m#  WHAT                   END\033[0m\n"
              "1  lihis-vofuf-pogag-     e\n"
              "   polog-fulah\n"
              "2  two words that are     e\n"
              "   long\n"
              "\033[1m3  xxxxxxxxxxxxxxxxxxxxx  e\033[0m\n"
              "\033[1m   xxxx\033[0m\n");
}

TEST(OutputTest, ALineIsFoldedAtItsBlanks)
{
    EXPECT_EQ(Folded("one two three", 0), "one two three");
    EXPECT_EQ(Folded("one two three", 13), "one two three");
    EXPECT_EQ(Folded("one two three", 12), "one two\nthree");
    EXPECT_EQ(Folded("one two three", 7, 2), "one two\n  three");
    EXPECT_EQ(Folded("one /a/path/that/is/long two", 10, 2), "one\n  /a/path/that/is/long\n  two");
    EXPECT_EQ(Folded("\u65E5\u672C \u8A9E\u8A9E", 8), "\u65E5\u672C\n\u8A9E\u8A9E");
    EXPECT_EQ(FoldedLines("  a bc\nde fg\n\033[1mhi jk\033[0m\n", 4),
              "  a\n    bc\nde\n  fg\n\033[1mhi jk\033[0m\n");
}

TEST(OutputTest, OneThingIsNotSeveral)
{
    EXPECT_EQ(Counted(0, "item"), "0 items");
    EXPECT_EQ(Counted(1, "item"), "1 item");
    EXPECT_EQ(Counted(2, "item"), "2 items");
}

TEST(OutputTest, HeadAndRowsAreColouredWhereThatIsWanted)
{
    Table table({"A"});
    table.Add({"plain"});
    table.Add({"new"}, Table::Row::kStrong);
    table.Add({"bad"}, Table::Row::kAlarm);
    EXPECT_EQ(table.Text({0, true}), "\033[1mA\033[0m\nplain\n\033[1mnew\033[0m\n\033[31mbad\033[0m\n");
    EXPECT_EQ(table.Text({0, false}), "A\nplain\nnew\nbad\n");
}

TEST(OutputTest, ControlCharactersAndBadBytesDoNotReachATerminal)
{
    EXPECT_EQ(Printable("a\x1b[31m\nb"), "a [31m b");
    EXPECT_EQ(Printable("a\xFF"
                        "b"),
              "a\xEF\xBF\xBD"
              "b");
}

TEST(OutputTest, ATimeIsGivenInUtc)
{
    EXPECT_EQ(TimeText(0), "");
    EXPECT_EQ(TimeText(116'444'736'000'000'000), "1970-01-01T00:00:00Z");
    EXPECT_EQ(TimeText(FileTimeOf(std::chrono::sys_days(std::chrono::year(9999) / 12 / 31))),
              "9999-12-31T00:00:00Z");
}

}  // namespace

}  // namespace quorvane::host
