#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "msgstore/util/memory.h"

namespace quorvane {
namespace {

// One value of each kind that owns memory, over storage of its own.
class PropertyFunctionsTest : public ::testing::Test {
protected:
    PropertyFunctionsTest()
    {
        Add(PR_SUBJECT_A).Value.lpszA = text8_;
        Add(PR_BODY_W).Value.lpszW = text16_;
        Add(PR_SEARCH_KEY).Value.bin = SBinary{3, bytes_};
        Add(PROP_TAG(PT_CLSID, 0x6601)).Value.lpguid = &guid_;
        Add(PROP_TAG(PT_MV_LONG, 0x6602)).Value.MVl = SLongArray{2, longs_};
        Add(PROP_TAG(PT_MV_STRING8, 0x6603)).Value.MVszA = SLPSTRArray{2, texts8_};
        Add(PROP_TAG(PT_MV_UNICODE, 0x6604)).Value.MVszW = SWStringArray{1, texts16_};
        Add(PROP_TAG(PT_MV_BINARY, 0x6605)).Value.MVbin = SBinaryArray{2, binaries_};
        Add(PR_IMPORTANCE).Value.l = 2;
        Add(PROP_TAG(PT_MV_I8, 0x6606)).Value.MVli = SLargeIntegerArray{0, nullptr};
    }

    SPropValue& Add(ULONG tag)
    {
        values_.emplace_back();
        values_.back().ulPropTag = tag;
        return values_.back();
    }

    INT count() const { return static_cast<INT>(values_.size()); }

    static void ExpectCopy(const SPropValue* copy)
    {
        EXPECT_STREQ(copy[0].Value.lpszA, "subject");
        EXPECT_EQ(OleString(copy[1].Value.lpszW), OLESTR("body"));
        EXPECT_EQ(std::memcmp(copy[2].Value.bin.lpb, "\1\2\3", 3), 0);
        EXPECT_EQ(copy[3].Value.lpguid->Data1, 77u);
        EXPECT_EQ(copy[4].Value.MVl.lpl[1], -5);
        EXPECT_STREQ(copy[5].Value.MVszA.lppszA[1], "two");
        EXPECT_EQ(OleString(copy[6].Value.MVszW.lppszW[0]), OLESTR("wide"));
        EXPECT_EQ(copy[7].Value.MVbin.lpbin[1].cb, 3u);
        EXPECT_EQ(copy[7].Value.MVbin.lpbin[1].lpb[2], 3);
        EXPECT_EQ(copy[8].Value.l, 2);
        EXPECT_EQ(copy[9].Value.MVli.cValues, 0u);
    }

    char text8_[8] = "subject";
    WCHAR text16_[5] = OLESTR("body");
    BYTE bytes_[3] = {1, 2, 3};
    GUID guid_{77, 0, 0, {}};
    LONG longs_[2] = {4, -5};
    char one_[4] = "one";
    char two_[4] = "two";
    LPSTR texts8_[2] = {one_, two_};
    WCHAR wide_[5] = OLESTR("wide");
    LPWSTR texts16_[1] = {wide_};
    SBinary binaries_[2] = {{0, nullptr}, {3, bytes_}};
    std::vector<SPropValue> values_;
};

TEST_F(PropertyFunctionsTest, ACopyHoldsNothingOfItsSource)
{
    MapiBuffer<SPropValue> copy;
    ASSERT_EQ(ScDupPropset(count(), values_.data(), MAPIAllocateBuffer, copy.Put()), S_OK);
    std::memset(text8_, 'x', 7);
    std::memset(bytes_, 0, sizeof(bytes_));
    std::memset(two_, 'x', 3);
    guid_.Data1 = 0;
    longs_[1] = 0;
    text16_[0] = wide_[0] = OLESTR('x');
    values_[8].Value.l = 0;
    ExpectCopy(copy.Get());
}

TEST_F(PropertyFunctionsTest, CountedBytesAreTheCopiedBytes)
{
    ULONG counted = 0;
    ASSERT_EQ(ScCountProps(count(), values_.data(), &counted), S_OK);
    std::vector<BYTE> block(counted);
    ULONG copied = 0;
    ASSERT_EQ(ScCopyProps(count(), values_.data(), block.data(), &copied), S_OK);
    EXPECT_EQ(copied, counted);
    ExpectCopy(reinterpret_cast<SPropValue*>(block.data()));
}

TEST_F(PropertyFunctionsTest, PropCopyMoreHangsTheValueOnItsObject)
{
    MapiBuffer<SPropValue> root;
    ASSERT_EQ(MAPIAllocateBuffer(10 * sizeof(SPropValue), reinterpret_cast<void**>(root.Put())), S_OK);
    for (INT i = 0; i < count(); ++i)
        ASSERT_EQ(PropCopyMore(&root[i], &values_[i], MAPIAllocateMore, root.Get()), S_OK);
    ExpectCopy(root.Get());
}

TEST_F(PropertyFunctionsTest, AnUnknownTypeIsRefused)
{
    SPropValue odd{};
    odd.ulPropTag = PROP_TAG(0x0FFF, 0x1234);
    ULONG size = 0;
    EXPECT_EQ(ScCountProps(1, &odd, &size), MAPI_E_INVALID_PARAMETER);
    MapiBuffer<SPropValue> copy;
    EXPECT_EQ(ScDupPropset(1, &odd, MAPIAllocateBuffer, copy.Put()), MAPI_E_INVALID_PARAMETER);
}

TEST_F(PropertyFunctionsTest, ACountWithoutAPointerIsRefused)
{
    SPropValue binary{};
    binary.ulPropTag = PR_SEARCH_KEY;
    binary.Value.bin = SBinary{5, nullptr};
    ULONG size = 0;
    EXPECT_EQ(ScCountProps(1, &binary, &size), MAPI_E_INVALID_PARAMETER);
}

TEST_F(PropertyFunctionsTest, AFoundPropertyHasTheTagAskedFor)
{
    const auto total = static_cast<ULONG>(values_.size());
    EXPECT_EQ(PpropFindProp(values_.data(), total, PR_IMPORTANCE), &values_[8]);
    EXPECT_EQ(PpropFindProp(values_.data(), total, PR_SUBJECT_W), nullptr);
    EXPECT_EQ(PpropFindProp(values_.data(), total, PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT))),
              &values_[0]);
    EXPECT_EQ(PpropFindProp(nullptr, 3, PR_SUBJECT_W), nullptr);
}

TEST(RowFunctionsTest, FreeProwsFreesEveryRow)
{
    LPSRowSet rows = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(CbNewSRowSet(3), reinterpret_cast<void**>(&rows)), S_OK);
    rows->cRows = 3;
    for (ULONG i = 0; i < 3; ++i) {
        rows->aRow[i] = SRow{};
        ASSERT_EQ(MAPIAllocateBuffer(100, reinterpret_cast<void**>(&rows->aRow[i].lpProps)), S_OK);
    }
    FreeProws(rows);
    FreeProws(nullptr);
    FreePadrlist(nullptr);
}

}  // namespace
}  // namespace quorvane
