// Backups of a mailbox, and mailboxes that are made of them.

#include <algorithm>
#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

constexpr char kIdle[] = "1";

class BackupTest : public ProgramTest {
protected:
    void ShareToTheEnd() const
    {
        MakeMailboxes({"alice", "bob"});
        MustRun({"import", Mailbox("alice"), "Shared", Samples().string()});
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
        RunUntilIdle({"alice", "bob"}, kIdle);
        ExpectSame("alice", "Shared", "bob", "Shared");
    }
    void Edit(const std::string& name, const std::string& item, const std::string& subject) const
    {
        MustRun({"edit", Mailbox(name), "Shared", item, "--subject", subject});
    }
    long Count(const std::string& name, const std::string& subject) const
    {
        const std::vector<Json> items = Items(name, "Shared");
        return std::count_if(items.begin(), items.end(),
                             [&](const Json& item) { return item.at("subject") == subject; });
    }
    // In the place of the mailbox that it was made of, which is gone.
    void Restore(const std::string& name) const
    {
        std::filesystem::remove_all(Path(name));
        MustRun({"restore", Path("backup").string(), Mailbox(name)});
    }
};

TEST_F(BackupTest, AMailboxOfABackupThatWasMadeBesideARunComesUpToDate)
{
    ShareToTheEnd();
    {
        const Process alice = Start({"run", Mailbox("alice")});
        const Process bob = Start({"run", Mailbox("bob")});
        Edit("alice", "1", "first");
        ASSERT_TRUE(Eventually([&] { return Count("bob", "first") == 1; }));
        for (const char* const subject : {"second", "third"})
            Edit("alice", "1", subject);
        MustRun({"backup", Mailbox("bob"), Path("backup").string()});
        Edit("alice", "2", "after the backup");
        Edit("bob", "3", "bob's, after the backup");
        ASSERT_TRUE(Eventually([&] {
            return Count("bob", "after the backup") == 1 && Count("alice", "bob's, after the backup") == 1;
        }));
    }
    Restore("bob");

    RunUntilIdle({"alice", "bob"}, kIdle);

    EXPECT_EQ(Count("bob", "after the backup"), 1);
    EXPECT_EQ(Count("bob", "bob's, after the backup"), 1);
    EXPECT_EQ(Count("bob", "third"), 1);
    ExpectSame("alice", "Shared", "bob", "Shared");
    Edit("bob", "4", "heard again");
    RunUntilIdle({"alice", "bob"}, kIdle);
    EXPECT_EQ(Count("alice", "heard again"), 1);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(BackupTest, WhatWasntSentWhenTheBackupWasMadeIsSentByItsMailbox)
{
    ShareToTheEnd();
    Edit("bob", "1", "not sent yet");
    MustRun({"backup", Mailbox("bob"), Path("backup").string()});
    Restore("bob");

    RunUntilIdle({"alice", "bob"}, kIdle);

    EXPECT_EQ(Count("alice", "not sent yet"), 1);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(BackupTest, ABackupIsNoMailboxAndIsItsUsersAlone)
{
    ShareToTheEnd();
    MustRun({"backup", Mailbox("bob"), Path("backup").string()});

    EXPECT_EQ(Run({"list", Path("backup").string()}).exitCode, 1);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Path("backup")))
        EXPECT_EQ(entry.status().permissions() &
                      (std::filesystem::perms::group_all | std::filesystem::perms::others_all),
                  std::filesystem::perms::none)
            << entry.path();
    EXPECT_EQ(Run({"restore", Mailbox("alice"), Path("new").string()}).exitCode, 1)
        << "a mailbox is no backup";
    EXPECT_EQ(Run({"restore", Path("backup").string(), Mailbox("alice")}).exitCode, 1)
        << "nothing is overwritten";
    EXPECT_EQ(Run({"backup", Mailbox("bob"), Path("backup").string()}).exitCode, 1)
        << "nothing is overwritten";
}

// Two machines with one mailbox: each writes acknowledgements that the other has no record of.
TEST_F(BackupTest, ACopyOfAMailboxThatRunsBesideItIsNoticed)
{
    ShareToTheEnd();
    std::filesystem::copy(Path("bob"), Path("copy"), std::filesystem::copy_options::recursive);
    Process bob = Start({"run", Mailbox("bob")});
    Process copy = Start({"run", Mailbox("copy")});
    Process alice = Start({"run", Mailbox("alice")});

    Outcome outcome;
    int subject = 0;
    const bool isNoticed = Eventually([&] {
        Edit("alice", "1", "change " + std::to_string(++subject));
        return bob.WaitFor(std::chrono::milliseconds(200), outcome) ||
               copy.WaitFor(std::chrono::milliseconds(200), outcome);
    });

    ASSERT_TRUE(isNoticed);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.errors.find("another copy of this mailbox"), std::string::npos) << outcome.errors;
}

}  // namespace

}  // namespace quorvane::test
