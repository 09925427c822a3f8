// host/base/sqlite.h: the host's own databases: a connection and a statement that own themselves.
#ifndef QUORVANE_HOST_BASE_SQLITE_H_
#define QUORVANE_HOST_BASE_SQLITE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace quorvane::host {

struct FinalizeStatement {
    void operator()(sqlite3_stmt* handle) const noexcept;
};
using StatementHandle = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

// One connection. Every failure throws a HostError that names the file. For one thread at a time. It keeps
// the statements that were prepared on it, for as long as it is open.
class Database {
public:
    enum class Mode { kOpen, kCreate, kReadOnly };

    Database(const std::string& path, Mode mode);

    // From now on this connection reads the database as it is now, whatever others write, until it is closed.
    void FreezeReading();
    // How long to wait for another connection's lock; 20 seconds at first.
    void SetPatience(int milliseconds);
    // Copies the database as this connection reads it into a new file, and says how far it is, in pages.
    void CopyTo(const std::string& path, const std::function<void(int done, int total)>& report);

    // Runs one or more statements without parameters or rows.
    void Execute(const std::string& sql);
    const std::string& Path() const noexcept { return path_; }
    std::int64_t LastRow() const noexcept;
    int Changes() const noexcept;

private:
    friend class Statement;
    struct Close {
        void operator()(sqlite3* handle) const noexcept;
    };
    [[noreturn]] void Fail(const char* what) const;

    std::string path_;
    std::unique_ptr<sqlite3, Close> handle_;
    // By their texts, while none of them runs; they go before the connection.
    std::unordered_map<std::string, StatementHandle> statements_;
};

// A prepared statement with its parameters, counted from 1, and the columns of its present row, from 0. It
// ends before its database does, and its text is one of a few.
class Statement {
public:
    Statement(Database& database, const char* sql);
    Statement(Statement&&) noexcept = default;
    Statement& operator=(Statement&&) = delete;
    ~Statement();

    Statement& Bind(int index, std::string_view text);
    Statement& Bind(int index, std::int64_t number);
    Statement& BindNull(int index);

    // True when there is a row.
    bool Step();
    // Runs to the end and makes ready for new parameters.
    void Run();
    void Reset();

    std::string Text(int column) const;
    std::int64_t Number(int column) const;
    double Real(int column) const;
    bool IsNull(int column) const;

private:
    Database& database_;
    StatementHandle* home_;  // where it goes when it is done with
    StatementHandle handle_;
};

// Statements of one moment: the database is locked, and looked at for what others wrote, once for all of
// them.
class ReadTogether {
public:
    explicit ReadTogether(Database& database);
    ReadTogether(const ReadTogether&) = delete;
    ReadTogether& operator=(const ReadTogether&) = delete;
    ~ReadTogether();

private:
    Database& database_;
};

// A transaction that takes the write lock at once and is undone unless committed.
class Transaction {
public:
    explicit Transaction(Database& database);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();
    void Commit();

private:
    Database& database_;
    bool open_ = true;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_SQLITE_H_
