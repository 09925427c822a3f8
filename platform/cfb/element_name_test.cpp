#include "platform/cfb/element_name.h"

#include <gtest/gtest.h>

namespace quorvane::cfb {
namespace {

ElementName Name(LPCOLESTR text)
{
    ElementName name;
    EXPECT_EQ(S_OK, name.Assign(text));
    return name;
}

TEST(ElementNameTest, TheShorterNameComesFirst)
{
    EXPECT_LT(Name(OLESTR("zz")).Compare(Name(OLESTR("aaa"))), 0);
    EXPECT_GT(Name(OLESTR("aaa")).Compare(Name(OLESTR("zz"))), 0);
}

TEST(ElementNameTest, UpperAndLowerCaseAreTheSame)
{
    EXPECT_EQ(0, Name(OLESTR("MAPI_DATA")).Compare(Name(OLESTR("mapi_Data"))));
    EXPECT_LT(Name(OLESTR("a_")).Compare(Name(OLESTR("B_"))), 0);
    // Between upper and lower case lies the underscore: letters count as upper case.
    EXPECT_GT(Name(OLESTR("__")).Compare(Name(OLESTR("_z"))), 0);
}

TEST(ElementNameTest, ComparesWithTheBytesOfAnEntry)
{
    const BYTE units[] = {'a', 0, 'B', 0};
    EXPECT_EQ(0, Name(OLESTR("Ab")).CompareRaw(units, 2));
    EXPECT_GT(Name(OLESTR("ac")).CompareRaw(units, 2), 0);
    EXPECT_LT(Name(OLESTR("a")).CompareRaw(units, 2), 0);
    ElementName raw;
    raw.AssignRaw(units, 2);
    EXPECT_EQ(0, raw.Compare(Name(OLESTR("AB"))));
}

TEST(ElementNameTest, ForbiddenNamesAreRefused)
{
    ElementName name;
    EXPECT_EQ(STG_E_INVALIDPOINTER, name.Assign(nullptr));
    EXPECT_EQ(STG_E_INVALIDNAME, name.Assign(OLESTR("")));
    for (const OLECHAR unit : {'/', '\\', ':', '!'}) {
        const OLECHAR inIt[] = {'a', unit, 'b', 0};
        const OLECHAR alone[] = {unit, 0};
        EXPECT_EQ(STG_E_INVALIDNAME, name.Assign(inIt)) << unsigned{unit};
        EXPECT_EQ(STG_E_INVALIDNAME, name.Assign(alone)) << unsigned{unit};
    }
    EXPECT_EQ(STG_E_INVALIDNAME, name.Assign(OLESTR("12345678901234567890123456789012")));
}

TEST(ElementNameTest, AllOtherNamesAreTaken)
{
    ElementName name;
    EXPECT_EQ(S_OK, name.Assign(OLESTR("\005SummaryInformation")));
    EXPECT_EQ(S_OK, name.Assign(OLESTR("1234567890123456789012345678901")));
    EXPECT_EQ(kMaxName, name.Length());
    EXPECT_EQ(0, name.Text()[kMaxName]);
    for (unsigned unit = 1; unit < 0x100; ++unit) {
        const OLECHAR text[] = {static_cast<OLECHAR>(unit), 0};
        const bool forbidden = unit == '/' || unit == '\\' || unit == ':' || unit == '!';
        EXPECT_EQ(forbidden ? STG_E_INVALIDNAME : S_OK, name.Assign(text)) << unit;
    }
}

// As names of placed drafts are kept.
TEST(ElementNameTest, ComparesWithUnitsOfOneByte)
{
    const BYTE units[] = {'a', 'B', 0xE9};
    ElementName name;
    name.AssignNarrow(units, 3);
    EXPECT_EQ(3u, name.Length());
    EXPECT_EQ(0xE9, name.Text()[2]);
    EXPECT_EQ(0, name.CompareNarrow(units, 3));
    ASSERT_EQ(S_OK, name.Assign(OLESTR("Ab\u00C9")));
    EXPECT_EQ(0, name.CompareNarrow(units, 3));
    EXPECT_GT(name.CompareNarrow(units, 2), 0);
    ASSERT_EQ(S_OK, name.Assign(OLESTR("ab\u00EA")));
    EXPECT_GT(name.CompareNarrow(units, 3), 0);
    ASSERT_EQ(S_OK, name.Assign(OLESTR("aa\u00E9")));
    EXPECT_LT(name.CompareNarrow(units, 3), 0);
}

}  // namespace
}  // namespace quorvane::cfb
