#include "tests/oledb_provider/connection.h"

#include <sqlite3.h>

#include "platform/com/bstr.h"
#include "tests/oledb_provider/access_file.h"
#include "tests/oledb_provider/failures.h"

namespace quorvane::test {
namespace {

constexpr int kBusyTimeoutMs = 30000;

struct CloseStatement {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, CloseStatement>;

// Access's Now(): local time, to the second.
void Now(sqlite3_context* context, int, sqlite3_value**) noexcept
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    now.wMilliseconds = 0;
    double date = 0;
    if (SystemTimeToVariantTime(&now, &date))
        sqlite3_result_double(context, date);
}

// A statement of Access's as SQLite takes it.
std::string Translate(OleStringView statement)
{
    constexpr std::string_view kDelete = "DELETE *";
    std::string text = ToUtf8(statement);
    if (text.starts_with(kDelete))
        text.erase(kDelete.size() - 1, 1);
    return text;
}

HRESULT Bind(sqlite3_stmt* statement, const Connection::Parameters& parameters)
{
    const int wanted = sqlite3_bind_parameter_count(statement);
    const int given = static_cast<int>(parameters.bindings.size());
    if (given < wanted)
        return Fail(DB_E_PARAMNOTOPTIONAL, {"No value given for one or more required parameters."});
    if (given > wanted)
        return Fail(DB_E_ERRORSINCOMMAND, {"The statement has fewer parameters."});
    for (const DBBINDING& binding : parameters.bindings) {
        if (const int code = BindParameter(statement, binding, parameters.block); code != SQLITE_OK)
            return FailAs(sqlite3_db_handle(statement), code);
    }
    return S_OK;
}

HRESULT TakeRows(sqlite3_stmt* statement, Connection::Result& result)
{
    const int columns = sqlite3_column_count(statement);
    for (int i = 0; i < columns; ++i)
        result.columns.emplace_back(sqlite3_column_name(statement, i));
    int code = sqlite3_step(statement);
    for (; code == SQLITE_ROW; code = sqlite3_step(statement)) {
        Row row;
        for (int i = 0; i < columns; ++i)
            row.push_back(ValueOf(statement, i));
        result.rows.push_back(std::move(row));
    }
    return code == SQLITE_DONE ? S_OK : FailAs(sqlite3_db_handle(statement), code);
}

}  // namespace

HRESULT Connection::Open(OleStringView path, std::shared_ptr<Connection>& connection) noexcept
{
    try {
        if (const int code = RegisterAccessFileVfs(); code != SQLITE_OK)
            return FailAs(nullptr, code);
        sqlite3* database = nullptr;
        const int code = sqlite3_open_v2(ToUtf8(path).c_str(), &database,
                                         SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, kAccessFileVfs);
        std::shared_ptr<Connection> made(new Connection(database));
        if (code != SQLITE_OK)
            return FailAs(database, code);
        const HRESULT hr = made->Prepare();
        if (SUCCEEDED(hr))
            connection = std::move(made);
        return hr;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

Connection::~Connection()
{
    sqlite3_close_v2(database_);
}

HRESULT Connection::Prepare() noexcept
{
    sqlite3_busy_timeout(database_, kBusyTimeoutMs);
    const int code =
        sqlite3_create_function_v2(database_, "Now", 0, SQLITE_UTF8, nullptr, Now, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
        return FailAs(database_, code);
    if (const HRESULT hr = RunText("SELECT count(*) FROM sqlite_master"); FAILED(hr))
        return hr;
    if (sqlite3_db_readonly(database_, "main") != 0)
        return Fail(DB_SEC_E_PERMISSIONDENIED, {"The file may not be written."});
    return S_OK;
}

HRESULT Connection::RunText(const char* text) noexcept
{
    const int code = sqlite3_exec(database_, text, nullptr, nullptr, nullptr);
    return code == SQLITE_OK ? S_OK : FailAs(database_, code);
}

HRESULT Connection::Run(OleStringView statement, const Parameters& parameters, Result& result) noexcept
{
    try {
        const std::string text = Translate(statement);
        sqlite3_stmt* raw = nullptr;
        const int code =
            sqlite3_prepare_v2(database_, text.c_str(), static_cast<int>(text.size() + 1), &raw, nullptr);
        const Statement prepared(raw);
        if (code != SQLITE_OK)
            return FailAs(database_, code);
        if (const HRESULT hr = Bind(raw, parameters); FAILED(hr))
            return hr;
        const HRESULT hr = TakeRows(raw, result);
        result.changed = sqlite3_changes(database_);
        return hr;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT Connection::Begin() noexcept
{
    if (!sqlite3_get_autocommit(database_))
        return Fail(XACT_E_XTIONEXISTS, {"There is a transaction already."});
    return RunText("BEGIN IMMEDIATE");
}

HRESULT Connection::End(bool commits) noexcept
{
    if (sqlite3_get_autocommit(database_))
        return Fail(XACT_E_NOTRANSACTION, {"There is no transaction."});
    return RunText(commits ? "COMMIT" : "ROLLBACK");
}

}  // namespace quorvane::test
