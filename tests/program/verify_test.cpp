// Shared folders are compared with those of other members, and what was lost between them comes back.
#include <sqlite3.h>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class VerifyTest : public ProgramTest {
protected:
    void ShareSome()
    {
        MakeMailboxes({"alice", "bob"});
        for (const char* sample : {"01-plain", "07-attachment-csv", "08-odd-attachment-names"})
            MustRun({"import", Mailbox("alice"), "Shared", Sample(sample).string()});
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
        RunUntilIdle({"alice", "bob"}, "0.5");
        ASSERT_EQ(Items("bob", "Shared").size(), 3U);
    }
    // As if what told of it had been lost, or had never been made.
    void Execute(const std::string& name, const std::string& database, const std::string& sql) const
    {
        sqlite3* handle = nullptr;
        ASSERT_EQ(sqlite3_open((Path(name) / database).string().c_str(), &handle), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(handle);
        sqlite3_close(handle);
    }
    // bob's message, row and record of an item go without a word.
    void LoseAtBob(const std::string& id)
    {
        for (const Json& item : Items("bob", "Shared"))
            if (item.at("id") == id) {
                Execute("bob", "sharing.db", "DELETE FROM tblItem WHERE ID = '" + id + "'");
                Execute("bob", "host.db", "DELETE FROM item WHERE id = '" + id + "'");
                MustRun({"delete", Mailbox("bob"), "Shared", item.at("entryId")});
            }
    }
    // Those that were started hold their mailboxes from a moment on.
    void AwaitRuns(const std::vector<std::string>& names) const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        for (const std::string& name : names)
            while (!Run({"status", Mailbox(name), "--json"}).Value().at("running").get<bool>())
                ASSERT_LT(std::chrono::steady_clock::now(), deadline) << name;
    }
    // Alice's record says that nobody was sent what she changed of an item. Bob knows it.
    void ExpectSentOnceMore(const std::string& id, const char* counter) const
    {
        Execute("alice", "host.db", "UPDATE item SET pending = 1 WHERE id = '" + id + "'");
        EXPECT_EQ(RunUntilIdle({"alice"}, "1").at(0).at(counter), 1U);
        EXPECT_EQ(Packages().size(), 1U);
        EXPECT_EQ(RunUntilIdle({"bob"}, "1").at(0).at("itemsIgnored"), 1U);
        EXPECT_EQ(RunUntilIdle({"alice"}, "1").at(0).at(counter), 0U);
    }
    Json Verify(const std::string& name, int expected) const
    {
        const Outcome outcome = Run({"verify", Mailbox(name), "Shared", "--json", "--wait", "60"});
        EXPECT_EQ(outcome.exitCode, expected) << outcome.output << outcome.errors;
        return outcome.Value();
    }
};

TEST_F(VerifyTest, EqualFoldersAreToldEqual)
{
    ShareSome();
    EXPECT_FALSE(MustRun({"status", Mailbox("alice"), "--json"}).Value().at("running").get<bool>());
    Process alice = Start({"run", Mailbox("alice"), "--exchange", Exchange()});
    Process bob = Start({"run", Mailbox("bob"), "--exchange", Exchange()});
    AwaitRuns({"alice", "bob"});

    const Json report = Verify("alice", 0);

    EXPECT_EQ(report.at("result"), "equal");
    const Json& folder = report.at("folders").at(0);
    EXPECT_EQ(folder.at("items").size(), 0U);
    ASSERT_EQ(folder.at("members").size(), 1U);
    EXPECT_EQ(folder.at("members")[0].at("member"), "bob");
    EXPECT_EQ(folder.at("members")[0].at("state"), "equal");
    alice.AskToEnd();
    bob.AskToEnd();
    EXPECT_EQ(alice.Wait().exitCode, 0);
    EXPECT_EQ(bob.Wait().exitCode, 0);
}

TEST_F(VerifyTest, WhatWasLostIsNamedAndComesBack)
{
    ShareSome();
    const std::string lost = Items("alice", "Shared").at(1).at("id");
    LoseAtBob(lost);
    ASSERT_EQ(Items("bob", "Shared").size(), 2U);
    Process alice = Start({"run", Mailbox("alice"), "--exchange", Exchange()});
    Process bob = Start({"run", Mailbox("bob"), "--exchange", Exchange()});
    AwaitRuns({"alice", "bob"});

    const Json report = Verify("bob", 0);

    const Json& member = report.at("folders").at(0).at("members").at(0);
    EXPECT_EQ(member.at("state"), "was mended");
    EXPECT_EQ(member.at("items"), Json{lost});
    EXPECT_EQ(Items("bob", "Shared").size(), 3U);
    alice.AskToEnd();
    bob.AskToEnd();
    EXPECT_NE(alice.Wait().errors.find("differs from that of 'bob' in 1 item"), std::string::npos);
    EXPECT_EQ(bob.Wait().exitCode, 0);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

// A package that can't be used is put aside and acknowledged; nobody asks for anything.
TEST_F(VerifyTest, WhatWasInAPackageThatWasRefusedComesAllTheSame)
{
    ShareSome();
    const std::string id = Items("alice", "Shared").at(0).at("id");
    // It claims an item of another folder, for all that bob knows.
    Execute("bob", "host.db", "UPDATE item SET folder_id = '{OTHER}' WHERE id = '" + id + "'");
    MustRun({"edit", Mailbox("alice"), "Shared", id, "--subject", "refused at first"});
    MustRun({"run", Mailbox("alice"), "--until-idle", "--idle-seconds", "0.5"});
    const Outcome atBob = MustRun({"run", Mailbox("bob"), "--until-idle", "--idle-seconds", "0.5"});
    EXPECT_NE(atBob.errors.find("refused: "), std::string::npos) << atBob.errors;
    for (const Json& item : Items("bob", "Shared"))
        EXPECT_NE(item.at("subject"), "refused at first");
    Json folder = MustRun({"status", Mailbox("bob"), "--json"}).Value().at("shares").at(0);
    Execute(
        "bob", "host.db",
        "UPDATE item SET folder_id = '" + folder.at("id").get<std::string>() + "' WHERE id = '" + id + "'");

    RunUntilIdle({"alice", "bob"}, "1");
    RunUntilIdle({"alice", "bob"}, "1");

    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(VerifyTest, OnceInAWhileItIsDoneUnasked)
{
    ShareSome();
    LoseAtBob(Items("alice", "Shared").at(1).at("id"));
    Process alice = Start({"run", Mailbox("alice"), "--exchange", Exchange(), "--compare-after", "2"});
    Process bob = Start({"run", Mailbox("bob"), "--exchange", Exchange()});

    EXPECT_TRUE(Eventually([&] { return Items("bob", "Shared").size() == 3U; }));

    alice.AskToEnd();
    bob.AskToEnd();
    EXPECT_EQ(alice.Wait().exitCode, 0);
    EXPECT_EQ(bob.Wait().exitCode, 0);
}

// A power cut may take a package that the engine had filled, and the program hadn't taken from it.
TEST_F(VerifyTest, AChangeThatIsInNoPackageIsSentOnceMore)
{
    ShareSome();
    const std::string id = Items("alice", "Shared").at(0).at("id");

    ExpectSentOnceMore(id, "itemsSent");
}

TEST_F(VerifyTest, ADeletionThatIsInNoPackageIsSentOnceMore)
{
    ShareSome();
    const std::string id = Items("alice", "Shared").at(0).at("id");
    MustRun({"delete", Mailbox("alice"), "Shared", id});
    RunUntilIdle({"alice", "bob"}, "1");

    ExpectSentOnceMore(id, "deletionsSent");
}

TEST_F(VerifyTest, WithoutARunWhatIsHereIsCheckedAndTheRestLeftToTheNext)
{
    ShareSome();
    const std::string id = Items("alice", "Shared").at(0).at("id");
    const Json untold = Verify("alice", 3);
    EXPECT_EQ(untold.at("running"), false);
    EXPECT_EQ(untold.at("result"), "not compared yet");

    MustRun({"edit", Mailbox("alice"), "Shared", id, "--subject", "not told yet"});

    const Json report = Verify("alice", 1);
    ASSERT_EQ(report.at("folders").at(0).at("items").size(), 1U);
    EXPECT_EQ(report.at("folders")[0].at("items")[0].at("id"), id);
    EXPECT_EQ(report.at("folders")[0].at("members").at(0).at("state"), "not compared yet");
    EXPECT_EQ(Run({"verify", Mailbox("alice"), "Nowhere"}).exitCode, 1);
    RunUntilIdle({"alice", "bob"}, "0.5");
    EXPECT_TRUE(Verify("alice", 3).at("folders").at(0).at("items").empty());
}

}  // namespace

}  // namespace quorvane::test
