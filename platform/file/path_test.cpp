#include "platform/file/path.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/file/console.h"
#include "platform/file/file.h"
#include "platform/file/system_error.h"
#include "platform/file/temp_directory_for_test.h"
#include "platform/file/temp_file.h"

namespace quorvane {
namespace {

constexpr HRESULT Win32(DWORD code)
{
    return HRESULT_FROM_WIN32(code);
}

TEST(PathTest, PathsAreJoinedAndTakenApart)
{
    EXPECT_EQ(JoinPath("/a", "b"), "/a/b");
    EXPECT_EQ(JoinPath("/a/", "b"), "/a/b");
    EXPECT_EQ(JoinPath("", "b"), "b");
    EXPECT_EQ(DirectoryOf("/a/b"), "/a");
    EXPECT_EQ(DirectoryOf("/b"), "/");
    EXPECT_EQ(DirectoryOf("b"), "");
    EXPECT_EQ(FileNameOf("/a/b.c"), "b.c");
    EXPECT_EQ(FileNameOf("/a/"), "");
    EXPECT_EQ(BaseNameOf("/a.d/mail.old.qdb"), "mail.old");
    EXPECT_EQ(BaseNameOf("/a.d/mail"), "mail");
    EXPECT_EQ(BaseNameOf(".hidden"), ".hidden");
}

TEST(PathTest, APlainNameLeavesItsDirectoryOnNoPlatform)
{
    EXPECT_TRUE(IsPlainFileName("{12}.dat"));
    EXPECT_TRUE(IsPlainFileName("..a"));
    for (const std::string_view name :
         {std::string_view(""), std::string_view("."), std::string_view(".."), std::string_view("a/b"),
          std::string_view("..\\b"), std::string_view("c:"), std::string_view("a\0b", 3)})
        EXPECT_FALSE(IsPlainFileName(name)) << name;
    EXPECT_TRUE(IsPlainFileName(std::string(255, 'x')));
    EXPECT_FALSE(IsPlainFileName(std::string(256, 'x')));
}

class TreeTest : public testing::Test {
protected:
    std::string Path(std::string_view name) const { return JoinPath(directory.Path(), name); }
    void Write(std::string_view name, std::string_view contents = "x") const
    {
        ASSERT_EQ(ReplaceWholeFile(Path(name), contents), S_OK);
    }

    const TempDirectoryForTest directory;
};

TEST_F(TreeTest, DirectoriesAreMadeWithThoseAbove)
{
    EXPECT_EQ(MakeDirectories(Path("a/b/c")), S_OK);
    EXPECT_EQ(MakeDirectories(Path("a/b/c")), S_FALSE);
    EXPECT_EQ(MakeDirectories(Path("a/d/")), S_OK);
    EXPECT_EQ(MakeDirectories(""), Win32(ERROR_INVALID_NAME));

    PathStatus status{};
    EXPECT_EQ(GetPathStatus(Path("a/b/c"), status), S_OK);
    EXPECT_TRUE(status.isDirectory);
    EXPECT_TRUE(PathExists(Path("a/d")));
}

TEST_F(TreeTest, AFileInTheWayOfADirectoryIsTold)
{
    Write("file");

    EXPECT_EQ(MakeDirectories(Path("file")), Win32(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(MakeDirectories(Path("file/below")), Win32(ERROR_ALREADY_EXISTS));
}

TEST_F(TreeTest, AFilesStatusIsItsSizeAndTime)
{
    Write("file", "12345");
    PathStatus status{};

    EXPECT_EQ(GetPathStatus(Path("file"), status), S_OK);

    EXPECT_FALSE(status.isDirectory);
    EXPECT_EQ(status.size, 5u);
    SYSTEMTIME time{};
    ASSERT_TRUE(FileTimeToSystemTime(&status.modified, &time));
    EXPECT_GE(time.wYear, 2020);
    EXPECT_EQ(GetPathStatus(Path("none"), status), Win32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(GetPathStatus(Path("none/none"), status), Win32(ERROR_PATH_NOT_FOUND));
}

TEST_F(TreeTest, FilesAndEmptyDirectoriesAreRemoved)
{
    Write("file");
    ASSERT_EQ(MakeDirectories(Path("d/e")), S_OK);

    EXPECT_EQ(RemoveFile(Path("file")), S_OK);
    EXPECT_EQ(RemoveFile(Path("file")), Win32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(RemoveEmptyDirectory(Path("d")), Win32(ERROR_DIR_NOT_EMPTY));
    EXPECT_EQ(RemoveEmptyDirectory(Path("d/e")), S_OK);
    EXPECT_FALSE(PathExists(Path("d/e")));
}

TEST_F(TreeTest, RenamingPutsAFileInPlaceOfAnother)
{
    Write("new", "new");
    Write("old", "old");

    EXPECT_EQ(RenameOver(Path("new"), Path("old")), S_OK);
    EXPECT_EQ(SyncDirectory(directory.Path()), S_OK);

    std::string contents;
    EXPECT_EQ(ReadWholeFile(Path("old"), 10, contents), S_OK);
    EXPECT_EQ(contents, "new");
    EXPECT_FALSE(PathExists(Path("new")));
    EXPECT_EQ(RenameOver(Path("new"), Path("old")), Win32(ERROR_FILE_NOT_FOUND));
}

TEST_F(TreeTest, ADirectoryIsListedInOrder)
{
    Write("b");
    Write("a");
    std::vector<std::string> names;

    EXPECT_EQ(ListDirectory(directory.Path(), names), S_OK);

    EXPECT_EQ(names, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(ListDirectory(Path("none"), names), Win32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(names.size(), 2u);
}

TEST_F(TreeTest, ATemporaryNameIsThreeLettersFourDigitsAndTmp)
{
    std::string path;

    ASSERT_EQ(MakeTempFileName(directory.Path(), "QVTX", path), S_OK);

    const std::string_view name = FileNameOf(path);
    ASSERT_EQ(name.size(), 11u);
    EXPECT_EQ(name.substr(0, 3), "QVT");
    EXPECT_EQ(name.substr(3, 4).find_first_not_of("0123456789ABCDEF"), std::string_view::npos);
    EXPECT_EQ(name.substr(7), ".tmp");
    EXPECT_TRUE(PathExists(path));
}

TEST_F(TreeTest, TemporaryNamesNeverMeet)
{
    std::vector<std::string> paths(50);
    for (std::string& path : paths)
        ASSERT_EQ(MakeTempFileName(directory.Path(), "qv", path), S_OK);
    std::vector<std::string> names;

    EXPECT_EQ(ListDirectory(directory.Path(), names), S_OK);
    EXPECT_EQ(names.size(), paths.size());
}

TEST_F(TreeTest, ATemporaryNameNeedsADirectoryAndAPlainPrefix)
{
    std::string path = "old";

    EXPECT_EQ(MakeTempFileName(Path("none"), "QVT", path), Win32(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(MakeTempFileName(directory.Path(), "../", path), Win32(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(path, "old");
}

TEST_F(TreeTest, ATemporaryFileGoesWithItsOwnerUnlessItIsLetGo)
{
    const EnvironmentForTest environment("TMPDIR", directory.Path().c_str());
    std::string removed;
    std::string kept;
    {
        TempFile first;
        TempFile second;
        ASSERT_EQ(first.Create("QVT"), S_OK);
        ASSERT_EQ(second.Create("QVT"), S_OK);
        removed = first.Path();
        kept = second.LetGo();
        EXPECT_EQ(DirectoryOf(removed), directory.Path());
    }

    EXPECT_FALSE(PathExists(removed));
    EXPECT_TRUE(PathExists(kept));
}

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

TEST_F(TreeTest, TheDebuggersTextGoesWhereTheEnvironmentSays)
{
    WriteToDebugger("nobody listens");
    const std::string path = Path("debug");
    const EnvironmentForTest environment("QUORVANE_DEBUG_OUTPUT", path.c_str());

    WriteToDebugger("one ");
    WriteToDebugger("two");

    std::string contents;
    EXPECT_EQ(ReadWholeFile(path, 100, contents), S_OK);
    EXPECT_EQ(contents, "one two");
}

}  // namespace
}  // namespace quorvane
