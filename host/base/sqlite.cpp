#include "host/base/sqlite.h"

#include <sqlite3.h>

#include <utility>

#include "host/base/errors.h"
#include "platform/sqlite/open_database.h"

namespace quorvane::host {

namespace {

constexpr int kBusyTimeoutMilliseconds = 20'000;

int OpenFlags(Database::Mode mode)
{
    switch (mode) {
        case Database::Mode::kCreate:
            return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
        case Database::Mode::kReadOnly:
            return SQLITE_OPEN_READONLY;
        default:
            return SQLITE_OPEN_READWRITE;
    }
}

}  // namespace

void Database::Close::operator()(sqlite3* handle) const noexcept
{
    sqlite3_close_v2(handle);
}

Database::Database(const std::string& path, Mode mode) : path_(path)
{
    sqlite3* handle = nullptr;
    const int code = OpenDatabase(path.c_str(), OpenFlags(mode), kBusyTimeoutMilliseconds, handle);
    handle_.reset(handle);
    if (code != SQLITE_OK)
        Fail("open");
    if (mode != Mode::kReadOnly)
        Execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON");
}

void Database::Fail(const char* what) const
{
    host::Fail(what, path_, handle_ ? sqlite3_errmsg(handle_.get()) : "out of memory");
}

void Database::FreezeReading()
{
    Execute("BEGIN; SELECT count(*) FROM sqlite_master");
}

void Database::SetPatience(int milliseconds)
{
    sqlite3_busy_timeout(handle_.get(), milliseconds);
}

void Database::CopyTo(const std::string& path, const std::function<void(int done, int total)>& report)
{
    constexpr int kPagesAtOnce = 1024;
    const Database target(path, Mode::kCreate);
    const std::unique_ptr<sqlite3_backup, int (*)(sqlite3_backup*)> backup(
        sqlite3_backup_init(target.handle_.get(), "main", handle_.get(), "main"), sqlite3_backup_finish);
    if (!backup)
        target.Fail("copy the database to");
    int code = SQLITE_OK;
    while (code == SQLITE_OK) {
        code = sqlite3_backup_step(backup.get(), kPagesAtOnce);
        const int total = sqlite3_backup_pagecount(backup.get());
        report(total - sqlite3_backup_remaining(backup.get()), total);
    }
    if (code != SQLITE_DONE)
        host::Fail("copy the database to", path, sqlite3_errstr(code));
}

void Database::Execute(const std::string& sql)
{
    if (sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        Fail("use the database");
}

std::int64_t Database::LastRow() const noexcept
{
    return sqlite3_last_insert_rowid(handle_.get());
}

int Database::Changes() const noexcept
{
    return sqlite3_changes(handle_.get());
}

void FinalizeStatement::operator()(sqlite3_stmt* handle) const noexcept
{
    sqlite3_finalize(handle);
}

// The places in the map stay where they are while it grows.
Statement::Statement(Database& database, const char* sql)
    : database_(database), home_(&database.statements_[sql]), handle_(std::move(*home_))
{
    if (handle_)
        return;
    sqlite3_stmt* handle = nullptr;
    const int code =
        sqlite3_prepare_v3(database.handle_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &handle, nullptr);
    handle_.reset(handle);
    if (code != SQLITE_OK)
        database_.Fail("use the database");
}

// Of two that ran the same text at once the second goes.
Statement::~Statement()
{
    if (!handle_)
        return;
    Reset();
    if (!*home_)
        *home_ = std::move(handle_);
}

Statement& Statement::Bind(int index, std::string_view text)
{
    if (sqlite3_bind_text64(handle_.get(), index, text.data() ? text.data() : "", text.size(),
                            SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK)
        database_.Fail("use the database");
    return *this;
}

Statement& Statement::Bind(int index, std::int64_t number)
{
    if (sqlite3_bind_int64(handle_.get(), index, number) != SQLITE_OK)
        database_.Fail("use the database");
    return *this;
}

Statement& Statement::BindNull(int index)
{
    if (sqlite3_bind_null(handle_.get(), index) != SQLITE_OK)
        database_.Fail("use the database");
    return *this;
}

bool Statement::Step()
{
    const int code = sqlite3_step(handle_.get());
    if (code == SQLITE_ROW)
        return true;
    if (code != SQLITE_DONE)
        database_.Fail("use the database");
    return false;
}

void Statement::Run()
{
    while (Step()) {
    }
    Reset();
}

void Statement::Reset()
{
    sqlite3_reset(handle_.get());
    sqlite3_clear_bindings(handle_.get());
}

std::string Statement::Text(int column) const
{
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(handle_.get(), column));
    return text ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column)))
                : std::string();
}

std::int64_t Statement::Number(int column) const
{
    return sqlite3_column_int64(handle_.get(), column);
}

double Statement::Real(int column) const
{
    return sqlite3_column_double(handle_.get(), column);
}

bool Statement::IsNull(int column) const
{
    return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL;
}

ReadTogether::ReadTogether(Database& database) : database_(database)
{
    database_.Execute("BEGIN");
}

ReadTogether::~ReadTogether()
{
    try {
        database_.Execute("COMMIT");
    } catch (const HostError&) {
        // A failure ended it.
    }
}

Transaction::Transaction(Database& database) : database_(database)
{
    database_.Execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction()
{
    if (!open_)
        return;
    try {
        database_.Execute("ROLLBACK");
    } catch (...) {
        // SQLite rolls back by itself when the connection closes.
    }
}

void Transaction::Commit()
{
    database_.Execute("COMMIT");
    open_ = false;
}

}  // namespace quorvane::host
