#include "host/sharing/missing_contents.h"

#include <fstream>

#include "host/sharing/versions_for_test.h"

namespace quorvane::host {

namespace {

// Of {I}, carol's edit is here, and then alice's, which hadn't seen it and is deleted by who hadn't seen
// carol's either: carol's is shown again.
class MissingContentsTest : public ItemVersionsTest {
protected:
    void SetUp() override
    {
        ItemVersionsTest::SetUp();
        here.ChangeMessage(entryId, "by carol");
        byCarol = known;
        byCarol.Change(carol.changer, carol.id, 5, DigestOf(ReadContent(*Open(), "{I}")),
                       [](const exchange::Revision&) { return false; });
        Note(byCarol);
        byAlice = alice.Edit(known, 6, 'a');
        ASSERT_TRUE(Arrive(byAlice).isApplied);
        here.ChangeMessage(entryId, "by alice");
        Note(here.records.FindItem("{I}")->heads);
        missing.Look();
    }
    // As what the message shows.
    void Note(const exchange::ItemHeads& heads)
    {
        here.records.PutItem({"{I}", "{F}", {1, "alice"}, false, here.ModifiedOf(entryId), heads});
        here.state.SetRowTime("{I}", here.ModifiedOf(entryId));
    }
    void DeleteAlices()
    {
        Arrive(alice.Delete(byAlice, 7), false);
        ASSERT_FALSE(Record().isWhole);
        ASSERT_EQ(*Record().heads.Shown(), *byCarol.Shown());
    }
    TrashEntry Kept()
    {
        return here.addin.Versions().Removed().FindContent("{I}", RevisionText(*byCarol.Shown())).value();
    }
    std::string Subject() { return TextOf(*Open(), PR_SUBJECT_W); }
    // Until the engine has no package any more.
    bool AwaitApplied()
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (here.state.IsReceiving())
            if (std::chrono::steady_clock::now() > deadline)
                return false;
        return true;
    }
    void KnowCopy(bool isWhole)
    {
        ItemRecord copy{exchange::ConflictCopyId("{I}", *byCarol.Shown()),
                        "{F}",
                        {1, "carol"},
                        false,
                        1,
                        carol.Edit({}, 8, 'c')};
        copy.isWhole = isWhole;
        here.records.PutItem(copy);
    }

    exchange::ItemHeads byCarol, byAlice;
    std::vector<std::string> told;
    Sender sender{here.addin, here.parts, here.engine};
    MissingContents missing{here.parts, here.addin, here.engine, sender,
                            [this](const std::string& line) { told.push_back(line); }};
};

TEST_F(MissingContentsTest, WhatLiesInTheTrashIsPutBackAsTheItemAndIsToBeSent)
{
    DeleteAlices();
    const exchange::ItemHeads heads = Record().heads;
    EXPECT_EQ(Subject(), "by alice");

    missing.Look();
    ASSERT_TRUE(AwaitApplied());

    EXPECT_EQ(Subject(), "by carol");
    EXPECT_TRUE(Record().isWhole);
    EXPECT_EQ(Record().heads, heads) << "it is no change";
    EXPECT_EQ(here.records.PendingItems("{F}"), std::vector<std::string>{"{I}"});
    EXPECT_EQ(told.size(), 1U) << told[0];
    missing.Look();
    EXPECT_FALSE(here.state.IsReceiving());
    EXPECT_EQ(told.size(), 1U) << told[0];
}

TEST_F(MissingContentsTest, OfAnItemThatHasNoMessageHereOneIsMade)
{
    DeleteAlices();
    here.DeleteMessage(entryId);
    Check(here.engine.Session().DeleteItem(BstrOf("{I}").Get()), "forget", "{I}");

    missing.Look();
    ASSERT_TRUE(AwaitApplied());

    ASSERT_TRUE(here.state.RowOfId("{I}"));
    entryId = here.state.RowOfId("{I}")->entryId;
    EXPECT_EQ(Subject(), "by carol");
    EXPECT_TRUE(Record().isWhole);
}

TEST_F(MissingContentsTest, WhatSomebodyMadeOfItMeanwhileIsKeptFirst)
{
    DeleteAlices();
    here.ChangeMessage(entryId, "by bob");
    here.state.SetRowTime("{I}", 1);

    missing.Look();
    ASSERT_TRUE(AwaitApplied());

    EXPECT_EQ(Subject(), "by carol");
    ASSERT_EQ(here.addin.Versions().Removed().CopiesDue().size(), 1U);
    EXPECT_EQ(here.addin.Versions().Removed().CopiesDue()[0].subject, "by bob");
}

TEST_F(MissingContentsTest, WithoutTheContentNothingIsDone)
{
    DeleteAlices();
    here.addin.Versions().Removed().Remove(Kept());
    const ItemRecord before = Record();

    missing.Look();

    EXPECT_FALSE(here.state.IsReceiving());
    EXPECT_EQ(Subject(), "by alice");
    EXPECT_EQ(Record().heads, before.heads);
    EXPECT_FALSE(Record().isWhole || Record().isPending);
    EXPECT_TRUE(told.empty());
}

TEST_F(MissingContentsTest, WhatIsntWhatWasPutThereIsToldOnceAndLeft)
{
    DeleteAlices();
    const TrashEntry other = InTrash()[0];
    ASSERT_NE(other.number, Kept().number);
    const std::filesystem::path place = here.addin.Versions().Removed().FileOf(Kept());
    std::filesystem::remove(place);
    std::filesystem::copy_file(here.addin.Versions().Removed().FileOf(other), place);
    missing.Look();
    missing.Look();

    EXPECT_FALSE(here.state.IsReceiving());
    EXPECT_FALSE(Record().isWhole);
    EXPECT_EQ(told.size(), 1U) << told[0];
}

TEST_F(MissingContentsTest, WhatStandsInItsCopyGoesHere)
{
    DeleteAlices();
    KnowCopy(true);

    missing.Look();

    EXPECT_FALSE(Open());
    EXPECT_FALSE(here.state.RowOfId("{I}"));
    EXPECT_TRUE(Record().deleted && Record().isPending);
    EXPECT_TRUE(Record().heads.Shown()->Supersedes(*byCarol.Shown()));
}

TEST_F(MissingContentsTest, WhatWasMadeOfItMeanwhileIsKeptWhenItGoes)
{
    DeleteAlices();
    KnowCopy(true);
    here.ChangeMessage(entryId, "by bob");
    here.state.SetRowTime("{I}", 1);

    missing.Look();

    ASSERT_EQ(here.addin.Versions().Removed().CopiesDue().size(), 1U);
    EXPECT_EQ(here.addin.Versions().Removed().CopiesDue()[0].subject, "by bob");
}

// One that was heard of and isn't here proves nothing: the trash may have it.
TEST_F(MissingContentsTest, ACopyThatIsntHereDoesntStandForIt)
{
    DeleteAlices();
    KnowCopy(false);

    missing.Look();
    ASSERT_TRUE(AwaitApplied());

    EXPECT_EQ(Subject(), "by carol");
}

TEST_F(MissingContentsTest, AreLookedForWhenSomethingHappenedAndNotElse)
{
    EXPECT_FALSE(missing.HasWork());
    here.statistics.Touch();
    EXPECT_TRUE(missing.HasWork());
    missing.Look();
    EXPECT_FALSE(missing.HasWork());
}

}  // namespace

}  // namespace quorvane::host
