#include "host/mailbox/item_text.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

exchange::ItemHeads HeadsOf(std::uint64_t stamp, unsigned char content)
{
    exchange::Revision revision;
    revision.version.Raise(exchange::ChangerId{{content}});
    revision.stamp = stamp;
    revision.by.bytes[0] = content;
    revision.content[0] = content;
    exchange::ItemHeads heads;
    heads.Take(revision);
    return heads;
}

TEST(ItemTextTest, WhatIsKnownOfAnItemSurvivesItsText)
{
    ItemRecord record{"{I}", "{F}", {7, "alice"}, false, 1, HeadsOf(7, 'a'), true, false};
    record.heads.Take(HeadsOf(8, 'b'));

    const auto text = ParseItem(FormatItem(record), false);

    ASSERT_TRUE(text);
    EXPECT_EQ(text->heads, record.heads);
    EXPECT_EQ(text->member, "alice");
    EXPECT_EQ(ParseHeads(FormatHeads(record.heads)), record.heads);
}

TEST(ItemTextTest, ATextThatIsNoneIsRefused)
{
    const std::string heads = FormatHeads(HeadsOf(7, 'a'));
    for (const std::string& text :
         {std::string(), std::string("{}"), std::string("[]"), R"({"heads":")" + heads + R"("})",
          R"({"heads":")" + heads + R"(","member":"a/b"})", R"({"heads":")" + heads + R"(0","member":"a"})",
          R"({"heads":")" + heads + R"(00","member":"a"})", std::string(R"({"heads":"0000","member":"a"})"),
          std::string(R"({"heads":1,"member":"a"})"), std::string(R"({"heads":"","member":"a"})"),
          std::string(R"({"stamp":-1,"member":"a"})"), std::string(R"({"stamp":1.5,"member":"a"})"),
          std::string(R"({"stamp":9223372036854775807,"member":"a"})"),
          std::string(R"({"stamp":1,"member":"a/b"})")})
        EXPECT_FALSE(ParseItem(text, false)) << text;
}

// All devices come to the same heads of what a former version of the program wrote, and the later one is
// shown.
TEST(ItemTextTest, AFormerVersionsTextGivesHeadsOfWhichTheLaterAreShown)
{
    const auto first = ParseItem(R"({"stamp": 100, "member": "bob"})", false);
    const auto second = ParseItem(R"({"stamp": 200, "member": "alice"})", false);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->heads, FormerHeads({100, "bob"}, false));
    EXPECT_NE(first->heads, FormerHeads({100, "alice"}, false));

    exchange::ItemHeads one = first->heads, other = second->heads;
    one.Take(second->heads);
    other.Take(first->heads);

    EXPECT_EQ(one, other);
    EXPECT_EQ(one.Shown()->stamp, 200U);
    EXPECT_TRUE(one.Beaten().empty()) << "of its contents nothing is known";
    const auto deletion = ParseItem(R"({"stamp": 200, "member": "alice"})", true);
    ASSERT_TRUE(deletion);
    EXPECT_TRUE(deletion->heads.Shown()->isDeletion);
}

}  // namespace

}  // namespace quorvane::host
