// Sessions side by side: the connections that they share, and what waits for what.
#include <gtest/gtest.h>

#include "engine/persist/testing/database_fixture.h"
#include "engine/persist/testing/database_vfs.h"

namespace quorvane {
namespace {

using testing::DatabaseTest;
using testing::DatabaseVfs;

constexpr HRESULT kBusy = HRESULT_FROM_WIN32(ERROR_BUSY);

// A writer of another program.
class OtherProgram {
public:
    explicit OtherProgram(const std::string& path)
    {
        EXPECT_EQ(sqlite3_open(path.c_str(), &database_), SQLITE_OK);
    }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;
    ~OtherProgram() { sqlite3_close(database_); }

    void Run(const char* sql)
    {
        EXPECT_EQ(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    }

private:
    sqlite3* database_ = nullptr;
};

// From before its first use on SQLite takes small pieces of memory where it takes all others, and sets none
// aside: a statement as short as ROLLBACK would find enough there.
const int kNothingSetAside = sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);

// SQLite gets no memory while it lives.
class WithoutMemory {
public:
    WithoutMemory() { sqlite3_hard_heap_limit64(1); }
    WithoutMemory(const WithoutMemory&) = delete;
    WithoutMemory& operator=(const WithoutMemory&) = delete;
    ~WithoutMemory() { sqlite3_hard_heap_limit64(0); }
};

class DatabaseSessionsTest : public DatabaseTest {
protected:
    HRESULT ReadRow(DatabaseSession& from, Rowset& rows)
    {
        const StatementParameters none;
        const HRESULT hr = from.Query(statements::kReadReceiveJobs, none, columns::kReadReceiveJobs, rows);
        return FAILED(hr) ? hr : rows.Step();
    }
    HRESULT AddJob(const std::string& name)
    {
        StatementParameters values;
        values.Text(width::kReceivedPath, name).Text(width::kTag, std::string("t"));
        return session.Execute(statements::kAddReceiveJob, values);
    }

    DatabaseVfs vfs;
};

// Connections

TEST_F(DatabaseSessionsTest, SessionsOneAfterTheOtherShareOneConnection)
{
    OpenAll();
    const unsigned opens = vfs.Opens();
    for (int i = 0; i < 50; ++i) {
        DatabaseSession own;
        ASSERT_EQ(source.OpenSession(own), S_OK);
        const std::string name = std::to_string(i);
        ASSERT_EQ(own.Execute(statements::kAppendItem, ItemValues("{" + name + "}", "E" + name, 1)), S_OK);
        EXPECT_EQ(Item("E" + name), "{" + name + "}/S1/1/3");
    }
    EXPECT_EQ(vfs.Opens(), opens);
}

// Of its pages, of table and indexes, each by itself would be two.
TEST_F(DatabaseSessionsTest, ARowGoesIntoTheLogWithOneWrite)
{
    OpenAll();
    ASSERT_EQ(session.Execute(statements::kAppendItem, ItemValues("{0}", "E0", 1)), S_OK);
    const unsigned writes = vfs.LogWrites();
    ASSERT_EQ(session.Execute(statements::kAppendItem, ItemValues("{1}", "E1", 1)), S_OK);
    EXPECT_EQ(vfs.LogWrites(), writes + 1);
}

TEST_F(DatabaseSessionsTest, RowsThatAreReadAtOnceHaveAConnectionEachAndSomeAreKept)
{
    constexpr unsigned kAtOnce = 20;
    constexpr unsigned kKept = 8;
    OpenAll();
    ASSERT_EQ(AddJob("p"), S_OK);
    const unsigned opens = vfs.Opens();
    for (const unsigned expected : {kAtOnce - 1, kAtOnce - 1 + kAtOnce - kKept}) {
        std::vector<Rowset> all(kAtOnce);
        for (Rowset& rows : all)
            ASSERT_EQ(ReadRow(session, rows), S_OK);
        EXPECT_EQ(vfs.Opens() - opens, expected);
    }
}

TEST_F(DatabaseSessionsTest, ARowsetThatIsLetGoOfGivesItsConnectionBack)
{
    OpenAll();
    ASSERT_EQ(AddJob("p"), S_OK);
    const unsigned opens = vfs.Opens();
    for (int i = 0; i < 20; ++i) {
        Rowset rows;
        ASSERT_EQ(ReadRow(session, rows), S_OK);
    }
    EXPECT_EQ(vfs.Opens(), opens);
}

TEST_F(DatabaseSessionsTest, TheOtherSessionsDoNotSeeWhatIsNotCommitted)
{
    OpenAll();
    DatabaseSession other;
    ASSERT_EQ(source.OpenSession(other), S_OK);
    ASSERT_EQ(session.StartTransaction(), S_OK);
    ASSERT_EQ(AddJob("p"), S_OK);
    Rowset rows;
    EXPECT_EQ(ReadRow(other, rows), kEndOfRowset);
    EXPECT_EQ(ReadRow(session, rows), S_OK);
    rows.Close();
    ASSERT_EQ(session.Commit(), S_OK);
    EXPECT_EQ(ReadRow(other, rows), S_OK);
}

// Here SQLite waits in earnest.
TEST_F(DatabaseTest, TwoLogonsWriteOneDatabaseFromManyThreads)
{
    OpenAll();
    DataSource second;
    ASSERT_EQ(second.Open(ConnectionStringFor(Widen(path))), S_OK);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 20; ++n) {
                DatabaseSession own;
                ASSERT_EQ((i % 2 ? source : second).OpenSession(own), S_OK);
                const std::string name = std::to_string(i) + "-" + std::to_string(n);
                ASSERT_EQ(own.StartTransaction(), S_OK);
                EXPECT_EQ(own.Execute(statements::kAppendItem, ItemValues("a" + name, "A" + name, 1)), S_OK);
                EXPECT_EQ(own.Execute(statements::kAppendItem, ItemValues("b" + name, "B" + name, 1)), S_OK);
                EXPECT_EQ(n % 2 ? own.Commit() : own.Abort(), S_OK);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    unsigned count = 0;
    Rowset rows;
    ASSERT_EQ(session.Query("SELECT Version FROM tblItem", columns::kReadLastModified, rows), S_OK);
    while (rows.Step() == S_OK)
        ++count;
    EXPECT_EQ(count, 4u * 10 * 2);
}

// Waiting

TEST_F(DatabaseSessionsTest, AStatementWaitsUntilAnotherWriterIsDone)
{
    OpenAll();
    OtherProgram other(path);
    other.Run("BEGIN IMMEDIATE");
    bool waited = false;
    vfs.WhenWaiting([&] {
        if (!waited)
            other.Run("COMMIT");
        waited = true;
    });
    EXPECT_EQ(Append("{1}", "E1"), S_OK);
    EXPECT_TRUE(waited);
    EXPECT_EQ(Item("E1"), "{1}/S1/1.5/3");
}

TEST_F(DatabaseSessionsTest, ADatabaseThatStaysBusyFailsTheStatementAfterHalfAMinute)
{
    OpenAll();
    OtherProgram other(path);
    other.Run("BEGIN IMMEDIATE");
    EXPECT_EQ(Append("{1}", "E1"), kBusy);
    EXPECT_NEAR(vfs.WaitedMilliseconds(), 30000, 1000);
    ASSERT_EQ(DatabaseErrorRecords().size(), 1u);
    EXPECT_EQ(DatabaseErrorRecords()[0], "database is locked");
    EXPECT_EQ(session.StartTransaction(), kBusy);
    EXPECT_EQ(session.Commit(), E_UNEXPECTED);

    other.Run("ROLLBACK");
    EXPECT_EQ(Item("E1"), "none");
    EXPECT_EQ(Append("{1}", "E1"), S_OK);
}

TEST_F(DatabaseSessionsTest, ADatabaseThatAnotherKeepsToItselfFailsTheOpenUntilItIsFree)
{
    MakeDatabase();
    OtherProgram other(path);
    other.Run("BEGIN EXCLUSIVE");
    EXPECT_EQ(Open(), kBusy);
    EXPECT_FALSE(source.IsOpen());
    other.Run("ROLLBACK");
    EXPECT_EQ(Open(), S_OK);
}

TEST_F(DatabaseSessionsTest, AnUpgradeThatFindsTheDatabaseBusyIsLeftToTheNextLogon)
{
    Sql("CREATE TABLE tblItem (ID TEXT, EntryID TEXT, StoreID TEXT, LastModified REAL);"
        "INSERT INTO tblItem VALUES ('{1}', 'E1', 'S1', 5);");
    ASSERT_EQ(Open(), S_OK);
    ASSERT_EQ(source.OpenSession(session), S_OK);
    {
        OtherProgram other(path);
        other.Run("BEGIN IMMEDIATE");
        EXPECT_EQ(UpgradeDB(source), S_OK);
        other.Run("ROLLBACK");
    }
    EXPECT_EQ(UpgradeDB(source), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/5/2");
}

TEST_F(DatabaseSessionsTest, AReaderOfAnotherProgramKeepsNoWriterWaiting)
{
    OpenAll();
    OtherProgram other(path);
    other.Run("BEGIN; SELECT * FROM tblItem");
    EXPECT_EQ(Append("{1}", "E1"), S_OK);
    EXPECT_EQ(vfs.WaitedMilliseconds(), 0u);
}

TEST_F(DatabaseSessionsTest, WithoutALogRowsThatAreBeingReadKeepNoWriterWaitingEither)
{
    vfs.DenySharedMemory(true);
    OpenAll();
    ASSERT_EQ(AddJob("p1"), S_OK);
    ASSERT_EQ(AddJob("p2"), S_OK);
    Rowset rows;
    ASSERT_EQ(ReadRow(session, rows), S_OK);
    EXPECT_EQ(AddJob("p3"), S_OK);
    EXPECT_EQ(vfs.WaitedMilliseconds(), 0u);

    std::string text;
    ASSERT_EQ(rows.GetText(1, text), S_OK);
    EXPECT_EQ(text, "p1");
    EXPECT_EQ(rows.Step(), S_OK);
    ASSERT_EQ(rows.GetText(1, text), S_OK);
    EXPECT_EQ(text, "p2");
    EXPECT_EQ(rows.Step(), kEndOfRowset);
    EXPECT_EQ(rows.Step(), kEndOfRowset);
}

TEST_F(DatabaseSessionsTest, ATransactionThatCouldNotBeCommittedIsRolledBackBeforeItsConnectionServesOthers)
{
    vfs.DenySharedMemory(true);  // with a log no reader keeps a commit waiting
    OpenAll();
    OtherProgram other(path);
    other.Run("BEGIN; SELECT * FROM tblItem");
    ASSERT_EQ(session.StartTransaction(), S_OK);
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    EXPECT_EQ(session.Commit(), kBusy);
    other.Run("COMMIT");

    const unsigned opens = vfs.Opens();
    EXPECT_EQ(Item("E1"), "none");
    EXPECT_EQ(session.StartTransaction(), S_OK);
    EXPECT_EQ(Append("{2}", "E2"), S_OK);
    EXPECT_EQ(session.Commit(), S_OK);
    EXPECT_EQ(Item("E2"), "{2}/S1/1.5/3");
    EXPECT_EQ(vfs.Opens(), opens);
}

TEST_F(DatabaseSessionsTest, AConnectionWhoseTransactionCantBeEndedServesNobodyElse)
{
    ASSERT_EQ(kNothingSetAside, SQLITE_OK);
    OpenAll();
    const unsigned opens = vfs.Opens();
    ASSERT_EQ(session.StartTransaction(), S_OK);
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    {
        const WithoutMemory none;
        EXPECT_TRUE(FAILED(session.Abort()));
    }

    EXPECT_EQ(Item("E1"), "none");
    EXPECT_GT(vfs.Opens(), opens);
    EXPECT_EQ(session.StartTransaction(), S_OK);
    EXPECT_EQ(Append("{2}", "E2"), S_OK);
    EXPECT_EQ(session.Commit(), S_OK);
}

TEST_F(DatabaseSessionsTest, ADatabaseThatIsReadDuringTheOpenIsOpenedAllTheSame)
{
    MakeDatabase();
    OtherProgram other(path);
    other.Run("BEGIN; SELECT * FROM tblItem");
    ASSERT_EQ(Open(), S_OK);
    ASSERT_EQ(source.OpenSession(session), S_OK);
    other.Run("COMMIT");
    EXPECT_EQ(Append("{1}", "E1"), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/1.5/3");
}

}  // namespace
}  // namespace quorvane
