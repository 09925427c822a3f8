#include "msgstore/table/text_fold.h"

#include <gtest/gtest.h>

#include "platform/com/bstr.h"

namespace quorvane {
namespace {

TEST(TextFoldTest, EveryCharacterIsFoldedAlikeInBothFormsAndOnce)
{
    for (char32_t character = 0; character <= 0x10FFFF; ++character) {
        OleString wide;
        AppendUtf16(wide, character);
        std::string narrow;
        AppendUtf8(narrow, character);

        const OleString folded = Fold(wide);
        ASSERT_EQ(FoldUtf8(narrow), ToUtf8(folded)) << std::hex << static_cast<unsigned>(character);
        ASSERT_EQ(Fold(folded), folded) << std::hex << static_cast<unsigned>(character);
    }
}

TEST(TextFoldTest, EachScriptWithCasesHasOne)
{
    for (const auto& [upper, lower] : {std::pair{"PLAIN, 100 % @[`{", "plain, 100 % @[`{"},
                                       {"ÉTÉ ŸŽ", "été ÿž"},
                                       {"ΌΔΟΣ", "όδοσ"},
                                       {"ЖЁҐ", "жёґ"},
                                       {"ՀԱՅ", "հայ"},
                                       {"ᲥᲐᲠᲗ", "ქართ"},
                                       {"ＺＥＢＲＡ", "ｚｅｂｒａ"},
                                       {"ⰀⰁ", "ⰰⰱ"},
                                       {"𐐀𐐁", "𐐨𐐩"},
                                       {"VIỆT", "việt"},
                                       {"日本", "日本"}})
        EXPECT_EQ(FoldUtf8(upper), FoldUtf8(lower)) << upper;
    EXPECT_EQ(FoldUtf8("ÉTÉ AZ"), "été az");
    EXPECT_EQ(FoldUtf8("όδος"), FoldUtf8("ΌΔΟΣ")) << "with the sigma that ends a word";
    EXPECT_NE(FoldUtf8("été"), FoldUtf8("ete"));
}

TEST(TextFoldTest, WhatIsNoCharacterIsReplaced)
{
    const OLECHAR lone[] = {'A', 0xD834, 'B'};
    EXPECT_EQ(Fold(OleStringView(lone, 3)), OLESTR("a\uFFFDb"));
    EXPECT_EQ(FoldUtf8("A\xFF"
                       "B\xC3"),
              "a\uFFFDb\uFFFD");
    EXPECT_EQ(WithoutMarks(OleStringView(lone, 3)), OLESTR("A\uFFFDB"));
}

TEST(TextFoldTest, MarksGoWhetherTheyFollowTheirLetterOrArePartOfIt)
{
    for (const auto& [marked, plain] : {std::pair{"e\u0301te\u0301", "ete"},
                                        {"Été Žižka Łódź Øst", "Ete Zizka Lodz Ost"},
                                        {"Việt", "Viet"},
                                        {"ΌΔΟΣ", "ΟΔΟΣ"},
                                        {"שָׁלוֹם", "שלום"},
                                        {"\u0301", ""}})
        EXPECT_EQ(ToUtf8(WithoutMarks(FromUtf8(marked))), plain) << marked;
}

TEST(TextFoldTest, WhatIsAnotherLetterAndNotAMarkedOneStays)
{
    for (const std::string text : {"한국", "がぎ", "का", "ที", "ß æ", "日本 😀"})
        EXPECT_EQ(ToUtf8(WithoutMarks(FromUtf8(text))), text);
}

}  // namespace
}  // namespace quorvane
