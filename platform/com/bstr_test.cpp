#include "platform/com/bstr.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(BstrTest, TheByteLengthIsExactEvenWhenItIsOdd)
{
    const Bstr text = Bstr::Attach(SysAllocStringByteLen("abc", 3));

    EXPECT_EQ(SysStringByteLen(text.Get()), 3u);
    EXPECT_EQ(SysStringLen(text.Get()), 1u);
    EXPECT_EQ(text.Get()[1] >> 8, 0) << "the half character is filled up with zero";
    EXPECT_EQ(text.Get()[2], 0) << "and a whole zero character follows";
}

TEST(BstrTest, ATextKeepsZerosInsideIt)
{
    const OLECHAR units[] = {'a', 0, 'b'};
    const Bstr text(OleStringView(units, 3));

    EXPECT_EQ(text.Length(), 3u);
    EXPECT_EQ(text.View()[2], OLESTR('b'));
    EXPECT_EQ(text.Get()[3], 0);
}

TEST(BstrTest, NullHasNoLengthAndMayBeFreed)
{
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    EXPECT_EQ(SysStringByteLen(nullptr), 0u);
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    SysFreeString(nullptr);
}

TEST(BstrTest, AnAllocationWithoutContentsIsZeroed)
{
    const Bstr text = Bstr::Attach(SysAllocStringLen(nullptr, 4));

    EXPECT_EQ(text.View(), OleString(4, 0));
}

TEST(BstrTest, ALengthThatNoBstrCanHaveIsRefused)
{
    EXPECT_EQ(SysAllocStringLen(nullptr, 0xFFFFFFFFu), nullptr);
    EXPECT_EQ(SysAllocStringByteLen(nullptr, 0xFFFFFFFFu), nullptr);
}

TEST(BstrTest, ReallocationReplacesTheText)
{
    Bstr text(OLESTR("old"));

    EXPECT_EQ(SysReAllocString(text.Put(), OLESTR("new text")), TRUE);

    EXPECT_EQ(text.View(), OLESTR("new text"));
}

TEST(BstrTest, CopiesTellNullFromEmpty)
{
    const Bstr none;
    const Bstr empty{OleStringView()};
    Bstr noneCopy(OLESTR("x"));
    Bstr emptyCopy;

    EXPECT_EQ(none.CopyTo(noneCopy.Put()), S_OK);
    EXPECT_EQ(empty.CopyTo(emptyCopy.Put()), S_OK);

    EXPECT_TRUE(noneCopy.IsNull());
    EXPECT_FALSE(emptyCopy.IsNull());
    EXPECT_TRUE(emptyCopy.IsEmpty());
}

TEST(TextTest, TextSurvivesTheAnsiCodePage)
{
    EXPECT_EQ(Widen(Narrow(OLESTR("a\u00E9"))), OLESTR("a\u00E9"));
}

}  // namespace
}  // namespace quorvane
