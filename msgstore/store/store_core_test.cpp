#include "msgstore/store/store_core.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

class StoreCoreTest : public ::testing::Test {
protected:
    std::string FileNamed(const char* name) { return (directory.Path() / name).string(); }
    void RunOn(const std::string& path, const char* sql)
    {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
    }
    HRESULT Open(const std::string& path, bool create = false)
    {
        std::shared_ptr<StoreCore> core;
        return StoreCore::Open(path, create, core);
    }

    TestDirectory directory;
};

TEST_F(StoreCoreTest, AMissingFileIsMadeOnlyWhenAskedFor)
{
    EXPECT_EQ(Open(FileNamed("a")), MAPI_E_NOT_FOUND);
    EXPECT_EQ(Open(FileNamed("a"), true), S_OK);
    EXPECT_EQ(Open(FileNamed("a")), S_OK);
    EXPECT_EQ(Open(FileNamed("missing/a"), true), MAPI_E_NOT_FOUND);
}

TEST_F(StoreCoreTest, AFileOpenedTwiceIsOneStore)
{
    std::shared_ptr<StoreCore> first;
    std::shared_ptr<StoreCore> second;
    ASSERT_EQ(StoreCore::Open(FileNamed("a"), true, first), S_OK);
    ASSERT_EQ(StoreCore::Open((directory.Path() / "." / "a").string(), false, second), S_OK);

    EXPECT_EQ(first, second);
}

TEST_F(StoreCoreTest, AStoreKeepsItsGuid)
{
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(FileNamed("a"), true, core), S_OK);
    const ObjectGuid guid = core->Guid();
    core.reset();
    ASSERT_EQ(StoreCore::Open(FileNamed("a"), true, core), S_OK);

    EXPECT_EQ(core->Guid(), guid);
}

TEST_F(StoreCoreTest, AFileThatIsNoDatabaseIsRefusedAndLeftAlone)
{
    const std::string text(5000, 'x');
    std::ofstream(FileNamed("a")) << text;

    EXPECT_EQ(Open(FileNamed("a")), MAPI_E_CORRUPT_STORE);
    EXPECT_EQ(Open(FileNamed("a"), true), MAPI_E_CORRUPT_STORE);
    std::ifstream file(FileNamed("a"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), text);
}

TEST_F(StoreCoreTest, ADatabaseOfAnotherKindIsRefusedAndLeftAlone)
{
    RunOn(FileNamed("a"), "CREATE TABLE mail (id INTEGER)");

    EXPECT_EQ(Open(FileNamed("a")), MAPI_E_CORRUPT_STORE);
    EXPECT_EQ(Open(FileNamed("a"), true), MAPI_E_CORRUPT_STORE);
}

TEST_F(StoreCoreTest, AStoreOfALaterVersionIsRefused)
{
    ASSERT_EQ(Open(FileNamed("a"), true), S_OK);
    RunOn(FileNamed("a"), "PRAGMA user_version=1000");

    EXPECT_EQ(Open(FileNamed("a")), MAPI_E_VERSION);
    EXPECT_EQ(Open(FileNamed("a"), true), MAPI_E_VERSION);
}

TEST_F(StoreCoreTest, ADirectoryIsNoStore)
{
    EXPECT_EQ(Open(directory.Path().string()), MAPI_E_CORRUPT_STORE);
    EXPECT_EQ(Open("", true), MAPI_E_NOT_FOUND);
}

TEST_F(StoreCoreTest, AFailedWriteChangesNothing)
{
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(FileNamed("a"), true, core), S_OK);

    EXPECT_EQ(core->Write(Durability::AtReturn,
                          [](SqliteConnection& connection) {
                              EXPECT_EQ(connection.Run("UPDATE store SET flushes=77"), S_OK);
                              return MAPI_E_DISK_ERROR;
                          }),
              MAPI_E_DISK_ERROR);

    EXPECT_EQ(core->Read([](SqliteConnection& connection) {
        SqliteRows rows = connection.Query("SELECT flushes FROM store");
        EXPECT_TRUE(rows.Next());
        EXPECT_EQ(rows.Int64(0), 0);
        return rows.Result();
    }),
              S_OK);
}

TEST_F(StoreCoreTest, AReaderSeesOneStateThroughout)
{
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(FileNamed("a"), true, core), S_OK);
    const auto flushes = [](SqliteConnection& connection) {
        SqliteRows rows = connection.Query("SELECT flushes FROM store");
        return rows.Next() ? rows.Int64(0) : -1;
    };

    EXPECT_EQ(core->Read([&](SqliteConnection& connection) {
        EXPECT_EQ(flushes(connection), 0);
        EXPECT_EQ(
            core->Write(Durability::AtReturn,
                        [](SqliteConnection& writer) { return writer.Run("UPDATE store SET flushes=1"); }),
            S_OK);
        EXPECT_EQ(flushes(connection), 0);
        return S_OK;
    }),
              S_OK);
}

TEST_F(StoreCoreTest, ManyThreadsReadAndWriteAtOnce)
{
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(FileNamed("a"), true, core), S_OK);
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                failures += core->Write(Durability::Deferred, [](SqliteConnection& connection) {
                    return connection.Run("UPDATE store SET flushes=flushes+1");
                }) != S_OK;
                failures += core->Read([](SqliteConnection& connection) {
                    SqliteRows rows = connection.Query("SELECT flushes FROM store");
                    return rows.Next() && rows.Int64(0) > 0 ? S_OK : E_FAIL;
                }) != S_OK;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(failures, 0);
    EXPECT_EQ(core->Read([](SqliteConnection& connection) {
        SqliteRows rows = connection.Query("SELECT flushes FROM store");
        EXPECT_TRUE(rows.Next());
        EXPECT_EQ(rows.Int64(0), kThreads * kRounds);
        return S_OK;
    }),
              S_OK);
}

TEST_F(StoreCoreTest, ANameHasOneIdentifierForEveryThread)
{
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(FileNamed("a"), true, core), S_OK);
    constexpr int kNames = 20;
    std::vector<std::vector<ULONG>> ids(4, std::vector<ULONG>(kNames));
    std::vector<std::thread> threads;
    for (auto& mine : ids) {
        threads.emplace_back([&] {
            for (int i = 0; i < kNames; ++i) {
                PropertyName name;
                name.set = PS_PUBLIC_STRINGS;
                name.number = i;
                EXPECT_EQ(core->Names().IdOf(name, true, mine[static_cast<std::size_t>(i)]), S_OK);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    for (const auto& mine : ids)
        EXPECT_EQ(mine, ids[0]);
    std::vector<std::pair<ULONG, PropertyName>> all;
    ASSERT_EQ(core->Names().All(all), S_OK);
    EXPECT_EQ(all.size(), static_cast<std::size_t>(kNames));
}

}  // namespace
}  // namespace quorvane
