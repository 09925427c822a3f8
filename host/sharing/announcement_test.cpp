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

TEST(AnnouncementTest, AVersionSurvivesItsText)
{
    const ItemVersion version{134070004112345678, "alice"};

    EXPECT_EQ(ParseVersion(FormatVersion(version)), version);
}

TEST(AnnouncementTest, AVersionThatCouldNotBeKeptIsRefused)
{
    for (const char* text : {"", "{}", R"({"stamp":-1,"member":"a"})", R"({"stamp":1.5,"member":"a"})",
                             R"({"stamp":9223372036854775807,"member":"a"})", R"({"stamp":1,"member":"a/b"})"})
        EXPECT_FALSE(ParseVersion(text)) << text;
}

TEST(AnnouncementTest, OfTwoVersionsTheLaterIsGreaterAndOfEqualOnesTheGreaterName)
{
    EXPECT_LT((ItemVersion{1, "b"}), (ItemVersion{2, "a"}));
    EXPECT_LT((ItemVersion{2, "a"}), (ItemVersion{2, "b"}));
    EXPECT_FALSE((ItemVersion{2, "b"}) < (ItemVersion{2, "b"}));
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
