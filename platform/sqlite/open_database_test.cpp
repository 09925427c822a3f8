#include "platform/sqlite/open_database.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/testing/test_directory.h"

namespace quorvane {

namespace {

struct Close {
    void operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
};
using Connection = std::unique_ptr<sqlite3, Close>;

constexpr int kNoPatience = 0;

class OpenDatabaseTest : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(directory_); }

    std::string PathOf(const std::string& name) const
    {
        const auto path = (directory_ / name).u8string();
        return {path.begin(), path.end()};
    }
    Connection Open(const std::string& name) const
    {
        sqlite3* database = nullptr;
        EXPECT_EQ(OpenDatabase(PathOf(name).c_str(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, kNoPatience,
                               database),
                  SQLITE_OK);
        return Connection(database);
    }
    Connection OpenAtRest(const std::string& name) const
    {
        sqlite3* database = nullptr;
        EXPECT_EQ(OpenDatabaseAtRest(PathOf(name).c_str(), database), SQLITE_OK);
        return Connection(database);
    }
    // A database with 1 and 2 in its file and 3 in its log alone, as a process leaves it that is killed.
    void MakeKilled(const std::string& name) const
    {
        const Connection writer = Open("writer");
        Run(writer,
            "PRAGMA journal_mode=WAL; CREATE TABLE t(x); INSERT INTO t VALUES (1), (2); "
            "PRAGMA wal_checkpoint(TRUNCATE); INSERT INTO t VALUES (3)");
        std::filesystem::copy_file(directory_ / "writer", directory_ / name);
        std::filesystem::copy_file(directory_ / "writer-wal", directory_ / (name + "-wal"));
    }
    void MakeClosed(const std::string& name) const
    {
        Run(Open(name), "PRAGMA journal_mode=WAL; CREATE TABLE t(x); INSERT INTO t VALUES (1), (2)");
    }
    std::set<std::string> Names() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory_))
            names.insert(entry.path().filename().string());
        return names;
    }
    static void Run(const Connection& database, const char* sql)
    {
        EXPECT_EQ(sqlite3_exec(database.get(), sql, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database.get());
    }
    static std::vector<int> Rows(const Connection& database)
    {
        std::vector<int> rows;
        const auto add = [](void* list, int, char** values, char**) {
            static_cast<std::vector<int>*>(list)->push_back(std::stoi(values[0]));
            return 0;
        };
        EXPECT_EQ(sqlite3_exec(database.get(), "SELECT x FROM t ORDER BY x", add, &rows, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database.get());
        return rows;
    }

private:
    const test::TestDirectory root_;

protected:
    // The path has what means something in a URI.
    const std::filesystem::path directory_ = root_.Path() / u8"50% of #1 à";
};

TEST_F(OpenDatabaseTest, AtRestTheLogIsReadAndNothingIsWritten)
{
    MakeKilled("killed");
    std::filesystem::remove(directory_ / "writer");
    const auto before = Names();
    {
        const Connection one = OpenAtRest("killed"), other = OpenAtRest("killed");
        EXPECT_EQ(Rows(one), (std::vector{1, 2, 3}));
        EXPECT_EQ(Rows(other), (std::vector{1, 2, 3}));
        EXPECT_EQ(Names(), before);
        EXPECT_EQ(sqlite3_exec(one.get(), "INSERT INTO t VALUES (4)", nullptr, nullptr, nullptr),
                  SQLITE_READONLY);
    }
    EXPECT_EQ(Names(), before);
    EXPECT_EQ(Rows(Open("killed")), (std::vector{1, 2, 3}));
}

TEST_F(OpenDatabaseTest, AtRestADatabaseWithoutALogIsReadAndNothingIsWritten)
{
    MakeClosed("closed");
    const auto before = Names();
    const Connection atRest = OpenAtRest("closed");
    EXPECT_EQ(Rows(atRest), (std::vector{1, 2}));
    EXPECT_EQ(Names(), before);
    EXPECT_EQ(sqlite3_exec(atRest.get(), "INSERT INTO t VALUES (4)", nullptr, nullptr, nullptr),
              SQLITE_READONLY);
}

TEST_F(OpenDatabaseTest, WhereItCanBeWrittenItIsOpenedTheUsualWay)
{
    MakeClosed("closed");
    const Connection database = Open("closed");
    Run(database, "INSERT INTO t VALUES (4)");
    EXPECT_EQ(Rows(Open("closed")), (std::vector{1, 2, 4}));
}

// A log that can't be opened, and an index: somebody works on it.
TEST_F(OpenDatabaseTest, WhatSomebodyElseHasOpenIsntOpenedAtRest)
{
    MakeClosed("closed");
    std::filesystem::create_directory(directory_ / "closed-wal");
    EXPECT_EQ(Rows(Open("closed")), (std::vector{1, 2}));
    std::ofstream(directory_ / "closed-shm", std::ios::binary) << std::string(64 * 1024, '\0');
    sqlite3* database = nullptr;
    EXPECT_EQ(OpenDatabase(PathOf("closed").c_str(), SQLITE_OPEN_READWRITE, kNoPatience, database),
              SQLITE_CANTOPEN);
    sqlite3_close_v2(database);
}

TEST_F(OpenDatabaseTest, WhatIsNoDatabaseOrIsntThereIsToldAsUsual)
{
    sqlite3* database = nullptr;
    EXPECT_EQ(OpenDatabase(PathOf("absent").c_str(), SQLITE_OPEN_READWRITE, kNoPatience, database),
              SQLITE_CANTOPEN);
    const Connection absent(database);
    ASSERT_TRUE(database);
    EXPECT_TRUE(Names().empty());
}

}  // namespace

}  // namespace quorvane
