#include "platform/bytes/ordered_file.h"

#include <gtest/gtest.h>

#include "platform/bytes/testing/memory_store.h"

namespace quorvane::test {
namespace {

constexpr std::uint64_t kPage = OrderedFile::kPage;

class OrderedFileTest : public ::testing::Test {
protected:
    OrderedFileTest()
    {
        store.bytes.resize(20 * kPage);
        store.keepLog = true;
        EXPECT_EQ(S_OK, file.Open());
    }

    void Write(std::uint64_t offset, BYTE value) { ASSERT_EQ(S_OK, file.Write(offset, &value, 1)); }
    std::vector<std::uint64_t> Pages()
    {
        std::vector<std::uint64_t> pages;
        for (const auto& change : store.log)
            pages.push_back(change.offset / kPage);
        return pages;
    }

    MemoryStore store;
    OrderedFile file{store};
};

TEST_F(OrderedFileTest, NothingIsWrittenBeforeTheCommit)
{
    Write(5, 1);
    EXPECT_TRUE(store.log.empty());
    BYTE read = 0;
    ASSERT_EQ(S_OK, file.Read(5, &read, 1));
    EXPECT_EQ(1, read);
    ASSERT_EQ(S_OK, file.Commit());
    EXPECT_EQ(1, store.bytes[5]);
}

TEST_F(OrderedFileTest, StepsComeInTheirOrder)
{
    Write(3 * kPage, 1);
    file.Order();
    Write(kPage, 2);
    file.Order();
    Write(2 * kPage, 3);
    ASSERT_EQ(S_OK, file.Commit());
    EXPECT_EQ((std::vector<std::uint64_t>{3, 1, 2}), Pages());
}

TEST_F(OrderedFileTest, TwoStepsInOnePageBecomeOneWrite)
{
    Write(kPage, 1);
    file.Order();
    Write(kPage + 100, 2);
    ASSERT_EQ(S_OK, file.Commit());
    ASSERT_EQ(1u, store.log.size());
    EXPECT_EQ(101u, store.log[0].bytes.size());
}

TEST_F(OrderedFileTest, APageWaitsForTheRestOfItsStep)
{
    Write(kPage, 1);
    Write(2 * kPage, 2);
    file.Order();
    Write(kPage + 8, 3);
    ASSERT_EQ(S_OK, file.Commit());
    EXPECT_EQ((std::vector<std::uint64_t>{2, 1}), Pages());
}

TEST_F(OrderedFileTest, APageThatOthersFollowIsWrittenTwice)
{
    Write(kPage, 1);
    file.Order();
    Write(2 * kPage, 2);
    file.Order();
    Write(kPage + 8, 3);
    ASSERT_EQ(S_OK, file.Commit());
    EXPECT_EQ((std::vector<std::uint64_t>{1, 2, 1}), Pages());
}

TEST_F(OrderedFileTest, APageDoesNotWaitPastWhatFollowedItsFirstStep)
{
    Write(kPage, 1);
    file.Order();
    Write(kPage + 8, 2);
    Write(2 * kPage, 3);  // after the first write, of the same step as the second
    file.Order();
    Write(kPage + 16, 4);
    ASSERT_EQ(S_OK, file.Commit());
    EXPECT_EQ((std::vector<std::uint64_t>{1, 2, 1}), Pages());
}

TEST_F(OrderedFileTest, TheStoreGrowsBeforeTheFirstWriteOfManyThatDoNotWaitForTheCommit)
{
    file.Extend(2000 * kPage);
    for (std::uint64_t page = 0; page < 1000; ++page)
        Write(page * kPage, 1);
    ASSERT_FALSE(store.log.empty());
    EXPECT_TRUE(store.log[0].cut);
    EXPECT_EQ(2000 * kPage, store.log[0].offset);
}

TEST_F(OrderedFileTest, TheStoreHasTheSizeBeforeTheFirstWrite)
{
    Write(kPage, 1);
    file.Extend(30 * kPage);
    ASSERT_EQ(S_OK, file.Commit());
    ASSERT_EQ(2u, store.log.size());
    EXPECT_TRUE(store.log[0].cut);
    EXPECT_EQ(30 * kPage, store.bytes.size());
}

TEST_F(OrderedFileTest, LargeReadsSeeWhatIsPending)
{
    Write(3 * kPage + 7, 9);
    Bytes read(4 * kPage);
    ASSERT_EQ(S_OK, file.Read(kPage, read.data(), read.size()));
    EXPECT_EQ(9, read[2 * kPage + 7]);
}

TEST_F(OrderedFileTest, LargeWritesReachWhatIsCached)
{
    BYTE read = 0;
    ASSERT_EQ(S_OK, file.Read(2 * kPage, &read, 1));
    const Bytes content(30 * kPage, 4);
    ASSERT_EQ(S_OK, file.WriteData(kPage, content.data(), content.size()));
    ASSERT_EQ(S_OK, file.Read(2 * kPage, &read, 1));
    EXPECT_EQ(4, read);
}

TEST_F(OrderedFileTest, ForgettingGivesBackWhatTheStoreHas)
{
    Write(5, 1);
    ASSERT_EQ(S_OK, file.Forget());
    BYTE read = 7;
    ASSERT_EQ(S_OK, file.Read(5, &read, 1));
    EXPECT_EQ(0, read);
    ASSERT_EQ(S_OK, file.Commit());
    EXPECT_TRUE(store.log.empty());
}

TEST_F(OrderedFileTest, WhatWasCutReadsAsZeros)
{
    Write(6 * kPage + 3, 1);
    ASSERT_EQ(S_OK, file.Commit());
    ASSERT_EQ(S_OK, file.Cut(6 * kPage));
    ASSERT_EQ(S_OK, (file.Extend(8 * kPage), file.Commit()));
    BYTE read = 7;
    ASSERT_EQ(S_OK, file.Read(6 * kPage + 3, &read, 1));
    EXPECT_EQ(0, read);
}

TEST_F(OrderedFileTest, MorePagesThanTheCacheHoldsAreRead)
{
    for (std::uint64_t page = 0; page < OrderedFile::kCachedPages + 500; ++page)
        Write(page * kPage, static_cast<BYTE>(page));
    ASSERT_EQ(S_OK, file.Commit());
    for (std::uint64_t page = 0; page < OrderedFile::kCachedPages + 500; ++page) {
        BYTE read = 0;
        ASSERT_EQ(S_OK, file.Read(page * kPage, &read, 1));
        ASSERT_EQ(static_cast<BYTE>(page), read);
    }
}

TEST_F(OrderedFileTest, PagesOfAStepThatLieBehindEachOtherAreOneWrite)
{
    for (const std::uint64_t page : {4, 2, 3, 7})
        Write(page * kPage + page, static_cast<BYTE>(page));
    file.Order();
    Write(5 * kPage, 5);
    ASSERT_EQ(S_OK, file.Commit());
    EXPECT_EQ((std::vector<std::uint64_t>{2, 3, 4, 7, 5}), Pages());
    EXPECT_EQ(kPage, store.log[1].bytes.size()) << "with what is unchanged between them";
    EXPECT_EQ(3u, store.writes);
}

// Between the pages of its first step and those of its last one.
TEST_F(OrderedFileTest, APageOfTwoStepsIsWrittenByItself)
{
    Write(2 * kPage, 1);
    Write(3 * kPage, 2);
    file.Order();
    Write(3 * kPage + 8, 3);
    Write(4 * kPage, 4);
    Write(1 * kPage, 5);
    ASSERT_EQ(S_OK, file.Commit());
    EXPECT_EQ((std::vector<std::uint64_t>{2, 3, 1, 4}), Pages());
    EXPECT_EQ(4u, store.writes);
}

TEST_F(OrderedFileTest, AStoreThatOthersCutIsAnError)
{
    BYTE read = 0;
    store.bytes.resize(5 * kPage);
    EXPECT_EQ(STG_E_READFAULT, file.Read(6 * kPage, &read, 1));
    Bytes many(3 * kPage);
    EXPECT_EQ(STG_E_READFAULT, file.Read(4 * kPage, many.data(), many.size()));
    EXPECT_EQ(S_OK, file.Read(4 * kPage, &read, 1));
}

TEST_F(OrderedFileTest, PagesBehindEachOtherAreReadSeveralAtOnce)
{
    for (std::size_t at = 0; at < store.bytes.size(); ++at)
        store.bytes[at] = static_cast<BYTE>(at / kPage + 1);
    for (std::uint64_t page = 0; page < 20; ++page) {
        BYTE read = 0;
        ASSERT_EQ(S_OK, file.Read(page * kPage + 9, &read, 1));
        EXPECT_EQ(page + 1, read);
    }
    EXPECT_GE(5u, store.calls);
}

// What lies together in a package are a few pages, and those behind them are an other item's.
TEST_F(OrderedFileTest, NoMoreIsReadAheadThanOnePageMoreThanLiesBehind)
{
    for (const std::uint64_t page : {5u, 6u, 7u}) {
        BYTE read = 0;
        ASSERT_EQ(S_OK, file.Read(page * kPage, &read, 1));
    }
    EXPECT_EQ(2u, store.calls);
    EXPECT_EQ(3 * kPage, store.moved);
}

TEST_F(OrderedFileTest, WhoeverExpectsMoreReadsItAtOnce)
{
    BYTE read = 0;
    const BYTE* peeked = nullptr;
    Write(11 * kPage, 7);
    store.calls = 0;
    ASSERT_EQ(S_OK, file.Read(5 * kPage, &read, 1, 3));
    ASSERT_EQ(S_OK, file.Read(7 * kPage, &read, 1));
    EXPECT_EQ(1u, store.calls);
    ASSERT_EQ(S_OK, file.Peek(9 * kPage, 1, &peeked, 3));
    ASSERT_EQ(S_OK, file.Peek(11 * kPage, 1, &peeked));
    EXPECT_EQ(2u, store.calls);
    EXPECT_EQ(7, *peeked) << "what is in the cache isn't read anew";
    ASSERT_EQ(S_OK, file.Read(19 * kPage, &read, 1, 3));
    EXPECT_EQ(3u, store.calls) << "there is no more";
}

// What is in the cache may be newer than what the store has.
TEST_F(OrderedFileTest, PagesThatAreReadAheadLeaveCachedOnesAsTheyAre)
{
    Write(4 * kPage, 7);
    BYTE read = 0;
    for (std::uint64_t page = 0; page < 8; ++page)
        ASSERT_EQ(S_OK, file.Read(page * kPage, &read, 1));
    ASSERT_EQ(S_OK, file.Read(4 * kPage, &read, 1));
    EXPECT_EQ(7, read);
}

TEST_F(OrderedFileTest, WhatTheStoreGrewByIsZerosWithoutARead)
{
    file.Extend(40 * kPage);
    Write(0, 1);
    ASSERT_EQ(S_OK, file.Commit());
    const std::uint64_t before = store.calls;
    BYTE read = 1;
    ASSERT_EQ(S_OK, file.Read(30 * kPage, &read, 1));
    EXPECT_EQ(0, read);
    EXPECT_EQ(before, store.calls);
    Write(30 * kPage + 1, 5);
    ASSERT_EQ(S_OK, file.Commit());
    file.ReadAnew(30 * kPage);
    ASSERT_EQ(S_OK, file.Read(30 * kPage + 1, &read, 1));
    EXPECT_EQ(5, read);
}

TEST_F(OrderedFileTest, APageThatIsWrittenWholeIsNotReadFirst)
{
    const Bytes page(kPage, 9);
    const std::uint64_t before = store.calls;
    ASSERT_EQ(S_OK, file.Write(7 * kPage, page.data(), page.size()));
    EXPECT_EQ(before, store.calls);
    ASSERT_EQ(S_OK, file.Commit());
    EXPECT_EQ(page, Bytes(store.bytes.begin() + 7 * kPage, store.bytes.begin() + 8 * kPage));
}

TEST_F(OrderedFileTest, NothingIsCutWhenWhatComesBeforeIsRefused)
{
    Write(0, 1);
    store.failAt = 0;
    EXPECT_EQ(STG_E_MEDIUMFULL, file.Cut(kPage));
    EXPECT_EQ(20 * kPage, store.bytes.size());
}

}  // namespace
}  // namespace quorvane::test
