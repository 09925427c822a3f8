#include "host/exchange/item_heads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "host/exchange/error.h"
#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

using Outcome = ItemHeads::Taken;

constexpr std::uint64_t kNoon = 1000;

// A device with one item, and the copies that it knows.
struct Someone {
    explicit Someone(unsigned char number)
    {
        device.bytes[0] = number;
        changer.bytes[0] = number;
    }
    Revision Edit(std::uint64_t now, unsigned char text)
    {
        ContentDigest content{};
        content[0] = text;
        return heads.Change(changer, device, now, content, [this](const Revision&) { return knowsCopies; });
    }
    Revision Delete(std::uint64_t now)
    {
        return heads.Change(changer, device, now, std::nullopt,
                            [this](const Revision&) { return knowsCopies; });
    }
    Outcome Hear(const Revision& revision) { return heads.Take(revision); }
    unsigned char Text() const { return heads.Shown()->content[0]; }

    DeviceId device;
    ChangerId changer;
    ItemHeads heads;
    bool knowsCopies = false;
};

class ItemHeadsTest : public ::testing::Test {
protected:
    // All three have the first text.
    ItemHeadsTest()
    {
        const Revision first = alice.Edit(kNoon, 'f');
        bob.Hear(first);
        carol.Hear(first);
    }

    Someone alice{1}, bob{2}, carol{3};
};

TEST_F(ItemHeadsTest, AnEditOfWhatWasSeenTakesItsPlace)
{
    const Revision first = *bob.heads.Shown();
    const Revision edit = alice.Edit(kNoon + 1, 'a');

    EXPECT_EQ(bob.Hear(edit), Outcome::kShown);
    EXPECT_EQ(bob.Text(), 'a');
    EXPECT_TRUE(bob.heads.Beaten().empty());
    EXPECT_EQ(bob.heads, alice.heads);
    EXPECT_EQ(bob.Hear(edit), Outcome::kKnown);
    EXPECT_EQ(bob.Hear(first), Outcome::kKnown) << "what came late";
    EXPECT_EQ(bob.Text(), 'a');
}

TEST_F(ItemHeadsTest, TheLaterOfTwoEditsIsShownEverywhereAndTheOtherOneIsBeaten)
{
    const Revision earlier = bob.Edit(kNoon + 1, 'b');
    const Revision later = alice.Edit(kNoon + 2, 'a');

    EXPECT_EQ(alice.Hear(earlier), Outcome::kNotShown);
    EXPECT_EQ(bob.Hear(later), Outcome::kShown);
    EXPECT_EQ(alice.heads, bob.heads);
    EXPECT_EQ(bob.Text(), 'a');
    EXPECT_EQ(alice.heads.Beaten(), std::vector{earlier});
    EXPECT_EQ(bob.heads.Beaten(), std::vector{earlier});
}

TEST_F(ItemHeadsTest, OfTwoEditsOfOneTimeTheGreaterDevicesIsShown)
{
    const Revision smaller = alice.Edit(kNoon + 1, 'a');
    const Revision greater = bob.Edit(kNoon + 1, 'b');

    EXPECT_EQ(alice.Hear(greater), Outcome::kShown);
    EXPECT_EQ(bob.Hear(smaller), Outcome::kNotShown);
    EXPECT_EQ(alice.heads, bob.heads);
}

TEST_F(ItemHeadsTest, TheSameEditMadeTwiceIsNoConflict)
{
    const Revision one = alice.Edit(kNoon + 1, 'x');
    const Revision two = bob.Edit(kNoon + 2, 'x');
    alice.Hear(two);
    bob.Hear(one);

    EXPECT_TRUE(alice.heads.Beaten().empty());
    EXPECT_EQ(alice.heads, bob.heads);
    const Revision next = alice.Edit(kNoon + 3, 'y');
    EXPECT_TRUE(next.Supersedes(one) && next.Supersedes(two)) << "there was nothing else to see";
}

TEST_F(ItemHeadsTest, AnEditIsStrongerThanADeletionThatHadntSeenItHoweverLate)
{
    const Revision edit = alice.Edit(kNoon + 1, 'a');
    const Revision deletion = bob.Delete(kNoon + 9);

    EXPECT_EQ(alice.Hear(deletion), Outcome::kNotShown);
    EXPECT_EQ(bob.Hear(edit), Outcome::kShown);
    EXPECT_EQ(bob.Text(), 'a');
    EXPECT_EQ(alice.heads, bob.heads);
    EXPECT_TRUE(alice.heads.IsRevived() && bob.heads.IsRevived());
    EXPECT_TRUE(alice.heads.Beaten().empty()) << "a deletion leaves no text behind";

    EXPECT_EQ(carol.Hear(deletion), Outcome::kShown);
    EXPECT_FALSE(carol.heads.IsRevived());
    EXPECT_EQ(carol.Hear(edit), Outcome::kShown);
}

TEST_F(ItemHeadsTest, ADeletionOfWhatWasSeenHolds)
{
    const Revision edit = alice.Edit(kNoon + 1, 'a');
    bob.Hear(edit);
    const Revision deletion = bob.Delete(kNoon);

    EXPECT_EQ(alice.Hear(deletion), Outcome::kShown);
    EXPECT_TRUE(alice.heads.Shown()->isDeletion);
    EXPECT_EQ(carol.Hear(deletion), Outcome::kShown);
    EXPECT_EQ(carol.Hear(edit), Outcome::kKnown);
}

TEST_F(ItemHeadsTest, WhoDoesntKnowTheCopyOfABeatenEditHasntSeenIt)
{
    const Revision beaten = bob.Edit(kNoon + 1, 'b');
    const Revision shown = alice.Edit(kNoon + 2, 'a');
    for (const Revision& revision : {beaten, shown}) {
        alice.Hear(revision);
        carol.Hear(revision);
    }

    const Revision unseen = alice.Edit(kNoon + 3, 'u');
    EXPECT_FALSE(unseen.Supersedes(beaten));
    EXPECT_TRUE(unseen.Supersedes(shown));
    EXPECT_EQ(bob.Hear(unseen), Outcome::kShown);
    EXPECT_EQ(bob.heads.Beaten(), std::vector{beaten}) << "bob must hear of it to keep his text";

    carol.knowsCopies = true;
    const Revision seen = carol.Edit(kNoon + 4, 's');
    EXPECT_TRUE(seen.Supersedes(beaten));
}

TEST_F(ItemHeadsTest, ABeatenEditComesBackWhenWhatBeatItIsDeletedUnseen)
{
    const Revision beaten = bob.Edit(kNoon + 1, 'b');
    const Revision shown = alice.Edit(kNoon + 2, 'a');
    const Revision deletion = alice.Delete(kNoon + 3);
    carol.Hear(shown);
    carol.Hear(beaten);

    EXPECT_TRUE(alice.heads.Shown()->isDeletion) << "she hasn't heard of it";
    EXPECT_EQ(carol.Hear(deletion), Outcome::kOther);
    EXPECT_EQ(carol.Text(), 'b');
    EXPECT_EQ(bob.Hear(deletion), Outcome::kNotShown);
    EXPECT_EQ(bob.heads, carol.heads);
}

TEST_F(ItemHeadsTest, ItComesBackToWhoeverDeletesWhatBeatIt)
{
    bob.Hear(alice.Edit(kNoon + 2, 'a'));
    const Revision beaten = carol.Edit(kNoon + 1, 'c');
    bob.Hear(beaten);
    bob.Delete(kNoon + 3);
    EXPECT_EQ(*bob.heads.Shown(), beaten);

    bob.knowsCopies = true;
    bob.Delete(kNoon + 4);
    EXPECT_TRUE(bob.heads.Shown()->isDeletion);
}

// Bob's first change is within alice's, which he hasn't seen shown and so doesn't supersede. Under its count
// his next change would pass for seen by whoever has seen alice's.
TEST_F(ItemHeadsTest, ADeviceGivesNoCountTwice)
{
    const Revision bobs = bob.Edit(kNoon + 1, 'b');
    alice.Hear(bobs);
    const Revision alices = alice.Edit(kNoon + 2, 'a');
    const Revision carols = carol.Edit(kNoon + 3, 'c');
    bob.Hear(alices);
    bob.Hear(carols);
    const Revision next = bob.Edit(kNoon + 4, 'n');

    EXPECT_EQ(next.version.ChangesOf(bob.changer), 2U);
    EXPECT_FALSE(next.Supersedes(alices) || alices.Supersedes(next));
    carol.Hear(alices);
    carol.knowsCopies = true;
    EXPECT_FALSE(carol.Edit(kNoon + 5, 'd').Supersedes(next));
}

TEST_F(ItemHeadsTest, ALaterChangeIsOfALaterTimeWhateverTheClockSays)
{
    const Revision ahead = alice.Edit(kNoon + 500, 'a');
    bob.Hear(ahead);
    EXPECT_EQ(bob.Edit(kNoon, 'b').stamp, kNoon + 501);

    Revision last = ahead;
    last.version.Raise(bob.changer);
    last.stamp = Revision::kLatestStamp;
    carol.Hear(last);
    EXPECT_EQ(carol.Edit(kNoon, 'c').stamp, Revision::kLatestStamp);
}

// Two machines that run one mailbox make two states under one version: neither may go.
TEST_F(ItemHeadsTest, TwoStatesOfOneVersionAreAConflictToo)
{
    Someone twin = alice;
    const Revision one = alice.Edit(kNoon + 1, 'o');
    const Revision two = twin.Edit(kNoon + 2, 't');
    ASSERT_EQ(one.version, two.version);

    EXPECT_EQ(bob.Hear(one), Outcome::kShown);
    EXPECT_EQ(bob.Hear(two), Outcome::kShown);
    EXPECT_EQ(bob.heads.Beaten(), std::vector{one});
}

TEST_F(ItemHeadsTest, MoreHeadsThanMayBeAreRefusedAndChangeNothing)
{
    for (unsigned char other = 1; other < ItemHeads::kMost; ++other)
        ASSERT_NE(bob.Hear(Someone(static_cast<unsigned char>(10 + other)).Edit(kNoon, other)),
                  Outcome::kKnown);
    ASSERT_EQ(bob.heads.Beaten().size(), ItemHeads::kMost - 1);
    const ItemHeads before = bob.heads;
    Someone another(200);
    const Revision tooMuch = another.Edit(kNoon, 'z');

    EXPECT_NE(RefusalOf([&] { bob.Hear(tooMuch); }).find("more devices at once"), std::string::npos);
    EXPECT_EQ(bob.heads, before);
}

// Whatever was heard in whatever order: the same heads. The changes come from devices that hear at random.
TEST_F(ItemHeadsTest, TheOrderOfHearingDoesntMatter)
{
    for (unsigned seed = 1; seed <= 200; ++seed) {
        std::mt19937 random(seed);
        std::vector<Someone> people{Someone(1), Someone(2), Someone(3), Someone(4)};
        std::vector<Revision> made;
        for (int step = 0; step < 24; ++step) {
            Someone& one = people[random() % people.size()];
            one.knowsCopies = random() % 2;
            if (!made.empty() && random() % 3)
                one.Hear(made[random() % made.size()]);
            else if (random() % 4)
                made.push_back(one.Edit(kNoon + random() % 30, static_cast<unsigned char>(random() % 5)));
            else
                made.push_back(one.Delete(kNoon + random() % 30));
        }
        for (Someone& one : people) {
            std::shuffle(made.begin(), made.end(), random);
            for (const Revision& revision : made)
                one.Hear(revision);
        }
        for (const Someone& one : people) {
            ASSERT_EQ(one.heads.Write(), people[0].heads.Write()) << "seed " << seed;
            ASSERT_EQ(ItemHeads::Read(one.heads.Write(), "an item"), one.heads) << "seed " << seed;
        }
    }
}

TEST_F(ItemHeadsTest, BytesThatAreNoHeadsAreRefused)
{
    alice.Hear(bob.Edit(kNoon + 1, 'b'));
    alice.Hear(carol.Delete(kNoon + 2));
    const std::string bytes = alice.heads.Write();
    ASSERT_EQ(ItemHeads::Read(bytes, "an item"), alice.heads);
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_NE(RefusalOf([&] { ItemHeads::Read(bytes.substr(0, size), "an item"); }), "") << size;
    EXPECT_NE(RefusalOf([&] { ItemHeads::Read(bytes + 'x', "an item"); }), "");

    const auto heads = [](const std::vector<Revision>& revisions) {
        WireWriter writer;
        writer.Put(static_cast<std::uint16_t>(revisions.size()));
        for (const Revision& revision : revisions)
            Write(revision, writer);
        return writer.Bytes();
    };
    const Revision one = *carol.heads.Shown(), two = *bob.heads.Shown();
    EXPECT_EQ(ItemHeads::Read(heads({two, one}), "an item"), alice.heads);
    EXPECT_NE(RefusalOf([&] {
                  ItemHeads::Read(heads({one, two}), "an item");
              }).find("out of order"),
              std::string::npos);
    EXPECT_NE(RefusalOf([&] {
                  ItemHeads::Read(heads({two, two}), "an item");
              }).find("out of order"),
              std::string::npos);
    Revision later = two;
    later.version.Raise(carol.changer);
    ++later.stamp;
    EXPECT_NE(RefusalOf([&] {
                  ItemHeads::Read(heads({later, two}), "an item");
              }).find("supersedes"),
              std::string::npos);
    EXPECT_NE(
        RefusalOf([&] { ItemHeads::Read(heads(std::vector(65, two)), "an item"); }).find("more devices"),
        std::string::npos);
    Revision bad = two;
    bad.stamp = Revision::kLatestStamp + 1;
    EXPECT_NE(RefusalOf([&] { ItemHeads::Read(heads({bad}), "an item"); }).find("can't be"),
              std::string::npos);
    std::string neither = heads({two});
    neither[2 + 2 + two.version.Write().size() + 8 + 16] = 2;
    EXPECT_NE(RefusalOf([&] { ItemHeads::Read(neither, "an item"); }).find("neither content"),
              std::string::npos);
    bad = two;
    bad.version = Version();
    EXPECT_NE(RefusalOf([&] { ItemHeads::Read(heads({bad}), "an item"); }).find("by nobody"),
              std::string::npos);
}

TEST_F(ItemHeadsTest, TheCopysIdIsTheRevisionsAlone)
{
    const Revision one = alice.Edit(kNoon + 1, 'a'), two = bob.Edit(kNoon + 1, 'a');
    const std::string id = ConflictCopyId("{I}", one);

    EXPECT_EQ(id, "{72909786-08B8-216F-0385-24C759891D2B}")
        << "other devices, and later versions of the program, come to the same";
    EXPECT_EQ(id, ConflictCopyId("{I}", one));
    EXPECT_NE(id, ConflictCopyId("{I}", two));
    EXPECT_NE(id, ConflictCopyId("{J}", one));
}

}  // namespace

}  // namespace quorvane::host::exchange
