// A device of which nothing is heard for long holds nothing up, and brings nothing back when it returns.
#include <algorithm>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class SilenceTest : public ProgramTest {
protected:
    // A folder of three mails.
    void ShareWith(const std::vector<std::string>& members) const
    {
        for (const char* mail : {"01-plain", "07-attachment-csv", "04-alternative"})
            MustRun({"import", Mailbox("alice"), "Shared", Sample(mail).string()});
        std::vector<std::string> arguments{"share", Mailbox("alice"), "Shared", "--with"};
        arguments.insert(arguments.end(), members.begin(), members.end());
        MustRun(arguments);
    }
    // A run for which somebody is silent after a second, and which lasts for longer.
    Outcome RunImpatiently(const std::string& name) const
    {
        return MustRun(RunOf(name, {"--until-idle", "--idle-seconds", "4", "--silent-after", "1"}));
    }
    // What is known of one member's device at another's.
    Json Known(const std::string& at, const std::string& member) const
    {
        const Json status = MustRun({"status", Mailbox(at), "--json"}).Value();
        for (const Json& known : status.at("members"))
            if (known.at("member") == member)
                return known;
        return Json::object();
    }
    bool Has(const std::string& name, const std::string& subject) const
    {
        return std::ranges::count(Subjects(name), subject) == 1;
    }
};

TEST_F(SilenceTest, NothingIsKeptForASilentDeviceWhichIsComparedWhenItIsBackAndBringsNothingBack)
{
    MakeMailboxes({"alice", "bob"});
    ShareWith({"bob"});
    RunUntilIdle({"alice", "bob"}, "0.5");
    const std::string gone = Items("alice", "Shared").at(1).at("subject");
    MustRun({"edit", Mailbox("alice"), "Shared", "1", "--subject", "while he was away"});
    MustRun({"delete", Mailbox("alice"), "Shared", "2"});
    RunUntilIdle({"alice"}, "0.5");
    EXPECT_FALSE(Packages().empty());

    const Outcome run = RunImpatiently("alice");
    EXPECT_NE(run.errors.find("wasn't heard of for long"), std::string::npos) << run.errors;
    EXPECT_TRUE(Packages().empty());
    EXPECT_EQ(Known("alice", "bob").at("silent"), true);
    EXPECT_EQ(Known("alice", "bob").at("unacknowledged"), 0);
    MustRun({"edit", Mailbox("alice"), "Shared", "1", "--subject", "once more"});
    RunUntilIdle({"alice"}, "0.5");
    EXPECT_TRUE(Packages().empty()) << "nothing new is for him either";

    MustRun({"edit", Mailbox("bob"), "Shared", "3", "--subject", "what he did alone"});
    RunUntilIdle({"bob", "alice"}, "3");
    EXPECT_EQ(Known("alice", "bob").at("silent"), false);
    EXPECT_FALSE(Has("bob", gone));
    for (const char* name : {"alice", "bob"}) {
        EXPECT_FALSE(Has(name, gone)) << name;
        EXPECT_TRUE(Has(name, "once more")) << name;
        EXPECT_TRUE(Has(name, "what he did alone")) << name;
    }
    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(SilenceTest, WhoIsInvitedAndComesLateIsInvitedStill)
{
    MakeMailboxes({"alice", "bob"});
    ShareWith({"bob"});
    RunUntilIdle({"alice"}, "0.5");
    EXPECT_FALSE(Packages().empty());
    RunImpatiently("alice");
    EXPECT_TRUE(Packages().empty());

    RunUntilIdle({"bob", "alice"}, "3");
    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(SilenceTest, OthersGoOnAsIfASilentDeviceWerentThere)
{
    MakeMailboxes({"alice", "bob", "carol"});
    ShareWith({"bob", "carol"});
    RunUntilIdle({"alice", "bob", "carol"}, "0.5");
    RunImpatiently("alice");
    ASSERT_EQ(Known("alice", "bob").at("silent"), true);
    MustRun({"edit", Mailbox("alice"), "Shared", "1", "--subject", "for carol"});
    RunUntilIdle({"carol", "alice"}, "1");
    EXPECT_TRUE(Has("carol", "for carol"));
    EXPECT_TRUE(Packages().empty());
    RunUntilIdle({"bob", "carol", "alice"}, "3");
    EXPECT_TRUE(Has("bob", "for carol"));
    ExpectSame("alice", "Shared", "bob", "Shared");
}

// Nothing happens, and each tells now and then that it is there.
TEST_F(SilenceTest, WhoRunsIsntSilentThoughHeHasNothingToSay)
{
    MakeMailboxes({"alice", "bob"});
    ShareWith({"bob"});
    RunUntilIdle({"alice", "bob"}, "0.5");
    Process alice = Start(RunOf(
        "alice", {"--until-idle", "--idle-seconds", "25", "--silent-after", "15", "--look-every", "1"}));
    Process bob = Start(
        RunOf("bob", {"--until-idle", "--idle-seconds", "25", "--silent-after", "15", "--look-every", "1"}));
    for (Process* process : {&alice, &bob}) {
        const Outcome outcome = process->Wait();
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(outcome.errors.find("wasn't heard of"), std::string::npos) << outcome.errors;
    }
    EXPECT_EQ(Known("alice", "bob").at("silent"), false);
    EXPECT_EQ(Known("bob", "alice").at("silent"), false);
}

}  // namespace

}  // namespace quorvane::test
