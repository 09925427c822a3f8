// tests/fault/sqlite_file.h: a database file by itself.
#ifndef QUORVANE_TESTS_FAULT_SQLITE_FILE_H_
#define QUORVANE_TESTS_FAULT_SQLITE_FILE_H_

#include <string>

namespace quorvane::test {

// The rows of a query's first column, apart by commas; what SQLite says if it can't be run.
std::string AskSqlite(const std::string& path, const char* sql);

// Runs statements; throws std::runtime_error.
void RunSqlite(const std::string& path, const std::string& sql);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_FAULT_SQLITE_FILE_H_
