#include "engine/persist/database.h"

#include <gtest/gtest.h>
#include <chrono>
#include <ctime>
#include <string_view>

#include "engine/persist/statements.h"
#include "engine/persist/testing/database_fixture.h"
#include "engine/session/trace/testing/traced_lines.h"

namespace quorvane {
namespace {

using testing::databaseKind;
using testing::DatabaseTest;
using testing::ReadFile;

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
    file.seekp(databaseKind.tablesAt + 18);
    file.put(9);
    file.close();
    EXPECT_EQ(Open(), databaseKind.mayNotBeWritten);
    EXPECT_EQ(DatabaseErrorRecords().size(), 1u);
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
    } all[] = {{statements::kReadItem, 1, 0, 4},         {statements::kReadItemById, 1, 0, 4},
               {statements::kLoadItem, 1, 0, 3},         {statements::kReadLastModified, 1, 0, 1},
               {statements::kAppendItem, 3, 1, 0},       {statements::kImportItem, 3, 0, 0},
               {statements::kDeleteItem, 1, 0, 0},       {statements::kReadStorageFiles, 0, 0, 3},
               {statements::kAddStorageFile, 2, 1, 0},   {statements::kDeleteStorageFile, 1, 0, 0},
               {statements::kReadReceiveJobs, 0, 0, 2},  {statements::kDeleteReceiveJob, 1, 0, 0},
               {statements::kAddReceiveJob, 2, 0, 0},    {statements::kAddResendJob, 3, 0, 0},
               {statements::kUpdateItem, 4, 1, 0},       {statements::kSetStorageFileStatus, 1, 1, 0},
               {statements::kDeleteResendJobs, 0, 0, 0}, {statements::kMarkOldItems, 0, 0, 0}};
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

// The texts are a contract with every other backend, and with whoever reads a log of the database.
TEST_F(DatabaseTest, TheStatementsAreInTheDialectOfAccess)
{
    const std::pair<std::string_view, std::string_view> all[] = {
        {statements::kReadItem, "SELECT ID, StoreID, LastModified, Version FROM tblItem WHERE EntryID=?"},
        {statements::kReadItemById, "SELECT EntryID, StoreID, LastModified, Version FROM tblItem WHERE ID=?"},
        {statements::kLoadItem, "SELECT EntryID, StoreID, LastModified FROM tblItem WHERE ID=?"},
        {statements::kReadLastModified, "SELECT LastModified FROM tblItem WHERE EntryID=?"},
        {statements::kAppendItem,
         "INSERT INTO tblItem (ID,EntryID,StoreID, LastModified, Version) VALUES (?,?,?,?, 3.0)"},
        {statements::kImportItem,
         "INSERT INTO tblItem (ID,EntryID,StoreID, LastModified, Version) VALUES (?,?,?, Now(), 3.0)"},
        {statements::kUpdateItem,
         "UPDATE tblItem SET ID=?, EntryID=?, StoreID=?, LastModified=?, Version=3.0 WHERE ID=?"},
        {statements::kDeleteItem, "DELETE * FROM tblItem WHERE ID=?"},
        {statements::kAddVersionColumn, "ALTER TABLE tblItem ADD COLUMN Version NUMBER"},
        {statements::kMarkOldItems, "UPDATE tblItem SET Version=2.0 WHERE Version IS NULL"},
        {statements::kReadStorageFiles, "SELECT Recipients, Path, Status FROM tblStorageFiles"},
        {statements::kAddStorageFile, "INSERT INTO tblStorageFiles (Recipients,Path,Status) VALUES (?,?,?)"},
        {statements::kSetStorageFileStatus, "UPDATE tblStorageFiles SET Status=? WHERE Path=?"},
        {statements::kDeleteStorageFile, "DELETE * FROM tblStorageFiles WHERE Path=?"},
        {statements::kReadReceiveJobs, "SELECT Path, Tag FROM tblUnfinishedReceiveJob"},
        {statements::kDeleteReceiveJob, "DELETE * FROM tblUnfinishedReceiveJob WHERE Path=?"},
        {statements::kAddReceiveJob, "INSERT INTO tblUnfinishedReceiveJob (Path,Tag) VALUES (?,?)"},
        {statements::kAddResendJob,
         "INSERT INTO tblUnfinishedResendJob (JobID, FolderID,Recipients) VALUES (?,?, ?)"},
        {statements::kDeleteResendJobs, "DELETE * FROM tblUnfinishedResendJob"}};
    for (const auto& [statement, text] : all)
        EXPECT_EQ(statement, text);
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
    using std::chrono::sys_days;
    const std::time_t now = std::time(nullptr);
    const std::tm local = *std::localtime(&now);
    const sys_days today = std::chrono::year(1900 + local.tm_year) /
                           std::chrono::month(static_cast<unsigned>(local.tm_mon) + 1) / local.tm_mday;
    const sys_days first = std::chrono::year(1899) / 12 / 30;
    const double expected = static_cast<double>((today - first).count()) +
                            (local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec) / 86400.0;
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
    EXPECT_EQ(value, 255);
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
    const Bstr text(OLESTR("\u20AC\u20AC\u20AC"));
    const size_t bytes = Narrow(text.View()).size();
    StatementParameters values;
    values.Text(bytes + 1, text.Get());
    EXPECT_EQ(values.Result(), S_OK);
    values.Text(bytes, text.Get());
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

TEST_F(DatabaseTest, ANumberThatHasNoRoomInAByteFailsItsRowAndTheNextIsRead)
{
    OpenAll();
    Sql("INSERT INTO tblStorageFiles VALUES ('a','p1',256), ('b','p2',-1e300), ('c','p3',255)");
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadStorageFiles, columns::kReadStorageFiles, rows), S_OK);
    EXPECT_EQ(rows.Step(), E_INVALIDARG);
    EXPECT_EQ(DatabaseErrorRecords().size(), 1u);
    EXPECT_EQ(rows.Step(), E_INVALIDARG);
    EXPECT_EQ(rows.Step(), S_OK);
    EXPECT_EQ(rows.Step(), kEndOfRowset);
}

TEST_F(DatabaseTest, ATextOfAnyLengthInTheFileCostsNoMoreThanItsRefusal)
{
    OpenAll();
    Sql("INSERT INTO tblUnfinishedReceiveJob VALUES (replace(hex(zeroblob(1000000)), '0', 'x'), 't')");
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadReceiveJobs, columns::kReadReceiveJobs, rows), S_OK);
    EXPECT_EQ(rows.Step(), E_INVALIDARG);
    EXPECT_EQ(rows.Step(), kEndOfRowset);
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

TEST_F(DatabaseTest, EveryStepOfATransactionBeginsWithoutTheRecordsOfWhatFailedBefore)
{
    OpenAll();
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    for (HRESULT (DatabaseSession::*step)() noexcept :
         {&DatabaseSession::StartTransaction, &DatabaseSession::Commit, &DatabaseSession::StartTransaction,
          &DatabaseSession::Abort}) {
        EXPECT_EQ(Append("{1}", "E2"), kIntegrityViolation);
        ASSERT_EQ(DatabaseErrorRecords().size(), 1u);
        EXPECT_EQ((session.*step)(), S_OK);
        EXPECT_TRUE(DatabaseErrorRecords().empty());
    }
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
    EXPECT_EQ(session.Execute(statements::kDeleteItem), databaseKind.valueMissing);
    EXPECT_EQ(session.Execute("no statement"), kErrorsInCommand);
}

TEST_F(DatabaseTest, AWrongNumberOfColumnsIsRefused)
{
    OpenAll();
    Rowset rows;
    for (const char* const statement : {statements::kReadReceiveJobs, statements::kDeleteResendJobs}) {
        EXPECT_EQ(session.Query(statement, columns::kReadItem, rows), E_INVALIDARG);
        EXPECT_EQ(DatabaseErrorRecords(),
                  std::vector<std::string>{"The statement gives another number of columns."});
        EXPECT_EQ(rows.Step(), kNotOpen);
    }
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

TEST_F(DatabaseTest, WithoutAnErrorRecordNothingIsDescribed)
{
    OpenAll();
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    EXPECT_EQ(testing::TracedLines([] { TraceOLEDBError(E_FAIL); }), "");
}

TEST_F(DatabaseTest, EachThreadHasErrorRecordsOfItsOwn)
{
    OpenAll();
    EXPECT_EQ(session.Execute("no statement"), kErrorsInCommand);
    std::thread([] { EXPECT_TRUE(DatabaseErrorRecords().empty()); }).join();
    EXPECT_EQ(DatabaseErrorRecords().size(), 1u);
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

TEST_F(DatabaseTest, ANewFileIsLeftAsItIsByTheUpgrade)
{
    OpenAll();
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    Sql("INSERT INTO tblItem (ID, EntryID, StoreID) VALUES ('{2}', 'E2', 'S1')");
    EXPECT_EQ(UpgradeDB(source), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/1.5/3");
    EXPECT_EQ(Item("E2"), "{2}/S1/0/0") << "rows without a version are left to an older file's upgrade";
}

TEST_F(DatabaseTest, SeveralLogonsAtOnceUpgradeAnOldFileOnce)
{
    Sql("CREATE TABLE tblItem (ID TEXT, EntryID TEXT, StoreID TEXT, LastModified REAL);"
        "INSERT INTO tblItem VALUES ('{1}', 'E1', 'S1', 5);");
    std::vector<std::thread> logons;
    for (int i = 0; i < 4; ++i) {
        logons.emplace_back([this, i] {
            DataSource own;
            DatabaseSession ownSession;
            ASSERT_EQ(own.Open(ConnectionStringFor(Widen(path))), S_OK);
            EXPECT_EQ(UpgradeDB(own), S_OK);
            ASSERT_EQ(own.OpenSession(ownSession), S_OK);
            const std::string name = std::to_string(i);
            EXPECT_EQ(
                ownSession.Execute(statements::kAppendItem, ItemValues("{n" + name + "}", "N" + name, 1)),
                S_OK);
        });
    }
    for (std::thread& logon : logons)
        logon.join();
    ASSERT_EQ(Open(), S_OK);
    ASSERT_EQ(source.OpenSession(session), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/5/2");
    for (const char* const entryId : {"N0", "N1", "N2", "N3"})
        EXPECT_EQ(Item(entryId).substr(4), "/S1/1/3");
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

}  // namespace
}  // namespace quorvane
