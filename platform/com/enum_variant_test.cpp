#include "platform/com/enum_variant.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

class EnumVariantTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::vector<Variant> values;
        for (LONG i = 1; i <= 3; ++i)
            values.push_back(Variant::Long(i));
        ASSERT_EQ(CEnumVariant::Create(std::move(values), enumerator.Put()), S_OK);
    }

    ComPtr<IEnumVARIANT> enumerator;
    VARIANT elements[4]{};
    ULONG fetched = 99;
};

TEST_F(EnumVariantTest, NextGivesFewerAtTheEndAndSaysSo)
{
    EXPECT_EQ(enumerator->Next(2, elements, &fetched), S_OK);
    EXPECT_EQ(fetched, 2u);
    EXPECT_EQ(elements[1].lVal, 2);
    EXPECT_EQ(enumerator->Next(2, elements, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(elements[0].lVal, 3);
    EXPECT_EQ(enumerator->Next(1, elements, nullptr), S_FALSE);
}

TEST_F(EnumVariantTest, OnlyASingleElementMayComeWithoutACount)
{
    EXPECT_EQ(enumerator->Next(1, elements, nullptr), S_OK);
    EXPECT_EQ(enumerator->Next(2, elements, nullptr), E_POINTER);
}

TEST_F(EnumVariantTest, SkipStopsAtTheEndAndResetStartsAnew)
{
    EXPECT_EQ(enumerator->Skip(2), S_OK);
    EXPECT_EQ(enumerator->Skip(2), S_FALSE);
    EXPECT_EQ(enumerator->Reset(), S_OK);
    EXPECT_EQ(enumerator->Next(1, elements, &fetched), S_OK);
    EXPECT_EQ(elements[0].lVal, 1);
}

TEST_F(EnumVariantTest, APlaceForTheResultIsAlwaysNeeded)
{
    EXPECT_EQ(enumerator->Next(1, nullptr, &fetched), E_POINTER);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(enumerator->Clone(nullptr), E_POINTER);
    EXPECT_EQ(CEnumVariant::Create({}, static_cast<IUnknown**>(nullptr)), E_POINTER);
    EXPECT_EQ(CEnumVariant::Create({}, static_cast<IEnumVARIANT**>(nullptr)), E_POINTER);
}

TEST_F(EnumVariantTest, NothingIsEnumeratedOfNoValues)
{
    ASSERT_EQ(CEnumVariant::Create({}, enumerator.Put()), S_OK);

    EXPECT_EQ(enumerator->Next(1, elements, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(enumerator->Skip(0), S_OK);
}

TEST_F(EnumVariantTest, ACloneStartsWhereTheOriginalStandsAndGoesItsOwnWay)
{
    ASSERT_EQ(enumerator->Skip(1), S_OK);
    ComPtr<IEnumVARIANT> clone;
    ASSERT_EQ(enumerator->Clone(clone.Put()), S_OK);
    ASSERT_EQ(enumerator->Skip(2), S_OK);

    EXPECT_EQ(clone->Next(1, elements, &fetched), S_OK);
    EXPECT_EQ(elements[0].lVal, 2);
}

TEST_F(EnumVariantTest, TheCallerOwnsTextsThatItGets)
{
    std::vector<Variant> values;
    values.push_back(Variant::Text(OLESTR("text")));
    ComPtr<IUnknown> unknown;
    ASSERT_EQ(CEnumVariant::Create(std::move(values), unknown.Put()), S_OK);
    ComPtr<IEnumVARIANT> texts;
    ASSERT_EQ(unknown.As(texts), S_OK);
    ASSERT_EQ(texts->Next(1, elements, &fetched), S_OK);
    texts.Reset();
    unknown.Reset();

    EXPECT_EQ(ViewOf(elements[0].bstrVal), OLESTR("text"));
    VariantClear(&elements[0]);
}

}  // namespace
}  // namespace quorvane
