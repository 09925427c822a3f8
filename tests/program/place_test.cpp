// Exchanges and mailboxes that can't be written for a while, and members who are different users of one
// machine.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <set>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

// alice shares one mail with bob, through an exchange on a file system of its own.
class MountedExchangeTest : public ProgramTest {
protected:
    void SetUp() override
    {
        if (TestedProgram().isForWindows)
            GTEST_SKIP() << "mounts are this system's";
        ProgramTest::SetUp();
        isMounted_ = mount("none", Exchange().c_str(), "tmpfs", 0, kSmall) == 0;
        if (!isMounted_)
            GTEST_SKIP() << "only root may mount a file system";
        MakeMailboxes({"alice", "bob"});
        MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
        RunUntilIdle({"alice", "bob"}, "0.5");
    }
    void TearDown() override
    {
        if (isMounted_)
            umount2(Exchange().c_str(), MNT_DETACH);
        if (!TestedProgram().isForWindows)
            ProgramTest::TearDown();
    }
    void Remount(unsigned long flags, const char* options) const
    {
        ASSERT_EQ(mount("none", Exchange().c_str(), "tmpfs", MS_REMOUNT | flags, options), 0);
    }
    // alice misses the exchange, says so once, and goes on.
    void ExpectMissed(const Process& alice) const
    {
        EXPECT_TRUE(
            Eventually([&] { return alice.ErrorsSoFar().find("it is tried again") != std::string::npos; }));
        EXPECT_TRUE(Eventually([&] {
            const Json status = MustRun({"status", Mailbox("alice"), "--json"}).Value();
            return status.at("packagesFilling").get<int>() + status.at("packagesToDeliver").get<int>() == 1;
        }));
        EXPECT_TRUE(Packages().empty());
    }
    void ExpectBack(Process& alice, const std::string& said) const
    {
        EXPECT_TRUE(Eventually([&] { return alice.ErrorsSoFar().find("is back") != std::string::npos; }));
        alice.AskToEnd();
        const Outcome outcome = alice.Wait();
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(outcome.errors.find(said), outcome.errors.rfind(said)) << outcome.errors;
        RunUntilIdle({"alice", "bob"}, "0.5");
        ExpectSame("alice", "Shared", "bob", "Shared");
    }

    static constexpr char kSmall[] = "size=1m,mode=0755", kLarge[] = "size=64m,mode=0755";

private:
    bool isMounted_ = false;
};

TEST_F(MountedExchangeTest, OneThatIsReadOnlyForAWhileIsUsedWhenItCanBeWritten)
{
    MustRun({"edit", Mailbox("alice"), "Shared", "1", "--subject", "later"});
    Remount(MS_RDONLY, kSmall);
    Process alice = Start(RunOf("alice"));
    ExpectMissed(alice);
    Remount(0, kSmall);
    ExpectBack(alice, "it is tried again");
    EXPECT_EQ(Items("bob", "Shared").at(0).at("subject"), "later");
}

TEST_F(MountedExchangeTest, OneThatIsFullIsUsedWhenThereIsRoom)
{
    const auto file = Path("large.mbox");
    {
        std::ofstream mail(file, std::ios::binary);
        mail << "From a@example.org Thu Jan  1 00:00:00 2026\nFrom: a@example.org\nSubject: large\n\n";
        std::uint32_t state = 1;
        for (int at = 0; at < 3'000'000; ++at) {
            state = state * 1664525 + 1013904223;
            mail << (at % 70 == 69 ? '\n' : static_cast<char>('0' + (state >> 24) % 64));
        }
        mail << "\n\n";
    }
    MustRun({"import", Mailbox("alice"), "Shared", file.string()});
    Process alice = Start(RunOf("alice"));
    ExpectMissed(alice);
    Remount(0, kLarge);
    ExpectBack(alice, "it is tried again");
    EXPECT_EQ(Items("bob", "Shared").size(), 2U);
}

// alice's mailbox lies on a disk of its own.
class MailboxDiskTest : public ProgramTest {
protected:
    void SetUp() override
    {
        if (TestedProgram().isForWindows)
            GTEST_SKIP() << "mounts are this system's";
        ProgramTest::SetUp();
        std::filesystem::create_directory(Mailbox("alice"));
        isMounted_ = mount("none", Mailbox("alice").c_str(), "tmpfs", 0, kSize) == 0;
        if (!isMounted_)
            GTEST_SKIP() << "only root may mount a file system";
        MakeMailboxes({"alice"});
        MustRun({"import", Mailbox("alice"), "Inbox", Sample("01-plain").string()});
    }
    void TearDown() override
    {
        if (isMounted_)
            umount2(Mailbox("alice").c_str(), MNT_DETACH);
        if (!TestedProgram().isForWindows)
            ProgramTest::TearDown();
    }
    void ForbidWriting(bool forbids) const
    {
        ASSERT_EQ(
            mount("none", Mailbox("alice").c_str(), "tmpfs", MS_REMOUNT | (forbids ? MS_RDONLY : 0), kSize),
            0);
    }
    // A file that takes all the room there is.
    void Fill() const
    {
        std::ofstream filler(Filler(), std::ios::binary);
        const std::string block(4096, 'x');
        while (filler.write(block.data(), 4096).flush()) {
        }
    }
    std::filesystem::path Filler() const { return Path("alice") / "filler"; }
    std::set<std::string> Names() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(Path("alice")))
            names.insert(entry.path().filename().string());
        return names;
    }
    void ExpectReadableAlone() const
    {
        EXPECT_EQ(Items("alice", "Inbox").size(), 1U);
        EXPECT_EQ(MustRun({"status", Mailbox("alice"), "--json"}).Value().at("running"), false);
        EXPECT_EQ(MustRun({"check", Mailbox("alice"), "--json"}).Value().at("checked"), 1U);
        MustRun({"export", Mailbox("alice"), "Inbox", Path("out").string()});
        MustRun({"report", Mailbox("alice"), "-o", Path("report.html").string()});
        for (const auto& change : {std::vector<std::string>{"delete", Mailbox("alice"), "Inbox", "1"},
                                   {"edit", Mailbox("alice"), "Inbox", "1", "--subject", "changed"},
                                   RunOf("alice")}) {
            const Outcome outcome = Run(change);
            EXPECT_EQ(outcome.exitCode, 1) << change.front();
            EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
        }
    }
    void ExpectWritable() const
    {
        MustRun({"delete", Mailbox("alice"), "Inbox", "1"});
        EXPECT_TRUE(Items("alice", "Inbox").empty());
    }

private:
    static constexpr char kSize[] = "size=4m,mode=0700";
    bool isMounted_ = false;
};

TEST_F(MailboxDiskTest, WhatLiesOnADiskThatIsReadOnlyCanBeRead)
{
    const auto before = Names();
    ForbidWriting(true);
    ExpectReadableAlone();
    EXPECT_EQ(Names(), before);
    ForbidWriting(false);
    ExpectWritable();
}

TEST_F(MailboxDiskTest, WhatLiesOnADiskThatIsFullCanBeRead)
{
    Fill();
    ExpectReadableAlone();
    std::filesystem::remove(Filler());
    ExpectWritable();
}

// What it wrote last lies in logs alone.
TEST_F(MailboxDiskTest, WhatARunThatWasKilledLeftCanBeReadWhereNothingCanBeWritten)
{
    Process run = Start(RunOf("alice"));
    EXPECT_TRUE(Eventually([&] {
        return MustRun({"status", Mailbox("alice"), "--json"}).Value().at("running").get<bool>();
    }));
    MustRun({"edit", Mailbox("alice"), "Inbox", "1", "--subject", "in the log"});
    run.Signal(SIGKILL);
    (void)run.Wait();
    ASSERT_GT(std::filesystem::file_size(Path("alice") / "store.sqlite-wal"), 0U);
    // An index outlives a restart on no disk that is mounted anew: it is made of the log.
    for (const char* name : {"store.sqlite-shm", "host.db-shm", "sharing.db-shm"})
        std::filesystem::remove(Path("alice") / name);
    ForbidWriting(true);
    EXPECT_EQ(Items("alice", "Inbox").at(0).at("subject"), "in the log");
    ForbidWriting(false);
    EXPECT_EQ(Items("alice", "Inbox").at(0).at("subject"), "in the log");
    ExpectWritable();
}

// Two users with a group in common, whose files are nobody else's unless the program says so.
class TwoUsersTest : public ProgramTest {
protected:
    static constexpr char kGroup[] = "23000";
    static Program As(const char* user)
    {
        Program program{{"/usr/bin/setpriv", "--reuid", user, "--regid", kGroup, "--clear-groups", "/bin/sh",
                         "-c", "umask 077; exec \"$0\" \"$@\""},
                        false};
        program.command.push_back(NativeProgram().command.back());
        return program;
    }
    void SetUp() override
    {
        if (TestedProgram().isForWindows)
            GTEST_SKIP() << "users and groups are this system's";
        ProgramTest::SetUp();
        if (getuid() != 0 || !std::filesystem::exists("/usr/bin/setpriv") ||
            RunBy(alice_, {"--version"}).exitCode != 0)
            GTEST_SKIP() << "only root may be two users, where these may run the program";
        chmod(Path("").c_str(), 0777);
        chmod(Exchange().c_str(), 0770);
        ASSERT_EQ(chown(Exchange().c_str(), 0, 23000), 0);
    }
    void TearDown() override
    {
        if (!TestedProgram().isForWindows)
            ProgramTest::TearDown();
    }
    const Program& ProgramOf(const std::string& mailbox) const override
    {
        return mailbox == "alice" ? alice_ : bob_;
    }

private:
    const Program alice_ = As("23001"), bob_ = As("23002");
};

TEST_F(TwoUsersTest, MembersWhoAreDifferentUsersShareThroughACommonGroup)
{
    MakeMailboxes({"alice", "bob"});
    std::filesystem::copy_file(Sample("01-plain"), Path("mail.eml"));
    MustRunBy(ProgramOf("alice"), {"import", Mailbox("alice"), "Shared", Path("mail.eml").string()});
    MustRunBy(ProgramOf("alice"), {"share", Mailbox("alice"), "Shared", "--with", "bob"});
    RunUntilIdle({"alice", "bob"}, "0.5");
    ASSERT_EQ(Items("bob", "Shared").size(), 1U);
    MustRunBy(ProgramOf("bob"), {"edit", Mailbox("bob"), "Shared", "1", "--subject", "from bob"});
    RunUntilIdle({"alice", "bob"}, "0.5");
    EXPECT_EQ(Items("alice", "Shared").at(0).at("subject"), "from bob");
    EXPECT_TRUE(Packages().empty()) << "each sender removes what the other has taken";
    EXPECT_NE(RunBy(ProgramOf("bob"), {"list", Mailbox("alice"), "Shared"}).exitCode, 0);
}

TEST_F(TwoUsersTest, APackageThatMayNotBeReadIsToldAndHoldsNobodyElseUp)
{
    MakeMailboxes({"alice", "bob", "carol"});
    std::filesystem::copy_file(Sample("01-plain"), Path("mail.eml"));
    for (const char* name : {"alice", "carol"}) {
        const std::string folder = std::string("Of ") + name;
        MustRunBy(ProgramOf(name), {"import", Mailbox(name), folder, Path("mail.eml").string()});
        MustRunBy(ProgramOf(name), {"share", Mailbox(name), folder, "--with", "bob"});
    }
    RunUntilIdle({"alice", "bob", "carol"}, "0.5");
    for (const char* name : {"alice", "carol"}) {
        MustRunBy(ProgramOf(name), {"edit", Mailbox(name), std::string("Of ") + name, "1", "--subject",
                                    std::string("by ") + name});
        RunUntilIdle({name}, "0.5");
    }
    const auto packages = Packages();
    ASSERT_EQ(packages.size(), 2U);
    const auto closed = std::find_if(packages.begin(), packages.end(), [](const auto& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 && status.st_uid == 23001;
    });
    ASSERT_NE(closed, packages.end());
    ASSERT_EQ(chmod(closed->c_str(), 0600), 0);

    RunUntilIdle({"bob"}, "0.5");
    EXPECT_EQ(Items("bob", "Of carol").at(0).at("subject"), "by carol");
    EXPECT_NE(Items("bob", "Of alice").at(0).at("subject"), "by alice");
    const std::string status = MustRunBy(ProgramOf("bob"), {"status", Mailbox("bob")}).output;
    EXPECT_NE(status.find("Permission denied"), std::string::npos) << status;

    ASSERT_EQ(chmod(closed->c_str(), 0640), 0);
    RunUntilIdle({"bob"}, "0.5");
    EXPECT_EQ(Items("bob", "Of alice").at(0).at("subject"), "by alice");
}

}  // namespace

}  // namespace quorvane::test
