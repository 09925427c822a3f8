#include "platform/file/file_stamp.h"

#include <gtest/gtest.h>

#include "platform/file/file.h"
#include "platform/file/path.h"
#include "platform/file/temp_directory_for_test.h"

namespace quorvane {
namespace {

class FileStampTest : public testing::Test {
protected:
    std::string Path(std::string_view name = "file") const { return JoinPath(directory.Path(), name); }

    void Open(File& file) const
    {
        ASSERT_EQ(file.Open(Path(), FileAccess::ReadWrite, FileMode::OpenAlways), S_OK);
    }
    static FileStamp StampOf(const File& file)
    {
        FileStamp stamp;
        EXPECT_EQ(file.GetStamp(stamp), S_OK);
        return stamp;
    }

    const TempDirectoryForTest directory;
};

TEST_F(FileStampTest, APathAndItsOpenFileHaveOneStamp)
{
    File file;
    Open(file);
    ASSERT_EQ(file.Write("hello", 5), S_OK);
    FileStamp stamp;

    ASSERT_EQ(GetPathStamp(Path(), stamp), S_OK);

    EXPECT_EQ(stamp, StampOf(file));
    EXPECT_EQ(stamp.size, 5u);
}

TEST_F(FileStampTest, AWriteByAnotherOpenerShows)
{
    File file;
    Open(file);
    const FileStamp before = StampOf(file);
    File other;
    Open(other);
    ASSERT_EQ(other.Write("x", 1), S_OK);

    EXPECT_NE(StampOf(file), before);
    EXPECT_TRUE(StampOf(file).IsSameFile(before));
}

TEST_F(FileStampTest, AWriteThatKeepsTheSizeShowsByItsTime)
{
    File file;
    Open(file);
    ASSERT_EQ(file.Write("x", 1), S_OK);
    const FileStamp before = StampOf(file);
    std::filesystem::last_write_time(Path(),
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(24));

    EXPECT_NE(StampOf(file), before);
}

TEST_F(FileStampTest, WhatIsMissingOrClosedHasNone)
{
    FileStamp stamp;
    stamp.size = 7;
    EXPECT_EQ(GetPathStamp(Path("none"), stamp), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(GetPathStamp(std::string("a\0b", 3), stamp), HRESULT_FROM_WIN32(ERROR_INVALID_NAME));
    EXPECT_EQ(File().GetStamp(stamp), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
    EXPECT_EQ(stamp.size, 7u);
}

}  // namespace
}  // namespace quorvane
