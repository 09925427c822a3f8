// A script host, which knows the library by its program identifiers alone.
#include <gtest/gtest.h>

#include <fstream>

#include "platform/testing/form/test_form.h"
#include "platform/testing/surroundings.h"
#include "tests/support/test_mailbox.h"
#include "tests/windows/object_model_page.h"
#include "tests/windows/server.h"

namespace quorvane::test {
namespace {

class ScriptTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(RunRegsvr32ToUnregister(), 0u); }

    // Runs one of the scripts beside this file.
    static ProgramResult Run(const OleString& name, const OleString& arguments = L"",
                             const char* directory = QUORVANE_SCRIPTS)
    {
        return RunProgram(L"cscript.exe //nologo \"" + FromUtf8(directory) + L"\\" + name + L"\" " +
                          arguments);
    }

    // The lines of an output, whichever line ends it has.
    static std::vector<std::string> LinesOf(const ProgramResult& result)
    {
        std::vector<std::string> lines;
        std::string line;
        for (const char c : result.output) {
            if (c == '\n')
                lines.push_back(std::exchange(line, {}));
            else if (c != '\r')
                line += c;
        }
        return lines;
    }
};

TEST_F(ScriptTest, MakesTheLibraryAndIsToldToLogInFirst)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    for (const OleString programId : {L"quorvane3.Library", L"quorvane3.Library.1"}) {
        const ProgramResult result = Run(L"library.js", programId);

        const std::vector<std::string> expected = {"Session: Please login first.", "ForceLogoff: done",
                                                   "Test: done"};
        EXPECT_EQ(LinesOf(result), expected);
        EXPECT_EQ(result.exitCode, 0u);
    }
}

TEST_F(ScriptTest, MakesNothingOfALibraryThatIsNotRegistered)
{
    const ProgramResult result = Run(L"library.js", L"quorvane3.Library");

    EXPECT_EQ(result.exitCode, 3u);
    EXPECT_TRUE(LinesOf(result).empty());
}

TEST_F(ScriptTest, ReadsAndWritesPropertiesByName)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    const ProgramResult result = Run(L"properties.js");

    const std::vector<std::string> expected = {"ID: {5A}",  "UnRead: true", "Action: 20",
                                               "Value: 42", "locked: true", "unlocked: false"};
    EXPECT_EQ(LinesOf(result), expected);
    EXPECT_EQ(result.exitCode, 0u);
}

// A class of the tests' own in the registry of classes, for the length of a test.
class RegisteredClass {
public:
    RegisteredClass(const OleString& programId, const OleString& clsid, const OleString& server)
        : keys_{programId, L"CLSID\\" + clsid}
    {
        Put(programId + L"\\CLSID", L"", clsid);
        Put(keys_[1] + L"\\InprocServer32", L"", server);
        Put(keys_[1] + L"\\InprocServer32", L"ThreadingModel", L"Apartment");
    }
    RegisteredClass(const RegisteredClass&) = delete;
    RegisteredClass& operator=(const RegisteredClass&) = delete;
    ~RegisteredClass()
    {
        for (const OleString& key : keys_)
            RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
    }

private:
    static void Put(const OleString& key, const OleString& name, const OleString& text)
    {
        EXPECT_EQ(
            RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), name.empty() ? nullptr : name.c_str(), REG_SZ,
                            text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR))),
            ERROR_SUCCESS);
    }

    const OleString keys_[2];
};

TEST_F(ScriptTest, ShowsAMessageInAFormOfTheTestsOwn)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    const OleString server = ServerPath();
    const RegisteredClass host(L"QuorvaneTests.Host", L"{6D1A5E0B-93C4-4F7A-8B52-C0E97A3D4F18}",
                               server.substr(0, server.find_last_of(L'\\') + 1) + L"qv_script_host.dll");
    const TestMailbox mailbox;
    const TestFolder folder = mailbox.MakeFolder("Shared");
    const std::string mail = folder.Add("Subject", "Body");
    RegisterTestForm(ContentsOf(*folder.Open(mail)).messageClass);
    const std::string log = (mailbox.Directory() / "form.log").string();
    SetVariable("QUORVANE_TEST_FORM_LOG", log.c_str());
    SetVariable("QUORVANE_TEST_FORM_CLOSES", "1");
    SetVariable("QUORVANE_TEST_SETTINGS", SettingsAreKeptIn().string().c_str());
    SetVariable("QUORVANE_TEST_DATABASE", mailbox.DatabasePath().string().c_str());

    const ProgramResult result =
        Run(L"display.js", Widen(folder.EntryId() + " " + folder.StoreId() + " " + mail));

    const std::vector<std::string> expected = {"of a folder that isn't shared: 3", "displayed: {5B}"};
    EXPECT_EQ(LinesOf(result), expected);
    EXPECT_EQ(result.exitCode, 0u);
    std::ifstream calls(log);
    std::string all;
    for (std::string line; std::getline(calls, line);)
        all += line.substr(0, line.find('\r')) + ";";
    EXPECT_TRUE(all.starts_with("Load 0 ")) << all;
    EXPECT_TRUE(all.ends_with(";SetViewContext;Advise;DoVerb 0;Unadvise;")) << all;
    for (const char* name : {"QUORVANE_TEST_FORM_LOG", "QUORVANE_TEST_FORM_CLOSES", "QUORVANE_TEST_SETTINGS",
                             "QUORVANE_TEST_DATABASE"})
        SetVariable(name, nullptr);
}

TEST_F(ScriptTest, TheSamplesScriptSharesAFolder)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    const OleString server = ServerPath();
    const RegisteredClass callbacks(
        L"QuorvaneSample.Callbacks", L"{E4C7A2D0-6B19-4F35-9D88-1A5F3C7E2B64}",
        server.substr(0, server.find_last_of(L'\\') + 1) + L"qv_sample_callbacks.dll");
    const TestMailbox mailbox;
    const TestFolder folder = mailbox.MakeFolder("Notes");
    SetVariable("QUORVANE_TEST_SETTINGS", SettingsAreKeptIn().string().c_str());
    SetVariable("QUORVANE_SAMPLE_DATABASE", mailbox.DatabasePath().string().c_str());

    const ProgramResult result =
        Run(L"host.js", Widen(folder.EntryId() + " " + folder.StoreId() + " notes"), QUORVANE_SAMPLE_SCRIPTS);

    const std::vector<std::string> expected = {"shared: notes", "package for bob: it is there"};
    EXPECT_EQ(LinesOf(result), expected);
    EXPECT_EQ(result.exitCode, 0u);
    for (const char* name : {"QUORVANE_TEST_SETTINGS", "QUORVANE_SAMPLE_DATABASE"})
        SetVariable(name, nullptr);
}

// It ends with its standard input.
TEST(FirstHostTest, TheOneOfTheGuideLogsOnToAMailbox)
{
    const TestMailbox mailbox;
    SetVariable("QUORVANE_TEST_SETTINGS", SettingsAreKeptIn().string().c_str());
    const OleString server = ServerPath();
    const OleString host = server.substr(0, server.find_last_of(L'\\') + 1) + L"qv_first_host.exe";
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::copy_file(mailbox.DatabasePath(), mailbox.Directory() / "sharing.db");
    std::filesystem::current_path(mailbox.Directory());

    const ProgramResult result = RunProgram(L"\"" + host + L"\"");

    std::filesystem::current_path(before);
    EXPECT_EQ(result.output, "") << mailbox.Log();
    EXPECT_EQ(result.exitCode, 0u);
    SetVariable("QUORVANE_TEST_SETTINGS", nullptr);
}

}  // namespace
}  // namespace quorvane::test
