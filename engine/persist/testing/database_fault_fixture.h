// persist/testing/database_fault_fixture.h: operations on a sharing database, and what each does to its rows.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_FAULT_FIXTURE_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_FAULT_FIXTURE_H_

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include "engine/persist/testing/database_fixture.h"
#include "engine/persist/testing/database_vfs.h"

namespace quorvane::testing {

// What the tables hold: "ID EntryID" of each item, and the paths of received files.
using Rows = std::set<std::string>;

// One operation, and what it does to the rows when it succeeds.
struct Operation {
    std::function<HRESULT(DatabaseSession&)> run;
    std::function<void(Rows&)> effect;
};

inline StatementParameters Texts(std::initializer_list<const char*> texts)
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

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_FAULT_FIXTURE_H_
