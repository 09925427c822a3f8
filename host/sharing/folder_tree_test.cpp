#include "host/sharing/folder_tree.h"

#include <gtest/gtest.h>

#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

using Paths = std::vector<std::string>;

// bob shares "Shared" with alice and carol, as a tree.
class FolderTreeTest : public ::testing::Test {
protected:
    FolderTreeTest()
    {
        here.LetIn({"alice", "carol"});
        here.transport.folders.ShareAsTree("{F}");
    }

    static Paths PathsOf(const std::vector<Share>& shares)
    {
        Paths paths;
        for (const Share& share : shares)
            paths.push_back(share.name);
        return paths;
    }
    void Make(const Paths& paths) const
    {
        for (const std::string& path : paths)
            EnsureFolder(here.mail, path);
    }
    Paths Follow(const std::string& anew = {}) { return PathsOf(trees.ShareWhatLiesIn(anew)); }
    Share At(const std::string& path)
    {
        return here.records.FindShareByEntryId(HexOf(*FindFolder(here.mail, path), PR_ENTRYID)).value();
    }
    bool IsShared(const std::string& path)
    {
        return here.records.FindShareByEntryId(HexOf(*FindFolder(here.mail, path), PR_ENTRYID)).has_value();
    }
    // alice's folder, accepted at a path; where she says that it lies in.
    void TakeHers(const std::string& path)
    {
        exchange::MembershipEntry founding, addition;
        founding.folder = addition.folder = "{HERS}";
        founding.member = here.alice.Signing();
        founding.name = "alice";
        const std::string first = WriteMembershipEntry(here.alice, founding);
        addition.change = exchange::MembershipChange::kAdd;
        addition.member = here.transport.keys.Signing();
        addition.name = "bob";
        addition.seen = {exchange::IdOfEntry(first)};
        here.transport.folders.Take(
            *here.transport.peers.Find(here.alice.Id()),
            exchange::WriteFolderNote(
                {true, {}, "{HERS}", "Hers", {first, WriteMembershipEntry(here.alice, addition)}}));
        here.transport.folders.Accept(
            here.transport.folders.Invitations().at(0),
            {"{HERS}", HexOf(*EnsureFolder(here.mail, path), PR_ENTRYID), here.mail.StoreId(), path});
    }

    SharedTestMailbox here;
    const exchange::DeviceKeys dave;
    FolderTrees trees{here.mail, here.records, here.transport.folders};
};

TEST_F(FolderTreeTest, AllThatLiesInATreeIsSharedWithItsMembersAndNothingElse)
{
    Make({"Shared/A/B/C", "Shared/D", "Shared 2/E", "Other/Shared/F"});
    EXPECT_EQ(Follow(), (Paths{"Shared/A", "Shared/A/B", "Shared/A/B/C", "Shared/D"}));
    EXPECT_EQ(Follow(), Paths{});
    EXPECT_EQ(here.records.Members(At("Shared/A/B/C").folderId), (Paths{"alice", "carol"}));
    EXPECT_EQ(here.records.Shares().size(), 5U);
    EXPECT_EQ(PathsOf(trees.Of(At("Shared"))),
              (Paths{"Shared", "Shared/A", "Shared/A/B", "Shared/A/B/C", "Shared/D"}));
    EXPECT_EQ(PathsOf(trees.Of(At("Shared/A/B"))), (Paths{"Shared/A/B", "Shared/A/B/C"}));
}

TEST_F(FolderTreeTest, NothingFollowsAFolderThatIsNoTree)
{
    here.transport.folders.Found(
        {"{P}", HexOf(*EnsureFolder(here.mail, "Plain"), PR_ENTRYID), here.mail.StoreId(), "Plain"});
    Make({"Plain/A"});
    EXPECT_EQ(Follow(), Paths{});
    EXPECT_FALSE(IsShared("Plain/A"));
}

TEST_F(FolderTreeTest, WhatIsMovedInComesAlongAndWhatIsMovedOutStaysShared)
{
    Make({"Shared/A/B", "Far/X/Y"});
    Follow();
    MoveFolder(here.mail, "Far/X", "Shared/A/X");
    MoveFolder(here.mail, "Shared/A/B", "Far/B");
    EXPECT_EQ(Follow(), (Paths{"Shared/A/X", "Shared/A/X/Y"}));
    EXPECT_TRUE(IsShared("Far/B"));
    Make({"Far/B/New"});
    EXPECT_EQ(Follow(), Paths{}) << "what is made there isn't in the tree";
    // One that is shared already is put into it with its own members beside the tree's.
    MoveFolder(here.mail, "Far/B", "Shared/A/X/B");
    EXPECT_EQ(Follow(), Paths{"Shared/A/X/B/New"});
}

TEST_F(FolderTreeTest, AFolderThatIsSharedNoMoreIsLeftOutWithAllThatIsInItUntilItsTreeIsSharedAnew)
{
    Make({"Shared/A/B", "Shared/C"});
    Follow();
    here.transport.folders.Dissolve(At("Shared/A").folderId);
    Make({"Shared/A/New"});
    EXPECT_EQ(Follow(), Paths{});
    EXPECT_EQ(PathsOf(trees.Of(At("Shared"))), (Paths{"Shared", "Shared/C"}));
    EXPECT_TRUE(IsShared("Shared/A/B"));
    EXPECT_EQ(Follow(At("Shared").entryId), (Paths{"Shared/A", "Shared/A/New"}));
}

TEST_F(FolderTreeTest, AnothersFolderIsLeftToItsFounder)
{
    TakeHers("Shared/Hers");
    Make({"Shared/Hers/Mine"});
    EXPECT_EQ(Follow(), Paths{});
    EXPECT_FALSE(IsShared("Shared/Hers/Mine"));
    EXPECT_EQ(here.records.Members("{HERS}"), Paths{"alice"}) << "carol isn't brought in";
    // Who says so of it shares his own folders in it.
    here.transport.folders.ShareAsTree("{HERS}");
    EXPECT_EQ(Follow(), Paths{"Shared/Hers/Mine"});
    EXPECT_EQ(here.records.Members(At("Shared/Hers/Mine").folderId), Paths{"alice"});
}

TEST_F(FolderTreeTest, ATreeInATreeHasTheMembersOfBoth)
{
    here.Pin(dave, "dave");
    Make({"Shared/In/A"});
    Follow();
    here.transport.folders.ShareAsTree(At("Shared/In").folderId);
    here.transport.folders.Invite(At("Shared/In").folderId, "dave");
    Make({"Shared/In/B", "Shared/C"});
    EXPECT_EQ(Follow(), (Paths{"Shared/In/B", "Shared/C"}));
    EXPECT_EQ(here.records.Members(At("Shared/In/B").folderId), (Paths{"alice", "carol", "dave"}));
    EXPECT_EQ(here.records.Members(At("Shared/C").folderId), (Paths{"alice", "carol"}));
}

TEST_F(FolderTreeTest, AFolderThatSearchesIsLeftOut)
{
    OleString name = FromUtf8("Unread");
    ComPtr<IMAPIFolder> made;
    Check(here.folder->CreateFolder(FOLDER_SEARCH, reinterpret_cast<LPTSTR>(name.data()), nullptr, nullptr,
                                    MAPI_UNICODE, made.Put()),
          "make", "a folder that searches");
    Make({"Shared/A"});
    EXPECT_EQ(Follow(), Paths{"Shared/A"});
}

TEST_F(FolderTreeTest, AFolderWhosePathCantBeToldIsLeftOut)
{
    const std::string name(400, 'n');
    Make({"Shared/" + name + "/" + name + "/" + name});
    EXPECT_EQ(Follow(), (Paths{"Shared/" + name, "Shared/" + name + "/" + name}));
}

}  // namespace

}  // namespace quorvane::host
