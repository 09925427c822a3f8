#include "platform/cfb/mini_stream.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/cfb/testing/test_support.h"
#include "platform/cfb/volume.h"

namespace quorvane::cfb::test {
namespace {

TEST(MiniStreamTest, BehindItsEndThereIsNoSector)
{
    MemoryStore store;
    Volume volume(store);
    std::vector<SectorId> taken;
    SectorId at = 0;
    std::size_t offset = 0;
    std::size_t bytes = 0;
    ASSERT_EQ(S_OK, volume.Format(Layout::kVersion3));
    ASSERT_EQ(S_OK, volume.mini.TakeMany(1, &taken));
    ASSERT_EQ(S_OK, volume.mini.SetChain(taken));
    ASSERT_EQ(S_OK, volume.Commit());
    const SectorId last = volume.mini.Slots() - 1;
    EXPECT_EQ(S_OK, volume.mini.Next(last, &at));
    EXPECT_EQ(S_OK, volume.mini.Locate(last, 1, &at, &offset, &bytes));
    EXPECT_EQ(kMiniBytes, bytes);
    // The mini FAT's sector has more links than there are mini sectors.
    EXPECT_EQ(STG_E_DOCFILECORRUPT, volume.mini.Next(last + 1, &at));
}

TEST(MiniStreamTest, APageOfLinksToTheNextNumberIsReadOnce)
{
    constexpr SectorId kCount = 10'000;
    MemoryStore store;
    std::vector<SectorId> taken;
    {
        Volume volume(store);
        ASSERT_EQ(S_OK, volume.Format(Layout::kVersion3));
        ASSERT_EQ(S_OK, volume.mini.TakeMany(kCount, &taken));
        ASSERT_EQ(S_OK, volume.mini.SetChain(taken));
        ASSERT_EQ(S_OK, volume.Commit());
    }
    Volume volume(store);
    ASSERT_EQ(S_OK, volume.Open());
    store.calls = 0;
    for (SectorId at = 0; at < kCount; at += 50) {
        SectorId count = 0;
        SectorId next = 0;
        volume.file.DropCache();
        ASSERT_EQ(S_OK, volume.mini.FollowRun(taken[at], 40, &count, &next));
        ASSERT_EQ(40u, count);
    }
    EXPECT_GE(60u, store.calls) << "for 200 chains, whose links lie in some 12 pages";
}

}  // namespace
}  // namespace quorvane::cfb::test
