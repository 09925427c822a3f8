#include "host/base/files.h"

#include <gtest/gtest.h>

#include <fstream>

#include "host/base/errors.h"
#include "host/base/file_lock.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

void Write(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

TEST(FilesTest, AFileIsReplacedAtOnce)
{
    const test::TestDirectory directory;
    WriteDurably(directory / "a", "one");
    WriteDurably(directory / "a", "two");

    EXPECT_EQ(ReadWhole(directory / "a", 100), "two");
}

TEST(FilesTest, WhoWritesToAFileChangesItsLook)
{
    const test::TestDirectory directory;
    const std::string none = LookOfFile(directory / "a");
    Write(directory / "a", "");
    const std::string empty = LookOfFile(directory / "a");
    Write(directory / "a", "one");
    const std::string one = LookOfFile(directory / "a");
    EXPECT_EQ(LookOfFile(directory / "a"), one);
    const auto time = std::filesystem::last_write_time(directory / "a");
    std::filesystem::last_write_time(directory / "a", time + std::chrono::seconds(1));

    EXPECT_NE(empty, none);
    EXPECT_NE(one, empty);
    EXPECT_NE(LookOfFile(directory / "a"), one) << "written at another time";
    std::filesystem::remove(directory / "a");
    EXPECT_EQ(LookOfFile(directory / "a"), none);
}

TEST(FilesTest, ACopyIsWholeAndTakesTheOtherOnesPlace)
{
    const test::TestDirectory directory;
    const std::string content(2'500'000, 'x');  // more than is read at once
    Write(directory / "a", content + "end");
    Write(directory / "b", std::string(3'000'000, 'y'));

    CopyDurably(directory / "a", directory / "b");

    EXPECT_EQ(ReadWhole(directory / "b", 4'000'000), content + "end");
    EXPECT_THROW(CopyDurably(directory / "none", directory / "c"), HostError);
    EXPECT_FALSE(std::filesystem::exists(directory / "c"));
}

TEST(FilesTest, AFileLargerThanTheLimitIsRefused)
{
    const test::TestDirectory directory;
    Write(directory / "a", std::string(101, 'x'));

    EXPECT_THROW(ReadWhole(directory / "a", 100), HostError);
}

TEST(FilesTest, ALockKeepsTheSecondOut)
{
    const test::TestDirectory directory;
    auto first = FileLock::Take(directory / "lock", "run the mailbox", "a");
    EXPECT_NE(first, nullptr);

    EXPECT_EQ(FileLock::Take(directory / "lock", "run the mailbox", "a"), nullptr);
    first.reset();
    EXPECT_NE(FileLock::Take(directory / "lock", "run the mailbox", "a"), nullptr);
    EXPECT_THROW(FileLock::Take(directory / "none" / "lock", "run the mailbox", "a"), HostError);
}

TEST(FilesTest, AFailureNamesTheFileAndTheReason)
{
    const test::TestDirectory directory;
    try {
        ReadWhole(directory / "none", 100);
        FAIL();
    } catch (const HostError& error) {
        EXPECT_NE(std::string(error.what()).find("none"), std::string::npos);
        EXPECT_NE(std::string(error.what()).find("No such file"), std::string::npos);
    }
}

}  // namespace

}  // namespace quorvane::host
