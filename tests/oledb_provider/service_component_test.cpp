// What the provider is told by way of the system's service component.
#include <gtest/gtest.h>

#include "engine/persist/testing/database_fixture.h"
#include "platform/file/file.h"
#include "tests/oledb_provider/access_file.h"
#include "tests/oledb_provider/registered_provider.h"

namespace quorvane {
namespace {

using test::LastProviderNotes;
using test::ProviderNotes;
using testing::databaseKind;
using testing::DatabaseTest;

class ServiceComponentTest : public DatabaseTest {};

TEST_F(ServiceComponentTest, TheProviderGetsWhatTheConnectionStringSays)
{
    OpenAll();
    const ProviderNotes notes = LastProviderNotes();
    EXPECT_EQ(Narrow(notes.dataSource), path);
    EXPECT_EQ(Narrow(notes.userId), "Admin");
    EXPECT_EQ(notes.mode, 3);
    EXPECT_EQ(notes.engineType, 5);
}

TEST_F(ServiceComponentTest, TheProviderMayAskForWhatIsMissingAndHasNoWindowToDoSo)
{
    OpenAll();
    const ProviderNotes notes = LastProviderNotes();
    EXPECT_EQ(notes.prompt, 3);
    EXPECT_FALSE(notes.hasWindow);
}

TEST_F(ServiceComponentTest, AnSqliteDatabaseIsOpenedWithoutTheProvider)
{
    databaseKind.vfs = nullptr;
    Sql("CREATE TABLE tblItem (ID TEXT, EntryID TEXT, StoreID TEXT, LastModified REAL, Version REAL)");
    databaseKind.vfs = test::kAccessFileVfs;
    const ULONG before = LastProviderNotes().initialized;
    ASSERT_EQ(Open(), S_OK);
    ASSERT_EQ(source.OpenSession(session), S_OK);
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/1.5/3");
    EXPECT_EQ(LastProviderNotes().initialized, before);
    EXPECT_FALSE(test::ProviderIsInUse());
}

TEST_F(ServiceComponentTest, AnAccessFileIsOpenedByTheProviderOnceALogon)
{
    const ULONG before = LastProviderNotes().initialized;
    OpenAll();
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/1.5/3");
    EXPECT_EQ(LastProviderNotes().initialized, before + 1);
    EXPECT_TRUE(test::ProviderIsInUse());
}

TEST_F(ServiceComponentTest, AFileThatIsMarkedReadOnlyFailsTheOpen)
{
    using std::filesystem::perms;
    MakeDatabase();
    std::filesystem::permissions(path, perms::owner_read, std::filesystem::perm_options::replace);
    const ULONG before = LastProviderNotes().initialized;
    EXPECT_EQ(Open(), STG_E_ACCESSDENIED);
    EXPECT_EQ(DatabaseErrorRecords(), std::vector<std::string>{"The database may not be written."});
    EXPECT_FALSE(source.IsOpen());
    EXPECT_EQ(LastProviderNotes().initialized, before) << "it is refused whatever a provider says to it";
    std::filesystem::permissions(path, perms::owner_all, std::filesystem::perm_options::replace);
    EXPECT_EQ(Open(), S_OK);
}

TEST_F(ServiceComponentTest, AFileThatIsDamagedBehindItsHeadFailsTheOpenWithTheProvidersWords)
{
    MakeDatabase();
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(test::kAccessHeaderSize);
    file << "no database any more";
    file.close();
    EXPECT_EQ(Open(), E_FAIL);
    EXPECT_EQ(DatabaseErrorRecords(), std::vector<std::string>{"file is not a database"});
}

TEST_F(ServiceComponentTest, AFileThatIsCutAfterItsHeadFailsTheOpen)
{
    MakeDatabase();
    std::filesystem::resize_file(path, 100);
    EXPECT_EQ(Open(), E_FAIL);
    EXPECT_EQ(DatabaseErrorRecords().size(), 1u);
}

TEST_F(ServiceComponentTest, AFileThatAnotherKeepsForItselfFailsTheOpenUntilItIsLetGo)
{
    MakeDatabase();
    File other;
    ASSERT_EQ(other.Open(path, FileAccess::ReadWrite, FileMode::OpenExisting, FileShare::None), S_OK);
    EXPECT_EQ(Open(), STG_E_ACCESSDENIED);
    EXPECT_EQ(DatabaseErrorRecords().size(), 1u);
    other.Close();
    EXPECT_EQ(Open(), S_OK);
}

TEST_F(ServiceComponentTest, TwoOpenersSeeEachOthersRowsAndTransactionsWhole)
{
    OpenAll();
    DataSource other;
    DatabaseSession otherSession;
    ASSERT_EQ(other.Open(ConnectionStringFor(Widen(path))), S_OK);
    ASSERT_EQ(other.OpenSession(otherSession), S_OK);
    ASSERT_EQ(otherSession.StartTransaction(), S_OK);
    ASSERT_EQ(otherSession.Execute(statements::kAppendItem, ItemValues("{1}", "E1", 1)), S_OK);
    EXPECT_EQ(Item("E1"), "none");
    ASSERT_EQ(otherSession.Commit(), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/1/3");
}

TEST_F(ServiceComponentTest, AFailureInATransactionLeavesTheRestOfIt)
{
    OpenAll();
    ASSERT_EQ(session.StartTransaction(), S_OK);
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    EXPECT_EQ(Append("{1}", "E2"), kIntegrityViolation);
    EXPECT_EQ(DatabaseErrorRecords(), std::vector<std::string>{"UNIQUE constraint failed: tblItem.ID"});
    ASSERT_EQ(Append("{3}", "E3"), S_OK);
    ASSERT_EQ(session.Commit(), S_OK);
    EXPECT_EQ(Item("E1"), "{1}/S1/1.5/3");
    EXPECT_EQ(Item("E2"), "none");
    EXPECT_EQ(Item("E3"), "{3}/S1/1.5/3");
}

TEST_F(ServiceComponentTest, RowsOutliveTheirSessionAndTheirDataSource)
{
    OpenAll();
    ASSERT_EQ(Append("{1}", "E1"), S_OK);
    StatementParameters key;
    key.Text(width::kEntryId, std::string("E1"));
    Rowset rows;
    ASSERT_EQ(session.Query(statements::kReadItem, key, columns::kReadItem, rows), S_OK);
    session = DatabaseSession();
    source.Close();
    ASSERT_EQ(rows.Step(), S_OK);
    std::string id;
    EXPECT_EQ(rows.GetText(1, id), S_OK);
    EXPECT_EQ(id, "{1}");
    EXPECT_EQ(rows.Step(), kEndOfRowset);
}

}  // namespace
}  // namespace quorvane
