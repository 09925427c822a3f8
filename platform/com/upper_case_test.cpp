#include "platform/com/upper_case.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(UpperCaseTest, IsSimple)
{
    EXPECT_EQ(0x00C4, UpperUnit(0x00E4));
    EXPECT_EQ(0x0178, UpperUnit(0x00FF));
    EXPECT_EQ(0x0100, UpperUnit(0x0101));
    EXPECT_EQ(0x0100, UpperUnit(0x0100));
    EXPECT_EQ(0x03A9, UpperUnit(0x03C9));
    EXPECT_EQ(0x00DF, UpperUnit(0x00DF));  // no single unit
    EXPECT_EQ(0x0131, UpperUnit(0x0131));  // its upper case is ASCII
    EXPECT_EQ(0xD801, UpperUnit(0xD801));
}

}  // namespace
}  // namespace quorvane
