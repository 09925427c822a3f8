#include "host/sharing/comparisons.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

class ComparisonsTest : public ::testing::Test {
protected:
    // Another member's device that has the folder, before this one's in order or behind.
    Peer MakePeer(const std::string& member, bool isLess)
    {
        for (;;) {
            const exchange::DeviceKeys keys;
            if ((keys.Id() < here.transport.keys.Id()) != isLess)
                continue;
            here.Pin(keys, member);
            here.LetIn({member});
            return here.transport.peers.Find(keys.Id()).value();
        }
    }
    // What opens a comparison of a folder that differs from the one here.
    static exchange::FolderReport Opening()
    {
        exchange::FolderReport report;
        report.folder = "{F}";
        return report;
    }
    // Whether an answer goes out.
    bool IsAnswered(const Peer& peer, const exchange::FolderReport& report)
    {
        const std::size_t before = here.records.Outgoing().size();
        comparisons.Hear(peer, report);
        return here.records.Outgoing().size() == before + 1;
    }
    void NoteOpened(const Peer& peer, std::uint64_t ago)
    {
        records.All(1);
        records.NoteOpened("{F}", exchange::TextOf(peer.id), FileTimeNow() - ago * 10'000'000);
    }

    SharedTestMailbox here;
    ComparisonRecords records{here.mailbox.HostDatabasePath().string()};
    Sender sender{here.addin, here.parts, here.engine};
    FlagSharing flags{here.parts};
    Comparisons comparisons{here.parts, sender, flags, [](const std::string&) {}};
};

TEST_F(ComparisonsTest, OfTwoThatBeginAtOnceTheLesserOnesReportIsAnswered)
{
    const Peer less = MakePeer("dave", true), greater = MakePeer("erin", false);
    EXPECT_TRUE(IsAnswered(less, Opening()));
    EXPECT_TRUE(IsAnswered(greater, Opening())) << "nothing was begun here";

    NoteOpened(less, 1);
    NoteOpened(greater, 1);
    EXPECT_TRUE(IsAnswered(less, Opening()));
    EXPECT_FALSE(IsAnswered(greater, Opening())) << "he answers what was begun here";
}

TEST_F(ComparisonsTest, AnAnswerThatDoesntComeIsntWaitedForLong)
{
    const Peer greater = MakePeer("erin", false);
    NoteOpened(greater, 61);
    EXPECT_TRUE(IsAnswered(greater, Opening()));
}

TEST_F(ComparisonsTest, AnAnswerIsHeardWhileAComparisonIsUnderWay)
{
    const Peer greater = MakePeer("erin", false);
    NoteOpened(greater, 1);
    exchange::FolderReport lists = Opening();
    lists.buckets[3];

    comparisons.Hear(greater, lists);

    const auto pairs = records.All(1);
    EXPECT_EQ(std::count_if(pairs.begin(), pairs.end(), [](const auto& pair) { return pair.differed > 0; }),
              1);
}

}  // namespace

}  // namespace quorvane::host
