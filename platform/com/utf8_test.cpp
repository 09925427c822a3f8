#include "platform/com/utf8.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(Utf8Test, EveryKindOfCharacterSurvivesUtf8)
{
    const OleString text = OLESTR("a\u00E9\u20AC\U0001F4E7");

    EXPECT_EQ(ToUtf8(text), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x93\xA7");
    EXPECT_EQ(FromUtf8(ToUtf8(text)), text);
}

TEST(Utf8Test, ALoneSurrogateBecomesTheReplacementCharacter)
{
    const OLECHAR high[] = {'x', 0xD83D, 'y'};
    const OLECHAR low[] = {0xDCE7};

    EXPECT_EQ(ToUtf8(OleStringView(high, 3)), "x\xEF\xBF\xBDy");
    EXPECT_EQ(ToUtf8(OleStringView(low, 1)), "\xEF\xBF\xBD");
}

struct Malformed {
    std::string_view bytes;
    size_t replacements;
};

class MalformedUtf8Test : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedUtf8Test, EachByteThatBeginsNoCharacterIsReplaced)
{
    const OleString expected = OleString(GetParam().replacements, 0xFFFD) + OLESTR("z");

    EXPECT_EQ(FromUtf8(std::string(GetParam().bytes) + "z"), expected);
}

INSTANTIATE_TEST_SUITE_P(Sequences, MalformedUtf8Test,
                         testing::Values(Malformed{"\x80", 1}, Malformed{"\xC3", 1}, Malformed{"\xC0\xAF", 2},
                                         Malformed{"\xE0\x80\x80", 3}, Malformed{"\xED\xA0\x80", 3},
                                         Malformed{"\xF4\x90\x80\x80", 4}, Malformed{"\xFF", 1},
                                         Malformed{"\xE2\x82", 2}));

TEST(Utf8Test, OverlongFormsAndSurrogatesAreNone)
{
    EXPECT_FALSE(IsUtf8("\xC0\x80"));
    EXPECT_FALSE(IsUtf8("\xED\xA0\x80"));
    EXPECT_FALSE(IsUtf8("\xF5\x80\x80\x80"));
    EXPECT_FALSE(IsUtf8("\xE2\x82"));
}

TEST(Utf8Test, TheLastCharacterIsOneAndTheNextIsNone)
{
    const std::string last = "\xF4\x8F\xBF\xBF";
    EXPECT_TRUE(IsUtf8("plain"));
    EXPECT_TRUE(IsUtf8(last));
    EXPECT_EQ(CleanUtf8(last), last);
    EXPECT_EQ(ToUtf8(FromUtf8(last)), last);
    EXPECT_FALSE(IsUtf8("\xF4\x90\x80\x80"));
    std::string text;
    AppendUtf8(text, 0x110000);
    EXPECT_EQ(text, "\xEF\xBF\xBD");
    OleString wide;
    AppendUtf16(wide, 0xDC00);
    EXPECT_EQ(wide, OLESTR("\uFFFD"));
}

TEST(Utf8Test, ZerosStayInBothFormsAndCleaningReplacesThem)
{
    const std::string_view text("a\0b", 3);
    EXPECT_EQ(ToUtf8(FromUtf8(text)), text);
    EXPECT_EQ(CleanUtf8(text),
              "a\xEF\xBF\xBD"
              "b");
}

TEST(Utf8Test, IsRecognisedAndCleanedWhereverItIsCut)
{
    for (const std::string text :
         {"aä€𝄞", "a\xF0\x9D\x84", "\xE2\x82", "\xC3\xA4\xA4", "\xED\xA0\x80xyz",
          "eight and more ä, eight and more again", "eight and more \xC3(, eight and more again", ""}) {
        for (std::size_t size = 1; size <= text.size(); ++size) {
            Utf8Cleaner cleaner;
            Utf8Check check;
            std::string clean;
            for (std::size_t at = 0; at < text.size(); at += size) {
                cleaner.Put(std::string_view(text).substr(at, size), clean);
                check.Put(std::string_view(text).substr(at, size));
            }
            cleaner.End(clean);
            EXPECT_EQ(clean, CleanUtf8(text)) << text << " by " << size;
            EXPECT_EQ(check.End(), IsUtf8(text)) << text << " by " << size;
        }
    }
}

}  // namespace
}  // namespace quorvane
