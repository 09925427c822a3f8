#include "platform/file/path.h"

#include <gtest/gtest.h>

#include <regex>

#include "platform/file/console.h"
#include "platform/file/file.h"
#include "platform/file/temp_directory_for_test.h"
#include "platform/file/temp_file.h"
#include "platform/testing/debugger.h"

namespace quorvane {
namespace {

TEST(PathTest, PathsAreJoinedAndTakenApart)
{
    EXPECT_EQ(JoinPath("/a", "b"), std::string("/a") + PathSeparator() + "b");
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
    EXPECT_EQ(MakeDirectories(""), HRESULT_FROM_WIN32(ERROR_INVALID_NAME));

    PathStatus status{};
    EXPECT_EQ(GetPathStatus(Path("a/b/c"), status), S_OK);
    EXPECT_TRUE(status.isDirectory);
    EXPECT_TRUE(PathExists(Path("a/d")));
}

TEST_F(TreeTest, AFileInTheWayOfADirectoryIsTold)
{
    Write("file");

    EXPECT_EQ(MakeDirectories(Path("file")), HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(MakeDirectories(Path("file/below")), HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS));
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
    EXPECT_EQ(GetPathStatus(Path("none"), status), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(GetPathStatus(Path("none/none"), status), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
}

TEST_F(TreeTest, FilesAndEmptyDirectoriesAreRemoved)
{
    Write("file");
    ASSERT_EQ(MakeDirectories(Path("d/e")), S_OK);

    EXPECT_EQ(RemoveFile(Path("file")), S_OK);
    EXPECT_EQ(RemoveFile(Path("file")), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(RemoveEmptyDirectory(Path("d")), HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY));
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
    EXPECT_EQ(RenameOver(Path("new"), Path("old")), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
}

TEST_F(TreeTest, ADirectoryIsListedInOrder)
{
    Write("b");
    Write("a");
    std::vector<std::string> names;

    EXPECT_EQ(ListDirectory(directory.Path(), names), S_OK);

    EXPECT_EQ(names, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(ListDirectory(Path("none"), names), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(names.size(), 2u);
}

TEST_F(TreeTest, ATemporaryNameIsThreeLettersUpToFourDigitsAndTmp)
{
    std::string path;

    ASSERT_EQ(MakeTempFileName(directory.Path(), "QVTX", path), S_OK);

    const std::string name(FileNameOf(path));
    EXPECT_TRUE(std::regex_match(name, std::regex("QVT[0-9A-Fa-f]{1,4}\\.tmp"))) << name;
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

    EXPECT_EQ(MakeTempFileName(Path("none"), "QVT", path), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(MakeTempFileName(directory.Path(), "../", path), HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(path, "old");
}

TEST_F(TreeTest, ATemporaryFileGoesWithItsOwnerUnlessItIsLetGo)
{
    test::KeepTemporaryFilesIn(directory.Path());
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

    test::KeepTemporaryFilesIn({});
    EXPECT_FALSE(PathExists(removed));
    EXPECT_TRUE(PathExists(kept));
}

TEST_F(TreeTest, TheDebuggerGetsTheTextAsItIs)
{
    WriteToDebugger("nobody listens");
    const std::string path = Path("debug");
    {
        const test::DebuggerForTest debugger(path);
        WriteToDebugger("one ");
        WriteToDebugger("two");
    }
    WriteToDebugger("nobody any more");

    std::string contents;
    EXPECT_EQ(ReadWholeFile(path, 100, contents), S_OK);
    EXPECT_EQ(contents, "one two");
}

TEST(UserDirectoryTest, TheUsersDirectoriesAreWhereTheSystemSays)
{
    const TempDirectoryForTest directory;
    const std::string data = JoinPath(directory.Path(), "data");
    const std::string settings = JoinPath(directory.Path(), "settings");
    test::KeepSettingsIn(settings);
    test::KeepDataIn(data);
    test::KeepTemporaryFilesIn(directory.Path());
    std::string path;

    EXPECT_EQ(LocalAppDataDirectory(path), S_OK);
    EXPECT_EQ(path, data);
    EXPECT_EQ(ConfigDirectory(path), S_OK);
    EXPECT_EQ(path, settings);
    EXPECT_EQ(TempDirectory(path), S_OK);
    EXPECT_EQ(path, directory.Path() + PathSeparator());

    test::KeepSettingsIn({});
    test::KeepDataIn({});
    test::KeepTemporaryFilesIn({});
}

}  // namespace
}  // namespace quorvane
