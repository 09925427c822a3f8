// A sharing database on a disk that refuses, in a process that dies, after a power failure, damaged, or not
// ours.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <functional>
#include <set>

#include "engine/persist/testing/database_fixture.h"
#include "engine/persist/testing/database_vfs.h"

namespace quorvane {
namespace {

using testing::DatabaseTest;
using testing::DatabaseVfs;
using testing::DiskFault;
using testing::ReadFile;

// What the tables hold: "ID EntryID" of each item, and the paths of received files.
using Rows = std::set<std::string>;

// One operation, and what it does to the rows when it succeeds.
struct Operation {
    std::function<HRESULT(DatabaseSession&)> run;
    std::function<void(Rows&)> effect;
};

StatementParameters Texts(std::initializer_list<const char*> texts)
{
    StatementParameters values;
    for (const char* const text : texts)
        values.Text(50, std::string(text));
    return values;
}

class DatabaseFaultTest : public DatabaseTest {
protected:
    static HRESULT AppendItem(DatabaseSession& target, const char* id, const char* entryId)
    {
        return target.Execute(statements::kAppendItem, ItemValues(id, entryId, 1));
    }

    static HRESULT UpdateItem(DatabaseSession& target)
    {
        StatementParameters values = ItemValues("{3}", "E3", 7);
        values.Text(width::kId, std::string("{1}"));
        return target.Execute(statements::kUpdateItem, values);
    }

    static HRESULT InOneTransaction(DatabaseSession& target, std::initializer_list<const char*> ids,
                                    bool commits)
    {
        HR_TRY_QUIET(target.StartTransaction());
        for (const char* const id : ids) {
            const HRESULT hr = AppendItem(target, id, "ET");
            if (FAILED(hr)) {
                HR_IGNORE(target.Abort(), "the statement's failure counts");
                return hr;
            }
        }
        return commits ? target.Commit() : target.Abort();
    }

    static std::vector<Operation> Operations()
    {
        return {{[](DatabaseSession& s) { return AppendItem(s, "{1}", "E1"); },
                 [](Rows& rows) { rows.insert("{1} E1"); }},
                {[](DatabaseSession& s) { return AppendItem(s, "{2}", "E2"); },
                 [](Rows& rows) { rows.insert("{2} E2"); }},
                {[](DatabaseSession& s) { return UpdateItem(s); },
                 [](Rows& rows) {
                     if (rows.erase("{1} E1"))
                         rows.insert("{3} E3");
                 }},
                {[](DatabaseSession& s) { return s.Execute(statements::kDeleteItem, Texts({"{2}"})); },
                 [](Rows& rows) { rows.erase("{2} E2"); }},
                {[](DatabaseSession& s) {
                     return s.Execute(statements::kAddReceiveJob, Texts({"p", "t"}));
                 },
                 [](Rows& rows) { rows.insert("p"); }},
                {[](DatabaseSession& s) {
                     return InOneTransaction(s, {"{4}", "{5}"}, true);
                 },
                 [](Rows& rows) {
                     rows.insert({"{4} ET", "{5} ET"});
                 }},
                {[](DatabaseSession& s) { return InOneTransaction(s, {"{6}"}, false); }, [](Rows&) {}},
                {[](DatabaseSession& s) { return s.Execute(statements::kDeleteReceiveJob, Texts({"p"})); },
                 [](Rows& rows) { rows.erase("p"); }}};
    }

    // Starts anew with an empty database.
    void MakeAnew()
    {
        session = DatabaseSession();
        source.Close();
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            std::filesystem::remove_all(entry.path());
        MakeDatabase();
    }

    // The rows of a database as any other program reads them. An unsound one gives what is wrong with it.
    static Rows RowsOf(const std::string& database)
    {
        Rows rows;
        sqlite3* raw = nullptr;
        EXPECT_EQ(sqlite3_open(database.c_str(), &raw), SQLITE_OK);
        const auto add = [](void* to, int, char** values, char**) {
            static_cast<Rows*>(to)->insert(values[0] ? values[0] : "");
            return 0;
        };
        const char* const query =
            "SELECT integrity_check FROM pragma_integrity_check WHERE integrity_check <> 'ok' UNION ALL "
            "SELECT ID || ' ' || EntryID FROM tblItem UNION ALL SELECT Path FROM tblUnfinishedReceiveJob";
        EXPECT_EQ(sqlite3_exec(raw, query, add, &rows, nullptr), SQLITE_OK) << sqlite3_errmsg(raw);
        sqlite3_close(raw);
        return rows;
    }
    Rows RowsOfFile() const { return RowsOf(path); }

    // Runs every operation; the rows are those of the operations that succeeded.
    Rows RunAll()
    {
        Rows rows;
        if (FAILED(Open()) || FAILED(source.OpenSession(session)))
            return rows;
        for (const Operation& operation : Operations()) {
            const HRESULT hr = operation.run(session);
            if (SUCCEEDED(hr))
                operation.effect(rows);
        }
        return rows;
    }

    void RefuseEveryChange(DiskFault fault)
    {
        unsigned at = 1;
        for (;; ++at) {
            MakeAnew();
            vfs.Arm(fault, at);
            Rows rows = RunAll();
            const bool struck = vfs.Disarm();
            // The disk is well again.
            if (!source.IsOpen()) {
                ASSERT_EQ(Open(), S_OK) << at;
            }
            ASSERT_EQ(source.OpenSession(session), S_OK);
            ASSERT_EQ(AppendItem(session, "{9}", "E9"), S_OK) << at;
            rows.insert("{9} E9");
            session = DatabaseSession();
            source.Close();
            ASSERT_EQ(RowsOfFile(), rows) << "refused at " << at;
            if (!struck)
                break;
        }
        EXPECT_GT(at, 20u);
    }

    DatabaseVfs vfs;
};

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

// Runs the operations in a process that dies at a change. Counts those that have succeeded.
TEST_F(DatabaseFaultTest, AKillAtAnyChangeKeepsEveryAcknowledgedOperationWhole)
{
    auto* const acknowledged = static_cast<volatile unsigned*>(
        mmap(nullptr, sizeof(unsigned), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    unsigned kills = 0;
    for (unsigned at = 1;; ++at) {
        MakeAnew();
        *acknowledged = 0;
        const pid_t child = fork();
        if (child == 0) {
            vfs.Arm(DiskFault::Kill, at);
            bool good = Open() == S_OK && source.OpenSession(session) == S_OK;
            for (const Operation& operation : Operations()) {
                good = good && operation.run(session) == S_OK;
                *acknowledged = *acknowledged + (good ? 1 : 0);
            }
            _exit(good ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 9)) << at;
        Rows before;
        Rows after;
        for (unsigned i = 0; i <= *acknowledged && i < Operations().size(); ++i) {
            before = after;
            Operations()[i].effect(after);
        }
        if (*acknowledged == Operations().size())
            before = after;
        const Rows found = RowsOfFile();
        EXPECT_TRUE(found == before || found == after) << "killed at " << at;
        if (WEXITSTATUS(status) == 0)
            break;
        ++kills;
    }
    munmap(const_cast<unsigned*>(acknowledged), sizeof(unsigned));
    EXPECT_GT(kills, 20u);
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

TEST_F(DatabaseFaultTest, AcknowledgedRowsOutliveTheProcess)
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

// Damaged files, and those of others

TEST_F(DatabaseFaultTest, AnAccessDatabaseIsToldAsOneThatCannotBeReadHereAndStaysAsItIs)
{
    const std::string bytes =
        std::string("\0\1\0\0Standard Jet DB\0\1\0\0\0", 24) + std::string(4096 - 24, '\7');
    std::ofstream(path, std::ios::binary) << bytes;
    EXPECT_EQ(Open(), STG_E_OLDFORMAT);
    ASSERT_EQ(DatabaseErrorRecords().size(), 1u);
    EXPECT_EQ(DatabaseErrorRecords()[0], "file is not a database");
    EXPECT_EQ(ReadFile(path), bytes);
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

// Rights. A process of root's loses them first.

class DatabaseRightsTest : public DatabaseTest {
protected:
    // What opening and one insertion give to a user who owns nothing here.
    HRESULT OpenAsStranger()
    {
        const pid_t child = fork();
        if (child == 0) {
            constexpr uid_t kNobody = 65534;
            if (geteuid() == 0 && (setegid(kNobody) != 0 || seteuid(kNobody) != 0))
                _exit(99);
            HRESULT hr = Open();
            if (SUCCEEDED(hr) && SUCCEEDED(source.OpenSession(session)))
                hr = Append("{1}", "E1");
            _exit(hr == S_OK ? 0 : hr == STG_E_ACCESSDENIED ? 1 : hr == kDatabasePermission ? 2 : 3);
        }
        int status = 0;
        waitpid(child, &status, 0);
        constexpr HRESULT kResults[] = {S_OK, STG_E_ACCESSDENIED, kDatabasePermission, E_FAIL};
        return WIFEXITED(status) && WEXITSTATUS(status) < 4 ? kResults[WEXITSTATUS(status)] : E_UNEXPECTED;
    }
};

TEST_F(DatabaseRightsTest, AReadOnlyFileFailsTheOpen)
{
    MakeDatabase();
    ASSERT_EQ(chmod(directory.c_str(), 0777), 0);
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    const std::string before = ReadFile(path);
    EXPECT_EQ(OpenAsStranger(), STG_E_ACCESSDENIED);
    EXPECT_EQ(ReadFile(path), before);
}

TEST_F(DatabaseRightsTest, AFileThatMayNotBeReadFailsTheOpen)
{
    MakeDatabase();
    ASSERT_EQ(chmod(directory.c_str(), 0777), 0);
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    EXPECT_EQ(OpenAsStranger(), STG_E_ACCESSDENIED);
}

TEST_F(DatabaseRightsTest, ADirectoryThatTakesNoJournalFailsTheOpen)
{
    MakeDatabase();
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod(directory.c_str(), 0555), 0);
    EXPECT_EQ(OpenAsStranger(), STG_E_ACCESSDENIED);
    ASSERT_EQ(chmod(directory.c_str(), 0777), 0);
    EXPECT_EQ(OpenAsStranger(), S_OK);
}

}  // namespace
}  // namespace quorvane
