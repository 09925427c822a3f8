#include "host/matcher.h"

#include <gtest/gtest.h>

#include "host/sender.h"
#include "host/test_mailbox.h"

namespace quorvane::host {

namespace {

class MatcherTest : public ::testing::Test {
protected:
    // The package of the folder, as the engine lists it.
    std::string PackagePath()
    {
        Variant value;
        Check(here.engine.StorageFiles()->get_Item(Variant::Text(FromUtf8(here.share.entryId)).Raw(),
                                                   value.Put()),
              "find the package of", here.share.name);
        ComPtr<IStorageFile> file;
        Check(QueryFor(value.Raw().pdispVal, file), "find the package of", here.share.name);
        return ReadText(*file, &IStorageFile::get_Path);
    }

    std::string Send(const std::string& entryId)
    {
        EXPECT_TRUE(sender.SendItem(here.share, entryId, here.share.entryId));
        return here.state.RowOfEntry(entryId)->id;
    }

    SharedTestMailbox here;
    Sender sender{here.addin, here.parts, here.engine};
    Matcher matcher{here.parts, here.engine};
};

TEST_F(MatcherTest, MessagesOfThePackageWithoutRowsGetThemBack)
{
    const std::string one = here.AddMessage("one");
    const std::string two = here.AddMessage("two");
    const std::string idOfOne = Send(one);
    const std::string idOfTwo = Send(two);
    here.Execute("DELETE FROM tblItem");

    matcher.MatchPackage(PackagePath());

    EXPECT_EQ(here.state.RowOfEntry(one)->id, idOfOne);
    EXPECT_EQ(here.state.RowOfEntry(two)->id, idOfTwo);
    EXPECT_EQ(here.Ask("SELECT count(*) FROM tblItem"), 2);
}

TEST_F(MatcherTest, AMessageThatHasARowKeepsIt)
{
    const std::string entryId = here.AddMessage("one");
    const std::string id = Send(entryId);
    here.Execute("UPDATE tblItem SET ID = '{ANOTHER}'");

    matcher.MatchPackage(PackagePath());

    EXPECT_EQ(here.state.RowOfEntry(entryId)->id, "{ANOTHER}");
    EXPECT_FALSE(here.state.RowOfId(id));
}

TEST_F(MatcherTest, WhatIsntInThePackageGetsNoRow)
{
    Send(here.AddMessage("sent"));
    const std::string mine = here.AddMessage("mine");

    matcher.MatchPackage(PackagePath());

    EXPECT_FALSE(here.state.RowOfEntry(mine));
}

TEST_F(MatcherTest, UnfinishedPackagesAreLookedThroughAndThoseThatAreGoneArent)
{
    const std::string entryId = here.AddMessage("one");
    const std::string id = Send(entryId);
    here.Execute("DELETE FROM tblItem");
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
