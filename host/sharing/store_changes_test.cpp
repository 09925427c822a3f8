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
    static bool IsOver(StoreChanges::Clock::time_point begin)
    {
        return StoreChanges::Clock::now() > begin + 30s;
    }

    const test::TestDirectory directory;
    const std::filesystem::path path = directory.Path() / "store";
    const ComPtr<CountedLooks> store = MakeComObject<CountedLooks>();
    StoreChanges changes{path, *store};
    const StoreChanges::Clock::time_point begin = StoreChanges::Clock::now();
};

TEST_F(StoreChangesTest, AStoreWhoseFilesChangeLooksForAMomentAndIsThenLeftAlone)
{
    for (int round = 0; round < 2; ++round) {
        Write();
        store->count = 0;
        changes.Follow();
        EXPECT_EQ(store->count, 1);
        changes.Follow();
        EXPECT_EQ(store->count, 2);
        for (int before = -1; store->count != before && !IsOver(begin);) {
            before = store->count;
            changes.Follow();
        }
        EXPECT_FALSE(IsOver(begin));
    }
}

TEST_F(StoreChangesTest, ItsLogCountsAsWell)
{
    Write();
    const std::string before = changes.Look();
    std::ofstream(directory.Path() / "store-wal") << "more";
    EXPECT_NE(changes.Look(), before);
}

TEST_F(StoreChangesTest, WhatGoesOnIsFreshForAMoment)
{
    EXPECT_FALSE(changes.IsFresh());
    Write();
    changes.Follow();
    EXPECT_TRUE(changes.IsFresh());
    while (changes.IsFresh() && !IsOver(begin)) {
        Write();
        changes.Follow();
    }
    EXPECT_FALSE(IsOver(begin));
}

}  // namespace
}  // namespace quorvane::host
