#include "host/sharing/receipts.h"

#include <gtest/gtest.h>

#include <fstream>

#include "host/exchange/exchange_for_test.h"
#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

class ReceiptsTest : public ::testing::Test {
protected:
    ReceiptsTest()
    {
        here.LetIn({"alice", "carol"});
        std::ofstream(here.directory / "content") << "content";
    }

    // Seals a package to these members and lays it into the exchange; its number.
    std::uint64_t Send(const std::vector<std::string>& members)
    {
        here.hostRecords.Execute("UPDATE folder_device SET told = 1, due = 0");
        const auto path = here.directory / "content";
        const std::int64_t package = here.records.AddOutgoing(path.string(), "a group");
        here.records.PlanPackage(package, {members, {{"{1}", "{F}"}}});
        const std::uint64_t sequence = here.records.Outgoing().at(0).sequence;
        LaySealed(here.transport, {sequence}, here.transport.peers.ReceiversOf(sequence), path);
        here.records.NoteLaid(package, 100);
        here.records.FinishOutgoing(package);
        return sequence;
    }

    // What a device tells of this one's packages.
    void Acknowledge(const exchange::DeviceKeys& by, std::uint64_t applied, std::uint64_t serial,
                     const std::vector<exchange::SequenceRange>& asked = {})
    {
        Acknowledge(by, applied, serial, asked, here.transport.peers.OwnEpoch(), by);
    }
    void Acknowledge(const exchange::DeviceKeys& by, std::uint64_t applied, std::uint64_t serial,
                     const std::vector<exchange::SequenceRange>& asked, const exchange::Epoch& epoch,
                     const exchange::DeviceKeys& signer)
    {
        exchange::Acks acks;
        acks.serial = serial;
        acks.senders[here.transport.keys.Id()] = {epoch, applied, asked};
        exchange::Place(here.directory / "exchange", by.Id())
            .Write(exchange::Place::Note::kAcks, exchange::WriteAcks(signer, acks));
    }

    // As a run does at its start.
    void Look()
    {
        Receipts receipts(
            "bob", [this](const std::string& line) { lines.push_back(line); }, 0);
        receipts.Begin(here.transport);
        receipts.Look(here.transport);
    }
    std::vector<std::uint64_t> Lying() const
    {
        return here.transport.place.Packages(here.transport.keys.Id(), 1);
    }
    // Whether the folder is to be compared with a member's, who isn't owed all of it for that.
    bool IsCompared(const std::string& member)
    {
        Statement pairs(
            here.hostRecords,
            "SELECT count(*) FROM comparison JOIN device ON id = device WHERE member = ? AND wanted = 1");
        return pairs.Bind(1, member).Step() && pairs.Number(0) == 1 &&
               !here.records.FindResend("{F}", member);
    }
    std::filesystem::path PackagePath(std::uint64_t sequence) const
    {
        std::string name = std::to_string(sequence);
        name.insert(0, 20 - name.size(), '0');
        return here.directory / "exchange" / exchange::TextOf(here.transport.keys.Id()) / "out" /
               (name + ".qvx");
    }
    using Numbers = std::vector<std::uint64_t>;

    SharedTestMailbox here;
    std::vector<std::string> lines;
};

TEST_F(ReceiptsTest, APackageLiesThereUntilEachReceiverHasAcknowledgedIt)
{
    Send({"alice", "carol"});
    Send({"alice"});
    Look();
    EXPECT_EQ(Lying(), (Numbers{1, 2}));

    Acknowledge(here.alice, 2, 10);
    Look();
    EXPECT_EQ(Lying(), Numbers{1});
    EXPECT_EQ(here.transport.peers.Find(here.alice.Id())->acked, 2U);

    Acknowledge(here.carol, 1, 10);
    Look();
    EXPECT_TRUE(Lying().empty());
    EXPECT_EQ(lines, std::vector<std::string>());
}

TEST_F(ReceiptsTest, ForgedOldAndForeignAcknowledgementsRemoveNothing)
{
    Send({"alice"});
    const exchange::DeviceKeys stranger;
    Acknowledge(here.alice, 1, 10, {}, here.transport.peers.OwnEpoch(), stranger);
    Look();
    EXPECT_EQ(Lying(), Numbers{1});
    EXPECT_EQ(lines.size(), 1U);
    // The number that holds is the greatest that was seen.
    Acknowledge(here.alice, 0, 10);
    Look();
    Acknowledge(here.alice, 1, 9);
    Look();
    EXPECT_EQ(Lying(), Numbers{1});
    Acknowledge(stranger, 1, 99);
    Look();
    EXPECT_EQ(Lying(), Numbers{1});
    Acknowledge(here.alice, 1, 11);
    Look();
    EXPECT_TRUE(Lying().empty());
}

// The mailbox came out of a backup, and the place brings what would have told it so only now.
TEST_F(ReceiptsTest, WhoHasTakenMoreThanWasSentMakesTheMailboxBeginAnew)
{
    Send({"alice"});
    const exchange::Epoch before = here.transport.peers.OwnEpoch();
    Receipts receipts(
        "bob", [this](const std::string& line) { lines.push_back(line); }, 0);
    receipts.Begin(here.transport);
    Acknowledge(here.alice, 5, 10);

    receipts.Look(here.transport);
    EXPECT_EQ(here.transport.peers.OwnEpoch(), before);
    receipts.Begin(here.transport);

    EXPECT_NE(here.transport.peers.OwnEpoch(), before);
    EXPECT_TRUE(IsCompared("alice"));
    EXPECT_EQ(Send({"alice"}), 6U);
    EXPECT_EQ(here.transport.peers.ReceiversOf(6).at(0).previous, 0U);
}

// It has begun anew, and didn't see how far it had come before: what it sends passes there for old.
TEST_F(ReceiptsTest, WhoIsFurtherInAnotherEpochIsComparedAndSentGreaterNumbers)
{
    Send({"alice", "carol"});
    Acknowledge(here.alice, 7, 10, {}, exchange::Epoch{9}, here.alice);
    Look();

    EXPECT_TRUE(IsCompared("alice"));
    EXPECT_FALSE(IsCompared("carol"));
    EXPECT_EQ(Lying(), Numbers{1});
    EXPECT_EQ(Send({"alice"}), 8U);
    EXPECT_EQ(here.transport.peers.ReceiversOf(8).at(0).previous, 0U);
    Look();
    EXPECT_EQ(Lying(), (Numbers{1, 8}));
    EXPECT_TRUE(lines.empty());
}

TEST_F(ReceiptsTest, NobodyCanBringTheNumbersToTheirEnd)
{
    Send({"alice"});
    Acknowledge(here.alice, std::uint64_t{1} << 50, 10, {}, exchange::Epoch{9}, here.alice);
    Look();

    EXPECT_FALSE(IsCompared("alice"));
    EXPECT_EQ(Send({"alice"}), 2U);
}

// The acknowledgements that another one with this device's keys writes. A mailbox that was restored finds
// such ones once; when more of them come, a copy of it is at work.
TEST_F(ReceiptsTest, AMailboxThatACopyOfItWorksBesideStops)
{
    Receipts receipts(
        "bob", [this](const std::string& line) { lines.push_back(line); }, 0);
    receipts.Begin(here.transport);
    const exchange::Epoch before = here.transport.peers.OwnEpoch();
    const std::uint64_t now = FileTimeNow();
    const auto tell = [&](std::uint64_t serial) {
        here.transport.place.Write(exchange::Place::Note::kAcks,
                                   exchange::WriteAcks(here.transport.keys, exchange::Acks{serial, {}}));
    };

    tell(now + 1000);
    receipts.Look(here.transport);
    receipts.Begin(here.transport);
    EXPECT_NE(here.transport.peers.OwnEpoch(), before);
    tell(now + 2000);
    EXPECT_THROW(receipts.Look(here.transport), CopyAtWork);
}

TEST_F(ReceiptsTest, WhatIsAskedForAndLiesThereIsOnlyLateAndWhatDoesntIsFoundByAComparison)
{
    Send({"alice"});
    Send({"alice"});
    Acknowledge(here.alice, 0, 10, {{1, 1}});
    Look();
    EXPECT_FALSE(IsCompared("alice"));

    std::filesystem::resize_file(PackagePath(1), 100);
    Look();

    EXPECT_TRUE(IsCompared("alice"));
    EXPECT_FALSE(IsCompared("carol"));
    EXPECT_TRUE(Lying().empty()) << "what follows is found by the comparison, too";
    ASSERT_EQ(here.transport.folders.DueNotes().size(), 1U);
    EXPECT_EQ(here.transport.folders.DueNotes()[0].devices,
              std::vector<std::string>{exchange::TextOf(here.alice.Id())});
    // It comes right behind what she has.
    Send({"alice"});
    EXPECT_EQ(here.transport.peers.ReceiversOf(3).at(0).previous, 0U);
}

TEST_F(ReceiptsTest, WhatSomebodyRemovesBeforeItWasTakenIsFoundByAComparison)
{
    Send({"alice"});
    Acknowledge(here.alice, 1, 10);
    Look();
    Send({"alice", "carol"});
    std::filesystem::remove_all(here.directory / "exchange" / exchange::TextOf(here.transport.keys.Id()));

    Look();

    EXPECT_TRUE(IsCompared("alice"));
    EXPECT_TRUE(IsCompared("carol"));
    EXPECT_EQ(lines.size(), 2U);
    Send({"alice"});
    EXPECT_EQ(here.transport.peers.ReceiversOf(3).at(0).previous, 1U);
    EXPECT_TRUE(here.transport.place.Read(here.transport.keys.Id(), exchange::Place::Note::kCard, 4096));
}

TEST_F(ReceiptsTest, AMemberWhoseMailboxCameOutOfABackupIsGivenWhatItLacks)
{
    Send({"alice"});
    Send({"alice"});
    Acknowledge(here.alice, 2, 10);
    Look();
    Acknowledge(here.alice, 1, 11);
    Look();

    EXPECT_TRUE(IsCompared("alice"));
    Send({"alice"});
    EXPECT_EQ(here.transport.peers.ReceiversOf(3).at(0).previous, 1U);
}

TEST_F(ReceiptsTest, AMailboxThatIsBehindWhatOthersHaveOfItBeginsAnew)
{
    Send({"alice", "carol"});
    const exchange::Epoch before = here.transport.peers.OwnEpoch();
    Acknowledge(here.alice, 7, 10);

    Look();

    EXPECT_NE(here.transport.peers.OwnEpoch(), before);
    EXPECT_TRUE(IsCompared("alice"));
    EXPECT_TRUE(IsCompared("carol"));
    EXPECT_TRUE(Lying().empty());
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_EQ(Send({"carol"}), 8U);
    EXPECT_EQ(here.transport.peers.ReceiversOf(8).at(0).previous, 0U);
    Look();
    EXPECT_EQ(Lying(), Numbers{8}) << "that was once";
}

TEST_F(ReceiptsTest, AMailboxThatIsBehindItsOwnPackagesBeginsAnewAndJunkIsNoneOfThem)
{
    Send({"alice"});

    std::ofstream(PackagePath(18'000'000'000'000'000'000U)) << "junk";
    const exchange::Epoch before = here.transport.peers.OwnEpoch();
    Look();
    EXPECT_EQ(here.transport.peers.OwnEpoch(), before);
    EXPECT_EQ(Lying(), Numbers{1}) << "junk goes";

    Statement(here.hostRecords, "UPDATE mailbox SET sequence = 0").Run();
    Look();
    EXPECT_NE(here.transport.peers.OwnEpoch(), before);
    EXPECT_EQ(Send({"alice"}), 2U);
}

TEST_F(ReceiptsTest, WhatWasTakenIsToldOnceWithARisingNumber)
{
    const auto read = [this] {
        return exchange::ReadAcks(
            *here.transport.place.Read(here.transport.keys.Id(), exchange::Place::Note::kAcks,
                                       exchange::Acks::kLongest),
            here.transport.keys.Signing());
    };
    Receipts receipts(
        "bob", [](const std::string&) {}, 0);
    receipts.Tell(here.transport);
    EXPECT_TRUE(read().senders.empty()) << "it lives, and has taken nothing";
    const std::uint64_t serial = read().serial;
    receipts.Tell(here.transport);
    EXPECT_EQ(read().serial, serial);

    here.transport.peers.NoteApplied(here.alice.Id(), {exchange::Epoch{5}, 3, 0});
    receipts.Tell(here.transport);
    const exchange::Acks first = read();
    EXPECT_EQ(exchange::AcknowledgedUpTo(first, here.alice.Id(), exchange::Epoch{5}), 3U);
    receipts.Tell(here.transport);
    EXPECT_EQ(read(), first);

    Peer carol = *here.transport.peers.Find(here.carol.Id());
    carol.missing = exchange::SequenceRange{1, 4};
    carol.gap.first = 1;
    carol.isAsked = true;
    here.transport.peers.NoteGap(carol);
    receipts.Tell(here.transport);
    EXPECT_GT(read().serial, first.serial);
    EXPECT_EQ(read().senders.at(here.carol.Id()).asked, (std::vector<exchange::SequenceRange>{{1, 4}}));
}

TEST_F(ReceiptsTest, AStrangerWhoHasSomethingForThisMailboxIsNamedAndNobodyElseIs)
{
    const exchange::DeviceKeys erin, frank;
    for (const auto* keys : {&erin, &frank}) {
        const exchange::Place place(here.directory / "exchange", keys->Id());
        place.Write(exchange::Place::Note::kCard,
                    exchange::WriteCard(*keys, keys == &erin ? "erin" : "frank", 1));
        const exchange::DeviceKeys& receiver = keys == &erin ? here.transport.keys : here.carol;
        std::string package;
        exchange::Seal(*keys, {keys->Id(), exchange::Epoch{1}, 1, exchange::PackageKind::kItems},
                       {{receiver.Id(), receiver.Sealing(), 0}}, exchange::MemorySource("x"),
                       [&](std::string_view bytes) { package += bytes; });
        place.Put(1, exchange::MemorySource(package));
    }

    Look();

    const auto strangers = here.transport.peers.Strangers();
    ASSERT_EQ(strangers.size(), 1U);
    EXPECT_EQ(strangers[0].name, "erin");
    EXPECT_EQ(strangers[0].packages, 1U);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find(exchange::FingerprintOf(erin.Id())), std::string::npos) << lines[0];
}

}  // namespace

}  // namespace quorvane::host
