// Mailboxes on Linux and on Windows that share folders through one exchange. Those of the members named here
// run under Wine; every other member's is this system's.
#include <algorithm>
#include <csignal>
#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

constexpr char kIdleSeconds[] = "0.5";

class WorldsTest : public ProgramTest {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(TestedProgram().isForWindows) << "QUORVANE_WINDOWS_BUILD names no build for Windows";
        ProgramTest::SetUp();
    }

    static bool IsOnWindows(const std::string& member) { return member == "wanda" || member == "willi"; }

    const Program& ProgramOf(const std::string& member) const override
    {
        return IsOnWindows(member) ? WindowsProgram() : NativeProgram();
    }

    // Runs a command on a member's mailbox.
    Outcome RunFor(const std::string& member, const std::string& command,
                   const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> all{command, Mailbox(member)};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return MustRunBy(ProgramOf(member), all);
    }

    // One member has the sample mails in a folder that both share, and both have it.
    void Share(const std::string& owner, const std::string& other)
    {
        MakeMailboxes({owner, other});
        RunFor(owner, "import", {"Shared", Samples().string()});
        RunFor(owner, "share", {"Shared", "--with", other});
        RunUntilIdle({owner, other}, kIdleSeconds);
        ASSERT_EQ(Items(other, "Shared").size(), 40U);
    }

    std::string IdOf(const std::string& member, std::size_t number) const
    {
        return Items(member, "Shared").at(number).at("id");
    }

    std::string SubjectOf(const std::string& member, const std::string& id) const
    {
        for (const Json& item : Items(member, "Shared"))
            if (item.at("id") == id)
                return item.at("subject");
        return "missing";
    }

    // Both programs find the two folders equal.
    void ExpectSameToBoth(const std::string& a, const std::string& b, std::size_t count) const
    {
        for (const Program* program : {&NativeProgram(), &WindowsProgram()}) {
            const Outcome outcome =
                RunBy(*program, {"compare", Mailbox(a), "Shared", Mailbox(b), "Shared", "--json"});
            ASSERT_EQ(outcome.exitCode, 0) << outcome.errors << outcome.output.substr(0, 4000);
            EXPECT_EQ(outcome.Value().at("identical"), count);
        }
    }

    // Each side changes an item and deletes another; both follow.
    void ChangeOnBothSides(const std::string& a, const std::string& b)
    {
        const auto items = Items(a, "Shared");
        const auto id = [&](std::size_t number) { return items[number].at("id").get<std::string>(); };
        RunFor(a, "edit", {"Shared", id(0), "--subject", "changed by " + a + " ☘"});
        RunFor(b, "edit", {"Shared", id(1), "--subject", "changed by " + b + " ж"});
        RunFor(a, "delete", {"Shared", id(2)});
        RunFor(b, "delete", {"Shared", id(3)});
        const auto counts = RunUntilIdle({a, b}, kIdleSeconds);

        EXPECT_EQ(SubjectOf(b, id(0)), "changed by " + a + " ☘");
        EXPECT_EQ(SubjectOf(a, id(1)), "changed by " + b + " ж");
        for (const Json& count : counts) {
            EXPECT_EQ(count.at("itemsSent"), 1U) << count;
            EXPECT_EQ(count.at("itemsApplied"), 1U) << count;
            EXPECT_EQ(count.at("deletionsSent"), 1U) << count;
            EXPECT_EQ(count.at("deletionsApplied"), 1U) << count;
        }
    }

    void ExpectReadAlike(const std::vector<std::string>& command) const
    {
        const Outcome here = MustRunBy(NativeProgram(), command),
                      there = MustRunBy(WindowsProgram(), command);
        ASSERT_EQ(here.exitCode + there.exitCode, 0);
        EXPECT_FALSE(here.Value().empty());
        EXPECT_EQ(here.Value(), there.Value());
    }
};

TEST_F(WorldsTest, AFolderSharedOnLinuxComesToWindowsAndChangesGoBothWays)
{
    Share("alice", "wanda");
    ExpectSameToBoth("alice", "wanda", 40);

    ChangeOnBothSides("alice", "wanda");

    ExpectSameToBoth("alice", "wanda", 38);
}

TEST_F(WorldsTest, AFolderSharedOnWindowsComesToLinuxAndAChangeIsSeenWhileBothRun)
{
    Share("wanda", "alice");
    ExpectSameToBoth("wanda", "alice", 40);
    const std::string atWanda = IdOf("wanda", 4), atAlice = IdOf("wanda", 5);
    Process wanda(WindowsProgram(), {"run", Mailbox("wanda"), "--exchange", Exchange(), "-v"},
                  Path("exchange"));
    Process alice(NativeProgram(), {"run", Mailbox("alice"), "--exchange", Exchange(), "-v"},
                  Path("exchange"));

    RunFor("wanda", "edit", {"Shared", atWanda, "--subject", "live from Windows"});
    EXPECT_TRUE(Eventually([&] { return SubjectOf("alice", atWanda) == "live from Windows"; }));
    RunFor("alice", "edit", {"Shared", atAlice, "--subject", "live from Linux"});
    EXPECT_TRUE(Eventually([&] { return SubjectOf("wanda", atAlice) == "live from Linux"; }));
    for (Process* const process : {&wanda, &alice}) {
        process->AskToEnd();
        const Outcome outcome = process->Wait();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        EXPECT_NE(outcome.output.find("sent: 1 item, "), std::string::npos) << outcome.output;
    }
    ExpectSameToBoth("wanda", "alice", 40);
}

TEST_F(WorldsTest, WhatOneSystemWritesTheOtherReadsAlike)
{
    MakeMailboxes({"alice", "wanda", "nobody"});
    for (const char* member : {"alice", "wanda"}) {
        RunFor(member, "import", {"Shared", Samples().string()});
        RunFor(member, "share", {"Shared", "--with", "nobody"});
        RunFor(member, "export", {"Shared", Path(std::string("of-") + member).string(), "--format", "msg"});
    }
    RunUntilIdle({"alice", "wanda"}, kIdleSeconds);
    RunUntilIdle({"nobody"}, kIdleSeconds);
    RunUntilIdle({"alice", "wanda"}, kIdleSeconds);

    std::size_t items = 0;
    for (const auto& package : ContentFor("nobody")) {
        ExpectReadAlike({"inspect", package.string(), "--json"});
        const Json shown = MustRun({"inspect", package.string(), "--json"}).Value();
        items += shown.at("items").size();
    }
    EXPECT_EQ(items, 80U);
    for (const char* directory : {"of-alice", "of-wanda"}) {
        const auto message = *std::filesystem::directory_iterator(Path(directory));
        ExpectReadAlike({"inspect", message.path().string(), "--json"});
    }
    for (const char* member : {"alice", "wanda"}) {
        ExpectReadAlike({"list", Mailbox(member), "--json"});
        ExpectReadAlike({"list", Mailbox(member), "Shared", "--json"});
    }
}

TEST_F(WorldsTest, TwoMailboxesOnWindowsShareAFolder)
{
    Share("wanda", "willi");
    const auto items = Items("willi", "Shared");
    const auto id = [&](std::size_t number) { return items[number].at("id").get<std::string>(); };
    RunFor("willi", "import", {"Private", Sample("01-plain").string()});
    RunFor("willi", "move", {"Shared", id(0), "Private"});
    RunFor("willi", "edit", {"Shared", id(1), "--subject", "changed by willi", "--unread"});
    RunFor("wanda", "delete", {"Shared", id(2)});
    RunUntilIdle({"wanda", "willi"}, kIdleSeconds);

    EXPECT_EQ(SubjectOf("wanda", id(1)), "changed by willi");
    EXPECT_EQ(Items("willi", "Private").size(), 2U);
    ExpectSameToBoth("wanda", "willi", 38);
    RunFor("wanda", "export", {"Shared", Path("out").string()});
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Path("out")), {}), 38);
    const Json status = RunFor("willi", "status", {"--json"}).Value();
    EXPECT_EQ(status.at("name"), "willi");
    EXPECT_EQ(status.at("shares").at(0).at("members"), Json{"wanda"});
    EXPECT_EQ(status.at("packagesToApply"), 0);
}

TEST_F(WorldsTest, ARunThatIsKilledOnWindowsInTheMidstOfAPackageLosesNothingAndDoublesNothing)
{
    MakeMailboxes({"alice", "wanda"});
    RunFor("alice", "import", {"Shared", Samples().string()});
    RunFor("alice", "share", {"Shared", "--with", "wanda"});
    LetAccept("alice", "wanda");
    RunUntilIdle({"alice"}, kIdleSeconds);
    Process wanda(WindowsProgram(), {"run", Mailbox("wanda"), "--exchange", Exchange(), "-v"},
                  Path("exchange"));
    const auto received = [&] { return wanda.ErrorsSoFar().find("onItemReceived") != std::string::npos; };

    EXPECT_TRUE(Eventually(received)) << wanda.ErrorsSoFar();
    wanda.Signal(SIGKILL);
    EXPECT_EQ(wanda.Wait().exitCode, 128 + SIGKILL);
    RunUntilIdle({"alice", "wanda"}, kIdleSeconds);

    EXPECT_EQ(Items("wanda", "Shared").size(), 40U);
    ExpectSameToBoth("alice", "wanda", 40);
}

TEST_F(WorldsTest, TwoRunsOfOneMailboxAreRefusedOnWindows)
{
    MakeMailboxes({"wanda"});
    Process first(WindowsProgram(), {"run", Mailbox("wanda"), "--exchange", Exchange()}, Path("exchange"));
    EXPECT_TRUE(
        Eventually([&] { return std::filesystem::exists(Path("wanda") / "logs" / "quorvane3.log"); }));

    const Outcome second =
        RunBy(WindowsProgram(), {"run", Mailbox("wanda"), "--exchange", Exchange(), "--until-idle"});
    first.AskToEnd();

    EXPECT_EQ(second.exitCode, 1);
    EXPECT_NE(second.errors.find("another run"), std::string::npos) << second.errors;
    EXPECT_EQ(first.Wait().exitCode, 0);
}

TEST_F(WorldsTest, APathThatNoCodePageHoldsServesOnWindows)
{
    const std::string mailbox = Path("почта ☘").string();
    MakeMailboxes({"alice"});
    MustRunBy(WindowsProgram(), {"init", mailbox, "--name", "wanda", "--exchange", Exchange()});
    MustRunBy(WindowsProgram(), {"import", mailbox, "Входящие", Sample("01-plain").string()});
    MustRunBy(WindowsProgram(), {"share", mailbox, "Входящие", "--with", "alice"});
    MustRunBy(WindowsProgram(),
              {"run", mailbox, "--exchange", Exchange(), "--until-idle", "--idle-seconds", kIdleSeconds});

    // The invitation.
    EXPECT_EQ(Packages().size(), 1U);
    ExpectReadAlike({"list", mailbox, "Входящие", "--json"});
}

TEST_F(WorldsTest, MailInMimeIsLeftOutOnWindowsWithOneLine)
{
    MakeMailboxes({"wanda"});
    std::filesystem::create_directory(Path("in"));
    for (const char* name : {"1.eml", "2.eml"})
        std::ofstream(Path("in") / name) << "From: a@example.org\nSubject: a mail\n\nhello\n";
    std::filesystem::copy_file(Sample("02-plain-crlf"), Path("in") / "3.msg");

    const Outcome mixed = RunFor("wanda", "import", {"In", Path("in").string()});
    const Outcome none =
        RunBy(WindowsProgram(), {"import", Mailbox("wanda"), "In", (Path("in") / "1.eml").string()});
    const Outcome written =
        RunBy(WindowsProgram(), {"export", Mailbox("wanda"), "In", Path("out").string(), "--format", "eml"});

    EXPECT_NE(mixed.output.find("left out 2 mails: this build reads .msg files"), std::string::npos)
        << mixed.output;
    EXPECT_EQ(std::count(mixed.output.begin(), mixed.output.end(), '\n'), 2) << mixed.output;
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_NE(none.errors.find(".msg files"), std::string::npos) << none.errors;
    EXPECT_EQ(written.exitCode, 2);
    EXPECT_EQ(std::count(written.errors.begin(), written.errors.end(), '\n'), 1) << written.errors;
    EXPECT_EQ(Items("wanda", "In").size(), 1U);
}

}  // namespace

}  // namespace quorvane::test
