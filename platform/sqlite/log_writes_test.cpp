#include "platform/sqlite/log_writes.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/sqlite/open_database.h"
#include "platform/testing/test_directory.h"

namespace quorvane {

namespace {

struct CloseLogged {
    void operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
};
using Logged = std::unique_ptr<sqlite3, CloseLogged>;

// The usual files, whose writes into logs are counted, and of which one may fail.
class CountedFiles {
public:
    CountedFiles() : usual_(sqlite3_vfs_find(nullptr)), counting_(*usual_)
    {
        counting_.zName = "counting";
        counting_.xOpen = Open;
        counting_.pAppData = usual_;
        sqlite3_vfs_register(&counting_, 1);
        writes = 0;
        failing = 0;
    }
    CountedFiles(const CountedFiles&) = delete;
    CountedFiles& operator=(const CountedFiles&) = delete;
    ~CountedFiles()
    {
        sqlite3_vfs_unregister(&counting_);
        sqlite3_vfs_register(usual_, 1);
    }

    static inline int writes = 0;
    static inline int failing = 0;  // the number of the write that does; 0: none

private:
    static int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* given)
    {
        auto* const usual = static_cast<sqlite3_vfs*>(vfs->pAppData);
        const int code = usual->xOpen(usual, name, file, flags, given);
        if (code == SQLITE_OK && (flags & SQLITE_OPEN_WAL) != 0) {
            real_ = *file->pMethods;
            counted_ = real_;
            counted_.xWrite = Write;
            file->pMethods = &counted_;
        }
        return code;
    }
    static int Write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
    {
        return ++writes == failing ? SQLITE_FULL : real_.xWrite(file, bytes, count, offset);
    }

    static inline sqlite3_io_methods real_{};
    static inline sqlite3_io_methods counted_{};
    sqlite3_vfs* const usual_;
    sqlite3_vfs counting_;
};

class LogWritesTest : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(directory_); }

    // As the message store and the program open theirs.
    Logged Open(const std::string& name) const
    {
        sqlite3* database = nullptr;
        EXPECT_EQ(OpenDatabase((directory_ / name).string().c_str(),
                               SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, 0, database),
                  SQLITE_OK);
        return Logged(database);
    }
    // As another program does.
    Logged OpenElsewhere(const std::string& name) const
    {
        sqlite3* database = nullptr;
        EXPECT_EQ(sqlite3_open((directory_ / name).string().c_str(), &database), SQLITE_OK);
        return Logged(database);
    }
    Logged OpenLogged(const std::string& name) const
    {
        Logged database = Open(name);
        EXPECT_EQ(Run(database,
                      "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA wal_autocheckpoint=0; "
                      "PRAGMA cache_size=10; CREATE TABLE IF NOT EXISTS t(x INTEGER PRIMARY KEY, y TEXT)"),
                  SQLITE_OK);
        return database;
    }
    static int Run(const Logged& database, const std::string& sql)
    {
        return sqlite3_exec(database.get(), sql.c_str(), nullptr, nullptr, nullptr);
    }
    static std::string Ask(const Logged& database, const std::string& sql)
    {
        std::string answer;
        const auto take = [](void* text, int, char** values, char**) {
            *static_cast<std::string*>(text) = values[0] ? values[0] : "";
            return 0;
        };
        const int code = sqlite3_exec(database.get(), sql.c_str(), take, &answer, nullptr);
        return code == SQLITE_OK ? answer : "failed: " + std::to_string(code);
    }
    // Rows of a page each.
    static std::string Insert(int first, int count)
    {
        return "WITH RECURSIVE n(i) AS (VALUES(" + std::to_string(first) +
               ") UNION ALL SELECT i + 1 FROM n " + "WHERE i < " + std::to_string(first + count - 1) +
               ") INSERT INTO t SELECT i, printf('%.*c', 3000, 'a') FROM n;";
    }
    // What a process finds that comes after this one was killed.
    std::string AskAfterKill(const std::string& name, const std::string& sql) const
    {
        std::filesystem::remove(directory_ / "killed");
        std::filesystem::copy_file(directory_ / name, directory_ / "killed");
        std::filesystem::remove(directory_ / "killed-wal");
        std::filesystem::copy_file(directory_ / (name + "-wal"), directory_ / "killed-wal");
        const Logged database = OpenElsewhere("killed");
        EXPECT_EQ(Ask(database, "PRAGMA integrity_check"), "ok");
        return Ask(database, sql);
    }

    static constexpr char kCount[] = "SELECT count(*) FROM t";

private:
    const test::TestDirectory root_;

protected:
    const std::filesystem::path directory_ = root_.Path() / "log";
};

TEST_F(LogWritesTest, ACommitIsOneWrite)
{
    const CountedFiles files;
    const Logged database = OpenLogged("one");
    ASSERT_EQ(Run(database, Insert(1, 1)), SQLITE_OK);
    CountedFiles::writes = 0;

    ASSERT_EQ(Run(database, Insert(2, 8)), SQLITE_OK);

    EXPECT_EQ(CountedFiles::writes, 1);
    EXPECT_EQ(AskAfterKill("one", kCount), "9");
    CountedFiles::writes = 0;
    ASSERT_EQ(Run(database, "BEGIN;" + Insert(10, 100) + "COMMIT"), SQLITE_OK);
    EXPECT_LE(CountedFiles::writes, 20);
    EXPECT_EQ(AskAfterKill("one", kCount), "109");
}

TEST_F(LogWritesTest, ATransactionThatIsLargerThanItsCacheSeesWhatItWrote)
{
    const Logged database = OpenLogged("one");
    ASSERT_EQ(Run(database, "BEGIN;" + Insert(1, 90)), SQLITE_OK);
    EXPECT_EQ(Ask(database, "SELECT count(*) FROM t WHERE y LIKE 'aaa%'"), "90");
    // Pages that are in the log already are written there again.
    ASSERT_EQ(
        Run(database, "SAVEPOINT s; UPDATE t SET y=replace(y, 'a', 'b') WHERE x % 3 = 0;" + Insert(91, 5)),
        SQLITE_OK);
    ASSERT_EQ(Run(database, "ROLLBACK TO s; UPDATE t SET y=replace(y, 'a', 'c') WHERE x % 2 = 0"), SQLITE_OK);
    EXPECT_EQ(Ask(database, "SELECT count(*) FROM t WHERE y LIKE 'ccc%'"), "45");

    ASSERT_EQ(Run(database, "UPDATE t SET y='d' WHERE x=1; COMMIT"), SQLITE_OK);

    EXPECT_EQ(AskAfterKill("one", "SELECT count(*)||' '||sum(y LIKE 'ccc%')||' '||sum(y='d') FROM t"),
              "90 45 1");
    EXPECT_EQ(Ask(OpenElsewhere("one"), kCount), "90");
}

// Such a page gets another header, and may be the last that is written.
TEST_F(LogWritesTest, AHeaderThatIsWrittenAloneIsThereWithItsCommit)
{
    const Logged database = OpenLogged("one");
    for (int last = 1; last <= 40 && !HasFailure(); last += 3) {
        SCOPED_TRACE(last);
        ASSERT_EQ(Run(database, "DELETE FROM t; BEGIN;" + Insert(1, 40)), SQLITE_OK);
        ASSERT_EQ(
            Run(database, "UPDATE t SET y=replace(y, 'a', 'b') WHERE x=" + std::to_string(last) + "; COMMIT"),
            SQLITE_OK);
        EXPECT_EQ(AskAfterKill("one", "SELECT count(*)||' '||sum(y LIKE 'b%') FROM t"), "40 1");
    }
}

TEST_F(LogWritesTest, WhatIsRolledBackIsntWrittenOverWhatOthersCommitted)
{
    const Logged one = OpenLogged("one");
    const Logged other = OpenLogged("one");
    for (int round = 0; round < 12 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        // What is undone is read from the database then, and not from the log.
        ASSERT_EQ(Run(other, "PRAGMA wal_checkpoint"), SQLITE_OK);
        ASSERT_EQ(Run(one, "BEGIN IMMEDIATE;" + Insert(100'000, 11 + round) + "ROLLBACK"), SQLITE_OK);
        ASSERT_EQ(Run(other, Insert(1 + round * 30, 30)), SQLITE_OK);
        ASSERT_EQ(Run(one, "INSERT INTO t VALUES(" + std::to_string(5000 + round) + ", 'x')"), SQLITE_OK);
        EXPECT_EQ(AskAfterKill("one", kCount), std::to_string(31 * (round + 1)));
    }
}

TEST_F(LogWritesTest, AWriteThatFailsFailsItsCommit)
{
    const CountedFiles files;
    for (const int pages : {5, 13, 60}) {
        int failed = 1;
        bool met = true;
        for (; met && !HasFailure(); ++failed) {
            SCOPED_TRACE(std::to_string(pages) + " pages, write " + std::to_string(failed));
            std::filesystem::remove_all(directory_);
            std::filesystem::create_directories(directory_);
            const Logged database = OpenLogged("one");
            ASSERT_EQ(Run(database, Insert(1, 3)), SQLITE_OK);
            CountedFiles::writes = 0;
            CountedFiles::failing = failed;

            // What a full disk ends is the statement, or the transaction.
            const int first = Run(database, "BEGIN;" + Insert(100, pages)) == SQLITE_OK ? pages : 0;
            const bool goesOn = sqlite3_get_autocommit(database.get()) == 0;
            // One that reads what is in the log is undone alone.
            if (goesOn)
                (void)Run(database, "UPDATE t SET x=x+1000 WHERE x < 100 + " + std::to_string(pages / 2));
            const bool isCommitted = Run(database, "COMMIT") == SQLITE_OK;

            met = CountedFiles::writes >= failed;
            CountedFiles::failing = 0;
            EXPECT_TRUE(isCommitted || met);
            const int rows = isCommitted ? 3 + first : 3;
            (void)Run(database, "ROLLBACK");
            EXPECT_EQ(Ask(database, kCount), std::to_string(rows));
            ASSERT_EQ(Run(database, Insert(10, 2)), SQLITE_OK);
            EXPECT_EQ(AskAfterKill("one", kCount), std::to_string(rows + 2));
        }
        EXPECT_GT(failed, 2);
    }
}

}  // namespace

}  // namespace quorvane
