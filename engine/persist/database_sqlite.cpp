#include <sqlite3.h>

#include <new>
#include <string_view>
#include <unordered_map>

#include "engine/persist/database_backend.h"
#include "platform/sqlite/log_writes.h"

namespace quorvane {
namespace {

// How long a statement waits for another writer of the file.
constexpr int kBusyTimeoutMs = 30000;

// Access gives local time to the second; day 0 is 30 December 1899.
constexpr std::string_view kNow = "(julianday(datetime('now','localtime'))-2415018.5)";

// The result code for an SQLite one.
HRESULT ResultOf(int code, const char* message) noexcept
{
    switch (code & 0xFF) {
        case SQLITE_NOMEM:
            return E_OUTOFMEMORY;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return HRESULT_FROM_WIN32(ERROR_BUSY);
        case SQLITE_CONSTRAINT:
            return kIntegrityViolation;
        case SQLITE_READONLY:
            return kDatabasePermission;
        case SQLITE_PERM:
        case SQLITE_AUTH:
        case SQLITE_CANTOPEN:
            return STG_E_ACCESSDENIED;
        case SQLITE_NOTADB:
            return STG_E_OLDFORMAT;
        case SQLITE_CORRUPT:
            return STG_E_DOCFILECORRUPT;
        case SQLITE_FULL:
            return STG_E_MEDIUMFULL;
        case SQLITE_IOERR:
            return HRESULT_FROM_WIN32(ERROR_IO_DEVICE);
        case SQLITE_ERROR:
            return std::string_view(message).starts_with("no such table") ? kNoTable : kErrorsInCommand;
        default:
            return kErrorsInCommand;
    }
}

// The last failure of a connection, described.
HRESULT Failure(sqlite3* database, int code) noexcept
{
    const char* const message = database ? sqlite3_errmsg(database) : sqlite3_errstr(code);
    AddErrorRecord(message);
    return ResultOf(code, message);
}

void ReplaceAll(std::string& text, std::string_view from, std::string_view to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

// A statement of the Access dialect in SQLite's.
std::string Translate(std::string_view statement)
{
    std::string text(statement);
    ReplaceAll(text, "DELETE *", "DELETE");
    ReplaceAll(text, "Now()", kNow);
    return text;
}

struct CloseStatement {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, CloseStatement>;

struct CloseDatabase {
    void operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

struct FreeValue {
    void operator()(sqlite3_value* value) const noexcept { sqlite3_value_free(value); }
};
using Value = std::unique_ptr<sqlite3_value, FreeValue>;

// A statement and its values. It goes back to `home` when it is done with, if that place is still empty.
class SqliteCursor final : public DatabaseCursor {
public:
    // takesAll: the first step reads every row, so that the others don't keep a writer waiting.
    SqliteCursor(Statement statement, Statement* home, bool takesAll) noexcept
        : statement_(std::move(statement)), home_(home), takesAll_(takesAll)
    {}
    ~SqliteCursor() override
    {
        sqlite3_reset(statement_.get());
        sqlite3_clear_bindings(statement_.get());
        if (!*home_)
            *home_ = std::move(statement_);
    }

    HRESULT Bind(std::span<const ParameterValue> values)
    {
        if (static_cast<size_t>(sqlite3_bind_parameter_count(statement_.get())) != values.size()) {
            AddErrorRecord("The statement has another number of parameters.");
            return kErrorsInCommand;
        }
        for (const ParameterValue& value : values) {
            if (const int code = BindValue(value); code != SQLITE_OK)
                return Failure(sqlite3_db_handle(statement_.get()), code);
        }
        return S_OK;
    }

    ULONG ColumnCount() const noexcept { return static_cast<ULONG>(sqlite3_column_count(statement_.get())); }

    HRESULT Step() noexcept override
    {
        try {
            if (!takesAll_)
                return StepStatement();
            if (!ended_)
                HR_TRY_QUIET(TakeAll());
            if (nextRow_ == rows_.size())
                return kEndOfRowset;
            ++nextRow_;
            return S_OK;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

    bool HasValue(ULONG column) const noexcept override
    {
        const int type = takesAll_ ? sqlite3_value_type(Taken(column))
                                   : sqlite3_column_type(statement_.get(), Index(column));
        return type != SQLITE_NULL;
    }

    bool Text(ULONG column, ULONG width, std::string& text) const override
    {
        const auto* const found =
            reinterpret_cast<const char*>(takesAll_ ? sqlite3_value_text(Taken(column))
                                                    : sqlite3_column_text(statement_.get(), Index(column)));
        // No character needs more bytes here than four times those of the code page.
        if (found && std::string_view(found).size() / 4 >= width)
            return false;
        std::string narrow = found ? Narrow(FromUtf8(found)) : std::string();
        if (narrow.size() >= width)
            return false;
        text = std::move(narrow);
        return true;
    }

    double Number(ULONG column) const noexcept override
    {
        return takesAll_ ? sqlite3_value_double(Taken(column))
                         : sqlite3_column_double(statement_.get(), Index(column));
    }

private:
    using Row = std::vector<Value>;

    static int Index(ULONG column) noexcept { return static_cast<int>(column) - 1; }
    sqlite3_value* Taken(ULONG column) const noexcept { return rows_[nextRow_ - 1][column - 1].get(); }

    HRESULT StepStatement() noexcept
    {
        // A step past the end would run the statement again.
        if (ended_)
            return kEndOfRowset;
        const int code = sqlite3_step(statement_.get());
        if (code == SQLITE_ROW)
            return S_OK;
        ended_ = true;
        return code == SQLITE_DONE ? kEndOfRowset : Failure(sqlite3_db_handle(statement_.get()), code);
    }

    HRESULT TakeAll()
    {
        HRESULT hr = StepStatement();
        for (; hr == S_OK; hr = StepStatement())
            rows_.push_back(TakeRow());
        sqlite3_reset(statement_.get());
        if (FAILED(hr))
            rows_.clear();
        return FAILED(hr) ? hr : S_OK;
    }

    Row TakeRow() const
    {
        Row row;
        for (ULONG column = 1; column <= ColumnCount(); ++column) {
            row.emplace_back(sqlite3_value_dup(sqlite3_column_value(statement_.get(), Index(column))));
            if (!row.back())
                throw std::bad_alloc();
        }
        return row;
    }

    int BindValue(const ParameterValue& value)
    {
        const int place = static_cast<int>(value.ordinal);
        switch (value.type) {
            case ValueType::Text: {
                const std::string text = ToUtf8(Widen(value.text));
                return sqlite3_bind_text64(statement_.get(), place, text.data(), text.size(),
                                           SQLITE_TRANSIENT, SQLITE_UTF8);
            }
            case ValueType::Double:
                return sqlite3_bind_double(statement_.get(), place, value.number);
            default:
                return sqlite3_bind_int(statement_.get(), place, static_cast<int>(value.number));
        }
    }

    Statement statement_;
    Statement* const home_;
    const bool takesAll_;
    bool ended_ = false;
    std::vector<Row> rows_;  // all of them, if they are taken at once
    size_t nextRow_ = 0;
};

class SqliteConnection final : public DatabaseConnection {
public:
    explicit SqliteConnection(Database database) noexcept : database_(std::move(database)) {}

    // Looks at the file for the first time. STG_E_OLDFORMAT, kDatabasePermission and others.
    HRESULT Prepare() noexcept
    {
        sqlite3* const database = database_.get();
        sqlite3_extended_result_codes(database, 1);
        sqlite3_busy_timeout(database, kBusyTimeoutMs);
        sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
        HR_TRY_QUIET(RunText("SELECT count(*) FROM sqlite_master"));
        if (sqlite3_db_readonly(database, "main") != 0) {
            AddErrorRecord("The database may not be written.");
            return STG_E_ACCESSDENIED;
        }
        HR_TRY_QUIET(UseWriteAheadLog());
        return RunText("PRAGMA synchronous=FULL");
    }

    HRESULT Run(const char* statement, std::span<const ParameterValue> values,
                std::span<const Column> columns, std::unique_ptr<DatabaseCursor>& cursor) noexcept override
    {
        try {
            Statement& home = statements_[statement];
            Statement prepared = std::move(home);
            if (!prepared)
                HR_TRY_QUIET(PrepareStatement(statement, prepared));
            auto result = std::make_unique<SqliteCursor>(std::move(prepared), &home, !hasSnapshots_);
            HR_TRY_QUIET(result->Bind(values));
            if (!columns.empty() && result->ColumnCount() != columns.size()) {
                AddErrorRecord("The statement gives another number of columns.");
                return E_INVALIDARG;
            }
            cursor = std::move(result);
            return S_OK;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

    // Takes the write lock at once, so that a later statement needn't wait for it in the midst.
    HRESULT StartTransaction() noexcept override { return RunText("BEGIN IMMEDIATE"); }
    HRESULT Commit() noexcept override { return RunText("COMMIT"); }
    HRESULT Abort() noexcept override
    {
        // Some failures have ended the transaction by themselves.
        return sqlite3_get_autocommit(database_.get()) ? S_OK : RunText("ROLLBACK");
    }

    // Without a write-ahead log a commit that doesn't wait could cost more than itself.
    HRESULT WaitForDisk(bool waits) noexcept override
    {
        if (waits == waits_)
            return S_OK;
        if (!hasSnapshots_)
            return E_NOTIMPL;
        HR_TRY_QUIET(RunText(waits ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL"));
        waits_ = waits;
        return S_OK;
    }

private:
    // Lets readers and a writer work side by side. A file system that can't do it, or a file that somebody
    // reads at this moment, keeps the rollback journal. A directory that takes no file beside the database is
    // a failure: no statement could write.
    HRESULT UseWriteAheadLog() noexcept
    {
        sqlite3_busy_timeout(database_.get(), 0);
        sqlite3_stmt* raw = nullptr;
        int code = sqlite3_prepare_v2(database_.get(), "PRAGMA journal_mode=WAL", -1, &raw, nullptr);
        const Statement pragma(raw);
        if (code == SQLITE_OK)
            code = sqlite3_step(raw);
        sqlite3_busy_timeout(database_.get(), kBusyTimeoutMs);
        if ((code & 0xFF) == SQLITE_CANTOPEN || (code & 0xFF) == SQLITE_READONLY) {
            HR_IGNORE(Failure(database_.get(), code), "it is described; to a caller it is one case");
            return STG_E_ACCESSDENIED;
        }
        const auto* const mode =
            code == SQLITE_ROW ? reinterpret_cast<const char*>(sqlite3_column_text(raw, 0)) : nullptr;
        hasSnapshots_ = mode && std::string_view(mode) == "wal";
        return S_OK;
    }

    HRESULT RunText(const char* text) noexcept
    {
        const int code = sqlite3_exec(database_.get(), text, nullptr, nullptr, nullptr);
        return code == SQLITE_OK ? S_OK : Failure(database_.get(), code);
    }

    HRESULT PrepareStatement(const char* statement, Statement& prepared)
    {
        const std::string text = Translate(statement);
        sqlite3_stmt* raw = nullptr;
        const int code = sqlite3_prepare_v3(database_.get(), text.c_str(), static_cast<int>(text.size() + 1),
                                            SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
        prepared.reset(raw);
        return code == SQLITE_OK ? S_OK : Failure(database_.get(), code);
    }

    // The statements go before their database. References to the places stay good as the map grows.
    Database database_;
    std::unordered_map<std::string, Statement> statements_;
    bool hasSnapshots_ = false;  // a reader doesn't keep a writer waiting
    bool waits_ = true;          // for the disk, at each commit
};

class SqliteBackend final : public DatabaseBackend {
public:
    explicit SqliteBackend(std::string utf8Path) noexcept : path_(std::move(utf8Path)) {}

    HRESULT Connect(std::unique_ptr<DatabaseConnection>& connection) noexcept override
    {
        try {
            sqlite3* raw = nullptr;
            const int code = sqlite3_open_v2(path_.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                                             GatheringFiles());
            Database database(raw);
            if (code != SQLITE_OK)
                return Failure(raw, code);
            auto result = std::make_unique<SqliteConnection>(std::move(database));
            HR_TRY_QUIET(result->Prepare());
            connection = std::move(result);
            return S_OK;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

    bool KeepsConnections() const noexcept override { return true; }

private:
    const std::string path_;
};

}  // namespace

HRESULT OpenSqliteDatabase(OleStringView path, std::unique_ptr<DatabaseBackend>& backend) noexcept
{
    try {
        backend = std::make_unique<SqliteBackend>(ToUtf8(path));
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
