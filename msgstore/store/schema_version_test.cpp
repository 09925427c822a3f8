// Stores of the schema's earlier versions, made of SQL as they were, open and hold what they held.
#include "msgstore/store/schema.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "msgstore/store/ask_store.h"
#include "msgstore/store/earlier_versions.h"
#include "msgstore/store/store_core.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

class SchemaVersionTest : public ::testing::Test {
protected:
    // Takes the place of the mailbox's store.
    void MakeVersion1()
    {
        mailbox.LogOff();
        MakeStoreOfVersion1(mailbox.StorePath());
    }
    std::int64_t Ask(const char* sql) { return AskStore(mailbox.StorePath(), sql); }

    TestMailbox mailbox;
};

TEST_F(SchemaVersionTest, AStoreOfVersion1OpensAndItsMessagesAreSortedAndFound)
{
    ASSERT_NO_FATAL_FAILURE(MakeVersion1());

    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);

    EXPECT_EQ(Ask("PRAGMA user_version"), 4);
    EXPECT_EQ(Ask("SELECT count(*) FROM message WHERE subject_key IS qv_fold(subject)"), 3);
    EXPECT_EQ(Ask("SELECT count(*) FROM pragma_integrity_check WHERE integrity_check <> 'ok'"), 0);
    EXPECT_EQ(Ask("SELECT count(*) FROM pragma_foreign_key_check"), 0);
    EXPECT_EQ(Ask("SELECT count(*) FROM folder"), 6);
}

TEST_F(SchemaVersionTest, AStoreThatWasBroughtUpHasTheTablesOfANewOne)
{
    const auto columns = "SELECT count(*) FROM pragma_table_info('message')";
    const auto folderColumns = "SELECT count(*) FROM pragma_table_info('folder')";
    const std::int64_t newFolderColumns = Ask(folderColumns);
    const auto indexes = "SELECT count(*) FROM sqlite_schema WHERE type='index'";
    const std::int64_t newColumns = Ask(columns);
    const std::int64_t newIndexes = Ask(indexes);
    ASSERT_NO_FATAL_FAILURE(MakeVersion1());

    EXPECT_EQ(Ask(columns), newColumns);
    EXPECT_EQ(Ask(folderColumns), newFolderColumns);
    EXPECT_EQ(Ask(indexes), newIndexes);
}

TEST_F(SchemaVersionTest, ASubjectOfVersion2IsFoundByLettersThatItDidNotFold)
{
    mailbox.LogOff();
    ASSERT_NO_FATAL_FAILURE(MakeStoreOfVersion2(mailbox.StorePath()));

    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);

    EXPECT_EQ(Ask("PRAGMA user_version"), 4);
    EXPECT_EQ(Ask("SELECT count(*) FROM message WHERE subject_key = 'ｚｅ'"), 1);
    EXPECT_EQ(Ask("SELECT count(*) FROM message WHERE subject_key IS qv_fold(subject)"), 4);
}

TEST_F(SchemaVersionTest, NoFolderOfVersion3Searches)
{
    mailbox.LogOff();
    ASSERT_NO_FATAL_FAILURE(MakeStoreOfVersion3(mailbox.StorePath()));

    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);

    EXPECT_EQ(Ask("PRAGMA user_version"), 4);
    EXPECT_EQ(Ask("SELECT count(*) FROM folder WHERE search IS NULL"), 6);
}

TEST_F(SchemaVersionTest, BringingUpThatFailsLeavesTheEarlierVersionWhole)
{
    ASSERT_NO_FATAL_FAILURE(MakeVersion1());
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(mailbox.StorePath().c_str(), &database), SQLITE_OK);
    // In the way of the last statement.
    ASSERT_EQ(sqlite3_exec(database, "CREATE TABLE message_by_subject (x)", nullptr, nullptr, nullptr),
              SQLITE_OK);

    std::shared_ptr<StoreCore> core;
    EXPECT_NE(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);

    sqlite3_stmt* version = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(database, "PRAGMA user_version", -1, &version, nullptr), SQLITE_OK);
    EXPECT_EQ(sqlite3_step(version), SQLITE_ROW);
    EXPECT_EQ(sqlite3_column_int(version, 0), 1);
    sqlite3_finalize(version);
    ASSERT_EQ(sqlite3_exec(database, "DROP TABLE message_by_subject", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
    EXPECT_EQ(Ask("SELECT count(*) FROM message WHERE subject_key IS NOT NULL"), 2);
}

}  // namespace
}  // namespace quorvane
