#include "host/mailbox/shared_folders.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/base/errors.h"
#include "host/exchange/device_link.h"
#include "host/exchange/error.h"
#include "host/mailbox/flag_records.h"
#include "host/mailbox/refusals.h"
#include "host/mailbox/shared_folders_for_test.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

using State = KnownFolder::State;

TEST_F(SharedFoldersTest, FlagsAreSharedWithThoseWhoHaveToldThatTheyKnow)
{
    FlagRecords flags(alice.path), bobsFlags(bob.path);
    const std::string device = exchange::TextOf(bob.keys.Id());
    Share({&bob, &carol});
    EXPECT_FALSE(flags.AreShared("{F}"));
    alice.folders.Invite("{F}", "dave");
    Tell();
    EXPECT_THROW(bob.folders.ShareFlags("{F}"), HostError);

    alice.folders.ShareFlags("{F}");
    EXPECT_TRUE(flags.AreShared("{F}"));
    EXPECT_FALSE(flags.KnowsOf("{F}", device));
    EXPECT_FALSE(bobsFlags.AreShared("{F}"));
    Tell();
    EXPECT_TRUE(bobsFlags.AreShared("{F}"));
    EXPECT_TRUE(flags.KnowsOf("{F}", device));
    EXPECT_TRUE(bobsFlags.KnowsOf("{F}", exchange::TextOf(carol.keys.Id())));
    EXPECT_EQ(flags.Told("{F}"), Names{});
    EXPECT_EQ(flags.Owed("{F}"), Names{}) << "they are sent the folder first";
    for (const ResendRecord& resend : alice.records.Resends())
        if (resend.member == "bob")
            alice.records.FinishResend(resend.number);
    EXPECT_EQ(flags.Owed("{F}"), Names{device});
    EXPECT_FALSE(flags.KnowsOf("{F}", exchange::TextOf(dave.keys.Id())));
    Accept(dave);
    Tell();
    EXPECT_TRUE(FlagRecords(dave.path).AreShared("{F}"));
    EXPECT_TRUE(flags.KnowsOf("{F}", exchange::TextOf(dave.keys.Id())));
    EXPECT_EQ(refused, 0);

    const int before = told;
    alice.folders.ShareFlags("{F}");
    Tell();
    EXPECT_EQ(told, before) << "it is shared already";
}

TEST_F(SharedFoldersTest, AMemberIsToldOfChangesOfFlagsOnceHeWasToldOfAll)
{
    FlagRecords flags(alice.path);
    const std::string device = exchange::TextOf(bob.keys.Id());
    alice.folders.ShareFlags("{F}");
    Share({&bob});
    for (const ResendRecord& resend : alice.records.Resends())
        alice.records.FinishResend(resend.number);
    flags.Put({{"{I}", "{F}", {}, true, false}});
    ASSERT_EQ(flags.Owed("{F}"), Names{device});

    flags.NoteGoing({{"/flags"}, "00AB", {device}, flags.Pending("{F}", 10), "{F}", true});
    EXPECT_EQ(flags.Owed("{F}"), Names{});
    EXPECT_EQ(flags.Told("{F}"), Names{device});
    EXPECT_FALSE(flags.HasPending());
    ASSERT_EQ(alice.records.Outgoing().back().path, "/flags");
    EXPECT_EQ(alice.records.Outgoing().back().kind, exchange::PackageKind::kFlags);
    EXPECT_TRUE(alice.records.Outgoing().back().isPlanned);

    // Whatever is sent to him anew is followed by the flags of it.
    alice.records.AddResend("{F}", "bob", ResendScope::kEverything, 0);
    EXPECT_EQ(flags.Told("{F}"), Names{});
    alice.records.FinishResend(alice.records.FindResend("{F}", "bob")->number);
    EXPECT_EQ(flags.Owed("{F}"), Names{device});
    alice.folders.Remove("{F}", "bob");
    EXPECT_EQ(flags.Owed("{F}"), Names{});
    EXPECT_FALSE(flags.KnowsOf("{F}", device));
}

TEST_F(SharedFoldersTest, AFolderArrivesAsAnInvitationAndIsHereWhenItIsAccepted)
{
    alice.folders.Invite("{F}", "bob");
    Tell();

    ASSERT_EQ(bob.folders.Invitations().size(), 1U);
    EXPECT_EQ(bob.folders.Invitations()[0].name, "Shared");
    EXPECT_EQ(bob.folders.Invitations()[0].inviter, exchange::TextOf(alice.keys.Id()));
    EXPECT_TRUE(bob.records.Shares().empty());
    EXPECT_FALSE(bob.LetsTouch(alice));
    EXPECT_EQ(alice.Members(false), Names{"bob"}) << "nothing is for him yet";
    EXPECT_FALSE(alice.records.MayGet("{F}", exchange::TextOf(bob.keys.Id())));

    Accept(bob);
    Tell();

    EXPECT_TRUE(bob.folders.Invitations().empty());
    EXPECT_TRUE(bob.LetsTouch(alice));
    EXPECT_EQ(bob.Members(true), Names{"alice"});
    EXPECT_EQ(alice.Members(true), Names{"bob"});
    EXPECT_TRUE(alice.records.MayGet("{F}", exchange::TextOf(bob.keys.Id())));
    EXPECT_EQ(alice.Owes(bob), ResendScope::kEverything);
    EXPECT_EQ(refused, 0);
}

// Each gets all of it from the one who was asked, and of the others what they made.
TEST_F(SharedFoldersTest, WhoJoinsAsksTheOneWhoInvitedHimAndTheOthersOweHimTheirOwn)
{
    Share({&bob});
    bob.Pin(carol);
    carol.Pin(bob);
    alice.records.FinishResend(alice.records.FindResend("{F}", "bob")->number);
    bob.folders.Invite("{F}", "carol");
    Tell();
    Accept(carol);
    Tell();

    EXPECT_EQ(bob.Owes(carol), ResendScope::kEverything);
    EXPECT_EQ(alice.Owes(carol), ResendScope::kOwn);
    EXPECT_TRUE(alice.OwesNothing(bob));
    EXPECT_EQ(alice.Members(true), (Names{"bob", "carol"}));
    EXPECT_EQ(carol.Members(true), (Names{"alice", "bob"}));
}

TEST_F(SharedFoldersTest, WhatIsAskedForIsOwedInFullWhateverWasOwedBefore)
{
    Share({&bob});
    alice.records.FinishResend(alice.records.FindResend("{F}", "bob")->number);
    alice.records.AddResend("{F}", "bob", ResendScope::kOwn, 0);
    // He asks once more, until it was acknowledged, and not longer.
    Database database(bob.path, Database::Mode::kOpen);
    Statement(database, "UPDATE folder SET asked = ?").Bind(1, exchange::TextOf(alice.keys.Id())).Run();
    database.Execute("UPDATE folder_device SET due = 1");
    const DueNote note = bob.folders.DueNotes().at(0);
    EXPECT_EQ(NoteOf(note).asked, alice.keys.Id());
    bob.folders.NoteTold(note, "/asks");
    bob.peers.NoteAcked(alice.keys.Id(), 1000, bob.peers.LastSequence() - 1);
    database.Execute("UPDATE folder_device SET due = 1");
    EXPECT_EQ(NoteOf(bob.folders.DueNotes().at(0)).asked, alice.keys.Id());
    Deliver(bob, alice, note.bytes);

    EXPECT_EQ(alice.Owes(bob), ResendScope::kAgain);
    EXPECT_EQ(NoteOf(bob.folders.DueNotes().at(0)).asked, exchange::DeviceId{});
}

TEST_F(SharedFoldersTest, WhoDeclinesIsNoMemberAndNothingIsEverForHim)
{
    alice.folders.Invite("{F}", "bob");
    Tell();
    bob.folders.Decline(bob.folders.FindInvitation(bob.folders.Invitations().at(0).Id().substr(0, 6)));
    Tell();

    EXPECT_EQ(bob.StateOf(), State::kDeclined);
    EXPECT_TRUE(alice.records.Members("{F}").empty());
    EXPECT_FALSE(alice.LetsTouch(bob));
    EXPECT_TRUE(alice.OwesNothing(bob));

    alice.folders.Invite("{F}", "bob");
    Tell();
    EXPECT_EQ(bob.StateOf(), State::kInvited) << "asked once more";
}

TEST_F(SharedFoldersTest, WhoLeavesIsSealedNothingMoreAndHisChangesCountForNothing)
{
    Share({&bob, &carol});
    EXPECT_EQ(alice.Members(true), (Names{"bob", "carol"}));

    bob.folders.Leave("{F}");
    EXPECT_TRUE(bob.records.Shares().empty());
    EXPECT_EQ(bob.folders.Former().All().at(0).folderId, "{F}");
    Tell();

    for (Someone* one : {&alice, &carol}) {
        EXPECT_FALSE(one->LetsTouch(bob)) << one->name;
        EXPECT_FALSE(one->records.MayGet("{F}", exchange::TextOf(bob.keys.Id())));
        EXPECT_EQ(std::ranges::count(one->records.Members("{F}"), "bob"), 0);
    }
    EXPECT_EQ(bob.StateOf(), State::kLeft);
    EXPECT_FALSE(bob.LetsTouch(alice));
}

TEST_F(SharedFoldersTest, TheFounderAloneTakesMembersOut)
{
    Share({&bob, &carol});
    EXPECT_THROW(bob.folders.Remove("{F}", "carol"), HostError);
    EXPECT_THROW(bob.folders.Dissolve("{F}"), HostError);
    EXPECT_TRUE(bob.LetsTouch(carol));

    EXPECT_EQ(alice.folders.Remove("{F}", "bob"), 1U);
    Tell();

    EXPECT_EQ(bob.StateOf(), State::kRemoved);
    EXPECT_TRUE(bob.records.Shares().empty());
    EXPECT_FALSE(carol.LetsTouch(bob));
    EXPECT_TRUE(carol.LetsTouch(alice));

    alice.folders.Dissolve("{F}");
    Tell();
    EXPECT_EQ(carol.StateOf(), State::kRemoved);
    EXPECT_EQ(alice.StateOf(), State::kLeft);
}

// He founds nothing by it: what he signs after he was taken out brings nobody in, whoever passes it on.
TEST_F(SharedFoldersTest, WhoWasTakenOutBringsNobodyIn)
{
    Share({&bob, &carol});
    bob.Pin(dave);
    dave.Pin(bob);
    alice.folders.Remove("{F}", "bob");
    bob.folders.Invite("{F}", "dave");  // before he hears of it
    const auto byBob = bob.folders.DueNotes();
    ASSERT_FALSE(byBob.empty());
    Tell();
    EXPECT_FALSE(alice.LetsTouch(dave));
    EXPECT_FALSE(carol.LetsTouch(dave));
    const int before = refused;
    Deliver(bob, alice, byBob[0].bytes);
    EXPECT_EQ(refused, before + 1);
    EXPECT_FALSE(alice.LetsTouch(dave));
}

TEST_F(SharedFoldersTest, AStrangersWordOfAFolderOfOthersIsRefused)
{
    Share({&bob});
    const std::string bytes = [&] {
        exchange::FolderNote note{true, {}, "{F}", "Shared", {}};
        Database database(bob.path, Database::Mode::kOpen);
        database.Execute("UPDATE folder_device SET due = 1");
        note.entries = NoteOf(bob.folders.DueNotes().at(0)).entries;
        return exchange::WriteFolderNote(note);
    }();

    Deliver(dave, alice, bytes);  // known here, and no member
    Deliver(dave, carol, bytes);  // knows nothing of the folder
    carol.Pin(bob);
    Deliver(bob, carol, bytes);  // a member's word to one who isn't
    Deliver(bob, alice, "rubbish");
    EXPECT_EQ(refused, 3) << "dave isn't known to carol";
    EXPECT_TRUE(carol.folders.All().empty());
    EXPECT_FALSE(alice.LetsTouch(dave));
}

// Somebody who knows a folder's id founds one of the same.
TEST_F(SharedFoldersTest, AnotherFoundingIsAnotherFolderWhateverIdItHas)
{
    dave.Pin(bob);
    bob.Pin(dave);
    Share({&bob});
    dave.folders.Found({"{F}", "00DD", "00CD", "Shared"});
    dave.folders.Invite("{F}", "bob");
    Tell();

    ASSERT_EQ(bob.folders.Invitations().size(), 1U);
    EXPECT_FALSE(bob.LetsTouch(dave));
    EXPECT_TRUE(bob.LetsTouch(alice));
    EXPECT_THROW(Accept(bob), HostError);
    EXPECT_TRUE(bob.LetsTouch(alice));
    EXPECT_FALSE(bob.records.MayGet("{F}", exchange::TextOf(dave.keys.Id())));
    EXPECT_THROW(bob.folders.FindInvitation(""), HostError);
}

TEST_F(SharedFoldersTest, ADeviceThatAFolderTellsHasANameOfItsOwnWhereSomebodyHasIt)
{
    // carol knows a bob of her own.
    Someone other(directory, "other");
    const std::string card = exchange::WriteCard(other.keys, "bob", 1);
    carol.peers.Pin(exchange::ReadCard(card, other.keys.Id()), card, "bob", "device");
    Share({&bob, &carol});

    const auto peer = carol.peers.Find(bob.keys.Id());
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->member, "bob-" + exchange::TextOf(bob.keys.Id()).substr(0, 8));
    EXPECT_FALSE(peer->IsPinnedByUser());
    EXPECT_EQ(peer->introducer, "alice");
    EXPECT_TRUE(carol.LetsTouch(bob));
    EXPECT_FALSE(carol.LetsTouch(other));
}

TEST_F(SharedFoldersTest, AFolderIsSharedAgainUnderItsFormerRecordsAndOwedInFull)
{
    Share({&bob});
    bob.folders.NoteLookedThrough("{F}");
    bob.folders.Leave("{F}");
    Tell();
    alice.folders.Invite("{F}", "bob");
    Tell();
    ASSERT_EQ(bob.StateOf(), State::kInvited);
    Accept(bob);  // at the same place
    EXPECT_TRUE(bob.folders.IsFresh("{F}"));
    Tell();
    EXPECT_EQ(bob.Owes(alice), ResendScope::kEverything);
    EXPECT_TRUE(bob.folders.Former().All().empty());
}

TEST_F(SharedFoldersTest, OneDevicesInvitationsAndRefusalsAreBounded)
{
    for (int number = 0; number < 110; ++number) {
        const std::string id = "{" + std::to_string(number) + "}";
        alice.folders.Found({id, std::to_string(number), "00CD", "Flood"});
        alice.folders.Invite(id, "bob");
    }
    Tell();
    EXPECT_EQ(bob.folders.Invitations().size(), 100U);
    EXPECT_EQ(refused, 10);

    Refusals refusals(bob.path);
    for (int number = 0; number < 300; ++number)
        refusals.Note(alice.keys.Id(), "reason " + std::to_string(number));
    refusals.Note(alice.keys.Id(), "reason 7");
    EXPECT_EQ(refusals.All().size(), 200U);
    EXPECT_TRUE(std::ranges::any_of(refusals.All(), [](const RefusalRecord& refusal) {
        return refusal.reason == "reason 7" && refusal.count == 2;
    }));
}

// Two processes work on the records, and one of them is a command.
TEST_F(SharedFoldersTest, WhatAnotherProcessSignedCounts)
{
    SharedFolders second(alice.path, alice.keys);
    alice.folders.Invite("{F}", "bob");
    second.Invite("{F}", "carol");
    alice.folders.Invite("{F}", "dave");
    for (Someone* one : {&bob, &carol, &dave}) {
        EXPECT_TRUE(second.IsDeviceOfFolder("{F}", one->keys.Id()));
        EXPECT_TRUE(alice.LetsTouch(*one));
    }
    Tell();
    EXPECT_EQ(dave.folders.Invitations().size(), 1U);
    EXPECT_EQ(refused, 0);
}

// A device of alice's own, which the user of each of the two has linked.
TEST_F(SharedFoldersTest, ALinkedDeviceIsLetInByItselfAndKnownToOthersByItsMembersName)
{
    Share({&bob});
    Someone desk{directory, "desk", "alice"};
    LinkEach(alice, desk);
    EXPECT_EQ(alice.folders.LinkOwnDevices(), 1U);
    EXPECT_EQ(alice.folders.LinkOwnDevices(), 0U);
    TellAmong({&alice, &bob, &desk});

    ASSERT_EQ(desk.folders.Invitations().size(), 1U);
    Accept(desk);
    TellAmong({&alice, &bob, &desk});
    EXPECT_EQ(bob.peers.Find(desk.keys.Id()).value().member, "alice");
    EXPECT_TRUE(bob.LetsTouch(desk));
    EXPECT_TRUE(bob.records.MayGet("{F}", exchange::TextOf(desk.keys.Id())));
    EXPECT_TRUE(desk.records.MayGet("{F}", exchange::TextOf(bob.keys.Id())));
    EXPECT_EQ(bob.Members(true), Names{"alice"});
    EXPECT_TRUE(desk.folders.IsFounder("{F}"));
    EXPECT_EQ(refused, 0);
}

TEST_F(SharedFoldersTest, ADeviceThatDoesntAgreeIsntLinked)
{
    Someone desk{directory, "desk", "alice"};
    const std::string card = exchange::WriteCard(desk.keys, "alice", 1);
    alice.peers.Link(exchange::ReadCard(card, desk.keys.Id()), card);
    EXPECT_EQ(alice.folders.LinkOwnDevices(desk.keys.Id()), 0U);
    EXPECT_FALSE(alice.LetsTouch(desk));
}

TEST_F(SharedFoldersTest, AnUnlinkedDeviceIsOutAndLinkedAgainWhereTheUserSaysSoAlone)
{
    Share({&bob});
    Someone desk{directory, "desk", "alice"};
    LinkEach(alice, desk);
    alice.folders.LinkOwnDevices();
    TellAmong({&alice, &bob, &desk});
    Accept(desk);
    TellAmong({&alice, &bob, &desk});

    desk.folders.Leave("{F}");
    TellAmong({&alice, &bob, &desk});
    EXPECT_EQ(desk.StateOf(), State::kLeft);
    EXPECT_EQ(alice.StateOf(), State::kHere);
    EXPECT_FALSE(bob.LetsTouch(desk));
    EXPECT_TRUE(bob.LetsTouch(alice));
    EXPECT_EQ(alice.folders.LinkOwnDevices(), 0U);
    EXPECT_EQ(alice.folders.LinkOwnDevices(desk.keys.Id()), 1U);
    TellAmong({&alice, &bob, &desk});
    Accept(desk);
    TellAmong({&alice, &bob, &desk});
    EXPECT_TRUE(bob.LetsTouch(desk));

    const SharedFolders::Unlinked done = alice.folders.UnlinkDevice(desk.keys.Id());
    EXPECT_EQ(done.folders, Names{"Shared"});
    EXPECT_TRUE(done.stillIn.empty());
    TellAmong({&alice, &bob, &desk});
    EXPECT_FALSE(bob.LetsTouch(desk));
    EXPECT_TRUE(bob.LetsTouch(alice));
}

TEST_F(SharedFoldersTest, ADeviceThatSomebodyAddedByItselfIsNamedWhenItIsUnlinked)
{
    Someone desk{directory, "desk", "alice"};
    Share({&bob});
    bob.Pin(desk);
    desk.Pin(bob);
    bob.folders.Invite("{F}", "alice");
    TellAmong({&alice, &bob, &desk});
    LinkEach(alice, desk);
    EXPECT_TRUE(alice.LetsTouch(desk)) << "bob has added it";
    const SharedFolders::Unlinked done = alice.folders.UnlinkDevice(desk.keys.Id());
    EXPECT_TRUE(done.folders.empty());
    EXPECT_EQ(done.stillIn, Names{"Shared"});
}

// Whoever invited him is switched off for good.
TEST_F(SharedFoldersTest, WhoIsAskedForAFolderAndFallsSilentIsntWaitedFor)
{
    Share({&bob});
    alice.folders.Invite("{F}", "dave");
    Tell();
    Accept(dave);
    TellAmong({&bob, &dave});
    TellAmong({&bob, &dave});
    ASSERT_TRUE(bob.OwesNothing(dave) || bob.Owes(dave) != ResendScope::kAgain);
    Database(dave.path, Database::Mode::kOpen)
        .Execute("UPDATE device SET heard = 4611686018427387904 WHERE member <> 'alice'");

    EXPECT_EQ(dave.peers.NoteSilence(FileTimeNow() + 1).size(), 1U);
    dave.folders.Settle();
    TellAmong({&bob, &dave});

    EXPECT_EQ(bob.Owes(dave), ResendScope::kAgain);
}

TEST_F(SharedFoldersTest, NobodyTakesHisOwnMemberOut)
{
    EXPECT_THROW(alice.folders.Remove("{F}", "alice"), HostError);
}

}  // namespace

}  // namespace quorvane::host
