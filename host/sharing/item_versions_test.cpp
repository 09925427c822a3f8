#include "host/sharing/item_versions.h"

#include "host/sharing/sender.h"
#include "host/sharing/versions_for_test.h"

namespace quorvane::host {

namespace {

constexpr ULONG kFlagStatus = PROP_TAG(PT_LONG, 0x1090);

TEST_F(ItemVersionsTest, AChangeOfContentIsAVersionAndOfFlagsNone)
{
    const ComPtr<IMessage> message = Open();
    ASSERT_EQ(SetLong(*message, kFlagStatus, 2), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    here.state.SetRowTime("{I}", 1);  // as it was sent last
    EXPECT_FALSE(IsSent());
    EXPECT_EQ(Record().heads, known);
    EXPECT_EQ(Record().modified, here.ModifiedOf(entryId));

    here.ChangeMessage(entryId, "changed");
    EXPECT_TRUE(IsSent());

    EXPECT_TRUE(Record().heads.Shown()->Supersedes(*known.Shown()));
    EXPECT_EQ(Record().version.member, "bob");
    EXPECT_TRUE(Record().isPending);
}

// A flag that was set here while a colleague changed the subject.
TEST_F(ItemVersionsTest, FlagsThatWereSetHereLoseNobodysEdit)
{
    const ComPtr<IMessage> message = Open();
    ASSERT_EQ(SetLong(*message, kFlagStatus, 2), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    here.state.SetRowTime("{I}", 1);

    const auto verdict = Arrive(alice.Edit(known, 2, 'n'));

    EXPECT_TRUE(verdict.isApplied);
    EXPECT_TRUE(verdict.record.heads.Beaten().empty());
    EXPECT_TRUE(InTrash().empty());
}

TEST_F(ItemVersionsTest, AnEditThatWasntSentYetMeetsWhatArrivesAsAConflict)
{
    here.ChangeMessage(entryId, "by bob");
    here.state.SetRowTime("{I}", 1);

    const auto verdict = Arrive(alice.Edit(known, exchange::Revision::kLatestStamp - 1, 'n'));

    EXPECT_TRUE(verdict.isApplied) << "hers is the later one";
    EXPECT_EQ(verdict.record.heads.Beaten().size(), 1U);
    EXPECT_TRUE(verdict.record.isPending) << "that it was changed here is to be told";
    ASSERT_EQ(InTrash().size(), 1U);
    const TrashEntry kept = InTrash()[0];
    EXPECT_EQ(kept.subject, "by bob");
    EXPECT_EQ(kept.why, TrashEntry::Why::kBeaten);
    EXPECT_EQ(kept.copy, exchange::ConflictCopyId("{I}", verdict.record.heads.Beaten()[0]));
}

TEST_F(ItemVersionsTest, AnEditThatIsLaterStaysAndIsStillToBeSent)
{
    here.ChangeMessage(entryId, "by bob");
    here.state.SetRowTime("{I}", 1);

    const auto verdict = Arrive(alice.Edit(known, 2, 'n'));

    EXPECT_FALSE(verdict.isApplied);
    EXPECT_TRUE(verdict.isNoted);
    EXPECT_EQ(Record().heads.Beaten().size(), 1U);
    EXPECT_TRUE(InTrash().empty());
    const exchange::ItemHeads noted = Record().heads;
    EXPECT_TRUE(IsSent());
    EXPECT_EQ(Record().heads, noted) << "it was a version already";
}

TEST_F(ItemVersionsTest, WhatReplacesAVersionThatItHadntSeenLeavesThatInTheTrash)
{
    const auto byCarol = carol.Edit(known, 5, 'c');
    ASSERT_TRUE(Arrive(byCarol).isApplied);
    EXPECT_TRUE(InTrash().empty()) << "she had seen it";
    here.addin.OnPostprocess(BstrOf(entryId).Get(), BstrOf(here.share.storeId).Get());
    ASSERT_TRUE(Record().isWhole);

    const auto verdict = Arrive(alice.Edit(known, 6, 'a'));

    EXPECT_TRUE(verdict.isApplied);
    ASSERT_EQ(InTrash().size(), 1U);
    EXPECT_EQ(InTrash()[0].why, TrashEntry::Why::kReplaced);
    EXPECT_EQ(InTrash()[0].copy, "") << "carol keeps it";
}

TEST_F(ItemVersionsTest, ADeletionIsAppliedOnceMoreWhenAKillCameBefore)
{
    const auto deletion = alice.Delete(known, 5);
    EXPECT_TRUE(Arrive(deletion, false).isApplied);
    EXPECT_EQ(InTrash().size(), 1U);

    EXPECT_TRUE(Arrive(deletion, false).isApplied) << "the message is there yet";
    EXPECT_EQ(InTrash().size(), 1U);

    here.DeleteMessage(entryId);
    EXPECT_FALSE(Arrive(deletion, false).isApplied);
}

TEST_F(ItemVersionsTest, AnItemIsAppliedOnceMoreWhenAKillCameBefore)
{
    const auto edit = alice.Edit(known, 5, 'n');
    EXPECT_TRUE(Arrive(edit).isApplied);
    EXPECT_TRUE(Arrive(edit).isApplied);
    here.addin.OnPostprocess(BstrOf(entryId).Get(), BstrOf(here.share.storeId).Get());
    EXPECT_FALSE(Arrive(edit).isApplied);
}

TEST_F(ItemVersionsTest, AnEditIsStrongerThanADeletionThatHadntSeenItWhicheverComesFirst)
{
    const auto deletion = alice.Delete(known, 9), edit = carol.Edit(known, 5, 'c');
    ASSERT_TRUE(Arrive(deletion, false).isApplied);
    EXPECT_TRUE(Record().deleted);

    EXPECT_TRUE(Arrive(edit).isApplied);

    EXPECT_FALSE(Record().deleted);
    EXPECT_FALSE(Arrive(deletion, false).isApplied);
    EXPECT_FALSE(Record().deleted);
}

TEST_F(ItemVersionsTest, WhatSaysNothingOfItsVersionIsLeftOut)
{
    for (const char* text : {"", "{}", R"({"heads":"00","member":"alice"})"}) {
        const auto verdict = here.addin.Versions().Judge({"{I}", "{F}", "alice", text, true});
        EXPECT_FALSE(verdict.isApplied || verdict.isNoted) << text;
    }
    ItemRecord sent{"{I}", "{F}", {1, "alice"}, false, 0, alice.Delete(known, 5), true, false};
    EXPECT_FALSE(here.addin.Versions().Judge({"{I}", "{F}", "alice", FormatItem(sent), true}).isApplied)
        << "a deletion with a message";
}

// While the shown content isn't here, nobody can have changed it having seen it: what is made of it is no
// version, and becomes an item of its own when something takes its place.
class UnseenEditTest : public ItemVersionsTest {
protected:
    void SetUp() override
    {
        ItemVersionsTest::SetUp();
        ASSERT_TRUE(Arrive(edit()).isApplied);
        ASSERT_FALSE(Record().isWhole);
        here.ChangeMessage(entryId, "by bob");
        here.state.SetRowTime("{I}", 1);
    }
    exchange::ItemHeads edit() const { return alice.Edit(known, 5, 'n'); }
    void ExpectKeptAsAnItem()
    {
        ASSERT_EQ(InTrash().size(), 1U);
        EXPECT_EQ(InTrash()[0].subject, "by bob");
        EXPECT_EQ(InTrash()[0].why, TrashEntry::Why::kBeaten);
        EXPECT_FALSE(InTrash()[0].copy.empty());
    }
};

TEST_F(UnseenEditTest, IsntSentAndIsKeptWhenTheContentComes)
{
    bool ignore = false;
    EXPECT_EQ(here.addin.OnItemChanged(here.ItemOf("{I}").Get(), ignore), E_ABORT);
    Sender sender(here.addin, here.parts, here.engine);
    EXPECT_FALSE(sender.SendItem(here.share, entryId, here.share.entryId));
    EXPECT_TRUE(Arrive(edit()).isApplied);
    ExpectKeptAsAnItem();
}

// A kill came between the row of what was applied and the record of it, and the edit in the same second.
TEST_F(UnseenEditTest, IsKeptWhereTheRowsTimeDoesntTellIt)
{
    here.state.SetRowTime("{I}", here.ModifiedOf(entryId));
    EXPECT_TRUE(Arrive(edit()).isApplied);
    ExpectKeptAsAnItem();
}

TEST_F(ItemVersionsTest, WhatAKillCameBehindIsNobodysEdit)
{
    exchange::ItemHeads applied = known;
    ASSERT_TRUE(Arrive(alice.Edit(known, 5, 'n')).isApplied);
    // Before it is applied, and when it is.
    ASSERT_TRUE(Arrive(alice.Edit(known, 5, 'n')).isApplied);
    EXPECT_TRUE(InTrash().empty());
    here.ChangeMessage(entryId, "newer");
    applied.Change(alice.changer, alice.id, 5, DigestOf(ReadContent(*Open(), "{I}")),
                   [](const exchange::Revision&) { return false; });
    ItemRecord record = Record();
    record.heads = applied;
    here.records.PutItem(record);

    EXPECT_TRUE(Arrive(applied).isApplied);

    EXPECT_TRUE(InTrash().empty());
}

TEST_F(UnseenEditTest, IsKeptWhenADeletionComesAndIsThereOnce)
{
    const auto deletion = alice.Delete(edit(), 6);
    EXPECT_TRUE(Arrive(deletion, false).isApplied);
    ExpectKeptAsAnItem();
    const std::string copy = InTrash()[0].copy;
    // Once more, as after a kill.
    (void)Arrive(deletion, false);
    ExpectKeptAsAnItem();
    EXPECT_EQ(InTrash()[0].copy, copy);
}

}  // namespace

}  // namespace quorvane::host
