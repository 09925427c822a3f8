// Exchanges that can't be written for a while, and members who are different users of one machine.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

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

}  // namespace

}  // namespace quorvane::test
