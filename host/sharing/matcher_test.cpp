#include "host/sharing/matcher.h"

#include <gtest/gtest.h>

#include "host/sharing/sender.h"
#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

class MatcherTest : public ::testing::Test {
protected:
    // The package of the folder, as the engine lists it.
    std::string PackagePath()
    {
        return ReadText(*here.PackageFor(here.share.entryId), &IStorageFile::get_Path);
    }

    // Puts a message into the package; its sharing ID.
    std::string Send(const std::string& entryId)
    {
        EXPECT_TRUE(sender.SendItem(here.share, entryId, here.share.entryId));
        return here.state.RowOfEntry(entryId)->id;
    }

    // The same, and then as a kill leaves it that comes between the message and its row.
    std::string LeaveHalfApplied(const std::string& entryId)
    {
        const std::string id = Send(entryId);
        Note(id, false, 0);
        here.Execute("DELETE FROM tblItem WHERE ID = '" + id + "'");
        return id;
    }

    void Note(const std::string& id, bool deleted, std::uint64_t modified)
    {
        const ItemRecord record{id, "{F}", {100, "alice"}, deleted, modified};
        here.records.PutItem(record);
    }

    SharedTestMailbox here;
    Sender sender{here.addin, here.parts, here.engine};
    Matcher matcher{here.parts, here.engine};
};

TEST_F(MatcherTest, MessagesOfThePackageWithoutRowsGetThemBack)
{
    const std::string one = here.AddMessage("one");
    const std::string two = here.AddMessage("two");
    const std::string idOfOne = LeaveHalfApplied(one);
    const std::string idOfTwo = LeaveHalfApplied(two);

    matcher.MatchPackage(PackagePath());

    EXPECT_EQ(here.state.RowOfEntry(one)->id, idOfOne);
    EXPECT_EQ(here.state.RowOfEntry(two)->id, idOfTwo);
    EXPECT_EQ(here.Ask("SELECT count(*) FROM tblItem"), 2);
}

TEST_F(MatcherTest, AMessageThatHasARowKeepsIt)
{
    const std::string entryId = here.AddMessage("one");
    const std::string id = LeaveHalfApplied(entryId);
    here.AddRow("{ANOTHER}", entryId);

    matcher.MatchPackage(PackagePath());

    EXPECT_EQ(here.state.RowOfEntry(entryId)->id, "{ANOTHER}");
    EXPECT_FALSE(here.state.RowOfId(id));
}

TEST_F(MatcherTest, WhatIsntInThePackageGetsNoRow)
{
    LeaveHalfApplied(here.AddMessage("sent"));
    const std::string mine = here.AddMessage("mine");

    matcher.MatchPackage(PackagePath());

    EXPECT_FALSE(here.state.RowOfEntry(mine));
}

// A copy shares the search key of the item that it was made of.
TEST_F(MatcherTest, AMessageMadeHereDoesntBecomeAnItemThatWasDeletedOrAppliedToTheEndOrNeverHeardOf)
{
    const std::string entryId = here.AddMessage("one");
    const std::string id = LeaveHalfApplied(entryId);

    Note(id, true, 0);
    matcher.MatchPackage(PackagePath());
    EXPECT_FALSE(here.state.RowOfEntry(entryId));
    Note(id, false, here.ModifiedOf(entryId));
    matcher.MatchPackage(PackagePath());
    EXPECT_FALSE(here.state.RowOfEntry(entryId));
    Statement(here.hostRecords, "DELETE FROM item").Run();
    matcher.MatchPackage(PackagePath());
    EXPECT_FALSE(here.state.RowOfEntry(entryId));

    Note(id, false, 0);
    matcher.MatchPackage(PackagePath());
    EXPECT_EQ(here.state.RowOfEntry(entryId)->id, id);
}

TEST_F(MatcherTest, UnfinishedPackagesAreLookedThroughAndThoseThatAreGoneArent)
{
    const std::string entryId = here.AddMessage("one");
    const std::string id = LeaveHalfApplied(entryId);
    here.Execute("INSERT INTO tblUnfinishedReceiveJob (Path, Tag) VALUES ('" + PackagePath() + "', 'alice')");
    here.Execute("INSERT INTO tblUnfinishedReceiveJob (Path, Tag) VALUES ('/nowhere/package.qvt', 'alice')");

    matcher.MatchUnfinished();

    EXPECT_EQ(here.state.RowOfEntry(entryId)->id, id);
}

TEST_F(MatcherTest, AFileThatIsNoPackageMatchesNothing)
{
    const std::string entryId = here.AddMessage("one");

    matcher.MatchPackage((here.directory / "nowhere.qvt").string());

    EXPECT_FALSE(here.state.RowOfEntry(entryId));
}

}  // namespace

}  // namespace quorvane::host
