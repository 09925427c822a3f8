#include "engine/session/options/options.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

class OptionsTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(options);
        ASSERT_EQ(options->Add(kIgnoreModificationTimeChanges, Variant::Bool(true).Raw()), S_OK);
        ASSERT_EQ(options->Add(kNoListeners, Variant::Long(0).Raw()), S_OK);
    }

    ComPtr<IOption> OptionAt(const Variant& index)
    {
        Variant item;
        EXPECT_EQ(options->get_Item(index.Raw(), item.Put()), S_OK);
        ComPtr<IOption> option;
        EXPECT_EQ(QueryFor(item.Is(VT_DISPATCH) ? item.Raw().pdispVal : nullptr, option), S_OK);
        return option;
    }

    OleString NameAt(LONG position)
    {
        Bstr name;
        EXPECT_EQ(OptionAt(Variant::Long(position))->get_Name(name.Put()), S_OK);
        return OleString(name.View());
    }

    const ComPtr<COptions> options = MakeComObject<COptions>();
};

TEST_F(OptionsTest, CountIsTheNumberOfOptions)
{
    LONG count = 0;
    EXPECT_EQ(options->get_Count(&count), S_OK);
    EXPECT_EQ(count, 2);
}

TEST_F(OptionsTest, PositionsFollowTheNames)
{
    EXPECT_EQ(NameAt(1), kIgnoreModificationTimeChanges);
    EXPECT_EQ(NameAt(2), kNoListeners);
}

TEST_F(OptionsTest, PositionsFollowTheNamesWhateverTheOrderOfAdding)
{
    ASSERT_EQ(options->Add(OLESTR("Alpha"), Variant::Long(1).Raw()), S_OK);

    EXPECT_EQ(NameAt(1), OLESTR("Alpha"));
}

TEST_F(OptionsTest, ANumberAsTextIsAName)
{
    Variant item;
    EXPECT_EQ(options->get_Item(Variant::Text(OLESTR("1")).Raw(), item.Put()), E_FAIL);
    EXPECT_TRUE(item.Is(VT_EMPTY));
}

TEST_F(OptionsTest, AnUnknownNameFails)
{
    Variant item;
    EXPECT_EQ(options->get_Item(Variant::Text(OLESTR("nolisteners")).Raw(), item.Put()), E_FAIL);
}

TEST_F(OptionsTest, PositionsOutsideFail)
{
    Variant item;
    EXPECT_EQ(options->get_Item(Variant::Long(0).Raw(), item.Put()), E_INVALIDARG);
    EXPECT_EQ(options->get_Item(Variant::Long(3).Raw(), item.Put()), E_FAIL);
}

TEST_F(OptionsTest, AnIndexThatIsNoNumberFailsAsItsChangeDoes)
{
    Variant item;
    EXPECT_EQ(options->get_Item(Variant::Missing().Raw(), item.Put()), DISP_E_TYPEMISMATCH);
}

TEST_F(OptionsTest, AValueOfAnotherTypeIsAccepted)
{
    const auto option = OptionAt(Variant::Text(kNoListeners));
    EXPECT_EQ(option->put_Value(Variant::Text(OLESTR("yes")).Raw()), S_OK);

    Variant value;
    EXPECT_EQ(option->get_Value(value.Put()), S_OK);
    ASSERT_TRUE(value.Is(VT_BSTR));
    EXPECT_EQ(ViewOf(value.Raw().bstrVal), OLESTR("yes"));
}

TEST_F(OptionsTest, TheEnumeratorGivesTheOptionsByName)
{
    ComPtr<IUnknown> unknown;
    ASSERT_EQ(options->get__NewEnum(unknown.Put()), S_OK);
    ComPtr<IEnumVARIANT> enumerator;
    ASSERT_EQ(unknown.As(enumerator), S_OK);
    VARIANT values[3];
    ULONG fetched = 0;

    EXPECT_EQ(enumerator->Next(3, values, &fetched), S_FALSE);
    ASSERT_EQ(fetched, 2u);
    ComPtr<IOption> first;
    EXPECT_EQ(QueryFor(values[0].pdispVal, first), S_OK);
    EXPECT_EQ(first, OptionAt(Variant::Long(1)));
    VariantClear(&values[0]);
    VariantClear(&values[1]);
}

TEST_F(OptionsTest, OptionsAnswerLateBoundCalls)
{
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(options.As(dispatch), S_OK);
    Variant count;
    ASSERT_EQ(InvokeById(dispatch.Get(), kDispidCount, DISPATCH_PROPERTYGET, {}, &count), S_OK);

    EXPECT_EQ(count.Raw().lVal, 2);
}

class BooleanOptionTest : public OptionsTest {
protected:
    HRESULT Read(const Variant& value, bool& isTrue)
    {
        EXPECT_EQ(OptionAt(Variant::Text(kNoListeners))->put_Value(value.Raw()), S_OK);
        return ReadBooleanOption(options.Get(), kNoListeners, isTrue);
    }
    bool Read(const Variant& value)
    {
        bool isTrue = false;
        EXPECT_EQ(Read(value, isTrue), S_OK);
        return isTrue;
    }
};

TEST_F(BooleanOptionTest, ValuesThatChangeToTrueAreTrue)
{
    EXPECT_TRUE(Read(Variant::Bool(true)));
    EXPECT_TRUE(Read(Variant::Long(1)));
    EXPECT_TRUE(Read(Variant::Text(OLESTR("True"))));
}

TEST_F(BooleanOptionTest, ZeroIsFalse)
{
    EXPECT_FALSE(Read(Variant::Long(0)));
    EXPECT_FALSE(Read(Variant::Bool(false)));
}

TEST_F(BooleanOptionTest, ABooleanThatIsTrueByAnotherValueIsNot)
{
    Variant odd = Variant::Bool(true);
    odd.Raw().boolVal = 1;

    EXPECT_FALSE(Read(odd));
}

TEST_F(BooleanOptionTest, AValueThatIsNoBooleanFails)
{
    bool isTrue = true;
    EXPECT_EQ(Read(Variant::Text(OLESTR("perhaps")), isTrue), DISP_E_TYPEMISMATCH);
    EXPECT_TRUE(isTrue);
}

TEST_F(BooleanOptionTest, AnOptionThatIsNotThereFails)
{
    bool isTrue = false;
    EXPECT_EQ(ReadBooleanOption(options.Get(), kUpdateReadStatus, isTrue), E_FAIL);
    EXPECT_EQ(ReadBooleanOption(nullptr, kNoListeners, isTrue), E_POINTER);
}

}  // namespace
}  // namespace quorvane
