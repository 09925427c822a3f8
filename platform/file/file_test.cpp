#include "platform/file/file.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/file/path.h"
#include "platform/file/temp_directory_for_test.h"

namespace quorvane {
namespace {

constexpr HRESULT Win32(DWORD code)
{
    return HRESULT_FROM_WIN32(code);
}

class FileTest : public testing::Test {
protected:
    std::string Path(std::string_view name = "file") const { return JoinPath(directory.Path(), name); }

    std::string Contents(const std::string& path) const
    {
        std::string contents;
        EXPECT_EQ(ReadWholeFile(path, 1 << 20, contents), S_OK);
        return contents;
    }

    // Whether a second opener gets in beside `first`.
    HRESULT OpenSecond(FileAccess access, FileShare share) const
    {
        File second;
        return second.Open(Path(), access, FileMode::OpenExisting, share);
    }

    const TempDirectoryForTest directory;
};

TEST_F(FileTest, WhatIsWrittenIsReadBackFromTheBeginning)
{
    File file;
    ASSERT_EQ(file.Open(Path(), FileAccess::ReadWrite, FileMode::CreateNew), S_OK);
    ASSERT_EQ(file.Write("hello", 5), S_OK);
    ASSERT_EQ(file.Seek(-4, SeekFrom::End), S_OK);
    char buffer[10];
    size_t read = 0;

    EXPECT_EQ(file.Read(buffer, sizeof(buffer), read), S_OK);
    EXPECT_EQ(std::string(buffer, read), "ello");
    EXPECT_EQ(file.Read(buffer, sizeof(buffer), read), S_OK);
    EXPECT_EQ(read, 0u);
}

TEST_F(FileTest, EachModeTreatsAPresentAndAMissingFileItsOwnWay)
{
    File file;
    EXPECT_EQ(file.Open(Path(), FileAccess::Write, FileMode::OpenExisting), Win32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(file.Open(Path(), FileAccess::Write, FileMode::TruncateExisting), Win32(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(file.IsOpen());
    ASSERT_EQ(file.Open(Path(), FileAccess::Write, FileMode::OpenAlways), S_OK);
    ASSERT_EQ(file.Write("abc", 3), S_OK);
    EXPECT_EQ(file.Open(Path(), FileAccess::Write, FileMode::CreateNew), Win32(ERROR_FILE_EXISTS));
    EXPECT_EQ(file.Open(Path(), FileAccess::Write, FileMode::OpenAlways), S_OK);
    EXPECT_EQ(Contents(Path()), "abc");
    EXPECT_EQ(file.Open(Path(), FileAccess::Write, FileMode::TruncateExisting), S_OK);
    EXPECT_EQ(Contents(Path()), "");
    ASSERT_EQ(file.Write("abc", 3), S_OK);
    EXPECT_EQ(file.Open(Path(), FileAccess::Write, FileMode::CreateAlways), S_OK);
    EXPECT_EQ(Contents(Path()), "");
}

TEST_F(FileTest, AMissingDirectoryIsToldApartFromAMissingFile)
{
    File file;

    EXPECT_EQ(file.Open(Path("no/file"), FileAccess::Read, FileMode::OpenExisting),
              Win32(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(file.Open("", FileAccess::Read, FileMode::OpenExisting), Win32(ERROR_PATH_NOT_FOUND));
}

TEST_F(FileTest, ADirectoryIsNoFile)
{
    File file;

    EXPECT_EQ(file.Open(directory.Path(), FileAccess::Read, FileMode::OpenExisting),
              Win32(ERROR_ACCESS_DENIED));
    EXPECT_EQ(file.Open(directory.Path(), FileAccess::Write, FileMode::OpenAlways),
              Win32(ERROR_ACCESS_DENIED));
}

TEST_F(FileTest, APathWithAZeroByteNamesNoFile)
{
    File file;
    const std::string path = Path() + std::string("\0x", 2);

    EXPECT_EQ(file.Open(path, FileAccess::Write, FileMode::OpenAlways), Win32(ERROR_INVALID_NAME));
    EXPECT_FALSE(PathExists(Path()));
}

TEST_F(FileTest, AppendedBytesGoToTheEndWhateverOthersWroteMeanwhile)
{
    File first;
    File second;
    ASSERT_EQ(first.Open(Path(), FileAccess::Append, FileMode::OpenAlways), S_OK);
    ASSERT_EQ(second.Open(Path(), FileAccess::Append, FileMode::OpenAlways), S_OK);

    ASSERT_EQ(first.Write("a", 1), S_OK);
    ASSERT_EQ(second.Write("b", 1), S_OK);
    ASSERT_EQ(first.Write("c", 1), S_OK);

    EXPECT_EQ(Contents(Path()), "abc");
}

TEST_F(FileTest, PositionalWritesFillTheGapWithZeros)
{
    File file;
    ASSERT_EQ(file.Open(Path(), FileAccess::ReadWrite, FileMode::CreateNew), S_OK);
    char buffer[4];
    size_t read = 0;

    ASSERT_EQ(file.WriteAt(3, "x", 1), S_OK);

    EXPECT_EQ(file.ReadAt(0, buffer, sizeof(buffer), read), S_OK);
    EXPECT_EQ(std::string(buffer, read), std::string("\0\0\0x", 4));
    EXPECT_EQ(file.ReadAt(100, buffer, sizeof(buffer), read), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(file.ReadAt(~0ULL, buffer, 1, read), Win32(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(file.WriteAt(~0ULL, buffer, 1), Win32(ERROR_INVALID_PARAMETER));
}

TEST_F(FileTest, TheSizeCanBeCutAndExtended)
{
    File file;
    std::uint64_t size = 0;
    std::uint64_t position = 0;
    ASSERT_EQ(file.Open(Path(), FileAccess::ReadWrite, FileMode::CreateNew), S_OK);
    ASSERT_EQ(file.Write("abcdef", 6), S_OK);

    EXPECT_EQ(file.SetSize(2), S_OK);
    EXPECT_EQ(file.GetSize(size), S_OK);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(file.Seek(0, SeekFrom::Current, &position), S_OK);
    EXPECT_EQ(position, 6u);
    EXPECT_EQ(file.SetSize(5ULL << 32), S_OK);
    EXPECT_EQ(file.GetSize(size), S_OK);
    EXPECT_EQ(size, 5ULL << 32);
    EXPECT_EQ(file.SetSize(~0ULL), Win32(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(file.Sync(), S_OK);
}

TEST_F(FileTest, TheBeginningIsNotPassed)
{
    File file;
    std::uint64_t position = 0;
    ASSERT_EQ(file.Open(Path(), FileAccess::ReadWrite, FileMode::CreateNew), S_OK);
    ASSERT_EQ(file.Seek(7, SeekFrom::Begin), S_OK);

    EXPECT_EQ(file.Seek(-8, SeekFrom::Current), Win32(ERROR_NEGATIVE_SEEK));

    EXPECT_EQ(file.Seek(0, SeekFrom::Current, &position), S_OK);
    EXPECT_EQ(position, 7u);
}

TEST_F(FileTest, NoFileAnswersNothing)
{
    File file;
    char byte = 0;
    size_t read = 0;
    std::uint64_t size = 0;

    EXPECT_EQ(file.Read(&byte, 1, read), Win32(ERROR_INVALID_HANDLE));
    EXPECT_EQ(file.Write(&byte, 1), Win32(ERROR_INVALID_HANDLE));
    EXPECT_EQ(file.GetSize(size), Win32(ERROR_INVALID_HANDLE));
    EXPECT_EQ(file.Sync(), Win32(ERROR_INVALID_HANDLE));
}

TEST_F(FileTest, AnExclusiveOpenerKeepsAllOthersOut)
{
    File first;
    ASSERT_EQ(first.Open(Path(), FileAccess::Read, FileMode::OpenAlways, FileShare::None), S_OK);
    const HRESULT violation = Win32(ERROR_SHARING_VIOLATION);

    EXPECT_EQ(OpenSecond(FileAccess::Read, FileShare::All), violation);
    EXPECT_EQ(OpenSecond(FileAccess::Write, FileShare::All), violation);
    first.Close();

    EXPECT_EQ(OpenSecond(FileAccess::Read, FileShare::None), S_OK);
}

TEST_F(FileTest, WritersAreKeptOutWhileReadersComeIn)
{
    File first;
    ASSERT_EQ(first.Open(Path(), FileAccess::Read, FileMode::OpenAlways, FileShare::Read), S_OK);

    EXPECT_EQ(OpenSecond(FileAccess::Read, FileShare::Read), S_OK);
    EXPECT_EQ(OpenSecond(FileAccess::Read, FileShare::None), Win32(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(OpenSecond(FileAccess::ReadWrite, FileShare::All), Win32(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(OpenSecond(FileAccess::Append, FileShare::All), Win32(ERROR_SHARING_VIOLATION));
}

TEST_F(FileTest, OneWhoWouldForbidWhatAnotherDoesStaysOut)
{
    File writer;
    ASSERT_EQ(writer.Open(Path(), FileAccess::Write, FileMode::OpenAlways, FileShare::ReadWrite), S_OK);

    EXPECT_EQ(OpenSecond(FileAccess::Read, FileShare::Read), Win32(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(OpenSecond(FileAccess::Read, FileShare::Write), S_OK) << "the writer doesn't read";
    EXPECT_EQ(OpenSecond(FileAccess::Read, FileShare::ReadWrite), S_OK);
}

TEST_F(FileTest, ARefusedOpenerChangesNothing)
{
    File first;
    ASSERT_EQ(first.Open(Path(), FileAccess::ReadWrite, FileMode::CreateNew, FileShare::Read), S_OK);
    ASSERT_EQ(first.Write("kept", 4), S_OK);
    File second;

    EXPECT_EQ(second.Open(Path(), FileAccess::Write, FileMode::CreateAlways, FileShare::All),
              Win32(ERROR_SHARING_VIOLATION));

    std::uint64_t size = 0;
    EXPECT_EQ(first.GetSize(size), S_OK);
    EXPECT_EQ(size, 4u);
}

TEST_F(FileTest, ExactlyOneOfManyExclusiveOpenersWins)
{
    std::atomic<int> winners = 0;
    std::vector<File> files(8);
    {
        std::vector<std::jthread> threads;
        for (File& file : files) {
            threads.emplace_back([&] {
                if (file.Open(Path(), FileAccess::ReadWrite, FileMode::OpenAlways, FileShare::None) == S_OK)
                    ++winners;
            });
        }
    }

    EXPECT_EQ(winners, 1);
}

TEST_F(FileTest, AWholeFileIsReadUpToItsLimit)
{
    ASSERT_EQ(ReplaceWholeFile(Path(), "12345"), S_OK);
    std::string contents = "old";

    EXPECT_EQ(ReadWholeFile(Path(), 4, contents), Win32(ERROR_FILE_TOO_LARGE));
    EXPECT_EQ(contents, "old");
    EXPECT_EQ(ReadWholeFile(Path(), 5, contents), S_OK);
    EXPECT_EQ(contents, "12345");
}

TEST_F(FileTest, ReplacingLeavesNothingBeside)
{
    ASSERT_EQ(ReplaceWholeFile(Path(), "first"), S_OK);
    ASSERT_EQ(ReplaceWholeFile(Path(), "second"), S_OK);
    std::vector<std::string> names;

    EXPECT_EQ(Contents(Path()), "second");
    EXPECT_EQ(ListDirectory(directory.Path(), names), S_OK);
    EXPECT_EQ(names, std::vector<std::string>{"file"});
}

TEST_F(FileTest, AReplacementThatFailsLeavesNothingBehind)
{
    ASSERT_EQ(MakeDirectories(Path()), S_OK);
    std::vector<std::string> names;

    EXPECT_TRUE(FAILED(ReplaceWholeFile(Path(), "in place of a directory")));

    EXPECT_EQ(ListDirectory(directory.Path(), names), S_OK);
    EXPECT_EQ(names, std::vector<std::string>{"file"});
}

}  // namespace
}  // namespace quorvane
