// Mail in and out: each mail once, to the byte, and nothing else touched.
#include <signal.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

namespace fs = std::filesystem;

std::string BytesOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class MailFilesTest : public ProgramTest {
protected:
    void SetUp() override
    {
        if (TestedProgram().isForWindows)
            GTEST_SKIP() << "the program reads no MIME there";
        ProgramTest::SetUp();
        MakeMailboxes({"a"});
    }

    Json Import(const std::vector<std::string>& paths, const std::string& folder = "In") const
    {
        std::vector<std::string> arguments = {"import", Mailbox("a"), folder, "--json"};
        arguments.insert(arguments.end(), paths.begin(), paths.end());
        return MustRun(arguments).Value();
    }
    Json Export(const std::string& directory, const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> arguments = {"export", Mailbox("a"), "In", Path(directory).string(),
                                              "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return MustRun(arguments).Value();
    }
    static std::multiset<std::string> Contents(const fs::path& directory)
    {
        std::multiset<std::string> contents;
        for (const auto& entry : fs::recursive_directory_iterator(directory))
            if (entry.is_regular_file())
                contents.insert(BytesOf(entry.path()));
        return contents;
    }
    using Files = std::multiset<std::string>;
    static void ExpectSameContents(const Files& a, const Files& b)
    {
        EXPECT_EQ(a.size(), b.size());
        for (const std::string& content : a)
            EXPECT_TRUE(b.contains(content)) << content.substr(0, 500);
        for (const std::string& content : b)
            EXPECT_TRUE(a.contains(content)) << content.substr(0, 500);
    }
    // With what its log holds.
    std::uintmax_t StoreSize(const std::string& mailbox) const
    {
        std::uintmax_t size = 0;
        for (const auto& entry : fs::directory_iterator(Path(mailbox)))
            if (entry.path().filename().string().starts_with("store.sqlite"))
                size += entry.file_size();
        return size;
    }
    static std::multiset<std::string> SampleContents()
    {
        std::multiset<std::string> contents;
        for (const auto& entry : fs::directory_iterator(Samples()))
            if (entry.path().extension() == ".eml")
                contents.insert(BytesOf(entry.path()));
        return contents;
    }
};

TEST_F(MailFilesTest, WhatIsImportedIsExportedToTheByte)
{
    Import({Samples().string()});
    Export("out");
    ExpectSameContents(Contents(Path("out")), SampleContents());
}

TEST_F(MailFilesTest, WithoutOriginalsMailIsMadeAnewAndTakesLessRoom)
{
    const std::uintmax_t empty = StoreSize("a");
    Import({Samples().string(), "--no-original"}, "Without");
    const std::uintmax_t without = StoreSize("a");
    Import({Samples().string()});
    EXPECT_GT(StoreSize("a") - without, (without - empty) * 5 / 4);
    EXPECT_EQ(Items("a", "In")[0]["subject"], Items("a", "Without")[0]["subject"]);
    MustRun({"export", Mailbox("a"), "Without", Path("out").string()});
    const std::multiset<std::string> originals = SampleContents();
    for (const std::string& content : Contents(Path("out")))
        EXPECT_FALSE(originals.contains(content));
}

TEST_F(MailFilesTest, TheSizeOfAnItemLeavesOutItsOriginal)
{
    const auto sizes = [this](const std::string& folder) {
        std::multiset<std::uint64_t> found;
        for (const Json& item : Items("a", folder))
            found.insert(item["size"].get<std::uint64_t>());
        return found;
    };
    Import({Samples().string()});
    MustRun({"import", Mailbox("a"), "Plain", Samples().string(), "--no-original"});
    EXPECT_FALSE(sizes("In").empty());
    EXPECT_EQ(sizes("In"), sizes("Plain"));
}

TEST_F(MailFilesTest, AnEditedSubjectChangesNothingElse)
{
    std::ofstream(Path("1.eml"), std::ios::binary) << "Subject: one\nX-Odd:  kept\n\nbody  \n";
    Import({Path("1.eml").string()});
    MustRun({"edit", Mailbox("a"), "In", "1", "--subject", "another"});
    Export("out");
    EXPECT_EQ(Contents(Path("out")),
              std::multiset<std::string>{"Subject: another\nX-Odd:  kept\n\nbody  \n"});
}

TEST_F(MailFilesTest, AnImportOnceMoreBringsNothingNew)
{
    const std::size_t count = Import({Samples().string()})["imported"];
    const Json again = Import({Samples().string()});
    EXPECT_EQ(again["imported"], 0U);
    EXPECT_EQ(again["known"], count);
    EXPECT_EQ(Items("a", "In").size(), count);
    MustRun({"import", Mailbox("a"), "In", Samples().string(), "--again"});
    EXPECT_EQ(Items("a", "In").size(), 2 * count);
}

TEST_F(MailFilesTest, AMailThatLiesInAFileTwiceComesInTwiceAndNoMore)
{
    const std::string mail = "From a Mon Mar  3 08:14:09 2025\nSubject: 1\nMessage-ID: <1@x>\n\none\n\n";
    std::ofstream(Path("box"), std::ios::binary) << mail + mail;
    EXPECT_EQ(Import({Path("box").string()})["imported"], 2U);
    EXPECT_EQ(Import({Path("box").string()})["imported"], 0U);
}

TEST_F(MailFilesTest, AnotherMailOfTheSameMessageIdComesIn)
{
    std::ofstream(Path("1.eml"), std::ios::binary) << "Subject: 1\nMessage-ID: <1@x>\n\none\n";
    std::ofstream(Path("2.eml"), std::ios::binary) << "Subject: 1\nMessage-ID: <1@x>\n\ntwo\n";
    Import({Path("1.eml").string()});
    EXPECT_EQ(Import({Path("2.eml").string()})["imported"], 1U);
    MustRun({"edit", Mailbox("a"), "In", "1", "--subject", "edited here"});
    EXPECT_EQ(Import({Path("1.eml").string(), Path("2.eml").string()})["imported"], 0U);
}

TEST_F(MailFilesTest, MailsWithoutMessageIdAndTimeAreKnownEachByItself)
{
    const std::string separator = "From a Mon Mar  3 08:14:09 2025\n";
    const std::string one = separator + "Subject: 1\n\none\n\n";
    const std::string two = separator + "Subject: 1\n\ntwo\n\n";
    std::ofstream(Path("box"), std::ios::binary) << one + two + one;
    EXPECT_EQ(Import({Path("box").string()})["imported"], 3U);
    MustRun({"edit", Mailbox("a"), "In", "1", "--subject", "edited here"});
    MustRun({"edit", Mailbox("a"), "In", "2", "--subject", "edited here"});
    std::ofstream(Path("more"), std::ios::binary) << two + one + one + one + two;
    const Json more = Import({Path("more").string()});
    EXPECT_EQ(more["known"], 3U);
    EXPECT_EQ(more["imported"], 2U);
}

TEST_F(MailFilesTest, AnImportThatWasKilledIsFinishedByRunningItOnceMore)
{
    std::ofstream box(Path("box"), std::ios::binary);
    constexpr std::size_t kMails = 1500;
    for (std::size_t i = 0; i < kMails; ++i)
        box << "From a Mon Mar  3 08:14:09 2025\nSubject: " << i << "\nMessage-ID: <" << i
            << "@x>\n\nbody\n\n";
    box.close();
    {
        Process process = Start({"import", Mailbox("a"), "In", Path("box").string()});
        ASSERT_TRUE(Eventually([&] {
            const Outcome outcome = Run({"list", Mailbox("a"), "In", "--json"});
            return outcome.exitCode == 0 && outcome.Value().size() > 10;
        }));
        process.Signal(SIGKILL);
        process.Wait();
    }
    MustRun({"import", Mailbox("a"), "In", Path("box").string()});
    std::set<std::string> subjects;
    for (const Json& item : Items("a", "In"))
        EXPECT_TRUE(subjects.insert(item["subject"]).second);
    EXPECT_EQ(subjects.size(), kMails);
}

TEST_F(MailFilesTest, AnItemIsMarkedAndShownAsMarked)
{
    std::ofstream(Path("1.eml"), std::ios::binary) << "Subject: one\n\nbody\n";
    Import({Path("1.eml").string()});
    const auto marks = [](const Json& item) {
        std::string text;
        for (const char* const mark : {"read", "flagged", "answered", "forwarded", "draft", "forDeletion"})
            text += item.at(mark).get<bool>() ? '1' : '0';
        return text;
    };
    const auto listed = [&] { return MustRun({"list", Mailbox("a"), "In", "--json"}).Value().at(0); };
    const auto edited = [&](std::vector<std::string> options) {
        std::vector<std::string> arguments{"edit", Mailbox("a"), "In", "1", "--json"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return marks(MustRun(arguments).Value());
    };
    EXPECT_EQ(edited({"--unread"}), "000000");
    EXPECT_EQ(edited({"--read", "--flag"}), "110000");
    EXPECT_EQ(edited({"--unread", "--answered", "--forwarded"}), "011100");
    EXPECT_EQ(edited({"--unflag", "--subject", "two"}), "001100");
    EXPECT_EQ(edited({"--read", "--for-deletion"}), "101101");
    EXPECT_EQ(edited({"--draft", "--not-for-deletion"}), "101110");
    EXPECT_EQ(edited({"--no-draft"}), "101100");
    EXPECT_EQ(marks(listed()), "101100");
    EXPECT_EQ(listed().at("subject"), "two");
    EXPECT_EQ(marks(MustRun({"show", Mailbox("a"), "In", "1", "--json"}).Value()), "101100");
    EXPECT_NE(MustRun({"show", Mailbox("a"), "In", "1"}).output.find("Marked: read, answered, forwarded\n"),
              std::string::npos);
    EXPECT_NE(MustRun({"list", Mailbox("a"), "In"}).output.find("R-<>"), std::string::npos);
    EXPECT_EQ(Run({"edit", Mailbox("a"), "In", "1", "--read", "--unread"}).exitCode, 2);
    EXPECT_EQ(Run({"edit", Mailbox("a"), "In", "1"}).exitCode, 2);
}

TEST_F(MailFilesTest, OfSeveralPathsNothingComesInWhereOneLeadsNowhere)
{
    Import({Sample("01-plain").string()});
    const Outcome outcome = Run({"import", Mailbox("a"), "In", Samples().string(), Path("nowhere").string()});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.errors.find("nowhere"), std::string::npos) << outcome.errors;
    EXPECT_EQ(Items("a", "In").size(), 1U);
    EXPECT_EQ(Run({"import", Mailbox("a"), "New", Samples().string(), Path("nowhere").string()}).exitCode, 1);
    EXPECT_EQ(Run({"list", Mailbox("a"), "New"}).exitCode, 1) << "the folder isn't made either";
}

TEST_F(MailFilesTest, WhatMayBeMoreThanOneMailIsNamed)
{
    std::ofstream(Path("box"), std::ios::binary)
        << "From a Mon Mar  3 08:14:09 2025\nSubject: 1\n\none\nFrom the pier\nSubject: 2\n\ntwo\n";
    const Json imported = Import({Path("box").string()});
    EXPECT_EQ(imported["imported"], 1U);
    ASSERT_EQ(imported["doubts"].size(), 1U);
    EXPECT_EQ(imported["doubts"][0]["source"], Path("box").string() + " #1");
}

TEST_F(MailFilesTest, MboxAndMaildirComeInAgainAsTheyWentOut)
{
    const std::size_t count = Import({Samples().string()})["imported"];
    MustRun({"edit", Mailbox("a"), "In", "1", "--unread"});
    const Json mbox = Export("box", {"--format", "mbox"});
    ASSERT_EQ(mbox["files"].size(), 1U);
    EXPECT_EQ(mbox["files"][0], (Path("box") / "In.mbox").string());
    Export("dir", {"--format", "maildir"});
    ExpectSameContents(Contents(Path("dir")), SampleContents());
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("dir") / "new"), {}), 1);
    for (const char* const path : {"box", "dir"}) {
        const Json again = Import({Path(path).string()});
        EXPECT_EQ(again["known"], count) << path << again;
    }
}

TEST_F(MailFilesTest, AnExportReplacesNothingAndFollowsNoLink)
{
    std::ofstream(Path("1.eml"), std::ios::binary) << "Subject: one\n\nbody\n";
    Import({Path("1.eml").string()});
    fs::create_directory(Path("out"));
    std::ofstream(Path("mine")) << "mine";
    fs::create_symlink(Path("mine"), Path("out") / "0001-one.eml");
    EXPECT_EQ(Run({"export", Mailbox("a"), "In", Path("out").string()}).exitCode, 1);
    EXPECT_EQ(BytesOf(Path("mine")), "mine");
    fs::remove(Path("out") / "0001-one.eml");
    std::ofstream(Path("out") / "0001-one.eml") << "mine";
    EXPECT_EQ(Run({"export", Mailbox("a"), "In", Path("out").string()}).exitCode, 1);
    EXPECT_EQ(Contents(Path("out")), std::multiset<std::string>{"mine"}) << "nothing is left aside";
    fs::remove(Path("out") / "0001-one.eml");
    for (const char* const format : {"eml", "mbox", "maildir"}) {
        Export("out", {"--format", format});
        const std::multiset<std::string> first = Contents(Path("out"));
        Export("out", {"--format", format});
        EXPECT_EQ(Contents(Path("out")), first) << "an export that was stopped goes on: " << format;
    }
    Export("out", {"--format", "msg"});
    const std::multiset<std::string> first = Contents(Path("out"));
    EXPECT_EQ(Run({"export", Mailbox("a"), "In", Path("out").string(), "--format", "msg"}).exitCode, 1)
        << "each .msg file differs";
    EXPECT_EQ(Contents(Path("out")), first);
}

TEST_F(MailFilesTest, AFolderOfAMaildirThatIsALinkIsRefused)
{
    Import({Samples().string()});
    fs::create_directory(Path("elsewhere"));
    fs::create_directory(Path("out"));
    fs::create_directory_symlink(Path("elsewhere"), Path("out") / "cur");
    EXPECT_EQ(Run({"export", Mailbox("a"), "In", Path("out").string(), "--format", "maildir"}).exitCode, 1);
    EXPECT_TRUE(fs::is_empty(Path("elsewhere")));
}

TEST_F(MailFilesTest, TheStandardInputIsRead)
{
    std::ofstream(Path("box"), std::ios::binary)
        << "From a Mon Mar  3 08:14:09 2025\nSubject: 1\n\none\n\nFrom a Mon Mar  3 08:14:09 2025\nSubject: "
           "2\n\ntwo\n";
    const std::string command = "'" + TestedProgram().command.back() + "' import '" + Mailbox("a") +
                                "' In - < '" + Path("box").string() + "' > '" + Path("said").string() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(Items("a", "In").size(), 2U);
    EXPECT_TRUE(fs::is_empty(Path("a") / "packages"));
}

}  // namespace

}  // namespace quorvane::test
