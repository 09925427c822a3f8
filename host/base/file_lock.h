// host/base/file_lock.h: keeps two runs of a mailbox apart.
#ifndef QUORVANE_HOST_BASE_FILE_LOCK_H_
#define QUORVANE_HOST_BASE_FILE_LOCK_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

namespace quorvane::host {

// An exclusive lock on a file, which is made where it is missing; held until destruction, and by the system
// no longer than the process lives.
class FileLock {
public:
    // Nothing when another holder has the lock. Throws a HostError "cannot <what> '<object>': ..." when the
    // file can't be opened.
    static std::unique_ptr<FileLock> Take(const std::filesystem::path& path, std::string_view what,
                                          std::string_view object);
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

private:
    explicit FileLock(std::intptr_t handle) noexcept : handle_(handle) {}

    std::intptr_t handle_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_FILE_LOCK_H_
