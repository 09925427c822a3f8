// Charsets, text for MAPI and flowed text.
#include <gtest/gtest.h>

#include "host/mime/charset.h"
#include "host/mime/flowed_text.h"
#include "host/mime/mapi_text.h"

namespace quorvane {
namespace {

TEST(CharsetTest, AKnownCharsetIsDecodedUnderEachOfItsNames)
{
    EXPECT_EQ(DecodeText("\xE4\xDF", "ISO-8859-1"), "äß");
    EXPECT_EQ(DecodeText("\xC4\xE0", "windows-1251"), "Да");
    EXPECT_EQ(DecodeText("\xC4\xE0", "CP1251"), "Да");
    EXPECT_EQ(DecodeText("\xE4\xC1", "koi8_r"), "Да");
    EXPECT_EQ(DecodeText("\x93\xFA\x96\x7B", "shift_jis"), "日本");
    EXPECT_EQ(DecodeText("\x1B$BF|K\\\x1B(B", "iso-2022-jp"), "日本");
}

TEST(CharsetTest, TheWiderCharsetReadsWhatWritersMean)
{
    EXPECT_EQ(DecodeText("\x80 \x93x\x94", "iso-8859-1"), "€ “x”");
    EXPECT_EQ(DecodeText("\x81\x30\x84\x36", "gb2312"), DecodeText("\x81\x30\x84\x36", "gb18030"));
}

TEST(CharsetTest, AnUnknownCharsetIsReadAsUtf8OrElseAsWesternEuropean)
{
    EXPECT_EQ(DecodeText("\xC3\xA4", "x-nobody-knows"), "ä");
    EXPECT_EQ(DecodeText("\xE4", "x-nobody-knows"), "ä");
    EXPECT_EQ(DecodeText("\xE4", ""), "ä");
    EXPECT_EQ(DecodeText("\xE4", "us-ascii"), "ä");
}

TEST(CharsetTest, BytesWithoutMeaningAndNulsBecomeTheReplacementCharacter)
{
    EXPECT_EQ(DecodeText("a\xFF"
                         "b",
                         "utf-8"),
              "a\uFFFDb");
    EXPECT_EQ(DecodeText(std::string_view("a\0b", 3), "utf-8"), "a\uFFFDb");
    EXPECT_EQ(DecodeText("\x93", "shift_jis"), "\uFFFD");
}

TEST(CharsetTest, Utf16IsReadInTheOrderOfItsMarkAndLittleEndianWithout)
{
    EXPECT_EQ(DecodeText(std::string_view("\xFF\xFE\x41\0", 4), "utf-16"), "A");
    EXPECT_EQ(DecodeText(std::string_view("\xFE\xFF\0\x41", 4), "utf-16"), "A");
    EXPECT_EQ(DecodeText(std::string_view("\x41\0", 2), "utf-16"), "A");
}

TEST(CharsetTest, CodePagesAndCharsetsNameEachOther)
{
    EXPECT_EQ(CodePageOfCharset("Windows-1252"), 1252u);
    EXPECT_EQ(CodePageOfCharset("x-nobody-knows"), std::nullopt);
    EXPECT_STREQ(CharsetOfCodePage(65001), "utf-8");
    EXPECT_STREQ(CharsetOfCodePage(28591), "iso-8859-1");
    EXPECT_EQ(CharsetOfCodePage(4711), nullptr);
}

TEST(CharsetTest, ALongTextIsDecodedWholly)
{
    std::string bytes;
    for (int i = 0; i < 100000; ++i)
        bytes += "\xE4\xB8";
    const std::string text = DecodeText(bytes, "euc-kr");
    EXPECT_EQ(ToUtf8(MapiText(text)), text);
    EXPECT_EQ(MapiText(text).size(), 100000u);
}

TEST(MapiTextTest, BytesWithoutMeaningAndNulsAreReplaced)
{
    EXPECT_EQ(MapiText(std::string_view("a\xFF\0b", 4)), OLESTR("a\uFFFD\uFFFDb"));
    EXPECT_EQ(MapiText("𝄞").size(), 2u);
}

TEST(FlowedTextTest, LinesThatEndInASpaceGoOn)
{
    EXPECT_EQ(JoinFlowedText("one \ntwo\nthree\n", false), "one two\nthree\n");
    EXPECT_EQ(JoinFlowedText("one \ntwo\n", true), "onetwo\n");
}

TEST(FlowedTextTest, StuffingGoesAndSignaturesStay)
{
    EXPECT_EQ(JoinFlowedText(" From me\n  indented\n-- \nPiet\n", false), "From me\n indented\n-- \nPiet\n");
}

TEST(FlowedTextTest, AQuoteOfAnotherDepthEndsAParagraph)
{
    EXPECT_EQ(JoinFlowedText(">> a \n>> b\n> c \nd\n", false), ">> a b\n> c \nd\n");
}

TEST(FlowedTextTest, ATextWithoutALastLineEndStaysWithoutOne)
{
    EXPECT_EQ(JoinFlowedText("a \r\nb ", false), "a b ");
    EXPECT_EQ(JoinFlowedText("", false), "");
}

}  // namespace
}  // namespace quorvane
