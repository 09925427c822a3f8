#include "engine/persist/database.h"

#include <algorithm>

#include "engine/persist/connection_pool.h"
#include "engine/persist/database_backend.h"

namespace quorvane {
namespace {

constexpr size_t kMaxIdleConnections = 8;

// The value of Data Source="..." in a connection string; empty when there is none.
OleStringView DataSourceOf(OleStringView connection) noexcept
{
    constexpr OleStringView kName = OLESTR("Data Source=\"");
    const size_t name = connection.find(kName);
    if (name == OleStringView::npos)
        return {};
    const OleStringView rest = connection.substr(name + kName.size());
    const size_t end = std::min(rest.find(OLESTR("\";")), rest.rfind(OLESTR('"')));
    return end == OleStringView::npos ? OleStringView() : rest.substr(0, end);
}

// A row holds what its column has no room for.
HRESULT Misfit(const char* description) noexcept
{
    AddErrorRecord(description);
    return E_INVALIDARG;
}

// A number as one byte reads it: what is negative by its low byte, as a VARIANT_BOOL's true is 255.
bool ToByte(double& number) noexcept
{
    if (!(number > -129 && number < 256))
        return false;
    number = static_cast<BYTE>(static_cast<int>(number));
    return true;
}

}  // namespace

// StatementParameters

StatementParameters& StatementParameters::Text(ULONG width, BSTR value) noexcept
{
    try {
        return Text(width, Narrow(ViewOf(value)));
    } catch (...) {
        result_ = FAILED(result_) ? result_ : E_OUTOFMEMORY;
        return *this;
    }
}

StatementParameters& StatementParameters::Text(ULONG width, const std::string& value) noexcept
{
    const bool fits = value.size() < width && value.find('\0') == std::string::npos;
    if (!fits) {
        result_ = FAILED(result_) ? result_ : E_INVALIDARG;
        return *this;
    }
    Append(ValueType::Text, width, value, 0);
    return *this;
}

StatementParameters& StatementParameters::Add(ValueType type, double value) noexcept
{
    Append(type, 0, {}, value);
    return *this;
}

void StatementParameters::Append(ValueType type, ULONG width, const std::string& text, double number) noexcept
{
    try {
        values_.push_back({static_cast<ULONG>(values_.size() + 1), type, width, text, number});
    } catch (...) {
        result_ = FAILED(result_) ? result_ : E_OUTOFMEMORY;
    }
}

// Rowset

Rowset::Rowset() noexcept = default;
Rowset::Rowset(Rowset&& other) noexcept = default;
Rowset::~Rowset() = default;

Rowset& Rowset::operator=(Rowset&& other) noexcept
{
    Close();
    lease_ = std::move(other.lease_);
    cursor_ = std::move(other.cursor_);
    columns_ = std::move(other.columns_);
    cells_ = std::move(other.cells_);
    onRow_ = std::exchange(other.onRow_, false);
    return *this;
}

void Rowset::Close() noexcept
{
    cursor_.reset();
    lease_.reset();
    onRow_ = false;
}

HRESULT Rowset::Step() noexcept
{
    onRow_ = false;
    if (!cursor_)
        return kNotOpen;
    ClearErrorRecords();
    const HRESULT stepped = cursor_->Step();
    if (stepped != S_OK)
        return stepped;
    const HRESULT read = ReadRow();
    onRow_ = SUCCEEDED(read);
    return read;
}

HRESULT Rowset::ReadRow() noexcept
{
    try {
        cells_.assign(columns_.size(), Cell());
        for (ULONG i = 0; i < columns_.size(); ++i) {
            Cell& cell = cells_[i];
            cell.present = cursor_->HasValue(i + 1);
            if (!cell.present)
                continue;
            if (columns_[i].type == ValueType::Text) {
                if (!cursor_->Text(i + 1, columns_[i].width, cell.text))
                    return Misfit("A text is longer than its column.");
            } else {
                cell.number = cursor_->Number(i + 1);
                if (columns_[i].type == ValueType::Byte && !ToByte(cell.number))
                    return Misfit("A number has no room in its column.");
            }
        }
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

const Rowset::Cell* Rowset::CellAt(ULONG column, bool text) const noexcept
{
    if (!onRow_ || column == 0 || column > cells_.size())
        return nullptr;
    return (columns_[column - 1].type == ValueType::Text) == text ? &cells_[column - 1] : nullptr;
}

HRESULT Rowset::GetText(ULONG column, Bstr& value) const noexcept
{
    const Cell* const cell = CellAt(column, true);
    if (!cell)
        return E_INVALIDARG;
    try {
        value = Bstr(Widen(cell->text));
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT Rowset::GetText(ULONG column, std::string& value) const noexcept
{
    const Cell* const cell = CellAt(column, true);
    if (!cell)
        return E_INVALIDARG;
    try {
        value = cell->text;
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT Rowset::GetNumber(ULONG column, double& value) const noexcept
{
    const Cell* const cell = CellAt(column, false);
    if (!cell)
        return E_INVALIDARG;
    value = cell->number;
    return S_OK;
}

bool Rowset::HasValue(ULONG column) const noexcept
{
    return onRow_ && column > 0 && column <= cells_.size() && cells_[column - 1].present;
}

// DatabaseSession

// A connection is taken for each statement and goes back when its rows are read; a transaction keeps one.
struct DatabaseSession::State {
    explicit State(std::shared_ptr<DataSource::Pool> source) noexcept : pool(std::move(source)) {}
    ~State()
    {
        if (transaction && FAILED(transaction->Connection().Abort()))
            transaction->Discard();
    }

    const std::shared_ptr<DataSource::Pool> pool;
    Mutex mutex;
    std::shared_ptr<ConnectionLease> transaction QV_GUARDED_BY(mutex);
};

DatabaseSession::DatabaseSession() noexcept = default;
DatabaseSession::DatabaseSession(DatabaseSession&&) noexcept = default;
DatabaseSession& DatabaseSession::operator=(DatabaseSession&&) noexcept = default;
DatabaseSession::~DatabaseSession() = default;

namespace {

// Runs a statement that gives no rows on a connection.
HRESULT RunToEnd(DatabaseConnection& connection, const char* statement,
                 std::span<const ParameterValue> values) noexcept
{
    std::unique_ptr<DatabaseCursor> cursor;
    const HRESULT hr = connection.Run(statement, values, {}, cursor);
    if (FAILED(hr))
        return hr;
    HRESULT stepped = S_OK;
    while (stepped == S_OK)
        stepped = cursor->Step();
    return FAILED(stepped) ? stepped : S_OK;
}

}  // namespace

HRESULT DatabaseSession::Execute(const char* statement) noexcept
{
    return Execute(statement, StatementParameters());
}

HRESULT DatabaseSession::Execute(const char* statement, const StatementParameters& parameters) noexcept
{
    ClearErrorRecords();
    if (!state_)
        return kNotOpen;
    HR_TRY_QUIET(parameters.Result());
    try {
        {
            const MutexLock lock(state_->mutex);
            if (state_->transaction)
                return RunToEnd(state_->transaction->Connection(), statement, parameters.Values());
        }
        const ConnectionLease lease(state_->pool);
        HR_TRY_QUIET(lease.Result());
        return RunToEnd(lease.Connection(), statement, parameters.Values());
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT DatabaseSession::Query(const char* statement, std::span<const Column> columns, Rowset& rows) noexcept
{
    return Query(statement, StatementParameters(), columns, rows);
}

HRESULT DatabaseSession::Query(const char* statement, const StatementParameters& parameters,
                               std::span<const Column> columns, Rowset& rows) noexcept
{
    ClearErrorRecords();
    rows.Close();
    if (!state_)
        return kNotOpen;
    HR_TRY_QUIET(parameters.Result());
    try {
        Rowset result;
        result.columns_.assign(columns.begin(), columns.end());
        const MutexLock lock(state_->mutex);
        result.lease_ =
            state_->transaction ? state_->transaction : std::make_shared<ConnectionLease>(state_->pool);
        HR_TRY_QUIET(result.lease_->Result());
        HR_TRY_QUIET(
            result.lease_->Connection().Run(statement, parameters.Values(), columns, result.cursor_));
        rows = std::move(result);
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT DatabaseSession::StartTransaction() noexcept
{
    ClearErrorRecords();
    if (!state_)
        return kNotOpen;
    try {
        const MutexLock lock(state_->mutex);
        if (state_->transaction)
            return E_UNEXPECTED;
        auto lease = std::make_shared<ConnectionLease>(state_->pool);
        HR_TRY_QUIET(lease->Result());
        HR_TRY_QUIET(lease->Connection().StartTransaction());
        state_->transaction = std::move(lease);
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT DatabaseSession::Commit() noexcept
{
    ClearErrorRecords();
    if (!state_)
        return kNotOpen;
    const MutexLock lock(state_->mutex);
    if (!state_->transaction)
        return E_UNEXPECTED;
    const HRESULT hr = state_->transaction->Connection().Commit();
    if (FAILED(hr) && FAILED(state_->transaction->Connection().Abort()))
        state_->transaction->Discard();
    state_->transaction.reset();
    return hr;
}

HRESULT DatabaseSession::Abort() noexcept
{
    ClearErrorRecords();
    if (!state_)
        return kNotOpen;
    const MutexLock lock(state_->mutex);
    if (!state_->transaction)
        return E_UNEXPECTED;
    const HRESULT hr = state_->transaction->Connection().Abort();
    if (FAILED(hr))
        state_->transaction->Discard();
    state_->transaction.reset();
    return hr;
}

// DataSource

HRESULT DataSource::Pool::Take(std::unique_ptr<DatabaseConnection>& connection) noexcept
{
    HR_TRY_QUIET(TakeAny(connection));
    // One that can't be told waits, which is slower and no less safe; one that waits no more is no use.
    const HRESULT hr = connection->WaitForDisk(waits_);
    if (FAILED(hr) && waits_) {
        connection.reset();
        return hr;
    }
    return S_OK;
}

HRESULT DataSource::Pool::WaitForDisk(bool waits) noexcept
{
    if (!waits) {
        std::unique_ptr<DatabaseConnection> connection;
        HR_TRY_QUIET(Take(connection));
        HR_TRY_QUIET(connection->WaitForDisk(false));
        Return(std::move(connection));
    }
    waits_ = waits;
    return S_OK;
}

HRESULT DataSource::Pool::TakeAny(std::unique_ptr<DatabaseConnection>& connection) noexcept
{
    {
        const MutexLock lock(mutex_);
        if (!idle_.empty()) {
            connection = std::move(idle_.back());
            idle_.pop_back();
            return S_OK;
        }
    }
    return backend_->Connect(connection);
}

void DataSource::Pool::Return(std::unique_ptr<DatabaseConnection> connection) noexcept
{
    if (!backend_->KeepsConnections())
        return;
    const MutexLock lock(mutex_);
    if (idle_.size() >= kMaxIdleConnections)
        return;
    try {
        idle_.push_back(std::move(connection));
    } catch (...) {
        // It is closed instead.
    }
}

DataSource::DataSource() noexcept = default;
DataSource::~DataSource() = default;

HRESULT DataSource::Open(OleStringView connectionString) noexcept
{
    Close();
    ClearErrorRecords();
    const OleStringView path = DataSourceOf(connectionString);
    if (path.empty()) {
        AddErrorRecord("The connection string names no data source.");
        return E_INVALIDARG;
    }
    try {
        std::unique_ptr<DatabaseBackend> backend;
        HR_TRY_QUIET(OpenDatabase(connectionString, path, backend));
        auto pool = std::make_shared<Pool>(std::move(backend));
        // The first connection tells whether the file is a database; it stays for the first session.
        const ConnectionLease lease(pool);
        HR_TRY_QUIET(lease.Result());
        pool_ = std::move(pool);
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

void DataSource::Close() noexcept
{
    pool_.reset();
}

HRESULT DataSource::WaitForDisk(bool waits) noexcept
{
    ClearErrorRecords();
    return pool_ ? pool_->WaitForDisk(waits) : kNotOpen;
}

HRESULT DataSource::OpenSession(DatabaseSession& session) noexcept
{
    ClearErrorRecords();
    session = DatabaseSession();
    if (!pool_)
        return kNotOpen;
    try {
        session.state_ = std::make_unique<DatabaseSession::State>(pool_);
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

OleString ConnectionStringFor(OleStringView databasePath)
{
    OleString text = OLESTR("Provider=Microsoft.ACE.OLEDB.12.0;Data Source=\"");
    text += databasePath;
    text += OLESTR("\";User Id=Admin;Password=;Mode=ReadWrite;Jet OLEDB:Engine Type=5;");
    return text;
}

}  // namespace quorvane
