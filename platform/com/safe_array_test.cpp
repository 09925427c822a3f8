#include "platform/com/safe_array.h"

#include <gtest/gtest.h>

#include "platform/com/variant_for_test.h"

namespace quorvane {
namespace {

TEST(SafeArrayTest, ElementsAreFoundByTheirIndicesInEveryDimension)
{
    SAFEARRAYBOUND bounds[] = {{2, 1}, {3, -1}};
    const SafeArray array = SafeArray::Attach(SafeArrayCreate(VT_I4, 2, bounds));
    ASSERT_TRUE(array);
    for (LONG row = 1; row <= 2; ++row) {
        for (LONG column = -1; column <= 1; ++column) {
            LONG indices[] = {row, column};
            LONG value = row * 10 + column;
            ASSERT_EQ(SafeArrayPutElement(array.Get(), indices, &value), S_OK);
        }
    }

    LONG value = 0;
    LONG indices[] = {2, -1};
    EXPECT_EQ(SafeArrayGetElement(array.Get(), indices, &value), S_OK);
    EXPECT_EQ(value, 19);
    EXPECT_EQ(static_cast<LONG*>(array.Get()->pvData)[1], 19) << "the leftmost index varies fastest";
    LONG lower = 0;
    LONG upper = 0;
    EXPECT_EQ(SafeArrayGetLBound(array.Get(), 2, &lower), S_OK);
    EXPECT_EQ(SafeArrayGetUBound(array.Get(), 2, &upper), S_OK);
    EXPECT_EQ(lower, -1);
    EXPECT_EQ(upper, 1);
}

TEST(SafeArrayTest, AnIndexOutsideOfTheBoundsIsRefused)
{
    const SafeArray array = SafeArray::Attach(SafeArrayCreateVector(VT_UI1, 5, 2));
    BYTE value = 0;
    for (LONG index : {4, 7, -2147483647}) {
        EXPECT_EQ(SafeArrayGetElement(array.Get(), &index, &value), DISP_E_BADINDEX);
        EXPECT_EQ(SafeArrayPutElement(array.Get(), &index, &value), DISP_E_BADINDEX);
    }
    LONG bound = 0;
    EXPECT_EQ(SafeArrayGetLBound(array.Get(), 0, &bound), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetUBound(array.Get(), 2, &bound), DISP_E_BADINDEX);
}

TEST(SafeArrayTest, ACopyOwnsItsTextsAndReferences)
{
    const auto object = MakeComObject<CPlain>();
    const SafeArray array = SafeArray::Attach(SafeArrayCreateVector(VT_VARIANT, 0, 2));
    LONG index = 0;
    ASSERT_EQ(SafeArrayPutElement(array.Get(), &index, &Variant::Text(OLESTR("text")).Raw()), S_OK);
    index = 1;
    ASSERT_EQ(SafeArrayPutElement(array.Get(), &index, &Variant::Unknown(object.Get()).Raw()), S_OK);
    EXPECT_EQ(ReferencesOf(object.Get()), 2u);

    SafeArray copy;
    ASSERT_EQ(copy.Assign(array.Get()), S_OK);
    EXPECT_EQ(ReferencesOf(object.Get()), 3u);
    copy.Reset();

    EXPECT_EQ(ReferencesOf(object.Get()), 2u);
}

TEST(SafeArrayTest, ALockedArrayIsNeitherDestroyedNorResized)
{
    const SafeArray array = SafeArray::Attach(SafeArrayCreateVector(VT_I4, 0, 1));
    SAFEARRAYBOUND bound{2, 0};
    ASSERT_EQ(SafeArrayLock(array.Get()), S_OK);

    EXPECT_EQ(SafeArrayDestroy(array.Get()), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(SafeArrayRedim(array.Get(), &bound), DISP_E_ARRAYISLOCKED);

    EXPECT_EQ(SafeArrayUnlock(array.Get()), S_OK);
    EXPECT_EQ(SafeArrayUnlock(array.Get()), E_UNEXPECTED);
}

TEST(SafeArrayTest, ShrinkingReleasesAndGrowingKeeps)
{
    const auto object = MakeComObject<CPlain>();
    const SafeArray array = SafeArray::Attach(SafeArrayCreateVector(VT_UNKNOWN, 0, 2));
    for (LONG index : {0, 1})
        ASSERT_EQ(SafeArrayPutElement(array.Get(), &index, object.Get()), S_OK);
    SAFEARRAYBOUND bound{1, 0};

    ASSERT_EQ(SafeArrayRedim(array.Get(), &bound), S_OK);
    EXPECT_EQ(ReferencesOf(object.Get()), 2u);
    bound.cElements = 5;
    ASSERT_EQ(SafeArrayRedim(array.Get(), &bound), S_OK);

    IUnknown* const* const elements = static_cast<IUnknown**>(array.Get()->pvData);
    EXPECT_EQ(elements[0], object.Get());
    EXPECT_EQ(elements[4], nullptr);
}

TEST(SafeArrayTest, PuttingATextReplacesTheOldOne)
{
    const SafeArray array = SafeArray::Attach(SafeArrayCreateVector(VT_BSTR, 0, 1));
    LONG index = 0;
    ASSERT_EQ(SafeArrayPutElement(array.Get(), &index, Bstr(OLESTR("first")).Get()), S_OK);

    ASSERT_EQ(SafeArrayPutElement(array.Get(), &index, Bstr(OLESTR("second")).Get()), S_OK);

    Bstr text;
    ASSERT_EQ(SafeArrayGetElement(array.Get(), &index, text.Put()), S_OK);
    EXPECT_EQ(text.View(), OLESTR("second"));
}

TEST(ArrayBuilderTest, ManyTextsComeOutInTheirOrderFromZeroOn)
{
    BstrArrayBuilder builder;
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(builder.Append(Widen(std::to_string(i))), S_OK);
    SafeArray array;
    ASSERT_EQ(builder.Take(array), S_OK);

    ArrayView<BSTR> view;
    ASSERT_EQ(view.Open(array.Get()), S_OK);
    LONG lower = -1;
    EXPECT_EQ(SafeArrayGetLBound(array.Get(), 1, &lower), S_OK);
    EXPECT_EQ(lower, 0);
    ASSERT_EQ(view.Count(), 100u);
    EXPECT_EQ(ViewOf(view.Elements()[42]), OLESTR("42"));
}

TEST(ArrayBuilderTest, NothingAppendedMakesAnEmptyArray)
{
    ULongArrayBuilder builder;
    SafeArray array;

    ASSERT_EQ(builder.Take(array), S_OK);

    ArrayView<ULONG> view;
    ASSERT_EQ(view.Open(array.Get()), S_OK);
    EXPECT_EQ(view.Count(), 0u);
}

TEST(ArrayBuilderTest, ABuilderStartsAnewAfterItsArrayWasTaken)
{
    ByteArrayBuilder builder;
    SafeArray first;
    SafeArray second;
    ASSERT_EQ(builder.Append(1), S_OK);
    ASSERT_EQ(builder.Take(first), S_OK);
    ASSERT_EQ(builder.Append(2), S_OK);
    ASSERT_EQ(builder.Take(second), S_OK);

    ArrayView<BYTE> view;
    ASSERT_EQ(view.Open(second.Get()), S_OK);
    ASSERT_EQ(view.Count(), 1u);
    EXPECT_EQ(view.Elements()[0], 2);
}

TEST(ArrayBuilderTest, VariantsAreCopied)
{
    VariantArrayBuilder builder;
    ASSERT_EQ(builder.Append(Variant::Text(OLESTR("x")).Raw()), S_OK);
    ASSERT_EQ(builder.Append(Variant::Long(3).Raw()), S_OK);
    SafeArray array;
    ASSERT_EQ(builder.Take(array), S_OK);
    Variant holder = array.DetachAsVariant();
    VARIANT reference{};
    reference.vt = VT_BYREF | VT_VARIANT;
    reference.pvarVal = &holder.Raw();

    ArrayView<VARIANT> view;
    ASSERT_EQ(view.Open(reference), S_OK);
    ASSERT_EQ(view.Count(), 2u);
    EXPECT_EQ(ViewOf(view.Elements()[0].bstrVal), OLESTR("x"));
    EXPECT_EQ(view.Elements()[1].lVal, 3);
}

TEST(ArrayViewTest, AnotherElementTypeOrShapeIsRefused)
{
    SAFEARRAYBOUND bounds[] = {{1, 0}, {1, 0}};
    const SafeArray flat = SafeArray::Attach(SafeArrayCreateVector(VT_I4, 0, 1));
    const SafeArray square = SafeArray::Attach(SafeArrayCreate(VT_UI4, 2, bounds));
    ArrayView<ULONG> view;

    EXPECT_EQ(view.Open(flat.Get()), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(view.Open(square.Get()), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(view.Open(static_cast<SAFEARRAY*>(nullptr)), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(view.Open(Variant::Long(1).Raw()), DISP_E_TYPEMISMATCH);
}

TEST(ArrayViewTest, AnArrayIsLockedWhileItIsViewed)
{
    const SafeArray array = SafeArray::Attach(SafeArrayCreateVector(VT_UI4, 7, 2));
    ULONG element = 1;
    {
        ArrayView<ULONG> view;
        ASSERT_EQ(view.Open(array.Get()), S_OK);
        EXPECT_EQ(SafeArrayDestroy(array.Get()), DISP_E_ARRAYISLOCKED);
        EXPECT_EQ(view.At(1, element), S_OK);
        EXPECT_EQ(element, 0u);
        EXPECT_EQ(view.At(2, element), DISP_E_BADINDEX);
    }
    EXPECT_EQ(array.Get()->cLocks, 0u);
}

}  // namespace
}  // namespace quorvane
