#include "platform/cfb/chain.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <vector>

namespace quorvane::cfb {
namespace {

class Links final : public LinkTable {
public:
    explicit Links(std::size_t count) : LinkTable(1), next(count, kFreeSector) {}
    HRESULT PeekLinks(SectorId first, SectorId count, const BYTE** links) override
    {
        if (first >= next.size())
            return STG_E_DOCFILECORRUPT;
        ++steps;
        for (SectorId i = 0; i < count; ++i)
            StoreU32(&peeked[4 * i], first + i < next.size() ? next[first + i] : kFreeSector);
        *links = peeked.data();
        return S_OK;
    }
    HRESULT SetLinks(SectorId first, const BYTE* links, SectorId count) override
    {
        for (SectorId i = 0; i < count; ++i)
            next[first + i] = LoadU32(links + 4 * i);
        return S_OK;
    }
    SectorId Slots() const noexcept override { return static_cast<SectorId>(next.size()); }
    HRESULT Grow(SectorId*) override { return STG_E_MEDIUMFULL; }

    std::vector<SectorId> next;
    std::array<BYTE, 4 * kBlock> peeked{};
    unsigned steps = 0;
};

// Sectors 0, 7, 14... of a table whose size is no multiple of 7.
void Scatter(Links& links)
{
    const SectorId count = links.Slots();
    for (SectorId i = 0, at = 0; i < count; ++i) {
        const SectorId following = (at + 7) % count;
        links.next[at] = i + 1 < count ? following : kEndOfChain;
        at = following;
    }
}

TEST(ChainTest, FindsEveryPlaceInAnyOrder)
{
    constexpr SectorId kCount = 50000;
    Links links(kCount);
    Scatter(links);
    for (const auto marks : {Chain::Marks::kFew, Chain::Marks::kMany}) {
        Chain chain(links, 0, marks);
        for (SectorId i = 0; i < kCount; ++i) {
            const SectorId index = static_cast<SectorId>(i * std::uint64_t{7919} % kCount);
            SectorId sector = 0;
            ASSERT_EQ(S_OK, chain.At(index, &sector));
            ASSERT_EQ(index * std::uint64_t{7} % kCount, sector);
        }
    }
}

TEST(ChainTest, GoingOnCostsOneStep)
{
    Links links(10000);
    Scatter(links);
    Chain chain(links, 0);
    for (SectorId i = 0; i < 10000; ++i) {
        SectorId sector = 0;
        ASSERT_EQ(S_OK, chain.At(i, &sector));
    }
    EXPECT_LE(links.steps, 10000u + 10000u / 128 + 1);  // and a look at each block of links
}

TEST(ChainTest, ALoopHasNoLength)
{
    Links links(10);
    links.next = {1, 2, 0, 4, kEndOfChain, 6, 99, 8, 9, 7};
    SectorId length = 0;
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Chain(links, 0).Length(&length));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Chain(links, 5).Length(&length));
    EXPECT_EQ(S_OK, Chain(links, 3).Length(&length));
    EXPECT_EQ(2u, length);
    EXPECT_EQ(S_OK, Chain(links).Length(&length));
    EXPECT_EQ(0u, length);
}

TEST(ChainTest, APlaceBehindTheEndIsRefused)
{
    Links links(4);
    links.next = {1, kEndOfChain, kFreeSector, kFreeSector};
    SectorId sector = 0;
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Chain(links, 0).At(2, &sector));
    Chain outside(links, 17);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, outside.At(0, &sector));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, outside.At(0, &sector)) << "the second time too";
}

TEST(ChainTest, ARunEndsWhereTheFileGoesOnElsewhere)
{
    Links links(10);
    links.next = {1, 2, 5, 0, 0, 6, kEndOfChain, 0, 0, 0};
    Chain chain(links, 0);
    SectorId sector = 0;
    SectorId count = 0;
    ASSERT_EQ(S_OK, chain.RunAt(0, 10, &sector, &count));
    EXPECT_EQ(0u, sector);
    EXPECT_EQ(3u, count);
    ASSERT_EQ(S_OK, chain.RunAt(3, 10, &sector, &count));
    EXPECT_EQ(5u, sector);
    EXPECT_EQ(2u, count);
}

TEST(ChainTest, SectorsTakenInRunsAreChainedInTheirOrder)
{
    Links links(600);
    const std::vector<SectorId> taken{3, 4, 5, 130, 131, 132, 9, 254, 255, 256, 257};
    ASSERT_EQ(S_OK, links.SetChain(taken));
    for (std::size_t i = 0; i + 1 < taken.size(); ++i)
        EXPECT_EQ(taken[i + 1], links.next[taken[i]]);
    EXPECT_EQ(kEndOfChain, links.next[taken.back()]);
}

TEST(ChainTest, AppendedSectorsAreFoundBeforeTheyAreLinked)
{
    Links links(600);
    ASSERT_EQ(S_OK, links.SetChain({10, 11, 12}));
    ASSERT_EQ(S_OK, links.SetChain({50, 51, 70, 71}));
    Chain chain(links, 10);
    chain.Append(3, {50, 51});
    chain.Append(3, {70, 71});
    SectorId sector = 0;
    SectorId count = 0;
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(S_OK, chain.At(2, &sector));
        EXPECT_EQ(12u, sector);
        ASSERT_EQ(S_OK, chain.RunAt(3, 9, &sector, &count));
        EXPECT_EQ(50u, sector);
        EXPECT_EQ(2u, count);
        ASSERT_EQ(S_OK, chain.At(6, &sector));
        EXPECT_EQ(71u, sector);
        EXPECT_EQ(STG_E_DOCFILECORRUPT, chain.At(7, &sector));
        EXPECT_EQ(round == 0 ? kEndOfChain : 50u, links.next[12]);
        ASSERT_EQ(S_OK, chain.Link());
    }
    ASSERT_EQ(S_OK, chain.Length(&count));
    EXPECT_EQ(7u, count);
    for (const SectorId appended : {50, 51, 70, 71})
        EXPECT_TRUE(links.Claims().IsClaimed(appended)) << appended;
}

// As a table says whose own sectors belong to others too.
TEST(ChainTest, AppendedSectorsWhoseLinksTurnBackAreLinkedAllTheSame)
{
    Links links(600);
    links.next[10] = kEndOfChain;
    links.next[50] = 51;
    links.next[51] = 50;
    Chain chain(links, 10);
    chain.Append(1, {50, 51});
    ASSERT_EQ(S_OK, chain.Link());
    EXPECT_EQ(50u, links.next[10]);
}

TEST(ChainTest, AppendedSectorsWhoseLinksEndTooSoonAreLinkedAllTheSame)
{
    Links links(600);
    links.next[10] = kEndOfChain;
    links.next[50] = kEndOfChain;
    Chain chain(links, 10);
    chain.Append(1, {50, 51, 52});
    ASSERT_EQ(S_OK, chain.Link());
    EXPECT_EQ(50u, links.next[10]);
}

TEST(ChainTest, WhatIsAppendedBehindTheLastSectorsContinuesTheirRun)
{
    Links links(600);
    ASSERT_EQ(S_OK, links.SetChain({10, 11, 12}));
    ASSERT_EQ(S_OK, links.SetChain({13, 14}));
    Chain chain(links, 10);
    SectorId sector = 0;
    SectorId count = 0;
    ASSERT_EQ(S_OK, chain.Length(&count));
    ASSERT_EQ(S_OK, chain.At(1, &sector));
    chain.Append(3, {13, 14});
    ASSERT_EQ(S_OK, chain.RunAt(1, 9, &sector, &count));
    EXPECT_EQ(11u, sector);
    EXPECT_EQ(4u, count);
    ASSERT_EQ(S_OK, chain.At(4, &sector));
    EXPECT_EQ(14u, sector);
    chain.Cut(2);
    ASSERT_EQ(S_OK, links.SetNext(11, kEndOfChain));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, chain.At(3, &sector));
    ASSERT_EQ(S_OK, chain.RunAt(0, 9, &sector, &count));
    EXPECT_EQ(2u, count);
}

TEST(ChainTest, ALongRunIsWalkedAlongOnce)
{
    Links links(100'000);
    std::vector<SectorId> sectors(90'000);
    std::iota(sectors.begin(), sectors.end(), 100);
    ASSERT_EQ(S_OK, links.SetChain(sectors));
    Chain chain(links, 100);
    SectorId sector = 0;
    ASSERT_EQ(S_OK, chain.At(89'999, &sector));
    const unsigned steps = links.steps;
    for (SectorId i = 0; i < 90'000; i += 7) {
        ASSERT_EQ(S_OK, chain.At(i, &sector));
        ASSERT_EQ(100 + i, sector);
    }
    EXPECT_EQ(steps, links.steps);
}

TEST(ChainTest, LinksToTheNextNumberAreLookedAtOnce)
{
    Links links(1000);
    std::vector<SectorId> sectors(700);
    std::iota(sectors.begin(), sectors.end(), 100);
    ASSERT_EQ(S_OK, links.SetChain(sectors));
    SectorId sector = 0;
    SectorId count = 0;
    ASSERT_EQ(S_OK, Chain(links, 100).RunAt(0, 700, &sector, &count));
    EXPECT_EQ(700u, count);
    EXPECT_EQ(7u, links.steps) << "the blocks that it lies in";
    ASSERT_EQ(S_OK, Chain(links, 100).RunAt(0, 700, &sector, &count));
    EXPECT_EQ(7u, links.steps);

    ASSERT_EQ(S_OK, links.SetNext(300, 900));
    ASSERT_EQ(S_OK, Chain(links, 100).RunAt(0, 700, &sector, &count));
    EXPECT_EQ(201u, count);
    ASSERT_EQ(S_OK, links.SetNext(300, 301));
    ASSERT_EQ(S_OK, Chain(links, 100).RunAt(0, 700, &sector, &count));
    EXPECT_EQ(700u, count);
}

TEST(ChainTest, ARunEndsWhereTheTableDoes)
{
    Links links(300);
    std::iota(links.next.begin(), links.next.end(), 1);  // the last one leads out of it
    SectorId count = 0;
    SectorId next = 0;
    ASSERT_EQ(S_OK, links.FollowRun(250, 60, &count, &next));
    EXPECT_EQ(50u, count);
    EXPECT_EQ(300u, next);
}

TEST(ChainTest, ARunMayBeLongerThanASectorOfTheTable)
{
    Links links(1000);
    std::vector<SectorId> sectors(700);
    std::iota(sectors.begin(), sectors.end(), 100);
    ASSERT_EQ(S_OK, links.SetChain(sectors));
    for (SectorId sector = 100; sector < 799; ++sector)
        ASSERT_EQ(sector + 1, links.next[sector]);
    EXPECT_EQ(kEndOfChain, links.next[799]);
    EXPECT_EQ(kFreeSector, links.next[99]);
    EXPECT_EQ(kFreeSector, links.next[800]);
}

}  // namespace
}  // namespace quorvane::cfb
