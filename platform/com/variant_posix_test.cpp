// Where the functions of this library are stricter, or of another form, than the same ones of Windows.
#include "platform/com/variant.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/com/variant_for_test.h"

namespace quorvane {
namespace {

Variant Date(DATE date)
{
    Variant value = OfType(VT_DATE);
    value.Raw().date = date;
    return value;
}

TEST(VariantTest, CopyIndRefusesAReferenceToAReferenceAndOneToNothing)
{
    VARIANT outer{};
    VARIANT inner{};
    outer.vt = inner.vt = VT_BYREF | VT_VARIANT;
    outer.pvarVal = &inner;
    inner.pvarVal = &outer;
    VARIANT toNothing{};
    toNothing.vt = VT_BYREF | VT_BSTR;
    Variant copy;

    EXPECT_EQ(VariantCopyInd(&copy.Raw(), &outer), E_INVALIDARG);
    EXPECT_EQ(VariantCopyInd(&copy.Raw(), &toNothing), E_INVALIDARG);
}

TEST(VariantConversionTest, OutsideOfTheRangeIsAnOverflowAndChangesNothing)
{
    Variant big = Variant::Long(70000);
    Variant negative = Variant::Long(-1);
    Variant real = Variant::Double(1e300);

    EXPECT_EQ(ToType(big, VT_I2), DISP_E_OVERFLOW);
    EXPECT_EQ(ToType(negative, VT_UI4), DISP_E_OVERFLOW);
    EXPECT_EQ(ToType(real, VT_I8), DISP_E_OVERFLOW);
    EXPECT_EQ(ToType(real, VT_R4), DISP_E_OVERFLOW);

    EXPECT_TRUE(big.Is(VT_I4));
    EXPECT_EQ(big.Raw().lVal, 70000);
}

TEST(VariantConversionTest, TextThatIsNoNumberIsAMismatchAndATooLargeOneAnOverflow)
{
    for (const OLECHAR* text : {OLESTR(""), OLESTR("12x"), OLESTR("inf"), OLESTR("nan"), OLESTR("--1"),
                                OLESTR("0x10"), OLESTR("1 2"), OLESTR("-"), OLESTR("+-1")}) {
        Variant value = Variant::Text(text);
        EXPECT_EQ(ToType(value, VT_I4), DISP_E_TYPEMISMATCH) << Narrow(text);
    }
    Variant large = Variant::Text(OLESTR("99999999999"));
    Variant beyondReals = Variant::Text(OLESTR("1e999"));
    EXPECT_EQ(ToType(large, VT_I4), DISP_E_OVERFLOW);
    EXPECT_EQ(ToType(beyondReals, VT_R8), DISP_E_OVERFLOW);
}

TEST(VariantConversionTest, DatesAreWrittenFromTheYearDownAndReadBack)
{
    EXPECT_EQ(AsText(Date(40451.0)), OLESTR("2010-09-30"));
    EXPECT_EQ(AsText(Date(40451.5)), OLESTR("2010-09-30 12:00:00"));
    EXPECT_EQ(AsText(Date(0.25)), OLESTR("06:00:00"));

    Variant text = Variant::Text(OLESTR("2010-09-30T12:00"));
    ASSERT_EQ(ToType(text, VT_DATE), S_OK);
    EXPECT_EQ(text.Raw().date, 40451.5);
    Variant number = Variant::Long(3000000);
    EXPECT_EQ(ToType(number, VT_DATE), DISP_E_OVERFLOW);
    Variant noDate = Variant::Text(OLESTR("2010-02-30"));
    EXPECT_EQ(ToType(noDate, VT_DATE), DISP_E_TYPEMISMATCH);
}

}  // namespace
}  // namespace quorvane
