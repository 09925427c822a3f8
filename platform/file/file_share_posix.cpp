#include "platform/file/file_share_posix.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <limits>

#include "platform/file/system_error.h"

namespace quorvane::posix {

namespace {

enum ShareByte : off_t { kReads = 0, kWrites = 1, kForbidsReading = 2, kForbidsWriting = 3 };

constexpr off_t kRecord = std::numeric_limits<off_t>::max() - 15;

struct flock LockOf(short type, ShareByte byte) noexcept
{
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = kRecord + byte;
    lock.l_len = 1;
    return lock;
}

// Whether another opener stands in a byte.
bool IsHeldByOthers(int file, ShareByte byte) noexcept
{
    struct flock lock = LockOf(F_WRLCK, byte);
    return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// Failing to enter means that the file system has no such locks, or that the file can't be read.
void Enter(int file, ShareByte byte) noexcept
{
    struct flock lock = LockOf(F_RDLCK, byte);
    fcntl(file, F_OFD_SETLK, &lock);
}

// Serialises those that look at the record.
class RecordLock {
public:
    explicit RecordLock(int file) noexcept : file_(file)
    {
        int result = 0;
        do
            result = flock(file_, LOCK_EX);
        while (result != 0 && errno == EINTR);
        held_ = result == 0;
    }
    RecordLock(const RecordLock&) = delete;
    RecordLock& operator=(const RecordLock&) = delete;
    ~RecordLock()
    {
        if (held_)
            flock(file_, LOCK_UN);
    }

private:
    const int file_;
    bool held_ = false;
};

}  // namespace

HRESULT ClaimShare(int file, bool reads, bool writes, FileShare share) noexcept
{
    const bool forbidsReading = !(static_cast<unsigned>(share) & static_cast<unsigned>(FileShare::Read));
    const bool forbidsWriting = !(static_cast<unsigned>(share) & static_cast<unsigned>(FileShare::Write));
    const RecordLock lock(file);
    const bool refused = (reads && IsHeldByOthers(file, kForbidsReading)) ||
                         (writes && IsHeldByOthers(file, kForbidsWriting)) ||
                         (forbidsReading && IsHeldByOthers(file, kReads)) ||
                         (forbidsWriting && IsHeldByOthers(file, kWrites));
    if (refused)
        return HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION);
    if (reads)
        Enter(file, kReads);
    if (writes)
        Enter(file, kWrites);
    if (forbidsReading)
        Enter(file, kForbidsReading);
    if (forbidsWriting)
        Enter(file, kForbidsWriting);
    return S_OK;
}

bool IsWrittenByOthers(int file) noexcept
{
    return IsHeldByOthers(file, kWrites);
}

}  // namespace quorvane::posix
