#include "engine/persist/database.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "engine/persist/statements.h"
#include "engine/session/trace/testing/traced_lines.h"

namespace quorvane {
namespace {

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class DatabaseTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = std::filesystem::temp_directory_path() / ("qv_db_" + std::to_string(getpid()));
        std::filesystem::remove_all(directory);
        std::filesystem::create_directories(directory);
        path = (directory / "share.db").string();
    }
    void TearDown() override
    {
        source.Close();
        std::filesystem::remove_all(directory);
    }

    // Runs SQL on the file, past the classes under test.
    void Sql(const std::string& text) const
    {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(database, text.c_str(), nullptr, nullptr, &error), SQLITE_OK) << error;
        sqlite3_free(error);
        sqlite3_close(database);
    }
    void MakeDatabase() const { Sql(ReadFile(QUORVANE_SCHEMA_FILE)); }
    HRESULT Open() { return source.Open(ConnectionStringFor(Widen(path))); }
    void OpenAll()
    {
        MakeDatabase();
        ASSERT_EQ(Open(), S_OK);
        ASSERT_EQ(source.OpenSession(session), S_OK);
    }

    static StatementParameters ItemValues(const std::string& id, const std::string& entryId, double modified)
    {
        StatementParameters values;
        values.Text(width::kId, id)
            .Text(width::kEntryId, entryId)
            .Text(width::kStoreId, "S1")
            .Double(modified);
        return values;
    }
    HRESULT Append(const std::string& id, const std::string& entryId, double modified = 1.5)
    {
        return session.Execute(statements::kAppendItem, ItemValues(id, entryId, modified));
    }
    // "ID/StoreID/LastModified/Version" of an entry identifier; the step's code when there is no row.
    std::string Item(const std::string& entryId)
    {
        StatementParameters values;
        values.Text(width::kEntryId, entryId);
        Rowset rows;
        EXPECT_EQ(session.Query(statements::kReadItem, values, columns::kReadItem, rows), S_OK);
        const HRESULT hr = rows.Step();
        if (hr != S_OK)
            return hr == kEndOfRowset ? "none" : "failed";
        std::string id;
        std::string store;
        double modified = 0;
        double version = 0;
        EXPECT_EQ(rows.GetText(1, id), S_OK);
        EXPECT_EQ(rows.GetText(2, store), S_OK);
        EXPECT_EQ(rows.GetNumber(3, modified), S_OK);
        EXPECT_EQ(rows.GetNumber(4, version), S_OK);
        std::ostringstream text;
        text << id << "/" << store << "/" << modified << "/" << version;
        return text.str();
    }

    std::filesystem::path directory;
    std::string path;
    DataSource source;
    DatabaseSession session;
};

// Opening

TEST_F(DatabaseTest, TheConnectionStringNamesProviderAndFile)
{
    EXPECT_EQ(
        ConnectionStringFor(OLESTR("D:\\x\\share.mdb")),
        OLESTR("Provider=Microsoft.ACE.OLEDB.12.0;Data Source=\"D:\\x\\share.mdb\";User Id=Admin;Password=;"
               "Mode=ReadWrite;Jet OLEDB:Engine Type=5;"));
}

TEST_F(DatabaseTest, AMissingFileFailsTheOpenAndIsNotMade)
{
    EXPECT_EQ(Open(), STG_E_FILENOTFOUND);
    EXPECT_FALSE(source.IsOpen());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(DatabaseErrorRecords().size(), 1u);
}

TEST_F(DatabaseTest, AFileThatIsNoDatabaseFailsTheOpenAndStaysAsItIs)
{
    const std::string text(5000, 'x');
    std::ofstream(path) << text;
    EXPECT_EQ(Open(), STG_E_OLDFORMAT);
    EXPECT_EQ(ReadFile(path), text);
}

TEST_F(DatabaseTest, AnEmptyFileIsNoDatabase)
{
    std::ofstream{path};
    EXPECT_EQ(Open(), STG_E_OLDFORMAT);
    EXPECT_EQ(std::filesystem::file_size(path), 0u);
}

TEST_F(DatabaseTest, ADirectoryIsNoDatabase)
{
    std::filesystem::create_directory(path);
    EXPECT_EQ(Open(), STG_E_ACCESSDENIED);
}

TEST_F(DatabaseTest, ADatabaseThatMayNotBeWrittenFailsTheOpen)
{
    MakeDatabase();
    // A write version that this SQLite doesn't know makes the file read-only.
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(18);
    file.put(9);
    file.close();
    EXPECT_EQ(Open(), STG_E_ACCESSDENIED);
}

TEST_F(DatabaseTest, AStringWithoutADataSourceIsRefused)
{
    EXPECT_EQ(source.Open(OLESTR("Provider=X;")), E_INVALIDARG);
    EXPECT_EQ(source.Open(OLESTR("Data Source=\"unfinished")), E_INVALIDARG);
    EXPECT_EQ(source.Open(OLESTR("Data Source=\"\";")), E_INVALIDARG);
}

TEST_F(DatabaseTest, AClosedDataSourceGivesNoSession)
{
    EXPECT_EQ(source.OpenSession(session), kNotOpen);
    EXPECT_EQ(static_cast<unsigned>(kNotOpen), 0x80040605u);
    EXPECT_FALSE(session.IsOpen());
    EXPECT_EQ(session.Execute(statements::kDeleteResendJobs), kNotOpen);
    EXPECT_EQ(session.StartTransaction(), kNotOpen);
    Rowset rows;
    EXPECT_EQ(rows.Step(), kNotOpen);
}

TEST_F(DatabaseTest, ASessionOutlivesItsDataSource)
{
    OpenAll();
    source.Close();
    EXPECT_EQ(Append("{1}", "E1"), S_OK);
}

// Statements

TEST_F(DatabaseTest, ARowComesBackByItsEntryIdentifier)
{
    OpenAll();
    ASSERT_EQ(Append("{1}", "E1", 40000.25), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/40000.2/3");
    EXPECT_EQ(Item("E2"), "none");
}

TEST_F(DatabaseTest, EveryStatementCanBePrepared)
{
    OpenAll();
    const struct {
        const char* statement;
        unsigned texts;
        unsigned numbers;
        unsigned columns;
    } all[] = {{statements::kReadItem, 1, 0, 4},        {statements::kReadItemById, 1, 0, 4},
               {statements::kLoadItem, 1, 0, 3},        {statements::kReadLastModified, 1, 0, 1},
               {statements::kAppendItem, 3, 1, 0},      {statements::kImportItem, 3, 0, 0},
               {statements::kDeleteItem, 1, 0, 0},      {statements::kReadStorageFiles, 0, 0, 3},
               {statements::kAddStorageFile, 2, 1, 0},  {statements::kDeleteStorageFile, 1, 0, 0},
               {statements::kReadReceiveJobs, 0, 0, 2}, {statements::kDeleteReceiveJob, 1, 0, 0},
               {statements::kAddReceiveJob, 2, 0, 0},   {statements::kAddResendJob, 3, 0, 0},
               {statements::kDeleteResendJobs, 0, 0, 0}};
    char id = 'a';
    for (const auto& one : all) {
        StatementParameters values;
        for (unsigned i = 0; i < one.texts; ++i)
            values.Text(50, std::string(1, id++));
        for (unsigned i = 0; i < one.numbers; ++i)
            values.Double(1);
        if (one.columns) {
            Rowset rows;
            const std::vector<Column> bound(one.columns, columns::kNumber);
            EXPECT_EQ(session.Query(one.statement, values, bound, rows), S_OK) << one.statement;
        } else {
            EXPECT_EQ(session.Execute(one.statement, values), S_OK) << one.statement;
        }
    }
}

TEST_F(DatabaseTest, AnUpdateFollowsARowFromItsOldId)
{
    OpenAll();
    ASSERT_EQ(Append("{old}", "E1"), S_OK);
    StatementParameters values = ItemValues("{new}", "E2", 7);
    values.Text(width::kId, std::string("{old}"));
    ASSERT_EQ(session.Execute(statements::kUpdateItem, values), S_OK);
    EXPECT_EQ(Item("E1"), "none");
    EXPECT_EQ(Item("E2"), "{new}/S1/7/3");
}

TEST_F(DatabaseTest, DeletingWhatIsNotThereSucceeds)
{
    OpenAll();
    StatementParameters values;
    values.Text(width::kId, std::string("{none}"));
    EXPECT_EQ(session.Execute(statements::kDeleteItem, values), S_OK);
}

TEST_F(DatabaseTest, AnImportedItemIsModifiedNow)
{
    OpenAll();
    StatementParameters values;
    values.Text(width::kId, std::string("{1}"))
        .Text(width::kEntryId, std::string("E1"))
        .Text(width::kStoreId, std::string("S1"));
    ASSERT_EQ(session.Execute(statements::kImportItem, values), S_OK);
    StatementParameters key;
    key.Text(width::kEntryId, std::string("E1"));
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadLastModified, key, columns::kReadLastModified, rows), S_OK);
    ASSERT_EQ(rows.Step(), S_OK);
    double modified = 0;
    ASSERT_EQ(rows.GetNumber(1, modified), S_OK);
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const double expected = 25569.0 + static_cast<double>(now + local.tm_gmtoff) / 86400.0;
    EXPECT_NEAR(modified, expected, 60.0 / 86400);
}

TEST_F(DatabaseTest, AStatusIsWrittenAsOneTypeAndReadAsAnother)
{
    OpenAll();
    StatementParameters file;
    file.Text(width::kRecipients, std::string("a;b")).Text(width::kInsertedPath, std::string("/p")).Byte(0);
    ASSERT_EQ(session.Execute(statements::kAddStorageFile, file), S_OK);
    StatementParameters status;
    status.Short(VARIANT_TRUE).Text(width::kStatusPath, std::string("/p"));
    ASSERT_EQ(session.Execute(statements::kSetStorageFileStatus, status), S_OK);
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadStorageFiles, columns::kReadStorageFiles, rows), S_OK);
    ASSERT_EQ(rows.Step(), S_OK);
    double value = 0;
    ASSERT_EQ(rows.GetNumber(3, value), S_OK);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(rows.Step(), kEndOfRowset);
    EXPECT_EQ(rows.Step(), kEndOfRowset);
}

TEST_F(DatabaseTest, TextOfAnyKindComesBackAndIsNeverTakenForSql)
{
    OpenAll();
    const Bstr text(OLESTR("'); DROP TABLE tblItem; -- \u20AC Now() DELETE *"));
    StatementParameters values;
    values.Text(width::kReceivedPath, text.Get()).Text(width::kTag, static_cast<BSTR>(nullptr));
    ASSERT_EQ(session.Execute(statements::kAddReceiveJob, values), S_OK);
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadReceiveJobs, columns::kReadReceiveJobs, rows), S_OK);
    ASSERT_EQ(rows.Step(), S_OK);
    Bstr path_;
    Bstr tag;
    ASSERT_EQ(rows.GetText(1, path_), S_OK);
    ASSERT_EQ(rows.GetText(2, tag), S_OK);
    EXPECT_EQ(path_.View(), text.View());
    EXPECT_FALSE(tag.IsNull());
    EXPECT_TRUE(tag.IsEmpty());
}

// Widths

TEST_F(DatabaseTest, ATextFillsItsWidthButForTheTerminator)
{
    OpenAll();
    EXPECT_EQ(Append(std::string(49, 'i'), "E1"), S_OK);
    EXPECT_EQ(Append(std::string(50, 'i'), "E2"), E_INVALIDARG);
    EXPECT_EQ(Item("E2"), "none");
}

TEST_F(DatabaseTest, TheWidthCountsTheBytesOfTheCodePage)
{
    StatementParameters values;
    values.Text(10, Bstr(OLESTR("\u20AC\u20AC\u20AC")).Get());
    EXPECT_EQ(values.Result(), S_OK);
    values.Text(9, Bstr(OLESTR("\u20AC\u20AC\u20AC")).Get());
    EXPECT_EQ(values.Result(), E_INVALIDARG);
}

TEST_F(DatabaseTest, ATextWithAZeroInItIsRefused)
{
    StatementParameters values;
    values.Text(10, Bstr(OleStringView(OLESTR("a\0b"), 3)).Get());
    EXPECT_EQ(values.Result(), E_INVALIDARG);
}

TEST_F(DatabaseTest, AColumnThatIsTooLongFailsItsRowAndTheNextIsRead)
{
    OpenAll();
    Sql("INSERT INTO tblUnfinishedReceiveJob VALUES ('" + std::string(255, 'p') +
        "','t');"
        "INSERT INTO tblUnfinishedReceiveJob VALUES ('" +
        std::string(254, 'q') + "','t');");
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadReceiveJobs, columns::kReadReceiveJobs, rows), S_OK);
    EXPECT_EQ(rows.Step(), E_INVALIDARG);
    std::string text;
    EXPECT_EQ(rows.GetText(1, text), E_INVALIDARG);
    EXPECT_EQ(rows.Step(), S_OK);
    ASSERT_EQ(rows.GetText(1, text), S_OK);
    EXPECT_EQ(text.size(), 254u);
}

TEST_F(DatabaseTest, AMissingValueIsEmptyAndToldAsMissing)
{
    OpenAll();
    Sql("INSERT INTO tblItem (ID, EntryID, StoreID) VALUES ('{1}', 'E1', 'S1')");
    StatementParameters key;
    key.Text(width::kEntryId, std::string("E1"));
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadItem, key, columns::kReadItem, rows), S_OK);
    ASSERT_EQ(rows.Step(), S_OK);
    double value = 5;
    EXPECT_EQ(rows.GetNumber(3, value), S_OK);
    EXPECT_EQ(value, 0);
    EXPECT_FALSE(rows.HasValue(3));
    EXPECT_TRUE(rows.HasValue(1));
}

TEST_F(DatabaseTest, AColumnIsReadAsItIsBoundAndOnlyOnARow)
{
    OpenAll();
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    StatementParameters key;
    key.Text(width::kEntryId, std::string("E1"));
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadItem, key, columns::kReadItem, rows), S_OK);
    std::string text;
    double number = 0;
    EXPECT_EQ(rows.GetText(1, text), E_INVALIDARG);
    ASSERT_EQ(rows.Step(), S_OK);
    EXPECT_EQ(rows.GetText(3, text), E_INVALIDARG);
    EXPECT_EQ(rows.GetNumber(1, number), E_INVALIDARG);
    EXPECT_EQ(rows.GetText(0, text), E_INVALIDARG);
    EXPECT_EQ(rows.GetText(5, text), E_INVALIDARG);
}

// Failures

TEST_F(DatabaseTest, AnExistingKeyIsRefusedWithARecord)
{
    OpenAll();
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    EXPECT_EQ(Append("{1}", "E2"), kIntegrityViolation);
    ASSERT_EQ(DatabaseErrorRecords().size(), 1u);
    EXPECT_NE(DatabaseErrorRecords()[0].find("tblItem.ID"), std::string::npos);
    EXPECT_EQ(Item("E2"), "none");
    EXPECT_TRUE(DatabaseErrorRecords().empty());
}

TEST_F(DatabaseTest, AMissingTableIsTold)
{
    Sql("CREATE TABLE other (a)");
    ASSERT_EQ(Open(), S_OK);
    ASSERT_EQ(source.OpenSession(session), S_OK);
    EXPECT_EQ(Append("{1}", "E1"), kNoTable);
}

TEST_F(DatabaseTest, AWrongNumberOfValuesIsRefused)
{
    OpenAll();
    EXPECT_EQ(session.Execute(statements::kDeleteItem), kErrorsInCommand);
    EXPECT_EQ(session.Execute("no statement"), kErrorsInCommand);
}

TEST_F(DatabaseTest, AWrongNumberOfColumnsIsRefused)
{
    OpenAll();
    Rowset rows;
    EXPECT_EQ(session.Query(statements::kReadReceiveJobs, columns::kReadItem, rows), E_INVALIDARG);
    EXPECT_EQ(rows.Step(), kNotOpen);
}

TEST_F(DatabaseTest, AFailureIsTracedUnderTheCallersNameAndThenDescribed)
{
    OpenAll();
    const Traced traced{"CItem::DBAppend"};
    const std::string text = testing::TracedLines([&] {
        ASSERT_EQ(TracedStatement(traced, Append("{1}", "E1")), S_OK);
        EXPECT_EQ(TracedStatement(traced, Append("{1}", "E1")), kIntegrityViolation);
    });
    const size_t failure = text.find("CItem::DBAppend(");
    const size_t description = text.find("TraceOLEDBError(");
    ASSERT_NE(failure, std::string::npos) << text;
    EXPECT_NE(text.find("0x80040E2F\r\n", failure), std::string::npos);
    EXPECT_GT(description, failure);
    EXPECT_NE(text.find("Description: UNIQUE constraint failed: tblItem.ID\n\r\n"), std::string::npos)
        << text;
}

// Rows and sessions side by side

TEST_F(DatabaseTest, RowsAreThoseOfTheFirstStepWhateverIsWrittenMeanwhile)
{
    OpenAll();
    for (const char* const name : {"p1", "p2"}) {
        StatementParameters values;
        values.Text(width::kReceivedPath, std::string(name)).Text(width::kTag, std::string("t"));
        ASSERT_EQ(session.Execute(statements::kAddReceiveJob, values), S_OK);
    }
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadReceiveJobs, columns::kReadReceiveJobs, rows), S_OK);
    ASSERT_EQ(rows.Step(), S_OK);
    for (const char* const name : {"p1", "p2"}) {
        StatementParameters values;
        values.Text(width::kReceivedPath, std::string(name));
        ASSERT_EQ(session.Execute(statements::kDeleteReceiveJob, values), S_OK);
    }
    EXPECT_EQ(rows.Step(), S_OK);
    EXPECT_EQ(rows.Step(), kEndOfRowset);
}

TEST_F(DatabaseTest, OneStatementMayRunTwiceAtOnce)
{
    OpenAll();
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    ASSERT_EQ(session.StartTransaction(), S_OK);
    StatementParameters key;
    key.Text(width::kEntryId, std::string("E1"));
    Rowset first;
    Rowset second;
    ASSERT_EQ(session.Query(statements::kReadItem, key, columns::kReadItem, first), S_OK);
    ASSERT_EQ(session.Query(statements::kReadItem, key, columns::kReadItem, second), S_OK);
    EXPECT_EQ(first.Step(), S_OK);
    EXPECT_EQ(second.Step(), S_OK);
    EXPECT_EQ(first.Step(), kEndOfRowset);
    first = std::move(second);
    EXPECT_EQ(first.Step(), kEndOfRowset);
    first.Close();
    EXPECT_EQ(session.Commit(), S_OK);
}

TEST_F(DatabaseTest, ManyThreadsWriteThroughTheirOwnSessionsAndThroughOne)
{
    OpenAll();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            DatabaseSession own;
            ASSERT_EQ(source.OpenSession(own), S_OK);
            for (int n = 0; n < 25; ++n) {
                const std::string name = std::to_string(i) + "-" + std::to_string(n);
                EXPECT_EQ(own.Execute(statements::kAppendItem, ItemValues("own" + name, "O" + name, 1)),
                          S_OK);
                EXPECT_EQ(session.Execute(statements::kAppendItem, ItemValues("all" + name, "A" + name, 1)),
                          S_OK);
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
    EXPECT_EQ(count, 200u);
}

// Transactions

TEST_F(DatabaseTest, AnAbortedTransactionLeavesNothing)
{
    OpenAll();
    ASSERT_EQ(session.StartTransaction(), S_OK);
    EXPECT_EQ(session.StartTransaction(), E_UNEXPECTED);
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    ASSERT_EQ(session.Abort(), S_OK);
    EXPECT_EQ(Item("E1"), "none");
    EXPECT_EQ(session.Abort(), E_UNEXPECTED);
    EXPECT_EQ(session.Commit(), E_UNEXPECTED);
}

TEST_F(DatabaseTest, ACommittedTransactionStands)
{
    OpenAll();
    ASSERT_EQ(session.StartTransaction(), S_OK);
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    ASSERT_EQ(session.Commit(), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/1.5/3");
}

TEST_F(DatabaseTest, ASessionThatGoesAbortsItsTransaction)
{
    OpenAll();
    {
        DatabaseSession other;
        ASSERT_EQ(source.OpenSession(other), S_OK);
        ASSERT_EQ(other.StartTransaction(), S_OK);
        ASSERT_EQ(other.Execute(statements::kAppendItem, ItemValues("{1}", "E1", 1)), S_OK);
    }
    EXPECT_EQ(Item("E1"), "none");
    EXPECT_EQ(Append("{1}", "E1"), S_OK);
}

// The upgrade

TEST_F(DatabaseTest, AnOldFileGetsItsVersionColumnAndASecondUpgradeChangesNothing)
{
    Sql("CREATE TABLE tblItem (ID TEXT, EntryID TEXT, StoreID TEXT, LastModified REAL);"
        "INSERT INTO tblItem VALUES ('{1}', 'E1', 'S1', 5);");
    ASSERT_EQ(Open(), S_OK);
    ASSERT_EQ(source.OpenSession(session), S_OK);
    EXPECT_EQ(UpgradeDB(source), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/5/2");
    ASSERT_EQ(Append("{2}", "E2"), S_OK);
    EXPECT_EQ(UpgradeDB(source), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/5/2");
    EXPECT_EQ(Item("E2"), "{2}/S1/1.5/3");
}

TEST_F(DatabaseTest, ADatabaseWithoutTablesIsUpgradedWithoutAnError)
{
    Sql("CREATE TABLE other (a)");
    ASSERT_EQ(Open(), S_OK);
    EXPECT_EQ(UpgradeDB(source), S_OK);
}

TEST_F(DatabaseTest, AClosedDataSourceCannotBeUpgraded)
{
    EXPECT_EQ(UpgradeDB(source), kNotOpen);
}

TEST_F(DatabaseTest, AcknowledgedRowsOutliveTheProcess)
{
    MakeDatabase();
    const pid_t child = fork();
    if (child == 0) {
        bool good = Open() == S_OK && source.OpenSession(session) == S_OK;
        for (int i = 0; good && i < 20; ++i)
            good = Append("{" + std::to_string(i) + "}", "E" + std::to_string(i)) == S_OK;
        good = good && session.StartTransaction() == S_OK && Append("{open}", "EO") == S_OK;
        _exit(good ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ASSERT_EQ(Open(), S_OK);
    ASSERT_EQ(source.OpenSession(session), S_OK);
    EXPECT_EQ(Item("E19"), "{19}/S1/1.5/3");
    EXPECT_EQ(Item("EO"), "none");
}

}  // namespace
}  // namespace quorvane
