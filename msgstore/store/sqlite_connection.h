// msgstore/store/sqlite_connection.h: one connection to an SQLite file, its statements and transactions.
//
// Threading: a connection and everything made from it are for one thread at a time.
// Failures come as MAPI codes: see ResultOfSqlite. Functions that take text or bytes may throw
// std::bad_alloc.
#ifndef QUORVANE_MSGSTORE_STORE_SQLITE_CONNECTION_H_
#define QUORVANE_MSGSTORE_STORE_SQLITE_CONNECTION_H_

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "msgstore/util/guarded.h"
#include "platform/mapi/mapi.h"

struct sqlite3;
struct sqlite3_stmt;

namespace quorvane {

using ByteView = std::span<const std::uint8_t>;

// The MAPI code of an (extended) SQLite result code: MAPI_E_BUSY, MAPI_E_CORRUPT_STORE (damaged, or no
// database at all), MAPI_E_NOT_ENOUGH_DISK, MAPI_E_NO_ACCESS, MAPI_E_DISK_ERROR, MAPI_E_TOO_BIG,
// MAPI_E_COLLISION (a unique key exists already), E_OUTOFMEMORY, MAPI_E_CALL_FAILED for the rest; S_OK for
// none.
HRESULT ResultOfSqlite(int code) noexcept;

// A prepared statement while it is in use. At its end it is reset and goes back to its connection, which it
// may not outlive. Parameters are bound in order; columns count from 0.
class SqliteRows {
public:
    SqliteRows() noexcept = default;
    SqliteRows(SqliteRows&& other) noexcept;
    SqliteRows& operator=(SqliteRows&&) = delete;
    ~SqliteRows();

    // True: stands on a row. False: no more rows, or a failure, which Result tells.
    bool Next() noexcept;
    // The first failure of preparing, binding or stepping; S_OK when there was none.
    [[nodiscard]] HRESULT Result() const noexcept { return result_; }

    std::int64_t Int64(int column) const noexcept;
    // Views end at the next call of Next.
    std::string_view Text(int column) const noexcept;
    ByteView Bytes(int column) const noexcept;
    bool IsNull(int column) const noexcept;

    // Runs the same statement once more with other values.
    void Rewind() noexcept;
    void Bind(std::int64_t value) noexcept;
    void Bind(std::string_view text) noexcept;
    void Bind(ByteView bytes) noexcept;
    void Bind(std::nullptr_t) noexcept;
    // A pointer that only a function of this project's finds, by `type`, a literal.
    void BindPointer(void* pointer, const char* type) noexcept;
    template <class T, std::size_t Size>
    void Bind(const std::array<T, Size>& bytes) noexcept
    {
        Bind(ByteView(bytes.data(), Size));
    }

private:
    friend class SqliteConnection;
    void Keep(int code) noexcept;

    sqlite3_stmt* statement_ = nullptr;
    bool* busy_ = nullptr;  // the cache's mark; null when the statement belongs to this object alone
    int bound_ = 0;
    HRESULT result_ = S_OK;
};

// How a connection is going to be used.
enum class SqliteAccess {
    Read,       // of a file that exists
    Write,      // of a file that exists
    CreateNew,  // makes the file if there is none
};

class SqliteConnection {
public:
    SqliteConnection() noexcept = default;
    SqliteConnection(const SqliteConnection&) = delete;
    SqliteConnection& operator=(const SqliteConnection&) = delete;
    ~SqliteConnection();

    // Opens the file and waits up to 10 seconds for others' locks at every operation from then on.
    [[nodiscard]] HRESULT Open(const std::string& path, SqliteAccess access) noexcept;

    // A statement with its parameters bound, ready for Next. The text is kept prepared: give the same text
    // again rather than texts with values in them.
    template <class... Values>
    SqliteRows Query(std::string_view sql, const Values&... values)
    {
        SqliteRows rows = Prepare(sql);
        (rows.Bind(values), ...);
        return rows;
    }
    // A statement that isn't kept, for texts of which there may be any number. Nothing is bound.
    SqliteRows QueryOnce(std::string_view sql);
    // Runs a statement that gives no rows.
    template <class... Values>
    [[nodiscard]] HRESULT Run(std::string_view sql, const Values&... values)
    {
        SqliteRows rows = Query(sql, values...);
        rows.Next();
        return rows.Result();
    }
    // Runs a list of statements without parameters, unprepared.
    [[nodiscard]] HRESULT RunScript(const char* sql) noexcept;

    std::int64_t LastInsertId() const noexcept;
    // Rows that the last statement inserted, changed or deleted.
    std::int64_t Changes() const noexcept;
    sqlite3* Native() const noexcept { return database_; }

private:
    struct Prepared {
        sqlite3_stmt* statement = nullptr;
        bool busy = false;
    };

    SqliteRows Prepare(std::string_view sql);

    sqlite3* database_ = nullptr;
    std::unordered_map<std::string, Prepared> statements_;
};

// A transaction: rolled back at the end of its scope unless it was committed.
class SqliteTransaction {
public:
    enum class Kind { Read, Write };

    SqliteTransaction(SqliteConnection& connection, Kind kind);
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;
    ~SqliteTransaction();

    // Whether it could be begun: the first thing to look at.
    [[nodiscard]] HRESULT Result() const noexcept { return begun_; }
    // A failure leaves everything as it was before the transaction.
    [[nodiscard]] HRESULT Commit();

private:
    SqliteConnection& connection_;
    HRESULT begun_;
    bool open_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_SQLITE_CONNECTION_H_
