#include "engine/storeaccess/hex.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(HexTest, EachByteBecomesTwoUppercaseDigits)
{
    const BYTE bytes[] = {0x00, 0x0a, 0xF3, 0xff};
    Bstr text;
    ASSERT_EQ(HexFromBinary(bytes, sizeof(bytes), text), S_OK);
    EXPECT_EQ(text.View(), OLESTR("000AF3FF"));
}

TEST(HexTest, NoBytesBecomeAnEmptyText)
{
    Bstr text;
    ASSERT_EQ(HexFromBinary(nullptr, 0, text), S_OK);
    EXPECT_FALSE(text.IsNull());
    EXPECT_TRUE(text.IsEmpty());
}

TEST(HexTest, MoreBytesThanATextHoldsAreOutOfMemory)
{
    BYTE byte = 0;
    Bstr text(OLESTR("before"));
    EXPECT_EQ(HexFromBinary(&byte, 0xF0000000u, text), E_OUTOFMEMORY);
    EXPECT_EQ(text.View(), OLESTR("before"));
}

TEST(HexTest, TextOfEitherCaseBecomesBytes)
{
    const Bstr text(OLESTR("00aF3FfF"));
    BinaryId id;
    ASSERT_EQ(BinaryFromHex(text.Get(), id), S_OK);
    ASSERT_EQ(id.Size(), 4u);
    EXPECT_EQ(id.Bytes()[0], 0x00);
    EXPECT_EQ(id.Bytes()[1], 0xAF);
    EXPECT_EQ(id.Bytes()[2], 0x3F);
    EXPECT_EQ(id.Bytes()[3], 0xFF);
}

TEST(HexTest, NullAndEmptyTextsAreIdentifiersOfNoBytes)
{
    BinaryId id;
    EXPECT_EQ(BinaryFromHex(nullptr, id), S_OK);
    EXPECT_EQ(id.Size(), 0u);
    const Bstr empty{OleStringView()};
    EXPECT_EQ(BinaryFromHex(empty.Get(), id), S_OK);
    EXPECT_EQ(id.Size(), 0u);
}

TEST(HexTest, WhatIsNotHexadecimalIsRefusedAndNothingIsHeld)
{
    BinaryId id;
    ASSERT_EQ(BinaryFromHex(Bstr(OLESTR("AB")).Get(), id), S_OK);
    for (const OleStringView text :
         {OleStringView(OLESTR("ABC")), OleStringView(OLESTR("AG")), OleStringView(OLESTR("0x")),
          OleStringView(OLESTR("\u0660\u0661")), OleStringView(OLESTR("A\0B1"), 4)}) {
        EXPECT_EQ(BinaryFromHex(Bstr(text).Get(), id), E_INVALIDARG);
        EXPECT_EQ(id.Size(), 0u);
        EXPECT_EQ(id.Bytes(), nullptr);
    }
}

TEST(HexTest, AShortIdentifierStillHasRoomForItsFlags)
{
    BinaryId id;
    ASSERT_EQ(BinaryFromHex(Bstr(OLESTR("7F")).Get(), id), S_OK);
    EXPECT_EQ(id.EntryId()->abFlags[0], 0x7F);
    EXPECT_EQ(id.EntryId()->abFlags[3], 0);
}

TEST(HexTest, AnAssignedIdentifierIsACopy)
{
    BYTE bytes[] = {1, 2, 3};
    BinaryId id;
    ASSERT_EQ(id.Assign(bytes, 3), S_OK);
    bytes[0] = 9;
    EXPECT_EQ(id.Binary().cb, 3u);
    EXPECT_EQ(id.Binary().lpb[0], 1);
}

}  // namespace
}  // namespace quorvane
