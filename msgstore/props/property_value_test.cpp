#include "msgstore/props/property_value.h"

#include <gtest/gtest.h>

#include <cstring>

#include "msgstore/props/property_bag.h"
#include "msgstore/props/spool_value.h"

namespace quorvane {
namespace {

// Gives a value out in its own type and takes it over again.
PropertyValue ThereAndBack(const PropertyValue& value)
{
    const MapiAllocator allocator;
    MapiBuffer<SPropValue> out(static_cast<LPSPropValue>(allocator.Allocate(sizeof(SPropValue))));
    EXPECT_EQ(ToSPropValue(value, value.type(), allocator, out.Get(), *out.Get()), S_OK);
    PropertyValue back;
    EXPECT_EQ(FromSPropValue(*out.Get(), back), S_OK);
    return back;
}

void ExpectKept(const PropertyValue& value)
{
    const PropertyValue back = ThereAndBack(value);
    EXPECT_EQ(back.tag, value.tag);
    EXPECT_EQ(back.data, value.data);
    EXPECT_EQ(back.items, value.items);
}

TEST(PropertyValueTest, EverySingleTypeIsKept)
{
    ExpectKept(PropertyValue::Long(PR_IMPORTANCE, -2));
    ExpectKept(PropertyValue::Boolean(PR_REPLY_REQUESTED, true));
    ExpectKept(PropertyValue::Int64(PROP_TAG(PT_I8, 0x6601), INT64_MIN));
    ExpectKept(PropertyValue::Int64(PROP_TAG(PT_DOUBLE, 0x6602), 0x3FF8000000000000));
    ExpectKept(PropertyValue::Int64(PROP_TAG(PT_CURRENCY, 0x6603), -1));
    ExpectKept(PropertyValue::Time(PR_CREATION_TIME, FILETIME{1, 2}));
    ExpectKept(PropertyValue::Binary(PR_SEARCH_KEY, "\0\1\2", 3));
    ExpectKept(PropertyValue::Binary(PR_SEARCH_KEY, nullptr, 0));
    ExpectKept(PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("Gr\u00FC\u00DFe \u65E5\u672C")));
    ExpectKept(PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("")));
    ExpectKept(PropertyValue::String8(PR_SUBJECT_A, "\xE9t\xE9"));
    ExpectKept(PropertyValue::Binary(PROP_TAG(PT_CLSID, 0x6604), "0123456789ABCDEF", 16));
    ExpectKept(PropertyValue::Binary(PROP_TAG(PT_I2, 0x6605), "\x01\x80", 2));
    ExpectKept(PropertyValue::Binary(PROP_TAG(PT_R4, 0x6606), "\0\0\x80\x3F", 4));
}

TEST(PropertyValueTest, EveryMultiValuedTypeIsKept)
{
    ExpectKept(PropertyValue::Binary(PROP_TAG(PT_MV_LONG, 0x6601), "\1\0\0\0\2\0\0\0", 8));
    ExpectKept(PropertyValue::Binary(PROP_TAG(PT_MV_I2, 0x6601), "\1\0\2\0\3\0", 6));
    ExpectKept(PropertyValue::Binary(PROP_TAG(PT_MV_SYSTIME, 0x6601), "\1\0\0\0\2\0\0\0", 8));
    ExpectKept(PropertyValue::Binary(PROP_TAG(PT_MV_CLSID, 0x6601), "0123456789ABCDEF0123456789abcdef", 32));
    ExpectKept(PropertyValue::Binary(PROP_TAG(PT_MV_DOUBLE, 0x6601), nullptr, 0));
    PropertyValue texts;
    texts.tag = PROP_TAG(PT_MV_UNICODE, 0x6602);
    texts.items = {
        PropertyValue::Unicode(0, OLESTR("one")).data, {}, PropertyValue::Unicode(0, OLESTR("3")).data};
    ExpectKept(texts);
    texts.tag = PROP_TAG(PT_MV_BINARY, 0x6603);
    ExpectKept(texts);
    texts.tag = PROP_TAG(PT_MV_STRING8, 0x6604);
    texts.items = {{'a', 'b'}, {}};
    ExpectKept(texts);
}

TEST(PropertyValueTest, TextIsGivenInTheOtherKindToo)
{
    const MapiAllocator allocator;
    MapiBuffer<SPropValue> out(static_cast<LPSPropValue>(allocator.Allocate(sizeof(SPropValue))));
    const auto text = PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("\u00E9"));
    ASSERT_EQ(ToSPropValue(text, PT_STRING8, allocator, out.Get(), *out.Get()), S_OK);
    EXPECT_EQ(out->ulPropTag, PR_SUBJECT_A);
    EXPECT_STREQ(out->Value.lpszA, "\xC3\xA9");
    const auto narrow = PropertyValue::String8(PR_SUBJECT_A, "\xE9t\xE9");
    ASSERT_EQ(ToSPropValue(narrow, PT_UNICODE, allocator, out.Get(), *out.Get()), S_OK);
    EXPECT_EQ(OleString(out->Value.lpszW), OLESTR("\u00E9t\u00E9"));
}

TEST(PropertyValueTest, EightBitTextIsReadInItsCodePage)
{
    const MapiAllocator allocator;
    MapiBuffer<SPropValue> out(static_cast<LPSPropValue>(allocator.Allocate(sizeof(SPropValue))));
    const auto cyrillic = PropertyValue::String8(PR_SUBJECT_A, "\xCF\xF0\xE8\xE2\xE5\xF2");
    ASSERT_EQ(ToSPropValue(cyrillic, PT_UNICODE, allocator, out.Get(), *out.Get(), 1251), S_OK);
    EXPECT_EQ(OleString(out->Value.lpszW), OLESTR("\u041F\u0440\u0438\u0432\u0435\u0442"));
    const auto japanese = PropertyValue::String8(PR_SUBJECT_A, "\x93\xFA\x96\x7B");
    ASSERT_EQ(ToSPropValue(japanese, PT_UNICODE, allocator, out.Get(), *out.Get(), 932), S_OK);
    EXPECT_EQ(OleString(out->Value.lpszW), OLESTR("\u65E5\u672C"));
}

TEST(PropertyValueTest, AnotherTypeIsRefusedAsAnErrorValue)
{
    const MapiAllocator allocator;
    MapiBuffer<SPropValue> out(static_cast<LPSPropValue>(allocator.Allocate(sizeof(SPropValue))));
    const auto number = PropertyValue::Long(PR_IMPORTANCE, 1);
    EXPECT_EQ(ToSPropValue(number, PT_UNICODE, allocator, out.Get(), *out.Get()), MAPI_E_UNEXPECTED_TYPE);
    EXPECT_EQ(out->ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_IMPORTANCE)));
    EXPECT_EQ(out->Value.err, MAPI_E_UNEXPECTED_TYPE);
}

TEST(PropertyValueTest, ALongValueIsNotListed)
{
    const MapiAllocator allocator;
    MapiBuffer<SPropValue> out(static_cast<LPSPropValue>(allocator.Allocate(sizeof(SPropValue))));
    PropertyValue value;
    value.tag = PR_BODY_W;
    value.large = std::make_shared<SpoolValue>(Bytes(kListedValueLimit + 2, 'x'));
    EXPECT_EQ(ToSPropValue(value, PT_UNICODE, allocator, out.Get(), *out.Get()), MAPI_E_NOT_ENOUGH_MEMORY);
    value.large = std::make_shared<SpoolValue>(Bytes(kListedValueLimit, 'x'));
    EXPECT_EQ(ToSPropValue(value, PT_UNICODE, allocator, out.Get(), *out.Get()), S_OK);
}

TEST(PropertyValueTest, WhatHasNoValueIsNotTakenOver)
{
    SPropValue value{};
    PropertyValue kept;
    for (const ULONG type :
         std::initializer_list<ULONG>{PT_UNSPECIFIED, PT_NULL, PT_ERROR, PT_OBJECT, 0x0FFFu}) {
        value.ulPropTag = PROP_TAG(type, 0x1234);
        EXPECT_EQ(FromSPropValue(value, kept), MAPI_E_INVALID_TYPE) << type;
    }
    value.ulPropTag = PR_SUBJECT_W;
    EXPECT_EQ(FromSPropValue(value, kept), MAPI_E_INVALID_PARAMETER);
    value.ulPropTag = PROP_TAG(PT_MV_UNICODE, 0x1234);
    value.Value.MVszW = SWStringArray{2, nullptr};
    EXPECT_EQ(FromSPropValue(value, kept), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(kept.tag, PR_NULL);
}

TEST(PropertyBagTest, OneValueStandsForAnIdentifier)
{
    PropertyBag bag;
    bag.Put(PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("first")));
    bag.Put(PropertyValue::String8(PR_SUBJECT_A, "second"));
    EXPECT_EQ(bag.size(), 1u);
    EXPECT_EQ(bag.Find(PR_SUBJECT_W)->AsText(), OLESTR("second"));
    EXPECT_EQ(bag.Find(PROP_TAG(PT_LONG, PROP_ID(PR_SUBJECT))), nullptr);
    EXPECT_NE(bag.Find(PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT))), nullptr);
}

TEST(PropertyBagTest, ValuesStandInOrderOfIdentifiers)
{
    PropertyBag bag;
    for (const ULONG id : {5u, 1u, 0x8001u, 3u})
        bag.Put(PropertyValue::Long(PROP_TAG(PT_LONG, id), 0));
    std::vector<ULONG> ids;
    for (const PropertyValue& value : bag)
        ids.push_back(value.id());
    EXPECT_EQ(ids, (std::vector<ULONG>{1, 3, 5, 0x8001}));
    EXPECT_TRUE(bag.Erase(3));
    EXPECT_FALSE(bag.Erase(3));
}

TEST(SpoolValueTest, BytesBeyondMemoryGoToAFileAndComeBack)
{
    SpoolValue spool;
    Bytes block(300 * 1024);
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<BYTE>(i * 31);
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(spool.WriteAt(spool.Size(), block.data(), static_cast<ULONG>(block.size())), S_OK);
    EXPECT_EQ(spool.Size(), 10 * block.size());
    Bytes whole;
    ASSERT_EQ(ReadWhole(spool, UINT32_MAX, whole), S_OK);
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(std::memcmp(whole.data() + static_cast<std::size_t>(i) * block.size(), block.data(),
                              block.size()),
                  0);
}

TEST(SpoolValueTest, AGapReadsAsZerosAlsoAfterCutting)
{
    for (const std::uint64_t distance : {std::uint64_t{100}, std::uint64_t{3} * 1024 * 1024}) {
        SpoolValue spool;
        ASSERT_EQ(spool.WriteAt(distance, "abc", 3), S_OK);
        ASSERT_EQ(spool.Resize(distance + 1), S_OK);
        ASSERT_EQ(spool.WriteAt(distance + 2, "x", 1), S_OK);
        char tail[4] = {'?', '?', '?', '?'};
        ULONG read = 0;
        ASSERT_EQ(spool.ReadAt(distance - 1, tail, 4, read), S_OK);
        EXPECT_EQ(read, 4u);
        EXPECT_EQ(std::memcmp(tail, "\0a\0x", 4), 0);
    }
}

TEST(PropertyValueTest, WholeNumbersAndTruthsAreIntegersAndNothingElseIs)
{
    EXPECT_EQ(PropertyValue::Long(PROP_TAG(PT_LONG, 0x6600), -7).AsInteger(), -7);
    EXPECT_EQ(PropertyValue::Boolean(PROP_TAG(PT_BOOLEAN, 0x6600), true).AsInteger(), 1);
    EXPECT_EQ(PropertyValue::Int64(PROP_TAG(PT_I8, 0x6600), -(1LL << 40)).AsInteger(), -(1LL << 40));
    EXPECT_EQ(PropertyValue::Int64(PROP_TAG(PT_CURRENCY, 0x6600), 1LL << 40).AsInteger(), 1LL << 40);
    EXPECT_EQ(PropertyValue::Unicode(PROP_TAG(PT_UNICODE, 0x6600), OLESTR("7")).AsInteger(), 0);
}

TEST(SpoolValueTest, AnEndBeyond32BitsIsRefused)
{
    SpoolValue spool;
    EXPECT_EQ(spool.WriteAt(0xFFFFFFFF, "x", 1), STG_E_MEDIUMFULL);
    EXPECT_EQ(spool.Resize(0x100000000), STG_E_MEDIUMFULL);
    EXPECT_EQ(spool.Size(), 0u);
}

}  // namespace
}  // namespace quorvane
