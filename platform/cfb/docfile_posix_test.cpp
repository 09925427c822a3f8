// Off Windows a look at a file's beginning takes no part in the share modes of its openers.
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace quorvane::cfb::test
