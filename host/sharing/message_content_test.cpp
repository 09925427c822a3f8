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

}  // namespace
}  // namespace quorvane::host
