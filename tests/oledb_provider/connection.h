// tests/oledb_provider/connection.h: runs statements of Access's dialect on a file.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_CONNECTION_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_CONNECTION_H_

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tests/oledb_provider/oledb.h"
#include "tests/oledb_provider/values.h"

namespace quorvane::test {

// One connection to a file (access_file.h). One thread at a time. Failures are codes of OLE DB, described.
class Connection {
public:
    // E_FAIL: there is no such file, or it isn't a database. DB_SEC_E_PERMISSIONDENIED: it may not be
    // written.
    [[nodiscard]] static HRESULT Open(OleStringView path, std::shared_ptr<Connection>& connection) noexcept;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    // What the parameters of a statement are bound to.
    struct Parameters {
        std::vector<DBBINDING> bindings;
        const BYTE* block = nullptr;
    };
    struct Result {
        std::vector<std::string> columns;  // none: the statement gives no rows
        std::vector<Row> rows;
        DBROWCOUNT changed = 0;
    };

    // Runs a statement to its end. DB_E_NOTABLE, DB_E_ERRORSINCOMMAND, DB_E_INTEGRITYVIOLATION,
    // DB_SEC_E_PERMISSIONDENIED, DB_E_PARAMNOTOPTIONAL (a question mark has no value); E_FAIL for others.
    [[nodiscard]] HRESULT Run(OleStringView statement, const Parameters& parameters, Result& result) noexcept;

    // Both fail when there is a transaction already, or none.
    [[nodiscard]] HRESULT Begin() noexcept;
    [[nodiscard]] HRESULT End(bool commits) noexcept;

private:
    explicit Connection(sqlite3* database) noexcept : database_(database) {}
    HRESULT Prepare() noexcept;
    HRESULT RunText(const char* text) noexcept;

    sqlite3* const database_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_CONNECTION_H_
