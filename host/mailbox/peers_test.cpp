#include "host/mailbox/peers.h"

#include <gtest/gtest.h>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/mailbox/comparison_records.h"
#include "host/mailbox/device.h"
#include "host/mailbox/records.h"
#include "host/mailbox/records_for_test.h"
#include "host/mailbox/shared_folders.h"
#include "host/store/properties.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

class PeersTest : public ::testing::Test {
protected:
    PeersTest()
    {
        folders.Found({"{F}", "00AB", "00CD", "Shared"});
        folders.Found({"{G}", "00AC", "00CD", "Second"});
    }

    void Pin(const exchange::DeviceKeys& keys, const std::string& member, const std::string& how = "device")
    {
        const std::string card = exchange::WriteCard(keys, member, 1);
        peers.Pin(exchange::ReadCard(card, keys.Id()), card, member, how);
        folders.Settle();
    }
    // He has told that he has the folders that he is a member of, and nothing is owed him.
    void NoteHas(const exchange::DeviceKeys& keys)
    {
        Database database(path, Database::Mode::kOpen);
        Statement(database, "UPDATE folder_device SET has = 1, told = 1, due = 0 WHERE device = ?")
            .Bind(1, exchange::TextOf(keys.Id()))
            .Run();
        folders.Settle();
        database.Execute("DELETE FROM resend");
    }
    // To whom something is to be told.
    std::set<std::string> ToldNext()
    {
        std::set<std::string> devices;
        for (const DueNote& note : folders.DueNotes())
            devices.insert(note.devices.begin(), note.devices.end());
        return devices;
    }
    using Names = std::vector<std::string>;
    using Devices = std::set<std::string>;

    test::TestDirectory directory;
    const std::string path = MakeTables((directory / "host.db").string());
    const exchange::DeviceKeys own, laptop, desktop;
    Records records{path};
    Peers peers{path};
    SharedFolders folders{path, own};
};

TEST_F(PeersTest, AnAwaitedMemberIsToldOfTheFolderWhenHisDeviceIsPinned)
{
    folders.Invite("{F}", "bob");
    EXPECT_TRUE(ToldNext().empty());
    EXPECT_EQ(peers.AwaitedMembers(), std::set<std::string>{"bob"});

    Pin(laptop, "bob");

    EXPECT_EQ(ToldNext(), Devices{exchange::TextOf(laptop.Id())});
    EXPECT_TRUE(peers.AwaitedMembers().empty());
    EXPECT_EQ(records.FindResend("{F}", "bob")->scope, ResendScope::kEverything);
    const auto peer = peers.Find(laptop.Id());
    ASSERT_TRUE(peer && peer->card);
    EXPECT_EQ(peer->card->sealing, laptop.Sealing());
    EXPECT_TRUE(peer->IsPinnedByUser());
}

TEST_F(PeersTest, OneMoreDeviceOfAMemberIsLetIntoAllHisFolders)
{
    Pin(laptop, "bob");
    folders.Invite("{F}", "bob");
    NoteHas(laptop);

    Pin(desktop, "bob");

    EXPECT_TRUE(folders.IsDeviceOfFolder("{F}", desktop.Id()));
    EXPECT_FALSE(folders.IsDeviceOfFolder("{G}", desktop.Id()));
    EXPECT_TRUE(ToldNext().contains(exchange::TextOf(desktop.Id())));
    EXPECT_EQ(records.FindResend("{F}", "bob")->scope, ResendScope::kAgain);
    EXPECT_EQ(peers.OfMember("bob").size(), 2U);
}

TEST_F(PeersTest, AMemberWhoseOnlyDeviceIsForgottenIsAwaited)
{
    Pin(laptop, "bob");
    folders.Invite("{F}", "bob");
    NoteHas(laptop);

    peers.Drop(laptop.Id());
    folders.Settle();

    EXPECT_FALSE(peers.Find(laptop.Id())) << "the folder's changes don't bring it back";
    EXPECT_EQ(peers.AwaitedMembers(), std::set<std::string>{"bob"});
    EXPECT_TRUE(records.Members("{F}", true).empty());
    EXPECT_EQ(records.Members("{F}"), Names{"bob"});
    EXPECT_TRUE(records.FindResend("{F}", "bob"));
    Pin(laptop, "bob");
    EXPECT_EQ(records.Members("{F}", true), Names{"bob"});
}

// The place lost what a device was sent, or the mailbox came out of a backup.
TEST_F(PeersTest, WhatADeviceWasToldOfFoldersIsToldAgainWhenItIsLost)
{
    Pin(laptop, "bob");
    folders.Invite("{F}", "bob");
    NoteHas(laptop);
    EXPECT_TRUE(ToldNext().empty());

    peers.Remake(laptop.Id());
    EXPECT_EQ(ToldNext(), Devices{exchange::TextOf(laptop.Id())});
    EXPECT_FALSE(records.MayGet("{F}", exchange::TextOf(laptop.Id()))) << "before that, no item";
    folders.NoteTold(folders.DueNotes().at(0), "/note");
    EXPECT_TRUE(ToldNext().empty());

    peers.BeginEpoch(exchange::Epoch{5}, 9);
    EXPECT_EQ(ToldNext(), Devices{exchange::TextOf(laptop.Id())});
    EXPECT_TRUE(records.Outgoing().empty()) << "of what was told in the epoch before";
}

TEST_F(PeersTest, WhatIsLostIsLookedForByComparisonsAndNothingIsSentWholly)
{
    Pin(laptop, "bob");
    folders.Invite("{F}", "bob");
    NoteHas(laptop);
    records.FinishResend(records.FindResend("{F}", "bob")->number);
    ComparisonRecords comparisons(path);
    const std::string device = exchange::TextOf(laptop.Id());
    const auto isWanted = [&] {
        folders.NoteTold(folders.DueNotes().at(0), "/note");
        const auto pairs = comparisons.All(1000);
        return pairs.size() == 1 && pairs[0].isWanted && pairs[0].tries == 0 && pairs[0].opened == 0 &&
               !records.FindResend("{F}", "bob");
    };

    peers.Remake(laptop.Id());
    EXPECT_TRUE(isWanted()) << "a pair that is new";

    comparisons.NoteDiffered("{F}", device, {"{1}"}, 2000);
    comparisons.NoteEqual("{F}", device, 3000);
    comparisons.NoteOpened("{F}", device, 4000);
    peers.BeginEpoch(exchange::Epoch{5}, 9);
    EXPECT_TRUE(isWanted()) << "and the report that was under way isn't waited for";
}

TEST_F(PeersTest, WhereASenderIsIsKeptWithItsEpochs)
{
    Pin(laptop, "bob");
    peers.PutIncoming({laptop.Id(), 4, IncomingRecord::State::kRefused, "why", 0});
    peers.PutIncoming({laptop.Id(), 5, IncomingRecord::State::kHeld, "why not", 0});
    EXPECT_FALSE(peers.Current());
    peers.NoteApplied(laptop.Id(), {exchange::Epoch{1}, 4, 0});
    peers.NoteApplied(laptop.Id(), {exchange::Epoch{2}, 6, 0});

    const auto order = Peers(path).Find(laptop.Id())->order;
    EXPECT_EQ(order.epoch, exchange::Epoch{2});
    EXPECT_EQ(order.applied, 6U);
    EXPECT_EQ(order.overEpochs, std::set<exchange::Epoch>{exchange::Epoch{1}});
    EXPECT_TRUE(peers.Incoming().empty());
}

TEST_F(PeersTest, NothingIsKeptForASilentDeviceAndNothingMoreIsForIt)
{
    folders.Invite("{F}", "bob");
    folders.Invite("{F}", "carol");
    Pin(laptop, "bob");
    Pin(desktop, "carol");
    NoteHas(laptop);
    NoteHas(desktop);
    const auto plan = [&](const std::string& package) {
        records.PlanPackage(records.AddOutgoing(package, "a group"), {{"bob", "carol"}, {{"{1}", "{F}"}}});
    };
    plan("/one");
    peers.NoteAcked(desktop.Id(), 1, 1);
    ASSERT_EQ(peers.Deliveries().size(), 1U);
    EXPECT_TRUE(peers.NoteSilence(peers.Find(laptop.Id())->pinned).empty());
    EXPECT_EQ(peers.Deliveries().size(), 1U);

    const std::uint64_t later = peers.Find(desktop.Id())->heard;
    const auto fallen = peers.NoteSilence(later);
    ASSERT_EQ(fallen.size(), 1U);
    EXPECT_EQ(fallen[0].id, laptop.Id());
    EXPECT_TRUE(peers.NoteSilence(later).empty()) << "it is silent already";
    EXPECT_TRUE(peers.Deliveries().empty());
    EXPECT_TRUE(peers.Find(laptop.Id())->isSilent);
    plan("/two");
    ASSERT_EQ(peers.Deliveries().size(), 1U);
    EXPECT_EQ(peers.Deliveries()[0].device, desktop.Id());
    EXPECT_FALSE(records.FindResend("{F}", "bob")) << "he is compared when he is back";
    EXPECT_FALSE(records.MayGet("{F}", exchange::TextOf(laptop.Id())));
    EXPECT_TRUE(ToldNext().empty());

    peers.NoteAcked(laptop.Id(), 7, 0);
    EXPECT_FALSE(peers.Find(laptop.Id())->isSilent);
    EXPECT_EQ(ToldNext(), Devices{exchange::TextOf(laptop.Id())});
    EXPECT_EQ(peers.Find(laptop.Id())->sent, 0U) << "the next one for it is the first";
}

TEST_F(PeersTest, ADeviceThatSendsIsntSilentAnyMore)
{
    Pin(laptop, "bob");
    ASSERT_EQ(peers.NoteSilence(FileTimeNow() + 1).size(), 1U);
    peers.NoteApplied(laptop.Id(), {exchange::Epoch{1}, 4, 0});
    EXPECT_FALSE(peers.Find(laptop.Id())->isSilent);
}

TEST_F(PeersTest, TheNumbersOfAcknowledgementsRiseBeyondThoseOfAnyBackup)
{
    const std::uint64_t first = peers.NextAcksSerial();
    EXPECT_GT(peers.NextAcksSerial(), first);
    Database database(path, Database::Mode::kOpen);
    Statement(database, "UPDATE mailbox SET acks_serial = 0").Run();
    EXPECT_GT(peers.NextAcksSerial(), first);
}

// A mailbox of the version before devices, and one whose keys are somebody else's.
TEST(DeviceTest, AnOldMailboxDrawsItsKeysWhenItIsOpenedAndKeepsThem)
{
    test::TestDirectory directory;
    const std::string place = (directory / "alice").string();
    const std::filesystem::path keyFile = Mailbox::Create(place, "alice").KeyPath();
    std::filesystem::remove(keyFile);
    Database((directory / "alice" / "host.db").string(), Database::Mode::kOpen)
        .Execute(
            "PRAGMA user_version = 2;"
            "DROP TABLE membership; DROP TABLE folder_device; DROP TABLE folder; DROP TABLE wish; DROP TABLE "
            "dropped;"
            "DROP TABLE former; DROP TABLE refusal; DROP TABLE item_flags; ALTER TABLE share DROP COLUMN "
            "flags; ALTER TABLE share DROP COLUMN tree; ALTER TABLE outgoing DROP COLUMN kind;"
            "ALTER TABLE member ADD COLUMN told; ALTER TABLE member ADD COLUMN due;"
            "DROP TABLE device; DROP TABLE incoming; DROP TABLE stranger; DROP TABLE delivery;"
            "CREATE TABLE delivery (a); CREATE TABLE sequence (a); CREATE TABLE received (a);"
            "ALTER TABLE outgoing DROP COLUMN sequence; ALTER TABLE outgoing DROP COLUMN laid;"
            "ALTER TABLE mailbox DROP COLUMN device; ALTER TABLE mailbox DROP COLUMN epoch;"
            "ALTER TABLE mailbox DROP COLUMN sequence; ALTER TABLE mailbox DROP COLUMN acks_serial;"
            "ALTER TABLE mailbox DROP COLUMN exchange; ALTER TABLE mailbox DROP COLUMN trash_days;"
            "ALTER TABLE mailbox DROP COLUMN card_serial;"
            "ALTER TABLE mailbox DROP COLUMN readers;"
            "DROP TABLE traffic; DROP TABLE applied_within; DROP TABLE mirror_mail; DROP TABLE mirror; DROP TABLE trash; DROP TABLE comparison; DROP INDEX item_beaten; DROP INDEX item_pending;"
            "ALTER TABLE item DROP COLUMN heads; ALTER TABLE item DROP COLUMN whole;"
            "ALTER TABLE item DROP COLUMN pending; ALTER TABLE item DROP COLUMN beaten;");

    const Mailbox opened = Mailbox::Open(place);

    EXPECT_EQ(exchange::TextOf(ReadDeviceKeys(opened).Id()), opened.Device());
    EXPECT_EQ(Mailbox::Open(place).Device(), opened.Device());
    WriteDurably(keyFile, std::string(32, 'x'));
    EXPECT_THROW(ReadDeviceKeys(opened), HostError);
    WriteDurably(keyFile, std::string(31, 'x'));
    EXPECT_THROW(ReadDeviceKeys(opened), HostError);
}

}  // namespace

}  // namespace quorvane::host
