// Stamps of files that others replace or write meanwhile.
#include <gtest/gtest.h>

#include "platform/file/file.h"
#include "platform/file/file_stamp.h"
#include "platform/file/path.h"
#include "platform/file/temp_directory_for_test.h"

namespace quorvane {
namespace {

class SharedFileStampTest : public testing::Test {
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

TEST_F(SharedFileStampTest, AFileInItsPlaceIsAnother)
{
    File file;
    Open(file);
    ASSERT_EQ(ReplaceWholeFile(Path(), ""), S_OK);
    FileStamp stamp;

    ASSERT_EQ(GetPathStamp(Path(), stamp), S_OK);

    EXPECT_FALSE(stamp.IsSameFile(StampOf(file)));
}

TEST_F(SharedFileStampTest, AnotherWriterIsSeenWhileItHasTheFileOpen)
{
    File file;
    Open(file);
    EXPECT_FALSE(file.IsWrittenByOthers());
    {
        File reader;
        ASSERT_EQ(reader.Open(Path(), FileAccess::Read, FileMode::OpenExisting), S_OK);
        EXPECT_FALSE(file.IsWrittenByOthers());
        File writer;
        Open(writer);
        EXPECT_TRUE(file.IsWrittenByOthers());
        EXPECT_TRUE(writer.IsWrittenByOthers());
    }
    EXPECT_FALSE(file.IsWrittenByOthers());
}

}  // namespace
}  // namespace quorvane
