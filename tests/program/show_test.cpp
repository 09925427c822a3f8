// `show`: an item on the terminal, in the user's viewer, and in a form.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

constexpr char kForms[] = "HKEY_CURRENT_USER\\Software\\Brindlemoor\\Quorvane\\Message Store\\Forms";

class ShowTest : public ProgramTest {
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        MakeMailboxes({"a"});
    }

    void Import(const std::string& sample)
    {
        MustRun({"import", Mailbox("a"), "In", Sample(sample).string()});
    }

    // Values of the mailbox's registry, as lines of its file.
    void PutForms(const std::string& messageClass, const std::string& lines)
    {
        std::ofstream file(Path("a") / "settings" / "quorvane3" / "registry.reg", std::ios::app);
        file << "\r\n[" << kForms << (messageClass.empty() ? "" : "\\" + messageClass) << "]\r\n" << lines;
    }
    // A viewer that leaves a copy of what it is given, and of the variables that it sees.
    void PutViewer(bool wait)
    {
        const std::string viewer = Path("viewer").string();
        std::ofstream(viewer) << "#!/bin/sh\nenv > " << Path("environment").string() << "\ncp \"$1\" "
                              << Path("seen.tmp").string() << "\nstat -c %a \"$1\" > "
                              << Path("rights").string() << "\nmv " << Path("seen.tmp").string() << " "
                              << Path("seen.eml").string() << "\n";
        std::filesystem::permissions(viewer, std::filesystem::perms::owner_all);
        PutForms("", "\"Viewer\"=\"" + viewer + "\"\r\n" + (wait ? "\"Wait\"=dword:00000001\r\n" : ""));
    }
    std::string Read(const std::string& name) const
    {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
};

TEST_F(ShowTest, AnItemIsPrinted)
{
    Import("01-plain");

    const Outcome outcome = MustRun({"show", Mailbox("a"), "In", "1"});

    const Json item = MustRun({"show", Mailbox("a"), "In", "1", "--json"}).Value();
    EXPECT_TRUE(outcome.output.starts_with("Subject: " + item["subject"].get<std::string>() + "\nFrom: "))
        << outcome.output;
    EXPECT_NE(outcome.output.find("\nTo: "), std::string::npos);
    EXPECT_NE(outcome.output.find("\n\n"), std::string::npos);
    EXPECT_EQ(item["entryId"], Items("a", "In").at(0).at("entryId"));
    EXPECT_EQ(item["class"], "IPM.Note");
    EXPECT_FALSE(item["body"].get<std::string>().empty());
}

TEST_F(ShowTest, ABodyThatIsNoTextIsNotPassedOverInSilence)
{
    Import("40-japanese-shift-jis");

    const Outcome outcome = MustRun({"show", Mailbox("a"), "In", "1"});

    EXPECT_TRUE(outcome.output.ends_with("\n\n(its text is HTML alone: --form shows it)\n"))
        << outcome.output;
}

TEST_F(ShowTest, AttachmentsAreNamed)
{
    Import("07-attachment-csv");

    const Json item = MustRun({"show", Mailbox("a"), "In", "1", "--json"}).Value();

    ASSERT_EQ(item["attachments"].size(), 1u);
    EXPECT_NE(MustRun({"show", Mailbox("a"), "In", "1"})
                  .output.find("Attachment: " + item["attachments"][0]["name"].get<std::string>()),
              std::string::npos);
}

TEST_F(ShowTest, TheViewerOfTheRegistryShowsTheItem)
{
    Import("06-text-html-images-pdf");
    PutViewer(true);
    setenv("XDG_DATA_HOME", Path("own data").c_str(), 1);
    unsetenv("TMPDIR");

    const Outcome outcome = MustRun({"show", Mailbox("a"), "In", "1", "--form", "--json"});

    unsetenv("XDG_DATA_HOME");
    EXPECT_EQ(outcome.Value().at("shown"), Items("a", "In").at(0).at("entryId"));
    EXPECT_EQ(Read("rights"), "600\n");
    const std::string environment = Read("environment");
    EXPECT_NE(environment.find("XDG_DATA_HOME=" + Path("own data").string() + "\n"), std::string::npos)
        << "the user's own, and not the mailbox's";
    EXPECT_EQ(environment.find("TMPDIR="), std::string::npos);
    // What it saw is mail: the program takes it in, with all that a reader shows.
    MustRun({"import", Mailbox("a"), "Copy", Path("seen.eml").string()});
    const Json item = MustRun({"show", Mailbox("a"), "In", "1", "--json"}).Value();
    const Json copy = MustRun({"show", Mailbox("a"), "Copy", "1", "--json"}).Value();
    for (const char* field : {"subject", "sender", "date", "recipients", "body"})
        EXPECT_EQ(item.at(field), copy.at(field)) << field;
    const auto names = [](const Json& shown) {
        std::vector<std::string> all;
        for (const Json& attachment : shown.at("attachments"))
            all.push_back(attachment.at("name"));
        std::sort(all.begin(), all.end());
        return all;
    };
    EXPECT_EQ(names(item), names(copy));
}

TEST_F(ShowTest, AViewerGoesOnWhenTheProgramHasEnded)
{
    Import("01-plain");
    PutViewer(false);

    MustRun({"show", Mailbox("a"), "In", "1", "--form"});

    EXPECT_TRUE(Eventually([&] { return std::filesystem::exists(Path("seen.eml")); }));
}

TEST_F(ShowTest, AViewerMayBeTheStandardOutput)
{
    Import("01-plain");
    PutForms("IPM.Note", "\"Viewer\"=\"-\"\r\n");

    const Outcome outcome = MustRun({"show", Mailbox("a"), "In", "1", "--form"});

    EXPECT_TRUE(outcome.output.starts_with("From: ")) << outcome.output;
    EXPECT_NE(outcome.output.find("\nSubject: "), std::string::npos);
}

TEST_F(ShowTest, AViewerThatIsNotThereIsAnError)
{
    Import("01-plain");
    PutForms("", "\"Viewer\"=\"no-such-program-anywhere\"\r\n");

    const Outcome outcome = Run({"show", Mailbox("a"), "In", "1", "--form"});

    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.errors.find("cannot show the item '1'"), std::string::npos) << outcome.errors;
}

TEST_F(ShowTest, ShowingChangesNothing)
{
    Import("01-plain");
    PutForms("", "\"Viewer\"=\"-\"\r\n");
    const auto before = Items("a", "In");

    MustRun({"show", Mailbox("a"), "In", "1", "--form"});

    EXPECT_EQ(Items("a", "In"), before);
    EXPECT_FALSE(std::filesystem::exists(Path("a") / "qvdata")) << "the folder isn't watched";
    EXPECT_TRUE(std::filesystem::is_empty(Path("a") / "packages"));
}

TEST_F(ShowTest, AnItemThatIsNotThereIsNamed)
{
    Import("01-plain");

    for (const char* item : {"2", "nobody's"}) {
        const Outcome outcome = Run({"show", Mailbox("a"), "In", item});
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_NE(outcome.errors.find(item), std::string::npos) << outcome.errors;
    }
}

}  // namespace

}  // namespace quorvane::test
