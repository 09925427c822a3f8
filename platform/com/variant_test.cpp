#include "platform/com/variant.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/com/com_object.h"
#include "platform/com/safe_array.h"
#include "platform/com/variant_for_test.h"
#include "platform/testing/unimplemented_dispatch.h"

namespace quorvane {
namespace {

// An automation object whose default property is a number.
class CValued final : public ComObject<CValued, test::UnimplementedDispatch> {
public:
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS*, VARIANT* result, EXCEPINFO*,
                                     UINT*) override
    {
        if (id != DISPID_VALUE)
            return DISP_E_MEMBERNOTFOUND;
        *result = Variant::Long(17).Detach();
        return S_OK;
    }
};

TEST(VariantTest, ClearingFreesWhatIsHeld)
{
    const auto object = MakeComObject<CPlain>();
    Variant value = Variant::Unknown(object.Get());

    EXPECT_EQ(ReferencesOf(object.Get()), 2u);
    EXPECT_EQ(VariantClear(&value.Raw()), S_OK);

    EXPECT_EQ(ReferencesOf(object.Get()), 1u);
    EXPECT_TRUE(value.Is(VT_EMPTY));
}

TEST(VariantTest, AnUnknownTypeIsNeitherClearedNorCopied)
{
    VARIANT value{};
    value.vt = 77;
    Variant copy;

    EXPECT_EQ(VariantClear(&value), DISP_E_BADVARTYPE);
    EXPECT_EQ(VariantCopy(&copy.Raw(), &value), DISP_E_BADVARTYPE);
}

TEST(VariantTest, ACopyHasATextOfItsOwn)
{
    const Variant text = Variant::Text(OLESTR("text"));
    Variant copy;

    EXPECT_EQ(copy.Assign(text.Raw()), S_OK);

    EXPECT_NE(copy.Raw().bstrVal, text.Raw().bstrVal);
    EXPECT_EQ(ViewOf(copy.Raw().bstrVal), OLESTR("text"));
}

TEST(VariantTest, CopyIndFollowsEveryKindOfReference)
{
    LONG number = 5;
    VARIANT toNumber{};
    toNumber.vt = VT_BYREF | VT_I4;
    toNumber.plVal = &number;
    VARIANT toVariant{};
    toVariant.vt = VT_BYREF | VT_VARIANT;
    toVariant.pvarVal = &toNumber;
    Variant copy;

    EXPECT_EQ(VariantCopyInd(&copy.Raw(), &toVariant), S_OK);

    EXPECT_TRUE(copy.Is(VT_I4));
    EXPECT_EQ(copy.Raw().lVal, 5);
}

TEST(VariantTest, CopyIndInPlaceTurnsAReferenceIntoItsValue)
{
    const Bstr text(OLESTR("kept"));
    BSTR held = text.Get();
    Variant value = OfType(VT_BYREF | VT_BSTR);
    value.Raw().pbstrVal = &held;

    EXPECT_EQ(VariantCopyInd(&value.Raw(), &value.Raw()), S_OK);

    EXPECT_TRUE(value.Is(VT_BSTR));
    EXPECT_EQ(ViewOf(value.Raw().bstrVal), OLESTR("kept"));
}

TEST(VariantTest, ACopyOfANullTextIsANullText)
{
    Variant held = OfType(VT_BSTR);
    VARIANT toText{};
    toText.vt = VT_BYREF | VT_BSTR;
    toText.pbstrVal = &held.Raw().bstrVal;
    VARIANT toVariant{};
    toVariant.vt = VT_BYREF | VT_VARIANT;
    toVariant.pvarVal = &held.Raw();
    for (const VARIANT& source : {held.Raw(), toText, toVariant}) {
        Variant copy = Variant::Long(5);

        EXPECT_EQ(copy.Assign(source), S_OK);

        EXPECT_TRUE(copy.Is(VT_BSTR));
        EXPECT_EQ(copy.Raw().bstrVal, nullptr);
    }
}

TEST(VariantConversionTest, IntegersKeepTheirValueWithinTheRange)
{
    Variant value = Variant::Long(-7);

    EXPECT_EQ(ToType(value, VT_I2), S_OK);
    EXPECT_EQ(value.Raw().iVal, -7);
    EXPECT_EQ(ToType(value, VT_I8), S_OK);
    EXPECT_EQ(value.Raw().llVal, -7);
    EXPECT_EQ(ToType(value, VT_R8), S_OK);
    EXPECT_EQ(value.Raw().dblVal, -7.0);
}

TEST(VariantConversionTest, AHalfIsRoundedToTheEvenNeighbour)
{
    Variant down = Variant::Double(2.5);
    Variant up = Variant::Double(3.5);

    ASSERT_EQ(ToType(down, VT_I4), S_OK);
    ASSERT_EQ(ToType(up, VT_I4), S_OK);

    EXPECT_EQ(down.Raw().lVal, 2);
    EXPECT_EQ(up.Raw().lVal, 4);
}

TEST(VariantConversionTest, UnsignedNumbersKeepTheirUpperHalf)
{
    Variant value = Variant::ULong(0xFFFFFFFF);
    Variant text = Variant::Text(OLESTR("4294967295"));

    EXPECT_EQ(AsText(std::move(value)), OLESTR("4294967295"));
    EXPECT_EQ(ToType(text, VT_UI4), S_OK);
    EXPECT_EQ(text.Raw().ulVal, 0xFFFFFFFFu);
}

TEST(VariantConversionTest, TextIsReadAsANumber)
{
    Variant integer = Variant::Text(OLESTR(" -12 "));
    Variant real = Variant::Text(OLESTR("1.5e3"));

    ASSERT_EQ(ToType(integer, VT_I4), S_OK);
    ASSERT_EQ(ToType(real, VT_R8), S_OK);

    EXPECT_EQ(integer.Raw().lVal, -12);
    EXPECT_EQ(real.Raw().dblVal, 1500.0);
}

TEST(VariantConversionTest, TruthComesFromItsNamesAndFromNumbers)
{
    for (const auto& [text, expected] : {std::pair(OLESTR("True"), VARIANT_TRUE),
                                         {OLESTR("FALSE"), VARIANT_FALSE},
                                         {OLESTR("0"), VARIANT_FALSE},
                                         {OLESTR("2"), VARIANT_TRUE}}) {
        Variant value = Variant::Text(text);
        ASSERT_EQ(ToType(value, VT_BOOL), S_OK);
        EXPECT_EQ(value.Raw().boolVal, expected) << Narrow(text);
    }
    Variant number = Variant::Long(-5);
    ASSERT_EQ(ToType(number, VT_BOOL), S_OK);
    EXPECT_EQ(number.Raw().boolVal, VARIANT_TRUE);
    Variant other = Variant::Text(OLESTR("yes"));
    EXPECT_EQ(ToType(other, VT_BOOL), DISP_E_TYPEMISMATCH);
}

TEST(VariantConversionTest, TruthBecomesMinusOneAndInWordsOnRequest)
{
    Variant number = Variant::Bool(true);
    Variant byte = Variant::Bool(true);

    ASSERT_EQ(ToType(number, VT_I4), S_OK);
    ASSERT_EQ(ToType(byte, VT_UI1), S_OK);

    EXPECT_EQ(number.Raw().lVal, -1);
    EXPECT_EQ(byte.Raw().bVal, 255);
    EXPECT_EQ(AsText(Variant::Bool(true)), OLESTR("-1"));
    EXPECT_EQ(AsText(Variant::Bool(true), VARIANT_ALPHABOOL), OLESTR("True"));
    EXPECT_EQ(AsText(Variant::Bool(false), VARIANT_ALPHABOOL), OLESTR("False"));
}

TEST(VariantConversionTest, NumbersAreWrittenWithoutALocale)
{
    EXPECT_EQ(AsText(Variant::Double(0.5)), OLESTR("0.5"));
    EXPECT_EQ(AsText(Variant::Double(100000)), OLESTR("100000"));
    EXPECT_EQ(AsText(Variant::Double(1e20)), OLESTR("1E+20"));
    EXPECT_EQ(AsText(Variant::Long(-3)), OLESTR("-3"));
    EXPECT_EQ(AsText(Variant()), OLESTR(""));
}

TEST(VariantConversionTest, CurrencyHasFourDecimals)
{
    Variant value = Variant::Double(12.3456);
    ASSERT_EQ(ToType(value, VT_CY), S_OK);

    EXPECT_EQ(value.Raw().cyVal.int64, 123456);
    EXPECT_EQ(AsText(std::move(value)), OLESTR("12.3456"));
    Variant debt = Variant::Double(-0.5);
    ASSERT_EQ(ToType(debt, VT_CY), S_OK);
    EXPECT_EQ(AsText(std::move(debt)), OLESTR("-0.5"));
}

TEST(VariantConversionTest, AnErrorAndNullAreNothingElse)
{
    Variant missing = Variant::Missing();
    Variant null = OfType(VT_NULL);

    EXPECT_EQ(ToType(missing, VT_I4), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(ToType(missing, VT_BSTR), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(ToType(null, VT_BSTR), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(missing.Raw().scode, DISP_E_PARAMNOTFOUND);
}

TEST(VariantConversionTest, ObjectsAreAskedForTheOtherInterface)
{
    const auto plain = MakeComObject<CPlain>();
    const auto valued = MakeComObject<CValued>();
    Variant unknown = Variant::Unknown(valued.Get());
    Variant noDispatch = Variant::Unknown(plain.Get());
    Variant nothing = Variant::Unknown(nullptr);

    EXPECT_EQ(ToType(unknown, VT_DISPATCH), S_OK);
    EXPECT_EQ(unknown.Raw().pdispVal, valued.Get());
    EXPECT_EQ(ToType(noDispatch, VT_DISPATCH), E_NOINTERFACE);
    EXPECT_EQ(ToType(nothing, VT_DISPATCH), S_OK);
    EXPECT_EQ(nothing.Raw().pdispVal, nullptr);
}

TEST(VariantConversionTest, AnObjectStandsForItsDefaultProperty)
{
    const auto valued = MakeComObject<CValued>();
    Variant value = Variant::Dispatch(valued.Get());

    ASSERT_EQ(ToType(value, VT_I4), S_OK);

    EXPECT_EQ(value.Raw().lVal, 17);
    EXPECT_EQ(ReferencesOf(valued.Get()), 1u);
}

TEST(VariantConversionTest, AnArrayIsNoOtherType)
{
    ULongArrayBuilder builder;
    SafeArray array;
    ASSERT_EQ(builder.Append(1), S_OK);
    ASSERT_EQ(builder.Take(array), S_OK);
    Variant value = array.DetachAsVariant();

    EXPECT_EQ(ToType(value, VT_BSTR), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(ToType(value, VT_ARRAY | VT_UI4), S_OK);
}

TEST(VariantConversionTest, TheFullRangeOfLargeIntegersSurvivesText)
{
    Variant least = OfType(VT_I8);
    least.Raw().llVal = std::numeric_limits<LONGLONG>::min();
    Variant most = OfType(VT_UI8);
    most.Raw().ullVal = std::numeric_limits<ULONGLONG>::max();

    ASSERT_EQ(ToType(least, VT_BSTR), S_OK);
    ASSERT_EQ(ToType(most, VT_BSTR), S_OK);
    EXPECT_EQ(ViewOf(least.Raw().bstrVal), OLESTR("-9223372036854775808"));
    EXPECT_EQ(ViewOf(most.Raw().bstrVal), OLESTR("18446744073709551615"));
    ASSERT_EQ(ToType(least, VT_I8), S_OK);
    EXPECT_EQ(least.Raw().llVal, std::numeric_limits<LONGLONG>::min());
}

}  // namespace
}  // namespace quorvane
