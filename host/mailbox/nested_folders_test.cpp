// Shared folders that lie in others (shared_folders.h).
#include "host/base/errors.h"
#include "host/mailbox/flag_records.h"
#include "host/mailbox/shared_folders_for_test.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

using State = KnownFolder::State;
using exchange::MembershipChange;
using exchange::MembershipEntry;

class NestedFoldersTest : public SharedFoldersTest {
protected:
    static SharedFolders::Nested Inner(const std::string& id, const std::string& outer = "{F}")
    {
        return {{id, "00" + id.substr(1, id.size() - 2), "00CD", "Shared/" + id}, outer};
    }
    // What alice shares in a folder of hers; those that weren't shared.
    std::size_t Nest(const std::string& id, const std::string& outer = "{F}")
    {
        return alice.folders.ShareNested({Inner(id, outer)}).size();
    }
    static void AcceptAll(Someone& who, bool follows = false)
    {
        for (const KnownFolder& invitation : who.folders.Invitations())
            who.folders.Accept(
                invitation, {invitation.folderId, "00" + invitation.Id(), "00CC", invitation.name}, follows);
    }
    static KnownFolder Of(Someone& who, const std::string& id)
    {
        for (const KnownFolder& folder : who.folders.All())
            if (folder.folderId == id)
                return folder;
        return {};
    }
    static std::string OuterOf(Someone& who, const std::string& id)
    {
        const auto outer = who.folders.OuterOf(Of(who, id));
        return outer ? outer->folderId : "none";
    }
    // A note of a folder that `from` founds, adds `to` to, and says of that it lies in another.
    static std::string Crafted(const Someone& from, const Someone& to, const std::string& id,
                               const std::string& outer)
    {
        MembershipEntry founding, addition, nests;
        founding.folder = addition.folder = nests.folder = id;
        founding.member = nests.member = from.keys.Signing();
        founding.name = from.name;
        const std::string first = WriteMembershipEntry(from.keys, founding);
        addition.change = MembershipChange::kAdd;
        addition.member = to.keys.Signing();
        addition.name = to.name;
        addition.seen = nests.seen = {exchange::IdOfEntry(first)};
        nests.change = MembershipChange::kNest;
        const Bytes bytes = FromHex(outer);
        std::copy(bytes.begin(), bytes.end(), nests.outer.begin());
        return exchange::WriteFolderNote(
            {true,
             {},
             id,
             "Crafted/" + id,
             {first, WriteMembershipEntry(from.keys, addition), WriteMembershipEntry(from.keys, nests)}});
    }
};

TEST_F(NestedFoldersTest, AFolderHasTheMembersAndTheFlagsOfTheOneThatItLiesIn)
{
    Share({&bob});
    alice.folders.ShareFlags("{F}");
    alice.folders.Invite("{F}", "erin");  // of whom no device is known
    EXPECT_EQ(Nest("{G}"), 1U);
    EXPECT_EQ(Nest("{H}", "{G}"), 1U);
    EXPECT_EQ(Nest("{H}", "{G}"), 0U) << "it is shared by now";
    for (const char* id : {"{G}", "{H}"}) {
        EXPECT_EQ(alice.records.Members(id), (Names{"bob", "erin"})) << id;
        EXPECT_TRUE(alice.records.FindShare(id)->hasFlags) << id;
        EXPECT_EQ(alice.records.FindResend(id, "bob").value().scope, ResendScope::kEverything) << id;
    }
    Tell();
    ASSERT_EQ(bob.folders.Invitations().size(), 2U);
    EXPECT_EQ(OuterOf(bob, "{G}"), "{F}");
    EXPECT_EQ(OuterOf(bob, "{H}"), "{G}");
    EXPECT_EQ(bob.folders.OutermostInvitation(Of(bob, "{H}")).folderId, "{G}") << "that one is accepted";
    AcceptAll(bob);
    Tell();
    EXPECT_EQ(alice.records.Members("{H}", true), Names{"bob"});
    EXPECT_EQ(refused, 0);
}

TEST_F(NestedFoldersTest, WhoComesLaterByWhomeverIsLetInAndWhoWentOrIsForgottenIsNot)
{
    Share({&bob});
    Nest("{G}");
    Tell();
    bob.Pin(carol);
    carol.Pin(bob);
    bob.folders.Invite("{F}", "carol");
    Tell();
    EXPECT_EQ(alice.records.Members("{G}"), Names{"bob"});
    EXPECT_EQ(Nest("{G}"), 0U);
    EXPECT_EQ(alice.records.Members("{G}"), (Names{"bob", "carol"}));
    Tell();
    EXPECT_EQ(carol.folders.Invitations().size(), 2U);

    bob.folders.Decline(Of(bob, "{G}"));
    alice.folders.Remove("{G}", "carol");
    Tell();
    const int before = told;
    Nest("{G}");
    Tell();
    EXPECT_EQ(told, before);
    EXPECT_EQ(alice.records.Members("{G}"), Names{});
    alice.folders.Invite(Names{"{F}", "{G}"}, "bob");
    Tell();
    EXPECT_EQ(Of(bob, "{G}").state, State::kInvited);
    EXPECT_TRUE(bob.folders.HasSignedOff(Of(bob, "{G}"))) << "and isn't let in unasked";

    alice.folders.Invite("{F}", "dave");
    alice.peers.Drop(dave.keys.Id());
    Nest("{H}");
    EXPECT_TRUE(alice.folders.IsDeviceOfFolder("{H}", carol.keys.Id()));
    EXPECT_FALSE(alice.folders.IsDeviceOfFolder("{H}", dave.keys.Id())) << "he waits for the user's word";
}

// As a kill between the two would leave it.
TEST_F(NestedFoldersTest, AFolderThatWasFoundedAndWhoseMembersLackIsPutRightAndThenNothingIsWritten)
{
    Share({&bob});
    alice.folders.Found(Inner("{G}").share);
    Tell();
    EXPECT_TRUE(bob.folders.Invitations().empty());
    EXPECT_EQ(Nest("{G}"), 0U);
    Tell();
    EXPECT_EQ(bob.folders.Invitations().size(), 1U);

    Database watcher(alice.path, Database::Mode::kOpen);
    const auto version = [&] {
        Statement select(watcher, "PRAGMA data_version");
        return select.Step() ? select.Number(0) : 0;
    };
    const auto before = version();
    Nest("{G}");
    EXPECT_EQ(version(), before);
}

TEST_F(NestedFoldersTest, AFolderThatAnAcceptanceIsMakingIsntShared)
{
    bob.folders.Found({"{B}", "00EE", "00CD", "Theirs"});
    bob.folders.Invite("{B}", "alice");
    Tell();
    const KnownFolder invitation = alice.folders.Invitations().at(0);
    alice.folders.NoteTarget(invitation, "Shared/{G}");
    EXPECT_EQ(Nest("{G}"), 0U);
    EXPECT_FALSE(alice.records.FindShare("{G}"));
    alice.folders.Accept(invitation, {"{B}", "00G", "00CD", "Shared/{G}"});
    EXPECT_EQ(Nest("{G}"), 0U) << "it is the accepted one now";
    EXPECT_EQ(Nest("{B}"), 0U);
    EXPECT_TRUE(Of(alice, "{B}").outer.empty()) << "nobody says of another's folder where it lies";
}

TEST_F(NestedFoldersTest, OnlyWhoFoundedAFolderPutsOthersIntoIt)
{
    Share({&bob, &carol});
    bob.Pin(carol);
    carol.Pin(bob);
    const std::string outer = Of(carol, "{F}").founding;
    Deliver(bob, carol, Crafted(bob, carol, "{B}", outer));
    ASSERT_EQ(carol.folders.Invitations().size(), 1U);
    EXPECT_EQ(Of(carol, "{B}").outer, outer);
    EXPECT_EQ(OuterOf(carol, "{B}"), "none");
    Deliver(alice, carol, Crafted(alice, carol, "{A}", outer));
    EXPECT_EQ(OuterOf(carol, "{A}"), "{F}");
    // Who has left it has no say in it either.
    alice.folders.Leave("{F}");
    Tell();
    EXPECT_EQ(OuterOf(carol, "{A}"), "none");
    // Nor is anything in one that was declined, or isn't known.
    Deliver(alice, dave, Crafted(alice, dave, "{A}", outer));
    EXPECT_EQ(OuterOf(dave, "{A}"), "none");
}

TEST_F(NestedFoldersTest, AnyDeviceOfTheFoundersPutsFoldersIntoItUntilItIsTakenOut)
{
    Someone laptop(directory, "laptop", "alice");
    const std::vector<Someone*> all{&alice, &bob, &laptop};
    LinkEach(alice, laptop);
    Share({&bob});
    alice.folders.LinkOwnDevices();
    TellAmong(all);
    AcceptAll(laptop);
    TellAmong(all);
    laptop.folders.ShareNested({Inner("{G}")});
    laptop.folders.LinkOwnDevices();
    TellAmong(all);
    EXPECT_EQ(OuterOf(bob, "{G}"), "{F}");
    EXPECT_EQ(OuterOf(alice, "{G}"), "{F}");
    alice.folders.UnlinkDevice(laptop.keys.Id());
    TellAmong(all);
    EXPECT_EQ(OuterOf(bob, "{G}"), "none");
}

TEST_F(NestedFoldersTest, AWholeTreeIsInvitedToAndFloodsAreNot)
{
    alice.folders.Invite("{F}", "bob");
    std::vector<SharedFolders::Nested> inner;
    for (int number = 0; number < 150; ++number)
        inner.push_back(Inner("{G" + std::to_string(number) + "}"));
    EXPECT_EQ(alice.folders.ShareNested(inner).size(), 150U);
    Tell();
    EXPECT_EQ(bob.folders.Invitations().size(), 151U);
    EXPECT_EQ(refused, 0);
    // What lies in nothing that is known here counts for itself.
    for (int number = 0; number < 105; ++number)
        Deliver(alice, bob, Crafted(alice, bob, "{C" + std::to_string(number) + "}", std::string(64, 'a')));
    EXPECT_EQ(bob.folders.Invitations().size(), 250U);
    EXPECT_EQ(refused, 6);
}

// Whichever was shared first.
TEST_F(NestedFoldersTest, OuterFoldersAreToldAndListedBeforeInnerOnes)
{
    alice.folders.Found(Inner("{H}").share);
    alice.folders.Found(Inner("{G}").share);
    alice.folders.ShareNested({Inner("{G}"), Inner("{H}", "{G}")});
    alice.folders.Invite(Names{"{H}", "{G}", "{F}"}, "bob");
    Names ids;
    for (const DueNote& note : alice.folders.DueNotes())
        ids.push_back(NoteOf(note).folder);
    EXPECT_EQ(ids, (Names{"{F}", "{G}", "{H}"}));
    Tell();
    ids.clear();
    for (const KnownFolder& invitation : bob.folders.Invitations())
        ids.push_back(invitation.folderId);
    EXPECT_EQ(ids, (Names{"{F}", "{G}", "{H}"}));
}

TEST_F(NestedFoldersTest, FoldersThatClaimToLieInEachOtherAreListedOnce)
{
    const auto claimsToLieIn = [&](const std::string& id, const std::string& other) {
        Statement(*std::make_unique<Database>(bob.path, Database::Mode::kOpen),
                  "UPDATE folder SET lies_in = (SELECT founding FROM folder WHERE folder_id = ?2) WHERE "
                  "folder_id = ?1")
            .Bind(1, id)
            .Bind(2, other)
            .Run();
    };
    for (const char* id : {"{A}", "{B}"})
        Deliver(alice, bob, Crafted(alice, bob, id, std::string(64, 'a')));
    claimsToLieIn("{A}", "{B}");
    claimsToLieIn("{B}", "{A}");
    EXPECT_EQ(bob.folders.Invitations().size(), 2U);
    EXPECT_EQ(bob.folders.OutermostInvitation(Of(bob, "{A}")).folderId, "{A}");
    claimsToLieIn("{A}", "{A}");
    EXPECT_EQ(bob.folders.Invitations().size(), 2U);
    EXPECT_EQ(bob.folders.OutermostInvitation(Of(bob, "{A}")).folderId, "{A}");
}

TEST_F(NestedFoldersTest, WhatLiesInAFolderIsFollowedUntilTheFolderIsLeft)
{
    alice.folders.Invite("{F}", "bob");
    Tell();
    EXPECT_TRUE(bob.folders.Followed().empty());
    AcceptAll(bob, true);
    const std::string founding = Of(bob, "{F}").founding;
    EXPECT_EQ(bob.folders.Followed(), std::set<std::string>{founding});
    Tell();
    bob.folders.Leave("{F}");
    EXPECT_TRUE(bob.folders.Followed().empty());
    Tell();
    alice.folders.Invite("{F}", "bob");
    Tell();
    AcceptAll(bob);
    EXPECT_TRUE(bob.folders.Followed().empty()) << "he said it of what he has left";
    bob.folders.Follow({founding, "of none"});
    EXPECT_EQ(bob.folders.Followed(), std::set<std::string>{founding});
    Tell();
    alice.folders.Remove("{F}", "bob");
    Tell();
    EXPECT_TRUE(bob.folders.Followed().empty());
}

TEST_F(NestedFoldersTest, ATreeIsOneUntilItIsSharedNoMore)
{
    alice.folders.ShareAsTree("{F}");
    EXPECT_TRUE(alice.records.FindShare("{F}")->isTree);
    EXPECT_TRUE(alice.records.FindShareByEntryId("00AB")->isTree);
    EXPECT_TRUE(alice.records.Shares().at(0).isTree);
    alice.folders.Dissolve("{F}");
    alice.folders.Found({"{F2}", "00AB", "00CD", "Shared"});
    EXPECT_FALSE(alice.records.FindShare("{F2}")->isTree);
    EXPECT_THROW(alice.folders.ShareAsTree("{F}"), HostError);
}

// Members keep folders under paths of their own, which may be longer than can be told.
TEST_F(NestedFoldersTest, APathThatIsTooLongIsToldFromItsEnd)
{
    const std::string name(400, 'n');
    alice.folders.Found({"{L}", "00EF", "00CD", name + "/" + name + "/" + name});
    alice.folders.Found({"{M}", "00FF", "00CD", std::string(1500, 'm')});
    alice.folders.Invite(Names{"{L}", "{M}"}, "bob");
    Names names;
    for (const DueNote& note : alice.folders.DueNotes())
        names.push_back(NoteOf(note).name);
    EXPECT_EQ(names, (Names{name + "/" + name, "a folder"}));
}

}  // namespace

}  // namespace quorvane::host
