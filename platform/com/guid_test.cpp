#include <gtest/gtest.h>

#include <string>

#include "platform/com/com.h"

namespace quorvane {
namespace {

TEST(GuidTest, TheTextHasBracesAndCapitals)
{
    OLECHAR text[39];

    EXPECT_EQ(StringFromGUID2(IID_IStream, text, 39), 39);

    EXPECT_EQ(OleString(text), OLESTR("{0000000C-0000-0000-C000-000000000046}"));
}

TEST(GuidTest, EveryByteHasItsPlace)
{
    const GUID guid = {0x01234567, 0x89AB, 0xCDEF, {0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE}};
    OLECHAR text[39];
    ASSERT_EQ(StringFromGUID2(guid, text, 39), 39);

    EXPECT_EQ(OleString(text), OLESTR("{01234567-89AB-CDEF-1032-547698BADCFE}"));
    CLSID back{};
    EXPECT_EQ(CLSIDFromString(OLESTR("{01234567-89ab-cdef-1032-547698badcfe}"), &back), S_OK);
    EXPECT_TRUE(IsEqualGUID(back, guid));
}

TEST(GuidTest, ATooShortBufferGetsNothing)
{
    OLECHAR text[38] = {OLESTR('x')};

    EXPECT_EQ(StringFromGUID2(IID_IStream, text, 38), 0);
    EXPECT_EQ(text[0], OLESTR('x'));
}

TEST(GuidTest, NewIdentifiersAreRandomOnes)
{
    GUID first{};
    GUID second{};

    ASSERT_EQ(CoCreateGuid(&first), S_OK);
    ASSERT_EQ(CoCreateGuid(&second), S_OK);

    EXPECT_FALSE(IsEqualGUID(first, second));
    EXPECT_EQ(first.Data3 >> 12, 4) << "version 4";
    EXPECT_EQ(first.Data4[0] >> 6, 2) << "variant 1";
}

}  // namespace
}  // namespace quorvane
