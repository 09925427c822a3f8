#include "host/sharing/inbox.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <future>
#include <iterator>
#include <thread>

#include "host/base/path_text.h"
#include "host/exchange/exchange_for_test.h"
#include "host/sharing/sender.h"
#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

class InboxTest : public ::testing::Test {
protected:
    static constexpr std::chrono::seconds kWithin{60};

    InboxTest() { here.LetIn({"alice", "carol"}); }

    // A package with a message, as the engine makes it.
    std::string Content(const std::string& subject)
    {
        const std::string group = "group " + subject;
        const std::string entryId = here.AddMessage(subject);
        EXPECT_TRUE(outside.SendItem(here.share, entryId, group));
        here.DeleteMessage(entryId);
        here.Execute("DELETE FROM tblItem");
        Statement(here.hostRecords, "DELETE FROM item").Run();
        std::ifstream file(ReadText(*here.PackageFor(group), &IStorageFile::get_Path), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // As another member seals it.
    std::string Sealed(const exchange::DeviceKeys& sender, std::uint64_t sequence, std::uint64_t previous,
                       const std::string& content,
                       exchange::PackageKind kind = exchange::PackageKind::kItems) const
    {
        std::string package;
        exchange::Seal(sender, {sender.Id(), exchange::Epoch{7}, sequence, kind},
                       {{here.transport.keys.Id(), here.transport.keys.Sealing(), previous}},
                       exchange::MemorySource(content), [&](std::string_view bytes) { package += bytes; });
        return package;
    }
    void Lay(const exchange::DeviceKeys& sender, std::uint64_t sequence, const std::string& package) const
    {
        exchange::Place(here.directory / "exchange", sender.Id())
            .Put(sequence, exchange::MemorySource(package));
    }
    void Arrive(const exchange::DeviceKeys& sender, std::uint64_t sequence, const std::string& subject)
    {
        Lay(sender, sequence, Sealed(sender, sequence, sequence - 1, Content(subject)));
    }

    // Works everything off.
    void Drain()
    {
        const auto end = std::chrono::steady_clock::now() + kWithin;
        while (inbox.HasWork(here.transport)) {
            inbox.TakeNext(here.transport);
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            std::this_thread::yield();
        }
    }

    std::vector<std::string> Subjects() const
    {
        std::vector<std::string> subjects;
        ForEachItem(*here.folder, [&](const ItemInfo& item) { subjects.push_back(item.subject); });
        return subjects;
    }
    std::uint64_t Applied(const exchange::DeviceKeys& sender)
    {
        return here.transport.peers.Find(sender.Id())->order.applied;
    }
    // Changes that were applied, after whatever time.
    std::int64_t Applied()
    {
        std::int64_t count = 0;
        for (const AppliedWithin& one : ReadAppliedWithin(here.hostRecords, 0))
            count += one.items;
        return count;
    }
    bool HasCopies() const { return !std::filesystem::is_empty(here.mailbox.InboxPath()); }

    SharedTestMailbox here;
    Sender outside{here.addin, here.parts, here.engine};
    Matcher matcher{here.parts, here.engine};
    std::vector<std::string> lines;
    Inbox inbox{here.parts, here.engine, matcher, [this](const std::string& line) { lines.push_back(line); },
                0};
    using Subject = std::vector<std::string>;
};

TEST_F(InboxTest, EveryPackageHasASecondTryOfItsOwn)
{
    Arrive(here.alice, 1, "first");
    Arrive(here.alice, 2, "second");
    // Each is let in when it comes again.
    here.callbacks.beforeReceived = [this, call = 0]() mutable { here.callbacks.failReceived = ++call % 2; };

    Drain();

    EXPECT_EQ(Subjects(), (Subject{"first", "second"}));
    EXPECT_EQ(here.statistics.packagesRejected, 0U);
    EXPECT_EQ(lines, std::vector<std::string>());
    EXPECT_FALSE(HasCopies());
}

TEST_F(InboxTest, WhatArrivesIsCountedWithTheTimeThatItTook)
{
    const std::string first = Sealed(here.alice, 1, 0, Content("first"));
    Lay(here.alice, 1, first);
    Drain();

    const std::vector<TrafficOfADay> days = ReadTraffic(here.hostRecords, 0);
    ASSERT_EQ(days.size(), 1U);
    EXPECT_EQ(days[0].received, (Traffic{1, 1, static_cast<std::int64_t>(first.size())}));
    EXPECT_EQ(days[0].sent, Traffic{});
    EXPECT_EQ(Applied(), 1);
}

// As of one who joins a folder that others had before.
TEST_F(InboxTest, WhatWasMadeBeforeTheFolderWasSharedHereTookNoTime)
{
    Statement(here.hostRecords, "UPDATE folder SET since = ?").Bind(1, std::int64_t{1} << 61).Run();
    Arrive(here.alice, 1, "old");
    Drain();

    EXPECT_EQ(ReadTraffic(here.hostRecords, 0).at(0).received.items, 1);
    EXPECT_EQ(Applied(), 0);
}

TEST_F(InboxTest, WhatIsKnownAlreadyIsntCountedAsAChange)
{
    const std::string content = Content("twice");
    Lay(here.alice, 1, Sealed(here.alice, 1, 0, content));
    Lay(here.alice, 2, Sealed(here.alice, 2, 1, content));
    Drain();

    EXPECT_EQ(ReadTraffic(here.hostRecords, 0).at(0).received.packages, 2);
    EXPECT_EQ(Applied(), 1);
}

// A virus scanner, say, has the copy open just when it is to be looked through.
TEST_F(InboxTest, APackageThatCantBeOpenedJustNowIsTakenLater)
{
    const std::string content = Content("held up");
    const auto copy = here.mailbox.InboxPath() / (exchange::TextOf(here.alice.Id()) + "-1.qvt");
    std::ofstream(copy, std::ios::binary) << content;
    ComPtr<IStorage> held;
    ASSERT_EQ(StgOpenStorage(OleTextOf(copy).c_str(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr,
                             0, held.Put()),
              S_OK);
    Lay(here.alice, 1, Sealed(here.alice, 1, 0, content));
    try {
        inbox.TakeNext(here.transport);
    } catch (const HostError&) {
        // On Windows there is no copy to open then.
    }
    EXPECT_EQ(Applied(here.alice), 0U);

    held.Reset();
    const auto end = std::chrono::steady_clock::now() + kWithin;
    while (Subjects().empty() && Applied(here.alice) == 0 && std::chrono::steady_clock::now() < end)
        inbox.TakeNext(here.transport);
    Drain();

    EXPECT_EQ(Subjects(), Subject{"held up"});
    EXPECT_FALSE(std::filesystem::exists(here.mailbox.Directory() / "rejected"));
}

// A power cut may leave the record of a message, and neither the message nor its row.
TEST_F(InboxTest, WhatTheRecordsTellOfAndHasNoRowIsAppliedAgain)
{
    const std::string content = Content("lost with the power");
    Lay(here.alice, 1, Sealed(here.alice, 1, 0, content));
    Drain();
    std::string entryId;
    ForEachItem(*here.folder, [&](const ItemInfo& item) { entryId = item.entryId; });
    ASSERT_FALSE(entryId.empty());
    here.Execute("DELETE FROM tblItem");
    here.DeleteMessage(entryId);
    ASSERT_EQ(Subjects(), Subject());

    Lay(here.alice, 2, Sealed(here.alice, 2, 1, content));
    Drain();

    EXPECT_EQ(Subjects(), Subject{"lost with the power"});
    EXPECT_EQ(Applied(here.alice), 2U);
}

struct HeardReports final : ReportSink {
    void Hear(const Peer& peer, const exchange::FolderReport& report) override
    {
        heard.push_back(peer.member + " of " + report.folder);
    }
    void Miss(const exchange::DeviceId& device) override { missed.push_back(device); }

    std::vector<std::string> heard;
    std::vector<exchange::DeviceId> missed;
};

// What isn't a report, and one of a folder that its sender has no part in, is acknowledged and forgotten:
// nothing behind it waits.
TEST_F(InboxTest, AReportIsHeardFromWhoSharesTheFolderAndNothingElseIs)
{
    HeardReports reports;
    inbox.SetReports(&reports);
    const exchange::DeviceKeys dave;
    here.Pin(dave, "dave");
    exchange::FolderReport report;
    report.folder = "{F}";
    const auto lay = [&](const exchange::DeviceKeys& sender, std::uint64_t sequence,
                         const std::string& bytes) {
        Lay(sender, sequence, Sealed(sender, sequence, sequence - 1, bytes, exchange::PackageKind::kDigest));
    };
    lay(here.alice, 1, "no report");
    lay(here.alice, 2, report.Write());
    lay(dave, 1, report.Write());
    report.folder = "{ANOTHER}";
    lay(here.carol, 1, report.Write());

    Drain();

    EXPECT_EQ(reports.heard, std::vector<std::string>{"alice of {F}"});
    EXPECT_EQ(Applied(here.alice), 2U);
    EXPECT_EQ(Applied(dave), 1U);
    EXPECT_EQ(Applied(here.carol), 1U);
    EXPECT_EQ(here.statistics.packagesRejected, 1U);
    EXPECT_FALSE(HasCopies());
}

TEST_F(InboxTest, WhatIsPutAsideIsTold)
{
    HeardReports reports;
    inbox.SetReports(&reports);
    Arrive(here.alice, 1, "refused");
    here.callbacks.failReceived = 2;

    Drain();

    EXPECT_EQ(reports.missed, std::vector{here.alice.Id()});
}

TEST_F(InboxTest, APackageThatFailsTwiceIsPutAsideAndTheNextOneIsTaken)
{
    Arrive(here.alice, 1, "refused");
    Arrive(here.alice, 2, "taken");
    here.callbacks.failReceived = 2;

    Drain();

    EXPECT_EQ(Subjects(), Subject{"taken"});
    EXPECT_EQ(here.statistics.packagesRejected, 1U);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("1 of its items could not be applied"), std::string::npos) << lines[0];
    EXPECT_TRUE(std::filesystem::exists(here.mailbox.Directory() / "rejected" /
                                        (exchange::TextOf(here.alice.Id()) + "-1.qvt")));
    EXPECT_EQ(Applied(here.alice), 2U);
}

TEST_F(InboxTest, NoPackageOvertakesTheOneThatIsWithTheEngine)
{
    Arrive(here.alice, 1, "first");
    Arrive(here.carol, 1, "second");
    std::promise<void> begun, go;
    here.callbacks.beforeReceived = [&, call = 0]() mutable {
        if (++call > 1)
            return;
        begun.set_value();
        go.get_future().wait_for(kWithin);
    };
    ASSERT_TRUE(inbox.TakeNext(here.transport));
    ASSERT_EQ(begun.get_future().wait_for(kWithin), std::future_status::ready);

    EXPECT_FALSE(inbox.TakeNext(here.transport));
    EXPECT_EQ(here.statistics.packagesReceived, 1U);
    EXPECT_EQ(here.Ask("SELECT count(*) FROM tblUnfinishedReceiveJob"), 1);

    go.set_value();
    Drain();
    EXPECT_EQ(Subjects().size(), 2U);
    EXPECT_EQ(here.statistics.packagesReceived, 2U);
}

// A file that comes late, as synchronised ones do.
TEST_F(InboxTest, BehindAGapNothingIsAppliedAndAllOfItOnceTheGapIsClosed)
{
    const std::string first = Sealed(here.alice, 1, 0, Content("first"));
    Arrive(here.alice, 2, "second");
    Arrive(here.carol, 1, "from carol");

    Drain();
    EXPECT_EQ(Subjects(), Subject{"from carol"});
    const auto alice = here.transport.peers.Find(here.alice.Id());
    EXPECT_EQ(alice->missing, (exchange::SequenceRange{1, 1}));
    EXPECT_TRUE(alice->isAsked);

    Lay(here.alice, 1, first);
    Drain();
    EXPECT_EQ(Subjects(), (Subject{"from carol", "first", "second"}));
    EXPECT_EQ(here.transport.peers.Find(here.alice.Id())->missing, std::nullopt);
    EXPECT_EQ(lines, std::vector<std::string>());
}

TEST_F(InboxTest, AForgedPackageIsRefusedOnceAndTheTrueOneTakenWhenItHasItsPlace)
{
    const std::string content = Content("true");
    std::string forged = Sealed(here.alice, 1, 0, content);
    forged[forged.size() / 2] = static_cast<char>(forged[forged.size() / 2] ^ 1);
    Lay(here.alice, 1, forged);

    Drain();
    Drain();
    EXPECT_TRUE(Subjects().empty());
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_EQ(here.statistics.packagesRejected, 1U);
    ASSERT_EQ(here.transport.peers.Incoming().size(), 1U);
    EXPECT_EQ(here.transport.peers.Incoming()[0].state, IncomingRecord::State::kRefused);
    EXPECT_FALSE(HasCopies());

    Lay(here.alice, 1, Sealed(here.alice, 1, 0, content));
    const auto end = std::chrono::steady_clock::now() + kWithin;
    while (Subjects().empty() && std::chrono::steady_clock::now() < end)
        inbox.TakeNext(here.transport);
    Drain();
    EXPECT_EQ(Subjects(), Subject{"true"});
    EXPECT_TRUE(here.transport.peers.Incoming().empty());
}

TEST_F(InboxTest, WhatIsSealedByAStrangerOrToOthersNeverReachesTheEngine)
{
    const std::string content = Content("stranger's");
    const exchange::DeviceKeys stranger;
    // Under alice's number and name, under his own, and to carol.
    Lay(here.alice, 1, Sealed(stranger, 1, 0, content));
    Lay(stranger, 1, Sealed(stranger, 1, 0, content));
    std::string toCarol;
    exchange::Seal(here.alice, {here.alice.Id(), exchange::Epoch{7}, 2, exchange::PackageKind::kItems},
                   {{here.carol.Id(), here.carol.Sealing(), 0}}, exchange::MemorySource(content),
                   [&](std::string_view bytes) { toCarol += bytes; });
    Lay(here.alice, 2, toCarol);
    here.callbacks.beforeReceived = [] { ADD_FAILURE(); };

    Drain();

    EXPECT_EQ(here.statistics.packagesReceived, 0U);
    EXPECT_EQ(here.statistics.packagesRejected, 1U);
    EXPECT_TRUE(Subjects().empty());
}

TEST_F(InboxTest, WhatSomebodySendsOfAFolderWhoseMemberHeIsntIsRefusedAndCountedAndHoldsNothingUp)
{
    const exchange::DeviceKeys dave;
    here.Pin(dave, "dave");
    Arrive(dave, 1, "from dave");
    Arrive(dave, 2, "and again");
    Arrive(here.alice, 1, "from alice");
    here.callbacks.beforeReceived = [this, call = 0]() mutable { EXPECT_EQ(++call, 1); };

    Drain();

    EXPECT_EQ(Subjects(), Subject{"from alice"});
    EXPECT_EQ(Applied(dave), 2U);
    EXPECT_FALSE(HasCopies());
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_EQ(here.statistics.packagesRejected, 2U);
    ASSERT_EQ(here.transport.refusals.All().size(), 1U);
    EXPECT_EQ(here.transport.refusals.All()[0].device, dave.Id());
    EXPECT_EQ(here.transport.refusals.All()[0].count, 2U);
    here.callbacks.beforeReceived = nullptr;
    here.LetIn({"dave"});
    Arrive(dave, 3, "as a member");
    Drain();
    EXPECT_EQ(Subjects(), (Subject{"from alice", "as a member"}));
}

// Killed when it lay in inbox/, and the folder was left before the next run.
TEST_F(InboxTest, WhoMaySendIsJudgedAgainWhenAPackageIsTakenUp)
{
    Arrive(here.alice, 1, "too late");
    exchange::CopyIn(*here.transport.place.Open(here.alice.Id(), 1),
                     here.mailbox.InboxPath() / (exchange::TextOf(here.alice.Id()) + "-1.qvx"), 1 << 20, 0);
    here.transport.peers.PutIncoming({here.alice.Id(), 1, IncomingRecord::State::kTaken, {}, 0});
    here.transport.folders.Leave("{F}");
    here.callbacks.beforeReceived = [] { ADD_FAILURE(); };

    Drain();

    EXPECT_TRUE(Subjects().empty());
    EXPECT_EQ(Applied(here.alice), 1U);
    EXPECT_EQ(here.statistics.packagesRejected, 0U) << "nobody did anything wrong";
}

TEST_F(InboxTest, WhatIsToldOfAFolderIsTakenInItsTurnAndRubbishCountsAsTakenToo)
{
    const exchange::DeviceKeys dave;
    here.Pin(dave, "dave");
    exchange::MembershipEntry entry;
    entry.folder = "{DAVES}";
    entry.member = dave.Signing();
    entry.name = "dave";
    const std::string founding = WriteMembershipEntry(dave, entry);
    entry.change = exchange::MembershipChange::kAdd;
    entry.member = here.transport.keys.Signing();
    entry.name = "bob";
    entry.seen = {exchange::IdOfEntry(founding)};
    const auto note = exchange::WriteFolderNote(
        {true, {}, "{DAVES}", "Inbox", {founding, WriteMembershipEntry(dave, entry)}});
    const auto lay = [&](std::uint64_t sequence, const std::string& content) {
        std::string package;
        exchange::Seal(dave, {dave.Id(), exchange::Epoch{7}, sequence, exchange::PackageKind::kMembership},
                       {{here.transport.keys.Id(), here.transport.keys.Sealing(), sequence - 1}},
                       exchange::MemorySource(content), [&](std::string_view bytes) { package += bytes; });
        Lay(dave, sequence, package);
    };
    lay(1, "rubbish");
    lay(2, note);

    Drain();

    EXPECT_EQ(Applied(dave), 2U);
    EXPECT_EQ(here.statistics.packagesRejected, 1U);
    ASSERT_EQ(here.transport.folders.Invitations().size(), 1U);
    EXPECT_EQ(here.transport.folders.Invitations()[0].name, "Inbox");
    EXPECT_FALSE(HasCopies());
}

TEST_F(InboxTest, AnItemThatIsKnownInAnotherFolderIsntTouched)
{
    Arrive(here.alice, 1, "harmful");
    const auto path = here.directory / "look";
    {
        const auto file = here.transport.place.Open(here.alice.Id(), 1);
        exchange::SealedPackage package(*file, "the package");
        package.Verify(here.alice.Signing());
        const SystemFile clear(path, SystemFile::Use::kWrite);
        package.Unseal(here.transport.keys,
                       [&](std::string_view bytes) { clear.Write(bytes.data(), bytes.size()); });
    }
    const std::string id =
        ReadPackage(*OpenCompoundFile(path), "it", [](const PackageRecord&, IStorage&) {}).items.at(0).id;
    here.records.PutItem({id, "{G}", {1, "bob"}, false, 1});
    here.callbacks.beforeReceived = [] { ADD_FAILURE(); };

    Drain();

    EXPECT_EQ(here.records.FindItem(id)->folderId, "{G}");
    EXPECT_EQ(here.statistics.packagesRejected, 1U);
    EXPECT_EQ(Applied(here.alice), 1U) << "what follows isn't held up";
}

// Killed after the package was handed over, or before.
TEST_F(InboxTest, APackageThatIsUnderWayIsTakenUpByTheNextRun)
{
    for (const auto state : {IncomingRecord::State::kTaken, IncomingRecord::State::kGiven}) {
        const std::uint64_t sequence = Applied(here.alice) + 1;
        const std::string subject = "number " + std::to_string(sequence);
        Arrive(here.alice, sequence, subject);
        const auto name = exchange::TextOf(here.alice.Id()) + "-" + std::to_string(sequence) + ".qvx";
        exchange::CopyIn(*here.transport.place.Open(here.alice.Id(), sequence),
                         here.mailbox.InboxPath() / name, 1 << 20, 0);
        here.transport.peers.PutIncoming({here.alice.Id(), sequence, state, {}, 0});

        Drain();

        EXPECT_EQ(Subjects().back(), subject);
        EXPECT_EQ(Applied(here.alice), sequence);
        EXPECT_FALSE(HasCopies());
    }
}

TEST_F(InboxTest, ACopyThatDidntOutliveAPowerCutIsTakenAnew)
{
    Arrive(here.alice, 1, "first");
    std::ofstream(here.mailbox.InboxPath() / (exchange::TextOf(here.alice.Id()) + "-1.qvx")) << "half";
    here.transport.peers.PutIncoming({here.alice.Id(), 1, IncomingRecord::State::kGiven, {}, 0});

    Drain();

    EXPECT_EQ(Subjects(), Subject{"first"});
    EXPECT_EQ(lines, std::vector<std::string>());
}

}  // namespace

}  // namespace quorvane::host
