#include "platform/desktop/desktop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "platform/testing/test_directory.h"

namespace quorvane {
namespace {

class OpenFileWithTest : public testing::Test {
protected:
    // A program of the shell's.
    std::string Program(const std::string& script)
    {
        const std::string path = directory.File("program");
        std::ofstream(path) << "#!/bin/sh\n" << script;
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }
    std::string Read(const std::string& name)
    {
        std::ifstream file(directory.File(name));
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    const test::TestDirectory directory;
};

TEST_F(OpenFileWithTest, TheProgramGetsTheFileAsItsOneArgument)
{
    const std::string out = directory.File("out");
    const std::string file = directory.File("a 'file' \"of\" $HOME.eml");

    EXPECT_EQ(OpenFileWith(Program("printf '%s|%s' $# \"$1\" > " + out), file, ProgramWait::End), S_OK);

    EXPECT_EQ(Read("out"), "1|" + file);
}

TEST_F(OpenFileWithTest, AProgramThatIsNotWaitedForGoesOnByItself)
{
    const std::string pipe = directory.File("pipe");
    ASSERT_EQ(std::system(("mkfifo " + pipe).c_str()), 0);

    EXPECT_EQ(OpenFileWith(Program("echo done > " + pipe), "x", ProgramWait::None), S_OK);

    EXPECT_EQ(Read("pipe"), "done\n") << "it waits for its reader, so it hadn't ended";
}

TEST_F(OpenFileWithTest, AProgramThatIsNotThereIsToldApart)
{
    EXPECT_EQ(OpenFileWith(directory.File("none"), "x", ProgramWait::None),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(OpenFileWith("no-such-program-anywhere", "x", ProgramWait::End),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(OpenFileWith("", "x", ProgramWait::End), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(OpenFileWith(directory.Path().string(), "x", ProgramWait::End),
              HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
}

TEST_F(OpenFileWithTest, TheProgramsEnvironmentIsTheUsersOwn)
{
    const std::string out = directory.File("out");
    test::SetVariable("QUORVANE_SETTING_A", "ours");
    test::SetVariable("QUORVANE_SETTING_B", "ours");
    test::SetVariable("QUORVANE_SETTING_C", "anyone's");
    test::SetVariable("QUORVANE_USER_QUORVANE_SETTING_A", "the user's");
    test::SetVariable("QUORVANE_USER_QUORVANE_SETTING_B", "");

    EXPECT_EQ(
        OpenFileWith(Program("printf '%s|%s|%s|%s' \"$QUORVANE_SETTING_A\" \"${QUORVANE_SETTING_B-none}\" "
                             "\"$QUORVANE_SETTING_C\" \"${QUORVANE_USER_QUORVANE_SETTING_A-none}\" > " +
                             out),
                     "x", ProgramWait::End),
        S_OK);

    EXPECT_EQ(Read("out"), "the user's|none|anyone's|none");
    for (const char* name : {"QUORVANE_SETTING_A", "QUORVANE_SETTING_B", "QUORVANE_SETTING_C",
                             "QUORVANE_USER_QUORVANE_SETTING_A", "QUORVANE_USER_QUORVANE_SETTING_B"})
        test::SetVariable(name, nullptr);
}

TEST(DesktopTest, ThereIsNoActiveWindow)
{
    EXPECT_EQ(ActiveWindow(), 0u);
}

}  // namespace
}  // namespace quorvane
