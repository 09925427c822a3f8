// What a provider of OLE DB is asked for, and what becomes of its answers.
#include "engine/persist/access_database_win.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/persist/statements.h"
#include "engine/persist/testing/scripted_provider_win.h"

namespace quorvane {
namespace {

using testing::Calls;
using testing::FakeSource;
using testing::kScriptedFailure;
using testing::Script;

class AccessDatabaseTest : public ::testing::Test {
protected:
    AccessDatabaseTest()
    {
        EXPECT_EQ(backend->Connect(connection), S_OK);
        ClearErrorRecords();
    }

    Script script;
    const ComPtr<FakeSource> source = MakeComObject<FakeSource>(script);
    std::unique_ptr<DatabaseBackend> backend = MakeOledbBackend(source.Get());
    std::unique_ptr<DatabaseConnection> connection;
    std::unique_ptr<DatabaseCursor> cursor;
};

TEST_F(AccessDatabaseTest, TheProviderMayAskForWhatTheConnectionStringLacks)
{
    EXPECT_EQ(InitializeOledbSource(source.Get()), S_OK);
    EXPECT_EQ(script.calls, (Calls{"property 64=3", "initialize"}));
}

TEST_F(AccessDatabaseTest, TheDataSourceEndsWithItsBackend)
{
    connection = nullptr;
    backend = nullptr;
    EXPECT_EQ(script.calls, Calls{"uninitialize"});
}

TEST_F(AccessDatabaseTest, AStatementRunsAsItStandsWithItsParametersInOneBlock)
{
    StatementParameters values;
    values.Text(width::kId, std::string("{1}"))
        .Text(width::kEntryId, std::string("E1"))
        .Text(width::kStoreId, std::string("S1"))
        .Double(1.5);
    ASSERT_EQ(connection->Run(statements::kAppendItem, values.Values(), {}, cursor), S_OK);
    EXPECT_EQ(cursor->Step(), kEndOfRowset);
    EXPECT_EQ(script.calls, (Calls{statements::kAppendItem, "parameters 1:STR50 2:STR255 3:STR1024 4:R8",
                                   "run {1} E1 S1 1.500000"}));
}

TEST_F(AccessDatabaseTest, AStatusIsInsertedAsAByteAndUpdatedAsAShort)
{
    StatementParameters inserted;
    inserted.Text(width::kRecipients, std::string("r")).Text(width::kInsertedPath, std::string("p")).Byte(0);
    ASSERT_EQ(connection->Run(statements::kAddStorageFile, inserted.Values(), {}, cursor), S_OK);
    StatementParameters updated;
    updated.Short(VARIANT_TRUE).Text(width::kStatusPath, std::string("p"));
    ASSERT_EQ(connection->Run(statements::kSetStorageFileStatus, updated.Values(), {}, cursor), S_OK);
    EXPECT_EQ(script.calls,
              (Calls{statements::kAddStorageFile, "parameters 1:STR1024 2:STR255 3:UI1", "run r p 0",
                     statements::kSetStorageFileStatus, "parameters 1:I2 2:STR260", "run -1 p"}));
}

TEST_F(AccessDatabaseTest, RowsAreBoundByTheirOrdinalsAndReleasedOneByOne)
{
    script.columns = 3;
    ASSERT_EQ(connection->Run(statements::kReadStorageFiles, {}, columns::kReadStorageFiles, cursor), S_OK);
    ASSERT_EQ(cursor->Step(), S_OK);
    std::string text;
    EXPECT_TRUE(cursor->Text(1, width::kRecipients, text));
    EXPECT_EQ(text, "text");
    EXPECT_EQ(cursor->Number(3), 255);
    EXPECT_EQ(cursor->Step(), kEndOfRowset);
    EXPECT_EQ(script.calls, (Calls{statements::kReadStorageFiles, "open", "columns 1:STR1024 2:STR256 3:UI1",
                                   "release row"}));
}

TEST_F(AccessDatabaseTest, AMissingValueIsTold)
{
    script.columns = 1;
    script.lastStatus = DBSTATUS_S_ISNULL;
    ASSERT_EQ(connection->Run(statements::kReadLastModified, {}, columns::kReadLastModified, cursor), S_OK);
    ASSERT_EQ(cursor->Step(), S_OK);
    EXPECT_FALSE(cursor->HasValue(1));
}

TEST_F(AccessDatabaseTest, ATextThatWasCutIsRefused)
{
    script.columns = 2;
    script.lastStatus = DBSTATUS_S_TRUNCATED;
    ASSERT_EQ(connection->Run(statements::kReadReceiveJobs, {}, columns::kReadReceiveJobs, cursor), S_OK);
    ASSERT_EQ(cursor->Step(), S_OK);
    std::string text;
    EXPECT_TRUE(cursor->Text(1, width::kReceivedPath, text));
    EXPECT_FALSE(cursor->Text(2, width::kTag, text));
}

TEST_F(AccessDatabaseTest, AValueThatHasNoRoomFailsItsRow)
{
    script.columns = 1;
    script.lastStatus = DBSTATUS_E_DATAOVERFLOW;
    ASSERT_EQ(connection->Run(statements::kReadLastModified, {}, columns::kReadLastModified, cursor), S_OK);
    EXPECT_EQ(cursor->Step(), E_INVALIDARG);
    EXPECT_EQ(DatabaseErrorRecords().size(), 1u);
}

TEST_F(AccessDatabaseTest, AWrongNumberOfColumnsIsRefused)
{
    script.columns = 1;
    EXPECT_EQ(connection->Run(statements::kReadReceiveJobs, {}, columns::kReadReceiveJobs, cursor),
              E_INVALIDARG);
}

TEST_F(AccessDatabaseTest, ATransactionIsReadCommittedAndCommittedSynchronously)
{
    EXPECT_EQ(connection->StartTransaction(), S_OK);
    EXPECT_EQ(connection->Commit(), S_OK);
    EXPECT_EQ(connection->StartTransaction(), S_OK);
    EXPECT_EQ(connection->Abort(), S_OK);
    EXPECT_EQ(script.calls, (Calls{"start 4096", "commit 0 2", "start 4096", "abort 0"}));
}

TEST_F(AccessDatabaseTest, EachRecordOfAFailureIsDescribedInItsOrder)
{
    script.fails = true;
    EXPECT_EQ(connection->Run(statements::kDeleteResendJobs, {}, {}, cursor), kScriptedFailure);
    EXPECT_EQ(DatabaseErrorRecords(), (std::vector<std::string>{"record 0", "record 1"}));
    EXPECT_EQ(InitializeOledbSource(source.Get()), kScriptedFailure);
}

TEST_F(AccessDatabaseTest, ASessionStaysWithTheThreadThatMadeIt)
{
    EXPECT_FALSE(backend->KeepsConnections());
}

TEST(AccessFileTest, OnlyAFileWithItsSignatureIsAccesss)
{
    const auto path = (std::filesystem::temp_directory_path() / "quorvane-access-test.mdb").string();
    std::unique_ptr<DatabaseBackend> backend;
    std::ofstream(path, std::ios::binary) << std::string("SQLite format 3\0 and more", 25);
    EXPECT_EQ(OpenAccessDatabase(OLESTR(""), path, backend), S_FALSE);
    std::ofstream(path, std::ios::binary) << "short";
    EXPECT_EQ(OpenAccessDatabase(OLESTR(""), path, backend), S_FALSE);

    // There is no such provider: the service says so, whatever else is on this machine.
    ASSERT_EQ(CoInitialize(nullptr), S_OK);
    for (const char* const kind : {"Jet", "ACE"}) {
        std::ofstream(path, std::ios::binary)
            << std::string("\0\1\0\0Standard ", 13) << kind << std::string(" DB\0 and more", 13);
        EXPECT_TRUE(FAILED(OpenAccessDatabase(OLESTR("Provider=Quorvane.NoSuchProvider;"), path, backend)));
    }
    EXPECT_EQ(backend, nullptr);
    CoUninitialize();
    std::filesystem::remove(path);
}

}  // namespace
}  // namespace quorvane
