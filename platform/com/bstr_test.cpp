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

TEST(TextTest, EveryKindOfCharacterSurvivesUtf8)
{
    const OleString text = OLESTR("a\u00E9\u20AC\U0001F4E7");

    EXPECT_EQ(ToUtf8(text), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x93\xA7");
    EXPECT_EQ(FromUtf8(ToUtf8(text)), text);
    EXPECT_EQ(Widen(Narrow(OLESTR("a\u00E9"))), OLESTR("a\u00E9"));
}

TEST(TextTest, ALoneSurrogateBecomesTheReplacementCharacter)
{
    const OLECHAR high[] = {'x', 0xD83D, 'y'};
    const OLECHAR low[] = {0xDCE7};

    EXPECT_EQ(ToUtf8(OleStringView(high, 3)), "x\xEF\xBF\xBDy");
    EXPECT_EQ(ToUtf8(OleStringView(low, 1)), "\xEF\xBF\xBD");
}

struct Malformed {
    std::string_view bytes;
    size_t replacements;
};

class MalformedUtf8Test : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedUtf8Test, EachByteThatBeginsNoCharacterIsReplaced)
{
    const OleString expected = OleString(GetParam().replacements, 0xFFFD) + OLESTR("z");

    EXPECT_EQ(FromUtf8(std::string(GetParam().bytes) + "z"), expected);
}

INSTANTIATE_TEST_SUITE_P(Sequences, MalformedUtf8Test,
                         testing::Values(Malformed{"\x80", 1}, Malformed{"\xC3", 1}, Malformed{"\xC0\xAF", 2},
                                         Malformed{"\xE0\x80\x80", 3}, Malformed{"\xED\xA0\x80", 3},
                                         Malformed{"\xF4\x90\x80\x80", 4}, Malformed{"\xFF", 1},
                                         Malformed{"\xE2\x82", 2}));

}  // namespace
}  // namespace quorvane
