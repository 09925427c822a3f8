#include "host/mailbox/peers.h"

#include <gtest/gtest.h>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/mailbox/device.h"
#include "host/mailbox/records.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

class PeersTest : public ::testing::Test {
protected:
    PeersTest()
    {
        records.AddShare({"{F}", "00AB", "00CD", "Shared"});
        records.AddShare({"{G}", "00AC", "00CD", "Second"});
    }

    static std::string MakeTables(const std::string& path)
    {
        Database database(path, Database::Mode::kCreate);
        Records::CreateTables(database, "alice", "0011223344556677");
        return path;
    }
    void Pin(const exchange::DeviceKeys& keys, const std::string& member, const std::string& how = "device")
    {
        const std::string card = exchange::WriteCard(keys, member, 1);
        peers.Pin(exchange::ReadCard(card, keys.Id()), card, member, how);
    }
    std::vector<std::string> ToldNext(const std::string& folder) { return records.MembersToTell(folder); }
    using Names = std::vector<std::string>;

    test::TestDirectory directory;
    const std::string path = MakeTables((directory / "host.db").string());
    Records records{path};
    Peers peers{path};
    const exchange::DeviceKeys laptop, desktop;
};

TEST_F(PeersTest, AnAwaitedMemberIsToldOfTheFolderWhenHisDeviceIsPinned)
{
    records.AddMember("{F}", "bob");
    EXPECT_TRUE(ToldNext("{F}").empty());
    EXPECT_EQ(peers.AwaitedMembers(), std::set<std::string>{"bob"});

    Pin(laptop, "bob");

    EXPECT_EQ(ToldNext("{F}"), Names{"bob"});
    EXPECT_TRUE(peers.AwaitedMembers().empty());
    EXPECT_EQ(records.FindResend("{F}", "bob")->scope, ResendScope::kEverything);
    const auto peer = peers.Find(laptop.Id());
    ASSERT_TRUE(peer && peer->card);
    EXPECT_EQ(peer->card->sealing, laptop.Sealing());
    EXPECT_TRUE(peer->IsPinnedByUser());
}

TEST_F(PeersTest, OneMoreDeviceOfAMemberIsOwedAllThatHeHas)
{
    Pin(laptop, "bob");
    records.LearnMembers("{F}", {"bob"}, false);
    records.AddMember("{G}", "bob");

    Pin(desktop, "bob");

    EXPECT_EQ(records.FindResend("{F}", "bob")->scope, ResendScope::kAgain);
    EXPECT_EQ(records.FindResend("{G}", "bob")->scope, ResendScope::kEverything);
    EXPECT_EQ(peers.OfMember("bob").size(), 2U);
}

TEST_F(PeersTest, TheUsersWordTakesThePlaceOfWhatAMemberSaid)
{
    const exchange::DeviceKeys carols;
    records.LearnMembers("{F}", {"bob", "carol"}, false);
    records.LearnMembers("{G}", {"bob"}, false);
    records.Introduce("bob", exchange::TextOf(desktop.Id()), "carol", 1);
    EXPECT_FALSE(peers.Find(desktop.Id())) << "nobody has said who carol is";
    Pin(carols, "carol");
    records.Introduce("bob", exchange::TextOf(desktop.Id()), "carol", 1);
    EXPECT_FALSE(peers.Find(desktop.Id())->IsPinnedByUser());
    const std::string card = exchange::WriteCard(desktop, "bob", 1);
    peers.NoteCard(exchange::ReadCard(card, desktop.Id()), card);
    EXPECT_TRUE(records.IsReachable("{F}", "bob"));
    EXPECT_FALSE(records.IsReachable("{G}", "bob")) << "carol has no part in that folder";
    EXPECT_TRUE(records.DevicesOf("bob").empty()) << "what carol says isn't handed on";

    Pin(laptop, "bob");

    ASSERT_EQ(peers.OfMember("bob").size(), 1U);
    EXPECT_EQ(peers.OfMember("bob")[0].id, laptop.Id());
    EXPECT_EQ(records.FindResend("{F}", "bob")->scope, ResendScope::kAgain);
}

TEST_F(PeersTest, AMemberWhoseOnlyDeviceIsForgottenIsAwaited)
{
    Pin(laptop, "bob");
    records.LearnMembers("{F}", {"bob"}, false);

    peers.Drop(laptop.Id());

    EXPECT_FALSE(peers.Find(laptop.Id()));
    EXPECT_EQ(peers.AwaitedMembers(), std::set<std::string>{"bob"});
    EXPECT_TRUE(records.Members("{F}", true).empty());
    EXPECT_TRUE(records.FindResend("{F}", "bob"));
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
        .Execute("PRAGMA user_version = 2;"
                 "DROP TABLE device; DROP TABLE incoming; DROP TABLE stranger; DROP TABLE delivery;"
                 "CREATE TABLE delivery (a); CREATE TABLE sequence (a); CREATE TABLE received (a);"
                 "ALTER TABLE outgoing DROP COLUMN sequence; ALTER TABLE outgoing DROP COLUMN laid;"
                 "ALTER TABLE mailbox DROP COLUMN device; ALTER TABLE mailbox DROP COLUMN epoch;"
                 "ALTER TABLE mailbox DROP COLUMN sequence; ALTER TABLE mailbox DROP COLUMN acks_serial;"
                 "ALTER TABLE mailbox DROP COLUMN exchange; ALTER TABLE mailbox DROP COLUMN trash_days;"
                 "DROP TABLE trash; DROP TABLE comparison; DROP INDEX item_beaten; DROP INDEX item_pending;"
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
