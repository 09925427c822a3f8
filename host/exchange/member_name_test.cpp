#include "host/exchange/member_name.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

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
