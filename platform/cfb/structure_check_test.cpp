#include "platform/cfb/testing/structure_check.h"

#include <gtest/gtest.h>

#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

TEST(StructureCheckTest, FindsNothingInAFreshFile)
{
    auto bytes = NewLockBytes();
    {
        ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    }
    EXPECT_TRUE(Examine(ContentOf(*bytes)).faults.empty());
}

TEST(StructureCheckTest, FindsASectorWithTwoOwners)
{
    auto bytes = NewLockBytes();
    {
        ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
        ASSERT_EQ(S_OK, WriteStream(*root, "a", Pattern(5000, 1)));
        ASSERT_EQ(S_OK, WriteStream(*root, "b", Pattern(5000, 2)));
    }
    Bytes file = ContentOf(*bytes);
    const std::size_t entry = 1024 + 128;  // of "a", and behind it "b"
    std::copy_n(file.begin() + entry + 116, 4, file.begin() + entry + 128 + 116);
    EXPECT_FALSE(Examine(file).faults.empty());
}

TEST(StructureCheckTest, FindsColorsThatAreWrong)
{
    auto bytes = NewLockBytes();
    {
        ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
        for (const char* name : {"b", "a", "c"})
            ASSERT_EQ(S_OK, WriteStream(*root, name, {}));
    }
    const Bytes sound = ContentOf(*bytes);
    EXPECT_EQ("", Text(Examine(sound).colors));
    constexpr std::size_t kTopColor = 1024 + 128 + 67;
    Bytes file = sound;
    file[kTopColor] = 0;
    EXPECT_EQ(2u, Examine(file).colors.size()) << "both that hang below it are red too";
    file = sound;
    file[kTopColor + 128] = 1;
    EXPECT_EQ(1u, Examine(file).colors.size()) << "the other one is red";
    EXPECT_EQ("", Text(Examine(file).faults));
}

}  // namespace
}  // namespace quorvane::cfb::test
