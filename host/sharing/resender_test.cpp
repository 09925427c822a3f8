#include "host/sharing/resender.h"

#include <gtest/gtest.h>

#include <future>
#include <set>
#include <thread>

#include "host/base/path_text.h"
#include "host/sharing/recipients.h"
#include "host/sharing/since.h"
#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

constexpr int kManyMails = 30;
constexpr auto kResendDeadline = std::chrono::seconds(30);

class ResenderTest : public ::testing::Test {
protected:
    ResenderTest() { here.addin.SetResendRules(&resender); }
    ~ResenderTest() { here.addin.SetResendRules(nullptr); }

    std::vector<std::string> AddMessages(int count)
    {
        std::vector<std::string> entryIds;
        for (int i = 0; i < count; ++i)
            entryIds.push_back(here.AddMessage("mail " + std::to_string(i)));
        return entryIds;
    }

    // A member who has the folder, and all that is in it so far.
    void AddMemberWhoHas(const std::string& name)
    {
        here.LetIn({name});
        reconciler.TakeForSent(here.share);
    }
    // A member who has accepted the folder, and has nothing of it yet.
    void AddNewMember(const std::string& name)
    {
        here.Invite(name);
        Step();
    }

    void Step()
    {
        outbox.TakeReady(true);
        outbox.Plan();
        resender.Step();
        NotePackages();
    }
    template <class Condition>
    bool StepUntil(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + kResendDeadline;
        while (!condition() && std::chrono::steady_clock::now() < deadline) {
            Step();
            std::this_thread::yield();
        }
        return condition();
    }
    bool StepToTheEnd()
    {
        return StepUntil([this] { return !resender.HasWork(); });
    }

    // What lies in the packages that were taken, by whom it is for; an item as often as it lies there.
    void NotePackages()
    {
        for (const OutgoingPackage& package : here.records.Outgoing()) {
            if (!here.records.IsPlanned(package.number) || !noted_.insert(package.number).second)
                continue;
            const auto root = OpenCompoundFile(PathOf(package.path));
            for (const PackageRecord& item : CheckPackage(*root, package.path).sound.items)
                sent[package.recipients].insert({item.id, item.hasMessage});
        }
    }
    std::size_t CountFor(const std::string& member) { return sent[MemberRecipients(member, "{F}")].size(); }
    std::size_t CountForAll() { return sent[here.share.entryId].size(); }

    // Until go_ is set; those after it come slowly as long as a stop is under way, which the engine hears of
    // on a thread of its own and nobody is told of.
    void HoldAtTheThirdItem()
    {
        here.callbacks.beforeResend = [this] {
            const int item = ++items_;
            if (item > 3 && isStopping_)
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (item != 3)
                return;
            isHeld_ = true;
            go_.get_future().wait();
        };
    }

    std::string IdOf(const std::string& entryId) { return here.state.RowOfEntry(entryId)->id; }

    SharedTestMailbox here;
    Sender sender{here.addin, here.parts, here.engine};
    Reconciler reconciler{sender, here.parts};
    std::vector<std::string> lines;
    Outbox outbox{here.parts, here.engine, [this](const std::string& line) { lines.push_back(line); }};
    Resender resender{here.parts, here.engine, sender,
                      reconciler, outbox,      [this](const std::string& line) { lines.push_back(line); }};
    std::map<std::string, std::multiset<std::pair<std::string, bool>>> sent;

    std::atomic<int> items_{0};
    std::atomic<bool> isHeld_{false};
    std::atomic<bool> isStopping_{true};
    std::promise<void> go_;

private:
    std::set<std::int64_t> noted_;
};

TEST_F(ResenderTest, ANewMemberGetsEveryItemInAPackageOfItsOwnAndTheOthersNothing)
{
    AddMessages(10);
    AddMemberWhoHas("alice");

    AddNewMember("carol");
    EXPECT_TRUE(StepToTheEnd());

    EXPECT_EQ(CountFor("carol"), 10U);
    EXPECT_EQ(CountForAll(), 0U);
    EXPECT_TRUE(here.records.Resends().empty());
    EXPECT_TRUE(lines.empty());
}

TEST_F(ResenderTest, TheFirstMembersOfAFolderAreEachGivenTheItemsInOneVersion)
{
    const auto entryIds = AddMessages(5);

    here.Invite("alice");
    here.Invite("carol");
    EXPECT_TRUE(StepToTheEnd());

    EXPECT_EQ(CountFor("alice"), 5U);
    EXPECT_EQ(CountFor("carol"), 5U);
    EXPECT_EQ(CountForAll(), 0U);
    EXPECT_TRUE(reconciler.CheckDifferences(here.share, std::chrono::milliseconds(0)));
    EXPECT_EQ(here.records.FindItem(IdOf(entryIds[0]))->version.member, "bob");
}

TEST_F(ResenderTest, ACancelledResendEndsAtTheNextItemAndGoesOnWithTheRestWhenAsked)
{
    AddMessages(kManyMails);
    AddMemberWhoHas("alice");
    HoldAtTheThirdItem();
    AddNewMember("carol");
    EXPECT_TRUE(StepUntil([&] { return isHeld_.load(); }));
    Step();
    EXPECT_FALSE(resender.ProgressText().empty());

    EXPECT_EQ(here.records.CancelResends("{F}", {}), 1);
    Step();
    go_.set_value();
    EXPECT_TRUE(StepToTheEnd());
    isStopping_ = false;
    const int sentBefore = here.callbacks.resent;
    EXPECT_LT(sentBefore, kManyMails);
    EXPECT_EQ(CountFor("carol"), static_cast<std::size_t>(sentBefore));
    ASSERT_EQ(here.records.Resends().size(), 1U);
    EXPECT_TRUE(here.records.Resends()[0].cancelled);

    here.records.AddResend("{F}", "carol", ResendScope::kChanged, 0);
    EXPECT_TRUE(StepToTheEnd());

    EXPECT_EQ(here.callbacks.resent, kManyMails);
    EXPECT_EQ(CountFor("carol"), static_cast<std::size_t>(kManyMails));
    EXPECT_TRUE(here.records.Resends().empty());
}

// What is left of the folder's first resend isn't a change that is yet to be sent to the member.
TEST_F(ResenderTest, WhatACancelledFirstResendLeavesIsntTakenForAChange)
{
    AddMessages(5);
    here.Invite("carol");
    here.callbacks.beforeResend = [&] { here.records.CancelResends({}, {}); };
    EXPECT_TRUE(StepToTheEnd());

    EXPECT_TRUE(reconciler.CheckDifferences(here.share, std::chrono::milliseconds(0)));
    EXPECT_EQ(CountForAll(), 0U);

    here.callbacks.beforeResend = nullptr;
    here.records.AddResend("{F}", "carol", ResendScope::kChanged, 0);
    EXPECT_TRUE(StepToTheEnd());
    EXPECT_EQ(CountFor("carol"), 5U);
}

TEST_F(ResenderTest, AStoppedResendGoesOnInALaterRunWithWhatIsLeft)
{
    AddMessages(kManyMails);
    AddMemberWhoHas("alice");
    HoldAtTheThirdItem();
    AddNewMember("carol");
    EXPECT_TRUE(StepUntil([&] { return isHeld_.load(); }));
    std::promise<void> begun;
    auto stopped = std::async(std::launch::async, [&] {
        begun.set_value();
        resender.Stop();
    });
    begun.get_future().wait();
    go_.set_value();
    stopped.wait();
    isStopping_ = false;
    EXPECT_TRUE(resender.HasWork());

    outbox.TakeReady(true);
    outbox.Plan();
    Resender later(here.parts, here.engine, sender, reconciler, outbox, [](const std::string&) {});
    here.addin.SetResendRules(&later);
    const auto deadline = std::chrono::steady_clock::now() + kResendDeadline;
    while (later.HasWork() && std::chrono::steady_clock::now() < deadline) {
        later.Step();
        NotePackages();
    }
    EXPECT_FALSE(later.HasWork());
    here.addin.SetResendRules(nullptr);

    EXPECT_EQ(CountFor("carol"), static_cast<std::size_t>(kManyMails));
    EXPECT_EQ(here.callbacks.resent, kManyMails);
}

TEST_F(ResenderTest, AChangeThatNobodyHasBeenToldOfGoesToAll)
{
    const auto entryIds = AddMessages(3);
    AddMemberWhoHas("alice");
    here.ChangeMessage(entryIds[1], "changed, and not sent yet");

    AddNewMember("carol");
    EXPECT_TRUE(StepToTheEnd());

    EXPECT_EQ(CountFor("carol"), 2U);
    ASSERT_EQ(CountForAll(), 1U);
    EXPECT_EQ(sent[here.share.entryId].begin()->first, IdOf(entryIds[1]));
    EXPECT_TRUE(reconciler.CheckDifferences(here.share, std::chrono::milliseconds(0)));
}

TEST_F(ResenderTest, OnlyItemsSinceADateAreSentWhenADateIsGiven)
{
    const auto entryIds = AddMessages(3);
    const auto sentAt = [&](const std::string& entryId, const char* time) {
        const ComPtr<IMessage> message = OpenMessage(here.mail, entryId, true);
        const std::uint64_t stamp = *ParseTime(time);
        SPropValue value{};
        value.ulPropTag = PR_CLIENT_SUBMIT_TIME;
        value.Value.ft = {static_cast<DWORD>(stamp), static_cast<DWORD>(stamp >> 32)};
        Check(message->SetProps(1, &value, nullptr), "date", entryId);
        Check(message->SaveChanges(0), "date", entryId);
    };
    sentAt(entryIds[0], "2020-05-01");
    sentAt(entryIds[1], "2020-05-02");
    AddMemberWhoHas("alice");

    here.records.AddResend("{F}", "alice", ResendScope::kEverything, *ParseTime("2020-05-02"));
    EXPECT_TRUE(StepToTheEnd());

    // The third was never sent, and was made today.
    EXPECT_EQ(CountFor("alice"), 2U);
    EXPECT_FALSE(sent[MemberRecipients("alice", "{F}")].contains({IdOf(entryIds[0]), true}));
}

TEST_F(ResenderTest, ALearnedMemberIsGivenTheVersionsAndDeletionsThatWereMadeHere)
{
    const auto entryIds = AddMessages(3);
    AddMemberWhoHas("alice");
    ItemRecord byAlice = *here.records.FindItem(IdOf(entryIds[0]));
    byAlice.version.member = "alice";
    here.records.PutItem(byAlice);
    const std::string deleted = IdOf(entryIds[1]);
    here.DeleteMessage(entryIds[1]);
    sender.SendDeletion(here.share, deleted);
    outbox.TakeReady(true);
    outbox.Plan();

    here.LetIn({"carol"});
    here.records.AddResend("{F}", "carol", ResendScope::kOwn, 0);
    EXPECT_TRUE(StepToTheEnd());

    const std::multiset<std::pair<std::string, bool>> expected{{deleted, false}, {IdOf(entryIds[2]), true}};
    EXPECT_EQ(sent[MemberRecipients("carol", "{F}")], expected);
    EXPECT_EQ(CountFor("alice"), 0U);
}

// A package before it that somebody still has open holds it up: nothing it packed has been looked through.
TEST_F(ResenderTest, AResendIsntDoneBeforeItsPackageWasLookedThrough)
{
    const auto entryIds = AddMessages(3);
    AddMemberWhoHas("carol");
    EXPECT_TRUE(sender.SendItem(here.share, entryIds[0], here.share.entryId));
    outbox.TakeReady(true);
    ComPtr<IStorage> open = OpenCompoundFile(PathOf(here.records.Outgoing().at(0).path));
    here.records.AddResend("{F}", "carol", ResendScope::kEverything, 0);
    const auto deadline = std::chrono::steady_clock::now() + kResendDeadline;
    while (here.records.Outgoing().size() < 2 && std::chrono::steady_clock::now() < deadline) {
        resender.Step();  // takes the package at the end of the engine's job
        std::this_thread::yield();
    }
    EXPECT_TRUE(outbox.HasUnplanned());
    // Nor does it go before that one.
    ASSERT_EQ(here.records.Outgoing().size(), 2U);
    EXPECT_FALSE(here.records.IsPlanned(here.records.Outgoing()[1].number));

    open.Reset();
    EXPECT_TRUE(StepToTheEnd());

    EXPECT_EQ(here.callbacks.resent, 3);
    EXPECT_EQ(CountFor("carol"), 3U);
    EXPECT_TRUE(here.records.Unsent().empty());
}

TEST_F(ResenderTest, AFolderWithoutItemsIsDoneAtOnce)
{
    AddNewMember("carol");
    EXPECT_TRUE(StepToTheEnd());

    EXPECT_TRUE(here.records.Resends().empty());
    EXPECT_TRUE(lines.empty());
}

// An item that never gets into a package doesn't hold the others up for ever.
TEST_F(ResenderTest, AnItemThatCantBePackedIsNamedAndTheOthersArrive)
{
    const auto entryIds = AddMessages(3);
    AddMemberWhoHas("alice");
    const std::string id = IdOf(entryIds[1]);
    here.callbacks.failResend = id;

    AddNewMember("carol");
    EXPECT_TRUE(StepToTheEnd());

    EXPECT_EQ(CountFor("carol"), 2U);
    ASSERT_EQ(here.records.Unsent().size(), 1U);
    EXPECT_EQ(here.records.Unsent()[0].id, id);
    // With the others, and then in three jobs that pack nothing.
    EXPECT_EQ(here.callbacks.resent, 6);
}

}  // namespace

}  // namespace quorvane::host
