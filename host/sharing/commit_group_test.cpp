#include "host/sharing/commit_group.h"

#include <gtest/gtest.h>

#include "host/sharing/test_mailbox.h"

namespace quorvane::host {
namespace {

class CommitGroupTest : public ::testing::Test {
protected:
    // How many messages whoever comes from outside sees.
    std::int64_t Committed()
    {
        Statement select(outside_, "SELECT count(*) FROM message");
        return select.Step() ? select.Number(0) : -1;
    }
    bool IsMarked() const { return std::filesystem::exists(here.mailbox.Directory() / "unsynced"); }

    SharedTestMailbox here;
    CommitGroup group{here.parts, here.engine, false};

private:
    Database outside_{here.mailbox.StorePath().string(), Database::Mode::kReadOnly};
};

TEST_F(CommitGroupTest, WhatIsAppliedIsCommittedWhenItIsToBeOnTheDisk)
{
    group.BeginApplying();
    EXPECT_TRUE(IsMarked());
    for (int i = 1; i <= 3; ++i) {
        here.AddMessage("one");
        here.AddMessage("another");
        group.Synchronize();
        EXPECT_EQ(Committed(), 2 * i);
    }
    here.AddMessage("last");
    group.End();
    EXPECT_EQ(Committed(), 7);
    EXPECT_FALSE(IsMarked());
}

TEST_F(CommitGroupTest, OutsideOfAGroupEachMessageIsCommitted)
{
    here.AddMessage("before");
    EXPECT_EQ(Committed(), 1);
    group.BeginSending();
    here.AddMessage("while rows are put off");
    EXPECT_EQ(Committed(), 2);
    group.BeginApplying();
    group.End();
    here.AddMessage("behind");
    EXPECT_EQ(Committed(), 3);
}

TEST_F(CommitGroupTest, WithEachToWaitNothingIsGathered)
{
    CommitGroup each{here.parts, here.engine, true};
    each.BeginApplying();
    here.AddMessage("one");
    EXPECT_EQ(Committed(), 1);
}

// Until what it left is put right.
TEST_F(CommitGroupTest, AGroupThatAnotherRunLeftOpenLetsNoneBegin)
{
    group.BeginApplying();
    CommitGroup next{here.parts, here.engine, false};
    ASSERT_TRUE(next.WasOpen());
    next.BeginApplying();
    EXPECT_FALSE(next.IsOpen());
    next.NotePutRight();
    EXPECT_FALSE(next.WasOpen());
    next.BeginApplying();
    EXPECT_TRUE(next.IsOpen());
}

}  // namespace
}  // namespace quorvane::host
