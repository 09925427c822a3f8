// Off Windows a look at a file's beginning takes no part in the share modes of its openers.
#include <gtest/gtest.h>

#include "platform/cfb/stg.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

TEST(DocfileOnDiskPosixTest, AFileThatIsOpenExclusivelyStillShowsWhatItIs)
{
    const ScratchDirectory directory;
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, CreateDocfile(Wide(directory.File("a")).c_str(), kCreate, root.Put()));

    EXPECT_EQ(S_OK, IsDocfile(Wide(directory.File("a")).c_str()));
}

TEST(DocfileOnDiskPosixTest, AFileInPlaceOfADirectoryIsAPathThatIsNotThere)
{
    const ScratchDirectory directory;
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, CreateDocfile(Wide(directory.File("a")).c_str(), kCreate, root.Put()));
    ComPtr<IStorage> below;
    EXPECT_EQ(STG_E_PATHNOTFOUND, OpenDocfile(Wide(directory.File("a/b")).c_str(), kOpen, below.Put()));
}

TEST(StgFunctionsTest, NothingIsGivenWithWhatIsReserved)
{
    const ScratchDirectory directory;
    const OleString path = Wide(directory.File("a"));
    const auto bytes = NewLockBytes();
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    IStorage* const other = root.Get();
    IStorage* storage = other;
    EXPECT_EQ(STG_E_INVALIDPARAMETER, StgCreateDocfile(path.c_str(), kCreate, 1, &storage));
    EXPECT_EQ(nullptr, std::exchange(storage, other));
    EXPECT_EQ(STG_E_INVALIDPARAMETER, StgOpenStorage(path.c_str(), other, kOpen, nullptr, 0, &storage));
    EXPECT_EQ(nullptr, std::exchange(storage, other));
    EXPECT_EQ(STG_E_INVALIDPARAMETER, StgOpenStorage(path.c_str(), nullptr, kOpen, nullptr, 1, &storage));
    EXPECT_EQ(nullptr, std::exchange(storage, other));
    EXPECT_EQ(STG_E_INVALIDPARAMETER, StgCreateDocfileOnILockBytes(bytes.Get(), kCreate, 1, &storage));
    EXPECT_EQ(nullptr, std::exchange(storage, other));
    EXPECT_EQ(STG_E_INVALIDPARAMETER,
              StgOpenStorageOnILockBytes(bytes.Get(), nullptr, kOpen, nullptr, 1, &storage));
    EXPECT_EQ(nullptr, storage);
    EXPECT_FALSE(std::filesystem::exists(directory.File("a")));
}

}  // namespace
}  // namespace quorvane::cfb::test
