#include "platform/cfb/open_element.h"

#include <gtest/gtest.h>

#include "platform/cfb/compound_file.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

class OpenElementTest : public ::testing::Test {
protected:
    OpenElementTest()
    {
        OpenElementPtr made;
        EXPECT_EQ(S_OK, file.Format(Layout::kVersion3));
        EXPECT_EQ(S_OK, file.OpenRoot(&root));
        EXPECT_EQ(S_OK, file.CreateChild(*root, Named("s"), EntryType::kStream, true, &made));
        file.Close(*made);
    }

    MemoryStore store;
    Arena memory;
    CompoundFile file{store, memory};
    OpenElementPtr root;
};

TEST_F(OpenElementTest, ThoseThatWereClosedTakeNoMemory)
{
    std::size_t atFirst = 0;
    for (unsigned i = 0; i < 10000; ++i) {
        OpenElementPtr stream;
        ASSERT_EQ(S_OK, file.OpenChild(*root, Named("s"), EntryType::kStream, &stream));
        file.Close(*stream);
        atFirst = i < 1000 ? memory.Held() : atFirst;
    }
    EXPECT_EQ(atFirst, memory.Held());
}

TEST_F(OpenElementTest, AHoldKeepsOneThatIsReverted)
{
    OpenElementPtr stream;
    ASSERT_EQ(S_OK, file.OpenChild(*root, Named("s"), EntryType::kStream, &stream));
    OpenElementPtr other = stream;
    file.Close(*stream);
    stream = OpenElementPtr();
    EXPECT_TRUE(other->reverted);
    EXPECT_EQ(1u, other->holds);
    OpenElementPtr again;
    ASSERT_EQ(S_OK, file.OpenChild(*root, Named("s"), EntryType::kStream, &again));
    EXPECT_NE(again.get(), other.get());
}

}  // namespace
}  // namespace quorvane::cfb::test
