#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "platform/desktop/desktop.h"
#include "platform/testing/test_directory.h"

namespace quorvane {
namespace {

TEST(DesktopTest, AProgramWithoutWindowsHasNoActiveOne)
{
    EXPECT_EQ(ActiveWindow(), 0u);
}

TEST(OpenFileWithTest, TheProgramGetsTheFileAsItsOneArgument)
{
    const test::TestDirectory directory;
    const std::string program = directory.File("program.bat");
    std::ofstream(program) << "@echo off\r\necho %~1,%~2> \"" << directory.File("out") << "\"\r\n";

    EXPECT_EQ(OpenFileWith(program, "a file.eml", ProgramWait::End), S_OK);

    std::string line;
    std::ifstream out(directory.File("out"));
    std::getline(out, line);
    EXPECT_EQ(line.substr(0, 11), "a file.eml,");
}

TEST(OpenFileWithTest, AProgramThatIsNotThereIsToldApart)
{
    EXPECT_EQ(OpenFileWith("no-such-program-anywhere", "x", ProgramWait::End),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(OpenFileWith("a\" program", "x", ProgramWait::End), E_INVALIDARG);
    EXPECT_EQ(OpenFileWith("program", "x\" y", ProgramWait::End), E_INVALIDARG);
}

}  // namespace
}  // namespace quorvane
