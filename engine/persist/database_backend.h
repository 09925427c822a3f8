// persist/database_backend.h: what a database engine gives to persist/database.h.
//
// Failures are result codes of database.h; before a backend returns one it describes it with AddErrorRecord.
#ifndef QUORVANE_ENGINE_PERSIST_DATABASE_BACKEND_H_
#define QUORVANE_ENGINE_PERSIST_DATABASE_BACKEND_H_

#include <memory>
#include <span>
#include <string>

#include "engine/persist/database.h"

namespace quorvane {

// A statement under way on its connection. Destroyed before the connection is used otherwise.
class DatabaseCursor {
public:
    virtual ~DatabaseCursor() = default;

    // S_OK, kEndOfRowset or a failure.
    [[nodiscard]] virtual HRESULT Step() noexcept = 0;

    // A column of the present row, by its place from 1, which is one of those that the statement was run for.
    virtual bool HasValue(ULONG column) const noexcept = 0;
    // False: the text needs more than `width` bytes with its terminator; `text` is untouched. Throws
    // std::bad_alloc.
    virtual bool Text(ULONG column, ULONG width, std::string& text) const = 0;
    virtual double Number(ULONG column) const noexcept = 0;
};

// One connection: one thread's at a time.
class DatabaseConnection {
public:
    virtual ~DatabaseConnection() = default;

    // Prepares a statement and gives it its values; it has run after the cursor's first step.
    //
    // columns  [in]  how the columns of its result are bound; none for a statement that gives no rows.
    //                E_INVALIDARG: the result has another number of columns.
    [[nodiscard]] virtual HRESULT Run(const char* statement, std::span<const ParameterValue> values,
                                      std::span<const Column> columns,
                                      std::unique_ptr<DatabaseCursor>& cursor) noexcept = 0;

    [[nodiscard]] virtual HRESULT StartTransaction() noexcept = 0;
    [[nodiscard]] virtual HRESULT Commit() noexcept = 0;
    [[nodiscard]] virtual HRESULT Abort() noexcept = 0;

    // Whether the commits of the statements to come wait for the disk, as they do at first. E_NOTIMPL: this
    // kind of database can't tell.
    [[nodiscard]] virtual HRESULT WaitForDisk(bool waits) noexcept { return waits ? S_OK : E_NOTIMPL; }
};

// An opened database. Any thread may connect.
class DatabaseBackend {
public:
    virtual ~DatabaseBackend() = default;
    [[nodiscard]] virtual HRESULT Connect(std::unique_ptr<DatabaseConnection>& connection) noexcept = 0;
    // Whether a connection that one thread has made may be used by another, and so is worth keeping.
    virtual bool KeepsConnections() const noexcept = 0;
};

// The database of a connection string, whose path is `path`: Access's own, or an SQLite database. The results
// of DataSource::Open, except that for SQLite only the first connection tells whether the file is a database.
[[nodiscard]] HRESULT OpenDatabase(OleStringView connectionString, OleStringView path,
                                   std::unique_ptr<DatabaseBackend>& backend) noexcept;

// The two kinds. The file is there. S_FALSE: it isn't one of Access, or this system reads none of those.
[[nodiscard]] HRESULT OpenAccessDatabase(OleStringView connectionString, const std::string& path,
                                         std::unique_ptr<DatabaseBackend>& backend) noexcept;
[[nodiscard]] HRESULT OpenSqliteDatabase(OleStringView path,
                                         std::unique_ptr<DatabaseBackend>& backend) noexcept;

// The records of the calling thread. A record that there is no memory for is left out.
void ClearErrorRecords() noexcept;
void AddErrorRecord(const char* description) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_DATABASE_BACKEND_H_
