#include "msgstore/store/sqlite_connection.h"

#include <sqlite3.h>

#include <utility>

#include "msgstore/store/table_functions.h"
#include "platform/file/file.h"
#include "platform/sqlite/open_database.h"

namespace quorvane {
namespace {

constexpr int kBusyMilliseconds = 10000;
// A lock is tried for so often that a writer's short rests between two steps of a long work are found.
constexpr int kRetryMilliseconds = 2;

int WaitForLock(void*, int tries)
{
    if (tries >= kBusyMilliseconds / kRetryMilliseconds)
        return 0;
    sqlite3_sleep(kRetryMilliseconds);
    return 1;
}

// A store is its user's alone, whatever the umask; SQLite gives its own files beside it the same mode. One
// that is there already stays as it is, and what fails here SQLite will tell.
void MakePrivate(const std::string& path) noexcept
{
    File file;
    (void)file.Open(path, FileAccess::Write, FileMode::CreateNew, FileShare::ReadWrite);
}

}  // namespace

HRESULT ResultOfSqlite(int code) noexcept
{
    if (code == SQLITE_CONSTRAINT_UNIQUE || code == SQLITE_CONSTRAINT_PRIMARYKEY)
        return MAPI_E_COLLISION;
    switch (code & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return S_OK;
        case SQLITE_NOMEM:
            return E_OUTOFMEMORY;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return MAPI_E_BUSY;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return MAPI_E_CORRUPT_STORE;
        case SQLITE_FULL:
            return MAPI_E_NOT_ENOUGH_DISK;
        case SQLITE_READONLY:
        case SQLITE_CANTOPEN:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return MAPI_E_NO_ACCESS;
        case SQLITE_IOERR:
            return MAPI_E_DISK_ERROR;
        case SQLITE_TOOBIG:
            return MAPI_E_TOO_BIG;
        default:
            return MAPI_E_CALL_FAILED;
    }
}

SqliteRows::SqliteRows(SqliteRows&& other) noexcept
    : statement_(std::exchange(other.statement_, nullptr)),
      busy_(std::exchange(other.busy_, nullptr)),
      bound_(other.bound_),
      result_(other.result_)
{}

SqliteRows::~SqliteRows()
{
    if (!statement_)
        return;
    if (!busy_) {
        sqlite3_finalize(statement_);
        return;
    }
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
    *busy_ = false;
}

void SqliteRows::Keep(int code) noexcept
{
    if (SUCCEEDED(result_))
        result_ = ResultOfSqlite(code);
}

bool SqliteRows::Next() noexcept
{
    if (!statement_ || FAILED(result_))
        return false;
    const int code = sqlite3_step(statement_);
    Keep(code);
    return code == SQLITE_ROW;
}

std::int64_t SqliteRows::Int64(int column) const noexcept
{
    return sqlite3_column_int64(statement_, column);
}

std::string_view SqliteRows::Text(int column) const noexcept
{
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return text ? std::string_view(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                : std::string_view();
}

ByteView SqliteRows::Bytes(int column) const noexcept
{
    const auto* const bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, column));
    return bytes ? ByteView(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                 : ByteView();
}

bool SqliteRows::IsNull(int column) const noexcept
{
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

void SqliteRows::Rewind() noexcept
{
    sqlite3_reset(statement_);
    bound_ = 0;
}

void SqliteRows::Bind(std::int64_t value) noexcept
{
    Keep(sqlite3_bind_int64(statement_, ++bound_, value));
}

void SqliteRows::Bind(std::string_view text) noexcept
{
    const char* const start = text.data() ? text.data() : "";
    Keep(sqlite3_bind_text64(statement_, ++bound_, start, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void SqliteRows::Bind(ByteView bytes) noexcept
{
    const void* const start = bytes.data() ? static_cast<const void*>(bytes.data()) : "";
    Keep(sqlite3_bind_blob64(statement_, ++bound_, start, bytes.size(), SQLITE_TRANSIENT));
}

void SqliteRows::Bind(std::nullptr_t) noexcept
{
    Keep(sqlite3_bind_null(statement_, ++bound_));
}

void SqliteRows::BindPointer(void* pointer, const char* type) noexcept
{
    Keep(sqlite3_bind_pointer(statement_, ++bound_, pointer, type, nullptr));
}

SqliteConnection::~SqliteConnection()
{
    for (auto& [sql, prepared] : statements_)
        sqlite3_finalize(prepared.statement);
    sqlite3_close_v2(database_);
}

HRESULT SqliteConnection::Open(const std::string& path, SqliteAccess access) noexcept
{
    // A reader of a write-ahead log needs to write the log's index, so that it opens the file for writing as
    // well.
    int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE | SQLITE_OPEN_READWRITE;
    if (access == SqliteAccess::CreateNew) {
        flags |= SQLITE_OPEN_CREATE;
        MakePrivate(path);
    }
    const int code = OpenDatabase(path.c_str(), flags, kBusyMilliseconds, database_);
    if (code != SQLITE_OK)
        return ResultOfSqlite(code);
    QV_RETURN_IF_FAILED(ResultOfSqlite(sqlite3_busy_handler(database_, WaitForLock, nullptr)));
    QV_RETURN_IF_FAILED(ResultOfSqlite(AddTableFunctions(database_)));
    if (access == SqliteAccess::Read)
        return RunScript("PRAGMA query_only=ON");
    return S_OK;
}

HRESULT SqliteConnection::RunScript(const char* sql) noexcept
{
    return ResultOfSqlite(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr));
}

SqliteRows SqliteConnection::Prepare(std::string_view sql)
{
    Prepared& kept = statements_[std::string(sql)];
    SqliteRows rows;
    if (!kept.statement) {
        rows.Keep(sqlite3_prepare_v3(database_, sql.data(), static_cast<int>(sql.size()),
                                     SQLITE_PREPARE_PERSISTENT, &kept.statement, nullptr));
    } else if (kept.busy) {
        rows.Keep(sqlite3_prepare_v3(database_, sql.data(), static_cast<int>(sql.size()), 0, &rows.statement_,
                                     nullptr));
        return rows;
    }
    rows.statement_ = kept.statement;
    if (kept.statement) {
        rows.busy_ = &kept.busy;
        kept.busy = true;
    }
    return rows;
}

SqliteRows SqliteConnection::QueryOnce(std::string_view sql)
{
    SqliteRows rows;
    rows.Keep(sqlite3_prepare_v3(database_, sql.data(), static_cast<int>(sql.size()), 0, &rows.statement_,
                                 nullptr));
    return rows;
}

std::int64_t SqliteConnection::LastInsertId() const noexcept
{
    return sqlite3_last_insert_rowid(database_);
}

std::int64_t SqliteConnection::Changes() const noexcept
{
    return sqlite3_changes64(database_);
}

SqliteTransaction::SqliteTransaction(SqliteConnection& connection, Kind kind)
    : connection_(connection),
      begun_(connection.Run(kind == Kind::Write ? "BEGIN IMMEDIATE" : "BEGIN")),
      open_(SUCCEEDED(begun_))
{}

SqliteTransaction::~SqliteTransaction()
{
    // SQLite may have rolled back by itself after a severe failure: then there is nothing left to undo.
    if (open_)
        (void)Guarded([this] { return connection_.Run("ROLLBACK"); });
}

HRESULT SqliteTransaction::Commit()
{
    QV_RETURN_IF_FAILED(begun_);
    QV_RETURN_IF_FAILED(connection_.Run("COMMIT"));
    open_ = false;
    return S_OK;
}

}  // namespace quorvane
