#include "tests/fault/sqlite_file.h"

#include <sqlite3.h>

#include <stdexcept>

namespace quorvane::test {

namespace {

class SqliteFile {
public:
    explicit SqliteFile(const std::string& path) { sqlite3_open(path.c_str(), &database_); }
    SqliteFile(const SqliteFile&) = delete;
    SqliteFile& operator=(const SqliteFile&) = delete;
    ~SqliteFile() { sqlite3_close(database_); }

    // Takes `row` the first column of each row.
    template <class Row>
    bool Run(const std::string& sql, Row row)
    {
        const auto take = [](void* context, int, char** texts, char**) {
            (*static_cast<Row*>(context))(texts[0] ? texts[0] : "NULL");
            return 0;
        };
        return sqlite3_exec(database_, sql.c_str(), take, &row, nullptr) == SQLITE_OK;
    }
    std::string Message() const { return sqlite3_errmsg(database_); }

private:
    sqlite3* database_ = nullptr;
};

}  // namespace

std::string AskSqlite(const std::string& path, const char* sql)
{
    SqliteFile file(path);
    std::string answer;
    const bool asked =
        file.Run(sql, [&](const char* text) { answer += (answer.empty() ? "" : ",") + std::string(text); });
    return asked ? answer : file.Message();
}

void RunSqlite(const std::string& path, const std::string& sql)
{
    SqliteFile file(path);
    if (!file.Run(sql, [](const char*) {}))
        throw std::runtime_error(sql + ": " + file.Message());
}

}  // namespace quorvane::test
