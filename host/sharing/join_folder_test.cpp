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

    // outer: the founding of the folder that she puts it into.
    KnownFolder Invitation(const std::string& name, const exchange::EntryId& outer = {})
    {
        const std::string bytes = WriteMembershipEntry(here.alice, founding);
        exchange::MembershipEntry entry = founding;
        entry.change = exchange::MembershipChange::kAdd;
        entry.member = here.transport.keys.Signing();
        entry.name = "bob";
        entry.seen = {exchange::IdOfEntry(bytes)};
        std::vector<std::string> entries{bytes, WriteMembershipEntry(here.alice, entry)};
        if (outer != exchange::EntryId{}) {
            exchange::MembershipEntry nests = founding;
            nests.change = exchange::MembershipChange::kNest;
            nests.name.clear();
            nests.seen = {exchange::IdOfEntry(bytes)};
            nests.outer = outer;
            entries.push_back(WriteMembershipEntry(here.alice, nests));
        }
        here.transport.folders.Take(*here.transport.peers.Find(here.alice.Id()),
                                    exchange::WriteFolderNote({true, {}, founding.folder, name, entries}));
        for (const KnownFolder& invitation : here.transport.folders.Invitations())
            if (invitation.folderId == founding.folder)
                return invitation;
        throw HostError("no invitation");
    }
    exchange::EntryId FoundingOf(const std::string& id)
    {
        exchange::MembershipEntry entry = founding;
        entry.folder = id;
        return exchange::IdOfEntry(WriteMembershipEntry(here.alice, entry));
    }
    KnownFolder Inner(const std::string& id, const std::string& name, const std::string& outer)
    {
        const exchange::EntryId in = FoundingOf(outer);
        founding.folder = id;
        return Invitation(name, in);
    }
    JoinedTree JoinAllIn(const KnownFolder& outermost)
    {
        return JoinTree(outermost, here.mail, here.records, here.transport.folders, here.transport.peers);
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

// Wherever the user has it by now, and whatever path it is said to have.
TEST_F(JoinFolderTest, AFolderThatLiesInAnotherIsMadeInThatOneUnderItsLastNameAlone)
{
    Join(Invitation("Hers"), {"Mine", {}});
    MoveFolder(here.mail, "Mine", "Moved");
    EXPECT_EQ(Join(Inner("{A}", "Hers/2026", "{HERS}")), "Moved/2026");
    EXPECT_EQ(Join(Inner("{B}", "/etc/../../Inbox", "{HERS}")), "Moved/Inbox");
    EXPECT_EQ(Join(Inner("{C}", "..", "{HERS}")), "Moved/..");
    EXPECT_EQ(Join(Inner("{D}", "Elsewhere//2026//", "{HERS}")), "Moved/2026 (alice)")
        << "a name that clashes";
    EXPECT_EQ(Join(Inner("{E}", "Hers/2026/Deep", "{A}")), "Moved/2026/Deep");
    EXPECT_EQ(Join(Inner("{G}", "Hers/New", "{HERS}"), {"Apart", {}}), "Apart");
    // One that isn't here, or is gone from the store, holds nothing.
    EXPECT_EQ(Join(Inner("{H}", "Hers/Old", "{NEVER}")), "Hers/Old");
    DeleteFolder(here.mail, "Moved/Inbox");
    EXPECT_EQ(Join(Inner("{I}", "Top", "{B}")), "Top");
}

TEST_F(JoinFolderTest, APathThatWouldBecomeTooLongIsNotMade)
{
    Join(Invitation("Hers"), {std::string(600, 'm'), {}});
    const KnownFolder inner = Inner("{A}", std::string(600, 'n'), "{HERS}");
    EXPECT_THROW(Join(inner), HostError);
    EXPECT_EQ(Join(inner, {"Short", {}}), "Short");
}

TEST_F(JoinFolderTest, WhatLiesInAFolderIsAcceptedWithItAndNothingElse)
{
    const KnownFolder outermost = Invitation("Hers");
    Inner("{A}", "Hers/A", "{HERS}");
    Inner("{B}", "Hers/A/B", "{A}");
    founding.folder = "{APART}";
    Invitation("Apart");
    Join(outermost);
    const JoinedTree tree = JoinAllIn(outermost);
    ASSERT_EQ(tree.joined.size(), 2U);
    EXPECT_EQ(tree.joined[0].share.name, "Hers/A");
    EXPECT_EQ(tree.joined[1].share.name, "Hers/A/B");
    EXPECT_TRUE(tree.failures.empty());
    ASSERT_EQ(here.transport.folders.Invitations().size(), 1U);
    EXPECT_EQ(here.transport.folders.Invitations()[0].name, "Apart");
    EXPECT_EQ(here.transport.folders.Followed().size(), 3U);
    EXPECT_TRUE(IsFollowed(Inner("{C}", "Hers/A/C", "{A}"), here.transport.folders));
    EXPECT_FALSE(IsFollowed(Inner("{D}", "Apart/D", "{APART}"), here.transport.folders));
}

TEST_F(JoinFolderTest, WhatWasAcceptedForItselfIsFollowedWithWhatItLiesIn)
{
    const KnownFolder outermost = Invitation("Hers");
    Join(outermost);
    Join(Inner("{A}", "Hers/A", "{HERS}"));
    Inner("{B}", "Hers/A/B", "{A}");
    EXPECT_EQ(JoinAllIn(outermost).joined.size(), 1U);
    EXPECT_EQ(here.transport.folders.Followed().size(), 3U);
}

TEST_F(JoinFolderTest, OneThatCantBeAcceptedHoldsUpNoOther)
{
    const KnownFolder outermost = Invitation("Hers");
    Join(outermost, {std::string(600, 'm'), {}});
    Inner("{A}", std::string(600, 'n'), "{HERS}");
    Inner("{B}", "B", "{HERS}");
    const JoinedTree tree = JoinAllIn(outermost);
    EXPECT_EQ(tree.joined.size(), 1U);
    EXPECT_EQ(tree.failures.size(), 1U);
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
