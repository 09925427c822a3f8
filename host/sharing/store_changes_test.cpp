#include "host/sharing/store_changes.h"

#include <gtest/gtest.h>

#include <fstream>

#include "platform/testing/test_directory.h"

namespace quorvane::host {
namespace {

using namespace std::chrono_literals;

class CountedLooks final : public ComObject<CountedLooks, IChangesOfOthers> {
public:
    HRESULT STDMETHODCALLTYPE LookForChanges() override
    {
        ++count;
        return S_OK;
    }
    int count = 0;
};

class StoreChangesTest : public ::testing::Test {
protected:
    void Write() const { std::ofstream(path, std::ios::app) << "more"; }
    int LooksAt(StoreChanges::Clock::time_point time)
    {
        const int before = store->count;
        changes.Follow(time);
        return store->count - before;
    }

    const test::TestDirectory directory;
    const std::filesystem::path path = directory.Path() / "store";
    const ComPtr<CountedLooks> store = MakeComObject<CountedLooks>();
    StoreChanges changes{path, *store};
    const StoreChanges::Clock::time_point begin = StoreChanges::Clock::now();
};

TEST_F(StoreChangesTest, AStoreWhoseFilesChangeLooksForAMomentAndIsThenLeftAlone)
{
    for (const auto time : {begin, begin + 5s}) {
        Write();
        EXPECT_EQ(LooksAt(time), 1);
        EXPECT_EQ(LooksAt(time + StoreChanges::kCommitTime - 1ms), 1);
        EXPECT_EQ(LooksAt(time + StoreChanges::kCommitTime), 0);
        EXPECT_EQ(LooksAt(time + 4s), 0);
    }
}

TEST_F(StoreChangesTest, ItsLogCountsAsWell)
{
    Write();
    const std::string before = changes.Look();
    std::ofstream(directory.Path() / "store-wal") << "more";
    EXPECT_NE(changes.Look(), before);
}

// Its files change before: who looks then finds nothing new, and must find it later.
TEST_F(StoreChangesTest, ACommitChangesTheVersionWhenItCanBeSeen)
{
    Database writer(path.string(), Database::Mode::kCreate);
    writer.Execute("CREATE TABLE message (id)");
    const std::int64_t before = changes.Version();
    {
        Transaction transaction(writer);
        writer.Execute("CREATE TABLE other (id)");
        EXPECT_EQ(changes.Version(), before);
        transaction.Commit();
    }
    const std::int64_t after = changes.Version();
    EXPECT_NE(after, before);
    EXPECT_EQ(changes.Version(), after);
}

TEST_F(StoreChangesTest, WhatGoesOnIsFreshForAMoment)
{
    EXPECT_FALSE(changes.IsFresh(begin));
    Write();
    changes.Follow(begin);
    EXPECT_TRUE(changes.IsFresh(begin));
    const auto later = begin + StoreChanges::kFreshTime;
    EXPECT_TRUE(changes.IsFresh(later - 1ms));
    for (auto time = begin + 100ms; time < begin + 3s; time += 100ms) {
        Write();
        changes.Follow(time);
    }
    EXPECT_FALSE(changes.IsFresh(later));

    Write();
    changes.Follow(begin + 5s);
    EXPECT_TRUE(changes.IsFresh(begin + 5s));
}

}  // namespace
}  // namespace quorvane::host
