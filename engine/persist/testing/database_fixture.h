// persist/testing/database_fixture.h: a sharing database in a directory of its own, for tests.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_FIXTURE_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_FIXTURE_H_

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "engine/persist/database.h"
#include "engine/persist/statements.h"
#include "engine/persist/testing/database_kind.h"
#include "platform/testing/test_directory.h"

namespace quorvane::testing {

inline std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class DatabaseTest : public ::testing::Test {
protected:
    // Runs SQL on the file, past the classes under test.
    void Sql(const std::string& text) const
    {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                                  databaseKind.vfs),
                  SQLITE_OK);
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(database, text.c_str(), nullptr, nullptr, &error), SQLITE_OK) << error;
        sqlite3_free(error);
        sqlite3_close(database);
    }
    // An empty sharing database, as the schema makes it.
    void MakeDatabase() const
    {
        static std::string made;
        if (made.empty()) {
            Sql(ReadFile(QUORVANE_SCHEMA_FILE));
            made = ReadFile(path);
        }
        std::ofstream(path, std::ios::binary) << made;
    }
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

    const test::TestDirectory files;
    const std::filesystem::path directory = files.Path();
    const std::string path = files.File("share.db");
    DataSource source;
    DatabaseSession session;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_FIXTURE_H_
