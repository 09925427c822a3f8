#include "host/sharing/flag_sharing.h"

#include <gtest/gtest.h>

#include "host/sharing/test_mailbox.h"
#include "host/store/item_marks.h"

namespace quorvane::host {
namespace {

class FlagSharingTest : public ::testing::Test {
protected:
    FlagSharingTest()
    {
        here.hostRecords.Execute("UPDATE share SET flags = 1");
        here.AddRow("{I}", entryId);
        here.records.PutItem({"{I}", "{F}", {100, "alice"}, false, here.ModifiedOf(entryId)});
    }

    // What alice's device tells.
    bool Hear(Marks shown, std::uint64_t when)
    {
        exchange::ItemFlags marked;
        marked.Show(shown, when, here.alice.Id());
        return flags.Hear({"{F}", {{"{I}", marked}}});
    }
    void Mark(Marks marks) const { SetMarks(here.mail, entryId, marks, marks); }
    Marks Shown() const { return MarksOf(*OpenMessage(here.mail, entryId, false)); }

    SharedTestMailbox here;
    const std::string entryId = here.AddMessage("One");
    FlagSharing flags{here.parts};
};

TEST_F(FlagSharingTest, WhatIsMarkedBeforeOthersMarksAreShownStays)
{
    ASSERT_TRUE(Hear(kMarkRead, 100));
    Mark(kMarkFlagged);

    flags.Step(true);

    EXPECT_EQ(Shown(), kMarkRead | kMarkFlagged);
    ASSERT_TRUE(flags.Flags().Find("{I}"));
    EXPECT_EQ(flags.Flags().Find("{I}")->flags.Shown(), kMarkRead | kMarkFlagged);
    EXPECT_EQ(flags.Flags().Find("{I}")->due, 0);
}

TEST_F(FlagSharingTest, AnItemThatIsAppliedShowsAllItsMarksAgain)
{
    ASSERT_TRUE(Hear(kMarkRead | kMarkAnswered, 100));
    flags.Step(true);
    Mark(kMarkFlagged);

    flags.KeepMarks("{I}", "{F}");
    SetMarks(here.mail, entryId, 0, kAllMarks);  // as one that was written anew
    flags.Step(true);

    EXPECT_EQ(Shown(), kMarkRead | kMarkAnswered | kMarkFlagged);
}

}  // namespace
}  // namespace quorvane::host
