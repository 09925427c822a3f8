// The user's directories by the variables that name them, errno and the standard output: all of them POSIX's
// own.
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/file/console.h"
#include "platform/file/path.h"
#include "platform/file/system_error.h"
#include "platform/file/temp_directory_for_test.h"

namespace quorvane {
namespace {

TEST(UserDirectoryTest, TheEnvironmentNamesTheUsersDirectories)
{
    const EnvironmentForTest data("XDG_DATA_HOME", "/d");
    const EnvironmentForTest config("XDG_CONFIG_HOME", "/c");
    const EnvironmentForTest temporary("TMPDIR", "/t");
    std::string path;

    EXPECT_EQ(LocalAppDataDirectory(path), S_OK);
    EXPECT_EQ(path, "/d");
    EXPECT_EQ(ConfigDirectory(path), S_OK);
    EXPECT_EQ(path, "/c");
    EXPECT_EQ(TempDirectory(path), S_OK);
    EXPECT_EQ(path, "/t/");
}

TEST(UserDirectoryTest, WithoutItTheyAreBelowTheHomeDirectory)
{
    const EnvironmentForTest data("XDG_DATA_HOME", nullptr);
    const EnvironmentForTest config("XDG_CONFIG_HOME", "relative");
    const EnvironmentForTest home("HOME", "/h");
    const EnvironmentForTest temporary("TMPDIR", nullptr);
    std::string path;

    EXPECT_EQ(LocalAppDataDirectory(path), S_OK);
    EXPECT_EQ(path, "/h/.local/share");
    EXPECT_EQ(ConfigDirectory(path), S_OK);
    EXPECT_EQ(path, "/h/.config");
    EXPECT_EQ(TempDirectory(path), S_OK);
    EXPECT_EQ(path, "/tmp/");
}

TEST(SystemErrorTest, ErrorsKeepTheirMeaning)
{
    EXPECT_EQ(Win32FromErrno(ENOENT), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(Win32FromErrno(ENOSPC), DWORD{ERROR_DISK_FULL});
    EXPECT_EQ(Win32FromErrno(0), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(Win32FromErrno(123456), DWORD{ERROR_GEN_FAILURE});
    errno = EACCES;
    EXPECT_EQ(LastSystemError(), E_ACCESSDENIED);
    errno = 0;
    EXPECT_TRUE(FAILED(LastSystemError()));
    EXPECT_NE(SystemErrorText(ERROR_FILE_NOT_FOUND).find("No such file"), std::string::npos);
    EXPECT_EQ(SystemErrorText(9999), "Error 9999");
}

TEST(ConsoleTest, OnlyAnOpenConsoleWrites)
{
    testing::internal::CaptureStdout();
    {
        Console console;
        console.Write("before ");
        console.Open();
        console.Write("open ");
        console.Close();
        console.Write("after ");
    }

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "open ");
}

}  // namespace
}  // namespace quorvane
