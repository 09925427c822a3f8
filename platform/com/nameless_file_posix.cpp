#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <new>
#include <string>

#include "platform/com/nameless_file.h"

namespace quorvane {

namespace {

HRESULT NamelessError(int error, HRESULT other) noexcept
{
    switch (error) {
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return STG_E_MEDIUMFULL;
        case EACCES:
        case EPERM:
        case EROFS:
            return STG_E_ACCESSDENIED;
        case ENOENT:
        case ENOTDIR:
            return STG_E_PATHNOTFOUND;
        case EMFILE:
        case ENFILE:
            return STG_E_TOOMANYOPENFILES;
        case ENOMEM:
            return E_OUTOFMEMORY;
        default:
            return other;
    }
}

// For file systems that can't make a file without a name.
int OpenAndUnlink(const char* directory)
{
    std::string name = std::string(directory) + "/qvXXXXXX";
    const int file = ::mkostemp(name.data(), O_CLOEXEC);
    if (file >= 0)
        ::unlink(name.c_str());
    return file;
}

int OpenIn(const char* directory)
{
    const int file = ::open(directory, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    const bool lacksIt = file < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL);
    return lacksIt ? OpenAndUnlink(directory) : file;
}

int OpenNameless()
{
    const char* const chosen = std::getenv("TMPDIR");
    if (chosen && *chosen)
        return OpenIn(chosen);
    const int file = OpenIn("/var/tmp");
    return file < 0 ? OpenIn("/tmp") : file;
}

bool IsPosition(std::uint64_t offset, std::size_t count) noexcept
{
    constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
    return offset <= kMost && count <= kMost - offset;
}

}  // namespace

HRESULT NamelessFile::Create() noexcept
{
    try {
        const int file = OpenNameless();
        if (file < 0)
            return NamelessError(errno, STG_E_WRITEFAULT);
        Close();
        handle_ = file;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

void NamelessFile::Close() noexcept
{
    if (IsOpen())
        ::close(static_cast<int>(handle_));
    handle_ = kNone;
}

HRESULT NamelessFile::ReadAt(std::uint64_t offset, void* buffer, std::size_t count) noexcept
{
    for (std::size_t done = 0; done < count;) {
        const ssize_t part = ::pread(static_cast<int>(handle_), static_cast<BYTE*>(buffer) + done,
                                     count - done, static_cast<off_t>(offset + done));
        if (part == 0 || (part < 0 && errno != EINTR))
            return STG_E_READFAULT;
        if (part > 0)
            done += static_cast<std::size_t>(part);
    }
    return S_OK;
}

HRESULT NamelessFile::WriteAt(std::uint64_t offset, const void* buffer, std::size_t count) noexcept
{
    if (!IsPosition(offset, count))
        return STG_E_MEDIUMFULL;
    for (std::size_t done = 0; done < count;) {
        const ssize_t part = ::pwrite(static_cast<int>(handle_), static_cast<const BYTE*>(buffer) + done,
                                      count - done, static_cast<off_t>(offset + done));
        if (part < 0 && errno != EINTR)
            return NamelessError(errno, STG_E_WRITEFAULT);
        if (part > 0)
            done += static_cast<std::size_t>(part);
    }
    return S_OK;
}

HRESULT NamelessFile::Resize(std::uint64_t size) noexcept
{
    if (!IsPosition(size, 0))
        return STG_E_MEDIUMFULL;
    if (::ftruncate(static_cast<int>(handle_), static_cast<off_t>(size)) != 0)
        return NamelessError(errno, STG_E_WRITEFAULT);
    return S_OK;
}

}  // namespace quorvane
