// Stores of the schema's earlier versions, made of SQL as they were, open and hold what they held.
#include "msgstore/store/schema.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <iomanip>
#include <sstream>

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
    // The same with rows of the test's own, and logs on to it.
    void AdoptVersion4(const std::string& moreRows)
    {
        std::ostringstream guid;
        for (const BYTE byte : BinaryOf(mailbox.Store(), PR_RECORD_KEY))
            guid << std::hex << std::setw(2) << std::setfill('0') << unsigned{byte};
        mailbox.LogOff();
        // The profile knows it by its GUID.
        MakeStoreOfVersion4(mailbox.StorePath(),
                            (moreRows + "; UPDATE store SET guid=x'" + guid.str() + "'").c_str());
        mailbox.LogOn();
    }
    ComPtr<IMessage> OpenFirst()
    {
        RowSet rows;
        EXPECT_EQ(ContentsOf(mailbox.Inbox())->QueryRows(1, 0, rows.Put()), S_OK);
        return mailbox.OpenMessage(BinaryOf(rows[0], PR_ENTRYID));
    }
    static OleString FirstRecipient(IMessage& message)
    {
        ComPtr<IMAPITable> table;
        RowSet rows;
        EXPECT_EQ(message.GetRecipientTable(MAPI_UNICODE, table.Put()), S_OK);
        EXPECT_EQ(table->QueryRows(1, 0, rows.Put()), S_OK);
        return TextOf(rows[0], PR_DISPLAY_NAME_W);
    }
    std::int64_t Ask(const char* sql) { return AskStore(mailbox.StorePath(), sql); }

    TestMailbox mailbox;
};

TEST_F(SchemaVersionTest, AStoreOfVersion1OpensAndItsMessagesAreSortedAndFound)
{
    ASSERT_NO_FATAL_FAILURE(MakeVersion1());

    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);

    EXPECT_EQ(Ask("PRAGMA user_version"), 5);
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

    EXPECT_EQ(Ask("PRAGMA user_version"), 5);
    EXPECT_EQ(Ask("SELECT count(*) FROM message WHERE subject_key = 'ｚｅ'"), 1);
    EXPECT_EQ(Ask("SELECT count(*) FROM message WHERE subject_key IS qv_fold(subject)"), 4);
}

TEST_F(SchemaVersionTest, NoFolderOfVersion3Searches)
{
    mailbox.LogOff();
    ASSERT_NO_FATAL_FAILURE(MakeStoreOfVersion3(mailbox.StorePath()));

    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);

    EXPECT_EQ(Ask("PRAGMA user_version"), 5);
    EXPECT_EQ(Ask("SELECT count(*) FROM folder WHERE search IS NULL"), 6);
}

TEST_F(SchemaVersionTest, MessagesOfVersion4ReadAsTheyDidAndArePackedWhenTheyAreSaved)
{
    // A body in UTF-16, of one letter a thousand times, and recipients as they were laid out.
    std::string body;
    for (int i = 0; i < 1000; ++i)
        body += "6100";
    ASSERT_NO_FATAL_FAILURE(
        AdoptVersion4("UPDATE part SET properties=x'1F0037000A0000007A006500620072006100"
                      "1F000010D0070000" +
                      body +
                      "', recipients=x'01000000260000000300150C0400000001000000"
                      "0300003004000000000000001F000130060000005A006F006500' WHERE message_id=1"));

    const ComPtr<IMessage> message = OpenFirst();
    EXPECT_EQ(TextOf(*message, PR_SUBJECT_W), OLESTR("zebra"));
    EXPECT_EQ(TextOf(*message, PR_BODY_W), OleString(1000, OLECHAR{'a'}));
    EXPECT_EQ(FirstRecipient(*message), OLESTR("Zoe"));
    const std::int64_t before = Ask("SELECT length(properties) FROM part WHERE message_id=1");
    EXPECT_EQ(Ask("PRAGMA user_version"), 5);
    EXPECT_GT(before, 2000);

    ASSERT_EQ(SetText(*message, PR_SUBJECT_W, OLESTR("gnu")), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);

    EXPECT_LT(Ask("SELECT length(properties) FROM part WHERE message_id=1"), 300);
    const ComPtr<IMessage> again = OpenFirst();
    EXPECT_EQ(TextOf(*again, PR_SUBJECT_W), OLESTR("gnu"));
    EXPECT_EQ(TextOf(*again, PR_BODY_W), OleString(1000, OLECHAR{'a'}));
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
