#include <gtest/gtest.h>

#include <array>
#include <string>

#include "platform/mapi/mapi.h"

namespace {

BOOL FromHex(std::string text, BYTE* bytes)
{
    return FBinFromHex(text.data(), bytes);
}

TEST(HexTest, TextIsUppercaseAndTerminated)
{
    std::array<BYTE, 3> bytes{0x00, 0xAB, 0x7F};
    std::array<char, 8> text;
    text.fill('x');
    HexFromBin(bytes.data(), 3, text.data());
    EXPECT_STREQ(text.data(), "00AB7F");
    EXPECT_EQ(text[7], 'x');
}

TEST(HexTest, NoBytesGiveAnEmptyText)
{
    char text[2] = {'x', 'x'};
    HexFromBin(nullptr, 0, text);
    EXPECT_STREQ(text, "");
}

TEST(HexTest, BothCasesAreRead)
{
    std::array<BYTE, 3> bytes{};
    EXPECT_TRUE(FromHex("aBCdEf", bytes.data()));
    EXPECT_EQ(bytes, (std::array<BYTE, 3>{0xAB, 0xCD, 0xEF}));
}

TEST(HexTest, ARefusedTextLeavesTheBufferAlone)
{
    for (const char* text : {"0", "00G0", "0x10", "00 1", "001"}) {
        std::array<BYTE, 4> bytes{1, 2, 3, 4};
        EXPECT_FALSE(FromHex(text, bytes.data())) << text;
        EXPECT_EQ(bytes, (std::array<BYTE, 4>{1, 2, 3, 4})) << text;
    }
}

TEST(HexTest, AnEmptyTextIsNoBytes)
{
    BYTE byte = 7;
    EXPECT_TRUE(FromHex("", &byte));
    EXPECT_EQ(byte, 7);
}

TEST(HexTest, NullIsRefused)
{
    BYTE byte = 0;
    char text[] = "00";
    EXPECT_FALSE(FBinFromHex(nullptr, &byte));
    EXPECT_FALSE(FBinFromHex(text, nullptr));
}

}  // namespace
