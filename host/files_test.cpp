#include "host/files.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "host/errors.h"
#include "host/test_directory.h"

namespace quorvane::host {

namespace {

void Write(const std::filesystem::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

TEST(FilesTest, ACopyIsWholeAndLeavesNothingAside)
{
    const TestDirectory directory;
    Write(directory / "a", std::string(3'000'000, 'x'));

    EXPECT_TRUE(CopyDurably(directory / "a", directory / "b.part", directory / "b"));

    EXPECT_EQ(std::filesystem::file_size(directory / "b"), 3'000'000U);
    EXPECT_FALSE(std::filesystem::exists(directory / "b.part"));
}

TEST(FilesTest, ACopyNeverReplacesAFile)
{
    const TestDirectory directory;
    Write(directory / "a", "new");
    Write(directory / "b", "old");

    EXPECT_FALSE(CopyDurably(directory / "a", directory / "b.part", directory / "b"));

    EXPECT_EQ(ReadWhole(directory / "b", 100), "old");
    EXPECT_FALSE(std::filesystem::exists(directory / "b.part"));
}

TEST(FilesTest, WhatAKilledCopyLeftAsideIsWrittenOver)
{
    const TestDirectory directory;
    Write(directory / "a", "content");
    Write(directory / "b.part", "a longer rest of an earlier try");

    EXPECT_TRUE(CopyDurably(directory / "a", directory / "b.part", directory / "b"));

    EXPECT_EQ(ReadWhole(directory / "b", 100), "content");
}

TEST(FilesTest, ACopyThatIsKilledLeavesNoTarget)
{
    const TestDirectory directory;
    Write(directory / "a", std::string(64'000'000, 'x'));
    int kills = 0;
    for (std::uintmax_t reached = 0; reached < 60'000'000; reached += 5'000'000) {
        const pid_t child = fork();
        if (child == 0) {
            CopyDurably(directory / "a", directory / "b.part", directory / "b");
            _exit(0);
        }
        std::error_code error;
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            const auto size = std::filesystem::file_size(directory / "b.part", error);
            if (!error && size > reached)
                kill(child, SIGKILL);
        }
        kills += WIFSIGNALED(status) ? 1 : 0;
        if (std::filesystem::exists(directory / "b")) {
            EXPECT_EQ(std::filesystem::file_size(directory / "b"), 64'000'000U);
            std::filesystem::remove(directory / "b");
        }
    }
    EXPECT_GT(kills, 0);
}

TEST(FilesTest, AFileIsReplacedAtOnce)
{
    const TestDirectory directory;
    WriteDurably(directory / "a", "one");
    WriteDurably(directory / "a", "two");

    EXPECT_EQ(ReadWhole(directory / "a", 100), "two");
}

TEST(FilesTest, AFileLargerThanTheLimitIsRefused)
{
    const TestDirectory directory;
    Write(directory / "a", std::string(101, 'x'));

    EXPECT_THROW(ReadWhole(directory / "a", 100), HostError);
}

TEST(FilesTest, ALockKeepsTheSecondOut)
{
    const TestDirectory directory;
    const FileLock first(directory / "lock", "run the mailbox", "a");

    EXPECT_THROW(FileLock(directory / "lock", "run the mailbox", "a"), HostError);
}

TEST(FilesTest, AFailureNamesTheFileAndTheReason)
{
    const TestDirectory directory;
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
