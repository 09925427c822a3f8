#include "host/base/output.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

TEST(OutputTest, ATableAlignsItsColumns)
{
    Table table({"NAME", "N"});
    table.Add({"ä", "1"});
    table.Add({"longer", "22"});

    EXPECT_EQ(table.Text(), "NAME    N\nä       1\nlonger  22\n");
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
}

}  // namespace

}  // namespace quorvane::host
