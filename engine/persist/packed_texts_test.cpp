#include "engine/persist/packed_texts.h"

#include <gtest/gtest.h>

#include "engine/persist/hash_text.h"
#include "engine/persist/packed_set.h"

namespace quorvane {
namespace {

std::vector<std::string> All(const PackedTexts& texts)
{
    std::vector<std::string> all;
    for (ULONG i = 0; i < texts.Count(); ++i) {
        Bstr text;
        EXPECT_EQ(texts.Read(i, text), S_OK);
        all.push_back(Narrow(text.View()));
    }
    return all;
}

TEST(PackedTextsTest, EachTextIsReadAsItWas)
{
    const std::vector<std::string> told = {"00AB", "", "0123456789abcdef0123456789abcdef", "g", "00AB"};
    PackedTexts texts;
    for (const std::string& text : told)
        ASSERT_EQ(texts.Append(Widen(text)), S_OK);
    EXPECT_EQ(All(texts), told);
}

TEST(PackedTextsTest, TheLastIsTakenAwayAloneAndAnotherTakesItsPlace)
{
    PackedTexts texts;
    for (const OLECHAR* text : {OLESTR("AA"), OLESTR("BB"), OLESTR("CC")})
        ASSERT_EQ(texts.Append(text), S_OK);
    texts.RemoveLast();
    ASSERT_EQ(texts.Append(OLESTR("DDDD")), S_OK);
    EXPECT_EQ(All(texts), (std::vector<std::string>{"AA", "BB", "DDDD"}));
    for (int i = 0; i < 3; ++i)
        texts.RemoveLast();
    EXPECT_EQ(texts.Count(), 0u);
    ASSERT_EQ(texts.Append(OLESTR("EE")), S_OK);
    EXPECT_EQ(All(texts), std::vector<std::string>{"EE"});
}

// In memory a hash takes half of its digits; in the file each character takes two bytes, as told.
TEST(HashTextTest, ATextThatBeginsWithAHashIsKeptSmallAndWrittenInFull)
{
    const std::string digits = "00112233445566778899aabbccddeeff";
    for (const std::string& text :
         {digits, digits + "\t16", digits + "0", digits + "\xE9", digits.substr(1) + "\t1",
          "A" + digits.substr(1) + "\t1", digits + "\t" + digits}) {
        OleString characters;
        for (const char c : text)
            characters += static_cast<OLECHAR>(static_cast<unsigned char>(c));
        const std::string packed = PackHashText(characters);
        EXPECT_EQ(UnpackHashText(packed), characters);
        std::string bytes;
        AppendHashString(bytes, packed);
        std::string expected;
        AppendLittleEndian32(expected, static_cast<std::uint32_t>(2 * text.size() + 2));
        for (const OLECHAR c : characters)
            expected.append({static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)});
        EXPECT_EQ(bytes, expected + std::string(2, '\0'));
        EXPECT_EQ(HashStringBytes(packed), 2 * text.size() + 2);
        std::string read;
        PackHashBytes(expected.data() + 4, text.size(), read);
        EXPECT_EQ(read, packed);
    }
    EXPECT_LT(PackHashText(Widen(digits + "\t16")).size(), 21u);
    OleString odd = Widen(digits);
    odd += static_cast<OLECHAR>(0x20AC);
    EXPECT_EQ(UnpackHashText(PackHashText(odd)), odd);
}

TEST(PackedSetTest, ItHasWhatWasAddedAndNothingElse)
{
    PackedSet set;
    EXPECT_FALSE(set.Has("0"));
    for (int i = 0; i < 1000; i += 2)
        set.Add(std::to_string(i));
    for (int i = 0; i < 1000; i += 2)
        set.Add(std::to_string(i));
    EXPECT_EQ(set.Count(), 500u);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(set.Has(std::to_string(i)), i % 2 == 0) << i;
}

TEST(PackedSetTest, TheEmptyTextAndZerosAreTextsLikeOthers)
{
    PackedSet set;
    set.Add({});
    set.Add(std::string_view("\0\0", 2));
    EXPECT_TRUE(set.Has({}));
    EXPECT_TRUE(set.Has(std::string_view("\0\0", 2)));
    EXPECT_FALSE(set.Has(std::string_view("\0", 1)));
}

}  // namespace
}  // namespace quorvane
