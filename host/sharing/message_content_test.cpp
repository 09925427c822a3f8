#include "host/sharing/message_content.h"

#include <gtest/gtest.h>

#include "host/sharing/test_mailbox.h"

namespace quorvane::host {
namespace {

using Names = std::vector<std::string>;

TEST(DifferencesTest, EqualContentsDifferInNothing)
{
    EXPECT_EQ(Differences({}, {}), Names{});
    EXPECT_EQ(Differences({{"a", "1"}, {"b", "2"}}, {{"b", "2"}, {"a", "1"}}), Names{});
}

TEST(DifferencesTest, AnotherValueUnderOneNameIsADifference)
{
    EXPECT_EQ(Differences({{"a", "1"}, {"b", "2"}}, {{"a", "1"}, {"b", "3"}}), Names{"b"});
}

TEST(DifferencesTest, WhatOnlyOneSideHasIsADifferenceWhicheverSideItIs)
{
    EXPECT_EQ(Differences({{"a", "1"}, {"b", "2"}}, {{"b", "2"}}), Names{"a"});
    EXPECT_EQ(Differences({{"b", "2"}}, {{"b", "2"}, {"c", "3"}}), Names{"c"});
}

TEST(ReadContentTest, AMessageDiffersFromAnotherInItsSubjectAlone)
{
    SharedTestMailbox here;
    const auto contentOf = [&](const std::string& entryId) {
        return ReadContent(*OpenMessage(here.mail, entryId, false), entryId);
    };
    const std::string message = here.AddMessage("one subject");
    const MessageContent before = contentOf(message);
    EXPECT_EQ(Differences(before, contentOf(message)), Names{});

    here.ChangeMessage(message, "another subject");

    const Names names = Differences(before, contentOf(message));
    EXPECT_NE(std::find(names.begin(), names.end(), "0x0037001F"), names.end());
    for (const std::string& name : names)
        EXPECT_TRUE(name.starts_with("0x")) << name;
}

// Digests of contents travel, and are compared with those that other versions of the program made.
TEST(ReadContentTest, AShortValueIsShownAndALongOneByItsDigestInHoweverManyPieces)
{
    constexpr ULONG kShortValue = PROP_TAG(PT_BINARY, 0x6810);
    constexpr ULONG kLongValue = PROP_TAG(PT_BINARY, 0x6811);
    constexpr ULONG kPiecedValue = PROP_TAG(PT_MV_BINARY, 0x6812);
    SharedTestMailbox here;
    const std::string id = here.AddMessage("one subject");
    const ComPtr<IMessage> message = OpenMessage(here.mail, id, true);
    std::string a(10, 'a'), b(300, 'b'), c(256, 'c');
    const auto bytesOf = [](std::string& text, std::size_t size) {
        return SBinary{static_cast<ULONG>(size), reinterpret_cast<LPBYTE>(text.data())};
    };
    SBinary pieces[] = {bytesOf(a, 10), bytesOf(b, 300)};
    SPropValue values[3] = {};
    values[0].ulPropTag = kShortValue;
    values[0].Value.bin = bytesOf(c, 255);
    values[1].ulPropTag = kLongValue;
    values[1].Value.bin = bytesOf(c, 256);
    values[2].ulPropTag = kPiecedValue;
    values[2].Value.MVbin = {2, pieces};
    ASSERT_EQ(message->SetProps(3, values, nullptr), S_OK);

    MessageContent content = ReadContent(*message, id);

    EXPECT_EQ(content["0x68100102"], std::string(255, 'c'));
    EXPECT_EQ(content["0x68110102"],
              "256 bytes, blake2b 27BA5F425C7903285BE1A2D182C0EE5DD8724287DCC6730F3C828385FE99DEF1");
    EXPECT_EQ(content["0x68121102"],
              "326 bytes, blake2b 064949A67F2B89AD37974B57BC0613173EEDDE05BD966D0B23187FA9E89CABC1");
}

}  // namespace
}  // namespace quorvane::host
