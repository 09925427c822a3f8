#include "platform/cfb/mapped_windows_posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/cfb/file_store.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

constexpr std::uint64_t kFileSize = 300'000;

// A file in memory: its file system is always one of those that windows are made on.
class MappedWindowsTest : public ::testing::Test {
protected:
    MappedWindowsTest() { EXPECT_EQ(0, ::ftruncate(file, kFileSize)); }
    ~MappedWindowsTest() override { ::close(file); }

    void NoteWrites(std::uint64_t offset, unsigned count)
    {
        for (unsigned i = 0; i < count; ++i)
            windows.NoteWrite(offset);
    }
    BYTE InFile(std::uint64_t offset) const
    {
        BYTE byte = 0;
        EXPECT_EQ(1, ::pread(file, &byte, 1, static_cast<off_t>(offset)));
        return byte;
    }

    const int file = ::memfd_create("windows", MFD_CLOEXEC);
    MappedWindows windows{file};
};

TEST_F(MappedWindowsTest, AWindowIsMadeWhereManyOfTheLastWritesWent)
{
    EXPECT_EQ(nullptr, windows.At(100'000, 8, kFileSize));
    NoteWrites(100'000, 3);
    EXPECT_EQ(nullptr, windows.At(100'000, 8, kFileSize));
    NoteWrites(100'008, 8);
    EXPECT_NE(nullptr, windows.At(100'000, 8, kFileSize));
    EXPECT_EQ(nullptr, windows.At(200'000, 8, kFileSize));
}

TEST_F(MappedWindowsTest, WhatIsStoredIsInTheFile)
{
    NoteWrites(100'000, 16);
    BYTE* const at = windows.At(100'000, 1, kFileSize);
    ASSERT_NE(nullptr, at);
    *at = 77;
    EXPECT_EQ(77, InFile(100'000));
}

TEST_F(MappedWindowsTest, NoPageIsReachedBehindTheEndOfTheFile)
{
    NoteWrites(kFileSize - 8, 16);
    EXPECT_NE(nullptr, windows.At(kFileSize - 8, 8, kFileSize));
    EXPECT_EQ(nullptr, windows.At(kFileSize + 8'000, 8, kFileSize));
}

TEST_F(MappedWindowsTest, AWindowGrowsWithTheFile)
{
    NoteWrites(kFileSize - 8, 16);
    ASSERT_NE(nullptr, windows.At(kFileSize - 8, 8, kFileSize));
    ASSERT_EQ(0, ::ftruncate(file, kFileSize + 20'000));
    BYTE* const at = windows.At(kFileSize + 19'000, 1, kFileSize + 20'000);
    ASSERT_NE(nullptr, at);
    *at = 5;
    EXPECT_EQ(5, InFile(kFileSize + 19'000));
}

TEST_F(MappedWindowsTest, WhatIsToBeCutIsReachedNoLonger)
{
    NoteWrites(kFileSize - 8, 16);
    ASSERT_NE(nullptr, windows.At(kFileSize - 8, 8, kFileSize));
    windows.ForgetFrom(kFileSize - 20'000);
    ASSERT_EQ(0, ::ftruncate(file, kFileSize - 20'000));
    EXPECT_EQ(nullptr, windows.At(kFileSize - 8, 8, kFileSize - 20'000));
}

TEST_F(MappedWindowsTest, AFileThatCannotBeMappedIsLeftToCalls)
{
    const int directory = ::open("/proc/self/fd", O_RDONLY | O_CLOEXEC);
    MappedWindows none{directory};
    for (unsigned i = 0; i < 16; ++i)
        none.NoteWrite(0);
    EXPECT_EQ(nullptr, none.At(0, 8, kFileSize));
    ::close(directory);
}

TEST(PosixFileStoreTest, WhatAFileReservesForGrowthIsGivenBack)
{
    const ScratchDirectory directory;
    const std::string path = directory.File("bytes");
    std::unique_ptr<ByteStore> store;
    ASSERT_EQ(S_OK, OpenFileStore(FromUtf8(path).c_str(), FileUse::kCreate, &store));
    ASSERT_EQ(S_OK, store->SetSize(1000));
    std::uint64_t size = 0;
    ASSERT_EQ(S_OK, store->GetSize(&size));
    EXPECT_EQ(1000u, size);
    EXPECT_LE(1000u, std::filesystem::file_size(path));
    ASSERT_EQ(S_OK, store->Settle());
    EXPECT_EQ(1000u, std::filesystem::file_size(path));
    ASSERT_EQ(S_OK, store->SetSize(2000));
    store.reset();
    EXPECT_EQ(2000u, std::filesystem::file_size(path));
}

TEST(PosixFileStoreTest, WhatIsBehindTheOldEndIsZerosAfterACut)
{
    const ScratchDirectory directory;
    std::unique_ptr<ByteStore> store;
    ASSERT_EQ(S_OK, OpenFileStore(FromUtf8(directory.File("bytes")).c_str(), FileUse::kCreate, &store));
    const Bytes content = Pattern(9000, 1);
    ASSERT_EQ(S_OK, store->WriteAt(0, content.data(), content.size()));
    ASSERT_EQ(S_OK, store->SetSize(10));
    ASSERT_EQ(S_OK, store->SetSize(9000));
    Bytes found(9000);
    std::size_t read = 0;
    ASSERT_EQ(S_OK, store->ReadAt(0, found.data(), found.size(), &read));
    EXPECT_EQ(9000u, read);
    EXPECT_TRUE(std::all_of(found.begin() + 10, found.end(), [](BYTE byte) { return byte == 0; }));
}

}  // namespace
}  // namespace quorvane::cfb::test
