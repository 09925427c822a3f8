// A member who joins a folder is sent it alone, whatever happens to the run meanwhile.
#include <algorithm>
#include <csignal>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class ResendTest : public ProgramTest {
protected:
    static constexpr std::size_t kCopies = 10;
    static constexpr std::size_t kItems = 40 * kCopies;

    // A folder that alice shares with bob, who has it.
    void ShareWithBob()
    {
        MakeMailboxes({"alice", "bob", "carol"});
        for (std::size_t i = 0; i < kCopies; ++i)
            MustRun({"import", Mailbox("alice"), "Shared", "--again", Samples().string()});
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
        RunUntilIdle({"alice", "bob"});
        ASSERT_EQ(Items("bob", "Shared").size(), kItems);
    }

    // And carol, who is to be sent all of it.
    void ShareWithCarol()
    {
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "carol"});
        LetAccept("alice", "carol");
    }

    Json Status(const std::string& mailbox) const
    {
        return MustRun({"status", Mailbox(mailbox), "--json"}).Value();
    }

    static std::size_t CountOf(const std::string& text, const std::string& part)
    {
        std::size_t count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
            ++count;
        return count;
    }

    // A run of alice's that is about to send, and has begun with it.
    Process StartSending() const
    {
        Process alice = Start({"run", Mailbox("alice"), "--exchange", Exchange(), "-v"});
        EXPECT_TRUE(Eventually([&] { return CountOf(alice.ErrorsSoFar(), "onItemResend") > 20; }));
        return alice;
    }

    static std::uint64_t Received(const Json& counts)
    {
        return counts.value("itemsApplied", 1U) + counts.value("deletionsApplied", 1U) +
               counts.value("itemsIgnored", 1U);
    }
};

TEST_F(ResendTest, ANewMemberIsSentTheFolderAloneAndIsAMemberLikeTheOthers)
{
    ShareWithBob();
    ShareWithCarol();
    EXPECT_EQ(Status("alice").at("resends").at(0).at("done"), 0U);

    const auto counts = RunUntilIdle({"alice", "bob", "carol"});

    EXPECT_EQ(Received(counts[1]), 0U) << counts[1];
    EXPECT_EQ(counts[0].at("itemsSent"), kItems);
    EXPECT_TRUE(Status("alice").at("resends").empty());
    ExpectSame("alice", "Shared", "carol", "Shared");
    ExpectSame("bob", "Shared", "carol", "Shared");

    MustRun({"edit", Mailbox("bob"), "Shared", "1", "--subject", "from bob, who doesn't know of carol yet"});
    MustRun({"edit", Mailbox("carol"), "Shared", "2", "--subject", "from carol"});
    MustRun({"delete", Mailbox("bob"), "Shared", "3"});
    RunUntilIdle({"alice", "bob", "carol"});
    ExpectSame("alice", "Shared", "carol", "Shared");
    ExpectSame("bob", "Shared", "carol", "Shared");
}

TEST_F(ResendTest, ProgressGoesFromNothingToTheEnd)
{
    ShareWithBob();
    ShareWithCarol();
    Process alice = Start({"run", Mailbox("alice"), "--exchange", Exchange(), "--until-idle"});

    std::uint64_t last = 0;
    bool rises = true;
    EXPECT_TRUE(Eventually([&] {
        const Json resends = Status("alice").at("resends");
        if (resends.empty())
            return true;
        const std::uint64_t done = resends[0].at("done");
        rises = rises && done >= last && done <= kItems;
        last = done;
        return false;
    }));

    EXPECT_TRUE(rises);
    EXPECT_EQ(alice.Wait().exitCode, 0);
}

TEST_F(ResendTest, AResendThatIsKilledIsCompleteAfterTheNextRun)
{
    ShareWithBob();
    ShareWithCarol();
    {
        Process alice = StartSending();
        alice.Signal(SIGKILL);
        EXPECT_LT(CountOf(alice.Wait().errors, "onItemResend"), kItems);
    }
    EXPECT_EQ(Status("alice").at("resends").size(), 1U);

    const auto counts = RunUntilIdle({"alice", "bob", "carol"});

    EXPECT_EQ(Received(counts[1]), 0U) << counts[1];
    ExpectSame("alice", "Shared", "carol", "Shared");
}

TEST_F(ResendTest, AResendThatIsStoppedGoesOnWithWhatIsLeft)
{
    ShareWithBob();
    ShareWithCarol();
    Process alice = StartSending();
    alice.AskToEnd();
    const Outcome first = alice.Wait();
    EXPECT_EQ(first.exitCode, 0) << first.errors;
    const std::size_t sent = CountOf(first.errors, "onItemResend");
    EXPECT_LT(sent, kItems);

    const auto counts = RunUntilIdle({"alice", "carol"});

    EXPECT_EQ(counts[0].at("itemsSent"), kItems - sent);
    ExpectSame("alice", "Shared", "carol", "Shared");
}

TEST_F(ResendTest, ACancelledResendIsTakenUpWhenAskedFor)
{
    ShareWithBob();
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "carol"});
    EXPECT_EQ(MustRun({"cancel", Mailbox("alice"), "--json"}).Value().at("cancelled"), 1U);

    RunUntilIdle({"alice", "carol"});
    EXPECT_TRUE(Items("carol", "Shared").empty());
    EXPECT_EQ(Status("alice").at("resends").at(0).at("cancelled"), true);

    MustRun({"resend", Mailbox("alice"), "Shared", "--to", "carol"});
    RunUntilIdle({"alice", "carol"});
    ExpectSame("alice", "Shared", "carol", "Shared");
}

TEST_F(ResendTest, AllItemsAreSentOnceMoreToOneMember)
{
    ShareWithBob();
    MustRun({"resend", Mailbox("alice"), "Shared", "--to", "bob", "--all"});
    auto counts = RunUntilIdle({"alice", "bob"});
    EXPECT_EQ(counts[0].at("itemsSent"), kItems);
    EXPECT_EQ(
        counts[1].at("itemsIgnored").get<std::uint64_t>() + counts[1].at("itemsApplied").get<std::uint64_t>(),
        kItems);

    MustRun({"resend", Mailbox("alice"), "Shared", "--to", "bob", "--all", "--since", "2999-01-01"});
    counts = RunUntilIdle({"alice", "bob"});
    EXPECT_EQ(counts[0].at("itemsSent"), 0U);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

}  // namespace

}  // namespace quorvane::test
