// The sharing database on a disk that goes wrong at every change that it makes, one after the other.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iterator>

#include "engine/persist/database.h"
#include "engine/persist/statements.h"
#include "platform/file/path.h"
#include "platform/testing/surroundings.h"
#include "tests/fault/disk.h"
#include "tests/fault/sqlite_file.h"

namespace quorvane::test {
namespace {

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// What is in it is told in a text: "ID=EntryID" of each item, apart by commas.
class SharingDatabaseTest : public testing::TestWithParam<DiskTrouble> {
protected:
    using Change = std::function<HRESULT()>;

    ~SharingDatabaseTest() override { std::filesystem::remove_all(directory); }

    void MakeDatabase(const std::string& schema, const std::string& rows)
    {
        for (const auto& file : std::filesystem::directory_iterator(directory))
            std::filesystem::remove(file);
        RunSqlite(path, schema);
        RunSqlite(path, rows);
    }

    void Open()
    {
        ASSERT_EQ(source.Open(ConnectionStringFor(Widen(path))), S_OK);
        ASSERT_EQ(source.OpenSession(session), S_OK);
    }
    void Close()
    {
        session = DatabaseSession();
        source.Close();
    }

    std::string State() { return AskSqlite(path, "SELECT ID || '=' || EntryID FROM tblItem ORDER BY ID"); }

    HRESULT Append(const std::string& id, const std::string& entryId)
    {
        StatementParameters values;
        values.Text(width::kId, id).Text(width::kEntryId, entryId).Text(width::kStoreId, "S").Double(1.5);
        return session.Execute(statements::kAppendItem, values);
    }
    HRESULT Delete(const std::string& id)
    {
        StatementParameters values;
        values.Text(width::kDeletedId, id);
        return session.Execute(statements::kDeleteItem, values);
    }
    HRESULT Update(const std::string& id, const std::string& entryId)
    {
        StatementParameters values;
        values.Text(width::kId, id).Text(width::kEntryId, entryId).Text(width::kStoreId, "S").Double(2.5);
        values.Text(width::kId, id);
        return session.Execute(statements::kUpdateItem, values);
    }

    // Makes the change with the trouble at the disk's first change, the second, and so on until none is met.
    // It has happened or not, also for who opens the file again; the next attempt succeeds.
    void FailEverywhere(const std::string& before, const std::string& after, const Change& change)
    {
        const std::string schema = ReadFile(QUORVANE_SHARING_SCHEMA);
        for (unsigned at = 1;; ++at) {
            SCOPED_TRACE("change " + std::to_string(at));
            MakeDatabase(schema,
                         "INSERT INTO tblItem VALUES ('{1}','E1','S',1.5,3.0), ('{2}','E2','S',1.5,3.0)");
            ASSERT_EQ(State(), before);
            Open();
            Disk::Break(GetParam(), at, path);
            const HRESULT hr = change();
            Close();
            const unsigned changes = Disk::Repair();
            ExpectOneOf(before, after, hr);
            Open();
            if (State() == before) {
                EXPECT_EQ(change(), S_OK);
            }
            EXPECT_EQ(State(), after);
            Close();
            if (HasFailure() || changes < at) {
                EXPECT_EQ(hr, S_OK);
                EXPECT_GT(at, 5u);
                return;
            }
        }
    }

    void ExpectOneOf(const std::string& before, const std::string& after, HRESULT hr)
    {
        EXPECT_EQ(AskSqlite(path, "PRAGMA integrity_check"), "ok");
        const std::string state = State();
        EXPECT_TRUE(state == after || (FAILED(hr) && state == before))
            << state << " after " << std::hex << static_cast<unsigned>(hr);
    }

    const std::filesystem::path directory = MakeTestDirectory();
    const std::string path = (directory / "share.db").string();
    DataSource source;
    DatabaseSession session;
};

TEST_P(SharingDatabaseTest, ANewRowIsThereOrNot)
{
    FailEverywhere("{1}=E1,{2}=E2", "{1}=E1,{2}=E2,{3}=E3", [&] { return Append("{3}", "E3"); });
}

TEST_P(SharingDatabaseTest, AnUpdatedRowIsTheOldOneOrTheNewOne)
{
    FailEverywhere("{1}=E1,{2}=E2", "{1}=new,{2}=E2", [&] { return Update("{1}", "new"); });
}

TEST_P(SharingDatabaseTest, ADeletedRowIsThereOrNot)
{
    FailEverywhere("{1}=E1,{2}=E2", "{2}=E2", [&] { return Delete("{1}"); });
}

TEST_P(SharingDatabaseTest, ARowThatIsRewrittenIsNeverMissing)
{
    FailEverywhere("{1}=E1,{2}=E2", "{1}=new,{2}=E2", [&]() -> HRESULT {
        HR_TRY_QUIET(session.StartTransaction());
        HRESULT hr = Delete("{1}");
        if (SUCCEEDED(hr))
            hr = Append("{1}", "new");
        if (SUCCEEDED(hr))
            return session.Commit();
        EXPECT_EQ(session.Abort(), S_OK);
        return hr;
    });
}

// A session that met trouble is of use once the disk is whole again.
class SharingSessionTest : public SharingDatabaseTest {};

TEST_P(SharingSessionTest, ItGoesOnAfterTheTrouble)
{
    MakeDatabase(ReadFile(QUORVANE_SHARING_SCHEMA), "");
    Open();
    for (unsigned at = 1;; ++at) {
        SCOPED_TRACE("change " + std::to_string(at));
        const std::string id = "{" + std::to_string(at) + "}";
        Disk::Break(GetParam(), at, path);
        const HRESULT hr = Append(id, "E");
        const unsigned changes = Disk::Repair();
        if (FAILED(hr)) {
            EXPECT_EQ(Append(id, "E"), S_OK);
        }
        EXPECT_EQ(AskSqlite(path, "SELECT count(*) FROM tblItem"), std::to_string(at));
        if (HasFailure() || changes < at)
            return;
    }
}

// Files of the version before hold no Version.
TEST_P(SharingDatabaseTest, AnUpgradeThatWasInterruptedIsDoneByTheNextStart)
{
    for (unsigned at = 1;; ++at) {
        SCOPED_TRACE("change " + std::to_string(at));
        MakeDatabase(
            "CREATE TABLE tblItem (ID TEXT PRIMARY KEY, EntryID TEXT, StoreID TEXT, LastModified REAL)",
            "INSERT INTO tblItem VALUES ('{1}','E1','S',1.5), ('{2}','E2','S',1.5)");
        Open();
        Disk::Break(GetParam(), at, path);
        EXPECT_EQ(UpgradeDB(source), S_OK);
        Close();
        const unsigned changes = Disk::Repair();
        EXPECT_EQ(AskSqlite(path, "PRAGMA integrity_check"), "ok");
        EXPECT_EQ(State(), "{1}=E1,{2}=E2");
        Open();
        EXPECT_EQ(UpgradeDB(source), S_OK);
        Close();
        EXPECT_EQ(AskSqlite(path, "SELECT Version FROM tblItem"), "2,2");
        if (HasFailure() || changes < at) {
            EXPECT_GT(at, 5u);
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Disk, SharingDatabaseTest,
                         testing::Values(DiskTrouble::kHiccup, DiskTrouble::kBroken, DiskTrouble::kFull,
                                         DiskTrouble::kPowerCut),
                         [](const auto& trouble) { return NameOf(trouble.param); });

INSTANTIATE_TEST_SUITE_P(Disk, SharingSessionTest,
                         testing::Values(DiskTrouble::kHiccup, DiskTrouble::kBroken, DiskTrouble::kFull),
                         [](const auto& trouble) { return NameOf(trouble.param); });

}  // namespace
}  // namespace quorvane::test
