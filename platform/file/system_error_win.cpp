#include <cerrno>

#include "platform/file/system_error.h"

namespace quorvane {

HRESULT LastSystemError() noexcept
{
    const DWORD error = GetLastError();
    return HRESULT_FROM_WIN32(error ? error : ERROR_GEN_FAILURE);
}

DWORD Win32FromErrno(int error) noexcept
{
    switch (error) {
        case 0:
            return ERROR_SUCCESS;
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case EACCES:
        case EPERM:
            return ERROR_ACCESS_DENIED;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case EBADF:
            return ERROR_INVALID_HANDLE;
        case EMFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case ENOSPC:
            return ERROR_DISK_FULL;
        default:
            return ERROR_GEN_FAILURE;
    }
}

std::string SystemErrorText(DWORD win32Code)
{
    char buffer[512];
    DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                  win32Code, 0, buffer, sizeof(buffer), nullptr);
    while (length > 0 &&
           (buffer[length - 1] == '\r' || buffer[length - 1] == '\n' || buffer[length - 1] == ' '))
        --length;
    return length > 0 ? std::string(buffer, length) : "Error " + std::to_string(win32Code);
}

}  // namespace quorvane
