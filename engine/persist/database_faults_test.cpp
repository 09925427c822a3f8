// A sharing database on a disk that refuses, after a power failure, or damaged.
#include <gtest/gtest.h>

#include "engine/persist/testing/database_fault_fixture.h"

namespace quorvane {
namespace {

using testing::DatabaseFaultTest;
using testing::DiskFault;
using testing::ReadFile;

TEST_F(DatabaseFaultTest, AChangeThatTheDiskRefusesOnceFailsItsStatementAlone)
{
    RefuseEveryChange(DiskFault::Once);
}

TEST_F(DatabaseFaultTest, ADiskThatRefusesEveryChangeFromSomeMomentKeepsWhatWasWrittenBefore)
{
    RefuseEveryChange(DiskFault::Stays);
}

TEST_F(DatabaseFaultTest, WithARollbackJournalARefusedChangeFailsItsStatementAloneToo)
{
    vfs.DenySharedMemory(true);
    RefuseEveryChange(DiskFault::Once);
}

TEST_F(DatabaseFaultTest, ARefusedStatementIsDescribed)
{
    OpenAll();
    vfs.Arm(DiskFault::Once, 1);
    EXPECT_EQ(Append("{1}", "E1"), STG_E_MEDIUMFULL);
    ASSERT_EQ(DatabaseErrorRecords().size(), 1u);
    EXPECT_EQ(DatabaseErrorRecords()[0], "database or disk is full");
    vfs.Disarm();
    EXPECT_EQ(Item("E1"), "none");
}

TEST_F(DatabaseFaultTest, AnUpgradeThatTheDiskRefusesIsMadeUpForByTheNextLogon)
{
    unsigned at = 1;
    for (;; ++at) {
        MakeAnew();
        Sql("DROP TABLE tblItem; CREATE TABLE tblItem (ID TEXT, EntryID TEXT, StoreID TEXT, LastModified "
            "REAL);"
            "INSERT INTO tblItem VALUES ('{1}', 'E1', 'S1', 5);");
        ASSERT_EQ(Open(), S_OK);
        vfs.Arm(DiskFault::Stays, at);
        EXPECT_EQ(UpgradeDB(source), S_OK);
        const bool struck = vfs.Disarm();
        EXPECT_EQ(UpgradeDB(source), S_OK);
        ASSERT_EQ(source.OpenSession(session), S_OK);
        EXPECT_EQ(Item("E1"), "{1}/S1/5/2") << at;
        if (!struck)
            break;
    }
    EXPECT_GT(at, 2u);
}

TEST_F(DatabaseFaultTest, AcknowledgedRowsOutliveAPowerFailure)
{
    for (const bool denied : {false, true}) {
        MakeAnew();
        vfs.DenySharedMemory(denied);
        const std::filesystem::path after = directory / "after";
        std::filesystem::create_directories(after);
        ASSERT_EQ(Open(), S_OK);
        std::filesystem::copy(path, after / "share.db");
        vfs.RememberSyncs();
        ASSERT_EQ(source.OpenSession(session), S_OK);
        for (const char* const id : {"{1}", "{2}", "{3}"}) {
            ASSERT_EQ(AppendItem(session, id, "E"), S_OK);
            vfs.PutSynced(after);
            EXPECT_EQ(RowsOf((after / "share.db").string()).count(id + std::string(" E")), 1u);
        }
    }
}

TEST_F(DatabaseFaultTest, ARowThatDoesntWaitIsOnTheDiskWithTheNextThatDoes)
{
    MakeAnew();
    const std::filesystem::path after = directory / "after";
    std::filesystem::create_directories(after);
    ASSERT_EQ(Open(), S_OK);
    std::filesystem::copy(path, after / "share.db");
    vfs.RememberSyncs();
    ASSERT_EQ(source.OpenSession(session), S_OK);
    const auto rowsAfterwards = [&] {
        vfs.PutSynced(after);
        return RowsOf((after / "share.db").string()).size();
    };
    const std::size_t before = rowsAfterwards();

    ASSERT_EQ(source.WaitForDisk(false), S_OK);
    ASSERT_EQ(AppendItem(session, "{1}", "E"), S_OK);
    EXPECT_EQ(rowsAfterwards(), before);
    EXPECT_EQ(RowsOf(path).count("{1} E"), 1u);  // and it outlives the process
    ASSERT_EQ(source.WaitForDisk(true), S_OK);
    ASSERT_EQ(AppendItem(session, "{2}", "E"), S_OK);
    EXPECT_EQ(rowsAfterwards(), before + 2);
}

// A commit that doesn't wait could leave a database with a rollback journal in pieces.
TEST_F(DatabaseFaultTest, WithoutALogEachRowWaits)
{
    MakeAnew();
    vfs.DenySharedMemory(true);
    ASSERT_EQ(Open(), S_OK);
    EXPECT_EQ(source.WaitForDisk(false), E_NOTIMPL);
    const std::filesystem::path after = directory / "after";
    std::filesystem::create_directories(after);
    std::filesystem::copy(path, after / "share.db");
    vfs.RememberSyncs();
    ASSERT_EQ(source.OpenSession(session), S_OK);
    ASSERT_EQ(AppendItem(session, "{1}", "E"), S_OK);
    vfs.PutSynced(after);
    EXPECT_EQ(RowsOf((after / "share.db").string()).count("{1} E"), 1u);
}

class DamagedDatabaseTest : public DatabaseFaultTest {
protected:
    static constexpr size_t kPage = 4096;

    // A database of many pages, closed.
    void SetUp() override
    {
        DatabaseFaultTest::SetUp();
        MakeDatabase();
        EXPECT_EQ(Open(), S_OK);
        EXPECT_EQ(source.OpenSession(session), S_OK);
        EXPECT_EQ(session.StartTransaction(), S_OK);
        for (int i = 0; i < 300; ++i) {
            const std::string name = std::to_string(1000 + i);
            EXPECT_EQ(Append("{" + name + "}" + std::string(30, 'x'), "E" + name + std::string(100, 'y')),
                      S_OK);
        }
        EXPECT_EQ(session.Commit(), S_OK);
        session = DatabaseSession();
        source.Close();
        bytes = ReadFile(path);
    }

    void Write(const std::string& content) const
    {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    }
    // Reads every row. What the database says in the end.
    HRESULT ReadAll()
    {
        HR_TRY_QUIET(source.OpenSession(session));
        Rowset rows;
        const Column both[] = {columns::kId, columns::kEntryId};
        HR_TRY_QUIET(session.Query("SELECT ID, EntryID FROM tblItem", both, rows));
        HRESULT hr = S_OK;
        while (hr == S_OK || hr == E_INVALIDARG)
            hr = rows.Step();
        return hr;
    }

    std::string bytes;
};

TEST_F(DamagedDatabaseTest, ACutFileFailsWithOneRecordAndStaysAsItIs)
{
    const std::string cut = bytes.substr(0, bytes.size() / 2);
    Write(cut);
    HRESULT hr = Open();
    if (SUCCEEDED(hr))
        hr = ReadAll();
    EXPECT_EQ(hr, STG_E_DOCFILECORRUPT);
    ASSERT_EQ(DatabaseErrorRecords().size(), 1u);
    EXPECT_EQ(DatabaseErrorRecords()[0], "database disk image is malformed");
    session = DatabaseSession();
    source.Close();
    EXPECT_EQ(ReadFile(path), cut);
}

TEST_F(DamagedDatabaseTest, AnyPageMayBeJunkAndTheOthersAreReadOrTheDamageIsTold)
{
    unsigned told = 0;
    for (size_t at = 0; at < bytes.size(); at += kPage) {
        for (const char junk : {'\0', '\xFF', '\x0D'}) {
            std::string damaged = bytes;
            damaged.replace(at, kPage, kPage, junk);
            Write(damaged);
            HRESULT hr = Open();
            if (SUCCEEDED(hr))
                hr = ReadAll();
            if (FAILED(hr)) {
                ++told;
                EXPECT_EQ(DatabaseErrorRecords().size(), 1u) << at;
            }
            session = DatabaseSession();
            source.Close();
            EXPECT_EQ(ReadFile(path), damaged) << at;
        }
    }
    EXPECT_GT(told, 3u);
}

}  // namespace
}  // namespace quorvane
