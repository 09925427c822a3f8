#include "host/sharing/recipients.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

TEST(RecipientsTest, OneMembersNameHimAndTheFolder)
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
