#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <thread>

#include "msgstore/store/ask_store.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

constexpr char kCount[] = "SELECT flushes FROM store";

class GatheredSavesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(StoreCore::Open(path, true, core), S_OK);
        ASSERT_EQ(other.Open(path, SqliteAccess::Read), S_OK);
    }

    static HRESULT CountOne(SqliteConnection& connection)
    {
        return connection.Run("UPDATE store SET flushes=flushes+1");
    }
    HRESULT CountOne(Durability durability = Durability::Deferred)
    {
        return core->Write(durability, [](SqliteConnection& connection) { return CountOne(connection); });
    }
    std::int64_t SeenByOthers()
    {
        SqliteRows rows = other.Query(kCount);
        return rows.Next() ? rows.Int64(0) : -1;
    }

    const TestDirectory directory;
    const std::string path = (directory.Path() / "a").string();
    std::shared_ptr<StoreCore> core;
    SqliteConnection other;
};

class CommitCounter final : public CommitListener {
public:
    void Committed() noexcept override { ++count; }
    HRESULT Deliver(const StoreCore&, ULONG&, ULONG&) noexcept override { return S_FALSE; }

    std::atomic<int> count{0};
};

TEST_F(GatheredSavesTest, ManyWritesAreFewCommitsAndTheLastIsOneByTheEnd)
{
    constexpr int kWrites = 50;
    const auto counter = std::make_shared<CommitCounter>();
    core->AddListener(counter);
    ASSERT_EQ(core->Gather(true), S_OK);
    for (int i = 1; i <= kWrites; ++i) {
        ASSERT_EQ(CountOne(), S_OK);
        ASSERT_EQ(AskStore(*core, kCount), i);
    }
    EXPECT_EQ(core->Gather(false), S_OK);

    EXPECT_EQ(SeenByOthers(), kWrites);
    EXPECT_LT(counter->count, kWrites);
    EXPECT_EQ(CountOne(), S_OK);
    EXPECT_EQ(SeenByOthers(), kWrites + 1);
}

TEST_F(GatheredSavesTest, WhatIsGatheredIsCommittedThoughNobodyWritesAnyMore)
{
    ASSERT_EQ(core->Gather(true), S_OK);
    ASSERT_EQ(CountOne(), S_OK);

    const auto deadline = StepTime(std::chrono::seconds(30));
    while (SeenByOthers() == 0 && !deadline.IsOver())
        std::this_thread::yield();
    EXPECT_EQ(SeenByOthers(), 1);
    EXPECT_EQ(core->Gather(false), S_OK);
}

TEST_F(GatheredSavesTest, AWriteThatFailsTakesNoOtherWithIt)
{
    ASSERT_EQ(core->Gather(true), S_OK);
    ASSERT_EQ(CountOne(), S_OK);
    EXPECT_EQ(core->Write(Durability::Deferred,
                          [](SqliteConnection& connection) {
                              EXPECT_EQ(CountOne(connection), S_OK);
                              return MAPI_E_DISK_ERROR;
                          }),
              MAPI_E_DISK_ERROR);
    EXPECT_EQ(AskStore(*core, kCount), 1);
    ASSERT_EQ(CountOne(), S_OK);
    EXPECT_EQ(core->Gather(false), S_OK);
    EXPECT_EQ(SeenByOthers(), 2);
}

TEST_F(GatheredSavesTest, AWriteThatIsntDeferredCommitsWhatWasGatheredBefore)
{
    ASSERT_EQ(core->Gather(true), S_OK);
    ASSERT_EQ(CountOne(), S_OK);
    ASSERT_EQ(CountOne(Durability::AtReturn), S_OK);
    EXPECT_EQ(SeenByOthers(), 2);
    EXPECT_EQ(core->Gather(false), S_OK);
}

TEST_F(GatheredSavesTest, WhoReadsWithinAWriteSeesWhatWasGathered)
{
    ASSERT_EQ(core->Gather(true), S_OK);
    ASSERT_EQ(CountOne(), S_OK);
    EXPECT_EQ(core->Write(Durability::Deferred,
                          [&](SqliteConnection&) {
                              EXPECT_EQ(AskStore(*core, kCount), 1);
                              return S_OK;
                          }),
              S_OK);
    EXPECT_EQ(core->Read([&](SqliteConnection&) {
        EXPECT_EQ(AskStore(*core, kCount), 1);
        return S_OK;
    }),
              S_OK);
    EXPECT_EQ(core->Gather(false), S_OK);
}

TEST_F(GatheredSavesTest, ManyThreadsWriteAndReadWhatIsGathered)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < kRounds; ++round) {
                failures += i == 0 && FAILED(core->Gather(round % 2 == 0));
                failures += CountOne(round % 10 == 9 ? Durability::AtReturn : Durability::Deferred) != S_OK;
                failures += AskStore(*core, kCount) <= 0;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(failures, 0);
    EXPECT_EQ(SeenByOthers(), kThreads * kRounds);
}

TEST_F(GatheredSavesTest, AfterACommitThatFailedTheStoreIsOpenedAnew)
{
    const auto refuse = [](void*) { return 1; };
    ASSERT_EQ(core->Gather(true), S_OK);
    ASSERT_EQ(core->Write(Durability::Deferred,
                          [&](SqliteConnection& connection) {
                              sqlite3_commit_hook(connection.Native(), refuse, nullptr);
                              return CountOne(connection);
                          }),
              S_OK);
    EXPECT_EQ(core->Gather(false), MAPI_E_CALL_FAILED);

    EXPECT_EQ(CountOne(), MAPI_E_CALL_FAILED);
    EXPECT_EQ(CountOne(Durability::AtReturn), MAPI_E_CALL_FAILED);
    EXPECT_EQ(core->Read([](SqliteConnection&) { return S_OK; }), MAPI_E_CALL_FAILED);
    core.reset();
    EXPECT_EQ(AskStore(path, kCount), 0);
}

}  // namespace
}  // namespace quorvane
