#include "host/sharing/announcement.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

TEST(AnnouncementTest, WhatWasFormattedIsParsedAgain)
{
    const std::map<std::string, std::vector<std::string>> devices{{"bob", {std::string(32, 'b')}}};
    const auto parsed =
        ParseAnnouncement(FormatAnnouncement({"Projects/2026 – ä", "alice", {"alice", "bob"}, devices}));

    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->name, "Projects/2026 – ä");
    EXPECT_EQ(parsed->from, "alice");
    EXPECT_EQ(parsed->members, (std::vector<std::string>{"alice", "bob"}));
    EXPECT_EQ(parsed->devices, devices);
}

TEST(AnnouncementTest, TextThatIsNoneIsRefused)
{
    for (const char* text :
         {"", "hello", "[]", "{}", "{\"name\":\"a\"}", R"({"name":"","from":"a","members":[]})",
          R"({"name":"//","from":"a","members":[]})", R"({"name":"a\nb","from":"a","members":[]})",
          R"({"name":"a","from":"../a","members":[]})", R"({"name":"a","from":"a","members":["../../etc"]})",
          R"({"name":"a","from":"a","members":[1]})", R"({"name":"a","from":"a","members":{}})",
          R"({"name":"a","from":"a","members":[],"devices":[]})",
          R"({"name":"a","from":"a","members":[],"devices":{"b":["../c"]}})",
          R"({"name":"a","from":"a","members":[],"devices":{"../b":[]}})",
          R"({"name":"a","from":"a","members":[],"devices":{"b":"c"}})"})
        EXPECT_FALSE(ParseAnnouncement(text)) << text;
}

TEST(AnnouncementTest, RecipientsOfAnAnnouncementNameMemberAndFolder)
{
    const auto target = ParseMemberRecipients(MemberRecipients("bob", "{G:1}"));

    ASSERT_TRUE(target);
    EXPECT_EQ(target->member, "bob");
    EXPECT_EQ(target->folderId, "{G:1}");
    EXPECT_FALSE(ParseMemberRecipients("00000000AB"));
    EXPECT_FALSE(ParseMemberRecipients("to:bob"));
    EXPECT_FALSE(ParseMemberRecipients("to:../bob:x"));
}

}  // namespace

}  // namespace quorvane::host
