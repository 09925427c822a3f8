#include "host/output.h"

#include <gtest/gtest.h>

#include "host/mailbox.h"

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
    EXPECT_EQ(Printable("a\xFF" "b"), "a\xEF\xBF\xBD" "b");
}

TEST(OutputTest, ATimeIsGivenInUtc)
{
    EXPECT_EQ(TimeText(0), "");
    EXPECT_EQ(TimeText(116'444'736'000'000'000), "1970-01-01T00:00:00Z");
}

TEST(MemberNameTest, OnlyNamesThatAreSafeAsPathsAreNames)
{
    for (const char* name : {"alice", "a.b-c_d@e", "X"})
        EXPECT_TRUE(IsMemberName(name)) << name;
    for (const char* name : {"", ".", "..", ".a", "a/b", "a b", "a\n", "ä", "a:b", "a~b"})
        EXPECT_FALSE(IsMemberName(name)) << name;
    EXPECT_FALSE(IsMemberName(std::string(65, 'a')));
}

}  // namespace

}  // namespace quorvane::host
