// persist/database.h: the sharing database as a list of operations.
//
// A DataSource is opened once from a connection string. Any thread opens a DatabaseSession on it for one
// operation, runs statements with positional parameters, and steps through rows:
//
//     DatabaseSession session;
//     HR_TRY(traced, session.Database().OpenSession(session));
//
//     StatementParameters parameters;
//     parameters.Text(width::kEntryId, m_bstrEntryID.Get());
//     Rowset rows;
//     HR_TRY_QUIET(session.Query(statements::kReadItem, parameters, columns::kReadItem, rows));
//     const HRESULT hr = rows.Step();         // S_OK, kEndOfRowset or a failure
//     if (hr != S_OK)
//         return hr;
//     HR_TRY(traced, rows.GetText(1, m_bstrID));
//
//     StatementParameters deletion;
//     deletion.Text(width::kId, m_bstrID.Get());
//     return TracedStatement(traced, session.Execute(statements::kDeleteItem, deletion));
//
// Text is narrow in the database (the ANSI code page) and has a fixed width in every statement: so many
// bytes with the terminator. A text that doesn't fit is refused with E_INVALIDARG, never cut.
#ifndef QUORVANE_ENGINE_PERSIST_DATABASE_H_
#define QUORVANE_ENGINE_PERSIST_DATABASE_H_

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "engine/session/trace/trace.h"
#include "platform/com/bstr.h"
#include "platform/com/mutex.h"

namespace quorvane {

// Stepping past the last row: a success code. Compare it, don't test its sign (DB_S_ENDOFROWSET).
inline constexpr HRESULT kEndOfRowset = 0x00040EC6;
// The data source, or the session, isn't open.
inline constexpr HRESULT kNotOpen = static_cast<HRESULT>(0x80040605u);

// What a failed statement gives; the error records tell more.
inline constexpr HRESULT kErrorsInCommand = static_cast<HRESULT>(0x80040E14u);     // it can't be understood
inline constexpr HRESULT kIntegrityViolation = static_cast<HRESULT>(0x80040E2Fu);  // a key exists already
inline constexpr HRESULT kNoTable = static_cast<HRESULT>(0x80040E37u);             // a table is missing
inline constexpr HRESULT kDatabasePermission = static_cast<HRESULT>(0x80040E09u);  // it may not be written

// How a value is bound.
enum class ValueType : unsigned char {
    Text,    // zero-terminated narrow text of a fixed width
    Double,  // DBTYPE_R8
    Byte,    // DBTYPE_UI1; a VARIANT_BOOL's true reads as 255
    Short,   // DBTYPE_I2
};

// One column of a statement's result, in the order of the statement.
struct Column {
    ValueType type;
    ULONG width;  // of a text, in bytes with the terminator; else 0
};

// One value for a question mark of a statement.
struct ParameterValue {
    ULONG ordinal;  // from 1
    ValueType type;
    ULONG width;
    std::string text;
    double number;
};

// The values for the question marks of a statement, given in their order. The first value that doesn't fit
// makes the statement fail with Result().
class StatementParameters {
public:
    // A text for the ANSI code page; null counts as empty. E_INVALIDARG: it needs more than `width` bytes
    // with its terminator, or holds a zero character. E_OUTOFMEMORY.
    StatementParameters& Text(ULONG width, BSTR value) noexcept;
    // The same of narrow text.
    StatementParameters& Text(ULONG width, const std::string& value) noexcept;
    StatementParameters& Double(double value) noexcept { return Add(ValueType::Double, value); }
    StatementParameters& Byte(BYTE value) noexcept { return Add(ValueType::Byte, value); }
    StatementParameters& Short(SHORT value) noexcept { return Add(ValueType::Short, value); }

    HRESULT Result() const noexcept { return result_; }
    std::span<const ParameterValue> Values() const noexcept { return values_; }

private:
    StatementParameters& Add(ValueType type, double value) noexcept;
    void Append(ValueType type, ULONG width, const std::string& text, double number) noexcept;

    std::vector<ParameterValue> values_;
    HRESULT result_ = S_OK;
};

class DatabaseBackend;
class DatabaseConnection;
class DatabaseCursor;
class ConnectionLease;

// The rows of one query. For one thread; closed before its session's data source is.
class Rowset {
public:
    Rowset() noexcept;
    Rowset(Rowset&&) noexcept;
    Rowset& operator=(Rowset&&) noexcept;
    ~Rowset();

    // Moves to the next row, at first to the first one.
    //
    // S_OK: there is a row. kEndOfRowset: there is no more. E_INVALIDARG: a text of the row is longer than
    // its column's width, or a number has no room in a byte. kNotOpen: no query. Others come from the
    // database.
    [[nodiscard]] HRESULT Step() noexcept;

    // A column of the present row, by its place from 1. A missing value is an empty text, or 0.
    //
    // E_INVALIDARG: there is no row, or no such column, or it is bound as another type. E_OUTOFMEMORY.
    // `value` is untouched after a failure.
    [[nodiscard]] HRESULT GetText(ULONG column, Bstr& value) const noexcept;
    [[nodiscard]] HRESULT GetText(ULONG column, std::string& value) const noexcept;
    [[nodiscard]] HRESULT GetNumber(ULONG column, double& value) const noexcept;
    // Whether the column of the present row has a value.
    bool HasValue(ULONG column) const noexcept;

    // Ends the query; the destructor does it too.
    void Close() noexcept;

private:
    friend class DatabaseSession;

    struct Cell {
        bool present = false;
        std::string text;
        double number = 0;
    };

    HRESULT ReadRow() noexcept;
    const Cell* CellAt(ULONG column, bool text) const noexcept;

    // The cursor goes before the connection that it stands on.
    std::shared_ptr<ConnectionLease> lease_;
    std::unique_ptr<DatabaseCursor> cursor_;
    std::vector<Column> columns_;
    std::vector<Cell> cells_;
    bool onRow_ = false;
};

// A place to run statements, cheap to make. Each statement commits by itself, outside of a transaction.
// Any thread may run statements on one session at any time; a transaction is one thread's at a time.
class DatabaseSession {
public:
    DatabaseSession() noexcept;
    DatabaseSession(DatabaseSession&&) noexcept;
    DatabaseSession& operator=(DatabaseSession&&) noexcept;
    // Aborts a transaction that is open.
    ~DatabaseSession();

    bool IsOpen() const noexcept { return state_ != nullptr; }

    // Runs a statement that gives no rows.
    //
    // statement   [in]  one of persist/statements.h.
    // parameters  [in]  one value for each question mark.
    //
    // S_OK, also when no row was touched. kNotOpen; kErrorsInCommand (also for a wrong number of values),
    // kIntegrityViolation, kNoTable, kDatabasePermission; ERROR_BUSY: another writer has kept the database
    // for half a minute; STG_E_MEDIUMFULL; STG_E_DOCFILECORRUPT; what `parameters` could not hold; others
    // come from the database. After a failure nothing of the statement is in the database, and the thread's
    // error records describe it if the database had its part in it.
    [[nodiscard]] HRESULT Execute(const char* statement, const StatementParameters& parameters) noexcept;
    [[nodiscard]] HRESULT Execute(const char* statement) noexcept;

    // Runs a statement that gives rows; the first Step of `rows` leads to the first. As Execute;
    // E_INVALIDARG: the statement doesn't have as many columns. `rows` is closed after a failure. The rows
    // are those of the moment of the first step: what is written meanwhile, by this session or another,
    // doesn't change them.
    [[nodiscard]] HRESULT Query(const char* statement, const StatementParameters& parameters,
                                std::span<const Column> columns, Rowset& rows) noexcept;
    [[nodiscard]] HRESULT Query(const char* statement, std::span<const Column> columns,
                                Rowset& rows) noexcept;

    // Makes the statements that follow one step, isolated as read-committed at the least. Commit returns when
    // they are on the disk. E_UNEXPECTED: there is a transaction already, or none to end. Every rowset of the
    // session is closed before.
    [[nodiscard]] HRESULT StartTransaction() noexcept;
    [[nodiscard]] HRESULT Commit() noexcept;
    [[nodiscard]] HRESULT Abort() noexcept;

private:
    friend class DataSource;
    struct State;

    std::unique_ptr<State> state_;
};

// The one database of a logon. Open and Close are one thread's, while no other uses the object; OpenSession
// may be called from any thread. Sessions and rowsets keep what they need of it alive.
class DataSource {
public:
    DataSource() noexcept;
    DataSource(const DataSource&) = delete;
    DataSource& operator=(const DataSource&) = delete;
    ~DataSource();

    // Opens the database that a connection string names as Data Source="...".
    //
    // S_OK. E_INVALIDARG: the string names none. STG_E_FILENOTFOUND: there is no such file.
    // STG_E_ACCESSDENIED: it may not be read and written. STG_E_OLDFORMAT: the file is no database. Others
    // come from the database. After a failure it isn't open, no file was made, and the thread's error
    // records describe the failure. An open data source is closed first.
    [[nodiscard]] HRESULT Open(OleStringView connectionString) noexcept;
    void Close() noexcept;
    bool IsOpen() const noexcept { return pool_ != nullptr; }

    // kNotOpen; E_OUTOFMEMORY; or what the database says. `session` holds nothing after a failure.
    [[nodiscard]] HRESULT OpenSession(DatabaseSession& session) noexcept;

    // Whether commits wait for the disk, as they do at first. One that doesn't outlives the process all the
    // same, and is on the disk with the next that waits. Any thread, while it is open; transactions under way
    // end as they began. E_NOTIMPL: this kind of database has them wait in any case. kNotOpen.
    [[nodiscard]] HRESULT WaitForDisk(bool waits) noexcept;

    class Pool;

private:
    std::shared_ptr<Pool> pool_;
};

// The connection string for a database file. Throws std::bad_alloc.
OleString ConnectionStringFor(OleStringView databasePath);

// What the database has told about the last failure on this thread, one text a record, in its order.
const std::vector<std::string>& DatabaseErrorRecords() noexcept;

// Writes one trace line for each error record of the thread. Follows the trace of a failed statement.
void TraceOLEDBError(HRESULT hr) noexcept;

// Passes a statement's result on; a failure is traced under the caller's name and then described.
inline HRESULT TracedStatement(const Traced& traced, HRESULT hr, unsigned line = __builtin_LINE()) noexcept
{
    if (FAILED(hr)) {
        traced(hr, line);
        TraceOLEDBError(hr);
    }
    return hr;
}

// Adds to an older file what this version needs: the column Version of tblItem, with 2.0 in every row that
// stands there. kNotOpen, or the failure to open a session (traced under CSession2::UpgradeDB); S_OK
// otherwise, whatever became of the upgrade.
HRESULT UpgradeDB(DataSource& source) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_DATABASE_H_
