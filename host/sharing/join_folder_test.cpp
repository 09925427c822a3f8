#include "host/sharing/join_folder.h"

#include <gtest/gtest.h>

#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

class JoinFolderTest : public ::testing::Test {
protected:
    // alice shares a folder of hers.
    JoinFolderTest()
    {
        founding.folder = "{HERS}";
        founding.member = here.alice.Signing();
        founding.name = "alice";
    }

    KnownFolder Invitation(const std::string& name)
    {
        const std::string bytes = WriteMembershipEntry(here.alice, founding);
        exchange::MembershipEntry entry = founding;
        entry.change = exchange::MembershipChange::kAdd;
        entry.member = here.transport.keys.Signing();
        entry.name = "bob";
        entry.seen = {exchange::IdOfEntry(bytes)};
        here.transport.folders.Take(
            *here.transport.peers.Find(here.alice.Id()),
            exchange::WriteFolderNote(
                {true, {}, founding.folder, name, {bytes, WriteMembershipEntry(here.alice, entry)}}));
        return here.transport.folders.Invitations().at(0);
    }
    std::string Join(const KnownFolder& invitation, const JoinPlace& place = {})
    {
        return JoinFolder(invitation, place, here.mail, here.records, here.transport.folders, "alice").name;
    }
    std::string EntryIdAt(const std::string& path) const
    {
        return HexOf(*FindFolder(here.mail, path), PR_ENTRYID);
    }

    SharedTestMailbox here;
    exchange::MembershipEntry founding;
};

TEST_F(JoinFolderTest, ANewFolderHasTheNameThatItHasAtTheOneWhoInvited)
{
    EXPECT_EQ(Join(Invitation("Projects/2026")), "Projects/2026");
    EXPECT_EQ(here.records.FindShare("{HERS}")->entryId, EntryIdAt("Projects/2026"));
    EXPECT_TRUE(here.transport.folders.Invitations().empty());
}

// Empty or not, shared or not.
TEST_F(JoinFolderTest, AFolderThatIsThereIsNeverJoinedUnasked)
{
    EnsureFolder(here.mail, "Empty");
    EnsureFolder(here.mail, "Empty (alice)");
    EXPECT_EQ(Join(Invitation("Empty")), "Empty (alice 2)");
    EXPECT_NE(here.records.FindShare("{HERS}")->entryId, EntryIdAt("Empty"));
    founding.folder = "{ANOTHER}";
    EXPECT_EQ(Join(Invitation("Shared")), "Shared (alice)");
    EXPECT_EQ(here.records.FindShare("{F}")->entryId, EntryIdAt("Shared"));
}

TEST_F(JoinFolderTest, AnotherNameIsTakenWhereItIsFree)
{
    EnsureFolder(here.mail, "Taken");
    const KnownFolder invitation = Invitation("Hers");
    EXPECT_THROW(Join(invitation, {"Taken", {}}), HostError);
    EXPECT_FALSE(here.records.FindShare("{HERS}"));
    EXPECT_EQ(Join(invitation, {"Free", {}}), "Free");
    EXPECT_THROW(FindFolder(here.mail, "Hers"), HostError);
}

TEST_F(JoinFolderTest, OnlyTheUsersWordJoinsAFolderThatIsThereAndNoneThatIsShared)
{
    const std::string entryId = HexOf(*EnsureFolder(here.mail, "Mine"), PR_ENTRYID);
    const KnownFolder invitation = Invitation("Hers");
    EXPECT_THROW(Join(invitation, {{}, "Shared"}), HostError);
    EXPECT_THROW(Join(invitation, {{}, "Missing"}), HostError);
    EXPECT_EQ(Join(invitation, {{}, "Mine"}), "Mine");
    EXPECT_EQ(here.records.FindShare("{HERS}")->entryId, entryId);
    EXPECT_THROW(Join(invitation), HostError) << "it is here already";
}

// Killed between the folder and its note.
TEST_F(JoinFolderTest, AFolderThatAKilledAttemptMadeIsTakenUp)
{
    Invitation("Hers");
    here.transport.folders.NoteTarget(here.transport.folders.Invitations()[0], "Hers");
    ComPtr<IMAPIFolder> made = EnsureFolder(here.mail, "Hers");
    EXPECT_EQ(Join(here.transport.folders.Invitations()[0]), "Hers");

    founding.folder = "{ANOTHER}";
    Invitation("Used");
    here.transport.folders.NoteTarget(here.transport.folders.Invitations()[0], "Used");
    made = EnsureFolder(here.mail, "Used");
    SharedTestMailbox::AddMessage(*made, "put there since");
    EXPECT_EQ(Join(here.transport.folders.Invitations()[0]), "Used (alice)");
}

}  // namespace

}  // namespace quorvane::host
