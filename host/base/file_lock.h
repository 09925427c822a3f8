// host/base/file_lock.h: keeps two runs of a mailbox apart.
#ifndef QUORVANE_HOST_BASE_FILE_LOCK_H_
#define QUORVANE_HOST_BASE_FILE_LOCK_H_

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace quorvane::host {

// An exclusive lock on a file, which is made where it is missing; held until destruction, and by the system
// no longer than the process lives.
class FileLock {
public:
    // Throws a HostError "cannot <what> '<object>': ..." when another process holds the lock.
    FileLock(const std::filesystem::path& path, std::string_view what, std::string_view object);
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

private:
    std::intptr_t handle_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_FILE_LOCK_H_
