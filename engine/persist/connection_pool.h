// persist/connection_pool.h: opened connections of a data source, kept for reuse.
#ifndef QUORVANE_ENGINE_PERSIST_CONNECTION_POOL_H_
#define QUORVANE_ENGINE_PERSIST_CONNECTION_POOL_H_

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include "engine/persist/database_backend.h"
#include "platform/com/mutex.h"

namespace quorvane {

class DataSource::Pool {
public:
    explicit Pool(std::unique_ptr<DatabaseBackend> backend) noexcept : backend_(std::move(backend)) {}

    // An idle connection, or a new one. Any thread.
    [[nodiscard]] HRESULT Take(std::unique_ptr<DatabaseConnection>& connection) noexcept;
    // Whether commits wait for the disk: counts for connections that are taken from now on.
    [[nodiscard]] HRESULT WaitForDisk(bool waits) noexcept;
    // Gives one back. It is closed if enough are idle already.
    void Return(std::unique_ptr<DatabaseConnection> connection) noexcept;

private:
    HRESULT TakeAny(std::unique_ptr<DatabaseConnection>& connection) noexcept;

    const std::unique_ptr<DatabaseBackend> backend_;
    std::atomic<bool> waits_{true};
    Mutex mutex_;
    std::vector<std::unique_ptr<DatabaseConnection>> idle_ QV_GUARDED_BY(mutex_);
};

// A connection that goes back to its pool.
class ConnectionLease {
public:
    // Throws std::bad_alloc. A failure to connect is Result().
    explicit ConnectionLease(std::shared_ptr<DataSource::Pool> pool)
        : pool_(std::move(pool)), result_(pool_->Take(connection_))
    {}
    ConnectionLease(const ConnectionLease&) = delete;
    ConnectionLease& operator=(const ConnectionLease&) = delete;
    ~ConnectionLease()
    {
        if (connection_)
            pool_->Return(std::move(connection_));
    }

    HRESULT Result() const noexcept { return result_; }
    DatabaseConnection& Connection() const noexcept { return *connection_; }
    // Closes the connection instead of giving it back: its state is unknown.
    void Discard() noexcept { connection_.reset(); }

private:
    const std::shared_ptr<DataSource::Pool> pool_;
    std::unique_ptr<DatabaseConnection> connection_;
    HRESULT result_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_CONNECTION_POOL_H_
