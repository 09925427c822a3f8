#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <new>
#include <string>

#include "platform/cfb/file_store.h"
#include "platform/cfb/result.h"
#include "platform/com/bstr.h"

namespace quorvane::cfb {
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

class PosixFileStore final : public ByteStore {
public:
    explicit PosixFileStore(int file) noexcept : file_(file) {}
    PosixFileStore(const PosixFileStore&) = delete;
    PosixFileStore& operator=(const PosixFileStore&) = delete;
    ~PosixFileStore() override { ::close(file_); }

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
            if (part < 0 && errno != EINTR)
                return FromErrno(errno, STG_E_WRITEFAULT);
            if (part > 0)
                done += static_cast<std::size_t>(part);
        }
        return S_OK;
    }

    HRESULT SetSize(std::uint64_t size) noexcept override
    {
        return ::ftruncate(file_, static_cast<off_t>(size)) == 0 ? S_OK : FromErrno(errno, STG_E_WRITEFAULT);
    }

    HRESULT GetSize(std::uint64_t* size) noexcept override
    {
        struct stat status;
        if (::fstat(file_, &status) != 0)
            return FromErrno(errno, STG_E_READFAULT);
        *size = static_cast<std::uint64_t>(status.st_size);
        return S_OK;
    }

private:
    int file_;
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
    struct stat status;
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
        return STG_E_INVALIDNAME;
    CFB_TRY(Lock(file, use));
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

}  // namespace quorvane::cfb
