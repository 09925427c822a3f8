// What a user does wrong gets one clear line, the right exit code, and loses nothing.
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class UsageTest : public ProgramTest {
protected:
    // One line that begins with the program's name and holds `part`.
    static void ExpectOneLine(const Outcome& outcome, int exitCode, const std::string& part)
    {
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.errors;
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
        EXPECT_TRUE(outcome.errors.starts_with("quorvane: ")) << outcome.errors;
        EXPECT_NE(outcome.errors.find(part), std::string::npos) << outcome.errors;
    }
};

TEST_F(UsageTest, HelpIsGivenForTheProgramAndEachCommand)
{
    EXPECT_NE(MustRun({"--help"}).output.find("3 it isn't known yet"), std::string::npos);
    for (const char* command :
         {"init",    "import",    "export",  "list",     "share",  "invitations", "accept", "decline",
          "leave",   "unshare",   "resend",  "cancel",   "run",    "edit",        "move",   "delete",
          "compare", "conflicts", "trash",   "undelete", "verify", "status",      "backup", "restore",
          "inspect", "show",      "members", "check",    "folder", "log",         "doctor"})
        EXPECT_NE(MustRun({command, "--help"}).output.find("--json"), std::string::npos) << command;
}

TEST_F(UsageTest, AWrongCommandLineExitsWithTwo)
{
    ExpectOneLine(Run({}), 2, "--help");
    ExpectOneLine(Run({"fly"}), 2, "");
    ExpectOneLine(Run({"init"}), 2, "MAILBOX");
    ExpectOneLine(Run({"list", Mailbox("a"), "--colour"}), 2, "--colour");
    ExpectOneLine(Run({"export", Mailbox("a"), "F", "D", "--format", "pdf"}), 2, "pdf");
}

TEST_F(UsageTest, AMisspeltCommandNamesTheNearest)
{
    ExpectOneLine(Run({"shrae", Mailbox("a")}), 2, "'shrae'; did you mean 'share'?");
    ExpectOneLine(Run({"stats"}), 2, "did you mean 'status'?");
    const Outcome outcome = Run({"frobnicate", Mailbox("a")});
    ExpectOneLine(outcome, 2, "there is no command 'frobnicate'");
    EXPECT_EQ(outcome.errors.find("did you mean"), std::string::npos) << outcome.errors;
    // A word in another place is no command.
    ExpectOneLine(Run({"status", Mailbox("a"), "shrae"}), 2, "shrae");
    EXPECT_EQ(Run({"status", Mailbox("a"), "shrae"}).errors.find("did you mean"), std::string::npos);
}

TEST_F(UsageTest, TheVersionIsGiven)
{
    const std::string version = MustRun({"--version"}).output;
    EXPECT_TRUE(version.starts_with("quorvane ")) << version;
    EXPECT_NE(version.find_first_of("0123456789"), std::string::npos) << version;
}

TEST_F(UsageTest, UnderJsonAFailureIsOneValueOnStandardError)
{
    for (const auto& [arguments, code] :
         {std::pair<std::vector<std::string>, int>{{"list", Mailbox("nowhere"), "--json"}, 1},
          {{"shrae", Mailbox("a"), "--json"}, 2},
          {{"list", "--json"}, 2}}) {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.exitCode, code) << outcome.errors;
        EXPECT_EQ(outcome.output, "");
        const Json error = Json::parse(outcome.errors);
        EXPECT_EQ(error.at("exitCode"), code);
        EXPECT_FALSE(error.at("error").get<std::string>().empty());
    }
}

TEST_F(UsageTest, AMailboxThatDoesNotExistIsNamed)
{
    for (const char* command : {"list", "status"})
        ExpectOneLine(Run({command, Mailbox("nowhere")}), 1, "nowhere");
    EXPECT_FALSE(std::filesystem::exists(Path("nowhere")));
}

TEST_F(UsageTest, ADirectoryThatIsNoMailboxIsNotMadeOne)
{
    std::filesystem::create_directory(Path("plain"));
    ExpectOneLine(Run({"list", Mailbox("plain")}), 1, "no mailbox");
    EXPECT_TRUE(std::filesystem::is_empty(Path("plain")));
}

TEST_F(UsageTest, AMailboxIsNotMadeOverOtherFiles)
{
    std::filesystem::create_directory(Path("full"));
    std::ofstream(Path("full") / "letter.txt") << "mine";
    ExpectOneLine(Run({"init", Mailbox("full")}), 1, "not empty");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Path("full")), {}), 1);
}

TEST_F(UsageTest, AMailboxIsItsUsersAloneWhateverTheUmask)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "there the directory above decides";
    const mode_t before = umask(0);
    std::filesystem::create_directory(Path("alice"));  // by the user, for everybody
    MakeMailboxes({"alice", "bob"});
    MustRun({"import", Mailbox("alice"), "Shared", Samples().string()});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
    RunUntilIdle({"alice", "bob"});
    umask(before);
    ASSERT_FALSE(Items("bob", "Shared").empty());

    for (const char* const name : {"alice", "bob"}) {
        std::size_t files = 0;
        const auto isPrivate = [&](const std::filesystem::path& path) {
            const auto others = std::filesystem::perms::group_all | std::filesystem::perms::others_all;
            EXPECT_EQ(std::filesystem::status(path).permissions() & others, std::filesystem::perms::none)
                << path;
            files += std::filesystem::is_regular_file(path);
        };
        isPrivate(Path(name));
        for (const auto& entry : std::filesystem::recursive_directory_iterator(Path(name)))
            isPrivate(entry.path());
        EXPECT_GE(files, 6U) << "databases, hash file, settings, log, lock";
    }
}

TEST_F(UsageTest, AMailboxThatOthersCouldReadIsClosedToThemWhenItIsOpened)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "there the directory above decides";
    MakeMailboxes({"a"});
    std::filesystem::permissions(Path("a"), std::filesystem::perms::all);

    MustRun({"list", Mailbox("a")});

    EXPECT_EQ(std::filesystem::status(Path("a")).permissions(), std::filesystem::perms::owner_all);
}

TEST_F(UsageTest, AMailboxThatWasMovedWorksWhereItIsNow)
{
    MakeMailboxes({"a"});
    MustRun({"import", Mailbox("a"), "In", Sample("01-plain").string()});
    const std::string id = Items("a", "In").at(0).at("entryId");
    std::filesystem::rename(Path("a"), Path("b"));

    MustRun({"edit", Mailbox("b"), "In", id, "--subject", "moved"});

    EXPECT_EQ(Items("b", "In").at(0).at("subject"), "moved");
    EXPECT_FALSE(std::filesystem::exists(Path("a")));
}

TEST_F(UsageTest, AMailboxMadeInTheDirectoryOfAnEarlierOneIsEmpty)
{
    MakeMailboxes({"a"});
    MustRun({"import", Mailbox("a"), "In", Sample("01-plain").string()});
    std::filesystem::remove_all(Path("a"));

    MakeMailboxes({"a"});

    for (const Json& folder : MustRun({"list", Mailbox("a"), "--json"}).Value())
        EXPECT_EQ(folder.at("items"), 0) << folder;
}

TEST_F(UsageTest, AListForPeopleNamesWhatAListForProgramsHas)
{
    MakeMailboxes({"a"});
    MustRun({"import", Mailbox("a"), "In", Sample("01-plain").string()});
    const std::vector<Json> items = Items("a", "In");
    ASSERT_EQ(items.size(), 1U);

    const Outcome outcome = MustRun({"list", Mailbox("a"), "In"});

    EXPECT_NE(outcome.output.find(items[0].at("subject").get<std::string>()), std::string::npos)
        << outcome.output;
    EXPECT_NE(outcome.output.find(items[0].at("sender").get<std::string>()), std::string::npos)
        << outcome.output;
}

TEST_F(UsageTest, AMailboxWithoutItsMessageStoreIsRefusedAndGetsNoNewOne)
{
    MakeMailboxes({"a"});
    std::filesystem::remove(Path("a") / "store.sqlite");
    ExpectOneLine(Run({"list", Mailbox("a")}), 1, "message store");
    EXPECT_FALSE(std::filesystem::exists(Path("a") / "store.sqlite"));
}

TEST_F(UsageTest, AFileThatIsNoMailIsNamedAndTheRestComesIn)
{
    MakeMailboxes({"a"});
    std::filesystem::create_directory(Path("in"));
    std::ofstream(Path("in") / "noise.bin") << std::string(4096, '\0');
    std::filesystem::copy_file(Sample("01-plain"), Path("in") / Sample("01-plain").filename());
    const Outcome outcome = MustRun({"import", Mailbox("a"), "In", Path("in").string()});
    EXPECT_NE(outcome.output.find("noise.bin"), std::string::npos) << outcome.output;
    EXPECT_EQ(Items("a", "In").size(), 1U);
}

TEST_F(UsageTest, AnImportOfNothingThatIsMailFails)
{
    MakeMailboxes({"a"});
    std::ofstream(Path("noise.bin")) << std::string(4096, '\0');
    ExpectOneLine(Run({"import", Mailbox("a"), "In", Path("noise.bin").string()}), 1, "In");
}

TEST_F(UsageTest, ADatabaseWithoutTablesIsNamed)
{
    MakeMailboxes({"a"});
    std::filesystem::remove(Path("a") / "sharing.db");
    std::ofstream(Path("a") / "sharing.db").close();
    ExpectOneLine(Run({"run", Mailbox("a"), "--exchange", Exchange(), "--until-idle"}), 1, "tblItem");
}

TEST_F(UsageTest, AFolderThatDoesNotExistIsNamed)
{
    MakeMailboxes({"a"});
    ExpectOneLine(Run({"list", Mailbox("a"), "Nothing/Here"}), 1, "Nothing/Here");
    ExpectOneLine(Run({"share", Mailbox("a"), "Nothing", "--with", "b"}), 1, "Nothing");
}

TEST_F(UsageTest, AMemberNameThatCouldLeaveItsDirectoryIsRefused)
{
    MakeMailboxes({"a"});
    MustRun({"import", Mailbox("a"), "In", Sample("01-plain").string()});
    ExpectOneLine(Run({"share", Mailbox("a"), "In", "--with", "../b"}), 2, "../b");
    ExpectOneLine(Run({"init", Mailbox("c"), "--name", "a/b"}), 2, "a/b");
}

TEST_F(UsageTest, AResendNeedsASharedFolderAMemberAndADate)
{
    MakeMailboxes({"a"});
    MustRun({"import", Mailbox("a"), "In", Sample("01-plain").string()});
    ExpectOneLine(Run({"resend", Mailbox("a"), "In", "--to", "b"}), 1, "isn't shared");
    MustRun({"share", Mailbox("a"), "In", "--with", "b"});
    ExpectOneLine(Run({"resend", Mailbox("a"), "In", "--to", "c"}), 1, "'c'");
    ExpectOneLine(Run({"resend", Mailbox("a"), "In", "--to", "b", "--since", "yesterday"}), 2, "yesterday");
    ExpectOneLine(Run({"resend", Mailbox("a"), "In"}), 2, "--to");
    ExpectOneLine(Run({"cancel", Mailbox("a"), "Nothing"}), 1, "Nothing");
    EXPECT_EQ(MustRun({"cancel", Mailbox("a"), "In", "--to", "c", "--json"}).Value().at("cancelled"), 0);
}

TEST_F(UsageTest, AnExchangeThatDoesNotExistIsNamedAndNotMade)
{
    MakeMailboxes({"a"});
    ExpectOneLine(Run({"run", Mailbox("a"), "--exchange", Path("gone").string(), "--until-idle"}), 1, "gone");
    EXPECT_FALSE(std::filesystem::exists(Path("gone")));
}

TEST_F(UsageTest, ADirectoryThatCannotBeWrittenIsNamed)
{
    std::ofstream(Path("file")) << "not a directory";
    ExpectOneLine(Run({"init", (Path("file") / "mailbox").string(), "--name", "a"}), 1, "file");
    MakeMailboxes({"a"});
    MustRun({"import", Mailbox("a"), "In", Sample("01-plain").string()});
    ExpectOneLine(Run({"export", Mailbox("a"), "In", (Path("file") / "out").string()}), 1, "file");
}

TEST_F(UsageTest, InspectOfAFileThatIsNoCompoundFileSaysSo)
{
    std::ofstream(Path("plain.txt")) << "hello";
    ExpectOneLine(Run({"inspect", Path("plain.txt").string()}), 1, "plain.txt");
    ExpectOneLine(Run({"inspect", Path("missing.qvt").string()}), 1, "missing.qvt");
}

}  // namespace

}  // namespace quorvane::test
