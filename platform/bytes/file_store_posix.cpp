#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <string>

#include "platform/bytes/file_store.h"
#include "platform/com/bstr.h"
#include "platform/com/result.h"

namespace quorvane {
namespace {

// other: the code for an error that has none of its own.
HRESULT FromErrno(int error, HRESULT other) noexcept
{
    switch (error) {
        case ENOENT:
            return STG_E_FILENOTFOUND;
        case ENOTDIR:
            return STG_E_PATHNOTFOUND;
        case EEXIST:
            return STG_E_FILEALREADYEXISTS;
        case EACCES:
        case EPERM:
        case EROFS:
            return STG_E_ACCESSDENIED;
        case EISDIR:
        case EINVAL:
        case ENAMETOOLONG:
            return STG_E_INVALIDNAME;
        case EMFILE:
        case ENFILE:
            return STG_E_TOOMANYOPENFILES;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return STG_E_MEDIUMFULL;
        case ENOMEM:
            return E_OUTOFMEMORY;
        default:
            return other;
    }
}

// The file may be longer than the array of bytes that it stands for: it grows by kReserve, so that
// neighbouring writes needn't each enlarge it, and has zeros there. That end is given back when the file is
// closed; whoever is killed before leaves it to the next one who changes the file.
class PosixFileStore final : public ByteStore {
public:
    explicit PosixFileStore(int file) noexcept : file_(file) {}
    PosixFileStore(const PosixFileStore&) = delete;
    PosixFileStore& operator=(const PosixFileStore&) = delete;
    ~PosixFileStore() override
    {
        static_cast<void>(Settle());  // zeros behind the end do no harm
        ::close(file_);
    }
    // Takes the file's size. To be called once, before all else. False: it isn't a plain file.
    [[nodiscard]] bool Begin() noexcept
    {
        struct stat status;
        if (::fstat(file_, &status) != 0 || !S_ISREG(status.st_mode))
            return false;
        size_ = fileSize_ = static_cast<std::uint64_t>(status.st_size);
        return true;
    }

    HRESULT ReadAt(std::uint64_t offset, void* to, std::size_t count, std::size_t* read) noexcept override
    {
        *read = 0;
        while (*read < count) {
            const ssize_t part = ::pread(file_, static_cast<BYTE*>(to) + *read, count - *read,
                                         static_cast<off_t>(offset + *read));
            if (part == 0)
                break;
            if (part < 0 && errno != EINTR)
                return FromErrno(errno, STG_E_READFAULT);
            if (part > 0)
                *read += static_cast<std::size_t>(part);
        }
        return S_OK;
    }

    HRESULT WriteAt(std::uint64_t offset, const void* from, std::size_t count) noexcept override
    {
        if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) - count)
            return STG_E_MEDIUMFULL;
        for (std::size_t done = 0; done < count;) {
            const ssize_t part = ::pwrite(file_, static_cast<const BYTE*>(from) + done, count - done,
                                          static_cast<off_t>(offset + done));
            if (part < 0 && errno != EINTR) {
                const HRESULT hr = FromErrno(errno, STG_E_WRITEFAULT);
                static_cast<void>(Begin());  // a part may have been written behind the end
                return hr;
            }
            if (part > 0)
                done += static_cast<std::size_t>(part);
        }
        size_ = std::max(size_, offset + count);
        fileSize_ = std::max(fileSize_, size_);
        return S_OK;
    }

    HRESULT SetSize(std::uint64_t size) noexcept override
    {
        const bool reserve = size > fileSize_ && size <= kMostReserving;
        if (size < size_ || size > fileSize_) {
            if (!(reserve && SUCCEEDED(Truncate(RoundedUp(size)))))
                QV_TRY(Truncate(size));
        }
        size_ = size;
        return S_OK;
    }

    HRESULT GetSize(std::uint64_t* size) noexcept override
    {
        *size = size_;
        return S_OK;
    }

    HRESULT Reserve(std::uint64_t size) noexcept override
    {
        if (size <= fileSize_ || size > kMostReserving)
            return S_OK;
        const std::uint64_t reserved = RoundedUp(size);
        const auto from = static_cast<off_t>(fileSize_);
        if (::fallocate(file_, 0, from, static_cast<off_t>(reserved) - from) != 0) {
            const int error = errno;
            if (const auto now = Identify())
                fileSize_ = now->size;  // a part may have been given
            return error == EOPNOTSUPP || error == ENOSYS ? S_OK : FromErrno(error, STG_E_WRITEFAULT);
        }
        fileSize_ = reserved;
        return S_OK;
    }

    HRESULT Check() noexcept override
    {
        struct stat status;
        if (::fstat(file_, &status) != 0)
            return FromErrno(errno, STG_E_WRITEFAULT);
        return static_cast<std::uint64_t>(status.st_size) == fileSize_ ? S_OK : STG_E_WRITEFAULT;
    }

    HRESULT Settle() noexcept override { return fileSize_ > size_ ? Truncate(size_) : S_OK; }

    std::optional<Identity> Identify() noexcept override
    {
        struct stat status;
        if (::fstat(file_, &status) != 0)
            return std::nullopt;
        return Identity{status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size),
                        status.st_mtim.tv_sec * kSecond + status.st_mtim.tv_nsec};
    }

    // The times that writes leave advance in ticks of milliseconds, so that two writes may leave the same;
    // this one is told to the nanosecond. A file system that doesn't keep it so has no seal.
    std::optional<Identity> Seal() noexcept override
    {
        timespec now;
        if (::clock_gettime(CLOCK_REALTIME, &now) != 0)
            return std::nullopt;
        const timespec times[2] = {{0, UTIME_OMIT}, now};
        if (::futimens(file_, times) != 0)
            return std::nullopt;
        const auto identity = Identify();
        return identity && identity->changed == now.tv_sec * kSecond + now.tv_nsec ? identity : std::nullopt;
    }

private:
    static constexpr std::int64_t kSecond = 1'000'000'000;
    static constexpr std::uint64_t kReserve = 65536;
    // Files that end at 2 GB don't grow beyond that.
    static constexpr std::uint64_t kMostReserving = (std::uint64_t{1} << 31) - kReserve;

    static std::uint64_t RoundedUp(std::uint64_t size) noexcept
    {
        return (size + kReserve - 1) / kReserve * kReserve;
    }
    [[nodiscard]] HRESULT Truncate(std::uint64_t size) noexcept
    {
        if (::ftruncate(file_, static_cast<off_t>(size)) != 0)
            return FromErrno(errno, STG_E_WRITEFAULT);
        fileSize_ = size;
        return S_OK;
    }

    const int file_;
    std::uint64_t size_ = 0;
    std::uint64_t fileSize_ = 0;
};

int FlagsFor(FileUse use) noexcept
{
    switch (use) {
        case FileUse::kCreate:
            return O_RDWR | O_CREAT | O_EXCL;
        case FileUse::kCreateAnew:
            return O_RDWR | O_CREAT;
        case FileUse::kReadWrite:
            return O_RDWR;
        case FileUse::kRead:
        case FileUse::kReadSharing:
        case FileUse::kPeek:
            break;
    }
    return O_RDONLY;
}

// Locks belong to the open file, so that they hold within one process too.
HRESULT Lock(int file, FileUse use) noexcept
{
    if (use == FileUse::kPeek)
        return S_OK;
    const int kind = use == FileUse::kReadSharing ? LOCK_SH : LOCK_EX;
    while (::flock(file, kind | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK)
            return STG_E_SHAREVIOLATION;
        if (errno != EINTR)
            return S_OK;  // a file system without locks
    }
    return S_OK;
}

bool HasDirectory(const std::string& path) noexcept
{
    const std::size_t slash = path.find_last_of('/');
    struct stat status;
    return slash == std::string::npos || slash == 0 || ::stat(path.substr(0, slash).c_str(), &status) == 0;
}

HRESULT Open(const std::string& path, FileUse use, std::unique_ptr<ByteStore>* store)
{
    // Not blocking matters for what isn't a plain file; such a thing is refused below.
    const int file = ::open(path.c_str(), FlagsFor(use) | O_CLOEXEC | O_NONBLOCK, 0666);
    if (file < 0) {
        const HRESULT hr = FromErrno(errno, STG_E_ACCESSDENIED);
        return hr == STG_E_FILENOTFOUND && !HasDirectory(path) ? STG_E_PATHNOTFOUND : hr;
    }
    auto opened = std::make_unique<PosixFileStore>(file);
    if (!opened->Begin())
        return STG_E_INVALIDNAME;
    QV_TRY(Lock(file, use));
    *store = std::move(opened);
    return S_OK;
}

}  // namespace

HRESULT OpenFileStore(LPCOLESTR path, FileUse use, std::unique_ptr<ByteStore>* store) noexcept
{
    try {
        const std::string narrow = Narrow(OleStringView(path));
        return narrow.empty() ? STG_E_INVALIDNAME : Open(narrow, use, store);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
