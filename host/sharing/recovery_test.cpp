#include "host/sharing/recovery.h"

#include <gtest/gtest.h>

#include "host/base/path_text.h"
#include "host/sharing/sender.h"
#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

// What a power cut leaves of the items of a package in hand.
class RecoveryTest : public ::testing::Test {
protected:
    // Puts a message into the package, as one that came is there in the end: with row and record; its ID.
    std::string Apply(const std::string& entryId)
    {
        EXPECT_TRUE(sender.SendItem(here.share, entryId, here.share.entryId));
        return here.state.RowOfEntry(entryId)->id;
    }
    void LoseRow(const std::string& of) { here.Execute("DELETE FROM tblItem WHERE ID = '" + of + "'"); }
    // As if the store had never heard of it.
    void LoseMessage(const std::string& entryId)
    {
        here.DeleteMessage(entryId);
        Database(here.mailbox.StorePath().string(), Database::Mode::kOpen)
            .Execute("DELETE FROM change WHERE event = 8");
    }
    void SetModified(std::uint64_t modified)
    {
        ItemRecord record = *here.records.FindItem(id);
        record.modified = modified;
        here.records.PutItem(record);
    }
    void Recover()
    {
        Recovery(here.parts, here.engine)
            .MendReceived(PathOf(ReadText(*here.PackageFor(here.share.entryId), &IStorageFile::get_Path)));
    }

    SharedTestMailbox here;
    Sender sender{here.addin, here.parts, here.engine};
    const std::string entry = here.AddMessage("one");
    const std::string id = Apply(entry);
};

TEST_F(RecoveryTest, WhatIsWholeStaysAsItIs)
{
    Recover();

    EXPECT_TRUE(here.records.FindItem(id)->isWhole);
    EXPECT_EQ(here.state.RowOfId(id)->entryId, entry);
}

TEST_F(RecoveryTest, ARowWhoseMessageIsLostGoes)
{
    LoseMessage(entry);

    Recover();

    EXPECT_FALSE(here.state.RowOfId(id));
    EXPECT_FALSE(here.records.FindItem(id)->isWhole);
    EXPECT_EQ(here.records.FindItem(id)->modified, 0u);
}

TEST_F(RecoveryTest, ARowWhoseMessageWasDeletedHereStays)
{
    here.DeleteMessage(entry);

    Recover();

    EXPECT_TRUE(here.state.RowOfId(id));
    EXPECT_TRUE(here.records.FindItem(id)->isWhole);
}

TEST_F(RecoveryTest, AMessageWithoutItsRowGetsIt)
{
    LoseRow(id);

    Recover();

    EXPECT_EQ(here.state.RowOfId(id)->entryId, entry);
    EXPECT_TRUE(here.records.FindItem(id)->isWhole);
}

TEST_F(RecoveryTest, AMessageWithoutRowAndRecordCountsAsNotApplied)
{
    const exchange::ItemHeads heads = here.records.FindItem(id)->heads;
    LoseRow(id);
    here.records.ForgetItem(id);

    Recover();

    EXPECT_EQ(here.state.RowOfId(id)->entryId, entry);
    EXPECT_FALSE(here.records.FindItem(id)->isWhole);
    EXPECT_EQ(here.records.FindItem(id)->modified, here.ModifiedOf(entry));
    EXPECT_EQ(here.records.FindItem(id)->heads, heads);
}

TEST_F(RecoveryTest, AMessageOfOtherContentGetsNoRow)
{
    LoseRow(id);
    here.ChangeMessage(entry, "another");

    Recover();

    EXPECT_FALSE(here.state.RowOfEntry(entry));
}

TEST_F(RecoveryTest, ACopyOfADeletedItemGetsNoRow)
{
    LoseRow(id);
    ItemRecord record = *here.records.FindItem(id);
    record.deleted = true;
    here.records.PutItem(record);

    Recover();

    EXPECT_FALSE(here.state.RowOfEntry(entry));
}

TEST_F(RecoveryTest, AMessageThatIsOlderThanItsRecordCountsAsNotApplied)
{
    SetModified(here.ModifiedOf(entry) + 1);

    Recover();

    EXPECT_FALSE(here.records.FindItem(id)->isWhole);
    EXPECT_EQ(here.records.FindItem(id)->modified, here.ModifiedOf(entry));
}

TEST_F(RecoveryTest, AMessageThatWasChangedHereSinceStaysAChange)
{
    here.ChangeMessage(entry, "by me");

    Recover();

    EXPECT_TRUE(here.records.FindItem(id)->isWhole);
    EXPECT_LT(here.records.FindItem(id)->modified, here.ModifiedOf(entry));
}

TEST_F(RecoveryTest, WhatWasNeverSentAndHasNoRowIsForgotten)
{
    const std::string kept = Apply(here.AddMessage("with a row"));
    const std::string edited = here.AddMessage("changed since");
    const std::string idOfEdited = Apply(edited);
    here.ChangeMessage(edited, "so");
    Apply(edited);
    LoseRow(id);
    LoseRow(idOfEdited);

    Recovery(here.parts, here.engine).ForgetUnsent(here.share);

    EXPECT_FALSE(here.records.FindItem(id));
    EXPECT_TRUE(here.records.FindItem(kept));
    EXPECT_TRUE(here.records.FindItem(idOfEdited));
}

}  // namespace

}  // namespace quorvane::host
