#include "platform/file/system_error.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "platform/file/path.h"
#include "platform/file/posix_file.h"

namespace quorvane {

namespace {

struct Counterpart {
    int posix;
    DWORD win32;
};

// The first of several with one Win32 code gives that code its text.
constexpr Counterpart kCounterparts[] = {
    {ENOENT, ERROR_FILE_NOT_FOUND},
    {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {ELOOP, ERROR_PATH_NOT_FOUND},
    {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
    {EACCES, ERROR_ACCESS_DENIED},
    {EPERM, ERROR_ACCESS_DENIED},
    {EISDIR, ERROR_ACCESS_DENIED},
    {EBADF, ERROR_INVALID_HANDLE},
    {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    {EXDEV, ERROR_NOT_SAME_DEVICE},
    {EROFS, ERROR_WRITE_PROTECT},
    {EAGAIN, ERROR_LOCK_VIOLATION},
    {EOPNOTSUPP, ERROR_NOT_SUPPORTED},
    {ENOSYS, ERROR_NOT_SUPPORTED},
    {EEXIST, ERROR_FILE_EXISTS},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {ENOSPC, ERROR_DISK_FULL},
    {EDQUOT, ERROR_DISK_FULL},
    {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
    {EBUSY, ERROR_BUSY},
    {ETXTBSY, ERROR_BUSY},
    {ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE},
    {EFBIG, ERROR_FILE_TOO_LARGE},
    {EIO, ERROR_IO_DEVICE},
};

bool IsDirectory(const std::string& path) noexcept
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

DWORD Win32FromErrno(int error) noexcept
{
    if (error == 0)
        return ERROR_SUCCESS;
    for (const Counterpart& each : kCounterparts) {
        if (each.posix == error)
            return each.win32;
    }
    return ERROR_GEN_FAILURE;
}

HRESULT LastSystemError() noexcept
{
    const int error = errno;
    return HRESULT_FROM_WIN32(error ? Win32FromErrno(error) : ERROR_GEN_FAILURE);
}

std::string SystemErrorText(DWORD win32Code)
{
    char buffer[256];
    for (const Counterpart& each : kCounterparts) {
        if (each.win32 == win32Code)
            return strerror_r(each.posix, buffer, sizeof(buffer));
    }
    return win32Code == ERROR_SUCCESS ? strerror_r(0, buffer, sizeof(buffer))
                                      : "Error " + std::to_string(win32Code);
}

namespace posix {

HRESULT PathError(const std::string& path) noexcept
{
    const int error = errno;
    if (HasZero(path))
        return HRESULT_FROM_WIN32(ERROR_INVALID_NAME);
    if (error != ENOENT)
        return HRESULT_FROM_WIN32(error ? Win32FromErrno(error) : ERROR_GEN_FAILURE);
    try {
        const std::string_view directory = DirectoryOf(path);
        const bool present = directory.empty() || IsDirectory(std::string(directory));
        return HRESULT_FROM_WIN32(present ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
    } catch (const std::bad_alloc&) {
        return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    }
}

}  // namespace posix

}  // namespace quorvane
