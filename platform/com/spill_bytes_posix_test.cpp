// Where the bytes lie, and a disk that is full.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/com/spill_bytes.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMostInMemory = SpillBytes::kMemoryLimit;

// Makes a directory the place of temporary files.
class SpillBytesPosixTest : public testing::Test {
protected:
    void SetUp() override
    {
        char name[] = "/tmp/qv-spill-XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        directory_ = name;
        if (const char* const before = std::getenv("TMPDIR"))
            before_ = before;
        ::setenv("TMPDIR", directory_.c_str(), 1);
    }
    void TearDown() override
    {
        before_.empty() ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", before_.c_str(), 1);
        fs::remove_all(directory_);
    }

    // Open files of this process that lie in the directory.
    std::size_t OpenFiles() const
    {
        std::size_t count = 0;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code failure;
            count += fs::read_symlink(entry.path(), failure).string().starts_with(directory_.string());
        }
        return count;
    }

    fs::path directory_;

private:
    std::string before_;
};

TEST_F(SpillBytesPosixTest, WhatOutgrowsMemoryLiesInAFileWithoutANameThatEndsWithTheObject)
{
    {
        SpillBytes bytes;
        ASSERT_EQ(bytes.Resize(kMostInMemory), S_OK);
        EXPECT_EQ(OpenFiles(), 0u);
        ASSERT_EQ(bytes.WriteAt(kMostInMemory, "x", 1), S_OK);
        EXPECT_EQ(OpenFiles(), 1u);
        EXPECT_TRUE(fs::is_empty(directory_));
    }
    EXPECT_EQ(OpenFiles(), 0u);
}

TEST_F(SpillBytesPosixTest, APlaceThatIsMissingIsTold)
{
    fs::remove_all(directory_);
    SpillBytes bytes;
    ASSERT_EQ(bytes.WriteAt(0, "abc", 3), S_OK);

    EXPECT_EQ(bytes.WriteAt(kMostInMemory, "x", 1), STG_E_PATHNOTFOUND);
    EXPECT_EQ(bytes.Size(), 3u);
}

TEST_F(SpillBytesPosixTest, AFullDiskIsToldAndNothingIsLostThatWasWritten)
{
    SpillBytes bytes;
    const std::string block(kMostInMemory, 'a');
    ASSERT_EQ(bytes.WriteAt(0, block.data(), block.size()), S_OK);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit limit{2 * kMostInMemory + 100, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);

    EXPECT_EQ(bytes.WriteAt(kMostInMemory, block.data(), block.size()), S_OK);
    EXPECT_EQ(bytes.WriteAt(2 * kMostInMemory, block.data(), block.size()), STG_E_MEDIUMFULL);
    EXPECT_EQ(bytes.Size(), 2 * kMostInMemory);

    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    ASSERT_EQ(bytes.WriteAt(2 * kMostInMemory + 50, "x", 1), S_OK) << "the disk has room again";
    std::string tail(60, '?');
    std::size_t read = 0;
    ASSERT_EQ(bytes.ReadAt(2 * kMostInMemory - 1, tail.data(), tail.size(), read), S_OK);
    EXPECT_EQ(tail.substr(0, read), "a" + std::string(50, '\0') + "x")
        << "what the refused write left behind the end doesn't come back";
}

}  // namespace
}  // namespace quorvane
