#include "host/sharing/deletion_notes.h"

#include <gtest/gtest.h>

#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

class DeletionNotesTest : public ::testing::Test {
protected:
    // Items that alice has sent: their messages.
    void AddItems(int count)
    {
        for (int i = 0; i < count; ++i) {
            entries_.push_back(here.AddMessage("mail"));
            here.AddRow(IdOf(i), entries_.back());
            here.records.PutItem({IdOf(i), "{F}", {100, "alice"}, false, here.ModifiedOf(entries_.back())});
        }
    }
    static std::string IdOf(int i) { return "{ITEM" + std::to_string(i) + "}"; }
    void Delete(int from, int to)
    {
        for (int i = from; i < to; ++i)
            here.DeleteMessage(entries_[static_cast<std::size_t>(i)]);
    }
    int CountNoted()
    {
        Statement select(here.hostRecords, "SELECT count(*) FROM item WHERE deleted = 1 AND pending = 1");
        return select.Step() ? static_cast<int>(select.Number(0)) : -1;
    }
    void Note(int i)
    {
        const auto lock = here.addin.Versions().Hold();
        EXPECT_TRUE(here.addin.Deletions().Note(IdOf(i), "{F}").deleted);
    }

    SharedTestMailbox here;
    std::vector<std::string> entries_;
};

TEST_F(DeletionNotesTest, WhereSeveralGoAllThatAreGoneAreNoted)
{
    AddItems(20);
    Delete(0, 15);
    for (int i = 0; i < 3; ++i)
        Note(i);
    EXPECT_EQ(CountNoted(), 3);
    Note(3);
    EXPECT_EQ(CountNoted(), 15);
}

TEST_F(DeletionNotesTest, OneThatIsNotedStaysAsItWasNoted)
{
    AddItems(1);
    Delete(0, 1);
    Note(0);
    const auto noted = here.records.FindItem(IdOf(0));
    Note(0);
    EXPECT_EQ(here.records.FindItem(IdOf(0))->heads, noted->heads);
}

TEST_F(DeletionNotesTest, WhatIsInAnotherFolderIsGoneAndWhatIsHereIsnt)
{
    AddItems(8);
    Delete(0, 4);
    here.MoveMessage(entries_[4], *here.folder, *EnsureFolder(here.mail, "Elsewhere"));
    for (int i = 0; i < 4; ++i)
        Note(i);
    EXPECT_EQ(CountNoted(), 5);
    EXPECT_TRUE(here.records.FindItem(IdOf(4))->deleted);
}

TEST_F(DeletionNotesTest, WhatIsntWholeIsLeftToWhoeverHasIt)
{
    AddItems(5);
    ItemRecord record = *here.records.FindItem(IdOf(4));
    record.isWhole = false;
    here.records.PutItem(record);
    Delete(0, 5);
    for (int i = 0; i < 4; ++i)
        Note(i);
    EXPECT_FALSE(here.records.FindItem(IdOf(4))->deleted);
}

}  // namespace

}  // namespace quorvane::host
