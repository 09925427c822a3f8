#include "host/exchange/comparison.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "host/exchange/error.h"
#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

// A device with a folder: what it knows of its items, and the texts that they show here.
class Replica final : public FolderView {
public:
    explicit Replica(unsigned char number)
    {
        device_.bytes[0] = number;
        changer_.bytes[0] = number;
    }

    void ForEach(const Visit& visit) const override
    {
        for (const auto& [id, item] : items_)
            visit(item);
    }
    void ForEachIn(std::uint8_t bucket, const Visit& visit) const override
    {
        if (const auto ids = buckets_.find(bucket); ids != buckets_.end())
            for (const std::string& id : ids->second)
                visit(items_.at(id));
    }

    // Changes an item here, or makes it; the empty text deletes it.
    void Change(const std::string& id, const std::string& text, std::uint64_t now)
    {
        KnownItem& item = ItemOf(id);
        std::optional<ContentDigest> content;
        if (!text.empty())
            content = DigestOfText(text);
        item.heads.Change(changer_, device_, now, content, [&](const Revision& beaten) {
            return items_.contains(ConflictCopyId(id, beaten));
        });
        texts_[id] = text;
        item.isWhole = item.heads.Shown()->isDeletion == text.empty();
    }

    // An item as it is sent: with its text, where that is here.
    struct Sent {
        KnownItem item;
        std::string text;
    };
    Sent Send(const std::string& id) const
    {
        return {items_.at(id), items_.at(id).isWhole ? texts_.at(id) : std::string()};
    }
    void Receive(const Sent& sent, std::uint64_t now)
    {
        const std::string& id = sent.item.id;
        const std::string before = texts_[id];
        KnownItem& item = ItemOf(id);
        switch (TakeItem(item, sent.item)) {
            case ItemTaken::kApply:
                texts_[id] = item.heads.Shown()->isDeletion ? std::string() : sent.text;
                break;
            case ItemTaken::kMissing:
                LookForCopy(item);
                break;
            default:
                break;
        }
        for (const Revision& beaten : item.heads.Beaten())
            if (beaten.by == device_ && !items_.contains(ConflictCopyId(id, beaten)) &&
                DigestOfText(before) == beaten.content)
                Change(ConflictCopyId(id, beaten), before, now);
    }

    bool Has(const std::string& id) const { return items_.contains(id); }
    bool IsWhole() const
    {
        return std::all_of(items_.begin(), items_.end(),
                           [](const auto& item) { return item.second.isWhole; });
    }
    const std::string& TextOf(const std::string& id) const { return texts_.at(id); }
    const std::map<std::string, KnownItem>& Items() const { return items_; }
    const std::map<std::string, std::string>& Texts() const { return texts_; }

private:
    KnownItem& ItemOf(const std::string& id)
    {
        KnownItem& item = items_[id];
        if (item.id.empty())
            buckets_[BucketOf(id)].insert(id);
        item.id = id;
        return item;
    }
    void LookForCopy(KnownItem& item)
    {
        const auto copy = texts_.find(ConflictCopyId(item.id, *item.heads.Shown()));
        if (copy == texts_.end() || copy->second.empty())
            return;
        texts_[item.id] = copy->second;
        item.isWhole = true;
    }

    DeviceId device_;
    ChangerId changer_;
    std::map<std::string, KnownItem> items_;
    std::map<std::uint8_t, std::set<std::string>> buckets_;
    std::map<std::string, std::string> texts_;
};

// What passed in a comparison.
struct Passed {
    std::size_t reports = 0;
    std::size_t listed = 0;  // items in lists
    std::size_t sent = 0;    // items that were sent
};

// One comparison, which the first one opens, over bytes, to its end.
Passed RunComparison(Replica& opener, Replica& other, std::uint64_t now = 1)
{
    Passed passed;
    Replica* from = &opener;
    Replica* to = &other;
    std::optional<FolderReport> report = ReportOf("{F}", opener);
    while (report) {
        ++passed.reports;
        for (const auto& [bucket, items] : report->buckets)
            passed.listed += items.size();
        const Comparison result =
            Compare(*to, ReportOf("{F}", *to), FolderReport::Read(report->Write(), "a report"));
        for (const std::string& id : result.lacking)
            from->Receive(to->Send(id), now);
        passed.sent += result.lacking.size();
        report = result.answer;
        std::swap(from, to);
    }
    return passed;
}

class ComparisonTest : public ::testing::Test {
protected:
    ComparisonTest()
    {
        for (int number = 0; number < 500; ++number) {
            alice.Change("{" + std::to_string(1000 + number) + "}", "text " + std::to_string(number), 1);
            bob.Receive(alice.Send("{" + std::to_string(1000 + number) + "}"), 1);
        }
    }
    void ExpectEqual()
    {
        EXPECT_EQ(alice.Items(), bob.Items());
        EXPECT_EQ(alice.Texts(), bob.Texts());
        EXPECT_EQ(RunComparison(bob, alice).reports, 1U);
    }

    Replica alice{1}, bob{2};
};

TEST_F(ComparisonTest, EqualFoldersCostADigest)
{
    const Passed passed = RunComparison(alice, bob);

    EXPECT_EQ(passed.reports, 1U);
    EXPECT_EQ(passed.listed + passed.sent, 0U);
}

TEST_F(ComparisonTest, WhatTheOpenerHasIsSentAndNothingElse)
{
    alice.Change("{1003}", "new", 2);
    alice.Change("{2}", "another", 2);
    const Passed passed = RunComparison(alice, bob);

    EXPECT_EQ(passed.reports, 2U) << "its digest, bob's lists";
    EXPECT_EQ(passed.sent, 2U);
    EXPECT_LT(passed.listed, 20U) << "two buckets of 256";
    EXPECT_EQ(bob.TextOf("{1003}"), "new");
    ExpectEqual();
}

TEST_F(ComparisonTest, WhatTheOtherHasIsAskedForByALittleList)
{
    bob.Change("{1003}", "", 2);
    const Passed passed = RunComparison(alice, bob);

    EXPECT_EQ(passed.reports, 3U) << "alice's digest, bob's lists, alice's";
    EXPECT_EQ(passed.sent, 1U);
    EXPECT_EQ(alice.TextOf("{1003}"), "");
    ExpectEqual();
}

TEST_F(ComparisonTest, OneWhoHasNothingGetsAll)
{
    Replica carol(3);
    EXPECT_EQ(RunComparison(carol, alice).sent, 500U);
    EXPECT_EQ(carol.Items(), alice.Items());
    Replica dave(4);
    EXPECT_EQ(RunComparison(alice, dave).sent, 500U);
    EXPECT_EQ(dave.Texts(), alice.Texts());
}

TEST_F(ComparisonTest, EditsOfBothEndInTheOneThatIsShownAndACopyOfTheOther)
{
    alice.Change("{1003}", "alice's", 5);
    bob.Change("{1003}", "bob's", 4);
    RunComparison(alice, bob);
    RunComparison(alice, bob);  // of the copy

    EXPECT_EQ(alice.TextOf("{1003}"), "alice's");
    EXPECT_EQ(alice.Items().size(), 501U);
    EXPECT_EQ(std::count_if(alice.Texts().begin(), alice.Texts().end(),
                            [](const auto& text) { return text.second == "bob's"; }),
              1);
    ExpectEqual();
}

TEST_F(ComparisonTest, ContentThatIsMissingIsSentByWhoeverHasIt)
{
    Replica carol(3);
    RunComparison(carol, alice);
    alice.Change("{1003}", "new", 2);
    Replica::Sent told = alice.Send("{1003}");
    told.item.isWhole = false;
    bob.Receive(told, 2);
    ASSERT_FALSE(bob.IsWhole());
    EXPECT_EQ(bob.TextOf("{1003}"), "text 3") << "what is there stays until the new content comes";

    RunComparison(bob, carol);  // who hasn't got it, but hears of it
    EXPECT_FALSE(bob.IsWhole() || carol.IsWhole());
    RunComparison(carol, alice);
    EXPECT_TRUE(carol.IsWhole());
    EXPECT_EQ(RunComparison(bob, carol).sent, 1U);
    EXPECT_EQ(bob.TextOf("{1003}"), "new");
    ExpectEqual();
}

TEST_F(ComparisonTest, WhatCameBeforeIsKnownAndChangesNothing)
{
    alice.Change("{1003}", "new", 2);
    const KnownItem news = alice.Items().at("{1003}");
    KnownItem told = news, own = bob.Items().at("{1003}");
    told.isWhole = false;

    EXPECT_EQ(TakeItem(own, told), ItemTaken::kMissing);
    EXPECT_EQ(TakeItem(own, told), ItemTaken::kKnown);
    EXPECT_EQ(TakeItem(own, news), ItemTaken::kApply);
    EXPECT_EQ(TakeItem(own, news), ItemTaken::kKnown);
    EXPECT_EQ(TakeItem(own, bob.Items().at("{1003}")), ItemTaken::kKnown);
    EXPECT_EQ(own, news);

    KnownItem beaten = bob.Items().at("{1003}");
    bob.Change("{1003}", "bob's", 1);
    beaten.heads = bob.Items().at("{1003}").heads;
    KnownItem later = alice.Items().at("{1003}");
    alice.Change("{1003}", "later", 50);
    later.heads = alice.Items().at("{1003}").heads;
    EXPECT_EQ(TakeItem(later, beaten), ItemTaken::kNoted);
    EXPECT_TRUE(later.isWhole);
}

TEST_F(ComparisonTest, ALongListEndsAndTheNextComparisonGoesOn)
{
    Replica many(5), none(6);
    for (std::size_t number = 0; number < FolderReport::kItemsListed * 5 / 4; ++number)
        many.Change(std::to_string(number), "text", 1);
    ASSERT_GT(many.Items().size(), FolderReport::kItemsListed);
    EXPECT_GE(RunComparison(none, many).listed, FolderReport::kItemsListed);
    EXPECT_GE(none.Items().size(), FolderReport::kItemsListed);
    EXPECT_LT(none.Items().size(), many.Items().size());
    RunComparison(none, many);
    EXPECT_EQ(none.Items(), many.Items());
}

TEST_F(ComparisonTest, BytesThatAreNoReportAreRefused)
{
    alice.Change("{1003}", "new", 2);
    FolderReport report = *Compare(bob, ReportOf("{F}", bob), ReportOf("{F}", alice)).answer;
    const std::string bytes = report.Write();
    ASSERT_EQ(FolderReport::Read(bytes, "a report"), report);
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_NE(RefusalOf([&] { FolderReport::Read(bytes.substr(0, size), "a report"); }), "") << size;
    EXPECT_NE(RefusalOf([&] { FolderReport::Read(bytes + 'x', "a report"); }), "");

    auto& [bucket, items] = *report.buckets.begin();
    const auto refusal = [&](const auto& change) {
        FolderReport changed = report;
        change(changed);
        return RefusalOf([&] { FolderReport::Read(changed.Write(), "a report"); });
    };
    const auto other = static_cast<std::uint8_t>(bucket ^ 1);
    EXPECT_NE(refusal([&](FolderReport& r) { r.buckets[other] = items; }).find("doesn't belong"),
              std::string::npos);
    EXPECT_NE(
        refusal([&](FolderReport& r) { r.buckets[bucket].push_back(items.back()); }).find("doesn't belong"),
        std::string::npos);
    EXPECT_NE(refusal([&](FolderReport& r) { r.buckets[bucket][0].heads = ItemHeads(); }).find("nobody made"),
              std::string::npos);
    EXPECT_NE(refusal([&](FolderReport& r) { r.buckets[bucket][0].id.clear(); }).find("proper id"),
              std::string::npos);
    const auto idOf = [&](std::size_t size) {
        return refusal([&](FolderReport& r) { r.buckets[bucket][0].id = std::string(size, 'x'); });
    };
    EXPECT_NE(idOf(257).find("proper id"), std::string::npos);
    EXPECT_EQ(idOf(256).find("proper id"), std::string::npos);
    EXPECT_NE(RefusalOf([] {
                  FolderReport::Read(std::string(FolderReport::kLongest + 1, 'x'), "a report");
              }).find("longer"),
              std::string::npos);
}

// Changes whose messages are lost as they like, then comparisons of pairs as chance will have it: all are
// equal.
TEST_F(ComparisonTest, WhateverWasLostComesByComparisons)
{
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        std::vector<Replica> all;
        for (unsigned char number = 1; number <= 4; ++number)
            all.emplace_back(number);
        for (int step = 0; step < 300; ++step) {
            Replica& one = all[random() % all.size()];
            const std::string id = "{" + std::to_string(random() % 20) + "}";
            const bool isDeletion = one.Has(id) && random() % 4 == 0;
            one.Change(id, isDeletion ? "" : "text " + std::to_string(step), 100 + random() % 400);
            Replica::Sent sent = one.Send(id);
            for (Replica& other : all)
                if (&other != &one && random() % 3 == 0)
                    other.Receive(sent, 100 + random() % 400);
        }
        bool areEqual = false;
        for (int round = 0; round < 8 && !areEqual; ++round) {
            for (Replica& one : all)
                for (Replica& other : all)
                    if (&one != &other)
                        RunComparison(one, other, 1000);
            areEqual = std::all_of(all.begin(), all.end(), [&](const Replica& one) {
                return one.IsWhole() && one.Items() == all[0].Items() && one.Texts() == all[0].Texts();
            });
        }
        ASSERT_TRUE(areEqual) << "seed " << seed;
    }
}

}  // namespace

}  // namespace quorvane::host::exchange
