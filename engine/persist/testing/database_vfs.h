// persist/testing/database_vfs.h: stands between SQLite and the files, to count, refuse or remember what it
// does.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_VFS_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_VFS_H_

#include <filesystem>
#include <functional>

namespace quorvane::testing {

enum class DiskFault {
    None,
    Once,   // one change fails, the next ones don't
    Stays,  // every change fails from then on
    Kill,   // the process ends in front of the change
};

// While it lives SQLite's files of this process go through it. One at a time; made before the first database
// is opened, gone after the last one is closed.
//
// A change is a write, a truncation, a sync or a deletion of a database, a journal or a log.
class DatabaseVfs {
public:
    DatabaseVfs();
    DatabaseVfs(const DatabaseVfs&) = delete;
    DatabaseVfs& operator=(const DatabaseVfs&) = delete;
    ~DatabaseVfs();

    // Counts changes from now on; the `at`th (from 1) suffers.
    void Arm(DiskFault fault, unsigned at) noexcept;
    // Whether the fault has struck; disarms.
    bool Disarm() noexcept;

    // No shared memory, and so no write-ahead log, for files that are opened from now on.
    void DenySharedMemory(bool denied) noexcept;

    // How often a database was opened (its journals don't count), and how long SQLite has waited for others,
    // which it does in no time here.
    unsigned Opens() const noexcept;
    // How often SQLite's files wrote into write-ahead logs.
    unsigned LogWrites() const noexcept;
    unsigned WaitedMilliseconds() const noexcept;
    // Called on the waiting thread each time that SQLite waits for others.
    void WhenWaiting(std::function<void()> call);

    // Keeps what was synced from now on, and puts it into another directory: what a power failure would have
    // left.
    void RememberSyncs();
    void PutSynced(const std::filesystem::path& directory) const;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_DATABASE_VFS_H_
